// Search by key, and where a key lies beside the page's range.

#include "kalbtree/internal.h"

#include <cstring>

namespace kaldb {
namespace {

/// On which side of the page's range a key lies.
struct RangeSide {
    std::int32_t position = 0;  // -1 before, 0 within or at an end, 1 after
    bool equalsSmallest = false;
};

/// The page holds an item.
Status findSide(BTreeParts page, const void* key, Compare compare, RangeSide& side)
{
    const SlotIndex smallest = page.header->smallest;
    const SlotIndex largest = page.header->largest;
    if (!page.has(smallest) || !page.has(largest))
        return Status::failure;
    const std::int32_t order = compare(key, page.item(smallest));
    if (order < 0)
        side.position = -1;
    else if (order == 0)
        side.equalsSmallest = true;
    else if (compare(key, page.item(largest)) > 0)
        side.position = 1;
    return Status::success;
}

}  // namespace

Status btreeFindItemIndex(BTreeParts page, const void* key, Compare compare, SlotIndex& found)
{
    SlotIndex current = page.header->root;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(current); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        const std::int32_t order = compare(key, page.item(current));
        // A predicted branch runs ahead of the compare; a conditional move would wait for it at every step. Records
        // mostly arrive in ascending order, which makes the greater side the likely one.
        if (order > 0) [[likely]] {
            current = page.slots[current].next;
        } else if (order < 0) {
            current = page.slots[current].prev;
        } else {
            found = current;
            return Status::success;
        }
    }
    return current == noSlot ? Status::notFound : Status::failure;
}

Status btreeFindFirstItemIndex(BTreeParts page, SlotIndex start, const void* key, Compare compare, SlotIndex& found)
{
    static constexpr TraceSource here = btreeSource(u"btreeFindFirstItemIndex");
    SlotIndex first = noSlot;
    SlotIndex current = start;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(current); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        KAL_TRACE(here, u"looking at index %ld", current);
        const std::int32_t order = compare == nullptr ? 0 : compare(key, page.item(current));
        if (order == 0)
            first = current;  // an earlier equal item can only be on the smaller side
        current = order > 0 ? page.slots[current].next : page.slots[current].prev;
    }
    if (current != noSlot)
        return Status::failure;
    found = first;
    return Status::success;
}

Status BTreeView::update(const void* record, Compare compare) const
{
    const BTreeParts page{page_};
    SlotIndex index = noSlot;
    if (Status s = btreeFindItemIndex(page, record, compare, index); failed(s))
        return s;
    // The record may be the very item, read in place.
    std::memmove(page.item(index), record, page.itemSize);
    return Status::success;
}

Status BTreeView::getIndex(SlotIndex index, std::byte*& item) const
{
    if (index >= maxCount())
        return Status::notFound;
    item = this->item(index);
    return Status::success;
}

Status BTreeView::itemAtEnd(SlotIndex slot, std::byte*& item, SlotIndex& index) const
{
    if (count() == 0)
        return Status::emptyPage;
    if (slot >= maxCount())
        return Status::failure;
    item = this->item(slot);
    index = slot;
    return Status::success;
}

Status BTreeView::smallest(std::byte*& item, SlotIndex& index) const { return itemAtEnd(page_->smallest, item, index); }

Status BTreeView::largest(std::byte*& item, SlotIndex& index) const { return itemAtEnd(page_->largest, item, index); }

Status BTreeView::search(const void* key, Compare compare, std::byte*& item) const
{
    SlotIndex index = noSlot;
    if (Status s = searchIndex(key, compare, index); failed(s))
        return s;
    item = this->item(index);
    return Status::success;
}

Status BTreeView::searchIndex(const void* key, Compare compare, SlotIndex& index) const
{
    return btreeFindItemIndex(BTreeParts{page_}, key, compare, index);
}

Status BTreeView::compareItem(const void* key, Compare compare, std::int32_t& position) const
{
    if (count() == 0)
        return Status::emptyPage;
    const BTreeParts page{page_};
    RangeSide side;
    if (Status s = findSide(page, key, compare, side); failed(s))
        return s;
    if (side.position == 0 && !side.equalsSmallest) {
        SlotIndex first = noSlot;
        if (Status s = btreeFindFirstItemIndex(page, page_->root, key, compare, first); failed(s))
            return s;
        if (first == noSlot)
            return Status::notFound;
    }
    position = side.position;
    return Status::success;
}

Status BTreeView::canBeHere(const void* key, Compare compare, std::int32_t& position) const
{
    RangeSide side;
    if (count() != 0)
        if (Status s = findSide(BTreeParts{page_}, key, compare, side); failed(s))
            return s;
    position = side.position;
    return Status::success;
}

}  // namespace kaldb
