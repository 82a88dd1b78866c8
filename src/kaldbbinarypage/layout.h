// The bytes of a binary page.
//
//   0                 28                      28 + (20 + d)                     d = slotDataSize
//   | KALDBBinaryPage | slot header | data    | slot header | data    | ...
//
// A slot's data size is the caller's to choose, so that slot headers lie at any address.
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"

#include <kaldb/binary_page.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

inline constexpr std::array<char, 4> binaryTypeName{'B', 'P', 'G', '\0'};
inline constexpr std::uint32_t binaryHeaderLength = 28;

static_assert(sizeof(KALDBBinaryPage) == binaryHeaderLength && offsetof(KALDBBinaryPage, typeName) == 4 &&
              offsetof(KALDBBinaryPage, size) == 8 && offsetof(KALDBBinaryPage, slotDataSize) == 12 &&
              offsetof(KALDBBinaryPage, maxCount) == 16 && offsetof(KALDBBinaryPage, count) == 20 &&
              offsetof(KALDBBinaryPage, reserved) == 24 && offsetof(KALDBBinaryPage, unused) == 26);
static_assert(std::is_trivially_copyable_v<KALDBBinaryPage>);

struct KALDBBinarySlot {
    std::uint32_t inUse = 0;       // 1 while the slot holds a piece
    std::uint32_t totalSize = 0;   // of the whole value that the piece belongs to
    std::uint32_t length = 0;      // bytes of data in this slot
    PageNumber nextPage = noPage;  // where the value goes on
    SlotIndex nextIndex = noSlot;
    std::uint16_t unused = 0;  // neither written nor read
};
static_assert(sizeof(KALDBBinarySlot) == 20 && offsetof(KALDBBinarySlot, totalSize) == 4 &&
              offsetof(KALDBBinarySlot, length) == 8 && offsetof(KALDBBinarySlot, nextPage) == 12 &&
              offsetof(KALDBBinarySlot, nextIndex) == 16 && offsetof(KALDBBinarySlot, unused) == 18);
static_assert(std::is_trivially_copyable_v<KALDBBinarySlot>);

/// Bytes of a slot, header and data.
constexpr std::uint64_t binarySlotSize(std::uint32_t slotDataSize)
{
    return std::uint64_t{sizeof(KALDBBinarySlot)} + slotDataSize;
}

/// How many slots a page formatted with `size` has. Slot indexes end below `noSlot`, and so does the count.
constexpr std::uint32_t binaryCapacity(std::uint32_t size, std::uint32_t slotDataSize)
{
    if (size < binaryHeaderLength)
        return 0;
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>((size - binaryHeaderLength) / binarySlotSize(slotDataSize), noSlot));
}

/// Bytes that header and slots take together.
constexpr std::uint64_t binaryBytes(std::uint32_t maxCount, std::uint32_t slotDataSize)
{
    return binaryHeaderLength + maxCount * binarySlotSize(slotDataSize);
}

}  // namespace kaldb
