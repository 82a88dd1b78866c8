// Making a B-tree page, and checking the header of one that was read.

#include "kalbtree/internal.h"

#include <cstring>

namespace kaldb {
namespace {

/// The same as comparing with `btreeCapacity`, without a division: pages are measured at every load.
bool capacityFits(const KALBTreePage& page, std::uint32_t itemSize)
{
    const std::uint64_t perItem = std::uint64_t{itemSize} + sizeof(KALBTreeSlot) + btreeSpareItemBytes;
    const std::uint64_t room = page.size - std::uint64_t{btreeHeaderLength};
    return page.size >= btreeHeaderLength && page.maxCount > 0 && page.maxCount <= noSlot &&
           page.maxCount * perItem <= room && (page.maxCount == noSlot || room < (page.maxCount + 1) * perItem);
}

bool slotOrNone(const KALBTreePage& page, SlotIndex index) { return index < page.maxCount || index == noSlot; }

/// The ends of the tree name slots of the page, and none of them does in an empty page.
bool endsAgree(const KALBTreePage& page)
{
    const bool empty = page.count == 0;
    return page.count <= page.maxCount && (page.root == noSlot) == empty && (page.smallest == noSlot) == empty &&
           (page.largest == noSlot) == empty && slotOrNone(page, page.root) && slotOrNone(page, page.smallest) &&
           slotOrNone(page, page.largest);
}

}  // namespace

Status BTreeView::open(std::span<std::byte> area, std::uint32_t itemSize, BTreeView& view)
{
    if (area.size() < btreeHeaderLength)
        return Status::failure;
    auto* page = static_cast<KALBTreePage*>(static_cast<void*>(area.data()));
    if (page->headerLength != btreeHeaderLength ||
        std::memcmp(page->typeName, btreeTypeName.data(), btreeTypeName.size()) != 0 || page->itemSize != itemSize)
        return Status::failure;
    if (!capacityFits(*page, itemSize) || btreeBytes(page->maxCount, itemSize) > area.size() || !endsAgree(*page))
        return Status::failure;
    view = BTreeView{page};
    return Status::success;
}

Status BTreeView::format(std::byte* bytes, std::uint32_t size, std::uint32_t itemSize, BTreeView& view)
{
    static constexpr TraceSource here = btreeSource(u"kalBTreeFormat");
    const std::uint32_t maxCount = btreeCapacity(size, itemSize);
    if (maxCount == 0) {
        KAL_TRACE(here, u"no elements can fit on a btree page");
        return Status::bufferTooSmall;
    }

    auto* page = static_cast<KALBTreePage*>(static_cast<void*>(bytes));
    page->headerLength = btreeHeaderLength;
    std::memcpy(page->typeName, btreeTypeName.data(), btreeTypeName.size());
    page->size = size;
    page->itemSize = itemSize;
    page->maxCount = maxCount;
    page->count = 0;
    page->root = page->smallest = page->largest = noSlot;
    page->reserved = 0;
    for (KALBTreeSlot& slot : std::span{btreeSlots(page), maxCount}) {
        slot.prev = slot.next = slot.parent = noSlot;
        slot.flags = btreeSlotFree;
    }
    view = BTreeView{page};
    return Status::success;
}

}  // namespace kaldb
