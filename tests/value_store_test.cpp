// The stores of long values: their blocks, a model of many records, damaged lists, and failures everywhere.
#include "kaldbchain/chain.h"
#include "support/faults.h"
#include "support/temp_dir.h"
#include "support/values.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <unistd.h>
#include <vector>

namespace {

using test::pattern;
using test::Text;
using test::Value;

/// A block of a stored value, as its table has it.
struct Block {
    KALDBIndexRecord place{};
    KALDBBinaryRecord fields{};
    std::array<char, 2048> bytes{};

    uint32_t read(KALDBTable* table)
    {
        fields.data = bytes.data();
        return kaldbBinaryTableGetRecord(table, &place, &fields);
    }
    void link(const KALDBIndexRecord& next)
    {
        fields.nextPage = next.page;
        fields.nextIndex = next.index;
    }
};

class Store : public testing::Test {
protected:
    Store() { open(); }
    ~Store() override
    {
        close();
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }

    /// The smallest cache, of four pages, unless told otherwise.
    void open(uint32_t cacheBytes = 0)
    {
        uint32_t isNew = 0;
        ASSERT_EQ(kaldbInitialize((dir_ / "db").u16string().c_str(), cacheBytes, &db_, &isNew), 0u);
    }
    void close() { EXPECT_EQ(kaldbDeinitialize(db_), 0u); }
    KALDBDatabase* db() const { return db_; }

    void withTable(const char16_t* name, const std::function<void(KALDBTable*)>& use)
    {
        KALDBTable* table = nullptr;
        const KALDBChainCallbacks none{};
        ASSERT_EQ(kaldbTableOpen(db_, name, &none, &table), 0u);
        use(table);
        EXPECT_EQ(kaldbTableClose(table), 0u);
    }
    std::vector<Block> blocks(const char16_t* name, const KALDBIndexRecord& location)
    {
        std::vector<Block> list;
        withTable(name, [&](KALDBTable* table) {
            Block block;
            for (block.place = location; block.place.page != KALDB_NO_PAGE;) {
                ASSERT_EQ(block.read(table), 0u);
                list.push_back(block);
                block.place.page = block.fields.nextPage;
                block.place.index = block.fields.nextIndex;
            }
        });
        return list;
    }
    void write(const char16_t* name, Block block)
    {
        block.fields.data = block.bytes.data();
        withTable(name, [&](KALDBTable* table) {
            ASSERT_EQ(kaldbBinaryTableUpdateRecord(table, &block.place, &block.fields), 0u);
        });
    }
    /// Slots in use in all pages of both stores.
    long blocksInUse()
    {
        uint32_t pages = 0;
        EXPECT_EQ(kalPageManagerGetPageCount(kaldb::kaldbChainGetPageManager(), &pages), 0u);
        long count = 0;
        for (const char16_t* name : {Value::table, Text::table})
            withTable(name, [&](KALDBTable* table) {
                Block block;
                for (block.place.page = 0; block.place.page < pages; ++block.place.page)
                    for (block.place.index = 0; block.read(table) == 0; ++block.place.index)
                        count += block.fields.totalSize != 0 ? 1 : 0;
            });
        return count;
    }

private:
    test::TempDir dir_;
    KALDBDatabase* db_ = nullptr;
};

TEST_F(Store, ValuesAreCutIntoBlocksOf64AndTextsOf128)
{
    // The list of a stored value: "64 64 2". Then the value comes back without the original's help.
    const auto roundTrip = [&](auto&& original) {
        const std::string content = original.content();
        EXPECT_EQ(original.store(), 0u);
        std::string list;
        for (const Block& block : blocks(original.table, original.location())) {
            EXPECT_EQ(block.fields.totalSize, content.size() + (original.table == Text::table ? 1 : 0));
            list.append(list.empty() ? "" : " ").append(std::to_string(block.fields.length));
        }
        auto copy = original;  // as it comes out of a record
        EXPECT_EQ(copy.fetch(), 0u);
        original.assign("");
        EXPECT_EQ(copy.content(), content);
        EXPECT_EQ(copy.erase(), 0u);
        EXPECT_EQ(copy.erase(), 1u) << "its blocks are gone";
        EXPECT_EQ(copy.content(), content);
        return list;
    };
    struct Case {
        size_t size;
        const char* values;
        const char* texts;
    };
    for (const Case& c : {Case{9, "9", "9"}, Case{64, "64", "64"}, Case{65, "64 1", "65"}, Case{128, "64 64", "128"},
                          Case{129, "64 64 1", "128 1"}, Case{301, "64 64 64 64 45", "128 128 45"}}) {
        for (uint32_t type : {16u, 18u, 20u, 21u})
            EXPECT_EQ(roundTrip(Value{pattern(c.size), type}), c.values);
        EXPECT_EQ(roundTrip(Text{8, test::widened(pattern(c.size - 1))}), c.texts);
    }
    Value wide, copy;
    ASSERT_EQ(kaldbVariantSetString(&wide.v, KALDB_VT_WSTRING, u"€, in multibyte form"), 0u);
    ASSERT_EQ(wide.store(), 0u);
    copy = wide;
    EXPECT_EQ(copy.fetch(), 0u);
    EXPECT_EQ(copy.get(), wide.get());
}

TEST_F(Store, WhatIsNotStoredAndWhatIsNotOpen)
{
    using Statuses = std::array<uint32_t, 3>;
    const auto statuses = [](auto& value) { return Statuses{value.store(), value.fetch(), value.erase()}; };
    Value small{"5 byt"}, other{pattern(100), 19}, large{pattern(100)}, id;
    const KALDBID any{};
    kaldbVariantSetID(&id.v, &any);
    Text shortText{8, u"short"}, longText{8, u"a text in a block"}, cramped = longText;
    cramped.s.capacity = 3;

    EXPECT_EQ(statuses(small), (Statuses{6, 6, 6}));
    EXPECT_EQ(statuses(shortText), (Statuses{6, 6, 6}));
    EXPECT_EQ(statuses(other), (Statuses{1, 1, 1}));
    EXPECT_EQ(statuses(id), (Statuses{1, 1, 1}));
    EXPECT_EQ(small.get() + other.get(), "5 byt" + pattern(100));
    EXPECT_EQ(cramped.fetch(), 19u);
    EXPECT_EQ(kaldbVariantUpdateRecord(&large.v), 20u);
    EXPECT_EQ(kaldbVarStringUpdateRecord(&longText.s), 20u);
    Value lost = large;
    lost.v.location.page = 77777;
    EXPECT_EQ(Value{lost}.fetch(), 16u);
    EXPECT_EQ(lost.erase(), 16u);
    large.set(pattern(100));
    EXPECT_EQ(lost.store(), 3u) << "a copy without its original has nothing to store";

    EXPECT_EQ(kaldbInitBinaryTable(db()), 0u) << "open already";
    for (uint32_t expected : {0u, 3u}) {
        EXPECT_EQ(kaldbDeinitBinaryTable(db()), expected);
        EXPECT_EQ(kaldbDeinitVarStringTable(db()), expected);
    }
    EXPECT_EQ(statuses(large), (Statuses{3, 3, 3}));
    EXPECT_EQ(statuses(longText), (Statuses{3, 3, 3}));
}

/// A record as a caller has it: a key, a value and a text, both long or short.
struct Record {
    uint32_t key = 0;
    Value note;
    Text name;
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
    /// Whether the record comes back, with its long values.
    bool read(uint32_t key, Record& record)
    {
        const std::string& bytes = model_[key];
        const uint32_t expected = bytes.size() < 8 ? 6 : 0;
        return kaldbTableQueryPK(table_, &key, &record, sizeof record) == 0 && record.note.fetch() == expected &&
               record.name.fetch() == expected && record.note.get() == bytes && record.name.content() == bytes;
    }
    bool readAll()
    {
        return std::all_of(model_.begin(), model_.end(), [&](const auto& entry) {
            Record record;
            return read(entry.first, record);
        });
    }

