// Database files as an attacker or a broken disk leaves them, and operations on them: whatever the bytes say, every
// operation ends, reads and writes nothing but its own memory, asks for no block far larger than the file, and leaves
// nothing behind.
//
//   input:  16 operations of 4 bytes (kind, key, page, slot), then the file

#include "target.h"

#include "support/memory_disk.h"
#include "support/quiet.h"

#include "kaldbchain/chain.h"
#include "kaldbindex/pending_changes.h"

#include <kaldb/kaldb.h>

#include <array>
#include <random>

namespace {

constexpr std::size_t operationBytes = 64, header = 92, pageBytes = 2048;
const char16_t* const path = u"/db";

struct Record {
    KALDBID id{};
    std::int32_t key = 0;
    char filling[44]{};
};

std::int32_t byKey(const void* probe, const void* stored)
{
    disk::step();
    Record a, b;
    std::memcpy(&a, probe, sizeof a);
    std::memcpy(&b, stored, sizeof b);
    return a.key < b.key ? -1 : a.key > b.key ? 1 : 0;
}
std::int32_t byTens(const void* probe, const void* stored)
{
    disk::step();
    Record a, b;
    std::memcpy(&a, probe, sizeof a);
    std::memcpy(&b, stored, sizeof b);
    return a.key / 10 < b.key / 10 ? -1 : a.key / 10 > b.key / 10 ? 1 : 0;
}

class Work {
public:
    bool open()
    {
        std::uint32_t isNew = 0;
        if (kaldbInitialize(path, 0, &database_, &isNew) != 0)
            return false;
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byKey;
        if (kaldbTableOpen(database_, u"People", &callbacks, &people_) != 0)
            people_ = nullptr;
        if (kaldbTableOpen(database_, u"Raw", nullptr, &raw_) != 0)
            raw_ = nullptr;
        return true;
    }
    void create()
    {
        open();
        const KALDBTableInfo people{u"People", sizeof(Record), KALDB_CHAIN_GUID, 0, 0};
        const KALDBTableInfo raw{u"Raw", 40, KALDB_CHAIN_BINARY, 0, 0};
        kaldbTableCreate(database_, &people);
        kaldbTableCreate(database_, &raw);
        close();
        open();
    }
    /// A disk without room for what a damaged header claims keeps the file from being closed: then it is abandoned.
    void close()
    {
        for (KALDBTable* table : {people_, raw_})
            if (table != nullptr)
                kaldbTableClose(table);
        if (kaldbDeinitialize(database_) != 0) {
            kaldb::abandonStorage(path);
            kaldb::dropAllPendingChanges();
        }
    }

