// Callers' mistakes: each is answered with a status, holds nothing and changes nothing. The address sanitizer watches.

#include "support/database.h"
#include "support/values.h"

#include <array>
#include <functional>
#include <limits>
#include <tuple>
#include <utility>

namespace {

using test::Database;
using test::Record;
using test::Table;
using test::Text;
using test::Value;

enum : std::uint64_t {
    fine = KALDB_SUCCESS,
    failure = KALDB_FAILURE,
    notOpen = KALDB_NOT_OPEN,
    invalid = KALDB_INVALID_ARGUMENT,
    notApplicable = KALDB_NOT_APPLICABLE,
    noMemory = KALDB_OUT_OF_MEMORY,
    ioError = KALDB_IO_ERROR,
    empty = KALDB_EMPTY_PAGE,
    full = KALDB_FULL,
    noFile = KALDB_FILE_NOT_FOUND,
    ended = KALDB_END_OF_ENUMERATION,
    beyond = KALDB_END_OF_FILE,
    missing = KALDB_NOT_FOUND,
    present = KALDB_ALREADY_EXISTS,
    conflict = KALDB_LOCK_CONFLICT,
    small = KALDB_BUFFER_TOO_SMALL,
    unsupported = KALDB_NOT_SUPPORTED,
    longName = KALDB_NAME_TOO_LONG,
    notAFile = KALDB_NOT_A_FILE,
    notText = KALDB_CONVERSION_FAILED,
    noSlot = KALDB_NO_FREE_SLOT,
    noConversion = KAL_CONVERSION_FAILED
};

int mistakes = 0;

struct Mistake {
    const char* call;
    std::uint64_t expected;
    std::function<std::uint64_t()> make;
};
#define GIVES(expected, call)                                                                                          \
    Mistake                                                                                                            \
    {                                                                                                                  \
#call, expected, [&] { return std::uint64_t{call}; }                                                           \
    }

template <class... Mistakes>
void make(const Mistakes&... made)
{
    for (const Mistake* const mistake : {&made...}) {
        EXPECT_EQ(mistake->make(), mistake->expected) << mistake->call;
        ++mistakes;
    }
}

/// An argument that may be null.
template <class Object>
struct May {
    Object* object;
    operator Object*() const { return object; }
};
template <class Object>
May(Object*) -> May<Object>;

/// A block that was never a handle of anything.
alignas(std::max_align_t) std::array<char, 4096> never{};
template <class Object>
Object* neverOpened()
{
    return reinterpret_cast<Object*>(never.data());
}

/// A handle that was closed.
template <class Object>
Object* gone = nullptr;
template <class Object>
constexpr bool isHandle = false;
template <>
constexpr bool isHandle<KALDBTable> = true;
template <>
constexpr bool isHandle<KALPageManager> = true;
template <>
constexpr bool isHandle<KALPageTracker> = true;
template <>
constexpr bool isHandle<KALEnumerator> = true;
template <>
constexpr bool isHandle<KALFile> = true;

template <std::size_t which, class Operation, class... Arguments>
void makeWrong(const char* name, Operation operation, std::tuple<Arguments...> arguments)
{
    using Argument = std::tuple_element_t<which, std::tuple<Arguments...>>;
    if constexpr (std::is_pointer_v<Argument>) {
        std::vector<Argument> wrong{nullptr};
        if constexpr (isHandle<std::remove_pointer_t<Argument>>)
            wrong = {nullptr, gone<std::remove_pointer_t<Argument>>, neverOpened<std::remove_pointer_t<Argument>>()};
        for (const Argument argument : wrong) {
            std::get<which>(arguments) = argument;
            make(Mistake{name, invalid, [&] { return std::uint64_t{std::apply(operation, arguments)}; }});
        }
    }
}

/// Calls an operation once for each of its pointers, with null in the place of that one; and for each
/// handle, with one that is closed and with one that never was.
template <class Operation, class... Arguments>
void wrongPointers(const char* name, Operation operation, Arguments... arguments)
{
    [&]<std::size_t... which>(std::index_sequence<which...>)
    {
        (makeWrong<which>(name, operation, std::tuple{arguments...}), ...);
    }
    (std::index_sequence_for<Arguments...>{});
}
#define WRONG_POINTERS(operation, ...) wrongPointers(#operation, operation, __VA_ARGS__)

const char16_t* const halfPair = u"half \xD800 pair";
const std::u16string longPath(5000, u'x');
constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
std::uint32_t answerOne(KALEnumerator*, void*, std::uint32_t, std::uint32_t*) { return KALDB_FAILURE; }
constexpr KALEnumeratorCallbacks foreignCallbacks{
    answerOne, nullptr, [](KALEnumerator*, void*, std::uint32_t, void*, std::uint32_t) { return 1U; },
    [](KALEnumerator*, void*) { return 0U; }};

class Mistakes : public testing::Test {
protected:
    Mistakes()
    {
        for (std::int64_t key = 0; key < 40; ++key)
            EXPECT_EQ(table.insert(key, 0, &id), 0U);
        EXPECT_EQ(kaldbBinaryTableInsertRecord(raw.handle(), &piece, &place), 0U);
        keys = table.allKeys();
    }
    ~Mistakes() override
    {
        EXPECT_TRUE(Database::holdsNothing());
        EXPECT_EQ(table.allKeys(), keys);
        table.reopen(database);
        EXPECT_EQ(table.allKeys(), keys);
        EXPECT_EQ(database.errorsInFile(), 0U);
    }
    std::u16string at(const char* name) const { return (database.directory() / name).u16string(); }

