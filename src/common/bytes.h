// Bytes of the file seen as fields. Numbers are little-endian on disk, as they are in memory on every supported
// machine.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace kaldb {

static_assert(std::endian::native == std::endian::little, "the file's byte order is the machine's");

/// Reads a field wherever it lies: items inside a page are not aligned.
template <class Field>
Field readField(const void* bytes, std::size_t offset = 0)
{
    static_assert(std::is_trivially_copyable_v<Field>);
    Field field;
    std::memcpy(&field, static_cast<const std::byte*>(bytes) + offset, sizeof field);
    return field;
}

/// Writes a field wherever it lies.
template <class Field>
void writeField(void* bytes, std::size_t offset, const Field& field)
{
    static_assert(std::is_trivially_copyable_v<Field>);
    std::memcpy(static_cast<std::byte*>(bytes) + offset, &field, sizeof field);
}

}  // namespace kaldb
