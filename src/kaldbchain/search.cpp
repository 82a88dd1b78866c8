// The read descents through the tree of pages: to the page of a key, and to the first page of a run of matches.
//
// A page whose removal was refused stays in the tree although it is empty. It has no range of its own, so a descent
// passes it by comparing with the greatest record on its `prev` side.

#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"
#include "kaldbroot/catalogue.h"

namespace kaldb {

namespace {

/// The order of `key` against the greatest record of the subtree at `top`; `notFound` when all its pages are empty.
Status dbchainCompareGreatest(const KALDBChain& chain, PageNumber top, const void* key, Compare compare,
                              std::int32_t& order)
{
    constexpr static TraceSource here = chainSource(u"dbchainCompareGreatest");
    ChainPage page{here, u"could not unload page %ld"};
    PageNumber current = top;
    PageNumber below = noPage;  // the child that the walk has come up from
    // The reverse of the key order: each page is entered from above, after its `next` and after its `prev` side.
    for (WalkBound bound{WalkBound::inKeyOrder}; bound.step();) {
        if (Status s = page.load(chain, LockType::read, current); failed(s))
            return KAL_TRACE(here, s, u"could not load page %ld", current);
        const KALDBPageLinks& links = page.links();
        const bool nextSideDone = links.next == noPage || below == links.next;
        const bool prevSideDone = below != noPage && below == links.prev;
        if (!nextSideDone && !prevSideDone) {
            current = links.next;
            below = noPage;
            continue;
        }
        std::byte* item = nullptr;
        SlotIndex index = noSlot;
        if (!prevSideDone && page.tree().count() > 0) {
            if (Status s = page.tree().largest(item, index); failed(s))
                return s;
            order = compare(key, item);
            return Status::success;
        }
        if (!prevSideDone && links.prev != noPage) {
            current = links.prev;
            below = noPage;
            continue;
        }
        if (current == top)
            return Status::notFound;
        below = current;
        current = links.parent;
        if (current == noPage)
            break;
    }
    return damagedChain(here, top);
}

/// One step of a key descent: the child on the key's side, or `found` when the page is the one.
struct Step {
    PageNumber following = noPage;
    bool arrived = false;
};

Status takeStep(const KALDBChain& chain, const ChainPage& page, const void* key, EmptyPageMet& empty, Step& step)
{
    const Compare compare = chain.callbacks.compare;
    const KALDBPageLinks& links = page.links();
    if (page.tree().count() == 0) {
        if (links.parent != noPage || links.prev != noPage || links.next != noPage)
            empty.note(page.number());
        step.arrived = links.prev == noPage && links.next == noPage;
        return step.arrived ? Status::success : dbchainPassEmptyPage(chain, page, key, compare, step.following);
    }
    std::int32_t position = 0;
    if (Status s = page.tree().canBeHere(key, compare, position); failed(s))
        return s;
    step.arrived = position == 0;
    if (position != 0) {
        step.following = position < 0 ? links.prev : links.next;
        if (step.following == noPage)
            return Status::notFound;
    }
    return Status::success;
}

}  // namespace

Status dbchainPassEmptyPage(const KALDBChain& chain, const ChainPage& page, const void* key, Compare compare,
                            PageNumber& following)
{
    const KALDBPageLinks& links = page.links();
    following = links.prev != noPage ? links.prev : links.next;
    if (links.prev == noPage || links.next == noPage)
        return Status::success;
    std::int32_t order = 0;
    const Status status = dbchainCompareGreatest(chain, links.prev, key, compare, order);
    if (failed(status) && status != Status::notFound)
        return status;
    if (status == Status::notFound || order > 0)
        following = links.next;
    return Status::success;
}

Status dbchainFindSearchHelper(const KALDBChain& chain, PageNumber start, LockType lock, const void* key,
                               ChainPage& found, EmptyPageMet& empty)
{
    constexpr static TraceSource here = chainSource(u"dbchainFindSearchHelper");
    Status status = Status::success;
    PageNumber current = start;
    std::uint32_t loaded = 0;
    WalkBound bound;
    while (ok(status)) {
        KAL_TRACE(here, u"looking at page %ld", current);
        if (!bound.step())
            return damagedChain(here, current);
        ChainPage page{here, u"could not unload page %ld"};
        status = page.load(chain, lock, current);
        if (failed(status)) {
            if (status == Status::endOfFile)
                status = Status::notFound;
            else
                KAL_TRACE(here, status, u"could not load page %ld", current);
            break;
        }
        ++loaded;
        Step step;
        status = takeStep(chain, page, key, empty, step);
        if (failed(status) && status != Status::notFound)
            KAL_TRACE(here, status, u"problem searching page");
        if (ok(status) && step.arrived) {
            found = std::move(page);
            break;
        }
        current = step.following;
    }
    KAL_TRACE(here, u"loaded %ld pages", loaded);
    noteDescent(chain, loaded);
    return status;
}

namespace {

Status descendForSearch(const KALDBChain& chain, const void* key, ChainPage& found, EmptyPageMet& empty)
{
    constexpr TraceSource here = chainSource(u"dbchainFindSearchPage");
    PageNumber top = noPage;
    if (Status s = kaldbGetChainTopPage(chain, top); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve search page for '%s'", chain.name);
    const Status status = dbchainFindSearchHelper(chain, top, LockType::read, key, found, empty);
    if (failed(status) && status != Status::notFound)
        KAL_TRACE(here, status, u"could not find subsequent search page for '%s'", chain.name);
    return status;
}

}  // namespace

Status dbchainFindSearchPage(const KALDBChain& chain, const void* key, ChainPage& found, EmptyPageMet& empty)
{
    const Status status = findPageByOrder(chain, LockType::read, key, found);
    return status == Status::notApplicable ? descendForSearch(chain, key, found, empty) : status;
}

Status dbchainFindQueryPage(const KALDBChain& chain, const void* key, ChainPage& found, EmptyPageMet& empty)
{
    const Status status = findOnlyPageByOrder(chain, LockType::read, key, found);
    return status == Status::notApplicable ? descendForSearch(chain, key, found, empty) : status;
}

Status dbchainFindUpdatePage(const KALDBChain& chain, const void* record, ChainPage& found)
{
    constexpr static TraceSource here = chainSource(u"dbchainFindUpdatePage");
    if (Status s = findPageByOrder(chain, LockType::write, record, found); s != Status::notApplicable)
        return s;
    PageNumber current = noPage;
    if (Status s = kaldbGetChainTopPage(chain, current); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve search page for '%s'", chain.name);
    WalkBound bound;
    EmptyPageMet empty;  // an update takes no page out of the tree
    for (std::uint32_t loaded = 1;; ++loaded) {
        KAL_TRACE(here, u"looking at page %ld", current);
        if (!bound.step())
            return damagedChain(here, current);
        ChainPage page{here, u"could not unload page %ld"};
        if (Status s = page.load(chain, LockType::write, current); failed(s))
            return KAL_TRACE(here, s, u"could not load page %ld", current);
        Step step;
        if (Status s = takeStep(chain, page, record, empty, step); failed(s)) {
            noteDescent(chain, loaded);
            if (s != Status::notFound)
                KAL_TRACE(here, s, u"problem searching page");
            return s;
        }
        if (step.arrived) {
            noteDescent(chain, loaded);
            found = std::move(page);
            return Status::success;
        }
        current = step.following;
    }
}

namespace {

/// One step towards the leftmost match: whether the page holds one, and where to look for an earlier one.
Status takeFirstItemStep(const TraceSource& here, const KALDBChain& chain, const ChainPage& page, const void* key,
                         Compare compare, EmptyPageMet& empty, bool& candidate, PageNumber& following)
{
    candidate = false;
    following = noPage;
    std::int32_t position = 0;
    const Status status = page.tree().compareItem(key, compare, position);
    if (status == Status::emptyPage) {
        KAL_TRACE(here, u"empty page %ld", page.number());
        empty.note(page.number());
        return dbchainPassEmptyPage(chain, page, key, compare, following);
    }
    if (failed(status))
        return status == Status::notFound ? status : KAL_TRACE(here, status, u"problem searching page");
    candidate = position == 0;
    following = position > 0 ? page.links().next : page.links().prev;
    return Status::success;
}

}  // namespace

Status dbchainFindFirstItemPage(const KALDBChain& chain, LockType lock, const void* key, Compare compare,
                                ChainPage& found, EmptyPageMet& empty)
{
    constexpr static TraceSource here = chainSource(u"dbchainFindFirstItemPage");
    if (Status s = findFirstItemPageByOrder(chain, lock, key, compare, found); s != Status::notApplicable)
        return s;
    PageNumber current = noPage;
    if (Status s = kaldbGetChainTopPage(chain, current); failed(s)) {
        if (s != Status::notFound)
            KAL_TRACE(here, s, u"could not retrieve search page for '%s'", chain.name);
        return s;
    }
    std::uint32_t loaded = 0;
    ChainPage best{here, u"could not unload found page 0x%08X"};
    WalkBound bound;
    while (current != noPage) {
        KAL_TRACE(here, u"looking at page %ld", current);
        if (!bound.step())
            return damagedChain(here, current);
        ChainPage page{here, u"could not unload page %ld"};
        if (Status s = page.load(chain, lock, current); failed(s))
            return KAL_TRACE(here, s, u"could not load page %ld", current);
        ++loaded;
        bool candidate = false;
        if (Status s = takeFirstItemStep(here, chain, page, key, compare, empty, candidate, current); failed(s)) {
            noteDescent(chain, loaded);
            return s;
        }
        if (candidate)
            best = std::move(page);
    }
    noteDescent(chain, loaded);
    if (!best)
        return Status::notFound;
    found = std::move(best);
    return Status::success;
}

}  // namespace kaldb
