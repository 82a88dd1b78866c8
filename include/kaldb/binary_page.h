/*
 * The binary page: slots of raw bytes inside one page.
 *
 * A page is any block of at least `size` bytes, aligned to 4, that kaldbBinaryPageFormat was given. A slot holds one
 * piece of bytes and the address of the piece that follows it; slots are neither ordered nor searched.
 *
 *     uint32_t page[505];
 *     uint16_t slot;
 *     KALDBBinaryRecord piece = {"hello", 5, 5, KALDB_NO_PAGE, KALDB_NO_SLOT};
 *     kaldbBinaryPageFormat((KALDBBinaryPage*)page, sizeof page, 64);                        // 23 slots
 *     kaldbBinaryPageInsertItem((KALDBBinaryPage*)page, &piece, &slot);                      // slot is 0
 *     kaldbBinaryPageGetItem((KALDBBinaryPage*)page, slot, &piece);                          // piece.data is in the
 * page
 *
 * Statuses: beside those listed, every operation returns KALDB_INVALID_ARGUMENT for a null argument, and for a
 * descriptor with a length but no data. The page's header fields up to maxCount are trusted.
 */
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
    uint32_t headerLength; /* 28 */
    char typeName[4];      /* "BPG" and a NUL */
    uint32_t size;         /* what kaldbBinaryPageFormat was given */
    uint32_t slotDataSize; /* data bytes that a slot can hold */
    uint32_t maxCount;     /* slots */
    uint32_t count;        /* slots in use */
    uint16_t reserved;     /* 0xFFFF */
    uint16_t unused;       /* never written */
} KALDBBinaryPage;

/* Makes a page of maxCount = (size - 28) / (slotDataSize + 20) free slots, but not more than 65535; none is allowed.
   Header and slots take 28 + maxCount * (slotDataSize + 20) bytes of the block; the data is left as it is.
   KALDB_BUFFER_TOO_SMALL: not even the header fits; the block is untouched. */
KALDB_API uint32_t kaldbBinaryPageFormat(KALDBBinaryPage* page, uint32_t size, uint32_t slotDataSize);

/* Copies a piece into the lowest free slot. *index: that slot; unchanged on failure.
   KALDB_NO_FREE_SLOT: every slot is in use. KALDB_BUFFER_TOO_SMALL: the piece is longer than a slot's data. */
KALDB_API uint32_t kaldbBinaryPageInsertItem(KALDBBinaryPage* page, const KALDBBinaryRecord* record, uint16_t* index);

/* Fills in the descriptor; its data is the place in the page, which lasts as long as the page is in memory. A free slot
   has length 0. KALDB_NOT_FOUND: the page has no such slot. KALDB_FAILURE: the slot claims more bytes than it holds. */
KALDB_API uint32_t kaldbBinaryPageGetItem(KALDBBinaryPage* page, uint16_t index, KALDBBinaryRecord* record);

/* Replaces the piece in a slot; whether the slot is in use is neither looked at nor changed.
   KALDB_NOT_FOUND: the page has no such slot. KALDB_BUFFER_TOO_SMALL: the piece is longer than a slot's data. */
KALDB_API uint32_t kaldbBinaryPageUpdateItem(KALDBBinaryPage* page, uint16_t index, const KALDBBinaryRecord* record);

/* Frees a slot. KALDB_NOT_FOUND: the page has no such slot, or it is free. KALDB_FAILURE: the page counts no slot in
   use although this one is (damage). */
KALDB_API uint32_t kaldbBinaryPageDeleteItem(KALDBBinaryPage* page, uint16_t index);

/* *full: 1 when every slot is in use, else 0. */
KALDB_API uint32_t kaldbBinaryPageIsFull(KALDBBinaryPage* page, uint32_t* full);

/* *count: slots in use. */
KALDB_API uint32_t kaldbBinaryPageGetCount(KALDBBinaryPage* page, uint32_t* count);

/* *count: slots of the page. */
KALDB_API uint32_t kaldbBinaryPageGetMaxCount(KALDBBinaryPage* page, uint32_t* count);

#ifdef __cplusplus
}
#endif
#endif
