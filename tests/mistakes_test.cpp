// Callers' mistakes: each is answered with a status, holds nothing and changes nothing. The address sanitizer watches.

#include "common/trace.h"
#include "support/call.h"
#include "support/database.h"
#include "support/log_lines.h"
#include "support/values.h"

#include <functional>
#include <limits>
#include <utility>

namespace {

using namespace test;

constexpr std::uint64_t fine = KALDB_SUCCESS, failure = KALDB_FAILURE, notOpen = KALDB_NOT_OPEN,
                        invalid = KALDB_INVALID_ARGUMENT, noFile = KALDB_FILE_NOT_FOUND,
                        ended = KALDB_END_OF_ENUMERATION, beyond = KALDB_END_OF_FILE, missing = KALDB_NOT_FOUND,
                        present = KALDB_ALREADY_EXISTS, conflict = KALDB_LOCK_CONFLICT, small = KALDB_BUFFER_TOO_SMALL,
                        unsupported = KALDB_NOT_SUPPORTED, notAFile = KALDB_NOT_A_FILE, noSlot = KALDB_NO_FREE_SLOT;

const char16_t* const halfPair = u"half \xD800 pair";
const std::u16string longPath(5000, u'x');
constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();

std::function<void()> during;  // what the next callback does, once

std::uint32_t callBack()
{
    if (during)
        std::exchange(during, nullptr)();
    return 0;
}
std::int32_t orderCallingBack(const void* probe, const void* stored)
{
    callBack();
    return byKey(probe, stored);
}
std::int32_t matchCallingBack(const void*, const void*) { return static_cast<std::int32_t>(callBack()); }
std::uint32_t visitCallingBack(void*, const void*) { return callBack(); }

/// Frees a walk from inside its own compare function, on its way to the next record.
void freeDuringMove(KALEnumerator* walk, std::uint64_t moved)
{
    during = [walk] { make({{fine, kalEnumeratorFree, walk}, {invalid, kalEnumeratorFree, walk}}); };
    make({{moved, kalEnumeratorMoveNext, walk}, {invalid, kalEnumeratorMoveNext, walk}});
    EXPECT_FALSE(during);
}

class Mistakes : public testing::Test {
protected:
    Mistakes()
    {
        for (std::int64_t key = 0; key < 40; ++key)
            EXPECT_EQ(table.insert(key, 0, &id), 0U);
        EXPECT_EQ(kaldbBinaryTableInsertRecord(r, &piece, &place), 0U);
        keys = table.allKeys();
        valid<KALDBTable> = t, valid<KALPageManager> = kaldb::kaldbChainGetPageManager();
        valid<KALBTreePage> = tree, valid<KALDBBinaryPage> = slots, valid<KALDBChainCallbacks> = &table.callbacks;
        valid<KALDBBinaryRecord> = &piece, valid<KALDBIndexRecord> = &place, valid<char16_t> = name;
        valid<void> = anyBlock.data(), valid<std::uint32_t> = &value, validNumber = 1;
        writeFile(database.directory() / "file", "contents");
        std::filesystem::create_directory(at("folder"));
    }
    ~Mistakes() override
    {
        EXPECT_TRUE(Database::holdsNothing());
        EXPECT_EQ(table.allKeys(), keys);
        table.reopen(database);
        EXPECT_EQ(table.allKeys(), keys);
        EXPECT_EQ(database.errorsInFile(), 0U);
        EXPECT_EQ(readFile(at("file")), "contents");
    }
    std::u16string at(const char* entry) const { return (database.directory() / entry).u16string(); }

