// Inserting one record: the checks before it, the descent to its page, the identifier, the slot.

#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"
#include "kaldbroot/catalogue.h"

#include <kaldb/database.h>
#include <kaldb/identifiers.h>

namespace kaldb {

Status dbchainCheckConstraints(std::uint32_t mode, const KALDBChain& chain, const void* record)
{
    constexpr TraceSource here = chainSource(u"dbchainCheckConstraints");
    if (chain.callbacks.checkConstraints == nullptr)
        return Status::success;
    std::uint32_t field = 0;
    const std::uint32_t answer = chain.callbacks.checkConstraints(mode, record, &field);
    if (answer == KALDB_FIELD_SUCCESS)
        return Status::success;
    KAL_TRACE(here, u"constraint failure:");
    KAL_TRACE(verbatim, u"  %s - field %ld\n", kaldbGetErrorString(answer), field);
    return asStatus(answer);
}

namespace {

/// The record lies beyond the page's edge on a side without a child. A page less than three quarters full takes it; a
/// fuller one sprouts a child, so that edge pages keep room for records inside their range.
Status dbchainFindInsertLeafPage(const KALDBChain& chain, Side side, ChainPage& page, ChainPage& chosen)
{
    constexpr static TraceSource here = chainSource(u"dbchainFindInsertLeafPage");
    if (!page.tree().shouldSplit()) {
        chosen = std::move(page);
        return Status::success;
    }
    ChainPage leaf{here, u"could not unload page %ld"};
    if (Status s = leaf.create(LockType::write); failed(s))
        return KAL_TRACE(here, s, u"could not create new page");
    KAL_TRACE(here, u"created new page %ld", leaf.number());
    leaf.links().parent = page.number();
    KAL_TRACE(here, u"new page %ld, parent %ld, prev %ld, next %ld", leaf.links().page, leaf.links().parent,
              leaf.links().prev, leaf.links().next);
    if (Status s = leaf.format(chain); failed(s))
        return KAL_TRACE(here, s, u"could not format page");

    page.child(side == Side::prev) = leaf.number();
    KAL_TRACE(here, u"existing page %ld, parent %ld, prev %ld, next %ld", page.links().page, page.links().parent,
              page.links().prev, page.links().next);
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set page %ld dirty", page.number());
    chosen = std::move(leaf);
    return Status::success;
}

/// The record lies within the page's range. A full page splits first, and the half that covers the record takes it.
Status dbchainFindInsertMidPage(const KALDBChain& chain, const void* record, ChainPage& page, ChainPage& chosen)
{
    constexpr static TraceSource here = chainSource(u"dbchainFindInsertMidPage");
    // In the range of an only record lies that record alone: its page is not split for it.
    if (!page.tree().full() || page.tree().count() == 1) {
        chosen = std::move(page);
        return Status::success;
    }
    ChainPage created{here, u"could not unload page %ld"};
    if (Status s = dbchainPerformInsertSplit(chain, page, created); failed(s))
        return KAL_TRACE(here, s, u"could not split page");
    std::int32_t position = 0;
    if (Status s = page.tree().canBeHere(record, chain.callbacks.compare, position); failed(s))
        return KAL_TRACE(here, s, u"could not determine where to put record");
    chosen = std::move(position == 0 ? page : created);
    return Status::success;
}

constexpr TraceSource find = chainSource(u"dbchainFindInsertPage");

/// The descent ends at the page, on the side where it has no child or within its range (position 0).
Status takePlace(const KALDBChain& chain, const void* record, std::int32_t position, ChainPage& page, ChainPage& chosen)
{
    if (position == 0) {
        const Status status = dbchainFindInsertMidPage(chain, record, page, chosen);
        return failed(status) ? KAL_TRACE(find, status, u"could not find mid page") : status;
    }
    const Side side = position < 0 ? Side::prev : Side::next;
    const Status status = dbchainFindInsertLeafPage(chain, side, page, chosen);
    if (failed(status) && side == Side::prev)
        KAL_TRACE(find, status, u"could not find previous leaf page");
    else if (failed(status))
        KAL_TRACE(find, status, u"could not find next leaf page");
    return status;
}

/// One step of the descent: `chosen` when the page, or one that grew from it, takes the record; else `following`.
Status takeInsertStep(const KALDBChain& chain, const void* record, ChainPage& page, ChainPage& chosen,
                      EmptyPageMet& empty, PageNumber& following)
{
    if (page.tree().count() == 0 && (page.links().prev != noPage || page.links().next != noPage)) {
        empty.note(page.number());
        return dbchainPassEmptyPage(chain, page, record, chain.callbacks.compare, following);
    }
    std::int32_t position = 0;
    if (Status s = page.tree().canBeHere(record, chain.callbacks.compare, position); failed(s))
        return KAL_TRACE(find, s, u"problem searching page");
    following = position == 0 ? noPage : page.child(position < 0);
    return following != noPage ? Status::success : takePlace(chain, record, position, page, chosen);
}

}  // namespace

Status dbchainFindInsertPage(const KALDBChain& chain, const void* record, ChainPage& found, EmptyPageMet& empty)
{
    ChainPage chosen{find, u"could not unload page %ld"};
    std::int32_t position = 0;
    Status status = findInsertPlaceByOrder(chain, record, found, position);
    if (ok(status)) {
        status = takePlace(chain, record, position, found, chosen);
        if (ok(status))
            found = std::move(chosen);
        return status;
    }
    PageNumber current = noPage;
    if (Status s = kaldbGetChainTopPage(chain, current); failed(s))
        return KAL_TRACE(find, s, u"could not retrieve search page for '%s'", chain.name);
    std::uint32_t loaded = 0;
    WalkBound bound;
    for (status = Status::success; ok(status) && !chosen;) {
        KAL_TRACE(find, u"looking at page %ld", current);
        if (!bound.step())
            return damagedChain(find, current);
        ChainPage page{find, u"could not unload page %ld"};
        status = page.load(chain, LockType::write, current);
        if (failed(status)) {
            KAL_TRACE(find, status, u"could not load page %ld", current);
            break;
        }
        ++loaded;
        status = takeInsertStep(chain, record, page, chosen, empty, current);
    }
    if (ok(status))
        found = std::move(chosen);
    KAL_TRACE(find, u"loaded %ld pages", loaded);
    noteDescent(chain, loaded);
    return status;
}

namespace {

constexpr TraceSource insertion = chainSource(u"kaldbInsertChainRecord");

/// Stamps the chain's next identifier into the record. Where none is to be had the record gets the zero identifier:
/// whatever stood there could be another record's, and the index would take the one for the other.
KALDBID stampIdentifier(const KALDBChain& chain, void* record)
{
    KALDBID id = zeroIdentifier();
    if (Status s = kaldbGetNextObjectID(chain, id); failed(s))
        KAL_TRACE(insertion, s, u"could not retrieve next record ID");
    auto stamped = readField<KALDBID>(record);
    kaldbIDCopy(&stamped, &id);
    writeField(record, 0, stamped);
    return id;
}

Status insertIntoPage(const KALDBChain& chain, const ChainPage& page, void* record, KALDBIndexRecord* locator)
{
    const KALDBID id = chain.carriesIdentifiers() ? stampIdentifier(chain, record) : zeroIdentifier();
    SlotIndex index = noSlot;
    // A full page is chosen only when it holds nothing but an equal record.
    const Status inserted =
        page.tree().full() ? Status::alreadyExists : page.tree().insert(record, chain.callbacks.compare, index);
    if (failed(inserted)) {
        if (page.tree().count() == 0)
            dropPageOrder(chain);
        if (inserted == Status::alreadyExists)
            KAL_TRACE(insertion, u"record already exists");
        else
            KAL_TRACE(insertion, inserted, u"could not insert record into btree");
        return inserted;
    }
    KAL_TRACE(insertion, u"inserted record on to page %ld at index %ld", page.number(), index);
    if (chain.carriesIdentifiers() && locator != nullptr) {
        *locator = emptyLocator();
        locator->id = id;
        locator->page = page.number();
        locator->index = index;
    }
    followInsertion(chain, page, index);
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(insertion, s, u"could not set page dirty");
    return Status::success;
}

}  // namespace

Status kaldbInsertChainRecord(KALDBChain& chain, void* record, KALDBIndexRecord* locator)
{
    const ChainOperation operation{chain, ChainOperation::Purpose::change};
    if (failed(operation.status()))
        return operation.status();
    if (Status s = dbchainCheckConstraints(0, chain, record); failed(s))
        return s;
    if (Status s = recordEvent(chain, KALDB_EVENT_BEFORE_INSERT, Status::success, record); failed(s))
        return s;
    ChainPage page{insertion, u"could not unload page"};
    EmptyPageMet empty;
    if (Status s = dbchainFindInsertPage(chain, record, page, empty); failed(s)) {
        if (s == Status::notFound)
            KAL_TRACE(insertion, u"could not find page to insert record");
        else
            KAL_TRACE(insertion, s, u"could not find page");
        return s;
    }
    const Status status = insertIntoPage(chain, page, record, locator);
    tellRecordEvent(chain, KALDB_EVENT_AFTER_INSERT, status, record);
    if (Status s = page.release(); failed(s))
        KAL_TRACE(insertion, s, u"could not unload page");
    dbchainRetryRemoval(chain, empty);
    return status;
}

}  // namespace kaldb
