// The steps that the operations on a B-tree page share.
//
// A slot link comes from the file: every walk ends with `failure` at an index that is no slot, and after `maxCount`
// steps. One comparison serves both the index and the end of the walk, because `noSlot` is no slot either.
#pragma once

#include "common/status.h"
#include "common/trace.h"
#include "kalbtree/btree_view.h"
#include "kalbtree/layout.h"

namespace kaldb {

constexpr TraceSource btreeSource(const char16_t* operation) { return {u"kalbtree: ", operation}; }

/// A page taken apart once, so that a walk keeps sizes and addresses in registers across calls of the compare function.
struct BTreeParts {
    explicit BTreeParts(KALBTreePage* page)
        : header(page), slots(btreeSlots(page)), items(btreeItems(page)), maxCount(page->maxCount),
          itemSize(page->itemSize)
    {
    }
    std::byte* item(std::size_t index) const { return items + index * itemSize; }
    bool has(SlotIndex index) const { return index < maxCount; }

    KALBTreePage* header;
    KALBTreeSlot* slots;
    std::byte* items;
    std::uint32_t maxCount;
    std::uint32_t itemSize;
};

/// The lowest free slot, `noSlot` if there is none.
SlotIndex btreeFindFreeIndex(BTreeParts page);
/// Links filled slot `index` into the tree; nothing is changed unless it succeeds.
Status btreeInsertUpdate(BTreeParts page, SlotIndex index, Compare compare);
/// `notFound` when no item compares equal.
Status btreeFindItemIndex(BTreeParts page, const void* key, Compare compare, SlotIndex& found);
/// The leftmost item below `start` that compares equal, or `noSlot`. Without `compare` every item does.
Status btreeFindFirstItemIndex(BTreeParts page, SlotIndex start, const void* key, Compare compare, SlotIndex& found);
/// Takes slot `index`, which is below `maxCount`, out of the tree; `notApplicable` when it is free.
Status btreeDeleteNode(BTreeParts page, SlotIndex index, Compare compare);

/// The end of the `prev` links (or the `next` links) from `start`.
Status btreeFindLeftmost(BTreeParts page, SlotIndex start, SlotIndex& found);
Status btreeFindRightmost(BTreeParts page, SlotIndex start, SlotIndex& found);

/// Traces every slot; does nothing in a build without traces.
void btreeDump(KALBTreePage* page);

}  // namespace kaldb
