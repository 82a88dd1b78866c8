#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace kaldb::tool {

namespace {

void append(std::string& out, char32_t point)
{
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0 | (point >> 6));
        tail(0);
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0 | (point >> 12));
        tail(6), tail(0);
    } else {
        out += static_cast<char>(0xF0 | (point >> 18));
        tail(12), tail(6), tail(0);
    }
}

/// The length of the valid sequence at the front of `text`, 0 for none; its code point goes to `point`.
std::size_t decode(std::string_view text, char32_t& point)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        point = lead;
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        point = (point << 6) | (byte(i) & 0x3F);
    }
    constexpr std::array<char32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = point >= 0xD800 && point < 0xE000;
    return point < least[length] || point > 0x10FFFF || surrogate ? 0 : length;
}

}  // namespace

std::string utf8(std::u16string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        const bool high = point >= 0xD800 && point < 0xDC00;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++i] - 0xDC00U);
        else if (point >= 0xD800 && point < 0xE000)
            point = 0xFFFD;
        append(out, point);
    }
    return out;
}

std::u16string utf16(std::string_view text)
{
    std::u16string out;
    while (!text.empty()) {
        char32_t point = 0xFFFD;
        const std::size_t length = std::max<std::size_t>(decode(text, point), 1);
        text.remove_prefix(length);
        if (point >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(point);
        }
    }
    return out;
}

std::size_t findInvalidUtf8(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        char32_t point = 0;
        const std::size_t length = decode(text.substr(at), point);
        if (length == 0)
            return at;
        at += length;
    }
    return std::string_view::npos;
}

std::string latin1ToUtf8(std::string_view text)
{
    std::string out;
    for (const char c : text)
        append(out, static_cast<unsigned char>(c));
    return out;
}

std::size_t textWidth(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string printable(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        char32_t point = 0;
        const std::size_t length = decode(text, point);
        const auto byte = static_cast<unsigned char>(text.front());
        if (length == 0)
            out += fmt::format("\\x{:02X}", byte);
        else if (point == U'\n')
            out += "\\n";
        else if (point == U'\t')
            out += "\\t";
        else if (point < 0x20 || (point >= 0x7F && point < 0xA0))
            out += fmt::format("\\x{:02X}", static_cast<unsigned>(point));
        else
            out += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

std::string hex(std::span<const std::byte> bytes)
{
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const std::byte byte : bytes)
        for (const int shift : {4, 0})
            out += "0123456789abcdef"[std::to_integer<unsigned>(byte) >> shift & 0xF];
    return out;
}

std::string grouped(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, ",");
    return digits;
}

std::string byteSize(std::uint64_t bytes)
{
    constexpr std::array<const char*, 5> units{"kB", "MB", "GB", "TB", "PB"};
    if (bytes < 1000)
        return fmt::format("{} bytes", bytes);
    double size = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    for (; size >= 999.95 && unit + 1 < units.size(); ++unit)
        size /= 1000;
    return fmt::format("{:.1f} {} ({} bytes)", size, units[unit], grouped(bytes));
}

std::string duration(std::int64_t seconds)
{
    if (seconds < 120)
        return fmt::format("{} s", seconds);
    if (seconds < 2 * 3600)
        return fmt::format("{} min", seconds / 60);
    if (seconds < 2 * 86400)
        return fmt::format("{} h", seconds / 3600);
    return fmt::format("{} days", seconds / 86400);
}

}  // namespace kaldb::tool