    Database database;
    Table table{database, u"T", 48}, raw{database, u"Raw", 16, KALDB_CHAIN_BINARY}, plain{database, u"Plain", 48, 0};
    Record record{{}, 5, 0};
    KALDBID id{};
    KALDBIndexRecord place{};
    KALDBBinaryRecord piece{&record, 8, 8, KALDB_NO_PAGE, KALDB_NO_SLOT};
    KALDBTableInfo info{u"New", 48, 0, 0, 0};
    KALEnumerator* walk = nullptr;
    std::uint32_t value = 0, size = 8;
    std::int32_t order = 0;
    std::uint16_t slot = 0;
    void* body = nullptr;
    std::vector<std::int64_t> keys;
};

const auto passOver = [](void*, const void*) { return 0U; };

TEST_F(Mistakes, WithPointersThatLeadNowhere)
{
    KALDBTable *const t = table.handle(), *const r = raw.handle();
    KALDBTable* opened = nullptr;
    KALDBDatabase* again = nullptr;
    ASSERT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &gone<KALDBTable>), 0U);
    ASSERT_EQ(kaldbTableClose(gone<KALDBTable>), 0U);
    ASSERT_EQ(kalPageManagerInitialize(at("pages").c_str(), 0, &gone<KALPageManager>, &value), 0U);
    ASSERT_EQ(kalPageManagerDeinitialize(gone<KALPageManager>), 0U);
    ASSERT_EQ(kalPageTrackerInitialize(1, 0, &gone<KALPageTracker>), 0U);
    ASSERT_EQ(kalPageTrackerDeinitialize(gone<KALPageTracker>), 0U);
    ASSERT_EQ(kaldbTableEnumerate(nullptr, &gone<KALEnumerator>), 0U);
    ASSERT_EQ(kalEnumeratorFree(gone<KALEnumerator>), 0U);
    WRONG_POINTERS(kaldbInitialize, at("other").c_str(), 0U, &again, &value);
    WRONG_POINTERS(kaldbTableCreate, nullptr, &info);
    WRONG_POINTERS(kaldbTableExists, u"T", &value);
    WRONG_POINTERS(kaldbTableOpen, nullptr, u"T", &table.callbacks, &opened);
    WRONG_POINTERS(kaldbTableClose, t);
    WRONG_POINTERS(kaldbTableGetInfo, t, &info);
    WRONG_POINTERS(kaldbTableEnumerate, nullptr, &walk);
    WRONG_POINTERS(kaldbTableInsertRecord, t, &record, 0U, May{&id});
    WRONG_POINTERS(kaldbTableUpdateRecord, t, &record);
    WRONG_POINTERS(kaldbTableDeleteRecord, t, &record, 0U, May{&id});
    WRONG_POINTERS(kaldbTableDeleteRecordByID, t, &id);
    WRONG_POINTERS(kaldbTableQueryID, t, &id, &record, 48U);
    WRONG_POINTERS(kaldbTableQueryPK, t, &record, &record, 48U);
    WRONG_POINTERS(kaldbTableQueryPartialPK, t, 1U, &record, test::byKey, &walk);
    WRONG_POINTERS(kaldbTableUpdateCurrentRecord, t, neverOpened<KALEnumerator>(), &record);
    WRONG_POINTERS(kaldbTableDeletePartialPK, t, &record, test::byKey);
    WRONG_POINTERS(kaldbTableDeleteCurrentRecord, t, May{walk});
    WRONG_POINTERS(kaldbTableEnumWithCallback, t, nullptr, KALDBEnumCallback{passOver});
    WRONG_POINTERS(kaldbBinaryTableInsertRecord, r, &piece, &place);
    WRONG_POINTERS(kaldbBinaryTableDeleteRecord, r, &place);
    WRONG_POINTERS(kaldbBinaryTableUpdateRecord, r, &place, &piece);
    WRONG_POINTERS(kaldbBinaryTableGetRecord, r, &place, &piece);

    KALEnumerator* list = nullptr;
    ASSERT_EQ(kaldbTableEnumerate(nullptr, &list), 0U);
    for (const auto operation : {kalEnumeratorFree, kalEnumeratorMoveFirst, kalEnumeratorMoveNext})
        WRONG_POINTERS(operation, list);
    WRONG_POINTERS(kalEnumeratorGetItem, list, static_cast<void*>(&info), 88U);
    WRONG_POINTERS(kalEnumeratorGetUserData, list, &body);
    EXPECT_EQ(kalEnumeratorFree(list), 0U);

    KALPageManager *const m = kaldb::kaldbChainGetPageManager(), *manager = nullptr;
    const char16_t* path = nullptr;
    WRONG_POINTERS(kalPageManagerInitialize, at("pages").c_str(), 0U, &manager, &value);
    WRONG_POINTERS(kalPageManagerDeinitialize, m);
    WRONG_POINTERS(kalPageManagerLoadPage, m, 1U, 0U, &body);
    WRONG_POINTERS(kalPageManagerCreatePage, m, 1U, &value, &body);
    WRONG_POINTERS(kalPageManagerUnlockPage, m, 0U);
    for (const auto operation :
         {kalPageManagerUnloadPage, kalPageManagerUnreferencePage, kalPageManagerSetPageDirty, kalPageManagerFlushPage})
        WRONG_POINTERS(operation, m, static_cast<void*>(never.data()));
    WRONG_POINTERS(kalPageManagerFlushAllPages, m);
    WRONG_POINTERS(kalPageManagerGetPageSize, May{m}, &value);
    WRONG_POINTERS(kalPageManagerGetUsablePageSize, May{m}, &value);
    WRONG_POINTERS(kalPageManagerGetPageCount, m, &value);
    WRONG_POINTERS(kalPageManagerGetLocation, m, &path);
    WRONG_POINTERS(kalPageManagerGetStartPage, m, &value);
    WRONG_POINTERS(kalPageManagerSetStartPage, m, 0U);
    WRONG_POINTERS(kalPageManagerBackup, at("pages").c_str());
    WRONG_POINTERS(kalPageManagerBackupWhileRunning, m);
    WRONG_POINTERS(kalPageManagerRestore, at("pages").c_str());
    WRONG_POINTERS(kalPageManagerFileIsDirty, at("pages").c_str(), &value);
    KALPageTracker* tracker = nullptr;
    ASSERT_EQ(kalPageTrackerInitialize(1, 0, &tracker), 0U);
    WRONG_POINTERS(kalPageTrackerInitialize, 1U, 0U, &tracker);
    WRONG_POINTERS(kalPageTrackerDeinitialize, tracker);
    WRONG_POINTERS(kalPageTrackerLockPage, tracker, 1U, 1U);
    WRONG_POINTERS(kalPageTrackerUnlockPage, tracker, 1U);
    for (const auto get : {kalPageTrackerGetPageLockType, kalPageTrackerGetPageLockCount, kalPageTrackerIsPageLocked})
        WRONG_POINTERS(get, tracker, 1U, &value);
    EXPECT_EQ(kalPageTrackerDeinitialize(tracker), 0U);

    std::array<std::uint32_t, 128> memory{};
    auto* const tree = reinterpret_cast<KALBTreePage*>(memory.data());
    KALBTreePage* reference = tree;
    ASSERT_EQ(kalBTreeFormat(tree, sizeof memory, 32), 0U);
    WRONG_POINTERS(kalBTreeFormat, tree, 512U, 32U);
    WRONG_POINTERS(kalBTreeInsertItem, tree, &record, test::byKey, &slot);
    WRONG_POINTERS(kalBTreeUpdateItem, tree, &record, test::byKey);
    WRONG_POINTERS(kalBTreeDeleteItem, tree, &record, test::byKey, &slot);
    WRONG_POINTERS(kalBTreeDeleteIndex, tree, slot, test::byKey);
    WRONG_POINTERS(kalBTreeGetIndex, tree, slot, &body);
    WRONG_POINTERS(kalBTreeGetSmallest, tree, &body, &slot);
    WRONG_POINTERS(kalBTreeSearchPrimaryKey, tree, &record, test::byKey, &body);
    WRONG_POINTERS(kalBTreeCompareItem, tree, &record, test::byKey, &order);
    WRONG_POINTERS(kalBTreeCanBeHere, tree, &record, test::byKey, &order);
    for (const auto get : {kalBTreeGetCount, kalBTreeGetMaxCount, kalBTreeIsFull, kalBTreeShouldSplit})
        WRONG_POINTERS(get, tree, &value);
    WRONG_POINTERS(kalBTreeEnumerate, tree, &reference, &walk);
    WRONG_POINTERS(kalBTreeSearchPartialKey, tree, &record, May{&test::byKey}, &reference, &walk);
    WRONG_POINTERS(kalBTreeGetByEnumerator, tree, neverOpened<KALEnumerator>(), &body);
    WRONG_POINTERS(kalBTreeSplit, tree, reference, 0U, test::byKey);
    auto* const slots = reinterpret_cast<KALDBBinaryPage*>(memory.data());
    ASSERT_EQ(kaldbBinaryPageFormat(slots, sizeof memory, 8), 0U);
    WRONG_POINTERS(kaldbBinaryPageFormat, slots, 512U, 8U);
    WRONG_POINTERS(kaldbBinaryPageInsertItem, slots, &piece, &slot);
    WRONG_POINTERS(kaldbBinaryPageGetItem, slots, slot, &piece);
    WRONG_POINTERS(kaldbBinaryPageUpdateItem, slots, slot, &piece);
    WRONG_POINTERS(kaldbBinaryPageDeleteItem, slots, slot);
    for (const auto get : {kaldbBinaryPageIsFull, kaldbBinaryPageGetCount, kaldbBinaryPageGetMaxCount})
        WRONG_POINTERS(get, slots, &value);
    kalBTreeDump(nullptr);
    for (const auto trace : {pmTracePageManager, pmTraceFilePages, pmTraceCachePages})
        for (KALPageManager* const wrong : {gone<KALPageManager>, neverOpened<KALPageManager>()})
            trace(nullptr), trace(wrong);
    make(GIVES(fine, pmAreMemPagesLocked(nullptr)), GIVES(fine, pmIsPageLocked(nullptr, never.data())),
         GIVES(fine, pmIsPageLocked(m, nullptr)), GIVES(failure, kaldbForgetHandle(nullptr)));

    Value v;
    const void* data = nullptr;
    for (const auto operation : {kaldbVariantDeinitialize, kaldbVariantEmpty, kaldbVariantAllocate,
                                 kaldbVariantInsertRecord, kaldbVariantGetRecord, kaldbVariantDeleteRecord})
        WRONG_POINTERS(operation, &v.v);
    WRONG_POINTERS(kaldbVariantInitialize, 8U, &v.v);
    WRONG_POINTERS(kaldbVariantSet, &v.v, 21U, &record, 8U);
    WRONG_POINTERS(kaldbVariantSetID, &v.v, &id);
    WRONG_POINTERS(kaldbVariantSetPrimitive, &v.v, 2U, May{&record});
    WRONG_POINTERS(kaldbVariantSetString, &v.v, 16U, May{"text"});
    WRONG_POINTERS(kaldbVariantSetBinary, &v.v, 21U, &record, 8U);
    WRONG_POINTERS(kaldbVariantGetType, &v.v, &value);
    WRONG_POINTERS(kaldbVariantGetSize, &v.v, &value);
    WRONG_POINTERS(kaldbVariantGetID, &v.v, &id);
    WRONG_POINTERS(kaldbVariantGetData, &v.v, &record, &size);
    WRONG_POINTERS(kaldbVariantGetDataPointer, &v.v, &data);
    Text s;
    const char* text = nullptr;
    char16_t wide[8];
    for (const auto operation :
         {kaldbVarStringDelete, kaldbVarStringInsertRecord, kaldbVarStringGetRecord, kaldbVarStringDeleteRecord})
        WRONG_POINTERS(operation, &s.s);
    WRONG_POINTERS(kaldbVarStringAllocate, 8U, &s.s);
    WRONG_POINTERS(kaldbVarStringCreate, 8U, &s.s, May{u"text"});
    WRONG_POINTERS(kaldbVarStringSet, &s.s, May{u"text"});
    WRONG_POINTERS(kaldbVarStringGetLength, &s.s, &value);
    WRONG_POINTERS(kaldbVarStringGet, &s.s, &text);
    WRONG_POINTERS(kaldbVarStringCopy, &s.s, wide, 8U);
    WRONG_POINTERS(kaldbVarStringDup, &s.s, &s.s);
    for (const auto compare : {kaldbVarStringCompare, kaldbVarStringICompare})
        WRONG_POINTERS(compare, &s.s, &s.s, &order);
    WRONG_POINTERS(kaldbVarStringIComparePSZ, &s.s, u"text", &order);
    EXPECT_EQ(kaldbVarStringGetPSZ(nullptr), nullptr);
    EXPECT_GT(mistakes, 200);
}

