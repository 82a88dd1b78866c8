// Setting, reading and comparing texts.
#include "kaldbvarstr/varstring.h"

#include "common/memory.h"

#include <cstring>

namespace kaldb {
namespace {

std::byte* area(KALDBVarString& string) { return reinterpret_cast<std::byte*>(&string) + sizeof string; }
const std::byte* area(const KALDBVarString& string)
{
    return reinterpret_cast<const std::byte*>(&string) + sizeof string;
}

/// What the area of a long text says, right or wrong.
BlockHandle namedBlock(const KALDBVarString& string)
{
    if (varStringIsInline(string) || !varStringTakesBlock(string))
        return noBlock;
    return readField<BlockHandle>(area(string));
}

void clearLocation(KALDBVarString& string)
{
    string.location.page = KALDB_NO_PAGE;
    string.location.index = KALDB_NO_SLOT;
}

/// The length of a text in multibyte form, without the terminator. `conversionFailed` when it has none, and
/// `bufferTooSmall` when a string of that capacity cannot hold it.
Status measure(std::uint32_t capacity, const char16_t* text, std::uint32_t& length)
{
    const std::uint32_t bytes = kalWideCharToMultiByte(text, KAL_NUL_TERMINATED, nullptr, 0);
    if (bytes == 0 || bytes == KAL_CONVERSION_FAILED)
        return Status::conversionFailed;
    length = bytes - 1;
    return capacity <= length && capacity < sizeof(BlockHandle) ? Status::bufferTooSmall : Status::success;
}

/// Into room for exactly the `size` bytes that were measured.
bool convert(const char16_t* text, char* room, std::uint32_t size)
{
    return kalWideCharToMultiByte(text, KAL_NUL_TERMINATED, room, size) == size;
}

/// Replaces the text by one of `length` bytes, which `write` puts where it belongs, terminator included; false from it
/// is a failed conversion. The new text may come from the string's own block, which is freed last. A failure leaves the
/// string as it was.
template <class Write>
Status replaceText(KALDBVarString& string, std::uint32_t length, Write&& write)
{
    const BlockHandle earlier = namedBlock(string);
    BlockHandle later = noBlock;
    if (string.capacity > length) {
        if (!write(reinterpret_cast<char*>(area(string))))
            return Status::conversionFailed;
    } else {
        if (!varStringTakesBlock(string))
            return Status::bufferTooSmall;
        NewBlock block{&string, length + 1, varStringSource};
        if (block.address() == nullptr)
            return Status::outOfMemory;
        if (!write(reinterpret_cast<char*>(block.address())))
            return Status::conversionFailed;
        later = block.handOver().handle;
        writeField(area(string), 0, later);
    }
    freeReplacedBlock(earlier, later, &string);
    string.length = length;
    return Status::success;
}

/// A string's text as the support library takes it: with a terminator right behind its `length` bytes.
class TerminatedText {
public:
    /// `notOpen` when there is no text to be had, `outOfMemory` for a copy.
    Status open(const KALDBVarString& string)
    {
        const char* text = varStringText(string);
        if (text == nullptr)
            return Status::notOpen;
        if (string.length == 0)
            return Status::success;
        if (text[string.length] == '\0') {
            text_ = text;
            return Status::success;
        }
        copy_ = allocateMemory(string.length + 1, varStringSource);
        if (!copy_)
            return Status::outOfMemory;
        std::memcpy(copy_.get(), text, string.length);
        copy_[string.length] = std::byte{0};
        text_ = reinterpret_cast<const char*>(copy_.get());
        return Status::success;
    }
    const char* get() const { return text_; }

private:
    const char* text_ = "";
    Memory copy_;
};

template <class Compare>
Status compareTexts(const KALDBVarString& first, const KALDBVarString& second, std::int32_t& result, Compare compare)
{
    TerminatedText left, right;
    if (Status s = left.open(first); failed(s))
        return s;
    if (Status s = right.open(second); failed(s))
        return s;
    result = compare(left.get(), right.get());
    return Status::success;
}

}  // namespace

const char* varStringText(const KALDBVarString& string)
{
    if (varStringIsInline(string))
        return reinterpret_cast<const char*>(area(string));
    const LiveBlock block = findBlock(namedBlock(string));
    return block.size > string.length ? reinterpret_cast<const char*>(block.address) : nullptr;
}

void varStringTakeBlock(KALDBVarString& string, BlockHandle block)
{
    freeReplacedBlock(namedBlock(string), block, &string);
    writeField(area(string), 0, block);
}

void varStringAllocate(std::uint32_t capacity, KALDBVarString& string)
{
    string.capacity = capacity;
    string.length = 0;
    clearLocation(string);
    std::memset(area(string), 0xDD, capacity);
}

Status varStringCreate(std::uint32_t capacity, KALDBVarString& string, const char16_t* text)
{
    if (text != nullptr) {
        std::uint32_t length = 0;
        if (measure(capacity, text, length) == Status::bufferTooSmall)
            return Status::bufferTooSmall;
    }
    varStringAllocate(capacity, string);
    return varStringSet(string, text);
}

void varStringDelete(KALDBVarString& string)
{
    freeBlock(namedBlock(string), &string);
    std::memset(area(string), 0, string.capacity);
    string.capacity = 0;
    string.length = 0;
    clearLocation(string);
}

Status varStringSet(KALDBVarString& string, const char16_t* text)
{
    if (text == nullptr) {
        // A handle must not become text.
        if (!varStringIsInline(string) && varStringTakesBlock(string))
            varStringTakeBlock(string, noBlock);
        string.length = 0;
        return Status::success;
    }
    std::uint32_t length = 0;
    if (Status s = measure(string.capacity, text, length); failed(s))
        return s;
    return replaceText(string, length, [&](char* place) { return convert(text, place, length + 1); });
}

Status varStringCopy(const KALDBVarString& string, char16_t* buffer, std::uint32_t chars)
{
    TerminatedText text;
    if (Status s = text.open(string); failed(s))
        return s;
    if (chars <= kalMultiByteChars(text.get()))
        return Status::bufferTooSmall;
    if (buffer == nullptr)
        return Status::invalidArgument;
    const std::uint32_t written = kalMultiByteToWideChar(text.get(), KAL_NUL_TERMINATED, buffer, chars);
    return written == 0 || written == KAL_CONVERSION_FAILED ? Status::bufferTooSmall : Status::success;
}

Status varStringDup(KALDBVarString& destination, const KALDBVarString& source)
{
    const char* text = varStringText(source);
    if (text == nullptr)
        return Status::notOpen;
    return replaceText(destination, source.length, [text, length = source.length](char* place) {
        std::memmove(place, text, length);
        place[length] = '\0';
        return true;
    });
}

Status varStringCompare(const KALDBVarString& first, const KALDBVarString& second, std::int32_t& result)
{
    return compareTexts(first, second, result, kalMultiByteCompare);
}

Status varStringICompare(const KALDBVarString& first, const KALDBVarString& second, std::int32_t& result)
{
    return compareTexts(first, second, result, kalMultiByteICompare);
}

// Both texts are compared in multibyte form, so that ignoring case means the same here as between two strings.
Status varStringIComparePSZ(const KALDBVarString& string, const char16_t* text, std::int32_t& result)
{
    TerminatedText own;
    if (Status s = own.open(string); failed(s))
        return s;
    std::uint32_t length = 0;
    if (Status s = measure(UINT32_MAX, text, length); failed(s))
        return s;
    const Memory room = allocateMemory(length + 1, varStringSource);
    if (!room)
        return Status::outOfMemory;
    auto* other = reinterpret_cast<char*>(room.get());
    if (!convert(text, other, length + 1))
        return Status::conversionFailed;
    result = kalMultiByteICompare(own.get(), other);
    return Status::success;
}

}  // namespace kaldb
