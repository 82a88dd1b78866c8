// Deletion. No item moves: the tree is relinked around the slot.
//
//        above                 above
//          |                     |
//          i          ->         a          r, the greatest item below a, takes the whole greater subtree b
//         / \                     \         .
//        a   b                     r
//         \                         \       .
//          r                         b
//
// Everything that the file may have wrong is looked at before the first write.

#include "kalbtree/internal.h"

namespace kaldb {
namespace {

/// What is to be written.
struct Removal {
    SlotIndex replacement = noSlot;  // takes the slot's place under its parent
    SlotIndex adopter = noSlot;      // takes the greater subtree, when both children exist
    SlotIndex* link = nullptr;       // names the slot: the root, or one of its parent's children
    SlotIndex smallest = noSlot;
    SlotIndex largest = noSlot;
};

template <SlotIndex KALBTreeSlot::*Link>
Status findEnd(BTreeParts page, SlotIndex start, SlotIndex& found)
{
    SlotIndex current = start;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(current); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        const SlotIndex onward = page.slots[current].*Link;
        if (onward == noSlot) {
            found = current;
            return Status::success;
        }
        current = onward;
    }
    return Status::failure;
}

Status findReplacement(BTreeParts page, const KALBTreeSlot& slot, Removal& removal)
{
    if ((slot.prev != noSlot && !page.has(slot.prev)) || (slot.next != noSlot && !page.has(slot.next)))
        return Status::failure;
    if (slot.prev == noSlot) {
        removal.replacement = slot.next;
        return Status::success;
    }
    removal.replacement = slot.prev;
    return slot.next == noSlot ? Status::success : btreeFindRightmost(page, slot.prev, removal.adopter);
}

Status findLink(BTreeParts page, SlotIndex index, Compare compare, Removal& removal)
{
    const SlotIndex parent = page.slots[index].parent;
    if (page.header->root == index) {
        removal.link = &page.header->root;
        return parent == noSlot ? Status::success : Status::failure;
    }
    if (!page.has(parent))
        return Status::failure;
    const std::int32_t order = compare(page.item(index), page.item(parent));
    if (order == 0)
        return Status::notApplicable;
    KALBTreeSlot& above = page.slots[parent];
    removal.link = order < 0 ? &above.prev : &above.next;
    return *removal.link == index ? Status::success : Status::failure;
}

/// An end of the tree has no child outwards: when it goes, the end of its inner subtree follows, or else its parent.
Status findEnds(BTreeParts page, SlotIndex index, Removal& removal)
{
    const KALBTreeSlot& slot = page.slots[index];
    removal.smallest = page.header->smallest;
    removal.largest = page.header->largest;
    if (removal.smallest == index) {
        removal.smallest = slot.parent;
        if (slot.next != noSlot)
            if (Status s = btreeFindLeftmost(page, slot.next, removal.smallest); failed(s))
                return s;
    }
    if (removal.largest == index) {
        removal.largest = slot.parent;
        if (slot.prev != noSlot)
            if (Status s = btreeFindRightmost(page, slot.prev, removal.largest); failed(s))
                return s;
    }
    return Status::success;
}

Status plan(BTreeParts page, SlotIndex index, Compare compare, Removal& removal)
{
    const KALBTreeSlot& slot = page.slots[index];
    if (Status s = findReplacement(page, slot, removal); failed(s))
        return s;
    if (Status s = findLink(page, index, compare, removal); failed(s))
        return s;
    if (Status s = findEnds(page, index, removal); failed(s))
        return s;
    const bool last = removal.link == &page.header->root && removal.replacement == noSlot;
    return page.header->count != 0 && last == (page.header->count == 1) ? Status::success : Status::failure;
}

}  // namespace

Status btreeFindLeftmost(BTreeParts page, SlotIndex start, SlotIndex& found)
{
    return findEnd<&KALBTreeSlot::prev>(page, start, found);
}

Status btreeFindRightmost(BTreeParts page, SlotIndex start, SlotIndex& found)
{
    return findEnd<&KALBTreeSlot::next>(page, start, found);
}

Status btreeDeleteNode(BTreeParts page, SlotIndex index, Compare compare)
{
    KALBTreeSlot& slot = page.slots[index];
    if (slot.flags != 0)
        return Status::notApplicable;
    Removal removal;
    if (Status s = plan(page, index, compare, removal); failed(s))
        return s;

    if (removal.adopter != noSlot) {
        page.slots[removal.adopter].next = slot.next;
        page.slots[slot.next].parent = removal.adopter;
    }
    if (removal.replacement != noSlot)
        page.slots[removal.replacement].parent = slot.parent;
    *removal.link = removal.replacement;
    slot.prev = slot.next = slot.parent = noSlot;
    slot.flags = btreeSlotFree;
    --page.header->count;
    page.header->smallest = removal.smallest;
    page.header->largest = removal.largest;
    return Status::success;
}

Status BTreeView::remove(const void* key, Compare compare, SlotIndex& index) const
{
    static constexpr TraceSource here = btreeSource(u"kalBTreeDeleteItem");
    const BTreeParts page{page_};
    SlotIndex found = noSlot;
    if (Status s = btreeFindItemIndex(page, key, compare, found); failed(s)) {
        KAL_TRACE(here, u"could not find item index");
        return s;
    }
    const Status status = btreeDeleteNode(page, found, compare);
    if (status == Status::notApplicable)
        return Status::notFound;
    if (failed(status))
        return KAL_TRACE(here, status, u"could not delete item");
    index = found;
    return Status::success;
}

Status BTreeView::removeIndex(SlotIndex index, Compare compare) const
{
    return index < maxCount() ? btreeDeleteNode(BTreeParts{page_}, index, compare) : Status::notFound;
}

}  // namespace kaldb
