// The record behind a chain enumerator.
#pragma once

#include "common/page_number.h"
#include "kalbtree/walk.h"
#include "kaldbchain/chain.h"
#include "kaldbchain/chain_page.h"

#include <cstddef>
#include <cstdint>

struct KALDBChainEnum {
    KALDBChain* chain;
    kaldb::Compare compare;  // 0 for a match
    kaldb::PageNumber page;  // the current page: one lock of `lockType` on it, no reference
    std::byte* body;         // the page in the cache, as long as the cache has the contents that it had then
    std::uint64_t contents;
    kaldb::LockType lockType;
    kaldb::BTreeWalk btreeEnum;  // over the matches of the current page, by the key behind this structure
    std::uint32_t moves;
    std::uint32_t pagesEntered;
    KALDBChainEnum* previousOpen;  // all open enumerators, so that a foreign handle is told apart
    KALDBChainEnum* nextOpen;
    bool isRemoved;  // the current record left its slot, deleted or moved by a split

    /// The caller's key, `recordSize` bytes behind this structure.
    std::byte* key() { return reinterpret_cast<std::byte*>(this + 1); }
    const std::byte* key() const { return reinterpret_cast<const std::byte*>(this + 1); }
    /// The current record as it was when it left its slot, behind the key.
    std::byte* removed() { return key() + chain->recordSize; }
    const std::byte* removed() const { return key() + chain->recordSize; }
};

namespace kaldb {

/// The record behind an enumerator of this chain; `invalidArgument` when it is none of this chain's.
Status chainEnumeratorOf(const KALDBChain& chain, KALEnumerator* enumerator, KALDBChainEnum*& walk);

/// A record has just left this slot: the enumerators that stand on it go on from a copy, for the slot may be filled
/// again and the page may leave the tree.
void keepCurrentRecord(const ChainPage& page, SlotIndex index);

}  // namespace kaldb
