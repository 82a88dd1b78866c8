/* Variable strings: texts kept inside records, and their store of long texts. */
#ifndef KALDB_VARSTRING_H
#define KALDB_VARSTRING_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The header; the inline area of `capacity` bytes follows it directly. */
typedef struct KALDBVarString {
    uint32_t capacity;
    uint32_t length;
    KALDBIndexRecord location;
} KALDBVarString;

KALDB_API uint32_t kaldbVarStringAllocate(uint32_t capacity, KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringCreate(uint32_t capacity, KALDBVarString* string, const char16_t* text);
KALDB_API uint32_t kaldbVarStringDelete(KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringSet(KALDBVarString* string, const char16_t* text);
KALDB_API uint32_t kaldbVarStringGetLength(const KALDBVarString* string, uint32_t* length);
KALDB_API uint32_t kaldbVarStringGet(const KALDBVarString* string, const char** text);
KALDB_API const char* kaldbVarStringGetPSZ(const KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringCopy(const KALDBVarString* string, char16_t* buffer, uint32_t chars);
KALDB_API uint32_t kaldbVarStringDup(KALDBVarString* destination, const KALDBVarString* source);
KALDB_API uint32_t kaldbVarStringCompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);
KALDB_API uint32_t kaldbVarStringICompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);
KALDB_API uint32_t kaldbVarStringIComparePSZ(const KALDBVarString* string, const char16_t* text, int32_t* result);
KALDB_API uint32_t kaldbInitVarStringTable(KALDBDatabase* db);
KALDB_API uint32_t kaldbDeinitVarStringTable(KALDBDatabase* db);
KALDB_API uint32_t kaldbVarStringInsertRecord(KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringGetRecord(KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringDeleteRecord(KALDBVarString* string);
KALDB_API uint32_t kaldbVarStringUpdateRecord(KALDBVarString* string);

#ifdef __cplusplus
}
#endif
#endif
