// Opening and closing in one process, the statuses of tables, and the list of tables.

#include "kaldbindex/pending_changes.h"
#include "kaldbtable/table.h"
#include "support/database.h"
#include "support/faults.h"
#include "support/log_lines.h"

#include <functional>
#include <map>
#include <new>

namespace {

using test::Database;
using test::LogLines;
using test::Record;
using test::Table;

constexpr std::uint32_t notOpen = KALDB_NOT_OPEN;
constexpr std::uint32_t invalid = KALDB_INVALID_ARGUMENT;
constexpr std::uint32_t tooSmall = KALDB_BUFFER_TOO_SMALL;
constexpr std::uint32_t notSupported = KALDB_NOT_SUPPORTED;

KALDBTableInfo info(const std::u16string& name, std::uint32_t recordSize, std::uint32_t flags)
{
    KALDBTableInfo made{};
    std::memcpy(made.name, name.c_str(), std::min<std::size_t>(name.size() + 1, 32) * sizeof(char16_t));
    made.recordSize = recordSize;
    made.flags = flags;
    return made;
}

std::uint32_t create(const std::u16string& name, std::uint32_t recordSize, std::uint32_t flags)
{
    const KALDBTableInfo made = info(name, recordSize, flags);
    return kaldbTableCreate(nullptr, &made);
}

bool exists(const std::u16string& name)
{
    std::uint32_t there = 7;
    EXPECT_EQ(kaldbTableExists(name.c_str(), &there), 0U);
    return there == 1;
}

TEST(Lifecycle, AFirstStartMakesTheDatabaseAndSaysWhatItMissed)
{
    const test::TempDir directory;
    const std::u16string path = (directory / "new.db").u16string();
    KALDBDatabase* database = nullptr;
    std::uint32_t isNew = 7;
    LogLines log;
    ASSERT_EQ(kaldbInitialize(path.c_str(), 0, &database, &isNew), 0U);
    EXPECT_EQ(isNew, 1U);
    EXPECT_EQ(log.of(KAL_LOG_ERROR),
              "kaldbchain: dbchainValidateFile() detected corrupt database\n"
              "kaldbchain: dbchainValidateFile() could not restore backup database [0x0D - file not found]\n");
    EXPECT_FALSE(std::filesystem::exists(directory / "new.db.backup"));
    log.clear();
    ASSERT_EQ(kaldbDeinitialize(database), 0U);
    EXPECT_EQ(log.count(KAL_LOG_DEBUG, "kalpagemanager: kalPageManagerBackup() backed-up '"), 1);
    EXPECT_EQ(log.of(KAL_LOG_ERROR) + log.of(KAL_LOG_WARNING), "");
    EXPECT_TRUE(test::readFile(directory / "new.db") == test::readFile(directory / "new.db.backup"));
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(kaldbInitialize(path.c_str(), 0, &database, &isNew), 0U);
        EXPECT_EQ(isNew, 0U);
        ASSERT_EQ(kaldbDeinitialize(database), 0U);
    }
    EXPECT_EQ(log.of(KAL_LOG_ERROR) + log.of(KAL_LOG_WARNING), "");
}

TEST(Lifecycle, APathOfAnyLengthOpensAndTheHandleKeepsItsBeginning)
{
    const test::TempDir directory;
    std::filesystem::create_directory(directory / std::string(200, 'd'));
    const std::u16string path = (directory / (std::string(200, 'd') + "/" + std::string(200, 'f'))).u16string();
    KALDBDatabase* database = nullptr;
    std::uint32_t isNew = 0;
    LogLines log;
    ASSERT_EQ(kaldbInitialize(path.c_str(), 0, &database, &isNew), 0U);
    EXPECT_EQ(std::u16string{reinterpret_cast<const char16_t*>(database)}, path.substr(0, 259));
    EXPECT_EQ(kaldbDeinitialize(database), 0U);
    EXPECT_TRUE(std::filesystem::exists(path + u".backup"));
}