    char16_t name[2] = u"T";
    Database database;
    Table table{database, u"T", 48}, raw{database, u"Raw", 16, KALDB_CHAIN_BINARY}, plain{database, u"Plain", 48, 0};
    KALDBTable *const t = table.handle(), *const r = raw.handle(), *const p = plain.handle(), *opened = nullptr;
    Record record{{}, 5, 0};
    KALDBID id{};
    KALDBIndexRecord place{};
    KALDBBinaryRecord piece{&record, 8, 8, KALDB_NO_PAGE, KALDB_NO_SLOT};
    KALDBTableInfo info{u"New", 48, 0, 0, 0};
    KALEnumerator *walk = nullptr, *list = nullptr;
    KALDBDatabase* other = nullptr;
    KALFile* file = nullptr;
    std::uint32_t value = 0, size = 8;
    std::uint16_t slot = 0;
    void* body = nullptr;
    std::vector<std::int64_t> keys;
    std::array<std::uint32_t, 64> treeMemory{}, slotMemory{};
    KALBTreePage *const tree = reinterpret_cast<KALBTreePage*>(treeMemory.data()), *reference = tree;
    KALDBBinaryPage* const slots = reinterpret_cast<KALDBBinaryPage*>(slotMemory.data());
};

TEST_F(Mistakes, WithPointersThatLeadNowhere)
{
    const std::u16string path = at("file"), pages = at("pages");
    Value variant;
    Text string;
    make({{fine, kaldbTableOpen, nullptr, u"T", &table.callbacks, &closed<KALDBTable>},
          {fine, kaldbTableEnumerate, nullptr, &closed<KALEnumerator>},
          {fine, kalPageManagerInitialize, pages.c_str(), 0, &closed<KALPageManager>, &value},
          {fine, kalPageTrackerInitialize, 1, 0, &closed<KALPageTracker>},
          {fine, kalFileOpenW, path.c_str(), &closed<KALFile>, KAL_FILE_READ},
          {fine, kalBTreeFormat, tree, 256, 32},
          {fine, kaldbBinaryPageFormat, slots, 256, 8},
          {fine, kaldbTableEnumerate, nullptr, &valid<KALEnumerator>},
          {fine, kalPageTrackerInitialize, 1, 0, &valid<KALPageTracker>},
          {fine, kalFileOpenW, path.c_str(), &valid<KALFile>, KAL_FILE_READ}});
    make({{fine, kalEnumeratorFree, closed<KALEnumerator>},
          {fine, kaldbTableClose, closed<KALDBTable>},
          {fine, kalPageManagerDeinitialize, closed<KALPageManager>},
          {fine, kalPageTrackerDeinitialize, closed<KALPageTracker>},
          {fine, kalFileClose, closed<KALFile>}});
    valid<KALDBVariant> = &variant.v, valid<KALDBVarString> = &string.s;
    wrongPointersGive(invalid, kaldbTableCreate, kaldbTableExists, kaldbTableOpen, kaldbTableClose, kaldbTableGetInfo,
                      kaldbTableEnumerate, kaldbTableUpdateRecord, kaldbTableDeleteRecordByID, kaldbTableQueryID,
                      kaldbTableQueryPK, kaldbTableQueryPartialPK, kaldbTableUpdateCurrentRecord,
                      kaldbTableDeletePartialPK, kaldbInitialize);
    wrongPointersGive<1>(invalid, kaldbTableDeleteCurrentRecord, kaldbTableEnumWithCallback);
    wrongPointersGive<3>(invalid, kaldbTableInsertRecord, kaldbTableDeleteRecord);
    valid<KALDBTable> = r;
    wrongPointersGive(invalid, kaldbBinaryTableInsertRecord, kaldbBinaryTableDeleteRecord, kaldbBinaryTableUpdateRecord,
                      kaldbBinaryTableGetRecord);
    wrongPointersGive(invalid, kalPageManagerInitialize, kalPageManagerDeinitialize, kalPageManagerLoadPage,
                      kalPageManagerCreatePage, kalPageManagerUnlockPage, kalPageManagerUnloadPage,
                      kalPageManagerUnreferencePage, kalPageManagerSetPageDirty, kalPageManagerFlushPage,
                      kalPageManagerFlushAllPages, kalPageManagerGetPageCount, kalPageManagerGetLocation,
                      kalPageManagerGetStartPage, kalPageManagerSetStartPage, kalPageManagerBackup,
                      kalPageManagerBackupWhileRunning, kalPageManagerRestore, kalPageManagerFileIsDirty);
    wrongPointersGive<0>(invalid, kalPageManagerGetPageSize, kalPageManagerGetUsablePageSize);
    wrongPointersGive(invalid, kalPageTrackerInitialize, kalPageTrackerDeinitialize, kalPageTrackerLockPage,
                      kalPageTrackerUnlockPage, kalPageTrackerGetPageLockType, kalPageTrackerGetPageLockCount,
                      kalPageTrackerIsPageLocked);
    wrongPointersGive(invalid, kalBTreeFormat, kalBTreeInsertItem, kalBTreeUpdateItem, kalBTreeDeleteItem,
                      kalBTreeDeleteIndex, kalBTreeGetIndex, kalBTreeGetSmallest, kalBTreeSearchPrimaryKey,
                      kalBTreeCompareItem, kalBTreeCanBeHere, kalBTreeGetCount, kalBTreeGetMaxCount, kalBTreeIsFull,
                      kalBTreeShouldSplit, kalBTreeEnumerate, kalBTreeGetByEnumerator, kalBTreeSplit);
    wrongPointersGive<2>(invalid, kalBTreeSearchPartialKey);
    wrongPointersGive(invalid, kaldbBinaryPageFormat, kaldbBinaryPageInsertItem, kaldbBinaryPageGetItem,
                      kaldbBinaryPageUpdateItem, kaldbBinaryPageDeleteItem, kaldbBinaryPageIsFull,
                      kaldbBinaryPageGetCount, kaldbBinaryPageGetMaxCount);
    validNumber = 21;  // a type of bytes
    wrongPointersGive(invalid, kaldbVariantInitialize, kaldbVariantDeinitialize, kaldbVariantEmpty,
                      kaldbVariantAllocate, kaldbVariantSet, kaldbVariantSetID, kaldbVariantSetBinary,
                      kaldbVariantGetType, kaldbVariantGetSize, kaldbVariantGetID, kaldbVariantGetDataPointer,
                      kaldbVariantInsertRecord, kaldbVariantGetRecord, kaldbVariantDeleteRecord);
    wrongPointersGive<2>(invalid, kaldbVariantSetPrimitive, kaldbVariantSetString);
    wrongPointersGive(invalid, kaldbVarStringAllocate, kaldbVarStringDelete, kaldbVarStringGetLength, kaldbVarStringGet,
                      kaldbVarStringCopy, kaldbVarStringDup, kaldbVarStringCompare, kaldbVarStringICompare,
                      kaldbVarStringIComparePSZ, kaldbVarStringInsertRecord, kaldbVarStringGetRecord,
                      kaldbVarStringDeleteRecord);
    wrongPointersGive<1>(invalid, kaldbVariantGetData, kaldbVarStringSet);
    wrongPointersGive<2>(invalid, kaldbVarStringCreate);
    wrongPointersGive(invalid, kalEnumeratorFree, kalEnumeratorMoveFirst, kalEnumeratorMoveNext, kalEnumeratorGetItem,
                      kalEnumeratorGetUserData, kalFileClose, kalFileFlush, kalFileRead, kalFileWrite, kalFileSeek,
                      kalFileGetSize, kalFileOpenW, kalFileCopyW, kalFileDeleteW, kalFileExistsW, kalFileRename,
                      kalFileSyncW, kalStatsInitialize, kalStatsDeinitialize);
    wrongPointersGive<1>(invalid, kalEnumeratorCreate);
    kalBTreeDump(nullptr);
    for (const auto trace : {pmTracePageManager, pmTraceFilePages, pmTraceCachePages})
        for (KALPageManager* const wrong : {closed<KALPageManager>, neverOpened<KALPageManager>})
            trace(nullptr), trace(wrong);
    EXPECT_EQ(kaldbVarStringGetPSZ(nullptr), nullptr);
    make({{fine, pmAreMemPagesLocked, nullptr},
          {fine, pmIsPageLocked, nullptr, body},
          {fine, pmIsPageLocked, valid<KALPageManager>, nullptr},
          {failure, kaldbForgetHandle, nullptr},
          {unsupported, kaldbVariantUpdateRecord, nullptr},
          {unsupported, kaldbVarStringUpdateRecord, nullptr},
          {fine, kalEnumeratorFree, valid<KALEnumerator>},
          {fine, kalPageTrackerDeinitialize, valid<KALPageTracker>},
          {fine, kalFileClose, valid<KALFile>}});
    EXPECT_GT(Call::made, 300);
}

TEST_F(Mistakes, WhileNothingIsOpenAndWithHandlesOfAnEarlierDatabase)
{
    const KALDBTableInfo longer{u"A name too long for an index", 32, KALDB_CHAIN_GUID, 0, 0};
    Value longOne(std::string(100, 'x'));
    Text text(8, u"a long text");
    make({{invalid, kaldbDeinitialize, neverOpened<KALDBDatabase>},
          {present, kaldbInitialize, at("other").c_str(), 0, &other, &value},
          {fine, kaldbDeinitBinaryTable, nullptr},
          {notOpen, kaldbDeinitBinaryTable, nullptr},
          {notOpen, kaldbVariantInsertRecord, &longOne.v},
          {fine, kaldbDeinitVarStringTable, nullptr},
          {notOpen, kaldbDeinitVarStringTable, nullptr},
          {notOpen, kaldbVarStringInsertRecord, &text.s}});
    EXPECT_FALSE(std::filesystem::exists(at("other")));
    ASSERT_EQ(table.enumerate(1, walk, false) + kaldbTableEnumerate(nullptr, &list), 0U);
    const auto useHandles = [&] {
        valid<KALDBTable> = t;
        for (KALEnumerator* const each : {walk, list}) {
            valid<KALEnumerator> = each;
            callsGive(notOpen, kalEnumeratorGetItem, kalEnumeratorMoveNext);
        }
        valid<KALEnumerator> = walk;
        callsGive(notOpen, kaldbTableInsertRecord, kaldbTableUpdateRecord, kaldbTableDeleteRecord,
                  kaldbTableDeleteRecordByID, kaldbTableQueryID, kaldbTableQueryPK, kaldbTableQueryPartialPK,
                  kaldbTableDeletePartialPK, kaldbTableUpdateCurrentRecord, kaldbTableEnumWithCallback);
        valid<KALDBTable> = r;
        callsGive(notOpen, kaldbBinaryTableInsertRecord, kaldbBinaryTableGetRecord);
    };
    ASSERT_EQ(database.close(), 0U);
    const std::string closedFile = readFile(database.file());
    useHandles();
    const LogLines log;
    make({{notOpen, kaldbDeinitialize, nullptr},
          {notOpen, kaldbBackupDatabaseWhileRunning, nullptr},
          {notOpen, kaldbTableExists, u"T", &value},
          {notOpen, kaldbTableOpen, nullptr, u"T", &table.callbacks, &opened},
          {notOpen, kaldbTableCreate, nullptr, &longer},
          {notOpen, kaldbInitBinaryTable, nullptr}});
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kaldbtable: "), kaldb::tracing ? 3 : 0) << "a line each";
    database.open();
    useHandles();
    EXPECT_TRUE(Database::holdsNothing());
    make({{fine, kalEnumeratorFree, walk}, {fine, kalEnumeratorFree, list}});
    table.close();
    table.open(database);
    ASSERT_EQ(table.enumerate(1, valid<KALEnumerator>), 0U);
    table.close();  // under its enumerator
    callsGive(notOpen, kalEnumeratorGetItem, kalEnumeratorMoveNext);
    callsGive(fine, kalEnumeratorFree);
    ASSERT_EQ(database.close(), 0U);
    EXPECT_TRUE(readFile(database.file()) == closedFile);
    database.open();
    table.open(database);
}

TEST_F(Mistakes, WithTheWrongTableNameSizeOrEnumerator)
{
    constexpr KALEnumeratorCallbacks foreignCallbacks{
        [](KALEnumerator*, void*, std::uint32_t, std::uint32_t*) { return 1U; }, nullptr,
        [](KALEnumerator*, void*, std::uint32_t, void*, std::uint32_t) { return 1U; },
        [](KALEnumerator*, void*) { return 0U; }};
    KALEnumeratorCallbacks noMove = foreignCallbacks, noItem = foreignCallbacks, noFree = foreignCallbacks;
    noMove.move = nullptr, noItem.getItem = nullptr, noFree.free = nullptr;
    KALEnumerator *foreign = nullptr, *others = nullptr, *items = nullptr;
    for (const KALEnumeratorCallbacks* const incomplete : {&noMove, &noItem, &noFree})
        make({{invalid, kalEnumeratorCreate, incomplete, nullptr, &foreign}});
    ASSERT_EQ(plain.insert(1) + plain.enumerate(1, others, false), 0U);
    make({{fine, kalEnumeratorCreate, &foreignCallbacks, nullptr, &foreign},
          {fine, kaldbTableEnumerate, nullptr, &list},
          {fine, kalBTreeFormat, tree, 256, sizeof record},
          {fine, kalBTreeInsertItem, tree, &record, byKey, &slot},
          {fine, kalBTreeEnumerate, tree, &reference, &items}});
    make({{invalid, kaldbTableUpdateCurrentRecord, t, items, &record}});
    for (KALEnumerator* const e : {foreign, list, others})
        make({{invalid, kaldbTableUpdateCurrentRecord, t, e, &record},
              {invalid, kalBTreeGetByEnumerator, tree, e, &body}});
    make({{unsupported, kalEnumeratorMoveFirst, list},
          {unsupported, kaldbTableDeleteCurrentRecord, p, foreign},
          {failure, kaldbTableQuery, t, nullptr},
          {conflict, kaldbTableCreate, nullptr, &info},
          {unsupported, kaldbTableDrop, nullptr, u"T"}});
    for (KALEnumerator* const e : {foreign, list, others, items})
        make({{fine, kalEnumeratorFree, e}});

    KALDBBinaryRecord tooLong{anyBlock.data(), 17, 17, KALDB_NO_PAGE, KALDB_NO_SLOT}, noData{nullptr, 8, 8, 0, 0};
    KALDBIndexRecord nowhere = place, freeSlot = place, catalogue = place, noIndex = place;
    nowhere.page = most, catalogue.page = 0, noIndex.index = KALDB_NO_SLOT, ++freeSlot.index;
    valid<KALDBTable> = r;
    callsGive(unsupported, kaldbTableInsertRecord, kaldbTableUpdateRecord, kaldbTableDeleteRecord, kaldbTableQueryPK,
              kaldbTableQueryPartialPK, kaldbTableDeletePartialPK, kaldbTableEnumWithCallback,
              kaldbTableDeleteRecordByID, kaldbTableQueryID);
    valid<KALDBTable> = p;
    callsGive(unsupported, kaldbTableDeleteRecordByID, kaldbTableQueryID, kaldbBinaryTableInsertRecord,
              kaldbBinaryTableUpdateRecord, kaldbBinaryTableGetRecord, kaldbBinaryTableDeleteRecord);
    make({{small, kaldbBinaryTableInsertRecord, r, &tooLong, &place},
          {invalid, kaldbBinaryTableInsertRecord, r, &noData, &place},
          {invalid, kaldbBinaryTableUpdateRecord, r, &place, &noData},
          {invalid, kaldbBinaryTableGetRecord, r, &place, &noData},
          {missing, kaldbBinaryTableDeleteRecord, r, &freeSlot}});
    valid<KALDBTable> = r;
    for (KALDBIndexRecord* const wrong : {&nowhere, &noIndex, &catalogue}) {
        valid<KALDBIndexRecord> = wrong;
        callsGive(missing, kaldbBinaryTableGetRecord, kaldbBinaryTableUpdateRecord, kaldbBinaryTableDeleteRecord);
    }

    const KALDBID unknown{0xFFFF, 0, 0, 999};
    const KALDBChainCallbacks noCompare{};
    const std::vector<char16_t> unending(31, u'n');  // not a unit more is there
    KALDBTableInfo unended{};
    std::fill(std::begin(unended.name), std::end(unended.name), u'n');
    unended.recordSize = 48;
    for (const char16_t* const each : {unending.data(), u"", longPath.c_str()})
        make({{missing, kaldbTableOpen, nullptr, each, &table.callbacks, &opened}});
    make({{missing, kaldbTableQueryID, t, &unknown, &record, 48},
          {missing, kaldbTableDeleteRecordByID, t, &unknown},
          {invalid, kaldbTableOpen, nullptr, u"Plain", &noCompare, &opened},
          {fine, kaldbTableCreate, nullptr, &unended},
          {present, kaldbTableCreate, nullptr, &unended},
          {fine, kaldbTableOpen, nullptr, unending.data(), &table.callbacks, &opened}});
    make({{fine, kaldbTableClose, opened}});
}

TEST_F(Mistakes, FromInsideCallbacks)
{
    KALDBTable* second = nullptr;
    ASSERT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &second) + plain.insert(5), 0U);
    table.close();
    table.callbacks = {orderCallingBack,
                       [](std::uint32_t, const void*, std::uint32_t*) { return callBack() + KALDB_FIELD_SUCCESS; },
                       [](const KALDBIndexRecord*, const KALDBIndexRecord*, std::uintptr_t) { return callBack(); },
                       [](std::uint32_t, std::uint32_t, void*) { return callBack(); },
                       {}};
    table.open(database);
    KALDBTable* const mine = table.handle();
    Record third, below{{}, -5, 0};
    ASSERT_EQ(table.find(3, &third), 0U);
    std::array<char, 48> bytes{}, found{}, above{};
    std::memcpy(bytes.data(), &third, sizeof third);
    std::memcpy(above.data(), table.make(100, 0).data(), above.size());
    const auto refuse = [&] {
        for (KALDBTable* const handle : {mine, second}) {
            valid<KALDBTable> = handle;
            callsGive(conflict, kaldbTableInsertRecord, kaldbTableUpdateRecord, kaldbTableDeleteRecord,
                      kaldbTableDeleteRecordByID, kaldbTableDeletePartialPK, kaldbTableClose);
        }
        make({{conflict, kaldbForgetHandle, mine},
              {conflict, kaldbForgetHandle, database.handle()},
              {conflict, kaldbDeinitialize, database.handle()},
              {conflict, kaldbDeinitialize, nullptr},
              {conflict, kaldbBackupDatabaseWhileRunning, database.handle()},
              {conflict, kaldbInitialize, at("other").c_str(), 0, &other, &value},
              {fine, kaldbTableUpdateRecord, p, &record},  // other tables may be changed
              {fine, kaldbTableQueryPK, p, &record, &record, 48}});
    };
    const std::initializer_list<Call> callers = {
        {fine, kaldbTableQueryPK, mine, bytes.data(), found.data(), 48},
        {fine, kaldbTableInsertRecord, mine, above.data(), 0, nullptr},
        {fine, kaldbTableDeleteRecord, mine, above.data(), 0, nullptr},
        {present, kaldbTableInsertRecord, mine, bytes.data(), 0, nullptr},
        {fine, kaldbTableUpdateRecord, mine, bytes.data()},
        {fine, kaldbTableQueryID, mine, &third.id, found.data(), 48},
        {fine, kaldbTableEnumWithCallback, mine, nullptr, visitCallingBack},
        {fine, kaldbTableDeletePartialPK, mine, &below, orderCallingBack},
    };
    for (const Call& caller : callers) {
        std::memcpy(bytes.data(), &third, sizeof third);
        during = refuse;
        caller.make();
        EXPECT_FALSE(during) << "nobody was called back";
        ASSERT_TRUE(Database::holdsNothing());
    }
    ASSERT_EQ(table.enumerate(3, walk, true, matchCallingBack), 0U);
    freeDuringMove(walk, fine);
    ASSERT_EQ(table.enumerate(38, walk, true, orderCallingBack), 0U);
    freeDuringMove(walk, ended);
    make({{fine, kaldbTableClose, second}});
}

