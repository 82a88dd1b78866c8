// Tables: which can be made, how they are listed, what their indexes follow.

#include "common/trace.h"
#include "kaldbindex/pending_changes.h"
#include "kaldbtable/table.h"
#include "support/chain_shape.h"
#include "support/faults.h"
#include "support/log_lines.h"

#include <map>
#include <new>
#include <tuple>
#include <utility>

namespace {

using namespace test;
using Keys = std::vector<std::int64_t>;

constexpr std::uint32_t invalid = KALDB_INVALID_ARGUMENT, tooSmall = KALDB_BUFFER_TOO_SMALL,
                        ended = KALDB_END_OF_ENUMERATION;

std::uint32_t create(const std::u16string& name, std::uint32_t recordSize, std::uint32_t flags)
{
    KALDBTableInfo made{{}, recordSize, flags, 0, 0};
    name.copy(made.name, 32);
    return kaldbTableCreate(nullptr, &made);
}

std::uint32_t pageCount() { return kaldb::kaldbChainGetPageManager()->pageCount(); }

TEST(Databases, OpenAtAPathOfAnyLengthAndTheHandleKeepsItsBeginning)
{
    const TempDir directory;
    std::filesystem::create_directory(directory / std::string(200, 'd'));
    const std::u16string path = (directory / (std::string(200, 'd') + "/" + std::string(200, 'f'))).u16string();
    KALDBDatabase* database = nullptr;
    std::uint32_t isNew = 0;
    const LogLines log;
    ASSERT_EQ(kaldbInitialize(path.c_str(), 0, &database, &isNew), 0U);
    EXPECT_EQ(reinterpret_cast<const char16_t*>(database), path.substr(0, 259));
    EXPECT_EQ(kaldbDeinitialize(database), 0U);
    EXPECT_TRUE(std::filesystem::exists(path + u".backup"));
    EXPECT_EQ(kaldbInitialize(std::u16string(5000, u'x').c_str(), 0, &database, &isNew), KALDB_NAME_TOO_LONG);
    EXPECT_EQ(kaldbInitialize(u"half \xD800 pair", 0, &database, &isNew), invalid);
}

TEST(Tables, AreCreatedWhereNameAndSizeAllowItAndListedByName)
{
    Database database;
    const std::uint32_t pages = pageCount(), plain = 0, withIDs = KALDB_CHAIN_GUID, raw = KALDB_CHAIN_BINARY;
    const std::u16string name26(26, u'a'), name27(27, u'b'), name31(31, u'c');
    const std::tuple<std::u16string, std::uint32_t, std::uint32_t, std::uint32_t> creations[] = {
        {u"Small", 15, withIDs, tooSmall},
        {u"Large", 1965, plain, tooSmall},
        {u"Large", 0xFFFFFFF0, plain, tooSmall},
        {u"Large", 1957, raw, tooSmall},
        {u"Large", UINT32_MAX, raw, tooSmall},
        {name27, 32, withIDs, tooSmall},
        {name31 + u"x", 32, withIDs, tooSmall},
        {name26, 32, withIDs, 0},
        {name26, 48, plain, alreadyExists},
        {name27, 32, plain, 0},
        {name31, 32, raw | withIDs, 0},
        {name31 + u"x", 32, plain, alreadyExists},
        {u"Largest", 1964, plain, 0},
        {u"Pieces", 1956, raw, 0}};
    const LogLines log;
    for (const auto& [name, recordSize, flags, status] : creations) {
        EXPECT_EQ(create(name, recordSize, flags), status) << recordSize;
        EXPECT_TRUE(status != tooSmall || pageCount() == pages) << recordSize;
    }
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "could not format initial page for '"), kaldb::tracing ? 5 : 0);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "lock conflict"), 0) << "nothing looks for a page that its caller holds";
    ASSERT_EQ(kaldb::kaldbindexCreate(u"HalfIndex"), kaldb::Status::success);
    EXPECT_EQ(create(u"Half", 32, withIDs), alreadyExists) << "a table stays when its index cannot be made";

    KALEnumerator* list = nullptr;
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &list), 0U);
    EXPECT_EQ(create(u"Later", 32, plain), lockConflict) << "the list holds the catalogue's page";
    std::ostringstream listed;
    std::uint32_t moved = 0;
    for (; moved == 0; moved = kalEnumeratorMoveNext(list)) {
        KALDBTableInfo found;
        std::memset(&found, 0x55, sizeof found);
        ASSERT_EQ(kalEnumeratorGetItem(list, &found, sizeof found), 0U);
        const std::u16string name = found.name;
        listed << std::string(name.begin(), name.end()) << " " << found.recordSize << std::hex << " " << found.flags
               << std::dec << " " << found.reserved1 + found.reserved2 << "\n";
    }
    EXPECT_EQ(moved, ended);
    EXPECT_EQ(listed.str(), "Half 32 2000 0\nLargest 1964 0 0\nPieces 1956 4 0\nSysBinary 64 1004 0\n"
                            "SysVarString 128 1004 0\naaaaaaaaaaaaaaaaaaaaaaaaaa 32 2000 0\n"
                            "bbbbbbbbbbbbbbbbbbbbbbbbbbb 32 0 0\nccccccccccccccccccccccccccccccc 32 4 0\n");
    EXPECT_EQ(kalEnumeratorFree(list), 0U);
    EXPECT_TRUE(Database::holdsNothing());
}

