// Text as it is shown: names from the file, numbers with their groups, sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kaldb::tool {

/// UTF-8 of UTF-16; half a surrogate pair becomes U+FFFD.
std::string utf8(std::u16string_view text);
/// UTF-16 of valid UTF-8.
std::u16string utf16(std::string_view text);

/// The offset of the first byte that is not valid UTF-8; npos when all of it is.
std::size_t findInvalidUtf8(std::string_view text);
std::string latin1ToUtf8(std::string_view text);

/// Code points, roughly the columns that a terminal needs.
std::size_t textWidth(std::string_view text);
/// The text with control characters escaped, so that a file's content cannot drive a terminal.
std::string printable(std::string_view text);

std::string hex(std::span<const std::byte> bytes);
/// "8,761,436"
std::string grouped(std::uint64_t number);
/// "8.8 MB (8,761,436 bytes)"
std::string byteSize(std::uint64_t bytes);
/// "2 h", "3 days"
std::string duration(std::int64_t seconds);

}  // namespace kaldb::tool
