/*
 * Tables of fixed-size records, and binary tables of raw pieces.
 *
 * A table keeps records of `recordSize` bytes in the order of the compare function that it is opened with; the order is
 * not stored, so every opening must give the same. With KALDB_CHAIN_GUID each record begins with a KALDBID, which the
 * library stamps when the record comes in, and an index finds records by it: the table's name followed by "Index". A
 * binary table (KALDB_CHAIN_BINARY) keeps pieces of raw bytes, each named by a locator of page and slot.
 *
 * Records are copied in and out; the library keeps none of the pointers that it is given, but for an enumerator the
 * table. A table may be open several times. Handles and enumerators outlive a closed database only to be closed and
 * freed: every operation on them then returns KALDB_NOT_OPEN and touches nothing.
 *
 * Enumerators hold a lock on the page of their current record. A read-only one keeps insertions, updates and deletions
 * by identifier off it, also those of other records there (KALDB_LOCK_CONFLICT); a deletion by key goes through. One
 * for updates lets everybody in but cannot enter a page that a read-only one holds. At most 20 pages can be held at
 * once (KALDB_FULL), so free an enumerator soon. An enumerator whose record is deleted keeps it as its item, and goes
 * on with the next one.
 *
 * Callbacks run inside an operation. They may use other tables and read this one, but a change of this table, its
 * close, or the end of the database is refused with KALDB_LOCK_CONFLICT.
 *
 * Statuses: beside those listed, every operation returns
 *     KALDB_INVALID_ARGUMENT  a null pointer, except where null is said to mean something, or a table that is closed
 *     KALDB_NOT_OPEN          no database is open, or the handle belongs to an earlier one
 * and every one that takes a table and a record, key, identifier, locator or enumerator returns
 *     KALDB_NOT_SUPPORTED     a record operation on a binary table, or the other way round
 * "A page status" is one of a page that could not be had:
 *     KALDB_LOCK_CONFLICT     an enumerator holds the page, or a callback asks for a change of its own table
 *     KALDB_FULL              20 pages are held
 *     KALDB_OUT_OF_MEMORY     no memory, or every slot of the cache is in use
 *     KALDB_FAILURE, KALDB_SHORT_READ, KALDB_END_OF_FILE  the page is damaged, cut off or not in the file
 *     KALDB_ACCESS_DENIED, KALDB_IO_ERROR, KALDB_NO_SPACE, ...  the operating system failed
 * An exception that a callback throws ends the operation with KALDB_OUT_OF_MEMORY or KALDB_FAILURE; where the answer of
 * the callback is ignored, so is the exception.
 */
#ifndef KALDB_TABLE_H
#define KALDB_TABLE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KALDBTableInfo {
    char16_t name[32];   /* NUL-terminated */
    uint32_t recordSize; /* bytes of one record; in a binary table, of one piece at most */
    uint32_t flags;      /* KALDB_CHAIN_GUID, KALDB_CHAIN_BINARY */
    uint32_t reserved1;  /* not read */
    uint32_t reserved2;  /* not read */
} KALDBTableInfo;

/* ---- tables ---------------------------------------------------------------------------------------------------- */

/*
 * Creates a table and, with KALDB_CHAIN_GUID, its index. KALDB_CHAIN_BINARY takes KALDB_CHAIN_GUID away. Of the name 31
 * characters count; names are told apart by them, case included. `db` is not read.
 *
 * Returns 0, KALDB_ALREADY_EXISTS, a page status, or KALDB_BUFFER_TOO_SMALL: a record of more
 * than 1964 bytes (a piece of more than 1956), one of less than 16 with KALDB_CHAIN_GUID, or a name of more than 26
 * characters with it. A table whose index could not be created stays, without one; any other failure leaves no table.
 */
KALDB_API uint32_t kaldbTableCreate(KALDBDatabase* db, const KALDBTableInfo* info);

/* *exists: 1 when there is a table of this name, else 0; unchanged on failure. Returns 0 or a page status. */
KALDB_API uint32_t kaldbTableExists(const char16_t* name, uint32_t* exists);

/* Tables cannot be dropped. Returns KALDB_NOT_SUPPORTED. */
KALDB_API uint32_t kaldbTableDrop(KALDBDatabase* db, const char16_t* name);