TEST(Tables, ForgottenAreFreedAndNotClosed)
{
    Database database;
    Table table{database, u"T", 32};
    EXPECT_EQ(table.insert(1), 0U);
    KALDBTable* forgotten = nullptr;
    ASSERT_EQ(kaldbTableOpen(database.handle(), u"T", &table.callbacks, &forgotten), 0U);
    kaldb::KALDBIndex* const index = forgotten->index;
    KALDBChain* const chain = forgotten->chain;
    const std::size_t blocks = faults::liveBlocks();
    EXPECT_EQ(kaldbForgetHandle(forgotten), 1U);
    EXPECT_EQ(faults::liveBlocks(), blocks - 1);
    EXPECT_EQ(kaldbForgetHandle(database.handle()), 1U);
    EXPECT_EQ(kaldb::kaldbIndexClose(index), kaldb::Status::success);
    EXPECT_EQ(kaldb::kaldbCloseChain(chain), kaldb::Status::success);
    KALPageTracker* tracker = nullptr;
    ASSERT_EQ(kalPageTrackerInitialize(1, 0, &tracker), 0U);
    alignas(KALPageTracker) static std::byte lost[sizeof *tracker];  // tells of the memory that nobody frees
    std::memcpy(lost, static_cast<void*>(tracker), sizeof lost);
    EXPECT_EQ(kaldbForgetHandle(tracker), 1U);
    ASSERT_EQ(kalPageTrackerInitialize(1, 0, &tracker), 0U);
    EXPECT_EQ(kalPageTrackerDeinitialize(tracker), 0U);
    EXPECT_EQ(table.find(1), 0U);
    table.close();
    EXPECT_EQ(kaldbDeinitialize(nullptr), 0U);
    database.open();
}

TEST(Tables, OpenTheirIndexLateAndWorkWithoutOneAndWithOneThatDisagrees)
{
    Database database;
    Table table{database, u"T", 32};
    KALDBID id{};
    Record record{{}, 5, 0};
    const auto openWithoutIndex = [&] {
        KALDBTable* opened = nullptr;
        faults::failAt("kalHandleAllocate", 3, KAL_OUT_OF_MEMORY);  // table, chain, index
        EXPECT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &opened), 0U);
        EXPECT_TRUE(faults::struck());
        return opened;
    };
    KALDBTable* late = openWithoutIndex();
    faults::failAt("kalHandleAllocate", 1, KAL_OUT_OF_MEMORY);
    EXPECT_EQ(kaldbTableInsertRecord(late, &record, 0, &id), KALDB_OUT_OF_MEMORY);
    EXPECT_EQ(table.find(5), notFound);
    EXPECT_EQ(kaldbTableInsertRecord(late, &record, 0, &id), 0U);
    EXPECT_EQ(table.findByID(id, record), 0U);
    EXPECT_EQ(kaldbTableClose(late), 0U);
    late = openWithoutIndex();
    EXPECT_EQ(kaldbTableDeleteRecordByID(late, &id), 0U);
    EXPECT_EQ(kaldbTableClose(late), 0U);
    EXPECT_EQ(table.findByID(id, record), notFound);

    ASSERT_EQ(kaldb::kaldbCreateChain(kaldb::KALDB_OBJECT_TABLE, u"Half", 32, KALDB_CHAIN_GUID),
              kaldb::Status::success);
    Table half{database, u"Half", 32};
    EXPECT_EQ(half.insert(1, 0, &id), 0U);
    EXPECT_EQ(half.findByID(id, record), KALDB_NOT_OPEN);
    EXPECT_EQ(kaldbTableDeleteRecordByID(half.handle(), &id), KALDB_NOT_OPEN);
    EXPECT_EQ(half.remove(1), 0U);

    // The next identifier is in the index already: the record goes in, only the index does not follow.
    KALDBIndexRecord taken{};
    taken.id.sequence = 1;
    ASSERT_EQ(kaldb::kaldbIndexInsertRecord(*table.handle()->index, taken), kaldb::Status::success);
    EXPECT_EQ(table.insert(6, 0, &id), 0U);
    EXPECT_EQ(id.sequence, 1U);
    EXPECT_EQ(table.find(6), 0U);
    EXPECT_EQ(table.insert(7, 0, &id), 0U);
    id.tag = 3;  // plays no part in a look-up
    EXPECT_EQ(table.findByID(id, record), 0U);
    EXPECT_EQ(record.key, 7);
}

