// The record tree of one page.
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"
#include "common/status.h"
#include "kalbtree/layout.h"

#include <kaldb/btree_page.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace kaldb {

using Compare = KALBTreeCompare;

/// Owns nothing; valid while the page is held. Whether the header fits the page is checked by `open`; slot links are
/// checked at every use, so that a damaged page ends an operation with `failure`.
class BTreeView {
public:
    BTreeView() = default;
    /// Trusts the header: for a page that `open` has accepted, or one that the caller vouches for.
    explicit BTreeView(KALBTreePage* page) : page_(page) {}

    /// Checks the typed header against the bytes really there and the expected item size, in constant time.
    static Status open(std::span<std::byte> area, std::uint32_t itemSize, BTreeView& view);
    /// `bufferTooSmall` when no item fits, and the bytes are untouched.
    static Status format(std::byte* page, std::uint32_t size, std::uint32_t itemSize, BTreeView& view);

    KALBTreePage* page() const { return page_; }
    std::uint32_t count() const { return page_->count; }
    std::uint32_t maxCount() const { return page_->maxCount; }
    std::uint32_t itemSize() const { return page_->itemSize; }
    bool full() const { return page_->count == page_->maxCount; }
    bool shouldSplit() const { return page_->count >= 3 * (page_->maxCount / 4); }
    /// Item place `index`, unaligned; the index is the caller's to check.
    std::byte* item(SlotIndex index) const { return btreeItems(page_) + std::size_t{index} * page_->itemSize; }
    bool slotInUse(SlotIndex index) const { return btreeSlots(page_)[index].flags == 0; }

    Status insert(const void* record, Compare compare, SlotIndex& index) const;
    Status update(const void* record, Compare compare) const;
    Status remove(const void* key, Compare compare, SlotIndex& index) const;
    Status removeIndex(SlotIndex index, Compare compare) const;
    /// `notFound` for an index at or above `maxCount`; a free slot is not looked at.
    Status getIndex(SlotIndex index, std::byte*& item) const;
    Status smallest(std::byte*& item, SlotIndex& index) const;
    Status largest(std::byte*& item, SlotIndex& index) const;
    Status search(const void* key, Compare compare, std::byte*& item) const;
    /// The same, giving the slot.
    Status searchIndex(const void* key, Compare compare, SlotIndex& index) const;
    Status compareItem(const void* key, Compare compare, std::int32_t& position) const;
    Status canBeHere(const void* key, Compare compare, std::int32_t& position) const;

    /// Both read their page through `pageRef` at every move and get.
    Status enumerate(KALBTreePage** pageRef, KALEnumerator*& enumerator) const;
    Status searchPartialKey(const void* key, Compare compare, KALBTreePage** pageRef, KALEnumerator*& enumerator) const;
    Status getByEnumerator(KALEnumerator* enumerator, std::byte*& item) const;

    /// Moves half of the items to a page of the same item size, from the smallest or from the largest on. Stops at the
    /// first failure; what has moved stays moved.
    Status split(BTreeView destination, bool fromSmallest, Compare compare) const;

private:
    Status itemAtEnd(SlotIndex slot, std::byte*& item, SlotIndex& index) const;

    KALBTreePage* page_ = nullptr;
};

}  // namespace kaldb
