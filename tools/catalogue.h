// The chains of a file: what the root chain says of each.
#pragma once

#include "kaldbroot/layout.h"
#include "page_view.h"
#include "walk.h"

#include <string>
#include <string_view>
#include <vector>

namespace kaldb::tool {

/// One chain of the file.
struct Chain {
    std::string name;  // UTF-8
    KALDBRootObject object{};
    PageNumber page = noPage;  // where its root object lies
    SlotIndex slot = noSlot;

    bool binary() const { return (object.flags & KALDB_CHAIN_BINARY) != 0; }
    bool withIds() const { return (object.flags & KALDB_CHAIN_GUID) != 0; }
    bool system() const { return (object.flags & KALDB_CHAIN_SYSTEM) != 0; }
    bool table() const { return object.kind == KALDB_OBJECT_TABLE; }
    ChainShape shape() const { return {object.topPage, object.firstPage, object.recordSize, binary()}; }
};

inline constexpr const char* schemaTableName = "KaldbSchema";
inline constexpr const char* textTableName = "SysVarString";
inline constexpr const char* valueTableName = "SysBinary";

struct Catalogue {
    std::vector<Chain> chains;    // in the root chain's order, its own entry first
    std::vector<Damage> damages;  // what kept the root chain from being read whole

    /// Null when there is none.
    const Chain* find(std::int32_t kind, std::string_view name) const;
    const Chain* table(std::string_view name) const { return find(KALDB_OBJECT_TABLE, name); }
};

Catalogue readCatalogue(const PageFile& file);

}  // namespace kaldb::tool
