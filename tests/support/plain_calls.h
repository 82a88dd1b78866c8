// Calls that need no database, as a session makes them whose support library fails: pages, trackers, values in memory.
#pragma once

#include "support/database.h"
#include "support/memory_disk.h"
#include "support/values.h"

#include <kaldb/diagnostics.h>

#include <array>
#include <vector>

namespace test {

inline const char16_t* const pagesPath = u"/pages";

/// Without a fault every operation does what it is expected to do.
inline bool done(std::uint32_t status, std::uint32_t expected = 0, int line = __builtin_LINE())
{
    if (disk::state().fault.struck == nullptr) {
        EXPECT_EQ(status, expected) << "line " << line;
    }
    return status == expected;
}

inline void askPageManager(KALPageManager& manager)
{
    std::uint32_t number = 0;
    const char16_t* location = nullptr;
    done(kalPageManagerGetPageSize(&manager, &number));
    done(kalPageManagerGetUsablePageSize(&manager, &number));
    done(kalPageManagerGetPageCount(&manager, &number));
    done(kalPageManagerGetLocation(&manager, &location));
    done(kalPageManagerGetStartPage(&manager, &number));
    done(kalPageManagerSetStartPage(&manager, 1));
    pmTracePageManager(&manager);
    pmTraceFilePages(&manager);
    pmTraceCachePages(&manager);
    EXPECT_EQ(pmAreMemPagesLocked(&manager), 0U);
}
inline void readPage(KALPageManager& manager, std::uint32_t page)
{
    void* body = nullptr;
    if (!done(kalPageManagerLoadPage(&manager, KALDB_LOCK_READ, page, &body)))
        return;
    EXPECT_EQ(test::fieldOf<std::uint32_t>(body, 0), page);
    done(kalPageManagerUnreferencePage(&manager, body));
    for (int tries = 0; tries < 3 && !done(kalPageManagerUnlockPage(&manager, page)); ++tries)
        ;
}

/// A page file whose pages hold their numbers; the manager that could not be closed, or null.
inline KALPageManager* usePageFile(std::uint32_t cacheBytes)
{
    KALPageManager* manager = nullptr;
    std::uint32_t number = 0;
    for (int tries = 0; tries < 2 && manager == nullptr; ++tries)
        if (!done(kalPageManagerInitialize(pagesPath, cacheBytes, &manager, &number)))
            manager = nullptr;
    if (manager == nullptr)
        return nullptr;
    std::vector<std::uint32_t> made;
    for (int i = 0; i < 6; ++i) {
        void* body = nullptr;
        if (!done(kalPageManagerCreatePage(manager, KALDB_LOCK_WRITE, &number, &body)))
            continue;
        made.push_back(number);
        std::memcpy(body, &number, sizeof number);
        done(kalPageManagerSetPageDirty(manager, body));
        done(kalPageManagerFlushPage(manager, body));
        done(kalPageManagerReferencePage(manager, body), KALDB_FAILURE);
        pmIsPageLocked(manager, body);
        done(kalPageManagerUnloadPage(manager, body));
    }
    askPageManager(*manager);
    for (const std::uint32_t page : made)
        readPage(*manager, page);
    done(kalPageManagerFlushAllPages(manager));
    done(kalPageManagerBackupWhileRunning(manager));
    bool closed = false;
    for (int tries = 0; tries < 2 && !closed; ++tries)
        closed = done(kalPageManagerDeinitialize(manager));
    done(kalPageManagerBackup(pagesPath));
    done(kalPageManagerRestore(pagesPath));
    done(kalPageManagerFileIsDirty(pagesPath, &number));
    return closed ? nullptr : manager;
}

inline void useTracker()
{
    KALPageTracker* tracker = nullptr;
    std::uint32_t number = 0;
    if (!done(kalPageTrackerInitialize(20, 0, &tracker)))
        return;
    done(kalPageTrackerLockPage(tracker, 3, KALDB_LOCK_READ));
    kalPageTrackerGetPageLockType(tracker, 3, &number);
    kalPageTrackerGetPageLockCount(tracker, 3, &number);
    kalPageTrackerIsPageLocked(tracker, 3, &number);
    done(kalPageTrackerUnlockPage(tracker, 3));
    done(kalPageTrackerDeinitialize(tracker));
}

inline void useTree()
{
    struct alignas(8) Area {
        char bytes[1976];
    } first{}, second{};
    auto* const page = reinterpret_cast<KALBTreePage*>(first.bytes);
    auto* const other = reinterpret_cast<KALBTreePage*>(second.bytes);
    Record record;
    std::uint16_t index = 0;
    std::uint32_t number = 0;
    std::int32_t position = 0;
    void* item = nullptr;
    done(kalBTreeFormat(page, sizeof first, sizeof record));
    done(kalBTreeFormat(other, sizeof second, sizeof record));
    for (record.key = 0; record.key < 40; ++record.key)
        done(kalBTreeInsertItem(page, &record, byKey, &index));
    record.key = 7;
    done(kalBTreeUpdateItem(page, &record, byKey));
    done(kalBTreeDeleteItem(page, &record, byKey, &index));
    done(kalBTreeDeleteIndex(page, 9, byKey));
    done(kalBTreeGetIndex(page, 10, &item));
    done(kalBTreeGetSmallest(page, &item, &index));
    record.key = 8;
    done(kalBTreeSearchPrimaryKey(page, &record, byKey, &item));
    kalBTreeCompareItem(page, &record, byKey, &position);
    kalBTreeCanBeHere(page, &record, byKey, &position);
    kalBTreeGetCount(page, &number);
    kalBTreeGetMaxCount(page, &number);
    kalBTreeIsFull(page, &number);
    kalBTreeShouldSplit(page, &number);
    KALBTreePage* current = page;
    KALEnumerator* walk = nullptr;
    if (done(kalBTreeEnumerate(page, &current, &walk))) {
        done(kalBTreeGetByEnumerator(page, walk, &item));
        kalEnumeratorFree(walk);
    }
    if (done(kalBTreeSearchPartialKey(page, &record, byHundred, &current, &walk)))
        kalEnumeratorFree(walk);
    done(kalBTreeSplit(page, other, 1, byKey));
    kalBTreeBalance(page);
    kalBTreeDump(page);
}

inline void useSlots()
{
    struct alignas(8) Area {
        char bytes[1976];
    } area{};
    auto* const page = reinterpret_cast<KALDBBinaryPage*>(area.bytes);
    std::array<char, 64> bytes{};
    KALDBBinaryRecord piece{bytes.data(), 64, 64, KALDB_NO_PAGE, KALDB_NO_SLOT};
    std::uint16_t index = 0;
    std::uint32_t number = 0;
    done(kaldbBinaryPageFormat(page, sizeof area, 64));
    done(kaldbBinaryPageInsertItem(page, &piece, &index));
    done(kaldbBinaryPageGetItem(page, index, &piece));
    done(kaldbBinaryPageUpdateItem(page, index, &piece));
    done(kaldbBinaryPageIsFull(page, &number));
    done(kaldbBinaryPageGetCount(page, &number));
    done(kaldbBinaryPageGetMaxCount(page, &number));
    done(kaldbBinaryPageDeleteItem(page, index));
}

/// Values in memory: a change that fails leaves a null value or the old one, never a part.
inline void useValues()
{
    Value v;
    Text s, other;
    KALDBID id;
    std::uint32_t number = 0, size = 8;
    std::int32_t order = 0;
    const void* data = nullptr;
    const char* text = nullptr;
    kaldbIDZero(&id);
    kaldbIDIncrement(&id);
    kaldbIDCopy(&id, &id);
    kaldbIDCompare(&id, &id, &order);
    kaldbIDIsEqual(&id, &id, &number);
    done(kaldbVariantSetID(&v.v, &id));
    done(kaldbVariantGetID(&v.v, &id));
    done(kaldbVariantSetPrimitive(&v.v, 2, &number));
    done(kaldbVariantGetData(&v.v, &number, &size));
    done(kaldbVariantSet(&v.v, 21, "twelve bytes", 12));
    if (done(kaldbVariantSetString(&v.v, KALDB_VT_WSTRING, u"a text that is longer than its room"))) {
        EXPECT_STREQ(static_cast<const char*>(v.pointer()), "a text that is longer than its room");
    }
    kaldbVariantGetType(&v.v, &number);
    kaldbVariantGetSize(&v.v, &number);
    kaldbVariantGetDataPointer(&v.v, &data);
    done(kaldbVariantEmpty(&v.v));
    v.v.type = 21;
    v.v.size = 100;
    done(kaldbVariantAllocate(&v.v));
    const char16_t* const words = u"more than eight characters";
    const bool created = done(kaldbVarStringCreate(8, &s.s, words));
    const bool copied = done(kaldbVarStringDup(&other.s, &s.s));
    done(kaldbVarStringGetLength(&s.s, &number), created ? 0U : number);
    kaldbVarStringGet(&s.s, &text);
    if (created && copied) {
        EXPECT_EQ(kaldbVarStringCompare(&s.s, &other.s, &order) + static_cast<std::uint32_t>(order), 0U);
        EXPECT_EQ(other.content(), s.content());
    }
    kaldbVarStringICompare(&s.s, &other.s, &order);
    kaldbVarStringIComparePSZ(&s.s, words, &order);
}

}  // namespace test