TEST_F(Mistakes, OfPages)
{
    KALPageManager* m = nullptr;
    KALPageTracker* tracker = nullptr;
    void* read = nullptr;
    ASSERT_EQ(kalPageManagerInitialize(at("pages").c_str(), 0, &m, &value), 0U);
    make({{fine, kalPageManagerCreatePage, m, KALDB_LOCK_WRITE, &value, &body},
          {KALDB_OUT_OF_MEMORY, kalPageTrackerInitialize, most, 0, &tracker},
          {fine, kalPageTrackerInitialize, 1, 0, &tracker}});
    make({{beyond, kalPageManagerLoadPage, m, 1, most, &read},
          {noSlot, kalPageManagerLoadPage, m, most, 0, &read},
          {beyond, kalPageManagerUnlockPage, m, most},
          {failure, kalPageManagerReferencePage, m, body},
          {noFile, kalPageManagerRestore, at("pages").c_str()},
          {failure, kalPageManagerFileIsDirty, at("file").c_str(), &value},
          {invalid, kalPageTrackerLockPage, tracker, most, 1},
          {failure, kalPageTrackerGetPageLockCount, tracker, most, &value},
          {missing, kalPageTrackerUnlockPage, tracker, most},
          {noSlot, kalPageTrackerLockPage, tracker, 7, 4},
          {fine, kalPageTrackerDeinitialize, tracker}});
    char* const start = static_cast<char*>(body);
    for (void* const wrong : {start + 1, start - 28, start + 2048, start - 2048, anyBlock.data()}) {
        valid<KALPageManager> = m, valid<void> = wrong;
        callsGive(invalid, kalPageManagerUnloadPage, kalPageManagerUnreferencePage, kalPageManagerSetPageDirty,
                  kalPageManagerFlushPage);
        callsGive(fine, pmIsPageLocked);
    }
    // Given back more often than taken: the page's slot must not count below nothing.
    for (int i = 0; i < 3; ++i)
        make({{fine, kalPageManagerUnloadPage, m, body}, {fine, kalPageManagerUnlockPage, m, 0}});
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(kalPageManagerCreatePage(m, KALDB_LOCK_WRITE, &value, &body) + kalPageManagerUnloadPage(m, body), 0U);
    // Held pages are no obstacle.
    make({{fine, kalPageManagerLoadPage, m, KALDB_LOCK_WRITE, 0, &body}, {fine, kalPageManagerDeinitialize, m}});
}

