// From a page to the page that follows it in key order, and the walk over a whole chain.

#include "kalbtree/walk.h"
#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"
#include "kaldbroot/catalogue.h"

namespace kaldb {

Status dbchainEnumFindSmallest(const KALDBChain& chain, LockType lock, PageNumber page, ChainPage& found,
                               WalkBound& bound, [[maybe_unused]] const void* enumerator)
{
    constexpr static TraceSource here = chainSource(u"dbchainEnumFindSmallest");
    for (PageNumber current = page;;) {
        KAL_TRACE(here, u"enumerator 0x%08X looking at page %ld", traceAddress(enumerator), current);
        if (!bound.step())
            return damagedChain(here, current);
        ChainPage visited{here, u"could not unload page %ld"};
        if (Status s = visited.load(chain, lock, current); failed(s))
            return KAL_TRACE(here, s, u"enumerator 0x%08X could not load page %ld", traceAddress(enumerator), current);
        current = visited.links().prev;
        if (current == noPage) {
            found = std::move(visited);
            return Status::success;
        }
    }
}

namespace {

/// The first ancestor that the page lies on the `prev` side of.
Status dbchainEnumFindFromParent(const KALDBChain& chain, LockType lock, const ChainPage& page, ChainPage& found,
                                 WalkBound& bound, [[maybe_unused]] const void* enumerator)
{
    constexpr static TraceSource here = chainSource(u"dbchainEnumFindFromParent");
    PageNumber child = page.number();
    PageNumber current = page.links().parent;
    while (current != noPage) {
        KAL_TRACE(here, u"enumerator 0x%08X looking at page %ld", traceAddress(enumerator), current);
        if (!bound.step())
            return damagedChain(here, current);
        ChainPage visited{here, u"could not unload page %ld"};
        if (Status s = visited.load(chain, lock, current); failed(s))
            return KAL_TRACE(here, s, u"enumerator 0x%08X could not load page %ld", traceAddress(enumerator), current);
        if (visited.links().next != child) {
            found = std::move(visited);
            return Status::success;
        }
        child = current;
        current = visited.links().parent;
    }
    return Status::endOfEnumeration;
}

}  // namespace

Status dbchainSuccessor(const KALDBChain& chain, LockType lock, const ChainPage& current, ChainPage& next,
                        WalkBound& bound, const void* enumerator)
{
    if (current.links().next != noPage)
        return dbchainEnumFindSmallest(chain, lock, current.links().next, next, bound, enumerator);
    return dbchainEnumFindFromParent(chain, lock, current, next, bound, enumerator);
}

Status dbchainEnumFindNextPage(const KALDBChain& chain, LockType lock, const ChainPage& current, ChainPage& next,
                               WalkBound& bound, const void* enumerator)
{
    constexpr static TraceSource here = chainSource(u"dbchainEnumFindNextPage");
    if (!bound.step())
        return damagedChain(here, current.number());
    PageNumber following = noPage;
    const Status status = neighbourByOrder(chain, 1, current, Neighbour::next, following);
    if (ok(status) && ok(next.load(chain, lock, following)) && next.tree().count() > 0)
        return status;
    if (status == Status::endOfEnumeration)
        return status;
    if (Status s = dbchainSuccessor(chain, lock, current, next, bound, enumerator); failed(s))
        return s;
    while (next.tree().count() == 0) {
        ChainPage beyond{here, u"could not unload page %ld"};
        if (Status s = dbchainSuccessor(chain, lock, next, beyond, bound, enumerator); failed(s)) {
            ignore(next.release());
            return s;
        }
        next = std::move(beyond);
    }
    return Status::success;
}

namespace {

constexpr TraceSource walk = chainSource(u"kaldbEnumChainWithCallback");

/// Hands the records of one page over; `endOfEnumeration` when the walk is to go on with the next page.
Status handOverPage(const ChainPage& page, void* context, KALDBEnumCallback callback)
{
    KALBTreePage* tree = page.tree().page();
    BTreeWalk records;
    Status status = BTreeWalk::begin(page.tree(), {}, records);
    // The page does not change under the walk, so more records than it holds come from links that run in a circle.
    for (std::uint32_t left = page.tree().count(); ok(status); --left) {
        std::byte* record = nullptr;
        status = left == 0 ? damagedChain(walk, page.number()) : records.current(tree, record);
        if (failed(status)) {
            KAL_TRACE(walk, status, u"could not retrieve item");
            break;
        }
        status = asStatus(callback(context, record));
        if (failed(status))
            KAL_TRACE(walk, status, u"callback function failed");
        else
            status = records.moveNext(tree);
    }
    return status;
}

/// A walk through the chain, counted as long as it runs.
class CallbackWalk {
public:
    explicit CallbackWalk(ChainState* state) : state_(state)
    {
        if (state_ != nullptr)
            ++state_->walks;
    }
    ~CallbackWalk()
    {
        if (state_ != nullptr)
            --state_->walks;
    }
    CallbackWalk(const CallbackWalk&) = delete;
    CallbackWalk& operator=(const CallbackWalk&) = delete;

private:
    ChainState* state_;
};

/// The leftmost page of the tree that holds a record; `notFound` in an empty chain.
Status firstFilledPage(const KALDBChain& chain, ChainPage& page, WalkBound& bound)
{
    PageNumber first = noPage;
    if (ok(firstPageByOrder(chain, 1, nullptr, first)) && ok(page.load(chain, LockType::read, first)) &&
        page.tree().count() > 0)
        return Status::success;
    PageNumber top = noPage;
    if (Status s = kaldbGetChainTopPage(chain, top); failed(s))
        return KAL_TRACE(walk, s, u"could not find sequence page");
    if (Status s = dbchainEnumFindSmallest(chain, LockType::read, top, page, bound, nullptr); failed(s))
        return KAL_TRACE(walk, s, u"could not load sequence page %ld", top);
    if (page.tree().count() > 0)
        return Status::success;
    ChainPage next{walk, u"could not unload page"};
    const Status status = dbchainEnumFindNextPage(chain, LockType::read, page, next, bound, nullptr);
    page = std::move(next);
    return status == Status::endOfEnumeration ? Status::notFound : status;
}

}  // namespace

Status kaldbEnumChainWithCallback(KALDBChain& chain, void* context, KALDBEnumCallback callback)
{
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    const CallbackWalk counted{chain.state};
    ChainPage page{walk, u"could not unload page"};
    WalkBound bound{WalkBound::inKeyOrder};
    Status status = firstFilledPage(chain, page, bound);
    while (ok(status)) {
        status = handOverPage(page, context, callback);
        if (status != Status::endOfEnumeration)
            break;
        ChainPage next{walk, u"could not unload page"};
        status = dbchainEnumFindNextPage(chain, LockType::read, page, next, bound, nullptr);
        if (failed(status) && status != Status::endOfEnumeration)
            KAL_TRACE(walk, status, u"could not move next page");
        page = std::move(next);
    }
    return status == Status::endOfEnumeration ? Status::success : status;
}

}  // namespace kaldb