TEST(Tables, TakeNoIndexChangesFromAnotherDatabase)
{
    Database database;
    Table{database, u"T", 32}.close();
    kaldb::KALDBIndex* index = nullptr;
    ASSERT_EQ(kaldb::kaldbIndexOpen(u"TIndex", index), kaldb::Status::success);
    kaldb::keepPendingChange(*index->chain, KALDBIndexRecord{{0xFFFF, 0, 0, 5}, 3, 0, 0});
    EXPECT_EQ(database.close(), 0U);
    database.open();
    EXPECT_FALSE(kaldb::hasPendingChanges(*index->chain));
    EXPECT_EQ(kaldb::kaldbIndexClose(index), kaldb::Status::success);
}

// While a list of tables stands on the catalogue's page, counters wait in memory; no identifier comes twice.
TEST(Tables, HandOutNoIdentifierTwiceUnderAList)
{
    Database database;
    Table table{database, u"Counted", 64};
    KALDBID ids[3];
    KALEnumerator* list = nullptr;
    ASSERT_TRUE(table.insert(0, 0, &ids[0]) == 0 && kaldbTableEnumerate(database.handle(), &list) == 0);
    ASSERT_TRUE(table.insert(1, 0, &ids[1]) == 0 && kaldbBackupDatabaseWhileRunning(database.handle()) == 0);
    table.reopen(database);
    EXPECT_EQ(kalEnumeratorFree(list), 0U);
    EXPECT_EQ(table.insert(2, 0, &ids[2]), 0U);
    for (std::uint64_t i = 0; i < 3; ++i) {
        Record found;
        EXPECT_EQ(ids[i].sequence, ids[0].sequence + i);
        EXPECT_EQ(table.findByID(ids[i], found), 0U);
        EXPECT_EQ(found.key, i);
    }
}

TEST(Tables, TellTheCallerOfMovesAfterTheIndexHasFollowed)
{
    static KALDBTable* used = nullptr;
    static int moves = 0;
    static bool compareThrows = false;
    Database database;
    Table table{database, u"T", 300};
    table.close();
    table.callbacks.indexUpdate = [](const KALDBIndexRecord*, const KALDBIndexRecord* to, std::uintptr_t context) {
        EXPECT_EQ(context, reinterpret_cast<std::uintptr_t>(used));
        KALDBIndexRecord found{};
        EXPECT_EQ(kaldb::kaldbIndexGetRecord(*used->index, to->id, found), kaldb::Status::success);
        EXPECT_EQ(std::tuple(found.page, found.index), std::tuple(to->page, to->index));
        compareThrows = ++moves == 5;  // amid a split, whose moves are taken back
        if (moves % 3 == 0)
            throw std::bad_alloc{};
        return 1U;  // stops nothing, nor does the exception
    };
    table.callbacks.compare = [](const void* probe, const void* stored) {
        return std::exchange(compareThrows, false) ? throw std::bad_alloc{} : byKey(probe, stored);
    };
    table.callbacks.recordEvent = [](std::uint32_t event, std::uint32_t, void*) {
        return event % 2 != 0 || event == KALDB_EVENT_READ ? throw 1 : 0U;
    };
    table.open(database);
    used = table.handle();
    std::map<int, KALDBID> ids;
    int version = 0, failed = 0;
    const auto findAll = [&] {
        for (const auto& [key, id] : ids) {
            Record found;
            ASSERT_EQ(table.update(key, ++version, id), 0U);
            ASSERT_EQ(table.findByID(id, found), 0U);
            EXPECT_EQ(found.value, version) << "the index names a copy that was left behind";
        }
    };
    for (int i = 0; i < 60; ++i) {
        const int key = i * 37 % 60;
        KALDBID id;
        if (table.insert(key, 0, &id) != 0U) {
            ++failed;
            findAll();
            ASSERT_EQ(table.insert(key, 0, &id), 0U);
        }
        ids[key] = id;
    }
    EXPECT_TRUE(moves > 10 && failed == 1) << moves << " " << failed;
    findAll();
}

}  // namespace
