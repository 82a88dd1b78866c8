/* Variants: typed values kept inside records, and their store of long values. */
#ifndef KALDB_VARIANT_H
#define KALDB_VARIANT_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 64 bytes on every platform; part of the format of the records that hold it. */
typedef struct KALDBVariant {
    uint32_t type;
    uint32_t isNull;
    uint32_t inlineSize;
    uint32_t size;
    KALDBIndexRecord location;
    union {
        uint8_t value[16];
        void* data;
    };
    uint8_t inlineData[8];
} KALDBVariant;

KALDB_API uint32_t kaldbVariantInitialize(uint32_t inlineSize, KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantDeinitialize(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantEmpty(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantAllocate(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantSet(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);
KALDB_API uint32_t kaldbVariantSetID(KALDBVariant* variant, const KALDBID* id);
KALDB_API uint32_t kaldbVariantSetPrimitive(KALDBVariant* variant, uint32_t type, const void* data);
KALDB_API uint32_t kaldbVariantSetString(KALDBVariant* variant, uint32_t type, const void* string);
KALDB_API uint32_t kaldbVariantSetBinary(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);
KALDB_API uint32_t kaldbVariantGetType(const KALDBVariant* variant, uint32_t* type);
KALDB_API uint32_t kaldbVariantGetSize(const KALDBVariant* variant, uint32_t* size);
KALDB_API uint32_t kaldbVariantGetID(const KALDBVariant* variant, KALDBID* id);
KALDB_API uint32_t kaldbVariantGetData(const KALDBVariant* variant, void* buffer, uint32_t* size);
KALDB_API uint32_t kaldbVariantGetDataPointer(const KALDBVariant* variant, const void** data);
KALDB_API uint32_t kaldbInitBinaryTable(KALDBDatabase* db);
KALDB_API uint32_t kaldbDeinitBinaryTable(KALDBDatabase* db);
KALDB_API uint32_t kaldbVariantInsertRecord(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantGetRecord(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantDeleteRecord(KALDBVariant* variant);
KALDB_API uint32_t kaldbVariantUpdateRecord(KALDBVariant* variant);

#ifdef __cplusplus
}
#endif
#endif