TEST_F(Mistakes, WithTheDatabaseAndItsStores)
{
    KALDBDatabase* other = nullptr;
    make(GIVES(invalid, kaldbDeinitialize(neverOpened<KALDBDatabase>())), GIVES(invalid, kaldbDeinitialize(nullptr)),
         GIVES(present, kaldbInitialize(at("other").c_str(), 0, &other, &value)), GIVES(present, database.tryOpen()),
         GIVES(fine, kaldbDeinitBinaryTable(nullptr)), GIVES(notOpen, kaldbDeinitBinaryTable(nullptr)),
         GIVES(notOpen, Value(std::string(100, 'x')).store()), GIVES(fine, kaldbInitBinaryTable(database.handle())),
         GIVES(fine, kaldbDeinitVarStringTable(nullptr)), GIVES(notOpen, kaldbDeinitVarStringTable(nullptr)),
         GIVES(notOpen, Text(8, u"a long text").store()), GIVES(fine, kaldbInitVarStringTable(database.handle())));
    EXPECT_FALSE(std::filesystem::exists(database.directory() / "other"));
}

TEST_F(Mistakes, WithTheWrongTableNameSizeOrEnumerator)
{
    KALDBTable *const t = table.handle(), *const r = raw.handle(), *const p = plain.handle(), *opened = nullptr;
    KALEnumerator *foreign = nullptr, *list = nullptr, *others = nullptr, *items = nullptr;
    ASSERT_EQ(plain.insert(1), 0U);
    ASSERT_EQ(kalEnumeratorCreate(&foreignCallbacks, nullptr, &foreign), 0U);
    ASSERT_EQ(kaldbTableEnumerate(nullptr, &list), 0U);
    ASSERT_EQ(plain.enumerate(1, others, false), 0U);
    std::array<std::uint32_t, 128> memory{};
    auto* const tree = reinterpret_cast<KALBTreePage*>(memory.data());
    KALBTreePage* reference = tree;
    ASSERT_EQ(
        kalBTreeFormat(tree, sizeof memory, sizeof record) + kalBTreeInsertItem(tree, &record, test::byKey, &slot), 0U);
    ASSERT_EQ(kalBTreeEnumerate(tree, &reference, &items), 0U);
    for (KALEnumerator* const e : {foreign, list, others, items})
        make(GIVES(invalid, kaldbTableUpdateCurrentRecord(t, e, &record)));
    for (KALEnumerator* const e : {foreign, list, others})
        make(GIVES(invalid, kalBTreeGetByEnumerator(tree, e, &body)));
    make(GIVES(unsupported, kalEnumeratorMoveFirst(list)), GIVES(unsupported, kalEnumeratorMoveFirst(others)),
         GIVES(unsupported, kaldbTableDeleteCurrentRecord(p, foreign)), GIVES(failure, kaldbTableQuery(t, nullptr)),
         GIVES(conflict, kaldbTableCreate(nullptr, &info)), GIVES(unsupported, kaldbTableDrop(nullptr, u"T")));
    for (KALEnumerator* const e : {foreign, list, others, items})
        EXPECT_EQ(kalEnumeratorFree(e), 0U);

    KALDBBinaryRecord tooLong{never.data(), 17, 17, KALDB_NO_PAGE, KALDB_NO_SLOT}, noData{nullptr, 8, 8, 0, 0};
    KALDBIndexRecord nowhere = place, freeSlot = place, catalogue = place, noIndex = place;
    nowhere.page = most, catalogue.page = 0, noIndex.index = KALDB_NO_SLOT, ++freeSlot.index;
    make(GIVES(unsupported, kaldbTableInsertRecord(r, &record, 0, &id)),
         GIVES(unsupported, kaldbTableUpdateRecord(r, &record)),
         GIVES(unsupported, kaldbTableDeleteRecord(r, &record, 0, nullptr)),
         GIVES(unsupported, kaldbTableDeleteRecordByID(r, &id)), GIVES(unsupported, kaldbTableDeleteRecordByID(p, &id)),
         GIVES(unsupported, kaldbTableQueryID(r, &id, &record, 48)),
         GIVES(unsupported, kaldbTableQueryID(p, &id, &record, 48)),
         GIVES(unsupported, kaldbTableQueryPK(r, &record, &record, 48)),
         GIVES(unsupported, kaldbTableQueryPartialPK(r, 1, &record, test::byKey, &walk)),
         GIVES(unsupported, kaldbTableDeletePartialPK(r, &record, test::byKey)),
         GIVES(unsupported, kaldbTableEnumWithCallback(r, nullptr, passOver)),
         GIVES(unsupported, kaldbBinaryTableInsertRecord(t, &piece, &place)),
         GIVES(unsupported, kaldbBinaryTableUpdateRecord(t, &place, &piece)),
         GIVES(unsupported, kaldbBinaryTableGetRecord(t, &place, &piece)),
         GIVES(unsupported, kaldbBinaryTableDeleteRecord(t, &place)),
         GIVES(small, kaldbBinaryTableInsertRecord(r, &tooLong, &place)),
         GIVES(small, kaldbBinaryTableUpdateRecord(r, &place, &tooLong)),
         GIVES(invalid, kaldbBinaryTableInsertRecord(r, &noData, &place)),
         GIVES(invalid, kaldbBinaryTableUpdateRecord(r, &place, &noData)),
         GIVES(invalid, kaldbBinaryTableGetRecord(r, &place, &noData)),
         GIVES(missing, kaldbBinaryTableDeleteRecord(r, &freeSlot)));
    for (const KALDBIndexRecord& wrong : {nowhere, noIndex, catalogue})
        make(GIVES(missing, kaldbBinaryTableGetRecord(r, &wrong, &piece)),
             GIVES(missing, kaldbBinaryTableUpdateRecord(r, &wrong, &piece)),
             GIVES(missing, kaldbBinaryTableDeleteRecord(r, &wrong)));
    KALDBID unknown{0xFFFF, 0, 0, 999};
    record.key = 99;
    const std::vector<char16_t> unending(31, u'n');  // not a unit more is there
    KALDBTableInfo unended{};
    std::fill(std::begin(unended.name), std::end(unended.name), u'n');
    unended.recordSize = 48;
    make(GIVES(missing, kaldbTableQueryID(t, &unknown, &record, 48)),
         GIVES(missing, kaldbTableDeleteRecordByID(t, &unknown)),
         GIVES(missing, kaldbTableOpen(nullptr, unending.data(), &table.callbacks, &opened)),
         GIVES(missing, kaldbTableOpen(nullptr, u"", &table.callbacks, &opened)),
         GIVES(missing, kaldbTableOpen(nullptr, longPath.c_str(), &table.callbacks, &opened)),
         GIVES(fine, kaldbTableExists(unending.data(), &value) + value),
         GIVES(fine, kaldbTableCreate(nullptr, &unended)), GIVES(present, kaldbTableCreate(nullptr, &unended)),
         GIVES(fine, kaldbTableOpen(nullptr, unending.data(), &table.callbacks, &opened)),
         GIVES(fine, kaldbTableClose(opened)));
}