    KALDBTable* table_ = nullptr;
    std::map<uint32_t, std::string> model_;
};

TEST_F(Notes, RecordsReadByAnotherProcessAndReleasedInEveryOrder)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 engine(seed);
    constexpr uint32_t cache = 1 << 20;
    close();
    open(cache);
    const long before = blocksInUse();
    const KALDBTableInfo info{u"Notes", sizeof(Record), 0, 0, 0};
    ASSERT_EQ(kaldbTableCreate(db(), &info), 0u);
    openTable();
    for (uint32_t key = 0; key < 500; ++key) {
        const std::string& bytes = model_[key] = pattern(1 + engine() % (key % 4 == 0 ? 10 : 300));
        Record record{key, Value{bytes}, Text{8, test::widened(bytes)}};
        ASSERT_EQ(record.note.store(), bytes.size() < 8 ? 6u : 0u);
        ASSERT_EQ(record.name.store(), bytes.size() < 8 ? 6u : 0u);
        ASSERT_EQ(kaldbTableInsertRecord(table_, &record, 0, nullptr), 0u);
        ASSERT_TRUE(key % 2 == 0 || read(key, record)) << "over the record that was stored";
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
        held.push_back(std::make_unique<Record>());
        Record& record = *held.back();
        ASSERT_TRUE(read(key, record));
        const Record copy = record;  // released first, and without effect
        ASSERT_EQ(record.note.erase(), bytes.size() < 8 ? 6u : 0u);
        ASSERT_EQ(record.name.erase(), bytes.size() < 8 ? 6u : 0u);
        if (engine() % 4 == 0)
            record.note.set("another value, as long as it takes");
        std::swap(held[engine() % held.size()], held.back());
        if (engine() % 2 == 0)
            held.pop_back();
    }
    ASSERT_EQ(kaldbTableClose(table_), 0u);
    EXPECT_EQ(blocksInUse(), before);
}