TEST_F(Mistakes, OfTreesAndPieces)
{
    std::int64_t key = 5, unknown = 6, before = 1;
    KALBTreePage* nothing = nullptr;
    const KALBTreeCompare compare = [](const void* probe, const void* stored) {
        return callBack(), std::memcmp(probe, stored, sizeof(std::int64_t));
    };
    const std::initializer_list<Call> oneAndFive = {{fine, kalBTreeFormat, tree, 256, 8},
                                                    {fine, kalBTreeInsertItem, tree, &key, compare, &slot},
                                                    {fine, kalBTreeInsertItem, tree, &before, compare, &slot}};
    make(oneAndFive);
    make({{missing, kalBTreeDeleteIndex, tree, KALDB_NO_SLOT, compare},
          {missing, kalBTreeGetIndex, tree, KALDB_NO_SLOT, &body},
          {failure, kalBTreeEnumerate, tree, &nothing, &walk},
          {present, kalBTreeSplit, tree, tree, 1, compare}});
    // A compare function that takes the page away under the search, or its own enumerator.
    for (const std::uint32_t itemSize : {8U, 16U, 100U}) {
        during = [&] { make({{fine, kalBTreeFormat, tree, 256, itemSize}}); };
        make({{missing, kalBTreeSearchPrimaryKey, tree, &unknown, compare, &body}});
        make(oneAndFive);
    }
    ASSERT_EQ(kalBTreeSearchPartialKey(tree, &key, matchCallingBack, &reference, &walk), 0U);
    freeDuringMove(walk, fine);

    KALDBBinaryRecord longer{anyBlock.data(), 9, 9, 0, 0}, endless{&key, most, most, 0, 0};
    for (const std::uint32_t dataSize : {most, most - 19, 300U}) {
        make({{fine, kaldbBinaryPageFormat, slots, 256, dataSize}});
        callsGive(noSlot, kaldbBinaryPageInsertItem);
        callsGive(missing, kaldbBinaryPageGetItem, kaldbBinaryPageDeleteItem);
    }
    make({{fine, kaldbBinaryPageFormat, slots, 256, 8}, {fine, kaldbBinaryPageInsertItem, slots, &piece, &slot}});
    validNumber = KALDB_NO_SLOT;
    callsGive(missing, kaldbBinaryPageGetItem, kaldbBinaryPageUpdateItem, kaldbBinaryPageDeleteItem);
    validNumber = 0;
    for (KALDBBinaryRecord* const wrong : {&longer, &endless}) {
        valid<KALDBBinaryRecord> = wrong;
        callsGive(small, kaldbBinaryPageInsertItem, kaldbBinaryPageUpdateItem);
    }
}

