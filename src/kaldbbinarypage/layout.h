// The bytes of a binary page.
//
//   0                 28            28 + (20 + slotDataSize)
//   | KALDBBinaryPage | slot 0      | slot 1 ...
//                     | header (20), data (slotDataSize)
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"

#include <kaldb/binary_page.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

static_assert(sizeof(KALDBBinaryPage) == 28 && offsetof(KALDBBinaryPage, typeName) == 4 &&
              offsetof(KALDBBinaryPage, size) == 8 && offsetof(KALDBBinaryPage, slotDataSize) == 12 &&
              offsetof(KALDBBinaryPage, maxCount) == 16 && offsetof(KALDBBinaryPage, count) == 20 &&
              offsetof(KALDBBinaryPage, reserved) == 24);
static_assert(std::is_trivially_copyable_v<KALDBBinaryPage>);

struct KALDBBinarySlot {
    std::uint32_t inUse;
    std::uint32_t totalSize;  // of the whole value that the piece belongs to
    std::uint32_t length;     // bytes of data in this slot
    PageNumber nextPage;      // the piece that follows
    SlotIndex nextIndex;
    std::uint16_t unused;
};
static_assert(sizeof(KALDBBinarySlot) == 20 && offsetof(KALDBBinarySlot, totalSize) == 4 &&
              offsetof(KALDBBinarySlot, length) == 8 && offsetof(KALDBBinarySlot, nextPage) == 12 &&
              offsetof(KALDBBinarySlot, nextIndex) == 16);
static_assert(std::is_trivially_copyable_v<KALDBBinarySlot>);

}  // namespace kaldb
