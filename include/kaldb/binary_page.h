/* The binary page: slots of raw bytes inside one page. */
#ifndef KALDB_BINARY_PAGE_H
#define KALDB_BINARY_PAGE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The page's header; slots follow it at offset 28. Little-endian on disk. */
typedef struct KALDBBinaryPage {
    uint32_t headerLength;
    char typeName[4];
    uint32_t size;
    uint32_t slotDataSize;
    uint32_t maxCount;
    uint32_t count;
    uint16_t reserved;
    uint16_t unused;
} KALDBBinaryPage;

KALDB_API uint32_t kaldbBinaryPageFormat(KALDBBinaryPage* page, uint32_t size, uint32_t slotDataSize);
KALDB_API uint32_t kaldbBinaryPageInsertItem(KALDBBinaryPage* page, const KALDBBinaryRecord* record, uint16_t* index);
KALDB_API uint32_t kaldbBinaryPageGetItem(KALDBBinaryPage* page, uint16_t index, KALDBBinaryRecord* record);
KALDB_API uint32_t kaldbBinaryPageUpdateItem(KALDBBinaryPage* page, uint16_t index, const KALDBBinaryRecord* record);
KALDB_API uint32_t kaldbBinaryPageDeleteItem(KALDBBinaryPage* page, uint16_t index);
KALDB_API uint32_t kaldbBinaryPageIsFull(KALDBBinaryPage* page, uint32_t* full);
KALDB_API uint32_t kaldbBinaryPageGetCount(KALDBBinaryPage* page, uint32_t* count);
KALDB_API uint32_t kaldbBinaryPageGetMaxCount(KALDBBinaryPage* page, uint32_t* count);

#ifdef __cplusplus
}
#endif
#endif
