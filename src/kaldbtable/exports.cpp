// The exported table operations: arguments are checked here, then the work is passed down.

#include "common/guard.h"
#include "kaldbtable/table.h"

using namespace kaldb;

namespace {

template <class... Pointers>
bool anyNull(const Pointers*... pointers)
{
    return ((pointers == nullptr) || ...);
}

template <class Function>
bool noFunction(Function* function)
{
    return function == nullptr;
}

/// Runs an operation on the records of a table whose pages keep them in order; binary tables have none.
template <class Operation>
std::uint32_t onRecords(KALDBTable* table, bool argumentsMissing, Operation&& operation)
{
    return guarded([&]() -> Status {
        if (!KALDBTable::isLive(table) || argumentsMissing)
            return Status::invalidArgument;
        return table->chain->binary() ? Status::notSupported : operation();
    });
}

/// A descriptor of bytes to be stored: no data is good enough for no bytes.
bool noBytes(const KALDBBinaryRecord* record)
{
    return record == nullptr || (record->data == nullptr && record->length > 0);
}

/// Runs an operation on the pieces of a binary table.
template <class Operation>
std::uint32_t onPieces(KALDBTable* table, bool argumentsMissing, Operation&& operation)
{
    return guarded([&]() -> Status {
        if (!KALDBTable::isLive(table) || argumentsMissing)
            return Status::invalidArgument;
        return table->chain->binary() ? operation() : Status::notSupported;
    });
}

}  // namespace

extern "C" {

uint32_t kaldbTableCreate(KALDBDatabase*, const KALDBTableInfo* info)
{
    return guarded([&] { return anyNull(info) ? Status::invalidArgument : kaldb::kaldbTableCreate(*info); });
}

uint32_t kaldbTableExists(const char16_t* name, uint32_t* exists)
{
    return guarded(
        [&] { return anyNull(name, exists) ? Status::invalidArgument : kaldb::kaldbTableExists(name, *exists); });
}

uint32_t kaldbTableDrop(KALDBDatabase*, const char16_t*) { return code(Status::notSupported); }

uint32_t kaldbTableOpen(KALDBDatabase*, const char16_t* name, const KALDBChainCallbacks* callbacks, KALDBTable** table)
{
    return guarded([&] {
        return anyNull(name, table) ? Status::invalidArgument : kaldb::kaldbTableOpen(name, callbacks, *table);
    });
}

uint32_t kaldbTableClose(KALDBTable* table)
{
    return guarded([&] { return KALDBTable::isLive(table) ? closeTable(table) : Status::invalidArgument; });
}

uint32_t kaldbTableGetInfo(KALDBTable* table, KALDBTableInfo* info)
{
    return code(!KALDBTable::isLive(table) || anyNull(info) ? Status::invalidArgument : Status::success);
}

uint32_t kaldbTableEnumerate(KALDBDatabase*, KALEnumerator** enumerator)
{
    return guarded([&] { return anyNull(enumerator) ? Status::invalidArgument : enumerateTables(*enumerator); });
}

uint32_t kaldbTableInsertRecord(KALDBTable* table, void* record, uint32_t, KALDBID* id)
{
    return onRecords(table, anyNull(record), [&] { return insertTableRecord(*table, record, id); });
}

uint32_t kaldbTableUpdateRecord(KALDBTable* table, void* record)
{
    return onRecords(table, anyNull(record), [&] { return kaldbUpdateChainRecord(*table->chain, record); });
}

uint32_t kaldbTableDeleteRecord(KALDBTable* table, void* key, uint32_t, KALDBID* id)
{
    return onRecords(table, anyNull(key), [&] { return deleteTableRecord(*table, key, id); });
}

uint32_t kaldbTableDeleteRecordByID(KALDBTable* table, const KALDBID* id)
{
    return onRecords(table, anyNull(id), [&] { return deleteTableRecordByID(*table, *id); });
}

uint32_t kaldbTableQueryID(KALDBTable* table, const KALDBID* id, void* record, uint32_t)
{
    return onRecords(table, anyNull(id, record), [&] { return queryTableByID(*table, *id, record); });
}

uint32_t kaldbTableQueryPK(KALDBTable* table, const void* key, void* record, uint32_t)
{
    return onRecords(table, anyNull(key, record),
                     [&] { return kaldbQueryChainPrimaryKey(*table->chain, key, record); });
}

uint32_t kaldbTableQueryPartialPK(KALDBTable* table, uint32_t readOnly, const void* key, KALBTreeCompare compare,
                                  KALEnumerator** enumerator)
{
    return onRecords(table, anyNull(key, enumerator) || noFunction(compare), [&] {
        return kaldbQueryChainPartialKey(*table->chain, readOnly != 0, key, compare, *enumerator);
    });
}

uint32_t kaldbTableUpdateCurrentRecord(KALDBTable* table, KALEnumerator* enumerator, void* record)
{
    return onRecords(table, anyNull(enumerator, record),
                     [&] { return kaldbUpdateCurrentChainRecord(*table->chain, enumerator, record); });
}

uint32_t kaldbTableDeletePartialPK(KALDBTable* table, const void* key, KALBTreeCompare compare)
{
    return onRecords(table, anyNull(key) || noFunction(compare),
                     [&] { return deleteTableRecordsByPartialKey(*table, key, compare); });
}

uint32_t kaldbTableDeleteCurrentRecord(KALDBTable* table, KALEnumerator* enumerator)
{
    return guarded([&] {
        return KALDBTable::isLive(table) ? kaldbDeleteCurrentChainRecord(*table->chain, enumerator)
                                         : Status::invalidArgument;
    });
}

uint32_t kaldbTableQuery(KALDBTable*, const void*) { return code(Status::failure); }

uint32_t kaldbTableEnumWithCallback(KALDBTable* table, void* context, KALDBEnumCallback callback)
{
    return onRecords(table, noFunction(callback),
                     [&] { return kaldbEnumChainWithCallback(*table->chain, context, callback); });
}

uint32_t kaldbBinaryTableInsertRecord(KALDBTable* table, const KALDBBinaryRecord* record, KALDBIndexRecord* locator)
{
    return onPieces(table, anyNull(locator) || noBytes(record),
                    [&] { return kaldbInsertBinaryChainRecord(*table->chain, *record, *locator); });
}

uint32_t kaldbBinaryTableDeleteRecord(KALDBTable* table, const KALDBIndexRecord* locator)
{
    return onPieces(table, anyNull(locator), [&] { return kaldbDeleteBinaryChainRecord(*table->chain, *locator); });
}

uint32_t kaldbBinaryTableUpdateRecord(KALDBTable* table, const KALDBIndexRecord* locator,
                                      const KALDBBinaryRecord* record)
{
    return onPieces(table, anyNull(locator) || noBytes(record),
                    [&] { return kaldbUpdateBinaryChainRecord(*table->chain, *locator, *record); });
}

uint32_t kaldbBinaryTableGetRecord(KALDBTable* table, const KALDBIndexRecord* locator, KALDBBinaryRecord* record)
{
    return onPieces(table, anyNull(locator, record) || record->data == nullptr,
                    [&] { return kaldbGetBinaryChainRecord(*table->chain, *locator, *record); });
}

}  // extern "C"