TEST_F(Mistakes, OfValues)
{
    Value shortOne("abc"), odd("abc"), oddAndLong("abc"), bytes(std::string(100, 'x'), 15), copy;
    Text textCopy;
    {
        const Value gone(std::string(100, 'x'));
        const Text goneText(8, u"a text that is long");
        copy = gone;
        textCopy = goneText;
    }
    valid<KALDBVariant> = &oddAndLong.v;
    for (const std::uint32_t type : {22U, most}) {
        odd.v.type = oddAndLong.v.type = type;
        oddAndLong.v.size = 100;
        make({{unsupported, kaldbVariantSet, &shortOne.v, type, "abc", 3},
              {unsupported, kaldbVariantSetString, &shortOne.v, type, "abc"},
              {unsupported, kaldbVariantGetData, &odd.v, &record, &size}});
        callsGive(failure, kaldbVariantInsertRecord, kaldbVariantGetRecord, kaldbVariantDeleteRecord);
    }
    value = 100, validNumber = 100;
    valid<KALDBVariant> = &copy.v, valid<KALDBVarString> = &textCopy.s;
    callsGive(notOpen, kaldbVariantGetData, kaldbVariantInsertRecord, kaldbVarStringCopy, kaldbVarStringCompare,
              kaldbVarStringICompare, kaldbVarStringInsertRecord);
    callsGive(missing, kaldbVariantGetRecord, kaldbVariantDeleteRecord, kaldbVarStringGetRecord,
              kaldbVarStringDeleteRecord);
    make(
        {{invalid, kaldbVariantSetBinary, &shortOne.v, 21, nullptr, 3}, {failure, kaldbVariantInsertRecord, &bytes.v}});
}