    void operate(const std::uint8_t* operation)
    {
        Record record;
        record.key = operation[1];
        record.id.sequence = operation[1];
        KALDBIndexRecord place{};
        place.page = operation[2] == 255 ? KALDB_NO_PAGE : operation[2] % 20;
        place.index = operation[3] == 255 ? KALDB_NO_SLOT : operation[3];
        switch (operation[0] % 16) {
        case 0:
        case 1: kaldbTableInsertRecord(people_, &record, 0, nullptr); break;
        case 2: kaldbTableDeleteRecord(people_, &record, 0, nullptr); break;
        case 3: kaldbTableQueryPK(people_, &record, &record, sizeof record); break;
        case 4: kaldbTableQueryID(people_, &record.id, &record, sizeof record); break;
        case 5: kaldbTableDeleteRecordByID(people_, &record.id); break;
        case 6: kaldbTableEnumWithCallback(people_, nullptr, [](void*, const void*) { return 0U; }); break;
        case 7: walk(record, operation[3] % 2); break;
        case 8: kaldbTableUpdateRecord(people_, &record); break;
        case 9: kaldbTableDeletePartialPK(people_, &record, byTens); break;
        case 10: useVariant(place, operation[1]); break;
        case 11: useString(place, operation[1]); break;
        case 12: usePiece(place, operation[1]); break;
        case 13: listTables(); break;
        case 14: kaldbBackupDatabaseWhileRunning(database_); break;
        default: validate(); break;
        }
    }

private:
    void walk(Record& record, std::uint32_t readOnly) const
    {
        KALEnumerator* walk = nullptr;
        if (kaldbTableQueryPartialPK(people_, readOnly, &record, byTens, &walk) != 0)
            return;
        do {
            kalEnumeratorGetItem(walk, &record, sizeof record);
            if (readOnly == 0)
                kaldbTableUpdateCurrentRecord(people_, walk, &record);
        } while (kalEnumeratorMoveNext(walk) == 0);
        kalEnumeratorFree(walk);
    }
    static void useVariant(const KALDBIndexRecord& place, std::uint8_t size)
    {
        KALDBVariant value{};
        kaldbVariantInitialize(sizeof value.inlineData, &value);
        const std::array<char, 256> bytes{};
        kaldbVariantSetBinary(&value, 21, bytes.data(), size);
        if (size % 4 == 0)
            kaldbVariantInsertRecord(&value);
        else
            value.location = place;
        if (size % 4 == 3)
            kaldbVariantDeleteRecord(&value);
        kaldbVariantGetRecord(&value);
        kaldbVariantDeinitialize(&value);
    }
    static void useString(const KALDBIndexRecord& place, std::uint8_t size)
    {
        struct {
            KALDBVarString string{};
            char area[8]{};
        } text;
        kaldbVarStringCreate(sizeof text.area, &text.string, std::u16string(size, u'x').c_str());
        if (size % 4 == 0)
            kaldbVarStringInsertRecord(&text.string);
        else
            text.string.location = place;
        if (size % 4 == 3)
            kaldbVarStringDeleteRecord(&text.string);
        kaldbVarStringGetRecord(&text.string);
        kaldbVarStringDelete(&text.string);
    }
    void usePiece(const KALDBIndexRecord& place, std::uint8_t size) const
    {
        std::array<char, 40> bytes{};
        KALDBBinaryRecord piece{bytes.data(), size, size % 40u, place.page, place.index};
        KALDBIndexRecord made{};
        kaldbBinaryTableInsertRecord(raw_, &piece, &made);
        kaldbBinaryTableUpdateRecord(raw_, &place, &piece);
        kaldbBinaryTableGetRecord(raw_, &place, &piece);
        if (size % 2 == 0)
            kaldbBinaryTableDeleteRecord(raw_, &place);
    }
    void listTables() const
    {
        KALEnumerator* list = nullptr;
        if (kaldbTableEnumerate(database_, &list) != 0)
            return;
        KALDBTableInfo info{};
        do
            kalEnumeratorGetItem(list, &info, sizeof info);
        while (kalEnumeratorMoveNext(list) == 0);
        kalEnumeratorFree(list);
    }
    static void validate()
    {
        std::uint32_t errors = 0;
        kaldbValidateFile(path, 0, &errors);
        kaldbValidatePages(path, 0, &errors);
    }

    KALDBDatabase* database_ = nullptr;
    KALDBTable* people_ = nullptr;
    KALDBTable* raw_ = nullptr;
};

/// The image's numbers that something depends on, by their places in a page.
class Damage {
public:
    Damage(std::uint8_t* file, std::size_t size, unsigned seed) : file_(file), size_(size), random_(seed) {}

