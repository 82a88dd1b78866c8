// Records of a table, and the index records that go with them.

#include "common/trace.h"
#include "kaldbtable/table.h"

#include <kaldb/identifiers.h>

namespace kaldb {

namespace {

constexpr TraceSource tableSource(const char16_t* operation) { return {u"kaldbtable: ", operation}; }

/// `notSupported` on a table without identifiers, `notOpen` when its index could not be opened.
Status requireIndex(const KALDBTable& table)
{
    if (table.index != nullptr)
        return Status::success;
    return table.chain->carriesIdentifiers() ? Status::notOpen : Status::notSupported;
}

}  // namespace

Status insertTableRecord(KALDBTable& table, void* record, KALDBID* id)
{
    constexpr TraceSource here = tableSource(u"kaldbTableInsertRecord");
    if (table.chain->binary())
        return Status::notSupported;
    KALDBIndexRecord locator = emptyLocator();
    const bool identified = table.chain->carriesIdentifiers();
    if (Status s = kaldbInsertChainRecord(*table.chain, record, identified ? &locator : nullptr); failed(s))
        return s;
    if (!identified)
        return Status::success;
    if (table.index != nullptr)
        if (Status s = kaldbIndexInsertRecord(*table.index, locator); failed(s))
            KAL_TRACE(here, s, u"could not insert index");
    if (id != nullptr)
        kaldbIDCopy(id, &locator.id);
    return Status::success;
}

Status deleteTableRecord(KALDBTable& table, void* key, KALDBID* id)
{
    constexpr TraceSource here = tableSource(u"kaldbTableDeleteRecord");
    KALDBIndexRecord locator = emptyLocator();
    if (Status s = kaldbDeleteChainRecord(*table.chain, key, &locator); failed(s))
        return s;
    if (table.index == nullptr)
        return Status::success;
    if (id != nullptr)
        kaldbIDCopy(id, &locator.id);
    if (Status s = kaldbIndexDeleteRecord(*table.index, locator); failed(s))
        return KAL_TRACE(here, s, u"could not delete index record");
    return Status::success;
}

Status deleteTableRecordByID(KALDBTable& table, const KALDBID& id)
{
    constexpr TraceSource here = tableSource(u"kaldbTableDeleteRecordByID");
    if (Status s = requireIndex(table); failed(s))
        return s;
    KALDBIndexRecord locator = emptyLocator();
    if (Status s = kaldbIndexGetRecord(*table.index, id, locator); failed(s))
        return s == Status::notFound ? s : KAL_TRACE(here, s, u"could not retrieve index record");
    if (Status s = kaldbDeleteChainRecordByID(*table.chain, locator); failed(s))
        return s;
    if (Status s = kaldbIndexDeleteRecord(*table.index, locator); failed(s))
        return KAL_TRACE(here, s, u"could not delete index record");
    return Status::success;
}

namespace {

struct IndexCleaning {
    KALDBIndex* index;
    Status status = Status::success;
};

void deleteIndexRecord(void* context, const KALDBID& id)
{
    auto& cleaning = *static_cast<IndexCleaning*>(context);
    KALDBIndexRecord locator = emptyLocator();
    kaldbIDCopy(&locator.id, &id);
    keepFirst(cleaning.status, kaldbIndexDeleteRecord(*cleaning.index, locator));
}

}  // namespace

Status deleteTableRecordsByPartialKey(KALDBTable& table, const void* key, KALBTreeCompare compare)
{
    constexpr TraceSource here = tableSource(u"kaldbTableDeletePartialPK");
    if (table.index == nullptr)
        return kaldbDeleteChainPartialKey(*table.chain, key, compare);
    IndexCleaning cleaning{table.index};
    if (Status s = kaldbDeleteChainPartialKey(*table.chain, key, compare, {deleteIndexRecord, &cleaning}); failed(s))
        return s;
    if (failed(cleaning.status))
        return KAL_TRACE(here, cleaning.status, u"could not delete index record");
    return Status::success;
}

Status queryTableByID(KALDBTable& table, const KALDBID& id, void* record)
{
    constexpr TraceSource here = tableSource(u"kaldbTableQueryID");
    if (Status s = requireIndex(table); failed(s))
        return s;
    KALDBIndexRecord locator = emptyLocator();
    if (Status s = kaldbIndexGetRecord(*table.index, id, locator); failed(s))
        return s == Status::notFound ? s : KAL_TRACE(here, s, u"could not retrieve index");
    return kaldbQueryChainID(*table.chain, locator, record);
}

}  // namespace kaldb
