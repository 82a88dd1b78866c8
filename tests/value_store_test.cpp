// The stores of long values: their blocks, a model of thousands of values, damaged lists, and failures everywhere.
#include "kaldbchain/chain.h"
#include "support/faults.h"
#include "support/temp_dir.h"

#include <kaldb/kaldb.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

/// A block of a stored value, as its table has it.
struct Block {
    KALDBIndexRecord place{};
    KALDBBinaryRecord fields{};
    std::array<char, 2048> bytes{};
};

class Store : public testing::Test {
protected:
    Store() { open(); }
    ~Store() override
    {
        faults::reset();
        close();
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }

    /// 0: the smallest cache, of four pages.
    void open(uint32_t cacheBytes = 0)
    {
        uint32_t isNew = 0;
        ASSERT_EQ(kaldbInitialize((dir_ / "db").u16string().c_str(), cacheBytes, &db_, &isNew), 0u);
    }
    void close() { EXPECT_EQ(kaldbDeinitialize(db_), 0u); }
    KALDBDatabase* db() const { return db_; }

    /// The blocks of the list at `location`, as far as it goes.
    std::vector<Block> blocks(const char16_t* table, const KALDBIndexRecord& location)
    {
        std::vector<Block> list;
        withTable(table, [&](KALDBTable* handle) {
            for (KALDBIndexRecord at = location; at.page != KALDB_NO_PAGE;) {
                Block block;
                block.place = at;
                block.fields.data = block.bytes.data();
                ASSERT_EQ(kaldbBinaryTableGetRecord(handle, &at, &block.fields), 0u);
                at.page = block.fields.nextPage;
                at.index = block.fields.nextIndex;
                list.push_back(block);
            }
        });
        return list;
    }
    /// Their lengths: "64 64 2".
    std::string lengths(const char16_t* table, const KALDBIndexRecord& location, uint32_t total)
    {
        std::string text;
        for (const Block& block : blocks(table, location)) {
            EXPECT_EQ(block.fields.totalSize, total);
            text += (text.empty() ? "" : " ") + std::to_string(block.fields.length);
        }
        return text;
    }
    /// Slots in use in all pages of both stores.
    size_t blocksInUse()
    {
        size_t count = 0;
        uint32_t pages = 0;
        EXPECT_EQ(kalPageManagerGetPageCount(kaldb::kaldbChainGetPageManager(), &pages), 0u);
        for (const char16_t* table : {u"SysBinary", u"SysVarString"})
            withTable(table, [&](KALDBTable* handle) {
                Block block;
                block.fields.data = block.bytes.data();
                for (block.place.page = 0; block.place.page < pages; ++block.place.page)
                    for (block.place.index = 0; kaldbBinaryTableGetRecord(handle, &block.place, &block.fields) == 0;
                         ++block.place.index)
                        count += block.fields.totalSize != 0 ? 1 : 0;
            });
        return count;
    }
    void write(const char16_t* table, Block block)
    {
        block.fields.data = block.bytes.data();
        withTable(table, [&](KALDBTable* handle) {
            ASSERT_EQ(kaldbBinaryTableUpdateRecord(handle, &block.place, &block.fields), 0u);
        });
    }

private:
    void withTable(const char16_t* name, const std::function<void(KALDBTable*)>& use)
    {
        KALDBTable* handle = nullptr;
        const KALDBChainCallbacks none{};
        ASSERT_EQ(kaldbTableOpen(db_, name, &none, &handle), 0u);
        use(handle);
        EXPECT_EQ(kaldbTableClose(handle), 0u);
    }

    test::TempDir dir_;
    KALDBDatabase* db_ = nullptr;
};

struct Value {
    KALDBVariant v{};

    Value() { kaldbVariantInitialize(8, &v); }
    explicit Value(const std::string& bytes, uint32_t type = 21) : Value() { set(bytes, type); }
    ~Value() { kaldbVariantDeinitialize(&v); }
    Value(const Value&) = default;
    Value& operator=(const Value&) = default;

    void set(const std::string& bytes, uint32_t type = 21)
    {
        ASSERT_EQ(kaldbVariantSetBinary(&v, type, bytes.data(), static_cast<uint32_t>(bytes.size())), 0u);
    }
    std::string get() const
    {
        const void* data = nullptr;
        kaldbVariantGetDataPointer(&v, &data);
        return data == nullptr ? "nothing" : std::string(static_cast<const char*>(data), v.size);
    }
};