TEST_F(Store, DamagedListsAreRefused)
{
    struct Damage {
        const char* what;
        size_t block;
        long sound;  // blocks before the damage
        void (*edit)(Block& block, const std::vector<Block>& list);
    };
    using List = const std::vector<Block>&;
    for (const Damage& damage : {
             Damage{"total of the first", 0, 0, [](Block&b, List) { b.fields.totalSize = UINT32_MAX; }},
             Damage{"total of the second", 1, 1, [](Block&b, List) { ++b.fields.totalSize; }},
             Damage{"no bytes", 1, 1, [](Block&b, List) { b.fields.length = 0; }},
             Damage{"more bytes than remain", 2, 2, [](Block&b, List) { ++b.fields.length; }},
             Damage{"fewer bytes than remain", 2, 2, [](Block&b, List) { --b.fields.length; }},
             Damage{"ends early", 1, 1, [](Block&b, List) { b.fields.nextPage = KALDB_NO_PAGE; }},
             Damage{"leads nowhere", 0, 1, [](Block&b, List) { b.fields.nextPage = 77777; }},
             Damage{"goes on", 2, 2, [](Block&b, List list) { b.link(list[0].place); }},
             Damage{"round and round", 1, 2,
                    [](Block&b, List list) {
                        b.fields.length = 1;
                        b.link(list[1].place);
                    }},
         }) {
        SCOPED_TRACE(damage.what);
        const auto refused = [&](auto& value) {
            ASSERT_EQ(value.store(), 0u);
            const std::vector<Block> list = blocks(value.table, value.location());
            ASSERT_EQ(list.size(), 3u);
            Block changed = list[damage.block];
            damage.edit(changed, list);
            write(value.table, changed);
            const size_t live = faults::liveBlocks();
            EXPECT_EQ(value.fetch(), 1u);
            EXPECT_EQ(value.content(), "[3]");
            EXPECT_EQ(faults::liveBlocks(), live - 1) << "what was read is freed, and the value's earlier block";
            const long before = blocksInUse();
            EXPECT_EQ(value.erase(), 1u);
            EXPECT_EQ(before - blocksInUse(), damage.sound);
        };
        Value value;
        value.assign(pattern(140));
        refused(value);
        Text text;
        text.assign(pattern(300));
        refused(text);
    }
    // A ring of one byte under a huge size is noticed at once, not after as many rounds.
    Value ring{pattern(64)};
    ASSERT_EQ(ring.store(), 0u);
    Block block = blocks(ring.table, ring.location())[0];
    block.fields.totalSize = ring.v.size = 1u << 30;
    block.fields.length = 1;
    block.link(block.place);
    write(ring.table, block);
    EXPECT_EQ(ring.fetch(), 1u);

    Text unending{8, u"a text in a block"};
    ASSERT_EQ(unending.store(), 0u);
    block = blocks(unending.table, unending.location())[0];
    block.bytes[unending.s.length] = '!';
    write(unending.table, block);
    EXPECT_EQ(unending.fetch(), 1u);
    EXPECT_EQ(unending.content(), "[3]");
}

TEST_F(Store, EveryCallFailedOnce)
{
    // Runs an operation with its 1st, 2nd, ... call of the support library failing, until none is left to fail; each
    // time with an empty cache, so that it must read its pages.
    const auto failEachCall = [&](auto&& prepare, auto&& operation, auto&& check) {
        for (unsigned n = 1;; ++n) {
            prepare();
            close();
            open();
            faults::failAt(faults::anyCall, n, KAL_IO_ERROR);
            const uint32_t status = operation();
            const bool struck = faults::struck();
            faults::reset();
            check(status);
            if (!struck) {
                EXPECT_EQ(status, 0u);
                EXPECT_GT(n, 1u);
                return;
            }
        }
    };
    const auto failEachOperation = [&](auto value) {
        const std::string bytes = pattern(300);
        const auto keepsContent = [&](uint32_t) { EXPECT_EQ(value.content(), bytes); };
        failEachCall([&] { value.assign(bytes); }, [&] { return value.store(); }, keepsContent);
        auto stored = value;
        stored.assign(bytes);
        ASSERT_EQ(stored.store(), 0u);
        size_t live = 0;
        failEachCall(
            [&] {
                value.assign("");
                value = stored;
            },
            [&] {
                live = faults::liveBlocks();
                return value.fetch();
            },
            [&](uint32_t status) {  // 7 leaves it a copy that reads the original
                EXPECT_EQ(value.content(), status == 0 || status == 7 ? bytes : "[3]");
                EXPECT_EQ(faults::liveBlocks(), live + (status == 0 ? 1 : 0));
            });
        failEachCall(
            [&] {
                value.assign(bytes);
                ASSERT_EQ(value.store(), 0u);
            },
            [&] { return value.erase(); }, keepsContent);
    };
    failEachOperation(Value{});
    failEachOperation(Text{});
    failEachCall([] {},
                 [&] {
                     kaldbDeinitVarStringTable(db());
                     return kaldbInitVarStringTable(db());
                 },
                 [&](uint32_t status) {
                     Text text{8, u"a text in a block"};
                     EXPECT_EQ(text.store(), status == 0 ? 0u : 3u);
                 });
}

}  // namespace
