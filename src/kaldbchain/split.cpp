// Splitting a full page: the smaller half of its records goes to a new page, which takes its place in the tree.
//
// A split either happens or does not. What it will write is checked before the first change; should a step fail all the
// same, the page gets its bytes back and whoever was told of moved records is told that they are where they were.

#include "kaldbchain/enumerator.h"
#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"

#include <kaldb/identifiers.h>

#include <array>
#include <cstring>

namespace kaldb {

namespace {

constexpr TraceSource split = chainSource(u"dbchainDoSplit");

/// Tells the chain's index of a record that moved. Its failure does not stop the split.
void reportMove(const KALDBChain& chain, const void* record, PageNumber fromPage, SlotIndex fromIndex,
                PageNumber toPage, SlotIndex toIndex)
{
    if (!chain.carriesIdentifiers() || chain.callbacks.indexUpdate == nullptr)
        return;
    KALDBIndexRecord from = emptyLocator();
    from.page = fromPage;
    from.index = fromIndex;
    KALDBIndexRecord to = emptyLocator();
    const auto id = readField<KALDBID>(record);
    kaldbIDCopy(&to.id, &id);
    to.page = toPage;
    to.index = toIndex;
    if (Status s = asStatus(chain.callbacks.indexUpdate(&from, &to, chain.context)); failed(s))
        KAL_TRACE(split, s, u"index update function failed");
}

/// Moves the smallest record of one page to the other.
Status moveSmallest(const KALDBChain& chain, const ChainPage& existing, const ChainPage& created)
{
    std::byte* record = nullptr;
    SlotIndex from = noSlot;
    SlotIndex to = noSlot;
    if (Status s = existing.tree().smallest(record, from); failed(s))
        return KAL_TRACE(split, s, u"could not retrieve smallest btree item");
    if (Status s = created.tree().insert(record, chain.callbacks.compare, to); failed(s))
        return KAL_TRACE(split, s, u"could not insert item");
    KAL_TRACE(split, u"moving item from page/index %ld/%d to %ld/%d", existing.number(), from, created.number(), to);
    reportMove(chain, record, existing.number(), from, created.number(), to);
    if (Status s = existing.tree().removeIndex(from, chain.callbacks.compare); failed(s))
        return KAL_TRACE(split, s, u"could not delete item");
    keepCurrentRecord(existing, from);
    return Status::success;
}

Status dbchainDoSplit(const KALDBChain& chain, const ChainPage& existing, const ChainPage& created)
{
    for (std::uint32_t left = existing.tree().count() / 2; left > 0; --left)
        if (Status s = moveSmallest(chain, existing, created); failed(s))
            return s;
    return Status::success;
}

/// Gives the page its bytes back unless the split was carried through, also when a callback throws.
class SplitUndo {
public:
    SplitUndo(const KALDBChain& chain, const ChainPage& existing, ChainPage& created)
        : chain_(chain), existing_(existing), created_(created)
    {
        std::memcpy(before_.data(), existing.body(), before_.size());
    }
    ~SplitUndo()
    {
        if (!done_)
            undo();
    }
    SplitUndo(const SplitUndo&) = delete;
    SplitUndo& operator=(const SplitUndo&) = delete;

    void carriedThrough() { done_ = true; }

private:
    void undo()
    {
        std::memcpy(existing_.body(), before_.data(), before_.size());
        try {
            reportBack();
        } catch (...) {
            // A callback that throws here has been told of every record that it let itself be told of.
            chainStorage().pageManager->noteDamage();
        }
        dropPageOrder(chain_);
        created_.links() = {.page = created_.number(), .parent = noPage, .prev = noPage, .next = noPage};
        ignore(created_.format(chain_));  // it stays in the file, empty and out of the tree
    }

    /// Every record that is in both pages now had been reported as moved.
    void reportBack()
    {
        for (SlotIndex to = 0; to < created_.tree().maxCount(); ++to) {
            if (!created_.tree().slotInUse(to))
                continue;
            const std::byte* record = created_.tree().item(to);
            SlotIndex from = noSlot;
            if (ok(existing_.tree().searchIndex(record, chain_.callbacks.compare, from)))
                reportMove(chain_, record, created_.number(), to, existing_.number(), from);
        }
    }

    const KALDBChain& chain_;
    const ChainPage& existing_;
    ChainPage& created_;
    std::array<std::byte, usablePageSize> before_;
    bool done_ = false;
};

}  // namespace

Status dbchainPerformInsertSplit(const KALDBChain& chain, ChainPage& page, ChainPage& created)
{
    constexpr static TraceSource here = chainSource(u"dbchainPerformInsertSplit");
    KAL_TRACE(here, u"initiating page split");
    if (Status s = dbchainCheckRelink(chain, page); failed(s))
        return KAL_TRACE(here, s, u"could not split page");
    ChainPage fresh{here, u"could not unload page %ld"};
    if (Status s = fresh.create(LockType::write); failed(s))
        return KAL_TRACE(here, s, u"could create new page");
    if (Status s = fresh.format(chain); failed(s))
        return KAL_TRACE(here, s, u"could not format page");

    SplitUndo undo{chain, page, fresh};
    if (Status s = dbchainDoSplit(chain, page, fresh); failed(s))
        return KAL_TRACE(here, s, u"could not split page");
    if (Status s = dbchainRelink(chain, page, fresh); failed(s))
        return KAL_TRACE(here, s, u"could not relink pages, the '%s' chain is probably corrupt", chain.name);
    undo.carriedThrough();
    followSplit(chain, page, fresh);
    created = std::move(fresh);
    return Status::success;
}

}  // namespace kaldb