struct Text {
    KALDBVarString s{};
    std::array<char, 8> area{};

    explicit Text(const std::u16string& text) { EXPECT_EQ(kaldbVarStringCreate(8, &s, text.c_str()), 0u); }
    ~Text() { kaldbVarStringDelete(&s); }
    Text(const Text&) = default;
};

std::string pattern(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>('!' + i % 90);
    return bytes;
}

TEST_F(Store, ValuesAreCutIntoBlocksOf64AndTextsOf128)
{
    struct Case {
        size_t size;
        std::string values, texts;
    };
    for (const Case& c :
         {Case{8, "8", "8"}, Case{64, "64", "64"}, Case{65, "64 1", "65"}, Case{128, "64 64", "128"},
          Case{129, "64 64 1", "128 1"}, Case{130, "64 64 2", "128 2"}, Case{301, "64 64 64 64 45", "128 128 45"}}) {
        for (uint32_t type : {16u, 17u, 18u, 20u, 21u}) {
            Value value{pattern(c.size), type};
            ASSERT_EQ(kaldbVariantInsertRecord(&value.v), 0u);
            EXPECT_EQ(lengths(u"SysBinary", value.v.location, value.v.size), c.values);
            Value read = value;  // as it comes out of a record
            ASSERT_EQ(kaldbVariantGetRecord(&read.v), 0u);
            kaldbVariantEmpty(&value.v);
            EXPECT_EQ(read.get(), pattern(c.size));
            EXPECT_EQ(kaldbVariantDeleteRecord(&read.v), 0u);
            EXPECT_EQ(kaldbVariantDeleteRecord(&read.v), 1u) << "its blocks are gone";
        }
        const std::string narrow = pattern(c.size - 1);
        Text text{std::u16string(narrow.begin(), narrow.end())};
        ASSERT_EQ(kaldbVarStringInsertRecord(&text.s), c.size == 8 ? 6u : 0u);
        if (c.size == 8)
            continue;
        EXPECT_EQ(lengths(u"SysVarString", text.s.location, text.s.length + 1), c.texts);
        Text read = text;
        ASSERT_EQ(kaldbVarStringGetRecord(&read.s), 0u);
        kaldbVarStringDelete(&text.s);
        EXPECT_STREQ(kaldbVarStringGetPSZ(&read.s), narrow.c_str());
        EXPECT_EQ(kaldbVarStringDeleteRecord(&read.s), 0u);
        EXPECT_EQ(kaldbVarStringDeleteRecord(&read.s), 1u);
    }
}

TEST_F(Store, WhatIsNotStoredAndWhatIsNotOpen)
{
    Value small{"5 byt"}, other{pattern(100), 19}, large{pattern(100)}, id;
    const KALDBID zero{};
    kaldbVariantSetID(&id.v, &zero);
    Text shortText{u"short"}, longText{u"a text in a block"}, cramped = longText;
    cramped.s.capacity = 3;
    const auto statuses = [](KALDBVariant& v) {
        return std::array{kaldbVariantInsertRecord(&v), kaldbVariantGetRecord(&v), kaldbVariantDeleteRecord(&v)};
    };
    const auto textStatuses = [](KALDBVarString& s) {
        return std::array{kaldbVarStringInsertRecord(&s), kaldbVarStringGetRecord(&s), kaldbVarStringDeleteRecord(&s)};
    };
    using Statuses = std::array<uint32_t, 3>;
    const Value copy = small;
    EXPECT_EQ(statuses(small.v), (Statuses{6, 6, 6}));
    EXPECT_EQ(small.get(), copy.get());
    EXPECT_EQ(statuses(other.v), (Statuses{1, 1, 1}));
    EXPECT_EQ(statuses(id.v), (Statuses{1, 1, 1})) << "and the identifier is untouched";
    EXPECT_EQ(id.v.type, 1u);
    EXPECT_EQ(other.get(), pattern(100));
    EXPECT_EQ(textStatuses(shortText.s), (Statuses{6, 6, 6}));
    EXPECT_EQ(kaldbVarStringGetRecord(&cramped.s), 19u);
    EXPECT_EQ(kaldbVariantUpdateRecord(&large.v), 20u);
    EXPECT_EQ(kaldbVarStringUpdateRecord(&longText.s), 20u);
    Value stale = large;
    kaldbVariantEmpty(&large.v);
    EXPECT_EQ(kaldbVariantInsertRecord(&stale.v), 3u) << "no data to store";
    large.set(pattern(100));

    EXPECT_EQ(kaldbInitBinaryTable(db()), 0u) << "open already";
    EXPECT_EQ(kaldbDeinitBinaryTable(db()), 0u);
    EXPECT_EQ(kaldbDeinitVarStringTable(db()), 0u);
    EXPECT_EQ(statuses(large.v), (Statuses{3, 3, 3}));
    EXPECT_EQ(textStatuses(longText.s), (Statuses{3, 3, 3}));
    EXPECT_EQ(kaldbDeinitBinaryTable(db()), 3u);
    EXPECT_EQ(kaldbDeinitVarStringTable(db()), 3u);
}

