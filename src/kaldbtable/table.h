// A table: a chain of records, with the identifier index that the library keeps beside it.
#pragma once

#include "common/live_handle.h"
#include "common/status.h"
#include "kaldbchain/chain.h"
#include "kaldbindex/guid_index.h"

#include <kaldb/table.h>

struct KALDBTable : kaldb::LiveHandle<KALDBTable> {
    KALDBChain* chain = nullptr;
    kaldb::KALDBIndex* index = nullptr;             // null when the table has none, or it could not be opened yet
    KALDBIndexUpdate callersIndexUpdate = nullptr;  // told after the table's own index
};

namespace kaldb {

Status kaldbTableCreate(const KALDBTableInfo& info);
Status kaldbTableExists(const char16_t* name, std::uint32_t& exists);
Status kaldbTableOpen(const char16_t* name, const KALDBChainCallbacks* callbacks, KALDBTable*& table);
Status closeTable(KALDBTable* table);

/// To be called before an operation changes the table: opens the index where the table's open could not, and sees to it
/// that no change of the index will be lost. `success` also without identifiers, or when the index was never made.
Status reachIndex(KALDBTable& table);
Status insertTableRecord(KALDBTable& table, void* record, KALDBID* id);
Status deleteTableRecord(KALDBTable& table, void* key, KALDBID* id);
Status deleteTableRecordByID(KALDBTable& table, const KALDBID& id);
Status deleteTableRecordsByPartialKey(KALDBTable& table, const void* key, KALBTreeCompare compare);
Status queryTableByID(KALDBTable& table, const KALDBID& id, void* record);

/// An enumerator over the tables of the database, standing on the first.
Status enumerateTables(KALEnumerator*& enumerator);

}  // namespace kaldb
