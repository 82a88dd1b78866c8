// Overwriting a stored record with a new version of the same key. A record never moves by an update.

#include "kaldbchain/enumerator.h"
#include "kaldbchain/internal.h"

namespace kaldb {

namespace {

/// Writes the new version over the stored record of the same key.
Status overwrite(const TraceSource& here, const KALDBChain& chain, const ChainPage& page, const void* record)
{
    const Status status = page.tree().update(record, chain.callbacks.compare);
    if (status == Status::notFound)
        KAL_TRACE(here, u"record not found");
    else if (failed(status))
        KAL_TRACE(here, status, u"could not update record in btree");
    else if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set page dirty");
    return status;
}

// A current record that a split moved is found by its key.

Status loadCurrentPage(const KALDBChain& chain, const KALDBChainEnum& walk, ChainPage& page)
{
    return walk.isRemoved ? dbchainFindUpdatePage(chain, walk.removed(), page)
                          : page.load(chain, walk.lockType, walk.page);
}

Status findCurrentRecord(const KALDBChain& chain, const KALDBChainEnum& walk, const ChainPage& page, std::byte*& record)
{
    return walk.isRemoved ? page.tree().search(walk.removed(), chain.callbacks.compare, record)
                          : walk.btreeEnum.current(page.tree().page(), record);
}

}  // namespace

Status kaldbUpdateChainRecord(KALDBChain& chain, void* record)
{
    constexpr static TraceSource here = chainSource(u"kaldbUpdateChainRecord");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    if (Status s = dbchainCheckConstraints(0, chain, record); failed(s))
        return s;
    ChainPage page{here, u"could not unload page"};
    if (Status s = dbchainFindUpdatePage(chain, record, page); failed(s)) {
        if (s == Status::notFound)
            KAL_TRACE(here, u"could not find page to update record");
        else
            KAL_TRACE(here, s, u"could not find page");
        return s;
    }
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_UPDATE, Status::success, record); failed(s))
        return s;
    const Status status = overwrite(here, chain, page, record);
    tellRecordEvent(chain, KALDB_EVENT_AFTER_UPDATE, status, record);
    return status;
}

Status kaldbUpdateCurrentChainRecord(KALDBChain& chain, KALEnumerator* enumerator, void* record)
{
    constexpr static TraceSource here = chainSource(u"kaldbUpdateCurrentChainRecord");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    KALDBChainEnum* walk = nullptr;
    if (Status s = chainEnumeratorOf(chain, enumerator, walk); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve user data");
    if (Status s = dbchainCheckConstraints(1, chain, record); failed(s))
        return s;
    ChainPage page{here, u"could not unload page"};
    if (Status s = loadCurrentPage(chain, *walk, page); failed(s))
        return KAL_TRACE(here, s, u"could not load page");
    std::byte* current = nullptr;
    if (Status s = findCurrentRecord(chain, *walk, page, current); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve record");

    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_DELETE, Status::success, current); failed(s))
        return s;
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_INSERT, Status::success, record); failed(s))
        return s;
    if (Status s = overwrite(here, chain, page, record); failed(s))
        return s;
    tellRecordEvent(chain, KALDB_EVENT_AFTER_INSERT, Status::success, record);
    tellRecordEvent(chain, KALDB_EVENT_AFTER_DELETE, Status::success, current);
    return Status::success;
}

Status updateUnderReadLock(KALDBChain& chain, const void* record)
{
    constexpr static TraceSource here = chainSource(u"updateUnderReadLock");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    EmptyPageMet empty;
    if (Status s = dbchainFindSearchPage(chain, record, page, empty); failed(s))
        return s;
    return overwrite(here, chain, page, record);
}

}  // namespace kaldb
