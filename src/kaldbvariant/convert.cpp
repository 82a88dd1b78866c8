// Type KALDB_VT_WSTRING: given and taken as wide text, kept as multibyte. `size` counts the multibyte bytes, terminator
// included, which for text of one byte a character is its number of characters.
#include "kaldbvariant/variant.h"

#include "kaldbroot/root_object.h"

namespace kaldb {
namespace {

constexpr TraceSource getting = variantTrace(u"variantGetWideString");

/// These two texts end without the closing bracket.
Status refuseText(KALDBVariant& variant, bool inlineText)
{
    const Status status = Status::conversionFailed;
    if (inlineText)
        KAL_TRACE(verbatim, u"kaldbvariant: variantSetWideString() could not convert inline wide string [0x%02X - %s\n",
                  code(status), kalErrorGetString(code(status)));
    else
        KAL_TRACE(verbatim,
                  u"kaldbvariant: variantSetWideString() could not convert outline wide string [0x%02X - %s\n",
                  code(status), kalErrorGetString(code(status)));
    variantSetNull(variant, KALDB_VT_WSTRING);
    return status;
}

bool convert(const char16_t* string, std::uint32_t count, std::byte* room, std::uint32_t size)
{
    return kalWideCharToMultiByte(string, count, reinterpret_cast<char*>(room), size) == size;
}

}  // namespace

Status variantSetWideString(KALDBVariant& variant, const char16_t* string, std::uint32_t byteSize)
{
    if (byteSize == 0) {
        variantSetNull(variant, KALDB_VT_WSTRING);
        return Status::success;
    }
    const std::uint32_t count = byteSize / 2;
    const std::uint32_t size = kalWideCharToMultiByte(string, count, nullptr, 0);
    if (size == KAL_CONVERSION_FAILED)
        return refuseText(variant, count < variant.inlineSize);

    if (size < variant.inlineSize) {
        if (!convert(string, count, variantInlineArea(variant), size))
            return refuseText(variant, true);
        variantPointInline(variant);
    } else {
        NewBlock block{&variant, size, variantSource};
        if (block.address() == nullptr) {
            variantSetNull(variant, KALDB_VT_WSTRING);
            return Status::outOfMemory;
        }
        if (!convert(string, count, block.address(), size))
            return refuseText(variant, false);
        variantTakeBlock(variant, block.handOver());
        writeField(variant.inlineData, 0, std::uint32_t{0});
    }
    variant.type = KALDB_VT_WSTRING;
    variant.isNull = 0;
    variant.size = size;
    variant.location = emptyLocator();
    return Status::success;
}

Status variantGetWideString(const KALDBVariant& variant, void* buffer, std::uint32_t& size)
{
    if (variant.size == 0) {
        size = 0;
        return Status::success;
    }
    const auto* text = reinterpret_cast<const char*>(variantBytes(variant));
    if (text == nullptr)
        return Status::notOpen;
    const std::uint32_t room = size / 2;
    std::uint32_t chars = kalMultiByteToWideChar(text, variant.size, nullptr, 0);
    if (chars != KAL_CONVERSION_FAILED) {
        if (chars > room)
            return Status::bufferTooSmall;
        if (buffer == nullptr)
            return Status::invalidArgument;
        chars = kalMultiByteToWideChar(text, variant.size, static_cast<char16_t*>(buffer), room);
    }
    if (chars == KAL_CONVERSION_FAILED)
        return KAL_TRACE(getting, Status::conversionFailed, u"could not convert to wide string");
    size = 2 * chars;
    return Status::success;
}

}  // namespace kaldb