std::function<void()> during;  // what the next callback does, once

void callBack()
{
    if (during)
        std::exchange(during, nullptr)();
}

int32_t orderCallingBack(const void* probe, const void* stored)
{
    callBack();
    return test::byKey(probe, stored);
}

TEST_F(Mistakes, FromInsideCallbacks)
{
    KALDBTable* second = nullptr;
    ASSERT_EQ(kaldbTableOpen(nullptr, u"T", &table.callbacks, &second), 0U);
    table.close();
    table.callbacks = {orderCallingBack,
                       [](std::uint32_t, const void*, std::uint32_t*) { return callBack(), KALDB_FIELD_SUCCESS + 0U; },
                       [](const KALDBIndexRecord*, const KALDBIndexRecord*, std::uintptr_t) { return callBack(), 0U; },
                       [](std::uint32_t, std::uint32_t, void*) { return callBack(), 0U; },
                       {}};
    table.open(database);
    KALDBTable* const t = table.handle();
    Record probe{{}, 3, 0};
    KALDBID third{};
    ASSERT_EQ(table.find(3, &probe), 0U);
    third = probe.id;
    const std::vector<char> bytes = table.make(3, 0);
    std::vector<char> same = bytes;
    std::memcpy(same.data(), &third, sizeof third);
    KALDBDatabase* again = nullptr;
    const std::vector<Mistake> actions = {GIVES(conflict, table.insert(77)),
                                          GIVES(conflict, kaldbTableUpdateRecord(t, same.data())),
                                          GIVES(conflict, table.remove(3)),
                                          GIVES(conflict, kaldbTableDeleteRecordByID(t, &third)),
                                          GIVES(conflict, kaldbTableDeletePartialPK(second, bytes.data(), test::byKey)),
                                          GIVES(conflict, kaldbTableInsertRecord(second, same.data(), 0, nullptr)),
                                          GIVES(conflict, kaldbTableClose(t)),
                                          GIVES(conflict, kaldbTableClose(second)),
                                          GIVES(conflict, kaldbForgetHandle(t)),
                                          GIVES(conflict, kaldbForgetHandle(database.handle())),
                                          GIVES(conflict, kaldbDeinitialize(database.handle())),
                                          GIVES(conflict, kaldbDeinitialize(nullptr)),
                                          GIVES(conflict, kaldbBackupDatabaseWhileRunning(database.handle())),
                                          GIVES(conflict, kaldbInitialize(at("other").c_str(), 0, &again, &value))};
    const std::vector<std::pair<const char*, std::function<void()>>> callers = {
        {"compare", [&] { EXPECT_EQ(table.find(5), 0U); }},
        {"insertion", [&] { EXPECT_EQ(table.insert(100) + table.remove(100), 0U); }},
        {"refused insertion", [&] { EXPECT_EQ(table.insert(5), present); }},
        {"update", [&] { EXPECT_EQ(kaldbTableUpdateRecord(t, same.data()), 0U); }},
        {"query by identifier", [&] { EXPECT_EQ(kaldbTableQueryID(t, &third, same.data(), 48), 0U); }},
        {"walk",
         [&] {
             EXPECT_EQ(kaldbTableEnumWithCallback(t, nullptr, [](void*, const void*) { return callBack(), 0U; }), 0U);
         }},
        {"partial key", [&] { EXPECT_EQ(table.matches(5, orderCallingBack).size(), 1U); }},
        {"deletion by partial key",
         [&] { EXPECT_EQ(kaldbTableDeletePartialPK(t, table.make(-5, 0).data(), orderCallingBack), 0U); }},
    };
    for (const auto& [name, caller] : callers)
        for (const Mistake& action : actions) {
            SCOPED_TRACE(name);
            during = [&] { make(action); };
            caller();
            EXPECT_FALSE(during) << name << " called nobody back";
            ASSERT_TRUE(Database::holdsNothing()) << action.call;
        }
    // An enumerator that is freed by its own compare function, on the way to its next record and to its end.
    for (const std::int64_t key : {3, 38}) {
        ASSERT_EQ(
            table.enumerate(
                key, walk, true, key == 38 ? orderCallingBack : [](const void*, const void*) { return callBack(), 0; }),
            0U);
        during = [&] { make(GIVES(fine, kalEnumeratorFree(walk)), GIVES(invalid, kalEnumeratorFree(walk))); };
        make(GIVES(key == 38 ? ended : fine, kalEnumeratorMoveNext(walk)));
        EXPECT_FALSE(during);
        make(GIVES(invalid, kalEnumeratorMoveNext(walk)));
    }
    EXPECT_EQ(kaldbTableClose(second), 0U);
}