TEST(Lifecycle, ASecondOpenIsRefusedAndChangesNothing)
{
    Database database;
    Table table{database, u"T", 32};
    KALDBDatabase* second = nullptr;
    std::uint32_t isNew = 7;
    const std::u16string other = database.path() + u"2";
    for (const char16_t* path : {database.path().c_str(), other.c_str()})
        EXPECT_EQ(kaldbInitialize(path, 0, &second, &isNew), test::alreadyExists);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(isNew, 7U);
    EXPECT_FALSE(std::filesystem::exists(other));
    int foreign = 0;
    EXPECT_EQ(kaldbDeinitialize(reinterpret_cast<KALDBDatabase*>(&foreign)), invalid);
    EXPECT_EQ(table.insert(1), 0U);
}

TEST(Lifecycle, NothingWorksWhileNothingIsOpenNorOnHandlesOfAnEarlierDatabase)
{
    Database database;
    KALEnumerator* walk = nullptr;
    KALEnumerator* list = nullptr;
    Table table{database, u"T", 32};
    KALDBID id{};
    ASSERT_EQ(table.insert(1, 0, &id), 0U);
    ASSERT_EQ(table.enumerate(1, walk, false), 0U);
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &list), 0U);
    ASSERT_EQ(database.close(), 0U);

    KALDBTable* opened = nullptr;
    KALEnumerator* enumerator = nullptr;
    std::uint32_t value = 0;
    const auto refuseHandles = [&] {
        Record record{{}, 1, 0};
        KALDBTableInfo listed{};
        const std::vector<std::function<std::uint32_t()>> operations = {
            [&] { return table.insert(2); },
            [&] { return table.update(1, 5); },
            [&] { return table.remove(1); },
            [&] { return table.find(1); },
            [&] { return table.findByID(id, record); },
            [&] { return kaldbTableDeleteRecordByID(table.handle(), &id); },
            [&] { return table.enumerate(1, enumerator); },
            [&] { return kaldbTableDeletePartialPK(table.handle(), &record, test::byKey); },
            [&] { return kaldbTableUpdateCurrentRecord(table.handle(), walk, &record); },
            [&] { return kaldbTableEnumWithCallback(table.handle(), nullptr, [](void*, const void*) { return 0U; }); },
            [&] { return kalEnumeratorGetItem(walk, &record, sizeof record); },
            [&] { return kalEnumeratorMoveNext(walk); },
            [&] { return kalEnumeratorGetItem(list, &listed, sizeof listed); },
            [&] { return kalEnumeratorMoveNext(list); },
        };
        for (std::size_t i = 0; i < operations.size(); ++i)
            EXPECT_EQ(operations[i](), notOpen) << i;
    };
    refuseHandles();
    EXPECT_EQ(kaldbDeinitialize(nullptr), notOpen);
    EXPECT_EQ(kaldbBackupDatabaseWhileRunning(nullptr), notOpen);
    EXPECT_EQ(kaldbTableExists(u"T", &value), notOpen);
    EXPECT_EQ(kaldbTableEnumerate(nullptr, &enumerator), notOpen);
    EXPECT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &opened), notOpen);
    EXPECT_EQ(create(u"U", 32, 0), notOpen);
    EXPECT_EQ(create(std::u16string(27, u'x'), 32, KALDB_CHAIN_GUID), notOpen);

    const std::string closed = test::readFile(database.file());
    database.open();
    refuseHandles();
    EXPECT_TRUE(Database::holdsNothing());
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    EXPECT_EQ(kalEnumeratorFree(list), 0U);
    table.close();
    ASSERT_EQ(database.close(), 0U);
    EXPECT_TRUE(test::readFile(database.file()) == closed);
    database.open();
}

