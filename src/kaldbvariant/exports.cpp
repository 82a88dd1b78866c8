// The exported operations on variants: a null pointer is refused, everything else is the library's own side.
#include "kaldbvalue/export_guard.h"
#include "kaldbvariant/variant.h"

#include <kaldb/identifiers.h>

using kaldb::code;
using kaldb::given;
using kaldb::guarded;
using kaldb::simply;
using kaldb::Status;

uint32_t kaldbVariantInitialize(uint32_t inlineSize, KALDBVariant* variant)
{
    return simply(variant != nullptr, [&] { kaldb::variantInitialize(inlineSize, *variant); });
}

uint32_t kaldbVariantDeinitialize(KALDBVariant* variant)
{
    return simply(variant != nullptr, [&] { kaldb::variantDeinitialize(*variant); });
}

uint32_t kaldbVariantEmpty(KALDBVariant* variant)
{
    return simply(variant != nullptr, [&] { kaldb::variantEmpty(*variant); });
}

uint32_t kaldbVariantAllocate(KALDBVariant* variant)
{
    return given(variant != nullptr, [&] { return kaldb::variantAllocate(*variant); });
}

uint32_t kaldbVariantSet(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size)
{
    return given(variant != nullptr, [&] { return kaldb::variantSet(*variant, type, data, size); });
}

uint32_t kaldbVariantSetID(KALDBVariant* variant, const KALDBID* id)
{
    return simply(variant != nullptr && id != nullptr, [&] { kaldb::variantSetID(*variant, *id); });
}

uint32_t kaldbVariantSetPrimitive(KALDBVariant* variant, uint32_t type, const void* data)
{
    return given(variant != nullptr, [&] { return kaldb::variantSetPrimitive(*variant, type, data); });
}

uint32_t kaldbVariantSetString(KALDBVariant* variant, uint32_t type, const void* string)
{
    return given(variant != nullptr, [&] { return kaldb::variantSetString(*variant, type, string); });
}

uint32_t kaldbVariantSetBinary(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size)
{
    return given(variant != nullptr, [&] { return kaldb::variantSetData(*variant, type, data, size); });
}

uint32_t kaldbVariantGetType(const KALDBVariant* variant, uint32_t* type)
{
    return simply(variant != nullptr && type != nullptr, [&] { *type = variant->type; });
}

uint32_t kaldbVariantGetSize(const KALDBVariant* variant, uint32_t* size)
{
    return simply(variant != nullptr && size != nullptr, [&] { *size = variant->size; });
}

uint32_t kaldbVariantGetID(const KALDBVariant* variant, KALDBID* id)
{
    return simply(variant != nullptr && id != nullptr, [&] {
        const KALDBID value = kaldb::readField<KALDBID>(variant->value);
        kaldbIDCopy(id, &value);
    });
}

uint32_t kaldbVariantGetData(const KALDBVariant* variant, void* buffer, uint32_t* size)
{
    return given(variant != nullptr && size != nullptr, [&] { return kaldb::variantGetData(*variant, buffer, *size); });
}

uint32_t kaldbVariantGetDataPointer(const KALDBVariant* variant, const void** data)
{
    return given(variant != nullptr && data != nullptr, [&] { return kaldb::variantGetDataPointer(*variant, *data); });
}

uint32_t kaldbInitBinaryTable(KALDBDatabase* db)
{
    return guarded([&] { return kaldb::variantStoreOpen(db); });
}

uint32_t kaldbDeinitBinaryTable(KALDBDatabase*) { return guarded(kaldb::variantStoreClose); }

uint32_t kaldbVariantInsertRecord(KALDBVariant* variant)
{
    return given(variant != nullptr, [&] { return kaldb::variantInsertRecord(*variant); });
}

uint32_t kaldbVariantGetRecord(KALDBVariant* variant)
{
    return given(variant != nullptr, [&] { return kaldb::variantGetRecord(*variant); });
}

uint32_t kaldbVariantDeleteRecord(KALDBVariant* variant)
{
    return given(variant != nullptr, [&] { return kaldb::variantDeleteRecord(*variant); });
}

uint32_t kaldbVariantUpdateRecord(KALDBVariant*) { return code(Status::notSupported); }
