// A walk over the items of a page in key order: all of them, or the run that a partial key selects.
//
// The page is handed over at every step, so that its owner may unload it and load it again between steps. A walk tells
// nothing about items that come and go: it goes on from its current slot, and from a slot that was freed meanwhile
// there is nowhere to go. On a sound page every step leads to a greater item, so that a walk ends; links that lead
// round in a damaged page are found out after as many steps as the page has slots.
#pragma once

#include "common/status.h"
#include "kalbtree/btree_view.h"

#include <cstddef>
#include <cstdint>

namespace kaldb {

class BTreeWalk {
public:
    /// What a walk looks for: everything without `compare`. The key must outlive the walk.
    struct Selection {
        const void* key = nullptr;
        Compare compare = nullptr;
    };

    /// On the first item; `notFound` when there is none.
    static Status begin(BTreeView page, Selection wanted, BTreeWalk& walk);
    /// `endOfEnumeration` behind the last item, where the walk stays on it.
    Status moveNext(KALBTreePage* page);
    void moveFirst() { current_ = start_; }
    void leave() { current_ = noSlot; }
    /// The item in its page.
    Status current(KALBTreePage* page, std::byte*& item) const;
    SlotIndex slot() const { return current_; }
    /// The key moved to another place.
    void setKey(const void* key) { wanted_.key = key; }

private:
    bool fits(const KALBTreePage* page) const { return page != nullptr && page->itemSize == itemSize_; }

    Selection wanted_;
    std::uint32_t itemSize_ = 0;   // of the page that the walk began on
    std::uint32_t stepsLeft_ = 0;  // until the next look ahead for a circle
    SlotIndex start_ = noSlot;
    SlotIndex current_ = noSlot;
};

}  // namespace kaldb