TEST(Lifecycle, CallbacksCannotEndOrCopyTheDatabaseUnderTheirOperation)
{
    static Database* open = nullptr;
    static Table* used = nullptr;
    static int asked = 0;
    Database database;
    Table table{database, u"T", 32};
    open = &database;
    used = &table;
    table.close();
    table.callbacks.recordEvent = [](std::uint32_t, std::uint32_t, void*) {
        ++asked;
        EXPECT_EQ(kaldbDeinitialize(open->handle()), test::lockConflict);
        EXPECT_EQ(kaldbBackupDatabaseWhileRunning(open->handle()), test::lockConflict);
        EXPECT_EQ(open->tryOpen(), test::lockConflict);
        EXPECT_EQ(kaldbTableClose(used->handle()), test::lockConflict);
        EXPECT_EQ(kaldbForgetHandle(used->handle()), test::lockConflict);
        EXPECT_EQ(used->insert(99), test::lockConflict);
        return 0U;
    };
    table.open(database);
    EXPECT_EQ(table.insert(1), 0U);
    EXPECT_EQ(table.find(1), 0U);
    EXPECT_EQ(table.remove(1), 0U);
    EXPECT_EQ(asked, 5);
}

TEST(Lifecycle, AForgottenHandleIsFreedAndClosesNothing)
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
    EXPECT_EQ(kaldb::kaldbIndexClose(index), kaldb::Status::success);
    EXPECT_EQ(kaldb::kaldbCloseChain(chain), kaldb::Status::success);
    EXPECT_EQ(kaldbForgetHandle(database.handle()), 1U);
    EXPECT_EQ(kaldbForgetHandle(nullptr), 1U);
    EXPECT_EQ(table.find(1), 0U);
    table.close();
    EXPECT_EQ(kaldbDeinitialize(nullptr), 0U);
    database.open();
}

TEST(Tables, TheListHasEveryTableByNameAndMovesOnlyForward)
{
    Database database;
    ASSERT_EQ(create(u"Users", 40, KALDB_CHAIN_GUID), 0U);
    ASSERT_EQ(create(u"Raw", 100, KALDB_CHAIN_BINARY | KALDB_CHAIN_GUID), 0U);
    struct Row {
        std::u16string name;
        std::uint32_t recordSize, flags;
    };
    const Row expected[] = {{u"Raw", 100, KALDB_CHAIN_BINARY},
                            {u"SysBinary", 64, KALDB_CHAIN_BINARY | KALDB_CHAIN_SYSTEM},
                            {u"SysVarString", 128, KALDB_CHAIN_BINARY | KALDB_CHAIN_SYSTEM},
                            {u"Users", 40, KALDB_CHAIN_GUID}};
    KALEnumerator* list = nullptr;
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &list), 0U);
    EXPECT_EQ(kalEnumeratorMoveFirst(list), notSupported);
    std::uint32_t moved = 0;
    for (const Row& row : expected) {
        ASSERT_EQ(moved, 0U);
        KALDBTableInfo found;
        std::memset(&found, 0x55, sizeof found);
        ASSERT_EQ(kalEnumeratorGetItem(list, &found, sizeof found), 0U);
        EXPECT_EQ(found.name, row.name);
        EXPECT_EQ(found.recordSize, row.recordSize);
        EXPECT_EQ(found.flags, row.flags);
        EXPECT_EQ(found.reserved1 + found.reserved2, 0U);
        moved = kalEnumeratorMoveNext(list);
    }
    EXPECT_EQ(moved, std::uint32_t{KALDB_END_OF_ENUMERATION});
    EXPECT_EQ(kalEnumeratorFree(list), 0U);
    EXPECT_TRUE(Database::holdsNothing());
}