    std::size_t inflict()
    {
        const std::size_t pages = size_ / pageBytes;
        for (auto changes = random_() % 3 + 1; changes > 0 && pages > 0; --changes) {
            std::uint8_t* const page = file_ + header + random_() % pages * pageBytes;
            const unsigned kind = static_cast<unsigned>(random_() % 16);
            if (kind < 12)
                plant(page + field(page), pages);
            else if (kind == 12)
                std::swap_ranges(page, page + pageBytes, file_ + header + random_() % pages * pageBytes);
            else if (kind == 13)
                std::swap_ranges(page + 12, page + pageBytes, file_ + header + random_() % pages * pageBytes + 12);
            else if (kind == 14)
                page[random_() % pageBytes] ^= static_cast<std::uint8_t>(1u << random_() % 8);
            else if (random_() % 8 == 0)
                plant(file_ + 68 + random_() % 6 * 4, pages);
        }
        if (random_() % 16 == 0)
            size_ -= random_() % std::min<std::size_t>(size_, 3 * pageBytes);
        if (random_() % 8 != 0 && size_ >= header) {
            put(file_ + 76, (size_ - header) / pageBytes, 4);
            put(file_ + 88, 0, 4);
        }
        return size_;
    }

private:
    static std::uint32_t get(const std::uint8_t* at)
    {
        std::uint32_t value = 0;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    static void put(std::uint8_t* at, std::uint64_t value, std::size_t bytes) { std::memcpy(at, &value, bytes); }

    /// The place of a field: of the page's header and links, of its tree or slots, of what it holds.
    std::size_t field(const std::uint8_t* page)
    {
        static constexpr std::array<std::size_t, 18> heads{0,  8,  16, 28, 32, 36, 40, 44, 52,
                                                           56, 60, 64, 68, 70, 72, 36, 40, 60};
        const unsigned kind = static_cast<unsigned>(random_() % 4);
        if (kind == 0)
            return heads[random_() % heads.size()];
        if (page[44] == 28)  // a page of pieces
            return std::min<std::size_t>(72 + random_() % 24 * (20 + get(page + 56) % 256) + random_() % 5 * 4, 2040);
        const std::size_t items = 76 + get(page + 60) % 250 * 8;
        if (kind == 1)
            return std::min<std::size_t>(76 + random_() % 16 * 8 + random_() % 4 * 2, 2040);
        const std::size_t size = std::max<std::size_t>(get(page + 56) % 2000, 4);
        return std::min<std::size_t>(items + random_() % 8 * size + random_() % (size / 4) * 4, 2040);
    }
    void plant(std::uint8_t* at, std::size_t pages)
    {
        static constexpr std::array<std::uint32_t, 12> bounds{
            0, 1, 2, 0xFFFFFFFF, 0xFFFFFFFE, 0x7FFFFFFF, 0x80000000, 0xFFFF, 0xFFFE, 0x8000, 0x10000, 1964};
        const unsigned kind = static_cast<unsigned>(random_() % 4);
        const std::uint64_t value = kind == 0   ? bounds[random_() % bounds.size()]
                                    : kind == 1 ? random_() % (pages + 2)
                                    : kind == 2 ? get(at) + random_() % 5 - 2
                                                : random_() % 256;
        put(at, value, random_() % 3 == 0 ? 2 : 4);
    }

    std::uint8_t* file_;
    std::size_t size_;
    std::mt19937 random_;
};

}  // namespace

std::vector<std::string> seeds()
{
    std::vector<std::string> all;
    for (const int records : {0, 20, 60, 150}) {
        disk::state().files.clear();
        Work work;
        work.create();
        for (int i = 0; i < records; ++i) {
            const std::uint8_t key = static_cast<std::uint8_t>(records == 60 ? i : i * 37);
            const std::array<std::uint8_t, 4> insert{0, key, 0, 0};
            const std::array<std::uint8_t, 4> store{static_cast<std::uint8_t>(10 + i % 3),
                                                    static_cast<std::uint8_t>(i * 8)};
            work.operate(insert.data());
            if (i % 6 < 3)
                work.operate(store.data());
        }
        work.close();
        std::string operations;
        for (std::size_t i = 0; i < operationBytes; ++i)
            operations += static_cast<char>(i % 4 == 0 ? i / 4 : i * 5);
        all.push_back(operations + *disk::state().files[path]);
    }
    return all;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed)
{
    if (size <= operationBytes + header)
        return LLVMFuzzerMutate(data, size, room);
    std::mt19937 random{seed};
    for (unsigned i = 0; i < 8; ++i)
        data[random() % operationBytes] = static_cast<std::uint8_t>(random());
    return operationBytes + Damage{data + operationBytes, size - operationBytes, seed}.inflict();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < operationBytes || size > 64 * pageBytes)
        return 0;
    const std::string file{reinterpret_cast<const char*>(data) + operationBytes, size - operationBytes};
    disk::State& state = disk::state();
    state.files.clear();
    state.files[path] = std::make_shared<std::string>(file);
    state.end = size + 32 * pageBytes;
    state.largest = static_cast<std::uint32_t>(64 * pageBytes + 4 * size);
    const std::size_t blocks = state.blocks.size();
    const std::uint64_t slots = (size / pageBytes + 32) * 250;
    const auto allow = [&](std::uint64_t steps) { state.budget = state.steps + steps; };

    allow(slots * 64);
    Work work;
    if (work.open()) {
        for (std::size_t at = 0; at < operationBytes; at += 4) {
            allow(data[at] % 16 == 9 || data[at] % 16 == 7 ? slots * 64 * 16 : slots * 64);
            work.operate(data + at);
        }
        allow(slots * 64);
        work.close();
    }
    disk::require(kaldb::kaldbChainGetPageManager() == nullptr, "storage still up");
    disk::require(state.blocks.size() == blocks, "blocks left behind");
    return 0;
}
