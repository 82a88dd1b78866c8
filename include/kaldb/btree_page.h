/*
 * The B-tree page: records of one size in key order inside one page.
 *
 * A page is any block of at least `size` bytes, aligned to 4, that kalBTreeFormat was given. It holds up to maxCount
 * items. An item keeps its slot, a small number, from its insertion to its deletion. The order is the caller's: every
 * operation that needs it takes the compare function, always the same one for the same page. A key is a buffer of an
 * item's size in which the fields that the compare function reads are filled in.
 *
 *     int32_t byNumber(const void* probe, const void* stored);   // reads with memcpy: items are not aligned
 *
 *     uint32_t page[505], record[6] = {7}, status;
 *     uint16_t slot;
 *     kalBTreeFormat((KALBTreePage*)page, sizeof page, sizeof record);                       // 58 items
 *     status = kalBTreeInsertItem((KALBTreePage*)page, record, byNumber, &slot);             // slot is 0
 *
 * Pointers to items lead into the page: they last as long as the page is in memory and the item is not deleted.
 *
 * Statuses: beside those listed, every operation but kalBTreeBalance and kalBTreeDump returns KALDB_INVALID_ARGUMENT
 * for a null argument, and those that follow the page's slots return KALDB_FAILURE when the slots of a damaged page
 * lead nowhere or in a circle. The page's header fields up to maxCount are trusted. What an operation gives through a
 * pointer is written only on success, unless its comment says otherwise.
 */
#ifndef KALDB_BTREE_PAGE_H
#define KALDB_BTREE_PAGE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The page's header; slots and items follow it. Little-endian on disk. */
typedef struct KALBTreePage {
    uint32_t headerLength; /* 32 */
    char typeName[4];      /* "BTR" and a NUL */
    uint32_t size;         /* what kalBTreeFormat was given */
    uint32_t itemSize;     /* bytes in an item */
    uint32_t maxCount;     /* slots, and places for items */
    uint32_t count;        /* items in use */
    uint16_t root;         /* slot at the top of the tree, KALDB_NO_SLOT in an empty page, as the next two */
    uint16_t smallest;     /* slot of the smallest item */
    uint16_t largest;      /* slot of the greatest item */
    uint16_t reserved;     /* 0 */
} KALBTreePage;

/* Makes an empty page of maxCount = (size - 32) / (itemSize + 10) items, but not more than 65535. Header, slots and
   items take 32 + maxCount * (itemSize + 8) bytes of the block; the places of the items are left as they are.
   KALDB_BUFFER_TOO_SMALL: not even one item fits; the block is untouched. */
KALDB_API uint32_t kalBTreeFormat(KALBTreePage* page, uint32_t size, uint32_t itemSize);

/* Copies an item in, into the lowest free slot. *index: that slot; KALDB_NO_SLOT on failure.
   KALDB_FULL: maxCount items are in use. KALDB_ALREADY_EXISTS: an item compares equal; the tree is as it was.
   KALDB_NO_FREE_SLOT: the page counts fewer items than it has slots in use (damage). */
KALDB_API uint32_t kalBTreeInsertItem(KALBTreePage* page, const void* item, KALBTreeCompare compare, uint16_t* index);

/* Overwrites the item that compares equal, key and all. KALDB_NOT_FOUND: there is none. */
KALDB_API uint32_t kalBTreeUpdateItem(KALBTreePage* page, const void* item, KALBTreeCompare compare);

/* Deletes the item that compares equal. *index: the slot it had. KALDB_NOT_FOUND: there is none. */
KALDB_API uint32_t kalBTreeDeleteItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, uint16_t* index);

/* Deletes the item in a slot. KALDB_NOT_APPLICABLE: the slot is free. KALDB_NOT_FOUND: the page has no such slot. */
KALDB_API uint32_t kalBTreeDeleteIndex(KALBTreePage* page, uint16_t index, KALBTreeCompare compare);

/* Gives the place of the item in a slot; whether the slot is in use is not looked at.
   KALDB_NOT_FOUND: the page has no such slot. */
KALDB_API uint32_t kalBTreeGetIndex(KALBTreePage* page, uint16_t index, void** item);