TEST(Tables, AreCreatedWhereNameAndSizeAllowIt)
{
    Database database;
    const std::u16string name26(26, u'a'), name27(27, u'b'), name31(31, u'c'), name32(32, u'd');
    EXPECT_EQ(create(name26, 32, KALDB_CHAIN_GUID), 0U);
    EXPECT_EQ(create(name27, 32, KALDB_CHAIN_GUID), tooSmall);
    EXPECT_FALSE(exists(name27));
    EXPECT_EQ(create(name27, 32, 0), 0U);
    EXPECT_EQ(create(name31, 32, KALDB_CHAIN_BINARY | KALDB_CHAIN_GUID), 0U);
    EXPECT_EQ(create(name31 + u"x", 32, 0), test::alreadyExists);
    EXPECT_EQ(create(name32, 32, KALDB_CHAIN_GUID), tooSmall);
    EXPECT_EQ(create(name32, 32, 0), 0U);
    EXPECT_TRUE(exists(name32 + u"and more"));
    EXPECT_EQ(create(name26, 48, 0), test::alreadyExists);
    EXPECT_EQ(create(u"Small", 15, KALDB_CHAIN_GUID), tooSmall);
    EXPECT_EQ(create(u"Large", 1965, 0), tooSmall);
    EXPECT_EQ(create(u"Large", 1957, KALDB_CHAIN_BINARY), tooSmall);
    EXPECT_EQ(create(u"Large", UINT32_MAX, KALDB_CHAIN_BINARY), tooSmall);
    EXPECT_FALSE(exists(u"Large"));
    EXPECT_EQ(create(u"Largest", 1964, 0), 0U);
    EXPECT_EQ(create(u"Largest pieces", 1956, KALDB_CHAIN_BINARY), 0U);
    KALEnumerator* list = nullptr;  // holds the catalogue's page
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &list), 0U);
    EXPECT_EQ(create(u"Later", 32, 0), test::lockConflict);
    EXPECT_EQ(kalEnumeratorFree(list), 0U);

    // A table stays when its index cannot be made.
    ASSERT_EQ(kaldb::kaldbindexCreate(u"HalfIndex"), kaldb::Status::success);
    EXPECT_EQ(create(u"Half", 32, KALDB_CHAIN_GUID), test::alreadyExists);
    EXPECT_TRUE(exists(u"Half"));
}

TEST(Tables, ThereMayBeNoneToList)
{
    const test::TempDir directory;
    const std::u16string path = (directory / "db").u16string();
    std::uint32_t isNew = 0;
    LogLines log;
    ASSERT_EQ(kaldb::kaldbInitializeStorage(path.c_str(), 0, isNew), kaldb::Status::success);
    KALEnumerator* list = nullptr;
    EXPECT_EQ(kaldbTableEnumerate(nullptr, &list), test::notFound);
    EXPECT_EQ(list, nullptr);
    ASSERT_EQ(kaldb::kaldbDeinitializeStorage(), kaldb::Status::success);
}

TEST(Tables, RefuseWhatTheyCannotDo)
{
    Database database;
    Table plain{database, u"Plain", 32, 0};
    Table raw{database, u"Raw", 32, KALDB_CHAIN_BINARY};
    KALDBTable* opened = nullptr;
    KALDBChainCallbacks without{};
    EXPECT_EQ(kaldbTableOpen(nullptr, u"Plain", nullptr, &opened), invalid);
    EXPECT_EQ(kaldbTableOpen(nullptr, u"Plain", &without, &opened), invalid);
    EXPECT_EQ(kaldbTableOpen(nullptr, u"Raw", nullptr, &opened), 0U);
    EXPECT_EQ(kaldbTableClose(opened), 0U);

    Record record{{}, 1, 0};
    KALDBID id{0x1234, 0, 0, 77};
    EXPECT_EQ(kaldbTableInsertRecord(plain.handle(), &record, 0, &id), 0U);
    EXPECT_EQ(id.sequence, 77U);
    KALDBTableInfo untouched = info(u"untouched", 1, 2);
    EXPECT_EQ(kaldbTableGetInfo(plain.handle(), &untouched), 0U);
    EXPECT_EQ(untouched.recordSize, 1U);
    EXPECT_EQ(plain.find(1), 0U);
}

