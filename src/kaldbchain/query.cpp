// Point queries: one record by key or by locator.

#include "kaldbchain/internal.h"

#include <cstring>

namespace kaldb {

Status kaldbQueryChainPrimaryKey(KALDBChain& chain, const void* key, void* record)
{
    constexpr static TraceSource here = chainSource(u"kaldbQueryChainPrimaryKey");
    KAL_TRACE(here, u"querying chain via primary key");
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    EmptyPageMet empty;
    if (Status s = dbchainFindQueryPage(chain, key, page, empty); failed(s)) {
        if (s != Status::notFound)
            KAL_TRACE(here, s, u"could not find search page for '%s'", chain.name);
        return s;
    }
    std::byte* item = nullptr;
    if (Status s = page.tree().search(key, chain.callbacks.compare, item); failed(s))
        return s;
    std::memcpy(record, item, chain.recordSize);
    tellRecordEvent(chain, KALDB_EVENT_READ, Status::success, record);
    return Status::success;
}

Status kaldbQueryChainID(KALDBChain& chain, const KALDBIndexRecord& locator, void* record)
{
    constexpr static TraceSource here = chainSource(u"kaldbQueryChainID");
    KAL_TRACE(chainSource(u"kaldbQueryChainIndex"), u"loading page %ld", locator.page);
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.loadByLocator(chain, LockType::read, locator.page); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", locator.page);
    std::byte* item = nullptr;
    if (Status s = page.tree().getIndex(locator.index, item); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve item from btree");
    tellRecordEvent(chain, KALDB_EVENT_READ, Status::success, item);
    std::memcpy(record, item, chain.recordSize);
    return Status::success;
}

Status kaldbQueryChainRecords(KALDBChain& chain, const void* key)
{
    constexpr static TraceSource here = chainSource(u"kaldbQueryChainRecords");
    KAL_TRACE(here, u"querying chain ad-hoc");
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    EmptyPageMet empty;
    if (Status s = dbchainFindSearchPage(chain, key, page, empty); failed(s))
        return KAL_TRACE(here, s, u"could not find search page for '%s'", chain.name);
    if (Status s = page.release(); failed(s))
        return KAL_TRACE(here, s, u"could not unload page");
    return Status::success;
}

}  // namespace kaldb