/* Gives the place and the slot of the smallest item. KALDB_EMPTY_PAGE: there is none. */
KALDB_API uint32_t kalBTreeGetSmallest(KALBTreePage* page, void** item, uint16_t* index);

/* Gives the place of the item that compares equal. KALDB_NOT_FOUND: there is none. */
KALDB_API uint32_t kalBTreeSearchPrimaryKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, void** item);

/* *position: 0 when an item compares equal, -1 when the key sorts before every item, 1 when it sorts after.
   KALDB_EMPTY_PAGE: no item to compare with. KALDB_NOT_FOUND: the key sorts between two items. */
KALDB_API uint32_t kalBTreeCompareItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);

/* *position: where the key lies beside the range from the smallest to the greatest item: -1 before it, 0 within it or
   equal to an end, 1 after it. An empty page takes any key: 0. */
KALDB_API uint32_t kalBTreeCanBeHere(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);

/* *count: items in use. */
KALDB_API uint32_t kalBTreeGetCount(KALBTreePage* page, uint32_t* count);

/* *count: items that the page can hold. */
KALDB_API uint32_t kalBTreeGetMaxCount(KALBTreePage* page, uint32_t* count);

/* *full: 1 when every slot is in use, else 0. */
KALDB_API uint32_t kalBTreeIsFull(KALBTreePage* page, uint32_t* full);

/* Makes an enumerator over all items in key order; it stands on the smallest. The caller frees it with
   kalEnumeratorFree and reads through it into buffers of at least an item's size:

       do
           kalEnumeratorGetItem(enumerator, record, sizeof record);
       while (kalEnumeratorMoveNext(enumerator) == KALDB_SUCCESS);   // KALDB_END_OF_ENUMERATION after the last

   The enumerator finds the page through *pageRef at every move and get, and keeps pageRef itself: the page may be moved
   in memory between two of them. With no page there, or one of another item size, they return KALDB_FAILURE. Items may
   come and go in between: the walk goes on from the current item, and ends when that one was deleted.
   KALDB_NOT_FOUND: the page is empty. KALDB_OUT_OF_MEMORY. */
KALDB_API uint32_t kalBTreeEnumerate(KALBTreePage* page, KALBTreePage** pageRef, KALEnumerator** enumerator);

/* The same over the run of items that compare equal; the compare function looks at a leading part of the order that the
   page was filled in. It may be null, the key too: the run is then all items. The key is copied.
   KALDB_NOT_FOUND: no item compares equal. KALDB_OUT_OF_MEMORY. */
KALDB_API uint32_t kalBTreeSearchPartialKey(KALBTreePage* page, const void* key, KALBTreeCompare compare,
                                            KALBTreePage** pageRef, KALEnumerator** enumerator);

/* Gives the place, in the page given here, of the current item of an enumerator from one of the two above.
   KALDB_INVALID_ARGUMENT: an enumerator from elsewhere. KALDB_FAILURE: the page has no such slot. */
KALDB_API uint32_t kalBTreeGetByEnumerator(KALBTreePage* page, KALEnumerator* enumerator, void** item);

/* *flag: 1 when at least three quarters of the slots are in use, counted as 3 * (maxCount / 4) in integers; else 0. */
KALDB_API uint32_t kalBTreeShouldSplit(KALBTreePage* page, uint32_t* flag);

/* Moves half of the items, rounded down, to a page of the same item size: the smallest ones, or the greatest when
   fromSmallest is 0. Stops at the first failure, which may be any of kalBTreeInsertItem and kalBTreeDeleteIndex; what
   has moved by then stays moved. KALDB_INVALID_ARGUMENT: the item sizes differ. */
KALDB_API uint32_t kalBTreeSplit(KALBTreePage* source, KALBTreePage* destination, uint32_t fromSmallest,
                                 KALBTreeCompare compare);

/* Does nothing. KALDB_FAILURE, always. */
KALDB_API uint32_t kalBTreeBalance(KALBTreePage* page);

/* Writes every slot to the trace log; null is allowed. Does nothing in a build without traces. */
KALDB_API void kalBTreeDump(KALBTreePage* page);

#ifdef __cplusplus
}
#endif
#endif