// A record as a caller has it: a key, a value and a text, both long or short.
struct Record {
    uint32_t key = 0;
    KALDBVariant note{};
    KALDBVarString name{};
    char area[8] = {};

    void set(uint32_t newKey, const std::string& bytes)
    {
        key = newKey;
        kaldbVariantInitialize(8, &note);
        ASSERT_EQ(kaldbVariantSetBinary(&note, 21, bytes.data(), static_cast<uint32_t>(bytes.size())), 0u);
        ASSERT_EQ(kaldbVarStringCreate(8, &name, std::u16string(bytes.begin(), bytes.end()).c_str()), 0u);
    }
    /// Reads the long values of a record that came out of a table.
    bool holds(const std::string& bytes)
    {
        const uint32_t expected = bytes.size() < 8 ? 6 : 0;
        const void* data = nullptr;
        return kaldbVariantGetRecord(&note) == expected && kaldbVarStringGetRecord(&name) == expected &&
               kaldbVariantGetDataPointer(&note, &data) == 0 && note.size == bytes.size() &&
               std::memcmp(data, bytes.data(), bytes.size()) == 0 && kaldbVarStringGetPSZ(&name) == bytes;
    }
    void release()
    {
        kaldbVariantDeinitialize(&note);
        kaldbVarStringDelete(&name);
    }
};

int32_t byKey(const void* probe, const void* stored)
{
    uint32_t keys[2];
    std::memcpy(&keys[0], probe, sizeof keys[0]);
    std::memcpy(&keys[1], stored, sizeof keys[1]);
    return (keys[0] > keys[1]) - (keys[0] < keys[1]);
}

class Notes : public Store {
protected:
    void openTable()
    {
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byKey;
        ASSERT_EQ(kaldbTableOpen(db(), u"Notes", &callbacks, &table_), 0u);
    }
    Record read(uint32_t key)
    {
        Record record;
        EXPECT_EQ(kaldbTableQueryPK(table_, &key, &record, sizeof record), 0u);
        return record;
    }
    bool readAll()
    {
        return std::all_of(model_.begin(), model_.end(), [&](const auto& entry) {
            Record record = read(entry.first);
            const bool good = record.holds(entry.second);
            record.release();
            return good;
        });
    }

    KALDBTable* table_ = nullptr;
    std::map<uint32_t, std::string> model_;
};

