// Keeping the order of a chain's pages in step with its pages.

#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"

namespace kaldb {

namespace {

/// The order to be followed; null when there is none, or when its compare function is another handle's.
PageOrder* followedOrder(const KALDBChain& chain)
{
    if (chain.state == nullptr || chain.state->order.empty())
        return nullptr;
    if (chain.state->order.orderedBy() == chain.callbacks.compare)
        return &chain.state->order;
    dropPageOrder(chain);
    return nullptr;
}

/// Carries a change out; one that fails or throws costs the order.
template <class Change>
void follow(const KALDBChain& chain, Change&& change) noexcept
{
    PageOrder* order = followedOrder(chain);
    if (order == nullptr)
        return;
    bool followed = false;
    try {
        followed = ok(change(*order));
    } catch (...) {
        // No memory, or a compare function that throws.
    }
    if (!followed)
        dropPageOrder(chain);
}

/// The place of a page that begins with the record, or began with a greater one before.
Status placeOf(const KALDBChain& chain, PageOrder& order, PageNumber page, const std::byte* record,
               PageOrder::Place& place)
{
    const Status status = order.find(chain, record, order.orderedBy(), PageOrder::Passes::notAbove, place);
    if (failed(status) && status != Status::notFound)
        return status;
    if (ok(status) && order.page(place) == page)
        return status;
    if (status == Status::notFound)
        place = {};
    else if (!order.next(place))
        return Status::notFound;
    return order.page(place) == page ? Status::success : Status::notFound;
}

Status addPage(const KALDBChain& chain, PageOrder& order, PageNumber page, const std::byte* record)
{
    PageOrder::Place place;
    const Status status = order.find(chain, record, order.orderedBy(), PageOrder::Passes::notAbove, place);
    if (failed(status) && status != Status::notFound)
        return status;
    if (ok(status))
        ++place.entry;
    else
        place = {};
    return order.insert(chain, place, page, record);
}

}  // namespace

void followInsertion(const KALDBChain& chain, const ChainPage& page, SlotIndex index) noexcept
{
    if (page.tree().page()->smallest != index)
        return;
    follow(chain, [&](PageOrder& order) {
        const std::byte* record = page.tree().item(index);
        if (page.tree().count() == 1)
            return addPage(chain, order, page.number(), record);
        PageOrder::Place place;
        if (Status s = placeOf(chain, order, page.number(), record, place); failed(s))
            return s;
        order.setSmallest(place, record);
        return Status::success;
    });
}

void followSplit(const KALDBChain& chain, const ChainPage& existing, const ChainPage& created) noexcept
{
    follow(chain, [&](PageOrder& order) {
        std::byte* smallest = nullptr;
        std::byte* smallestLeft = nullptr;
        SlotIndex index = noSlot;
        if (Status s = created.tree().smallest(smallest, index); failed(s))
            return s;
        if (Status s = existing.tree().smallest(smallestLeft, index); failed(s))
            return s;
        PageOrder::Place place;
        if (Status s = placeOf(chain, order, existing.number(), smallest, place); failed(s))
            return s;
        order.setPage(place, created.number());
        ++place.entry;
        return order.insert(chain, place, existing.number(), smallestLeft);
    });
}

FollowedDeletion::FollowedDeletion(const KALDBChain& chain, const ChainPage& page, const void* key, Compare compare)
    : chain_(chain), page_(page)
{
    std::byte* smallest = nullptr;
    if (followedOrder(chain) == nullptr || failed(page.tree().smallest(smallest, smallest_)) ||
        compare(key, smallest) != 0)
        return;
    follow(chain, [&](PageOrder& order) {
        if (Status s = placeOf(chain, order, page.number(), smallest, place_); failed(s))
            return s;
        order.noteFound(place_);
        order_ = &order;
        return Status::success;
    });
}

FollowedDeletion::~FollowedDeletion()
{
    if (order_ != nullptr)
        dropPageOrder(chain_);
}

void FollowedDeletion::recordLeft(SlotIndex index)
{
    if (order_ == nullptr)
        return;
    std::byte* smallest = nullptr;
    SlotIndex newSmallest = noSlot;
    if (index == smallest_) {
        if (failed(page_.tree().smallest(smallest, newSmallest)))
            return;  // the page is empty
        order_->setSmallest(place_, smallest);
    }
    order_ = nullptr;
}

void FollowedDeletion::pageLeft()
{
    if (order_ != nullptr && ok(order_->erase(chain_, place_)))
        order_ = nullptr;
}

}  // namespace kaldb