TEST(PageMistakes, OfTheManagerAndTheTracker)
{
    const test::TempDir directory;
    const auto at = [&](const char* name) { return (directory / name).u16string(); };
    test::writeFile(directory / "junk", std::string(4000, 'j'));
    std::filesystem::create_directory(directory / "folder");
    KALPageManager *m = nullptr, *second = nullptr;
    std::uint32_t page = 0, value = 0;
    void *body = nullptr, *other = nullptr;
    ASSERT_EQ(kalPageManagerInitialize(at("pages").c_str(), 0, &m, &value), 0U);
    ASSERT_EQ(kalPageManagerCreatePage(m, KALDB_LOCK_WRITE, &page, &body), 0U);
    const auto open = [&](const std::u16string& path) {
        return kalPageManagerInitialize(path.c_str(), 0, &second, &value);
    };
    make(GIVES(beyond, kalPageManagerLoadPage(m, 1, 99, &other)),
         GIVES(beyond, kalPageManagerLoadPage(m, 1, most, &other)),
         GIVES(noSlot, kalPageManagerLoadPage(m, 4, 0, &other)),
         GIVES(noSlot, kalPageManagerLoadPage(m, most, 0, &other)),
         GIVES(conflict, kalPageManagerLoadPage(m, 1, 0, &other)),
         GIVES(conflict, kalPageManagerLoadPage(m, 3, 0, &other)),
         GIVES(noSlot, kalPageManagerCreatePage(m, 4, &page, &other)), GIVES(beyond, kalPageManagerUnlockPage(m, 99)),
         GIVES(beyond, kalPageManagerUnlockPage(m, most)), GIVES(failure, kalPageManagerReferencePage(m, body)),
         GIVES(fine, kalPageManagerFlushPage(m, body)), GIVES(notApplicable, kalPageManagerFlushPage(m, body)),
         GIVES(notAFile, open(at("folder"))), GIVES(failure, open(at("junk"))), GIVES(noFile, open(at("no/such"))),
         GIVES(invalid, open(halfPair)), GIVES(longName, open(longPath)), GIVES(noFile, open(u"")),
         GIVES(noFile, kalPageManagerBackup(at("none").c_str())),
         GIVES(notAFile, kalPageManagerBackup(at("folder").c_str())),
         GIVES(noFile, kalPageManagerRestore(at("pages").c_str())), GIVES(invalid, kalPageManagerRestore(halfPair)),
         GIVES(noFile, kalPageManagerFileIsDirty(at("none").c_str(), &value)),
         GIVES(notAFile, kalPageManagerFileIsDirty(at("folder").c_str(), &value)),
         GIVES(failure, kalPageManagerFileIsDirty(at("junk").c_str(), &value)));
    char* const place = static_cast<char*>(body);
    for (void* const wrong : {place + 1, place - 28, place + 2048, place - 2048, never.data()})
        make(GIVES(invalid, kalPageManagerUnloadPage(m, wrong)),
             GIVES(invalid, kalPageManagerUnreferencePage(m, wrong)),
             GIVES(invalid, kalPageManagerSetPageDirty(m, wrong)), GIVES(invalid, kalPageManagerFlushPage(m, wrong)),
             GIVES(fine, pmIsPageLocked(m, wrong)));
    // Given back more often than taken: the page's slot must not count below nothing.
    for (int i = 0; i < 3; ++i)
        make(GIVES(fine, kalPageManagerUnloadPage(m, body)), GIVES(fine, kalPageManagerUnlockPage(m, 0)));
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(kalPageManagerCreatePage(m, KALDB_LOCK_WRITE, &page, &body) + kalPageManagerUnloadPage(m, body), 0U);
    EXPECT_EQ(kalPageManagerLoadPage(m, KALDB_LOCK_WRITE, 0, &body), 0U);
    EXPECT_EQ(kalPageManagerDeinitialize(m), 0U) << "held pages are no obstacle";

    KALPageTracker* t = nullptr;
    make(GIVES(noMemory, kalPageTrackerInitialize(most, 0, &t)));
    ASSERT_EQ(kalPageTrackerInitialize(1, 0, &t), 0U);
    make(
        GIVES(missing, kalPageTrackerUnlockPage(t, 7)), GIVES(fine, kalPageTrackerLockPage(t, 7, 0)),
        GIVES(failure, kalPageTrackerGetPageLockType(t, 7, &value)), GIVES(invalid, kalPageTrackerLockPage(t, most, 1)),
        GIVES(failure, kalPageTrackerGetPageLockCount(t, most, &value)), GIVES(noSlot, kalPageTrackerLockPage(t, 7, 4)),
        GIVES(fine, kalPageTrackerLockPage(t, 7, 1)), GIVES(conflict, kalPageTrackerLockPage(t, 7, 2)),
        GIVES(full, kalPageTrackerLockPage(t, 8, 1)), GIVES(missing, kalPageTrackerUnlockPage(t, most)));
    EXPECT_EQ(kalPageTrackerDeinitialize(t), 0U);
}

