// Multibyte text is UTF-8, wide text is UTF-16: conversion, counting and comparison.
#include "case_folding.h"
#include "utf.h"

#include <kallib/kallib.h>

#include <cstring>
#include <string>

namespace {

using kallib::CodePoint;
using kallib::decode;
using kallib::encode;

// Ill-formed bytes compare as values above every code point, so that any two texts have an order.
constexpr char32_t illFormed = 0x110000;

template <class Unit>
const Unit* endOf(const Unit* text)
{
    return text + std::char_traits<Unit>::length(text);
}

// Converts [at, end) into `room` units at `destination`; only counts when that is null. Returns the number of units or
// KAL_CONVERSION_FAILED.
template <class From, class To>
uint32_t convert(const From* at, const From* end, To* destination, uint32_t room)
{
    uint64_t used = 0;
    while (at != end) {
        const CodePoint point = decode(at, end);
        if (point.length == 0)
            return KAL_CONVERSION_FAILED;
        To units[4];
        const unsigned length = encode(point.value, units);
        if (destination != nullptr) {
            if (room - used < length)
                return KAL_CONVERSION_FAILED;
            std::memcpy(destination + used, units, length * sizeof(To));
        }
        used += length;
        at += point.length;
    }
    return used < KAL_CONVERSION_FAILED ? static_cast<uint32_t>(used) : KAL_CONVERSION_FAILED;
}

// The rules about lengths, the same in both directions.
template <class From, class To>
uint32_t convertText(const From* source, uint32_t length, To* destination, uint32_t room)
{
    if (source == nullptr || (destination == nullptr && room != 0))
        return KAL_CONVERSION_FAILED;
    if (length == KAL_NUL_TERMINATED)
        return convert(source, endOf(source) + 1, destination, room);
    if (length == 0 && destination == nullptr)
        return convert(source, endOf(source), destination, room);
    return convert(source, source + length, destination, room);
}

// Takes one code point, folded, off a text.
char32_t nextFolded(const char*& at, const char* end)
{
    const CodePoint point = decode(at, end);
    if (point.length == 0)
        return illFormed + static_cast<unsigned char>(*at++);
    at += point.length;
    return kallib::foldCase(point.value);
}

// Null sorts before every text, and with null.
int32_t compareNull(const char* first, const char* second)
{
    return static_cast<int32_t>(first != nullptr) - static_cast<int32_t>(second != nullptr);
}

}  // namespace

extern "C" uint32_t kalMultiByteChars(const char* text)
{
    if (text == nullptr)
        return 0;
    const char* const end = endOf(text);
    uint32_t count = 0;
    while (text != end) {
        const CodePoint point = decode(text, end);
        text += point.length == 0 ? 1 : point.length;
        count += point.value >= 0x10000 ? 2 : 1;
    }
    return count;
}

// The order of UTF-8's bytes is that of the code points.
extern "C" int32_t kalMultiByteCompare(const char* first, const char* second)
{
    if (first == nullptr || second == nullptr)
        return compareNull(first, second);
    return std::strcmp(first, second);
}

extern "C" int32_t kalMultiByteICompare(const char* first, const char* second)
{
    if (first == nullptr || second == nullptr)
        return compareNull(first, second);
    const char* const firstEnd = endOf(first);
    const char* const secondEnd = endOf(second);
    while (first != firstEnd && second != secondEnd) {
        const char32_t left = nextFolded(first, firstEnd);
        const char32_t right = nextFolded(second, secondEnd);
        if (left != right)
            return left < right ? -1 : 1;
    }
    return static_cast<int32_t>(first != firstEnd) - static_cast<int32_t>(second != secondEnd);
}

extern "C" uint32_t kalMultiByteToWideChar(const char* source, uint32_t sourceLength, char16_t* destination,
                                           uint32_t destinationChars)
{
    return convertText(source, sourceLength, destination, destinationChars);
}

extern "C" uint32_t kalWideCharToMultiByte(const char16_t* source, uint32_t sourceLength, char* destination,
                                           uint32_t destinationBytes)
{
    return convertText(source, sourceLength, destination, destinationBytes);
}
