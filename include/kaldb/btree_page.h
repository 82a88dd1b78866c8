/* The B-tree page: records of one size in key order inside one page. */
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
    uint32_t headerLength;
    char typeName[4];
    uint32_t size;
    uint32_t itemSize;
    uint32_t maxCount;
    uint32_t count;
    uint16_t root;
    uint16_t smallest;
    uint16_t largest;
    uint16_t reserved;
} KALBTreePage;

KALDB_API uint32_t kalBTreeFormat(KALBTreePage* page, uint32_t size, uint32_t itemSize);
KALDB_API uint32_t kalBTreeInsertItem(KALBTreePage* page, const void* item, KALBTreeCompare compare, uint16_t* index);
KALDB_API uint32_t kalBTreeUpdateItem(KALBTreePage* page, const void* item, KALBTreeCompare compare);
KALDB_API uint32_t kalBTreeDeleteItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, uint16_t* index);
KALDB_API uint32_t kalBTreeDeleteIndex(KALBTreePage* page, uint16_t index, KALBTreeCompare compare);
KALDB_API uint32_t kalBTreeGetIndex(KALBTreePage* page, uint16_t index, void** item);
KALDB_API uint32_t kalBTreeGetSmallest(KALBTreePage* page, void** item, uint16_t* index);
KALDB_API uint32_t kalBTreeSearchPrimaryKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, void** item);
KALDB_API uint32_t kalBTreeCompareItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);
KALDB_API uint32_t kalBTreeCanBeHere(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position);
KALDB_API uint32_t kalBTreeGetCount(KALBTreePage* page, uint32_t* count);
KALDB_API uint32_t kalBTreeGetMaxCount(KALBTreePage* page, uint32_t* count);
KALDB_API uint32_t kalBTreeIsFull(KALBTreePage* page, uint32_t* full);
KALDB_API uint32_t kalBTreeEnumerate(KALBTreePage* page, KALBTreePage** pageRef, KALEnumerator** enumerator);
KALDB_API uint32_t kalBTreeSearchPartialKey(KALBTreePage* page, const void* key, KALBTreeCompare compare,
                                            KALBTreePage** pageRef, KALEnumerator** enumerator);
KALDB_API uint32_t kalBTreeGetByEnumerator(KALBTreePage* page, KALEnumerator* enumerator, void** item);
KALDB_API uint32_t kalBTreeShouldSplit(KALBTreePage* page, uint32_t* flag);
KALDB_API uint32_t kalBTreeSplit(KALBTreePage* source, KALBTreePage* destination, uint32_t fromSmallest,
                                 KALBTreeCompare compare);
KALDB_API uint32_t kalBTreeBalance(KALBTreePage* page);
KALDB_API void kalBTreeDump(KALBTreePage* page);

#ifdef __cplusplus
}
#endif
#endif