TEST(PageMistakes, OfTreesAndSlots)
{
    std::array<std::uint32_t, 64> memory{}, wider{};
    static auto* const tree = reinterpret_cast<KALBTreePage*>(memory.data());
    auto* const wide = reinterpret_cast<KALBTreePage*>(wider.data());
    KALBTreePage *reference = tree, *nothing = nullptr;
    KALEnumerator* walk = nullptr;
    std::int64_t key = 5, unknown = 6;
    std::int32_t order = 0;
    std::uint16_t slot = 0;
    void* item = nullptr;
    const KALBTreeCompare compare = [](const void* probe, const void* stored) {
        return callBack(), std::memcmp(probe, stored, sizeof(std::int64_t));
    };
    const auto insert = [&](std::int64_t number) { return kalBTreeInsertItem(tree, &number, compare, &slot); };
    for (const auto& [size, itemSize] :
         {std::pair{0U, 8U}, {31U, 8U}, {49U, 8U}, {256U, 215U}, {256U, most}, {31U, 0U}})
        make(GIVES(small, kalBTreeFormat(tree, size, itemSize)));
    ASSERT_EQ(kalBTreeFormat(tree, sizeof memory, 8) + kalBTreeFormat(wide, sizeof wider, 16), 0U);
    make(GIVES(empty, kalBTreeGetSmallest(tree, &item, &slot)),
         GIVES(empty, kalBTreeCompareItem(tree, &key, compare, &order)),
         GIVES(missing, kalBTreeEnumerate(tree, &reference, &walk)),
         GIVES(missing, kalBTreeUpdateItem(tree, &key, compare)),
         GIVES(missing, kalBTreeSearchPartialKey(tree, &key, compare, &reference, &walk)), GIVES(fine, insert(5)),
         GIVES(present, insert(5)), GIVES(missing, kalBTreeDeleteItem(tree, &unknown, compare, &slot)),
         GIVES(missing, kalBTreeSearchPrimaryKey(tree, &unknown, compare, &item)),
         GIVES(notApplicable, kalBTreeDeleteIndex(tree, 1, compare)),
         GIVES(missing, kalBTreeDeleteIndex(tree, 12, compare)),
         GIVES(missing, kalBTreeDeleteIndex(tree, KALDB_NO_SLOT, compare)),
         GIVES(missing, kalBTreeGetIndex(tree, 12, &item)),
         GIVES(missing, kalBTreeGetIndex(tree, KALDB_NO_SLOT, &item)), GIVES(failure, kalBTreeBalance(tree)),
         GIVES(failure, kalBTreeEnumerate(tree, &nothing, &walk)),
         GIVES(invalid, kalBTreeSplit(tree, wide, 1, compare)),
         GIVES(missing, kalBTreeSearchPartialKey(tree, &unknown, compare, &reference, &walk)), GIVES(fine, insert(1)),
         GIVES(present, kalBTreeSplit(tree, tree, 1, compare)));
    reference = wide;
    make(GIVES(failure, kalBTreeEnumerate(tree, &reference, &walk)));
    reference = tree;
    ASSERT_EQ(kalBTreeEnumerate(tree, &reference, &walk), 0U);
    for (KALBTreePage* const elsewhere : {wide, nothing}) {
        reference = elsewhere;
        make(GIVES(failure, kalEnumeratorGetItem(walk, &key, 8)), GIVES(failure, kalEnumeratorMoveNext(walk)));
    }
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    reference = tree;
    for (std::int64_t number = 10; number < 20; ++number)
        EXPECT_EQ(insert(number), 0U);
    make(GIVES(full, insert(20)), GIVES(full, insert(5)));
    // A compare function that takes the page away under the search, or its own enumerator.
    for (const std::uint32_t itemSize : {8U, 16U, 100U}) {
        during = [&] { EXPECT_EQ(kalBTreeFormat(tree, sizeof memory, itemSize), 0U); };
        make(GIVES(missing, kalBTreeSearchPrimaryKey(tree, &unknown, compare, &item)));
        EXPECT_EQ(kalBTreeFormat(tree, sizeof memory, 8) + insert(5) + insert(1), 0U);
    }
    ASSERT_EQ(kalBTreeSearchPartialKey(
                  tree, &key, [](const void*, const void*) { return callBack(), 0; }, &reference, &walk),
              0U);
    during = [&] { make(GIVES(fine, kalEnumeratorFree(walk)), GIVES(invalid, kalEnumeratorFree(walk))); };
    make(GIVES(fine, kalEnumeratorMoveNext(walk)), GIVES(invalid, kalEnumeratorMoveNext(walk)));

    auto* const slots = reinterpret_cast<KALDBBinaryPage*>(memory.data());
    KALDBBinaryRecord piece{&key, 8, 8, 0, 0}, longer{memory.data(), 9, 9, 0, 0}, endless{&key, most, most, 0, 0},
        noData{nullptr, 8, 1, 0, 0};
    for (const std::uint32_t size : {0U, 27U})
        make(GIVES(small, kaldbBinaryPageFormat(slots, size, 8)));
    for (const std::uint32_t dataSize : {most, most - 19, 300U})
        make(GIVES(fine, kaldbBinaryPageFormat(slots, sizeof memory, dataSize)),
             GIVES(noSlot, kaldbBinaryPageInsertItem(slots, &piece, &slot)),
             GIVES(missing, kaldbBinaryPageGetItem(slots, 0, &piece)),
             GIVES(missing, kaldbBinaryPageDeleteItem(slots, 0)));
    ASSERT_EQ(kaldbBinaryPageFormat(slots, sizeof memory, 8) + kaldbBinaryPageInsertItem(slots, &piece, &slot), 0U);
    for (KALDBBinaryRecord* const wrong : {&longer, &endless})
        make(GIVES(small, kaldbBinaryPageInsertItem(slots, wrong, &slot)),
             GIVES(small, kaldbBinaryPageUpdateItem(slots, 0, wrong)));
    make(GIVES(invalid, kaldbBinaryPageInsertItem(slots, &noData, &slot)),
         GIVES(invalid, kaldbBinaryPageUpdateItem(slots, 0, &noData)),
         GIVES(missing, kaldbBinaryPageDeleteItem(slots, 1)));
    for (const std::uint16_t wrong : {std::uint16_t{8}, std::uint16_t{KALDB_NO_SLOT}})
        make(GIVES(missing, kaldbBinaryPageGetItem(slots, wrong, &piece)),
             GIVES(missing, kaldbBinaryPageUpdateItem(slots, wrong, &piece)),
             GIVES(missing, kaldbBinaryPageDeleteItem(slots, wrong)));
}

