// The catalogue's record: one for every chain of the file.
#pragma once

#include "common/page_number.h"

#include <kaldb/types.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

enum KALDBObjectKind : std::int32_t {
    KALDB_OBJECT_ROOT = 1,   // the catalogue itself
    KALDB_OBJECT_TABLE = 3,  // tables, the system tables among them
    KALDB_OBJECT_INDEX = 6,  // identifier indexes
};

inline constexpr std::size_t chainNameSize = 32;  // with the terminating NUL

struct KALDBRootObject {
    KALDBID id;  // stamped by the root chain; the zero identifier in its own entry
    char16_t name[chainNameSize];
    std::int32_t kind;
    PageNumber topPage;    // where searches and insertions start
    PageNumber firstPage;  // where walks over a binary chain start
    std::uint32_t alignment;
    KALDBID nextID;  // the next identifier that the chain hands out
    std::uint32_t recordSize;
    std::uint32_t flags;
};
static_assert(sizeof(KALDBRootObject) == 120 && offsetof(KALDBRootObject, name) == 16 &&
              offsetof(KALDBRootObject, kind) == 80 && offsetof(KALDBRootObject, topPage) == 84 &&
              offsetof(KALDBRootObject, firstPage) == 88 && offsetof(KALDBRootObject, nextID) == 96 &&
              offsetof(KALDBRootObject, recordSize) == 112 && offsetof(KALDBRootObject, flags) == 116);
static_assert(std::is_trivially_copyable_v<KALDBRootObject>);

/// An identifier of all bytes 0xFF.
KALDBID zeroIdentifier();
/// The locator that names no record.
KALDBIndexRecord emptyLocator();
/// Copies at most 31 characters and ends them.
void copyChainName(char16_t (&destination)[chainNameSize], const char16_t* source);
/// A record with only `kind` and `name` set, which is all that the root chain's order reads.
KALDBRootObject rootObjectKey(std::int32_t kind, const char16_t* name);

/// The root chain's order: kind, then name by code units. Reads unaligned records.
std::int32_t compareRootObjects(const void* probe, const void* stored);
/// The order by kind alone.
std::int32_t compareRootObjectKinds(const void* probe, const void* stored);

}  // namespace kaldb
