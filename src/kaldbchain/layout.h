// The links of a chain's page, in the first bytes of its body; the typed page follows them.
//
//   0            28               44
//   | common     | KALDBPageLinks | typed page (2004 bytes)
//   | header     | body
#pragma once

#include "common/page_number.h"
#include "kalpagemanager/layout.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

struct KALDBPageLinks {
    PageNumber page;    // the page's own number
    PageNumber parent;  // noPage in the chain's top page
    PageNumber prev;    // the child with the records before this page's
    PageNumber next;    // the child with the records after this page's; in a binary chain the next page of the list
};
static_assert(sizeof(KALDBPageLinks) == 16 && offsetof(KALDBPageLinks, parent) == 4 &&
              offsetof(KALDBPageLinks, prev) == 8 && offsetof(KALDBPageLinks, next) == 12);
static_assert(std::is_trivially_copyable_v<KALDBPageLinks>);

/// Bytes behind the links, where a typed page may lie.
inline constexpr std::uint32_t typedPageSize = usablePageSize - sizeof(KALDBPageLinks);

}  // namespace kaldb