/*
 * Opens a table. The callbacks are copied; `compare` must be there, the others may be null. A binary table needs none,
 * not even the record of callbacks. Each record that moves is followed by the table's own index first; an `indexUpdate`
 * of the caller's is told afterwards, with the table handle as its context. `db` is not read. The handle is written on
 * success, and is the caller's until kaldbTableClose.
 *
 * A table whose index cannot be opened opens without; the operations that need it try again, and fail with its status
 * as long as it cannot be opened. A table whose index was never made goes without for ever: records go in and out by
 * key, and get identifiers, but kaldbTableQueryID and kaldbTableDeleteRecordByID answer KALDB_NOT_OPEN.
 *
 * Returns 0, KALDB_NOT_FOUND when there is no such table, KALDB_INVALID_ARGUMENT also without `compare`,
 * KALDB_OUT_OF_MEMORY, KALDB_FAILURE (no memory, or a catalogue entry that cannot be right) or a page status.
 */
KALDB_API uint32_t kaldbTableOpen(KALDBDatabase* db, const char16_t* name, const KALDBChainCallbacks* callbacks,
                                  KALDBTable** table);

/* Frees the handle. Enumerators of it that are still open answer KALDB_NOT_OPEN from then on, hold their page until
   they are freed, and must be.
   Returns 0, KALDB_INVALID_ARGUMENT for what is no open table, or KALDB_LOCK_CONFLICT from inside one of the table's
   callbacks, which leaves it open. */
KALDB_API uint32_t kaldbTableClose(KALDBTable* table);

/* Fills nothing in and returns 0; kaldbTableEnumerate tells about tables. */
KALDB_API uint32_t kaldbTableGetInfo(KALDBTable* table, KALDBTableInfo* info);

/*
 * Lists the tables by name, the library's own "SysBinary" and "SysVarString" among them. The enumerator stands on the
 * first one; an item is a KALDBTableInfo, with 0 in its reserved fields. It only moves next: a move to the first item
 * is KALDB_NOT_SUPPORTED. It is the caller's, to be freed with kalEnumeratorFree. While it lives, creating a table may
 * give KALDB_LOCK_CONFLICT. `db` is not read.
 *
 *     KALDBTableInfo info;
 *     KALEnumerator* tables;
 *     uint32_t status = kaldbTableEnumerate(database, &tables);
 *     if (status != KALDB_SUCCESS)
 *         return status;
 *     do
 *         kalEnumeratorGetItem(tables, &info, sizeof info);
 *     while (kalEnumeratorMoveNext(tables) == KALDB_SUCCESS);
 *     kalEnumeratorFree(tables);
 *
 * Returns 0, KALDB_NOT_FOUND without a single table, or a page status. *enumerator is written on success only.
 */
KALDB_API uint32_t kaldbTableEnumerate(KALDBDatabase* db, KALEnumerator** enumerator);

/* ---- records ---------------------------------------------------------------------------------------------------

   `record` and `key` are records of the table's size: of a key only what `compare` reads has to be filled in. Sizes
   that are passed along are not read: a record's size is always copied. */

/*
 * Inserts a record. With KALDB_CHAIN_GUID the identifier is stamped into the caller's record, and copied to *id unless
 * `id` is null; else *id stays as it is. A record that could not be entered in the index is in the table all the same.
 *
 * Returns 0, KALDB_ALREADY_EXISTS for a key that is there, the constraint check's answer, the event hook's refusal, or
 * a page status. The table is then as it was, though an identifier may be used up and stand in the caller's record.
 */
KALDB_API uint32_t kaldbTableInsertRecord(KALDBTable* table, void* record, uint32_t unused, KALDBID* id);

/*
 * Replaces the record of the same key, all its bytes: a record with an identifier must bring the one that it has.
 *
 * Returns 0, KALDB_NOT_FOUND, the constraint check's answer, the event hook's refusal, or a page status.
 */
KALDB_API uint32_t kaldbTableUpdateRecord(KALDBTable* table, void* record);

/*
 * Deletes the record of this key. *id, unless null, gets its identifier when the table has an index.
 *
 * Returns 0, KALDB_NOT_FOUND, the event hook's refusal, or a page status; also when the record is gone and its entry in
 * the index could not be deleted yet.
 */
KALDB_API uint32_t kaldbTableDeleteRecord(KALDBTable* table, void* key, uint32_t unused, KALDBID* id);

/* The same by identifier, of which the sequence alone decides. Returns what kaldbTableDeleteRecord does, or
   KALDB_NOT_SUPPORTED on a table without identifiers, or KALDB_NOT_OPEN when its index could not be opened. */
KALDB_API uint32_t kaldbTableDeleteRecordByID(KALDBTable* table, const KALDBID* id);

