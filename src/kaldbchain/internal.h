// What the files of the chain module share. Other modules include chain.h.
#pragma once

#include "common/guard.h"
#include "common/status.h"
#include "common/trace.h"
#include "kalbtree/btree_view.h"
#include "kaldbbinarypage/binary_view.h"
#include "kaldbchain/chain.h"
#include "kaldbchain/chain_page.h"
#include "kaldbchain/layout.h"
#include "kalpagemanager/page_manager.h"

#include <cstdint>

namespace kaldb {

inline constexpr const char* chainModule = "./src/kaldbchain";

constexpr TraceSource chainSource(const char16_t* operation) { return {u"kaldbchain: ", operation}; }

/// Frees a closed handle that no enumerator needs any more.
void freeChain(KALDBChain* chain);

/// Several handles may be open on one chain, so a chain is told by kind and name.
bool sameChain(const KALDBChain& first, const KALDBChain& second);

/// The process-wide state: one database at a time.
struct ChainStorage {
    KALPageManager* pageManager = nullptr;
    std::uint32_t usablePageSize = 0;
    KALDBRootObject rootElement{};  // the root chain's own entry; valid while its kind says so
    std::uint64_t session = 0;      // counts the openings, so that handles of an earlier one are told apart
    bool missing = false;           // there was no file when this opening began, and no backup to take its place
    bool rootMade = false;          // this opening made the root chain

    bool up() const { return pageManager != nullptr; }
};
ChainStorage& chainStorage();

/// A running operation on a chain. Callbacks run inside it: they may use other chains, but not change this one.
class ChainOperation {
public:
    enum class Purpose { read, change };

    ChainOperation(const KALDBChain& chain, Purpose purpose);
    ~ChainOperation();
    ChainOperation(const ChainOperation&) = delete;
    ChainOperation& operator=(const ChainOperation&) = delete;

    /// `notOpen` when storage is down or the handle belongs to an earlier database; `lockConflict` for a change from
    /// inside one of this chain's own callbacks.
    Status status() const { return status_; }

    static bool anyRunning() { return innermost_ != nullptr; }
    static bool runningOn(const KALDBChain& chain);

private:
    static ChainOperation* innermost_;

    const KALDBChain& chain_;
    ChainState* state_;
    ChainOperation* outer_;
    Status status_;
};

/// The size with which the typed pages of a chain are formatted: the usable page size, or what is really there where
/// that would run past the page. `bufferTooSmall` when not one item fits.
Status typedPageFormatSize(std::uint32_t recordSize, bool binary, std::uint32_t& size);

/// Page links that a walk follows one by one; too many steps mean that they run in a circle.
class WalkBound {
public:
    /// A descent or a climb comes to each page once; a walk in key order from above and from below, and it leaves it.
    enum Way : std::uint32_t { straight = 1, inKeyOrder = 3 };