TEST_F(Notes, ThousandsOfRecordsReadByAnotherProcessAndReleasedInEveryOrder)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 engine(seed);
    constexpr uint32_t cache = 1 << 20;
    close();
    open(cache);
    const size_t before = blocksInUse();
    const KALDBTableInfo info{u"Notes", sizeof(Record), 0, 0, 0};
    ASSERT_EQ(kaldbTableCreate(db(), &info), 0u);
    openTable();
    for (uint32_t key = 0; key < 1000; ++key) {
        Record record;
        record.set(key, model_[key] = pattern(1 + engine() % (key % 4 == 0 ? 10 : 300)));
        const uint32_t expected = model_[key].size() < 8 ? 6 : 0;
        ASSERT_EQ(kaldbVariantInsertRecord(&record.note), expected);
        ASSERT_EQ(kaldbVarStringInsertRecord(&record.name), expected);
        ASSERT_EQ(kaldbTableInsertRecord(table_, &record, 0, nullptr), 0u);
        if (key % 2 == 0) {
            EXPECT_TRUE(record.holds(model_[key])) << "read over the value that was stored";
        }
        record.release();
    }
    ASSERT_EQ(kaldbTableClose(table_), 0u);
    close();
    EXPECT_EXIT(
        {
            open(cache);
            openTable();
            const bool good = readAll();
            close();
            _exit(good && !HasFailure() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");

    open(cache);
    openTable();
    std::vector<std::unique_ptr<Record>> held;
    for (const auto& [key, bytes] : model_) {
        held.push_back(std::make_unique<Record>(read(key)));
        Record& record = *held.back();
        ASSERT_TRUE(record.holds(bytes));
        ASSERT_EQ(kaldbVariantDeleteRecord(&record.note), bytes.size() < 8 ? 6u : 0u);
        ASSERT_EQ(kaldbVarStringDeleteRecord(&record.name), bytes.size() < 8 ? 6u : 0u);
        if (Record copy = record; engine() % 2 == 0)
            copy.release();
        if (engine() % 4 == 0)
            kaldbVariantSet(&record.note, 16, "another value, as long as it takes", 0);
        std::swap(held[engine() % held.size()], held.back());
        if (engine() % 2 == 0) {
            held.back()->release();
            held.pop_back();
        }
    }
    for (auto& record : held)
        record->release();
    ASSERT_EQ(kaldbTableClose(table_), 0u);
    EXPECT_EQ(blocksInUse(), before);
}

TEST_F(Store, DamagedListsAreRefused)
{
    struct Damage {
        const char* what;
        size_t block;
        size_t sound;  // blocks before the damage
        std::function<void(Block&, const std::vector<Block>&)> edit;
    };
    for (const Damage& damage :
         {Damage{"total of the first", 0, 0, [](Block&b, auto&) { b.fields.totalSize = UINT32_MAX; }},
          Damage{"total of the second", 1, 1, [](Block&b, auto&) { ++b.fields.totalSize; }},
          Damage{"no bytes", 1, 1, [](Block&b, auto&) { b.fields.length = 0; }},
          Damage{"more bytes than remain", 2, 2, [](Block&b, auto&) { ++b.fields.length; }},
          Damage{"fewer bytes than remain", 2, 2, [](Block&b, auto&) { --b.fields.length; }},
          Damage{"ends early", 1, 1, [](Block&b, auto&) { b.fields.nextPage = KALDB_NO_PAGE; }},
          Damage{"leads nowhere", 0, 1, [](Block&b, auto&) { b.fields.nextPage = 77777; }},
          Damage{"goes on", 2, 2,
                 [](Block&b, auto&all) {
                     b.fields.nextPage = all[0].place.page;
                     b.fields.nextIndex = all[0].place.index;
                 }},
          Damage{"round and round", 1, 2, [](Block&b, auto&all) {
                     b.fields.length = 1;
                     b.fields.nextPage = all[1].place.page;
                     b.fields.nextIndex = all[1].place.index;
                 }}}) {
        SCOPED_TRACE(damage.what);
        const auto check = [&](const char16_t* table, const KALDBIndexRecord& location, const auto& get,
                               const auto& remove) {
            const std::vector<Block> list = blocks(table, location);
            ASSERT_EQ(list.size(), 3u);
            Block changed = list[damage.block];
            damage.edit(changed, list);
            write(table, changed);
            const size_t live = faults::liveBlocks();
            EXPECT_EQ(get(), 1u);
            EXPECT_EQ(faults::liveBlocks(), live - 1) << "what was read is freed, and the value's earlier block";
            const size_t before = blocksInUse();
            EXPECT_EQ(remove(), 1u);
            EXPECT_EQ(before - blocksInUse(), damage.sound);
        };
        Value value{pattern(140)};
        ASSERT_EQ(kaldbVariantInsertRecord(&value.v), 0u);
        check(
            u"SysBinary", value.v.location, [&] { return kaldbVariantGetRecord(&value.v); },
            [&] { return kaldbVariantDeleteRecord(&value.v); });
        EXPECT_EQ(value.get(), "nothing");
        Text text{std::u16string(300, u'x')};
        ASSERT_EQ(kaldbVarStringInsertRecord(&text.s), 0u);
        check(
            u"SysVarString", text.s.location, [&] { return kaldbVarStringGetRecord(&text.s); },
            [&] { return kaldbVarStringDeleteRecord(&text.s); });
        EXPECT_EQ(kaldbVarStringGetPSZ(&text.s), nullptr);
    }
    Value lost{pattern(140)};
    lost.v.location.page = 77777;
    EXPECT_EQ(kaldbVariantGetRecord(&lost.v), 16u);
    EXPECT_EQ(kaldbVariantDeleteRecord(&lost.v), 16u);
}

TEST_F(Store, EveryCallFailedOnce)
{
    const std::string bytes = pattern(140);
    Value value, stored{bytes}, large{pattern(8000)};
    Text text{u""}, storedText{std::u16string(300, u'x')};
    ASSERT_EQ(kaldbVariantInsertRecord(&large.v), 0u);
    ASSERT_EQ(kaldbVariantInsertRecord(&stored.v), 0u);
    ASSERT_EQ(kaldbVarStringInsertRecord(&storedText.s), 0u);

    // Runs an operation with its 1st, 2nd, ... call of the support library failing, until none is left to fail. Before
    // each run the large value takes the whole cache, so that the operation must read its pages.
    const auto failEachCall = [&](auto&& prepare, auto&& operation, auto&& check) {
        for (unsigned n = 1;; ++n) {
            prepare();
            ASSERT_EQ(kaldbVariantGetRecord(&large.v), 0u);
            faults::failAt(faults::anyCall, n, KAL_IO_ERROR);
            const uint32_t status = operation();
            const bool struck = faults::struck();
            faults::reset();
            if (!struck) {
                EXPECT_EQ(status, 0u);
                EXPECT_GT(n, 2u);
                return;
            }
            check(status);
        }
    };
    failEachCall([&] { value.set(bytes); }, [&] { return kaldbVariantInsertRecord(&value.v); },
                 [&](uint32_t status) {
                     EXPECT_EQ(value.v.location.page == KALDB_NO_PAGE, status != 0);
                     EXPECT_EQ(value.get(), bytes);
                 });
    const size_t live = faults::liveBlocks();
    failEachCall(
        [&] {
            kaldbVariantEmpty(&value.v);
            value = stored;
        },
        [&] { return kaldbVariantGetRecord(&value.v); },
        [&](uint32_t status) {
            EXPECT_EQ(value.get(), status == 0 || status == 7 ? bytes : "nothing");  // 7: still the original's copy
            EXPECT_EQ(faults::liveBlocks(), status == 0 ? live : live - 1);
        });
    failEachCall(
        [&] {
            kaldbVarStringDelete(&text.s);
            text = storedText;
        },
        [&] { return kaldbVarStringGetRecord(&text.s); },
        [&](uint32_t status) {
            const char* got = kaldbVarStringGetPSZ(&text.s);
            EXPECT_EQ(got == nullptr ? "nothing" : std::string(got),
                      status == 0 || status == 7 ? std::string(300, 'x') : "nothing");
        });
    failEachCall(
        [&] {
            value.set(bytes);
            ASSERT_EQ(kaldbVariantInsertRecord(&value.v), 0u);
        },
        [&] { return kaldbVariantDeleteRecord(&value.v); }, [&](uint32_t) { EXPECT_EQ(value.get(), bytes); });
    for (unsigned n = 1, status = 1; status != 0; ++n) {
        ASSERT_EQ(kaldbVarStringGetRecord(&storedText.s), 0u);
        ASSERT_EQ(kaldbDeinitVarStringTable(db()), 0u);
        ASSERT_EQ(kaldbVariantGetRecord(&large.v), 0u);
        faults::failAt(faults::anyCall, n, KAL_IO_ERROR);
        status = kaldbInitVarStringTable(db());
        faults::reset();
        EXPECT_EQ(kaldbVarStringGetRecord(&storedText.s), status == 0 ? 0u : 3u);
        ASSERT_EQ(kaldbInitVarStringTable(db()), 0u);
    }
}

}  // namespace
