// A page of a chain, held: the lock and reference, its links and its typed page.
#pragma once

#include "common/status.h"
#include "common/trace.h"
#include "kalbtree/btree_view.h"
#include "kaldbbinarypage/binary_view.h"
#include "kaldbchain/chain.h"
#include "kaldbchain/layout.h"
#include "kalpagemanager/page_hold.h"

#include <cstddef>
#include <span>

namespace kaldb {

/// Whatever the file held, after a load the links and the typed header are sound: slots and items lie inside the page,
/// and links name pages of the file. Slot links and the order of records are checked where they are used.
class ChainPage {
public:
    ChainPage(const TraceSource& source, UnloadText unloadFailure) : source_(&source), hold_(source, unloadFailure) {}

    /// `failure` when the page cannot belong to the chain; damage is noted then.
    Status load(const KALDBChain& chain, LockType lock, PageNumber page);
    /// Keeps the page in the cache and takes no lock: for a page on which the caller has one that outlives this.
    Status loadLocked(const KALDBChain& chain, PageNumber page);
    /// The same for a page that was measured and has not left the cache since.
    void loadAgain(PageNumber page, std::byte* body) { hold_.referenceAgain(*kaldbChainGetPageManager(), page, body); }
    /// `notFound` for a page that is not one of the chain's kind and record size: for locators, which anyone can make.
    Status loadByLocator(const KALDBChain& chain, LockType lock, PageNumber page);
    /// A new page at the end of the file; its links name no other page.
    Status create(LockType lock);
    /// Formats the typed page for the chain's records.
    Status format(const KALDBChain& chain);

    Status release() { return hold_.release(); }
    Status markDirty() const { return hold_.markDirty(); }
    /// Gives up the reference and keeps the lock, which then outlives this object.
    Status leaveLock();

    explicit operator bool() const { return static_cast<bool>(hold_); }
    PageNumber number() const { return hold_.number(); }
    std::byte* body() const { return hold_.body(); }
    KALDBPageLinks& links() const { return *reinterpret_cast<KALDBPageLinks*>(hold_.body()); }
    PageNumber& child(bool prev) const { return prev ? links().prev : links().next; }
    static BTreeView treeOf(std::byte* body)
    {
        return BTreeView{reinterpret_cast<KALBTreePage*>(body + sizeof(KALDBPageLinks))};
    }
    BTreeView tree() const { return treeOf(hold_.body()); }
    BinaryView binary() const { return BinaryView{reinterpret_cast<KALDBBinaryPage*>(typedPage())}; }
    std::byte* typedPage() const { return hold_.body() + sizeof(KALDBPageLinks); }

private:
    Status check(const KALDBChain& chain) const;
    bool linksAreSound() const;

    const TraceSource* source_;
    PageHold hold_;
};

}  // namespace kaldb