    explicit WalkBound(Way way = straight) : way_(way) {}
    /// False when the walk must end.
    bool step();

private:
    Way way_;
    std::uint64_t steps_ = 0;
};

/// Traces damage, keeps the backup from being replaced by it and yields `failure`.
inline Status damagedChain([[maybe_unused]] const TraceSource& source, [[maybe_unused]] PageNumber page)
{
    chainStorage().pageManager->noteDamage();
    return KAL_TRACE(source, Status::failure, u"found page %ld damaged", page);
}

// ---- descents ----------------------------------------------------------------------------------------------------

/// An empty page that a descent passed; it is taken out of the tree when the operation is through.
struct EmptyPageMet {
    PageNumber page = noPage;
    void note(PageNumber met)
    {
        if (page == noPage)
            page = met;
    }
};

/// The page whose range can hold the key, read-locked; `notFound` when the key falls off the tree.
Status dbchainFindSearchPage(const KALDBChain& chain, const void* key, ChainPage& found, EmptyPageMet& empty);
/// The same for a query, which needs no range: a page may also be found that cannot hold the key.
Status dbchainFindQueryPage(const KALDBChain& chain, const void* key, ChainPage& found, EmptyPageMet& empty);
Status dbchainFindSearchHelper(const KALDBChain& chain, PageNumber start, LockType lock, const void* key,
                               ChainPage& found, EmptyPageMet& empty);
/// The same with write locks, for an update.
Status dbchainFindUpdatePage(const KALDBChain& chain, const void* record, ChainPage& found);
/// The leftmost page with a record that `compare` finds equal to the key.
Status dbchainFindFirstItemPage(const KALDBChain& chain, LockType lock, const void* key, Compare compare,
                                ChainPage& found, EmptyPageMet& empty);
/// The page that takes a new record, write-locked; grows or splits on the way.
Status dbchainFindInsertPage(const KALDBChain& chain, const void* record, ChainPage& found, EmptyPageMet& empty);
/// Where a descent goes on from an empty page: the side on which the key belongs, or `noPage` below a page without
/// children.
Status dbchainPassEmptyPage(const KALDBChain& chain, const ChainPage& page, const void* key, Compare compare,
                            PageNumber& following);

// ---- growth --------------------------------------------------------------------------------------------------------

enum class Side { prev, next };

Status dbchainPerformInsertSplit(const KALDBChain& chain, ChainPage& page, ChainPage& created);
/// Puts `created` into the place of `existing`, which becomes its `next` child. On failure everything is as before.
Status dbchainRelink(const KALDBChain& chain, ChainPage& existing, ChainPage& created);
/// Makes sure that a relink of the page can be carried out: that what it will write can be read and write-locked, and
/// that a new page can be held beside it. Changes nothing.
Status dbchainCheckRelink(const KALDBChain& chain, const ChainPage& existing);
/// That the page of the chain's root object, or a neighbour whose links fit, can be read and write-locked.
Status dbchainCheckRootObject(const KALDBChain& chain);
Status dbchainCheckParent(const KALDBChain& chain, PageNumber parent, PageNumber child);
Status dbchainCheckChild(const KALDBChain& chain, PageNumber child, PageNumber parent);
Status dbchainCheckConstraints(std::uint32_t mode, const KALDBChain& chain, const void* record);
Status kaldbUpdateRootElement(PageNumber existing, PageNumber created);

// ---- page removal ----------------------------------------------------------------------------------------------

/// Takes the emptied page out of the tree, or leaves everything as it is.
Status dbchainOrphanPage(const KALDBChain& chain, ChainPage& page);
/// Removes a page that an earlier removal had to leave, when it is still empty and nothing is in the way.
void dbchainRetryRemoval(const KALDBChain& chain, const EmptyPageMet& empty);

// ---- successors ------------------------------------------------------------------------------------------------

/// Loads the leftmost page of the subtree that starts at `page`. One bound holds for all steps of a walk.
Status dbchainEnumFindSmallest(const KALDBChain& chain, LockType lock, PageNumber page, ChainPage& found,
                               WalkBound& bound, const void* enumerator);
/// Loads the page that follows in key order along the tree's links.
Status dbchainSuccessor(const KALDBChain& chain, LockType lock, const ChainPage& current, ChainPage& next,
                        WalkBound& bound, const void* enumerator);
/// Loads the page that follows in key order, empty ones passed over; `endOfEnumeration` when there is none.
/// For the only walk through the chain, or one among several.
Status dbchainEnumFindNextPage(const KALDBChain& chain, LockType lock, const ChainPage& current, ChainPage& next,
                               WalkBound& bound, const void* enumerator);

/// Calls the record-event callback where there is one, and asks it whether the operation may go on.
inline Status recordEvent(const KALDBChain& chain, std::uint32_t event, Status status, void* record)
{
    if (chain.callbacks.recordEvent == nullptr)
        return Status::success;
    return asStatus(chain.callbacks.recordEvent(event, code(status), record));
}

/// The same after the fact: the operation has to be finished, whatever the callback answers or throws.
inline void tellRecordEvent(const KALDBChain& chain, std::uint32_t event, Status status, void* record) noexcept
{
    guarded([&] { return recordEvent(chain, event, status, record); });
}

}  // namespace kaldb