TEST_F(Mistakes, OfValues)
{
    Value empties, shortOne("abc"), stored(std::string(100, 'x')), bytes(std::string(100, 'x'), 15);
    Text shortText(8, u"abc"), text(8, u"a text that is long"), tiny(3);
    const void* data = &record;
    std::array<char16_t, 8> wide{};
    ASSERT_EQ(stored.store() + text.store(), 0U);
    Value* const gone = new Value(std::string(100, 'x'));
    Text* const goneText = new Text(8, u"a text that is long");
    const Value copy = *gone;
    const Text textCopy = *goneText;
    delete gone;
    delete goneText;
    for (const std::uint32_t type : {22U, most}) {
        Value odd("abc");
        odd.v.type = type;
        make(GIVES(unsupported, kaldbVariantSet(&shortOne.v, type, "abc", 3)),
             GIVES(unsupported, shortOne.set("abc", type)),
             GIVES(unsupported, kaldbVariantSetPrimitive(&shortOne.v, type, "abc")),
             GIVES(unsupported, kaldbVariantSetString(&shortOne.v, type, "abc")),
             GIVES(unsupported, kaldbVariantGetData(&odd.v, &record, &size)),
             GIVES(unsupported, kaldbVariantGetDataPointer(&odd.v, &data)));
        odd.v.size = 100;
        make(GIVES(failure, odd.store()), GIVES(failure, odd.fetch()), GIVES(failure, odd.erase()));
    }
    make(GIVES(unsupported, kaldbVariantSetPrimitive(&shortOne.v, KALDB_VT_STRING, "abc")),
         GIVES(unsupported, shortOne.set("abc", 2)), GIVES(invalid, kaldbVariantSetBinary(&shortOne.v, 21, nullptr, 3)),
         GIVES(notText, kaldbVariantSetString(&empties.v, KALDB_VT_WSTRING, halfPair)),
         GIVES(small, kaldbVariantGetData(&stored.v, &record, &size)),
         GIVES(notOpen, kaldbVariantGetData(&copy.v, never.data(), &(size = 100))),
         GIVES(notApplicable, kaldbVariantAllocate(&shortOne.v)), GIVES(notApplicable, shortOne.store()),
         GIVES(notApplicable, shortOne.fetch()), GIVES(notApplicable, shortOne.erase()), GIVES(failure, bytes.store()),
         GIVES(unsupported, kaldbVariantUpdateRecord(nullptr)), GIVES(notOpen, Value(copy).store()),
         GIVES(missing, Value(copy).fetch()), GIVES(missing, Value(copy).erase()),
         GIVES(notText, kaldbVarStringSet(&text.s, halfPair)),
         GIVES(notText, kaldbVarStringCreate(3, &tiny.s, halfPair)), GIVES(small, tiny.set(u"more than three")),
         GIVES(small, kaldbVarStringCreate(3, &tiny.s, u"more than three")),
         GIVES(small, kaldbVarStringDup(&tiny.s, &text.s)), GIVES(small, kaldbVarStringCopy(&text.s, wide.data(), 8)),
         GIVES(small, kaldbVarStringCopy(&shortText.s, wide.data(), 3)),
         GIVES(small, kaldbVarStringCopy(&shortText.s, wide.data(), 0)),
         GIVES(notOpen, kaldbVarStringCopy(&textCopy.s, wide.data(), 8)),
         GIVES(notOpen, kaldbVarStringDup(&text.s, &textCopy.s)),
         GIVES(notOpen, kaldbVarStringCompare(&text.s, &textCopy.s, &order)),
         GIVES(notOpen, kaldbVarStringICompare(&textCopy.s, &text.s, &order)),
         GIVES(notText, kaldbVarStringIComparePSZ(&text.s, halfPair, &order)), GIVES(notApplicable, shortText.store()),
         GIVES(notApplicable, shortText.fetch()), GIVES(notApplicable, shortText.erase()),
         GIVES(unsupported, kaldbVarStringUpdateRecord(nullptr)), GIVES(notOpen, Text(textCopy).store()),
         GIVES(missing, Text(textCopy).fetch()), GIVES(missing, Text(textCopy).erase()));
    for (const std::uint32_t lie : {99U, 101U, 5000U, most}) {
        Value wrong(stored);
        Text wrongText(text);
        wrong.v.size = wrongText.s.length = lie;
        make(GIVES(failure, wrong.fetch()), GIVES(failure, wrong.erase()), GIVES(failure, wrongText.fetch()),
             GIVES(failure, wrongText.erase()));
    }
    EXPECT_EQ(stored.fetch() + text.fetch(), 0U);
    EXPECT_EQ(stored.get(), std::string(100, 'x'));
    EXPECT_EQ(text.get(), u"a text that is long");
}

