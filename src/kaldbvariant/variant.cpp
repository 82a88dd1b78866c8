// Setting and reading values. A setter copies the new bytes before it lets go of the old ones, so that they may come
// from the variant itself.
#include "kaldbvariant/variant.h"

#include "kaldbroot/root_object.h"

#include <kaldb/identifiers.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace kaldb {
namespace {

constexpr std::array<std::int32_t, variantTypes> typeSizes{0, 16, 4, 1, 2,  1,  1,  2,  2,  4,  4,
                                                           8, 8,  4, 8, -1, -1, -1, -1, -1, -1, -1};
constexpr std::size_t handleOffset = 8;
static_assert(sizeof(void*) <= handleOffset);

/// The block that the value's bytes name, whoever owns it.
LiveBlock namedBlock(const KALDBVariant& variant)
{
    if (variantHasFixedValue(variant))
        return {};
    const LiveBlock block = findBlock(readField<BlockHandle>(variant.value, handleOffset));
    return block.address == variant.data ? block : LiveBlock{};
}

void describe(KALDBVariant& variant, std::uint32_t type, std::uint32_t size)
{
    variant.type = type;
    variant.isNull = 0;
    variant.size = size;
    variant.location = emptyLocator();
}

/// Bytes of a string in the form of its type, terminator included; 0 for a type that takes no string.
std::uint64_t stringSize(std::uint32_t type, const void* string)
{
    if (string == nullptr)
        return 0;
    switch (type) {
    case KALDB_VT_STRING: return std::uint64_t{std::strlen(static_cast<const char*>(string))} + 1;
    case KALDB_VT_WSTRING:
    case KALDB_VT_WSTRING_RAW:
    case 20: return (std::uint64_t{std::char_traits<char16_t>::length(static_cast<const char16_t*>(string))} + 1) * 2;
    default: return 0;
    }
}

}  // namespace

std::int32_t variantTypeSize(std::uint32_t type) { return typeSizes[type]; }

bool variantHasFixedValue(const KALDBVariant& variant)
{
    return variantTypeKnown(variant.type) && variantTypeSize(variant.type) > 0;
}

std::byte* variantInlineArea(KALDBVariant& variant)
{
    return reinterpret_cast<std::byte*>(&variant) + offsetof(KALDBVariant, inlineData);
}

const std::byte* variantBytes(const KALDBVariant& variant)
{
    if (variant.size < variant.inlineSize)
        return variantInlineArea(const_cast<KALDBVariant&>(variant));
    const LiveBlock block = namedBlock(variant);
    return block.size >= variant.size ? block.address : nullptr;
}

void variantRelease(KALDBVariant& variant)
{
    freeBlock(namedBlock(variant).handle, &variant);
    std::fill(std::begin(variant.value), std::end(variant.value), std::uint8_t{0});
}

void variantTakeBlock(KALDBVariant& variant, const LiveBlock& block)
{
    freeReplacedBlock(namedBlock(variant).handle, block.handle, &variant);
    variant.data = block.address;
    writeField(variant.value, handleOffset, block.handle);
    writeField(variant.value, handleOffset + sizeof block.handle, std::uint32_t{0});
}

void variantPointInline(KALDBVariant& variant)
{
    variantRelease(variant);
    variant.data = variantInlineArea(variant);
}

void variantSetNull(KALDBVariant& variant, std::uint32_t type)
{
    variantRelease(variant);
    describe(variant, type, 0);
    variant.isNull = 1;
}

void variantInitialize(std::uint32_t inlineSize, KALDBVariant& variant)
{
    variant.type = KALDB_VT_EMPTY;
    variant.isNull = 1;
    variant.inlineSize = inlineSize;
    variant.size = 0;
    variant.location = emptyLocator();
    std::fill(std::begin(variant.value), std::end(variant.value), std::uint8_t{0});
}

void variantDeinitialize(KALDBVariant& variant)
{
    variantEmpty(variant);
    variant.type = KALDB_VT_EMPTY;
    variant.inlineSize = 0;
}

void variantEmpty(KALDBVariant& variant)
{
    variantRelease(variant);
    variant.isNull = 1;
    variant.size = 0;
}

Status variantAllocate(KALDBVariant& variant)
{
    if (variant.size < variant.inlineSize || variantHasFixedValue(variant))
        return Status::notApplicable;
    NewBlock block{&variant, variant.size, variantSource};
    if (block.address() == nullptr)
        return Status::outOfMemory;
    std::fill_n(block.address(), block.size(), std::byte{0});
    variantTakeBlock(variant, block.handOver());
    return Status::success;
}

