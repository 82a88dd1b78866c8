// What the process knows of an open chain beside its pages, shared by all handles of the chain.
//
// Nothing here is needed: it saves looking up in pages what was seen in them before, and it is dropped when in doubt.
#pragma once

#include "common/page_number.h"
#include "kaldbchain/page_list.h"
#include "kaldbchain/page_order.h"
#include "kaldbroot/layout.h"

#include <cstdint>

namespace kaldb {

struct ChainState {
    std::int32_t kind = 0;
    char16_t name[rootNameChars]{};
    std::uint64_t session = 0;  // the opening of storage; 0 once that is over
    std::uint32_t handles = 0;
    std::uint32_t running = 0;  // operations on the chain, one inside another's callback
    std::uint32_t walks = 0;    // open enumerators and callback walks: each may hold a page

    // The root object as it is stored, and its place. Not known without a kind, or without a page.
    KALDBRootObject root{};
    PageNumber rootPage = noPage;
    SlotIndex rootSlot = noSlot;

    PageOrder order;                // of a chain of records; empty until descents have shown the chain to be deep
    std::uint64_t excessLoads = 0;  // pages that descents have loaded beyond those of a shallow chain
    std::uint64_t buildAt = 0;      // so many of them are worth the next attempt at an order

    PageList pages;  // of a binary chain

    ChainState* following = nullptr;

    bool knowsRoot() const { return root.kind != 0; }
    /// Whether no operation but the running one, and no walk but the caller's own, can hold a page of the chain.
    bool quiet(std::uint32_t ownWalks) const { return running <= 1 && walks == ownWalks; }
};

/// The state of the chain of that kind and name, made when there is none; null without memory.
ChainState* acquireChainState(std::int32_t kind, const char16_t* name) noexcept;
void releaseChainState(ChainState* state) noexcept;
/// Null when no handle of the chain is open.
ChainState* findChainState(std::int32_t kind, const char16_t* name);
/// The file is closed: what is known of its chains is void.
void forgetChainStates();

/// A piece was deleted from the page, whichever binary chain it belongs to: a locator may lead into another one.
void noteRoomInPage(PageNumber page);

/// Makes every descent a plain one: the reference that the others are compared with.
void usePlainDescents(bool plain);
bool plainDescents();

}  // namespace kaldb
