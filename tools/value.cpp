#include "value.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace kaldb::tool {

namespace {

constexpr std::uint64_t signBit = std::uint64_t{1} << 63;

void putBigEndian(std::span<std::byte> field, std::uint64_t number)
{
    for (std::size_t i = 0; i < field.size(); ++i)
        field[i] = static_cast<std::byte>(number >> (8 * (field.size() - 1 - i)));
}

std::uint64_t getBigEndian(Bytes field)
{
    std::uint64_t number = 0;
    for (const std::byte byte : field)
        number = number << 8 | static_cast<std::uint64_t>(byte);
    return number;
}

// Negative numbers have all bits turned, the others the sign: greater numbers then have greater bytes.
std::uint64_t ordered(double number)
{
    const auto bits = std::bit_cast<std::uint64_t>(number);
    return (bits & signBit) != 0 ? ~bits : bits | signBit;
}
double fromOrdered(std::uint64_t bits) { return std::bit_cast<double>((bits & signBit) != 0 ? bits ^ signBit : ~bits); }

/// The bytes up to the padding.
std::string unpadded(Bytes field)
{
    const auto end = std::find(field.begin(), field.end(), std::byte{0});
    return {reinterpret_cast<const char*>(field.data()), static_cast<std::size_t>(end - field.begin())};
}

bool putBytes(const std::string& text, const Column& column, std::span<std::byte> field)
{
    if (column.type == ColumnType::bytes ? text.size() != field.size()
                                         : text.size() > field.size() || text.find('\0') != std::string::npos)
        return false;
    std::fill(field.begin(), field.end(), std::byte{0});
    std::memcpy(field.data(), text.data(), text.size());
    return true;
}

std::string whole(Bytes field) { return {reinterpret_cast<const char*>(field.data()), field.size()}; }

std::string printNumber(double number)
{
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

int hexDigit(char c)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const auto at = digits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

bool parseHex(std::string_view text, std::string& bytes)
{
    bytes.clear();
    if (text.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes += static_cast<char>(high << 4 | low);
    }
    return true;
}

}  // namespace

bool parseBool(std::string_view text, bool& value)
{
    value = text == "true";
    return value || text == "false";
}

bool parseInteger(std::string_view text, std::int64_t& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() && std::to_string(value) == text;
}

bool parseNumber(std::string_view text, double& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() && std::isfinite(value) &&
           printNumber(value) == text;
}

std::string toText(const Value& value, const Column& column)
{
    if (const auto* text = std::get_if<std::string>(&value))
        return column.type == ColumnType::bytes ? hex(std::as_bytes(std::span{*text})) : *text;
    if (const auto* flag = std::get_if<bool>(&value))
        return *flag ? "true" : "false";
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return std::to_string(*integer);
    if (const auto* number = std::get_if<double>(&value))
        return printNumber(*number);
    return {};
}

Value parseValue(std::string_view text, const Column& column)
{
    const auto refuse = [&] {
        return wrongUse(
            fmt::format("'{}' is no {} for column '{}'", printable(text), column.typeName(), printable(column.name)));
    };
    switch (column.type) {
    case ColumnType::boolean:
        if (bool value = false; parseBool(text, value))
            return value;
        throw refuse();
    case ColumnType::integer:
        if (std::int64_t value = 0; parseInteger(text, value))
            return value;
        throw refuse();
    case ColumnType::number: {
        // A number given by hand need not be in its shortest form.
        double value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error == std::errc{} && end == text.data() + text.size() && std::isfinite(value))
            return value;
        throw refuse();
    }
    case ColumnType::bytes:
        if (std::string bytes; parseHex(text, bytes))
            return bytes;
        throw refuse();
    default:
        if (findInvalidUtf8(text) != std::string_view::npos || text.find('\0') != std::string_view::npos)
            throw refuse();
        return std::string{text};
    }
}

bool encodeKey(const Value& value, const Column& column, std::span<std::byte> field)
{
    if (const auto* text = std::get_if<std::string>(&value))
        return putBytes(*text, column, field);
    if (const auto* flag = std::get_if<bool>(&value))
        putBigEndian(field, *flag ? 1 : 0);
    else if (const auto* integer = std::get_if<std::int64_t>(&value))
        putBigEndian(field, static_cast<std::uint64_t>(*integer) ^ signBit);
    else if (const auto* number = std::get_if<double>(&value))
        putBigEndian(field, ordered(*number));
    else
        return false;
    return true;
}

Value decodeKey(const Column& column, Bytes field)
{
    switch (column.type) {
    case ColumnType::boolean: return field[0] != std::byte{0};
    case ColumnType::integer: return static_cast<std::int64_t>(getBigEndian(field) ^ signBit);
    case ColumnType::number: return fromOrdered(getBigEndian(field));
    case ColumnType::bytes: return whole(field);
    default: return unpadded(field);
    }
}

bool encodeField(const Value& value, const Column& column, std::span<std::byte> field)
{
    if (const auto* text = std::get_if<std::string>(&value))
        return putBytes(*text, column, field);
    if (const auto* flag = std::get_if<bool>(&value))
        writeField(field.data(), 0, static_cast<std::uint8_t>(*flag ? 1 : 0));
    else if (const auto* integer = std::get_if<std::int64_t>(&value))
        writeField(field.data(), 0, *integer);
    else if (const auto* number = std::get_if<double>(&value))
        writeField(field.data(), 0, *number);
    else
        std::fill(field.begin(), field.end(), std::byte{0});
    return true;
}

Value decodeField(const Column& column, Bytes field)
{
    switch (column.type) {
    case ColumnType::boolean: return field[0] != std::byte{0};
    case ColumnType::integer: return readField<std::int64_t>(field.data());
    case ColumnType::number: return readField<double>(field.data());
    case ColumnType::bytes: return whole(field);
    default: return unpadded(field);
    }
}

}  // namespace kaldb::tool
