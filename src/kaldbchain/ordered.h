// Finding pages by the order of a chain's pages, and keeping that order in step.
//
// A search here ends where a plain descent would. Between two neighbours of the order exactly one has no child on the
// other's side: that is where a descent falls off the tree.
#pragma once

#include "kaldbchain/chain_page.h"
#include "kaldbchain/chain_state.h"

namespace kaldb {

/// A plain descent is through that loaded so many pages.
void noteDescent(const KALDBChain& chain, std::uint32_t loaded);
/// Something may have happened that the order did not follow.
void dropPageOrder(const KALDBChain& chain);

// What follows yields `notApplicable` where there is no order or it is of no use now: the chain has not shown to be
// deep, another compare function is in use, or somebody else may hold a page, so that only a descent meets every
// conflict. `ownWalks` counts the walks that the caller itself is.

/// The page whose range holds the key; `notFound` when there is none.
Status findPageByOrder(const KALDBChain& chain, LockType lock, const void* key, ChainPage& found);
/// The last page that the key is not below, which is the only one that can hold it.
Status findOnlyPageByOrder(const KALDBChain& chain, LockType lock, const void* key, ChainPage& found);
/// The page where a descent for a new record ends, write-locked: within its range (position 0), or before or after it
/// on a side without a child.
Status findInsertPlaceByOrder(const KALDBChain& chain, const void* record, ChainPage& page, std::int32_t& position);
/// The leftmost page with a record that `compare` finds equal to the key.
Status findFirstItemPageByOrder(const KALDBChain& chain, LockType lock, const void* key, Compare compare,
                                ChainPage& found);

/// The neighbour of a page in key order; `endOfEnumeration` when it has none. A page that was emptied has its place
/// until it is out of the tree.
enum class Neighbour { previous, next };
Status neighbourByOrder(const KALDBChain& chain, std::uint32_t ownWalks, const ChainPage& page, Neighbour which,
                        PageNumber& neighbour);
/// The leftmost page, or the leftmost of the others.
Status firstPageByOrder(const KALDBChain& chain, std::uint32_t ownWalks, const ChainPage* butNot, PageNumber& page);

// Each change of a page's smallest record is followed, whoever found the page. What fails here drops the order.

/// The record in the slot is new.
void followInsertion(const KALDBChain& chain, const ChainPage& page, SlotIndex index) noexcept;
/// `created` took the smaller half of the records.
void followSplit(const KALDBChain& chain, const ChainPage& existing, const ChainPage& created) noexcept;

/// A deletion from a page: begun before a record that `key` names goes, ended after it is gone.
class FollowedDeletion {
public:
    FollowedDeletion(const KALDBChain& chain, const ChainPage& page, const void* key, Compare compare);
    ~FollowedDeletion();
    FollowedDeletion(const FollowedDeletion&) = delete;
    FollowedDeletion& operator=(const FollowedDeletion&) = delete;

    void recordStays() { order_ = nullptr; }
    /// The record left its slot.
    void recordLeft(SlotIndex index);
    /// The page is empty and out of the tree.
    void pageLeft();

private:
    const KALDBChain& chain_;
    const ChainPage& page_;
    PageOrder* order_ = nullptr;  // while the place is still to be brought in step
    PageOrder::Place place_;
    SlotIndex smallest_ = noSlot;
};

}  // namespace kaldb
