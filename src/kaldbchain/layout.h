// The bytes of a chain's page and of the catalogue's record.
//
//   body  0         16
//         | links   | typed page: B-tree page or binary page (2004 bytes) |
#pragma once

#include "common/page_number.h"
#include "kalpagemanager/layout.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

/// The first bytes of every page of a chain. A chain of records is a binary search tree of pages: all records below
/// `prev` sort before this page's, all below `next` after them. A binary chain is a list along `next`.
struct KALDBPageLinks {
    PageNumber page;
    PageNumber parent;
    PageNumber prev;
    PageNumber next;
};
static_assert(sizeof(KALDBPageLinks) == 16 && offsetof(KALDBPageLinks, parent) == 4 &&
              offsetof(KALDBPageLinks, prev) == 8 && offsetof(KALDBPageLinks, next) == 12);
static_assert(std::is_trivially_copyable_v<KALDBPageLinks>);

/// What is really there for the typed page.
inline constexpr std::uint32_t typedPageSize = usablePageSize - sizeof(KALDBPageLinks);

}  // namespace kaldb
