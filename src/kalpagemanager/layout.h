// The bytes of the page file.
//
//   0            92             92 + 2048            92 + 2048 n
//   | header     | page 0       | page 1 ...         | page n
//                | common header (28) | body (2020)  |
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"

#include <kaldb/types.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

inline constexpr std::uint32_t fileHeaderLength = 92;
inline constexpr std::uint32_t pageSize = 2048;
inline constexpr std::uint32_t pageHeaderLength = 28;
inline constexpr std::uint32_t usablePageSize = pageSize - pageHeaderLength;
inline constexpr std::uint32_t fileVersion = 1;
inline constexpr std::uint32_t fileDirty = 0x1;
inline constexpr std::uint32_t pageDirty = KALPAGEMAN_PAGE_DIRTY;
inline constexpr std::uint32_t pageUnused = KALPAGEMAN_PAGE_UNUSED;

struct KALPageFileHeader {
    char typeName[4];  // "PMR"
    char name[64];     // zeros
    std::uint32_t headerLength;
    std::uint32_t pageSize;
    std::uint32_t pagesInFile;
    PageNumber startPage;  // the page of the root chain's own entry
    std::uint32_t version;
    std::uint32_t flags;  // bit 0: open, or not closed cleanly
};
static_assert(sizeof(KALPageFileHeader) == fileHeaderLength && offsetof(KALPageFileHeader, name) == 4 &&
              offsetof(KALPageFileHeader, headerLength) == 68 && offsetof(KALPageFileHeader, pageSize) == 72 &&
              offsetof(KALPageFileHeader, pagesInFile) == 76 && offsetof(KALPageFileHeader, startPage) == 80 &&
              offsetof(KALPageFileHeader, version) == 84 && offsetof(KALPageFileHeader, flags) == 88);
static_assert(std::is_trivially_copyable_v<KALPageFileHeader>);

struct KALPageHeader {
    std::uint32_t headerLength;
    char typeName[4];  // "PGE"
    PageNumber page;   // noPage in a cache slot that holds none
    std::uint32_t references;
    std::uint32_t flags;
    std::uint32_t lastUsed;  // when the page was created, in seconds since 1970
    std::uint32_t checksum;  // always 0
};
static_assert(sizeof(KALPageHeader) == pageHeaderLength && offsetof(KALPageHeader, typeName) == 4 &&
              offsetof(KALPageHeader, page) == 8 && offsetof(KALPageHeader, references) == 12 &&
              offsetof(KALPageHeader, flags) == 16 && offsetof(KALPageHeader, lastUsed) == 20 &&
              offsetof(KALPageHeader, checksum) == 24);
static_assert(std::is_trivially_copyable_v<KALPageHeader>);

/// Where page `page` begins in the file.
constexpr std::uint64_t pageOffset(PageNumber page) { return fileHeaderLength + std::uint64_t{page} * pageSize; }

}  // namespace kaldb
