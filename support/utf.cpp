#include "utf.h"

#include <cstddef>

namespace kallib {
namespace {

constexpr bool isSurrogate(char32_t point) { return point >= 0xD800 && point <= 0xDFFF; }
constexpr bool isLeading(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isTrailing(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// How many bytes a sequence has, by its first byte; 0 for a byte that begins none.
constexpr unsigned sequenceLength(unsigned char first)
{
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return 2;
    if (first >= 0xE0 && first <= 0xEF)
        return 3;
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

}  // namespace

CodePoint decode(const char* at, const char* end)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(*at);
    const unsigned length = sequenceLength(first);
    if (length == 1)
        return {first, 1};
    if (length == 0 || end - at < static_cast<std::ptrdiff_t>(length))
        return {};
    char32_t point = first & (0xFFu >> (length + 1));
    for (unsigned i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(at[i]);
        if ((next & 0xC0u) != 0x80)
            return {};
        point = point << 6 | (next & 0x3Fu);
    }
    if (point < smallest[length] || point > 0x10FFFF || isSurrogate(point))
        return {};
    return {point, length};
}

CodePoint decode(const char16_t* at, const char16_t* end)
{
    if (!isSurrogate(*at))
        return {*at, 1};
    if (!isLeading(*at) || end - at < 2 || !isTrailing(at[1]))
        return {};
    return {0x10000 + ((static_cast<char32_t>(at[0]) - 0xD800) << 10) + (static_cast<char32_t>(at[1]) - 0xDC00), 2};
}

unsigned encode(char32_t point, char* units)
{
    if (point < 0x80) {
        units[0] = static_cast<char>(point);
        return 1;
    }
    const unsigned length = point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
    for (unsigned i = length - 1; i > 0; --i, point >>= 6)
        units[i] = static_cast<char>(0x80 | (point & 0x3F));
    units[0] = static_cast<char>((0xF00u >> length & 0xFFu) | point);
    return length;
}

unsigned encode(char32_t point, char16_t* units)
{
    if (point < 0x10000) {
        units[0] = static_cast<char16_t>(point);
        return 1;
    }
    units[0] = static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    units[1] = static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    return 2;
}

bool toUtf8(const char16_t* text, std::string& utf8)
{
    const char16_t* const end = text + std::char_traits<char16_t>::length(text);
    utf8.clear();
    while (text != end) {
        const CodePoint point = decode(text, end);
        if (point.length == 0)
            return false;
        char units[4];
        utf8.append(units, encode(point.value, units));
        text += point.length;
    }
    return true;
}

}  // namespace kallib
