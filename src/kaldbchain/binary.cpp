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

/// The page at one place of the list that is remembered, or one that grew before it; `notFound` when the page is full
/// and another follows.
Status tryPlace(const KALDBChain& chain, LockType lock, PageList& pages, std::size_t place, ChainPage& found)
{
    ChainPage page{find, u"could not unload page %ld"};
    if (Status s = page.load(chain, lock, pages[place]); failed(s))
        return s;
    pages.setRoom(place);
    if (!page.binary().full()) {
        found = std::move(page);
        return Status::success;
    }
    const PageNumber following = page.links().next;
    const bool last = place + 1 == pages.size();
    if (following == noPage) {
        if (Status s = growBeforeLast(chain, page, found); failed(s))
            return s;
        return last && pages.insertBeforeLast(found.number()) ? Status::success : Status::failure;
    }
    if (last ? !pages.append(following) : pages[place + 1] != following)
        return Status::failure;
    return Status::notFound;
}

/// The same page, past those that are known to be full. `notApplicable` when the list is not what is remembered of it.
Status findPastFullPages(const KALDBChain& chain, LockType lock, ChainPage& found)
{
    if (chain.state == nullptr || plainDescents())
        return Status::notApplicable;
    PageList& pages = chain.state->pages;
    Status status = Status::success;
    try {
        PageNumber first = noPage;
        if (pages.size() == 0)
            status = kaldbGetChainFirstPage(chain, first);
        if (ok(status) && pages.size() == 0)
            pages.append(first);
        std::size_t place = pages.room();
        while (ok(status) && !found) {
            status = tryPlace(chain, lock, pages, place, found);
            if (status == Status::notFound) {
                status = Status::success;
                ++place;
            }
        }
    } catch (const std::bad_alloc&) {
        status = Status::outOfMemory;
    }
    if (failed(status))
        pages.drop();
    return found ? Status::success : Status::notApplicable;
}

/// The first page along the list with a free slot.
Status dbchainFindBinaryPage(const KALDBChain& chain, LockType lock, ChainPage& found)
{
    if (Status s = findPastFullPages(chain, lock, found); s != Status::notApplicable)
        return s;
    PageNumber current = noPage;
    if (Status s = kaldbGetChainFirstPage(chain, current); failed(s))
        return KAL_TRACE(find, s, u"could not retrieve initial page for '%s'", chain.name);
    WalkBound bound;
    for (;;) {
        KAL_TRACE(find, u"looking at page %ld", current);
        if (!bound.step())
            return damagedChain(find, current);
        ChainPage page{find, u"could not unload page %ld"};
        if (Status s = page.load(chain, lock, current); failed(s))
            return KAL_TRACE(find, s, u"could not load page %ld", current);
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
    KALDBBinaryRecord piece = record;
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_INSERT, Status::success, &piece); failed(s))
        return s;
    const Status status = insertIntoPage(here, page, piece, locator);
    ignore(recordEvent(chain, KALDB_EVENT_AFTER_INSERT, status, &piece));
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
    if (chain.state != nullptr)
        chain.state->pages.noteRoom(page.number());
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
