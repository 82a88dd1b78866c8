/* Tables of fixed-size records, and binary tables of raw pieces. */
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
    uint32_t recordSize; /* bytes of one record; of one slot in a binary table */
    uint32_t flags;      /* KALDB_CHAIN_GUID, KALDB_CHAIN_BINARY */
    uint32_t reserved1;  /* not read */
    uint32_t reserved2;  /* not read */
} KALDBTableInfo;

KALDB_API uint32_t kaldbTableCreate(KALDBDatabase* db, const KALDBTableInfo* info);
KALDB_API uint32_t kaldbTableExists(const char16_t* name, uint32_t* exists);
KALDB_API uint32_t kaldbTableDrop(KALDBDatabase* db, const char16_t* name);
KALDB_API uint32_t kaldbTableOpen(KALDBDatabase* db, const char16_t* name, const KALDBChainCallbacks* callbacks,
                                  KALDBTable** table);
KALDB_API uint32_t kaldbTableClose(KALDBTable* table);
KALDB_API uint32_t kaldbTableGetInfo(KALDBTable* table, KALDBTableInfo* info);
KALDB_API uint32_t kaldbTableEnumerate(KALDBDatabase* db, KALEnumerator** enumerator);
KALDB_API uint32_t kaldbTableInsertRecord(KALDBTable* table, void* record, uint32_t unused, KALDBID* id);
KALDB_API uint32_t kaldbTableUpdateRecord(KALDBTable* table, void* record);
KALDB_API uint32_t kaldbTableDeleteRecord(KALDBTable* table, void* key, uint32_t unused, KALDBID* id);
KALDB_API uint32_t kaldbTableDeleteRecordByID(KALDBTable* table, const KALDBID* id);
KALDB_API uint32_t kaldbTableQueryID(KALDBTable* table, const KALDBID* id, void* record, uint32_t size);
KALDB_API uint32_t kaldbTableQueryPK(KALDBTable* table, const void* key, void* record, uint32_t size);
KALDB_API uint32_t kaldbTableQueryPartialPK(KALDBTable* table, uint32_t readOnly, const void* key,
                                            KALBTreeCompare compare, KALEnumerator** enumerator);
KALDB_API uint32_t kaldbTableUpdateCurrentRecord(KALDBTable* table, KALEnumerator* enumerator, void* record);
KALDB_API uint32_t kaldbTableDeletePartialPK(KALDBTable* table, const void* key, KALBTreeCompare compare);
KALDB_API uint32_t kaldbTableDeleteCurrentRecord(KALDBTable* table, KALEnumerator* enumerator);
KALDB_API uint32_t kaldbTableQuery(KALDBTable* table, const void* key);
KALDB_API uint32_t kaldbTableEnumWithCallback(KALDBTable* table, void* context, KALDBEnumCallback callback);
KALDB_API uint32_t kaldbBinaryTableInsertRecord(KALDBTable* table, const KALDBBinaryRecord* record,
                                                KALDBIndexRecord* locator);
KALDB_API uint32_t kaldbBinaryTableDeleteRecord(KALDBTable* table, const KALDBIndexRecord* locator);
KALDB_API uint32_t kaldbBinaryTableUpdateRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                                const KALDBBinaryRecord* record);
KALDB_API uint32_t kaldbBinaryTableGetRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                             KALDBBinaryRecord* record);

#ifdef __cplusplus
}
#endif
#endif
