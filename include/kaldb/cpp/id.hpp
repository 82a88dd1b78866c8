// Identifiers of records.
#pragma once

#include <kaldb/types.h>

#include <compare>
#include <cstdint>
#include <type_traits>

namespace kaldb {

/// What the library stamps into records that begin with one. Made here it is none: no record has it.
struct id {
    std::uint16_t tag = 0xFFFF;
    std::uint16_t spare = 0xFFFF;
    std::uint32_t alignment = 0xFFFFFFFF;
    std::uint64_t sequence = 0xFFFFFFFFFFFFFFFF;  ///< counts the records inserted into a table, from 0

    bool is_none() const noexcept { return *this == id{}; }

    friend bool operator==(const id& first, const id& second) noexcept
    {
        return first.tag == second.tag && first.sequence == second.sequence;
    }
    friend std::strong_ordering operator<=>(const id& first, const id& second) noexcept
    {
        if (first.sequence != second.sequence)
            return first.sequence <=> second.sequence;
        return first.tag <=> second.tag;
    }
};
static_assert(sizeof(id) == sizeof(KALDBID) && alignof(id) == alignof(KALDBID));
static_assert(std::is_trivially_copyable_v<id> && std::is_standard_layout_v<id>);

namespace detail {

/// Turns into an identifier and into nothing else.
struct only_id {
    operator id() const;  // declared for the test below, never called
};

}  // namespace detail

/// Whether a record type begins with a kaldb::id: its table then hands out identifiers and finds records by them. Found
/// out for aggregates; specialise it for a type that has constructors.
template <class Record>
inline constexpr bool begins_with_id = std::is_aggregate_v<Record>&& requires
{
    Record{detail::only_id{}};
};

}  // namespace kaldb
