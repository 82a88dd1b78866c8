// Records of a table, and the index records that go with them.

#include "common/trace.h"
#include "kaldbtable/table.h"

#include <kaldb/identifiers.h>

namespace kaldb {

namespace {

constexpr TraceSource tableSource(const char16_t* operation) { return {u"kaldbtable: ", operation}; }

/// Takes the record's identifier out of the index. One that is not there is as good as taken out.
Status forgetIdentifier([[maybe_unused]] const TraceSource& here, KALDBIndex& index, const KALDBIndexRecord& locator)
{
    const Status status = kaldbIndexDeleteRecord(index, locator);
    if (failed(status))
        KAL_TRACE(here, status, u"could not delete index record");
    return status == Status::notFound ? Status::success : status;
}

/// `notSupported` on a table without identifiers, `notOpen` when its index was never made.
Status requireIndex(KALDBTable& table)
{
    const Status reached = reachIndex(table);
    if (table.index != nullptr)
        return Status::success;
    if (failed(reached))
        return reached;
    return table.chain->carriesIdentifiers() ? Status::notOpen : Status::notSupported;
}

}  // namespace

Status insertTableRecord(KALDBTable& table, void* record, KALDBID* id)
{
    constexpr TraceSource here = tableSource(u"kaldbTableInsertRecord");
    if (table.chain->binary())
        return Status::notSupported;
    if (Status s = reachIndex(table); failed(s))
        return s;
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
    if (Status s = reachIndex(table); failed(s))
        return s;
    KALDBIndexRecord locator = emptyLocator();
    if (Status s = kaldbDeleteChainRecord(*table.chain, key, &locator); failed(s))
        return s;
    if (table.index == nullptr)
        return Status::success;
    if (id != nullptr)
        kaldbIDCopy(id, &locator.id);
    return forgetIdentifier(here, *table.index, locator);
}

Status deleteTableRecordByID(KALDBTable& table, const KALDBID& id)
{
    constexpr TraceSource here = tableSource(u"kaldbTableDeleteRecordByID");
    if (Status s = requireIndex(table); failed(s))
        return s;
    if (Status s = reachIndex(table); failed(s))
        return s;
    KALDBIndexRecord locator = emptyLocator();
    if (Status s = kaldbIndexGetRecord(*table.index, id, locator); failed(s))
        return s == Status::notFound ? s : KAL_TRACE(here, s, u"could not retrieve index record");
    if (Status s = kaldbDeleteChainRecordByID(*table.chain, locator); failed(s))
        return s;
    return forgetIdentifier(here, *table.index, locator);
}

namespace {

constexpr TraceSource partialDeletion = tableSource(u"kaldbTableDeletePartialPK");

struct IndexCleaning {
    KALDBIndex* index;
    Status status = Status::success;
};

void deleteIndexRecord(void* context, const KALDBID& id)
{
    auto& cleaning = *static_cast<IndexCleaning*>(context);
    KALDBIndexRecord locator = emptyLocator();
    kaldbIDCopy(&locator.id, &id);
    keepFirst(cleaning.status, forgetIdentifier(partialDeletion, *cleaning.index, locator));
}

}  // namespace

Status deleteTableRecordsByPartialKey(KALDBTable& table, const void* key, KALBTreeCompare compare)
{
    if (Status s = reachIndex(table); failed(s))
        return s;
    if (table.index == nullptr)
        return kaldbDeleteChainPartialKey(*table.chain, key, compare);
    IndexCleaning cleaning{table.index};
    if (Status s = kaldbDeleteChainPartialKey(*table.chain, key, compare, {deleteIndexRecord, &cleaning}); failed(s))
        return s;
    return cleaning.status;
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
