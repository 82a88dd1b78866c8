// The bytes of a root object: the record of the root chain that describes one chain of the file.
#pragma once

#include <kaldb/types.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

/// The kinds of chains.
inline constexpr std::int32_t KALDB_OBJECT_ROOT = 1;
inline constexpr std::int32_t KALDB_OBJECT_TABLE = 3;
inline constexpr std::int32_t KALDB_OBJECT_INDEX = 6;

inline constexpr std::size_t rootNameChars = 32;

struct KALDBRootObject {
    KALDBID id;                    // stamped by the root chain; its own entry keeps the zero identifier
    char16_t name[rootNameChars];  // NUL-terminated
    std::int32_t kind;
    std::uint32_t topPage;    // where searches and insertions start
    std::uint32_t firstPage;  // where walks over a binary chain start
    std::uint32_t alignment;  // never read
    KALDBID nextID;           // the identifier that the chain hands out next
    std::uint32_t recordSize;
    std::uint32_t flags;  // KALDB_CHAIN_...
};
static_assert(sizeof(KALDBRootObject) == 120 && offsetof(KALDBRootObject, name) == 16 &&
              offsetof(KALDBRootObject, kind) == 80 && offsetof(KALDBRootObject, topPage) == 84 &&
              offsetof(KALDBRootObject, firstPage) == 88 && offsetof(KALDBRootObject, nextID) == 96 &&
              offsetof(KALDBRootObject, recordSize) == 112 && offsetof(KALDBRootObject, flags) == 116);
static_assert(std::is_trivially_copyable_v<KALDBRootObject>);
static_assert(sizeof(KALDBID) == 16 && offsetof(KALDBID, sequence) == 8);
static_assert(sizeof(KALDBIndexRecord) == 24 && offsetof(KALDBIndexRecord, page) == 16 &&
              offsetof(KALDBIndexRecord, index) == 20);

}  // namespace kaldb