TEST(Tables, RunOutOfMemoryWithoutHoldingAnything)
{
    Database database;
    Table table{database, u"T", 32};
    const std::size_t blocks = faults::liveBlocks();
    KALDBTable* opened = nullptr;
    faults::failAt("kalHandleAllocate", 1, KAL_OUT_OF_MEMORY);
    EXPECT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &opened), KALDB_OUT_OF_MEMORY);
    for (unsigned call = 1; call < 20; ++call) {
        KALEnumerator* list = nullptr;
        faults::failAt(faults::anyCall, call, KAL_OUT_OF_MEMORY);
        const std::uint32_t status = kaldbTableEnumerate(nullptr, &list);
        if (!faults::struck()) {
            EXPECT_EQ(status, 0U);
            EXPECT_EQ(kalEnumeratorFree(list), 0U);
            break;
        }
        EXPECT_EQ(status, KALDB_OUT_OF_MEMORY) << call;
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(faults::liveBlocks(), blocks);
        EXPECT_TRUE(Database::holdsNothing());
    }
    faults::reset();
}

TEST(Tables, WorkWithoutTheirIndexAndWithOneThatDisagrees)
{
    Database database;
    Table table{database, u"T", 32};
    KALDBID id{};
    Record record{{}, 5, 0};
    KALDBTable* indexless = nullptr;
    faults::failAt("kalHandleAllocate", 3, KAL_OUT_OF_MEMORY);  // table, chain, index
    ASSERT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &indexless), 0U);
    ASSERT_TRUE(faults::struck());
    faults::reset();
    EXPECT_EQ(kaldbTableInsertRecord(indexless, &record, 0, &id), 0U);
    EXPECT_EQ(id.sequence, 0U);
    EXPECT_EQ(kaldbTableQueryID(indexless, &id, &record, sizeof record), notOpen);
    EXPECT_EQ(kaldbTableDeleteRecordByID(indexless, &id), notOpen);
    EXPECT_EQ(table.findByID(id, record), test::notFound);
    EXPECT_EQ(kaldbTableClose(indexless), 0U);
    EXPECT_EQ(table.remove(5), 0U);  // an index record that never was is as good as deleted
    EXPECT_EQ(table.find(5), test::notFound);

    // The next identifier is in the index already: the record goes in, only the index does not.
    kaldb::KALDBIndex& index = *table.handle()->index;
    KALDBIndexRecord taken{};
    taken.id.sequence = 1;
    ASSERT_EQ(kaldb::kaldbIndexInsertRecord(index, taken), kaldb::Status::success);
    EXPECT_EQ(table.insert(6, 0, &id), 0U);
    EXPECT_EQ(id.sequence, 1U);
    EXPECT_EQ(table.find(6), 0U);

    EXPECT_EQ(table.insert(7, 0, &id), 0U);
    id.tag = 3;  // plays no part in a look-up
    EXPECT_EQ(table.findByID(id, record), 0U);
    EXPECT_EQ(record.key, 7);
    EXPECT_EQ(kaldbTableDeleteRecordByID(table.handle(), &id), 0U);
    EXPECT_EQ(kaldbTableDeleteRecordByID(table.handle(), &id), test::notFound);
}

TEST(Tables, TakeNoIndexChangesFromAnotherDatabase)
{
    Database database;
    Table table{database, u"T", 32};
    table.close();
    kaldb::KALDBIndex* index = nullptr;
    ASSERT_EQ(kaldb::kaldbIndexOpen(u"TIndex", index), kaldb::Status::success);
    kaldb::keepPendingChange(*index->chain, KALDBIndexRecord{{0xFFFF, 0, 0, 5}, 3, 0, 0});
    EXPECT_EQ(database.close(), 0U);
    database.open();
    EXPECT_FALSE(kaldb::hasPendingChanges(*index->chain));
    EXPECT_EQ(kaldb::kaldbIndexClose(index), kaldb::Status::success);
}