Status variantSet(KALDBVariant& variant, std::uint32_t type, const void* data, std::uint32_t size)
{
    if (!variantTypeKnown(type))
        return Status::notSupported;
    if (variantTypeSize(type) != variableSize)
        return variantSetPrimitive(variant, type, data);
    if (type == KALDB_VT_STRING || type == KALDB_VT_WSTRING || type == KALDB_VT_WSTRING_RAW)
        return variantSetString(variant, type, data);
    return variantSetData(variant, type, data, size);
}

void variantSetID(KALDBVariant& variant, const KALDBID& id)
{
    KALDBID copy = zeroIdentifier();
    kaldbIDCopy(&copy, &id);
    variantRelease(variant);
    variant.type = KALDB_VT_ID;
    variant.isNull = 0;
    variant.size = sizeof copy;
    writeField(variant.value, 0, copy);
}

Status variantSetPrimitive(KALDBVariant& variant, std::uint32_t type, const void* data)
{
    if (!variantTypeKnown(type) || variantTypeSize(type) == variableSize)
        return Status::notSupported;
    std::array<std::uint8_t, sizeof variant.value> bytes{};
    const std::uint32_t size = data == nullptr ? 0 : static_cast<std::uint32_t>(variantTypeSize(type));
    if (size > 0)
        std::memcpy(bytes.data(), data, size);
    variantRelease(variant);
    variant.type = type;
    variant.isNull = data == nullptr ? 1 : 0;
    variant.size = size;
    writeField(variant.value, 0, bytes);
    return Status::success;
}

Status variantSetString(KALDBVariant& variant, std::uint32_t type, const void* string)
{
    if (!variantTypeKnown(type))
        return Status::notSupported;
    const std::uint64_t size = stringSize(type, string);
    if (size > UINT32_MAX)
        return Status::invalidArgument;
    if (type == KALDB_VT_WSTRING)
        return variantSetWideString(variant, static_cast<const char16_t*>(string), static_cast<std::uint32_t>(size));
    return variantSetData(variant, type, string, static_cast<std::uint32_t>(size));
}

Status variantSetData(KALDBVariant& variant, std::uint32_t type, const void* data, std::uint32_t size)
{
    if (!variantTypeKnown(type) || (size > 0 && variantTypeSize(type) != variableSize))
        return Status::notSupported;
    if (size > 0 && data == nullptr)
        return Status::invalidArgument;
    if (size == 0) {
        variantSetNull(variant, type);
        return Status::success;
    }
    if (size < variant.inlineSize) {
        std::memmove(variantInlineArea(variant), data, size);
        variantPointInline(variant);
        describe(variant, type, size);
        return Status::success;
    }
    NewBlock block{&variant, size, variantSource};
    if (block.address() == nullptr) {
        variantSetNull(variant, type);
        return Status::outOfMemory;
    }
    std::memcpy(block.address(), data, size);
    variantTakeBlock(variant, block.handOver());
    describe(variant, type, size);
    writeField(variant.inlineData, 0, std::uint32_t{0});
    return Status::success;
}

Status variantGetData(const KALDBVariant& variant, void* buffer, std::uint32_t& size)
{
    if (!variantTypeKnown(variant.type))
        return Status::notSupported;
    if (variant.type == KALDB_VT_WSTRING)
        return variantGetWideString(variant, buffer, size);
    if (variant.size > size)
        return Status::bufferTooSmall;
    if (variant.size > 0) {
        const void* bytes = variant.value;
        if (!variantHasFixedValue(variant))
            bytes = variantBytes(variant);
        else if (variant.size > sizeof variant.value)
            return Status::failure;
        if (bytes == nullptr)
            return Status::notOpen;
        if (buffer == nullptr)
            return Status::invalidArgument;
        std::memcpy(buffer, bytes, variant.size);
    }
    size = variant.size;
    return Status::success;
}

Status variantGetDataPointer(const KALDBVariant& variant, const void*& data)
{
    data = nullptr;
    if (!variantTypeKnown(variant.type))
        return Status::notSupported;
    if (variant.isNull == 0)
        data = variantTypeSize(variant.type) == variableSize ? static_cast<const void*>(variantBytes(variant))
                                                             : variant.value;
    return Status::success;
}

}  // namespace kaldb
