// Deleting records by key, by locator and by partial key. A page that a deletion empties leaves the tree.

#include "kaldbchain/enumerator.h"
#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"

#include <kaldb/identifiers.h>

namespace kaldb {

namespace {

Status dbchainIsPageEmpty(const ChainPage& page, bool& empty)
{
    empty = page.tree().count() == 0;
    return Status::success;
}

void orphanIfEmpty(const KALDBChain& chain, ChainPage& page, FollowedDeletion& following)
{
    bool empty = false;
    if (failed(dbchainIsPageEmpty(page, empty)) || !empty)
        return;
    // The only page of the tree stays. Another that cannot go now goes when a later operation meets it.
    const KALDBPageLinks& links = page.links();
    const bool onlyPage = links.parent == noPage && links.prev == noPage && links.next == noPage;
    if (ok(dbchainOrphanPage(chain, page)) && !onlyPage)
        following.pageLeft();
}

void reportDeletion(const TraceSource& here, const KALDBChain& chain, PageNumber page, SlotIndex index)
{
    if (chain.callbacks.indexUpdate == nullptr)
        return;
    KALDBIndexRecord from = emptyLocator();
    from.page = page;
    from.index = index;
    const KALDBIndexRecord to = emptyLocator();
    if (Status s = asStatus(chain.callbacks.indexUpdate(&from, &to, chain.context)); failed(s))
        KAL_TRACE(here, s, u"index update function failed");
}

void markDirty(const TraceSource& here, const ChainPage& page)
{
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set page dirty");
}

}  // namespace

namespace {

constexpr TraceSource byKey = chainSource(u"kaldbDeleteChainRecord");

/// The identifier of the record about to go. Its absence is not the deletion's result.
void copyIdentifier(const KALDBChain& chain, const ChainPage& page, const void* key, KALDBIndexRecord& locator)
{
    std::byte* item = nullptr;
    if (Status s = page.tree().search(key, chain.callbacks.compare, item); failed(s)) {
        KAL_TRACE(byKey, s, u"could not retrieve item");
        return;
    }
    const auto id = readField<KALDBID>(item);
    kaldbIDCopy(&locator.id, &id);
}

Status deleteFromPage(const KALDBChain& chain, ChainPage& page, const void* key, KALDBIndexRecord* locator)
{
    SlotIndex index = noSlot;
    FollowedDeletion following{chain, page, key, chain.callbacks.compare};
    if (Status s = page.tree().remove(key, chain.callbacks.compare, index); failed(s)) {
        following.recordStays();
        return s == Status::notFound ? s : KAL_TRACE(byKey, s, u"could not delete item");
    }
    following.recordLeft(index);
    keepCurrentRecord(page, index);
    if (locator != nullptr) {
        locator->page = page.number();
        locator->index = index;
        reportDeletion(byKey, chain, page.number(), index);
    }
    orphanIfEmpty(chain, page, following);
    markDirty(byKey, page);
    return Status::success;
}

}  // namespace

Status kaldbDeleteChainRecord(KALDBChain& chain, void* key, KALDBIndexRecord* locator)
{
    KAL_TRACE(byKey, u"deleting chain record");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{byKey, u"could not unload page"};
    EmptyPageMet empty;
    if (Status s = dbchainFindSearchPage(chain, key, page, empty); failed(s))
        return KAL_TRACE(byKey, s, u"could not find search page");
    KALDBIndexRecord* wanted = chain.carriesIdentifiers() ? locator : nullptr;
    if (wanted != nullptr)
        copyIdentifier(chain, page, key, *wanted);
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_DELETE, Status::success, key); failed(s))
        return s;
    const Status status = deleteFromPage(chain, page, key, wanted);
    tellRecordEvent(chain, KALDB_EVENT_AFTER_DELETE, status, key);
    if (Status s = page.release(); failed(s))
        KAL_TRACE(byKey, s, u"could not unload page");
    dbchainRetryRemoval(chain, empty);
    return status;
}