TEST_F(Mistakes, OfPathsAndFiles)
{
    const std::u16string path = at("file");
    validNumber = KAL_FILE_CREATE;
    for (auto& [wrong, status] : std::vector<std::pair<std::u16string, std::uint64_t>>{
             {at("folder"), notAFile}, {at("no/such"), noFile}, {longPath, KALDB_NAME_TOO_LONG}, {halfPair, invalid}}) {
        valid<char16_t> = wrong.data();
        callsGive(status, kalPageManagerInitialize, kalPageManagerBackup, kalPageManagerFileIsDirty, kalFileOpenW,
                  kalOwnerLockAcquire, kalFileSyncW, kalFileCopyW, kalFileRename);
        callsGive(0, kaldbValidateFile, kaldbValidatePages);
        make({{status, kalFileCopyW, path.c_str(), wrong.c_str()},
              {status, kalFileRename, path.c_str(), wrong.c_str()}});
    }
    for (const std::uint32_t mode : {0U, 2U, 4U, most})
        make({{invalid, kalFileOpenW, path.c_str(), &file, mode}});
    ASSERT_EQ(kalFileOpenW(path.c_str(), &file, KAL_FILE_READ), 0U);
    KALStats* stats = nullptr;
    const char16_t* const names[] = {u"one", nullptr};
    ASSERT_EQ(kalStatsInitialize(1, names, &stats), 0U);
    make({{0, kaldbValidateFile, nullptr, 0, nullptr},
          {KALDB_IO_ERROR, kalFileWrite, file, "x", &(value = 1)},
          {fine, kalFileClose, file},
          {fine, kalStatsDeinitialize, stats},
          {invalid, kalStatsDeinitialize, stats},
          {invalid, kalStatsInitialize, 2, names, &stats},
          {invalid, kalStatsInitialize, 2, nullptr, &stats}});
    EXPECT_EQ(kalError(nullptr), KALDB_INVALID_ARGUMENT + 0U);
}

}  // namespace
