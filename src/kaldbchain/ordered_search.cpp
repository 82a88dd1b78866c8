// Searching by the order of a chain's pages, and making that order.

#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"
#include "kaldbroot/catalogue.h"

#include <algorithm>
#include <new>

namespace kaldb {

namespace {

constexpr std::uint32_t shallow = 3;         // page loads that a descent may take
constexpr std::uint64_t firstAttempt = 64;   // excess loads that are worth the first attempt at an order
constexpr std::uint64_t pagesPerExcess = 2;  // how many pages an attempt may look at for each of them

constexpr TraceSource building = chainSource(u"buildOrder");

/// Whether a page may follow another in key order: beyond its records, and one of the two below the other.
bool mayFollow(const KALDBChain& chain, const Vector<std::byte>& largestBefore, const KALDBPageLinks& before,
               const std::byte* smallest, const KALDBPageLinks& links)
{
    return chain.callbacks.compare(smallest, largestBefore.data()) > 0 &&
           (before.next == noPage) != (links.prev == noPage);
}

/// Walks the tree of pages in key order. False when it is larger than the limit, or not what it should be.
bool buildOrder(const KALDBChain& chain, PageNumber top, std::uint64_t limit, PageOrder& order)
{
    order.begin(chain);
    ChainPage page{building, u"could not unload page %ld"};
    WalkBound bound{WalkBound::inKeyOrder};
    Status status = dbchainEnumFindSmallest(chain, LockType::read, top, page, bound, nullptr);
    Vector<std::byte> largest;
    KALDBPageLinks before{};
    for (std::uint64_t count = 0; ok(status); ++count) {
        std::byte* item = nullptr;
        SlotIndex index = noSlot;
        if (count >= limit || failed(page.tree().smallest(item, index)))
            return false;
        if (count > 0 && !mayFollow(chain, largest, before, item, page.links()))
            return false;
        order.append(page.number(), item);
        if (failed(page.tree().largest(item, index)))
            return false;
        largest.assign(item, item + chain.recordSize);
        before = page.links();
        ChainPage next{building, u"could not unload page %ld"};
        status = dbchainSuccessor(chain, LockType::read, page, next, bound, nullptr);
        page = std::move(next);
    }
    return status == Status::endOfEnumeration;
}

void attemptOrder(const KALDBChain& chain, ChainState& state)
{
    KALPageManager& manager = *chainStorage().pageManager;
    const bool damageKnown = manager.damageNoted();
    PageNumber top = noPage;
    bool built = false;
    try {
        built = ok(kaldbGetChainTopPage(chain, top)) &&
                buildOrder(chain, top, pagesPerExcess * state.excessLoads, state.order);
    } catch (...) {
        // No memory, or a compare function that throws: plain descents it is.
    }
    if (!built) {
        state.order.drop();
        manager.setDamageNoted(damageKnown);  // nobody asked for the pages that were met here
    }
    state.buildAt = built ? firstAttempt : 2 * state.excessLoads;
    state.excessLoads = built ? 0 : state.excessLoads;
}

/// The order, if there is one, when nobody but the caller can hold one of the chain's pages; `ownWalks` counts the
/// walks that the caller itself is.
PageOrder* madeOrder(const KALDBChain& chain, std::uint32_t ownWalks)
{
    ChainState* state = chain.state;
    const bool usable = state != nullptr && state->quiet(ownWalks) && !state->order.empty() &&
                        state->order.orderedBy() == chain.callbacks.compare;
    return usable ? &state->order : nullptr;
}

/// The same for a search, which holds no page yet: the order is made when that is worth it.
PageOrder* orderForSearch(const KALDBChain& chain)
{
    ChainState* state = chain.state;
    if (state != nullptr && state->order.empty() && state->excessLoads >= std::max(state->buildAt, firstAttempt) &&
        state->quiet(0) && !plainDescents())
        attemptOrder(chain, *state);
    return madeOrder(chain, 0);
}

}  // namespace

void noteDescent(const KALDBChain& chain, std::uint32_t loaded)
{
    if (chain.state != nullptr && loaded > shallow)
        chain.state->excessLoads += loaded - shallow;
}

void dropPageOrder(const KALDBChain& chain)
{
    if (chain.state == nullptr)
        return;
    chain.state->order.drop();
    chain.state->excessLoads = 0;
}

namespace {

/// What could not be done with the order makes it useless; a key that falls off the tree does not.
Status settle(const KALDBChain& chain, Status status, ChainPage& found)
{
    if (ok(status))
        return status;
    ignore(found.release());
    if (status == Status::notFound)
        return status;
    dropPageOrder(chain);
    return Status::notApplicable;
}

Status findOnlyPage(const KALDBChain& chain, PageOrder& order, LockType lock, const void* key, ChainPage& found)
{
    PageOrder::Place place;
    if (Status s = order.find(chain, key, order.orderedBy(), PageOrder::Passes::notAbove, place); failed(s))
        return s;
    return found.load(chain, lock, order.page(place));
}

/// Whether a key that is not below the page's smallest record lies beyond its greatest.
Status isBeyond(const ChainPage& page, const void* key, Compare compare, bool& beyond)
{
    std::byte* item = nullptr;
    SlotIndex index = noSlot;
    if (Status s = page.tree().largest(item, index); failed(s))
        return s;
    beyond = compare(key, item) > 0;
    return Status::success;
}

Status findPage(const KALDBChain& chain, PageOrder& order, LockType lock, const void* key, ChainPage& found)
{
    if (Status s = findOnlyPage(chain, order, lock, key, found); failed(s))
        return s;
    bool beyond = false;
    if (Status s = isBeyond(found, key, order.orderedBy(), beyond); failed(s))
        return s;
    return beyond ? Status::notFound : Status::success;
}

/// Off the tree on the page's `prev` side, where it must have no child.
Status fallOffBefore(const KALDBChain& chain, PageNumber number, ChainPage& page, std::int32_t& position)
{
    position = -1;
    if (Status s = page.load(chain, LockType::write, number); failed(s))
        return s;
    return page.links().prev == noPage ? Status::success : Status::failure;
}

Status findInsertPlace(const KALDBChain& chain, PageOrder& order, const void* record, ChainPage& page,
                       std::int32_t& position)
{
    PageOrder::Place place;
    const Status status = order.find(chain, record, order.orderedBy(), PageOrder::Passes::notAbove, place);
    if (status == Status::notFound)
        return fallOffBefore(chain, order.page(PageOrder::Place{}), page, position);
    if (failed(status))
        return status;
    if (Status s = page.load(chain, LockType::write, order.page(place)); failed(s))
        return s;
    bool beyond = false;
    if (Status s = isBeyond(page, record, order.orderedBy(), beyond); failed(s))
        return s;
    position = beyond ? 1 : 0;
    if (!beyond || page.links().next == noPage)
        return Status::success;
    if (Status s = page.release(); failed(s))
        return s;
    return order.next(place) ? fallOffBefore(chain, order.page(place), page, position) : Status::failure;
}

/// A walk that stands at the place comes to the next page soon.
void prefetchNext(const PageOrder& order, PageOrder::Place place)
{
    if (order.next(place))
        chainStorage().pageManager->prefetchPage(order.page(place));
}

/// The leftmost match is in the last page that begins before all matches, or the following page begins with it.
Status findFirstItemPage(const KALDBChain& chain, PageOrder& order, LockType lock, const void* key, Compare compare,
                         ChainPage& found)
{
    PageOrder::Place place;
    const Status status = order.find(chain, key, compare, PageOrder::Passes::below, place);
    if (failed(status) && status != Status::notFound)
        return status;
    std::int32_t position = 1;
    if (ok(status)) {
        if (Status s = found.load(chain, lock, order.page(place)); failed(s))
            return s;
        prefetchNext(order, place);
        if (Status s = found.tree().compareItem(key, compare, position); failed(s) || position == 0)
            return s;
        if (Status s = found.release(); failed(s))
            return s;
        if (!order.next(place))
            return Status::notFound;
        order.noteFound(place);
    }
    if (Status s = found.load(chain, lock, order.page(place)); failed(s))
        return s;
    if (Status s = found.tree().compareItem(key, compare, position); failed(s))
        return s;
    return position == 0 ? Status::success : Status::notFound;
}

}  // namespace

Status findPageByOrder(const KALDBChain& chain, LockType lock, const void* key, ChainPage& found)
{
    PageOrder* order = orderForSearch(chain);
    if (order == nullptr)
        return Status::notApplicable;
    return settle(chain, findPage(chain, *order, lock, key, found), found);
}

Status findOnlyPageByOrder(const KALDBChain& chain, LockType lock, const void* key, ChainPage& found)
{
    PageOrder* order = orderForSearch(chain);
    if (order == nullptr)
        return Status::notApplicable;
    return settle(chain, findOnlyPage(chain, *order, lock, key, found), found);
}

Status findInsertPlaceByOrder(const KALDBChain& chain, const void* record, ChainPage& page, std::int32_t& position)
{
    PageOrder* order = orderForSearch(chain);
    if (order == nullptr)
        return Status::notApplicable;
    return settle(chain, findInsertPlace(chain, *order, record, page, position), page);
}

Status findFirstItemPageByOrder(const KALDBChain& chain, LockType lock, const void* key, Compare compare,
                                ChainPage& found)
{
    PageOrder* order = orderForSearch(chain);
    if (order == nullptr)
        return Status::notApplicable;
    return settle(chain, findFirstItemPage(chain, *order, lock, key, compare, found), found);
}

Status neighbourByOrder(const KALDBChain& chain, std::uint32_t ownWalks, const ChainPage& page, Neighbour which,
                        PageNumber& neighbour)
{
    PageOrder* order = madeOrder(chain, ownWalks);
    PageOrder::Place place;
    if (order == nullptr || !order->locate(chain, page, place))
        return Status::notApplicable;
    if (!(which == Neighbour::next ? order->next(place) : order->previous(place)))
        return Status::endOfEnumeration;
    neighbour = order->page(place);
    if (which == Neighbour::next) {
        order->noteFound(place);
        prefetchNext(*order, place);
    }
    return Status::success;
}

Status firstPageByOrder(const KALDBChain& chain, std::uint32_t ownWalks, const ChainPage* butNot, PageNumber& page)
{
    const PageOrder* order = madeOrder(chain, ownWalks);
    if (order == nullptr)
        return Status::notApplicable;
    PageOrder::Place place;
    page = order->page(place);
    if (butNot == nullptr || page != butNot->number())
        return Status::success;
    if (!order->next(place))
        return Status::notApplicable;
    page = order->page(place);
    return Status::success;
}

}  // namespace kaldb