/* Copies the record with this identifier, of which the sequence alone decides. Returns 0, KALDB_NOT_FOUND, a page
   status, KALDB_NOT_SUPPORTED on a table without identifiers, or KALDB_NOT_OPEN when its index could not be opened. */
KALDB_API uint32_t kaldbTableQueryID(KALDBTable* table, const KALDBID* id, void* record, uint32_t size);

/* Copies the record of this key; `key` and `record` may be the same. Returns 0, KALDB_NOT_FOUND or a page status. */
KALDB_API uint32_t kaldbTableQueryPK(KALDBTable* table, const void* key, void* record, uint32_t size);

/*
 * Yields an enumerator over the records for which `compare`(key, record) is 0, in the table's order. `compare` must
 * agree with that order: negative for every record behind the matches, positive for every one before them. The key is
 * copied. The enumerator stands on the first match; its items are records; it only moves next, as above. With
 * `readOnly` not 0 it takes read locks, else the read/write locks that are meant for kaldbTableUpdateCurrentRecord. It
 * is the caller's, to be freed with kalEnumeratorFree.
 *
 * Returns 0, KALDB_NOT_FOUND when nothing matches, or a page status. *enumerator is written on success only.
 */
KALDB_API uint32_t kaldbTableQueryPartialPK(KALDBTable* table, uint32_t readOnly, const void* key,
                                            KALBTreeCompare compare, KALEnumerator** enumerator);

/*
 * Replaces the enumerator's current record, whose key `record` must have. The constraint check is asked with mode 1,
 * the event hook with a deletion of the old and an insertion of the new record.
 *
 * Returns 0, KALDB_INVALID_ARGUMENT for an enumerator of another table, KALDB_NOT_FOUND for a key that is not on the
 * page, the constraint check's answer, the event hook's refusal, or a page status.
 */
KALDB_API uint32_t kaldbTableUpdateCurrentRecord(KALDBTable* table, KALEnumerator* enumerator, void* record);

/* Deletes every record that matches, as kaldbTableQueryPartialPK finds them, and its entry in the index. The event hook
   is not asked. Returns 0, also when nothing matched, or a page status: some may then be deleted and others not. */
KALDB_API uint32_t kaldbTableDeletePartialPK(KALDBTable* table, const void* key, KALBTreeCompare compare);

/* Does nothing and returns KALDB_NOT_SUPPORTED. `enumerator` is not read. */
KALDB_API uint32_t kaldbTableDeleteCurrentRecord(KALDBTable* table, KALEnumerator* enumerator);

/* Does nothing and returns KALDB_FAILURE. */
KALDB_API uint32_t kaldbTableQuery(KALDBTable* table, const void* key);

/*
 * Calls `callback` with the context and every record, in the table's order. The record is valid during the call only.
 *
 * Returns 0, KALDB_NOT_FOUND for an empty table, what the callback answered when that was not 0 (the walk then ends),
 * or a page status.
 */
KALDB_API uint32_t kaldbTableEnumWithCallback(KALDBTable* table, void* context, KALDBEnumCallback callback);

/* ---- pieces of binary tables -----------------------------------------------------------------------------------

   A piece has at most `recordSize` bytes. Its descriptor also carries the size of the whole value and the place of the
   next piece, which the library keeps and does not interpret. A locator's page and index count, its identifier does
   not. */

/* Stores a piece in a free slot and fills in its place. Returns 0, KALDB_BUFFER_TOO_SMALL for a piece that is too long,
   KALDB_INVALID_ARGUMENT also for a length without data, the event hook's refusal, or a page status. */
KALDB_API uint32_t kaldbBinaryTableInsertRecord(KALDBTable* table, const KALDBBinaryRecord* record,
                                                KALDBIndexRecord* locator);
/* Frees the slot. Returns 0, KALDB_NOT_FOUND for a place that holds no piece of this size of slot, or a page status.
   The place is then any other piece's. */
KALDB_API uint32_t kaldbBinaryTableDeleteRecord(KALDBTable* table, const KALDBIndexRecord* locator);
/* Puts another piece in the slot. Returns what deletion and insertion do. */
KALDB_API uint32_t kaldbBinaryTableUpdateRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                                const KALDBBinaryRecord* record);
/* Fills in the descriptor and copies the piece to its `data`, a buffer of at least `recordSize` bytes. A free slot
   reads as length 0. Returns 0, KALDB_NOT_FOUND for a place outside the table's pages, or a page status. */
KALDB_API uint32_t kaldbBinaryTableGetRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                             KALDBBinaryRecord* record);

#ifdef __cplusplus
}
#endif
#endif