TEST(Tables, TellTheCallerOfMovesAfterTheIndexHasFollowed)
{
    static KALDBTable* used = nullptr;
    static int moves = 0;
    Database database;
    Table table{database, u"T", 300};
    table.close();
    table.callbacks.indexUpdate = [](const KALDBIndexRecord*, const KALDBIndexRecord* to, std::uintptr_t context) {
        EXPECT_EQ(context, reinterpret_cast<std::uintptr_t>(used));
        KALDBIndexRecord found{};
        EXPECT_EQ(kaldb::kaldbIndexGetRecord(*used->index, to->id, found), kaldb::Status::success);
        EXPECT_EQ(found.page, to->page);
        EXPECT_EQ(found.index, to->index);
        if (++moves == 5)
            throw std::bad_alloc{};  // amid a split, whose moves are taken back
        return 1U;                   // stops nothing
    };
    table.open(database);
    used = table.handle();
    std::map<int, KALDBID> ids;
    std::int64_t version = 0;
    const auto findAll = [&ids, &table, &version] {
        for (const auto& [key, id] : ids) {
            Record found;
            ASSERT_EQ(table.update(key, ++version, id), 0U);
            ASSERT_EQ(table.findByID(id, found), 0U);
            EXPECT_EQ(found.value, version) << "the index names a copy that was left behind";
        }
    };
    int failed = 0;
    for (int i = 0; i < 60; ++i) {
        KALDBID id;
        if (table.insert(i * 37 % 60, 0, &id) != 0U) {
            ++failed;
            findAll();
            ASSERT_EQ(table.insert(i * 37 % 60, 0, &id), 0U);
        }
        ids[i * 37 % 60] = id;
    }
    EXPECT_GT(moves, 10);
    EXPECT_EQ(failed, 1);
    findAll();
}

TEST(Identifiers, OrderBySequenceAndEqualByTagAndSequence)
{
    KALDBID zero;
    EXPECT_EQ(kaldbIDZero(&zero), 0U);
    const KALDBID first{0xFFFF, 0xFFFF, 0, 0};
    const KALDBID other{1, 0xFFFF, 0, 0};
    std::int32_t order = 7;
    std::uint32_t same = 7;
    EXPECT_EQ(kaldbIDCompare(&zero, &first, &order), 0U);
    EXPECT_EQ(order, 1);
    EXPECT_EQ(kaldbIDCompare(&first, &other, &order), 0U);
    EXPECT_EQ(order, 0);
    EXPECT_EQ(kaldbIDIsEqual(&first, &other, &same), 0U);
    EXPECT_EQ(same, 0U);
    KALDBID counter = zero;
    EXPECT_EQ(kaldbIDIncrement(&counter), 0U);
    EXPECT_EQ(kaldbIDIsEqual(&counter, &first, &same), 0U);
    EXPECT_EQ(same, 1U);
    EXPECT_EQ(counter.spare, 0xFFFF);
    KALDBID copy{1, 2, 3, 4};
    EXPECT_EQ(kaldbIDCopy(&copy, &zero), 0U);
    EXPECT_EQ(copy.spare, 2);
    EXPECT_EQ(copy.alignment, 3U);
    EXPECT_EQ(copy.sequence, UINT64_MAX);
}

TEST(FieldErrors, HaveTextsAndNothingElseHas)
{
    const auto text = [](std::uint32_t code) { return std::u16string{kaldbGetErrorString(code)}; };
    EXPECT_EQ(text(KALDB_FIELD_SUCCESS), u"Success");
    EXPECT_EQ(text(KALDB_FIELD_INVALID_VALUE), u"Invalid field value");
    EXPECT_EQ(text(0x02FF0003), u"Field required");
    for (const std::uint32_t code : {0x0200000AU, 0x0200FFFFU, 16U, 0x03000001U})
        EXPECT_EQ(text(code), u"Unknown");
}

}  // namespace
