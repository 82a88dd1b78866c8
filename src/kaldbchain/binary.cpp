// Binary chains: pieces of raw bytes addressed by page and slot.
//
// The pages form a list along `next` that starts at the root object's first page. A new page goes before the last one,
// so that the page the chain was created with stays last.

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"

#include <cstring>
#include <new>

namespace kaldb {

namespace {

constexpr TraceSource find = chainSource(u"dbchainFindBinaryPage");

/// A new page in the place of the full last one.
Status growBeforeLast(const KALDBChain& chain, ChainPage& last, ChainPage& found)
{
    if (Status s = dbchainCheckRelink(chain, last); failed(s))
        return s;
    ChainPage created{find, u"could not unload page %ld"};
    if (Status s = created.create(LockType::write); failed(s))
        return s;
    created.links().parent = last.number();
    if (Status s = created.format(chain); failed(s))
        return KAL_TRACE(find, s, u"could not format binary page, the '%s' chain is probably corrupt", chain.name);
    if (Status s = dbchainRelink(chain, last, created); failed(s))
        return KAL_TRACE(find, s, u"could not relink pages, the '%s' chain is probably corrupt", chain.name);
    found = std::move(created);
    return Status::success;
}

Status firstPage(const KALDBChain& chain, PageNumber& page)
{
    const Status status = kaldbGetChainFirstPage(chain, page);
    return failed(status) ? KAL_TRACE(find, status, u"could not retrieve initial page for '%s'", chain.name) : status;
}

Status loadPage(const KALDBChain& chain, LockType lock, PageNumber number, ChainPage& page)
{
    KAL_TRACE(find, u"looking at page %ld", number);
    const Status status = page.load(chain, lock, number);
    return failed(status) ? KAL_TRACE(find, status, u"could not load page %ld", number) : status;
}

/// What a look at a page of the list that is remembered leads to: the result, the next page, or that the list is
/// otherwise.
enum class Look { result, next, doubt };

/// The page at one place of the list, or one that grew before it.
Look lookAtPlace(const KALDBChain& chain, LockType lock, PageList& pages, std::size_t place, ChainPage& found,
                 Status& status)
{
    ChainPage page{find, u"could not unload page %ld"};
    if (status = loadPage(chain, lock, pages[place], page); failed(status))
        return Look::result;
    pages.setRoom(place);
    if (!page.binary().full()) {
        found = std::move(page);
        return Look::result;
    }
    const PageNumber following = page.links().next;
    const bool last = place + 1 == pages.size();
    if (following == noPage) {
        if (status = growBeforeLast(chain, page, found); failed(status))
            return Look::result;
        return last && pages.insertBeforeLast(found.number()) ? Look::result : Look::doubt;
    }
    return (last ? pages.append(following) : pages[place + 1] == following) ? Look::next : Look::doubt;
}

/// The same page, past those that are known to be full. False when the list is not what is remembered of it.
bool findPastFullPages(const KALDBChain& chain, LockType lock, ChainPage& found, Status& status)
{
    if (chain.state == nullptr || plainDescents())
        return false;
    PageList& pages = chain.state->pages;
    Look look = Look::doubt;
    try {
        if (pages.size() == 0) {
            PageNumber first = noPage;
            if (status = firstPage(chain, first); failed(status))
                return true;
            pages.append(first);
        }
        std::size_t place = pages.room();
        do
            look = lookAtPlace(chain, lock, pages, place++, found, status);
        while (look == Look::next);
    } catch (const std::bad_alloc&) {
        look = Look::doubt;
    }
    if (look == Look::doubt || failed(status))
        pages.drop();
    return found || look == Look::result;
}

/// The first page along the list with a free slot.
Status dbchainFindBinaryPage(const KALDBChain& chain, LockType lock, ChainPage& found)
{
    Status status = Status::success;
    if (findPastFullPages(chain, lock, found, status))
        return status;
    PageNumber current = noPage;
    if (status = firstPage(chain, current); failed(status))
        return status;
    WalkBound bound;
    for (;;) {
        if (!bound.step())
            return damagedChain(find, current);
        ChainPage page{find, u"could not unload page %ld"};
        if (status = loadPage(chain, lock, current, page); failed(status))
            return status;
        if (!page.binary().full()) {
            found = std::move(page);
            return Status::success;
        }
        current = page.links().next;
        if (current == noPage)
            return growBeforeLast(chain, page, found);
    }
}

Status insertIntoPage(const TraceSource& here, const ChainPage& page, const KALDBBinaryRecord& record,
                      KALDBIndexRecord& locator)
{
    SlotIndex index = noSlot;
    if (Status s = page.binary().insert(record, index); failed(s))
        return KAL_TRACE(here, s, u"could not insert record");
    locator.page = page.number();
    locator.index = index;
    KAL_TRACE(here, u"inserted record on to page %ld index %d", page.number(), index);
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set page dirty");
    return Status::success;
}

}  // namespace

Status kaldbInsertBinaryChainRecord(KALDBChain& chain, const KALDBBinaryRecord& record, KALDBIndexRecord& locator)
{
    constexpr static TraceSource here = chainSource(u"kaldbInsertBinaryChainRecord");
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page %ld"};
    if (Status s = dbchainFindBinaryPage(chain, LockType::write, page); failed(s))
        return KAL_TRACE(here, s, u"could not find page");
    auto* const heard = const_cast<KALDBBinaryRecord*>(&record);  // the caller's own, as for every record
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_INSERT, Status::success, heard); failed(s))
        return s;
    const Status status = insertIntoPage(here, page, record, locator);
    tellRecordEvent(chain, KALDB_EVENT_AFTER_INSERT, status, heard);
    return status;
}

Status kaldbDeleteBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator)
{
    constexpr static TraceSource here = chainSource(u"kaldbDeleteBinaryChainRecord");
    KAL_TRACE(here, u"loading page %ld", locator.page);
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.loadByLocator(chain, LockType::write, locator.page); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", locator.page);
    if (Status s = page.binary().remove(locator.index); failed(s))
        return KAL_TRACE(here, s, u"could not delete binary data");
    noteRoomInPage(page.number());
    return page.markDirty();
}

Status kaldbUpdateBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator, const KALDBBinaryRecord& record)
{
    constexpr static TraceSource here = chainSource(u"kaldbUpdateBinaryChainRecord");
    KAL_TRACE(here, u"loading page %ld", locator.page);
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.loadByLocator(chain, LockType::write, locator.page); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", locator.page);
    if (Status s = page.binary().update(locator.index, record); failed(s))
        return KAL_TRACE(here, s, u"could not update binary data");
    return page.markDirty();
}

Status kaldbGetBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator, KALDBBinaryRecord& record)
{
    constexpr static TraceSource here = chainSource(u"kaldbGetBinaryChainRecord");
    KAL_TRACE(here, u"loading page %ld", locator.page);
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.loadByLocator(chain, LockType::read, locator.page); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", locator.page);
    KALDBBinaryRecord stored{};
    Status status = page.binary().get(locator.index, stored);
    if (ok(status) && stored.length > chain.recordSize)
        status = damagedChain(here, locator.page);
    if (failed(status))
        return KAL_TRACE(here, status, u"could not retrieve binary data");
    std::memcpy(record.data, stored.data, stored.length);
    stored.data = record.data;
    record = stored;
    return Status::success;
}

}  // namespace kaldb
