// Text: UTF-8 on the callers' side, UTF-16 on the library's, fixed character arrays in records.
#pragma once

#include <kaldb/cpp/error.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

namespace kaldb {

namespace detail {

inline constexpr std::size_t table_name_units = 32;  // with the terminator

/// Strict: ill-formed text gives KALDB_CONVERSION_FAILED, a NUL inside KALDB_INVALID_ARGUMENT.
inline std::uint32_t to_utf16(std::string_view text, std::u16string& wide)
{
    if (text.find('\0') != std::string_view::npos || text.size() >= KAL_CONVERSION_FAILED)
        return KALDB_INVALID_ARGUMENT;
    wide.resize(text.size());
    if (text.empty())
        return KALDB_SUCCESS;
    const std::uint32_t size = static_cast<std::uint32_t>(text.size());
    const std::uint32_t units = kalMultiByteToWideChar(text.data(), size, wide.data(), size);
    if (units == KAL_CONVERSION_FAILED)
        return KALDB_CONVERSION_FAILED;
    wide.resize(units);
    return KALDB_SUCCESS;
}

struct table_name {
    char16_t units[table_name_units]{};
};

/// The library would cut a name that is too long; here it is KALDB_BUFFER_TOO_SMALL.
inline std::uint32_t to_table_name(std::string_view text, table_name& name)
{
    std::u16string wide;
    if (const std::uint32_t status = to_utf16(text, wide); status != KALDB_SUCCESS)
        return status;
    if (wide.size() >= table_name_units)
        return KALDB_BUFFER_TOO_SMALL;
    std::copy(wide.begin(), wide.end(), name.units);
    return KALDB_SUCCESS;
}

/// Copies the text and fills the rest with zeros; there is always at least one.
inline std::uint32_t assign_chars(void* field, std::size_t size, std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        return KALDB_INVALID_ARGUMENT;
    if (text.size() >= size)
        return KALDB_BUFFER_TOO_SMALL;
    std::memset(field, 0, size);
    if (!text.empty())
        std::memcpy(field, text.data(), text.size());
    return KALDB_SUCCESS;
}

}  // namespace detail

/// Puts a text into a character array of a record and zeros behind it: `kaldb::assign(p.name, "bash")`. At least one
/// zero must remain; a longer text is refused with errc::buffer_too_small, one with a NUL with errc::invalid_argument,
/// and the array stays as it was.
template <std::size_t N>
void assign(char (&field)[N], std::string_view text)
{
    detail::check(detail::assign_chars(field, N, text), "assign text");
}
template <std::size_t N>
void assign(char (&field)[N], std::string_view text, std::error_code& error)
{
    detail::report(detail::assign_chars(field, N, text), error);
}

/// The text in such an array: what stands before the first NUL.
template <std::size_t N>
std::string_view text_of(const char (&field)[N])
{
    return {field, static_cast<std::size_t>(std::find(field, field + N, '\0') - field)};
}

}  // namespace kaldb
