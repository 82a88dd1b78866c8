// Walking from item to item in key order.

#include "kalbtree/walk.h"

#include "kalbtree/internal.h"

namespace kaldb {
namespace {

using Selection = BTreeWalk::Selection;

/// Up from `index` to the first ancestor that it lies on the smaller side of.
Status climb(BTreeParts page, SlotIndex index, SlotIndex& found)
{
    SlotIndex child = index;
    SlotIndex parent = page.slots[index].parent;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(parent); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        if (page.slots[parent].prev == child)
            break;
        child = parent;
        parent = page.slots[parent].parent;
    }
    if (parent != noSlot && !page.has(parent))
        return Status::failure;
    found = parent;
    return Status::success;
}

/// The next matching item in key order after slot `index`, or `noSlot`.
Status btreeFindNextItemIndex(BTreeParts page, SlotIndex index, Selection wanted, SlotIndex& found)
{
    SlotIndex next = noSlot;
    if (page.slots[index].next != noSlot) {
        const SlotIndex below = page.slots[index].next;
        if (Status s = btreeFindFirstItemIndex(page, below, wanted.key, wanted.compare, next); failed(s))
            return s;
    }
    if (next == noSlot) {
        if (Status s = climb(page, index, next); failed(s))
            return s;
        if (next != noSlot && wanted.compare != nullptr && wanted.compare(wanted.key, page.item(next)) != 0)
            next = noSlot;
    }
    found = next;
    return Status::success;
}

/// Whether a walk from slot `index` comes to an end; `failure` when links lead round.
Status checkWalkEnds(BTreeParts page, SlotIndex index, Selection wanted)
{
    for (std::uint32_t stepsLeft = page.maxCount; index != noSlot; --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        if (Status s = btreeFindNextItemIndex(page, index, wanted, index); failed(s))
            return s;
    }
    return Status::success;
}

}  // namespace

Status BTreeWalk::begin(BTreeView page, Selection wanted, BTreeWalk& walk)
{
    if (page.count() == 0)
        return Status::notFound;
    SlotIndex first = page.page()->smallest;
    if (wanted.compare != nullptr)
        if (Status s =
                btreeFindFirstItemIndex(BTreeParts{page.page()}, page.page()->root, wanted.key, wanted.compare, first);
            failed(s))
            return s;
    if (wanted.compare != nullptr && first == noSlot)
        return Status::notFound;
    walk.wanted_ = wanted;
    walk.itemSize_ = page.itemSize();
    walk.stepsLeft_ = page.maxCount();
    walk.start_ = walk.current_ = first;
    return Status::success;
}

Status BTreeWalk::moveNext(KALBTreePage* header)
{
    static constexpr TraceSource here = btreeSource(u"btreeEnumMoveSequential");
    KAL_TRACE(here, u"locating item");
    if (!fits(header))
        return Status::failure;
    const BTreeParts page{header};
    SlotIndex next = noSlot;
    if (current_ != noSlot) {
        if (!page.has(current_))
            return Status::failure;
        if (Status s = btreeFindNextItemIndex(page, current_, wanted_, next); failed(s))
            return s;
    }
    if (next == noSlot)
        return Status::endOfEnumeration;
    if (stepsLeft_ == 0) {
        // Items that come and go make a walk this long too; only an endless one is refused.
        if (Status s = checkWalkEnds(page, next, wanted_); failed(s))
            return s;
        stepsLeft_ = page.maxCount;
    }
    --stepsLeft_;
    current_ = next;
    return Status::success;
}

Status BTreeWalk::current(KALBTreePage* header, std::byte*& item) const
{
    if (!fits(header) || current_ >= header->maxCount)
        return Status::failure;
    item = BTreeView{header}.item(current_);
    return Status::success;
}

}  // namespace kaldb
