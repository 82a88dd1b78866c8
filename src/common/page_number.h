// Page numbers and slot indexes, and the value of each that means "none".
#pragma once

#include <kaldb/types.h>

#include <cstdint>

namespace kaldb {

using PageNumber = std::uint32_t;
using SlotIndex = std::uint16_t;

inline constexpr PageNumber noPage = KALDB_NO_PAGE;
inline constexpr SlotIndex noSlot = KALDB_NO_SLOT;

/// How a page is held. `none` as a request releases one lock.
enum class LockType : std::uint32_t {
    none = KALDB_LOCK_NONE,
    read = KALDB_LOCK_READ,
    write = KALDB_LOCK_WRITE,
    readWrite = KALDB_LOCK_READ_WRITE,
};

}  // namespace kaldb
