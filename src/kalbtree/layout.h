// The bytes of a B-tree page.
//
//   0              32             32 + 8m             32 + 8m + m * itemSize        m = maxCount
//   | KALBTreePage | m slots      | m items           |
//
// Slot i and item i stay together from insertion to deletion: locators kept elsewhere name them. The slots in use form
// one binary search tree; a free slot has flag 1 and no links. Slots are 4-byte aligned, items are not aligned at all.
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"

#include <kaldb/btree_page.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

inline constexpr std::array<char, 4> btreeTypeName{'B', 'T', 'R', '\0'};
inline constexpr std::uint32_t btreeHeaderLength = 32;

static_assert(sizeof(KALBTreePage) == btreeHeaderLength && offsetof(KALBTreePage, typeName) == 4 &&
              offsetof(KALBTreePage, size) == 8 && offsetof(KALBTreePage, itemSize) == 12 &&
              offsetof(KALBTreePage, maxCount) == 16 && offsetof(KALBTreePage, count) == 20 &&
              offsetof(KALBTreePage, root) == 24 && offsetof(KALBTreePage, smallest) == 26 &&
              offsetof(KALBTreePage, largest) == 28 && offsetof(KALBTreePage, reserved) == 30);
static_assert(std::is_trivially_copyable_v<KALBTreePage>);

struct KALBTreeSlot {
    SlotIndex prev;    // child with the smaller items
    SlotIndex next;    // child with the greater items
    SlotIndex parent;  // noSlot in the root and in free slots
    std::uint8_t flags;
    std::uint8_t reserved;  // neither written nor read
};
inline constexpr std::uint8_t btreeSlotFree = 0x1;

static_assert(sizeof(KALBTreeSlot) == 8 && offsetof(KALBTreeSlot, next) == 2 && offsetof(KALBTreeSlot, parent) == 4 &&
              offsetof(KALBTreeSlot, flags) == 6 && offsetof(KALBTreeSlot, reserved) == 7);
static_assert(std::is_trivially_copyable_v<KALBTreeSlot>);

/// Two bytes an item are left over at the page's end.
inline constexpr std::uint32_t btreeSpareItemBytes = 2;

/// How many items a page formatted with `size` holds. Slot indexes end below `noSlot`, and so does the count.
constexpr std::uint32_t btreeCapacity(std::uint32_t size, std::uint32_t itemSize)
{
    if (size < btreeHeaderLength)
        return 0;
    const std::uint64_t perItem = std::uint64_t{itemSize} + sizeof(KALBTreeSlot) + btreeSpareItemBytes;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>((size - btreeHeaderLength) / perItem, noSlot));
}

/// Bytes that header, slots and items take together.
constexpr std::uint64_t btreeBytes(std::uint32_t maxCount, std::uint32_t itemSize)
{
    return btreeHeaderLength + maxCount * (sizeof(KALBTreeSlot) + std::uint64_t{itemSize});
}

inline KALBTreeSlot* btreeSlots(KALBTreePage* page) { return static_cast<KALBTreeSlot*>(static_cast<void*>(page + 1)); }
inline std::byte* btreeItems(KALBTreePage* page)
{
    return static_cast<std::byte*>(static_cast<void*>(btreeSlots(page) + page->maxCount));
}

}  // namespace kaldb
