// The long values of variants, in the system table "SysBinary".
#include "kaldbvalue/value_store.h"
#include "kaldbvariant/variant.h"

namespace kaldb {
namespace {

constexpr TraceSource opening = variantTrace(u"kaldbInitBinaryTable");
constexpr TraceSource inserting = variantTrace(u"kaldbVariantInsertRecord");
constexpr TraceSource getting = variantTrace(u"kaldbVariantGetRecord");
constexpr TraceSource deleting = variantTrace(u"kaldbVariantDeleteRecord");

constexpr std::uint32_t blockSize = 64;
ValueStore store{u"SysBinary", blockSize};

bool storable(std::uint32_t type)
{
    return type == KALDB_VT_STRING || type == KALDB_VT_WSTRING || type == KALDB_VT_WSTRING_RAW || type == 20 ||
           type == 21;
}

/// Success for a value that belongs into the store, and the store is open.
Status checkStorable(const KALDBVariant& variant)
{
    if (variant.size < variant.inlineSize)
        return Status::notApplicable;
    if (!storable(variant.type))
        return Status::failure;
    return store.isOpen() ? Status::success : Status::notOpen;
}

/// The same for one that can have blocks in the store.
Status checkStored(const KALDBVariant& variant)
{
    return variant.size == 0 ? Status::notApplicable : checkStorable(variant);
}

}  // namespace

Status variantStoreOpen(KALDBDatabase* db) { return store.open(db, opening); }

Status variantStoreClose() { return store.close(); }

Status variantInsertRecord(KALDBVariant& variant)
{
    if (Status s = checkStorable(variant); failed(s))
        return s;
    const std::byte* bytes = variantBytes(variant);
    if (bytes == nullptr && variant.size > 0)
        return Status::notOpen;
    return store.insert({bytes, variant.size}, variant.location, inserting, u"could not insert remainder of value",
                        u"could not insert value block %ld");
}

Status variantGetRecord(KALDBVariant& variant)
{
    if (Status s = checkStored(variant); failed(s)) {
        if (s == Status::notApplicable && storable(variant.type))
            variantPointInline(variant);
        return s;
    }
    LiveBlock block;
    const Status s = store.read(variant.location, variant.size, &variant, variantSource, block, getting,
                                u"could not retrieve binary data");
    if (s == Status::outOfMemory)
        return s;
    variantTakeBlock(variant, block);
    return s;
}

Status variantDeleteRecord(KALDBVariant& variant)
{
    if (Status s = checkStored(variant); failed(s))
        return s;
    return store.remove(variant.location, variant.size, deleting, u"could not delete variant");
}

}  // namespace kaldb