Status kaldbDeleteChainRecordByID(KALDBChain& chain, const KALDBIndexRecord& locator)
{
    constexpr static TraceSource here = chainSource(u"kaldbDeleteChainRecordByID");
    KAL_TRACE(here, u"loading page %ld", locator.page);
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.loadByLocator(chain, LockType::write, locator.page); failed(s))
        return KAL_TRACE(chainSource(u"kaldbDeleteChainRecordBtID"), s, u"could not load page %ld", locator.page);
    std::byte* record = nullptr;
    if (Status s = page.tree().getIndex(locator.index, record); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve record");
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_DELETE, Status::success, record); failed(s))
        return s;
    SlotIndex index = noSlot;
    FollowedDeletion following{chain, page, record, chain.callbacks.compare};
    const Status status = page.tree().remove(record, chain.callbacks.compare, index);
    if (ok(status)) {
        following.recordLeft(index);
        keepCurrentRecord(page, index);
        orphanIfEmpty(chain, page, following);
        reportDeletion(here, chain, page.number(), index);
        markDirty(here, page);
    } else {
        following.recordStays();
        if (status != Status::notFound)
            KAL_TRACE(here, status, u"could not delete item");
    }
    tellRecordEvent(chain, KALDB_EVENT_AFTER_DELETE, status, nullptr);
    return status;
}

namespace {

constexpr TraceSource byPartialKey = chainSource(u"kaldbDeleteChainPartialKey");

/// Deletes one match of the page; `notFound` when it holds none any more.
Status deleteOneMatch(const KALDBChain& chain, ChainPage& page, const void* key, Compare compare,
                      const DeletionListener& listener)
{
    SlotIndex index = noSlot;
    if (Status s = page.tree().searchIndex(key, compare, index); failed(s))
        return s;
    FollowedDeletion following{chain, page, key, compare};
    if (Status s = page.tree().remove(key, compare, index); failed(s)) {
        following.recordStays();
        KAL_TRACE(verbatim, u"kaldbchain: kaldbDeleteChainPartialKey() could not delete record [0x%02X]\n", code(s));
        return s;
    }
    KALDBID id = zeroIdentifier();
    if (chain.carriesIdentifiers())
        id = readField<KALDBID>(page.tree().item(index));  // the one that was removed
    following.recordLeft(index);
    keepCurrentRecord(page, index);
    orphanIfEmpty(chain, page, following);
    if (chain.carriesIdentifiers())
        reportDeletion(byPartialKey, chain, page.number(), index);
    markDirty(byPartialKey, page);
    if (listener.deleted != nullptr)
        listener.deleted(listener.context, id);
    return Status::success;
}

/// Clears the first page that holds matches; `notFound` when there is none.
Status clearFirstPage(const KALDBChain& chain, const void* key, Compare compare, const DeletionListener& listener,
                      EmptyPageMet& empty)
{
    ChainPage page{byPartialKey, u"could not unload page %ld"};
    if (Status s = dbchainFindFirstItemPage(chain, LockType::write, key, compare, page, empty); failed(s)) {
        if (s != Status::notFound)
            KAL_TRACE(byPartialKey, s, u"could not retrieve search page for '%s'", chain.name);
        return s;
    }
    bool deletedAny = false;
    for (;;) {
        const Status status = deleteOneMatch(chain, page, key, compare, listener);
        if (failed(status))
            return status == Status::notFound && deletedAny ? Status::success : status;
        deletedAny = true;
    }
}

}  // namespace

Status kaldbDeleteChainPartialKey(KALDBChain& chain, const void* key, Compare compare, DeletionListener listener)
{
    KAL_TRACE(byPartialKey, u"deleting chain with partial key");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    Status status = Status::success;
    EmptyPageMet empty;
    while (ok(status))
        status = clearFirstPage(chain, key, compare, listener, empty);
    dbchainRetryRemoval(chain, empty);
    return status == Status::notFound ? Status::success : status;
}

Status kaldbDeleteCurrentChainRecord(KALDBChain&, KALEnumerator*) { return Status::notSupported; }

}  // namespace kaldb
