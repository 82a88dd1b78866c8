// Insertion: the record goes into the lowest free slot, which becomes a leaf of the tree.

#include "kalbtree/internal.h"

#include <cstring>

namespace kaldb {
namespace {

/// A slot as one number: its flags lie in bits 48 to 55.
std::uint64_t slotWord(const KALBTreeSlot* slot) { return readField<std::uint64_t>(slot); }
constexpr std::uint64_t freeBit = std::uint64_t{btreeSlotFree} << (8 * offsetof(KALBTreeSlot, flags));

/// Where a new leaf goes.
struct LeafPlace {
    SlotIndex parent = noSlot;
    SlotIndex KALBTreeSlot::*link = nullptr;  // of the parent
    bool wentPrev = false;
    bool wentNext = false;
};

Status descend(BTreeParts page, const std::byte* item, Compare compare, LeafPlace& place)
{
    SlotIndex current = page.header->root;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(current); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        const std::int32_t order = compare(item, page.item(current));
        // Branches rather than conditional moves, as in a search.
        if (order > 0) [[likely]] {
            place.link = &KALBTreeSlot::next;
            place.wentNext = true;
        } else if (order < 0) {
            place.link = &KALBTreeSlot::prev;
            place.wentPrev = true;
        } else {
            return Status::alreadyExists;
        }
        place.parent = current;
        current = page.slots[current].*place.link;
    }
    return current == noSlot ? Status::success : Status::failure;
}

}  // namespace

SlotIndex btreeFindFreeIndex(BTreeParts page)
{
    constexpr std::uint32_t stride = 4;
    std::uint32_t i = 0;
    for (; i + stride <= page.maxCount; i += stride) {
        const KALBTreeSlot* slot = page.slots + i;
        if (((slotWord(slot) | slotWord(slot + 1) | slotWord(slot + 2) | slotWord(slot + 3)) & freeBit) != 0)
            break;
    }
    for (; i < page.maxCount; ++i)
        if ((slotWord(page.slots + i) & freeBit) != 0)
            return static_cast<SlotIndex>(i);
    return noSlot;
}

Status btreeInsertUpdate(BTreeParts page, SlotIndex index, Compare compare)
{
    static constexpr TraceSource here = btreeSource(u"btreeInsertUpdate");
    LeafPlace place;
    if (Status s = descend(page, page.item(index), compare, place); failed(s))
        return s;

    KALBTreeSlot& slot = page.slots[index];
    slot.prev = slot.next = noSlot;
    slot.parent = place.parent;
    slot.flags = 0;
    KAL_TRACE(here, u"inserted node %u, parent %u", index, place.parent);
    if (place.parent != noSlot) {
        KALBTreeSlot& parent = page.slots[place.parent];
        parent.*place.link = index;
        KAL_TRACE(here, u"parent %u, prev %u, next %u", place.parent, parent.prev, parent.next);
    }
    ++page.header->count;
    if (!place.wentNext)
        page.header->smallest = index;
    if (!place.wentPrev)
        page.header->largest = index;
    if (page.header->root == noSlot) {
        page.header->root = index;
        KAL_TRACE(here, u"root at %u", index);
    }
    return Status::success;
}

Status BTreeView::insert(const void* record, Compare compare, SlotIndex& index) const
{
    index = noSlot;
    if (count() >= maxCount())
        return Status::full;
    const BTreeParts page{page_};
    const SlotIndex free = btreeFindFreeIndex(page);
    if (free == noSlot)
        return Status::noFreeSlot;
    // The record may be a view into this page: what a caller read before it deleted it.
    std::memmove(page.item(free), record, page.itemSize);
    if (Status s = btreeInsertUpdate(page, free, compare); failed(s))
        return s;
    index = free;
    return Status::success;
}

}  // namespace kaldb