TEST(FileMistakes, OfPathsFilesAndTexts)
{
    const test::TempDir directory;
    const auto at = [&](const char* name) { return (directory / name).u16string(); };
    test::writeFile(directory / "file", "contents");
    std::filesystem::create_directory(directory / "folder");
    std::uint32_t errors = 0, isNew = 0, length = 8;
    for (const auto validate : {kaldbValidateFile, kaldbValidatePages}) {
        make(GIVES(0, validate(nullptr, 0, &errors)), GIVES(0, validate(nullptr, 0, nullptr)));
        for (const std::u16string& path :
             {at("none"), at("folder"), at("no/such"), longPath, std::u16string(halfPair), std::u16string()})
            make(GIVES(0, validate(path.c_str(), 0, nullptr)), GIVES(1, validate(path.c_str(), 0, &errors) + errors));
    }
    KALDBDatabase* database = nullptr;
    for (const auto& [path, status] : std::vector<std::pair<std::u16string, std::uint64_t>>{
             {at("folder"), notAFile}, {at("no/such"), noFile}, {longPath, longName}, {halfPair, invalid}}) {
        KALFile* file = nullptr;
        KALOwnerLock* lock = nullptr;
        make(GIVES(status, kaldbInitialize(path.c_str(), 0, &database, &isNew)),
             GIVES(status, kalFileOpenW(path.c_str(), &file, KAL_FILE_CREATE)),
             GIVES(status, kalOwnerLockAcquire(path.c_str(), &lock)), GIVES(status, kalFileSyncW(path.c_str())),
             GIVES(status, kalFileCopyW(at("file").c_str(), path.c_str())),
             GIVES(status, kalFileRename(at("file").c_str(), path.c_str())));
    }
    KALFile *file = nullptr, *closed = nullptr;
    ASSERT_EQ(kalFileOpenW(at("file").c_str(), &closed, KAL_FILE_READ), 0U);
    ASSERT_EQ(kalFileClose(closed), 0U);
    ASSERT_EQ(kalFileOpenW(at("file").c_str(), &file, KAL_FILE_READ), 0U);
    std::uint64_t size = 0;
    std::array<char16_t, 4> wide{};
    KALStats* stats = nullptr;
    const char16_t* const names[] = {u"one", nullptr};
    KALFile* none = nullptr;
    for (const std::uint32_t mode : {0U, 2U, 4U, most})
        make(GIVES(invalid, kalFileOpenW(at("file").c_str(), &none, mode)));
    gone<KALFile> = closed;
    for (const auto operation : {kalFileClose, kalFileFlush})
        WRONG_POINTERS(operation, file);
    WRONG_POINTERS(kalFileRead, file, static_cast<void*>(wide.data()), &length);
    WRONG_POINTERS(kalFileWrite, file, "x", &length);
    WRONG_POINTERS(kalFileSeek, file, std::uint64_t{0});
    WRONG_POINTERS(kalFileGetSize, file, &size);
    make(GIVES(ioError, kalFileWrite(file, "x", &(length = 1))),
         GIVES(invalid, kalFileSeek(file, std::uint64_t{1} << 63)), GIVES(fine, kalFileClose(file)),
         GIVES(invalid, kalFileCopyW(at("file").c_str(), at("file").c_str())),
         GIVES(noFile, kalFileDeleteW(at("none").c_str())), GIVES(invalid, kalStatsInitialize(2, names, &stats)),
         GIVES(invalid, kalStatsInitialize(2, nullptr, &stats)), GIVES(fine, kalStatsInitialize(1, names, &stats)),
         GIVES(fine, kalStatsDeinitialize(stats)), GIVES(invalid, kalStatsDeinitialize(stats)),
         GIVES(invalid, kalError(nullptr)), GIVES(noConversion, kalMultiByteToWideChar(nullptr, 0, nullptr, 0)),
         GIVES(noConversion, kalMultiByteToWideChar("a text", KAL_NUL_TERMINATED, wide.data(), 4)),
         GIVES(noConversion, kalMultiByteToWideChar("a", 1, nullptr, 4)),
         GIVES(noConversion, kalMultiByteToWideChar("\xC3", 1, wide.data(), 4)),
         GIVES(noConversion, kalWideCharToMultiByte(halfPair, KAL_NUL_TERMINATED, nullptr, 0)));
    EXPECT_EQ(test::readFile(directory / "file"), "contents");
}

}  // namespace
