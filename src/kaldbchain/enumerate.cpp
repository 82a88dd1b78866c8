// Chain enumerators: the records that a partial compare function finds equal to a key, across pages, in key order.
//
// Between calls an enumerator holds one lock on its page and no reference, so that any number of them pins no cache
// slot. Letting go releases that lock and nothing else: another holder's reference on the page stays its own.

#include "common/guard.h"
#include "common/memory.h"
#include "kaldbchain/enumerator.h"
#include "kaldbchain/internal.h"

#include <cstring>

namespace kaldb {

namespace {

KALDBChainEnum* openEnumerators = nullptr;

void enlist(KALDBChainEnum& walk)
{
    walk.nextOpen = openEnumerators;
    if (openEnumerators != nullptr)
        openEnumerators->previousOpen = &walk;
    openEnumerators = &walk;
    ++walk.chain->enumerators;
    if (walk.chain->state != nullptr)
        ++walk.chain->state->walks;
}

void delist(KALDBChainEnum& walk)
{
    if (walk.previousOpen != nullptr)
        walk.previousOpen->nextOpen = walk.nextOpen;
    else
        openEnumerators = walk.nextOpen;
    if (walk.nextOpen != nullptr)
        walk.nextOpen->previousOpen = walk.previousOpen;
    if (walk.chain->state != nullptr)
        --walk.chain->state->walks;
    // A chain closed under its enumerators goes with the last of them.
    if (--walk.chain->enumerators == 0 && walk.chain->closed)
        freeChain(walk.chain);
}

void destroy(KALDBChainEnum* walk)
{
    constexpr TraceSource here = chainSource(u"dbchainEnumFree");
    if (storageIsOpen(*walk->chain)) {
        if (Status s = chainStorage().pageManager->releaseLock(walk->page); failed(s))
            KAL_TRACE(here, s, u"enumerator 0x%08X could not unlock page %ld", traceAddress(walk), walk->page);
        else
            KAL_TRACE(here, u"unlocked page %ld", walk->page);
    }
    delist(*walk);
    KAL_TRACE(here, u"freed enumerator 0x%08X", traceAddress(walk));
    kalMemFree(walk);
}

/// Whether the current page is where it was when it was last looked up and measured.
bool pageIsInPlace(const KALDBChainEnum& walk)
{
    return walk.body != nullptr && walk.contents == chainStorage().pageManager->cacheContents();
}

/// Keeps the current page in the cache for a step; its standing lock is the enumerator's.
Status loadCurrentPage(KALDBChainEnum& walk, ChainPage& page)
{
    if (pageIsInPlace(walk)) {
        page.loadAgain(walk.page, walk.body);
        return Status::success;
    }
    const Status status = page.loadLocked(*walk.chain, walk.page);
    walk.body = ok(status) ? page.body() : nullptr;
    walk.contents = chainStorage().pageManager->cacheContents();
    return status;
}

constexpr TraceSource moveNext = chainSource(u"dbchainEnumMoveNext");

/// Goes over to a page whose matches `matches` enumerates: the lock follows, the old page's standing lock goes.
void enterPage(KALDBChainEnum& walk, ChainPage& next, const BTreeWalk& matches)
{
    KAL_TRACE(moveNext, u"enumerator 0x%08X new page %ld has matches", traceAddress(&walk), next.number());
    const PageNumber old = walk.page;
    walk.page = next.number();
    walk.body = nullptr;
    walk.btreeEnum = matches;
    walk.isRemoved = false;
    ++walk.pagesEntered;
    if (Status s = chainStorage().pageManager->releaseLock(old); failed(s))
        KAL_TRACE(moveNext, s, u"could not unload old page %ld", old);
    if (Status s = next.leaveLock(); failed(s))
        KAL_TRACE(moveNext, s, u"enumerator 0x%08X could not unreference new page %ld", traceAddress(&walk), walk.page);
}

/// The current page has no further match: the next page in key order may have.
Status moveToNextPage(KALDBChainEnum& walk, const ChainPage& current)
{
    KAL_TRACE(moveNext, u"enumerator 0x%08X attempting move to next page", traceAddress(&walk));
    ChainPage next{moveNext, u"could not unlock new page %ld"};
    WalkBound bound{WalkBound::inKeyOrder};
    if (Status s = dbchainEnumFindNextPage(*walk.chain, walk.lockType, current, next, bound, &walk); failed(s))
        return s;
    KAL_TRACE(moveNext, u"enumerator 0x%08X found next page %ld", traceAddress(&walk), next.number());
    // Splits and removals of pages under the walk may bring it to a page again.
    if (walk.pagesEntered > WalkBound::inKeyOrder * std::uint64_t{chainStorage().pageManager->loadablePages()})
        return damagedChain(moveNext, next.number());

    BTreeWalk matches;
    const Status status = BTreeWalk::begin(next.tree(), {walk.key(), walk.compare}, matches);
    if (ok(status)) {
        enterPage(walk, next, matches);
        return Status::success;
    }
    if (status != Status::notFound)
        return KAL_TRACE(moveNext, status, u"could not create enumerator");
    // Its records all sort after the matches, so no later page can hold one.
    KAL_TRACE(moveNext, u"enumerator 0x%08X new page %ld has no matches", traceAddress(&walk), next.number());
    return Status::endOfEnumeration;
}

/// Tells the matches behind a current record that left its slot; the key is the walk.
std::int32_t compareBehindRemoved(const void* key, const void* item)
{
    const auto* walk = static_cast<const KALDBChainEnum*>(key);
    return walk->chain->callbacks.compare(walk->removed(), item) < 0 ? walk->compare(walk->key(), item) : 1;
}

/// The current record left its slot, and its page may have left the tree: the next match is found from the top.
Status moveBehindRemoved(KALDBChainEnum& walk)
{
    ChainPage next{moveNext, u"could not unlock new page %ld"};
    EmptyPageMet empty;
    const Status status =
        dbchainFindFirstItemPage(*walk.chain, walk.lockType, &walk, compareBehindRemoved, next, empty);
    if (failed(status))
        return status == Status::notFound ? Status::endOfEnumeration : status;
    BTreeWalk matches;
    if (Status s = BTreeWalk::begin(next.tree(), {&walk, compareBehindRemoved}, matches); failed(s))
        return KAL_TRACE(moveNext, s, u"could not create enumerator");
    --walk.pagesEntered;  // not counted: no damage leads round this way, each such step has taken a record
    enterPage(walk, next, matches);
    return Status::success;
}

/// One step within the page, tried without a reference on it: should a compare function have made the page leave the
/// cache, the step counts for nothing (it read the slot's memory, whatever was in it).
bool stepInPlace(KALDBChainEnum& walk, Status& status)
{
    if (!pageIsInPlace(walk))
        return false;
    BTreeWalk step = walk.btreeEnum;
    status = step.moveNext(ChainPage::treeOf(walk.body).page());
    if (!pageIsInPlace(walk))
        return false;
    walk.btreeEnum = step;
    return true;
}

/// The step with a hold on the page, and on to the next page behind the last match.
Status stepOrLeavePage(KALDBChainEnum& walk, bool stepped, Status status)
{
    [[maybe_unused]] const PageNumber old = walk.page;
    ChainPage page{moveNext, u"could not unload page %ld"};
    if (Status s = loadCurrentPage(walk, page); failed(s))
        return KAL_TRACE(moveNext, s, u"enumerator 0x%08X could not load page %ld", traceAddress(&walk), walk.page);
    if (!stepped)
        status = walk.btreeEnum.moveNext(page.tree().page());
    if (status == Status::endOfEnumeration)
        status = moveToNextPage(walk, page);
    else if (failed(status)) {
        KAL_TRACE(moveNext, status, u"enumerator 0x%08X could not enumerate btree", traceAddress(&walk));
        status = damagedChain(moveNext, walk.page);
    }
    if (walk.page != old)
        KAL_TRACE(moveNext, u"enumerator 0x%08X has new page %d", traceAddress(&walk), walk.page);
    return status;
}

Status dbchainEnumMoveNext(KALDBChainEnum& walk)
{
    const PageNumber old = walk.page;
    KAL_TRACE(moveNext, u"enumerator 0x%08X looking at page %ld", traceAddress(&walk), walk.page);
    Status status = Status::success;
    const bool stepped = !walk.isRemoved && stepInPlace(walk, status);
    if (walk.isRemoved)
        status = moveBehindRemoved(walk);
    else if (!stepped || failed(status))
        status = stepOrLeavePage(walk, stepped, status);
    const bool entered = walk.page != old || walk.body == nullptr;  // damaged links lead from a page to itself too
    if (ok(status) && !entered)
        KAL_TRACE(moveNext, u"enumerator 0x%08X successfully moved next", traceAddress(&walk));
    return status;
}

Status dbchainEnumMove(KALDBChainEnum& walk, std::uint32_t kind, std::uint32_t& position)
{
    if (kind > KAL_MOVE_PREVIOUS)
        return Status::failure;
    if (kind != KAL_MOVE_NEXT)
        return Status::notSupported;
    const ChainOperation operation{*walk.chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    const Status status = dbchainEnumMoveNext(walk);
    if (ok(status))
        ++walk.moves;
    else if (status == Status::endOfEnumeration)
        --position;  // the support library has advanced it already
    return status;
}

constexpr TraceSource getItem = chainSource(u"dbchainEnumGetItem");

/// A current record that left its slot may stand in another one, and have been updated there.
Status refreshRemoved(KALDBChainEnum& walk)
{
    const KALDBChain& chain = *walk.chain;
    ChainPage page{getItem, u"could not unload page %ld"};
    EmptyPageMet empty;
    Status status = dbchainFindQueryPage(chain, walk.removed(), page, empty);
    std::byte* item = nullptr;
    if (ok(status))
        status = page.tree().search(walk.removed(), chain.callbacks.compare, item);
    if (ok(status))
        std::memcpy(walk.removed(), item, chain.recordSize);
    return status == Status::notFound ? Status::success : status;
}

/// The buffer has room for a record.
Status dbchainEnumGetItem(KALDBChainEnum& walk, void* buffer)
{
    constexpr TraceSource here = getItem;
    const ChainOperation operation{*walk.chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    KAL_TRACE(here, u"enumerator 0x%08X loading page %ld", traceAddress(&walk), walk.page);
    if (walk.isRemoved) {
        if (Status s = refreshRemoved(walk); failed(s))
            return KAL_TRACE(here, s, u"could not find the record that left page %ld", walk.page);
    } else if (!pageIsInPlace(walk)) {
        ChainPage page{here, u"could not unload page %ld"};
        if (Status s = loadCurrentPage(walk, page); failed(s))
            return KAL_TRACE(here, s, u"could not load page %ld", walk.page);
    }
    // Nobody is called before the record is copied, so the page stays in the cache without a reference.
    std::byte* item = walk.removed();
    const Status status =
        walk.isRemoved ? Status::success : walk.btreeEnum.current(ChainPage::treeOf(walk.body).page(), item);
    if (ok(status)) {
        std::memcpy(buffer, item, walk.chain->recordSize);
        KAL_TRACE(here, u"retrieved item");
    } else {
        KAL_TRACE(here, status, u"could not retrieve btree item");
    }
    tellRecordEvent(*walk.chain, KALDB_EVENT_READ, status, buffer);
    return status;
}

// The callbacks of the support library's enumerator.

std::uint32_t onMove(KALEnumerator*, void* data, std::uint32_t kind, std::uint32_t* position)
{
    auto* walk = static_cast<KALDBChainEnum*>(data);
    return guarded([&] { return dbchainEnumMove(*walk, kind, *position); });
}

std::uint32_t onUnsupported(KALEnumerator*, void*) { return code(Status::notSupported); }

std::uint32_t onGetItem(KALEnumerator*, void* data, std::uint32_t, void* buffer, std::uint32_t)
{
    auto* walk = static_cast<KALDBChainEnum*>(data);
    return guarded([&] { return dbchainEnumGetItem(*walk, buffer); });
}

std::uint32_t dbchainEnumFree(KALEnumerator*, void* data)
{
    destroy(static_cast<KALDBChainEnum*>(data));
    return code(Status::success);
}

constexpr KALEnumeratorCallbacks enumeratorCallbacks = {onMove, onUnsupported, onGetItem, dbchainEnumFree};

constexpr TraceSource query = chainSource(u"kaldbQueryChainPartialKey");

/// Builds the enumerator on a page that holds a match. What was made is freed again on failure.
Status createEnumerator(KALDBChain& chain, LockType lock, const void* key, Compare compare, const ChainPage& page,
                        KALEnumerator*& enumerator)
{
    Memory memory =
        allocateMemory(static_cast<std::uint32_t>(sizeof(KALDBChainEnum)) + 2 * chain.recordSize, chainModule);
    if (!memory)
        return Status::outOfMemory;
    auto* walk = new (memory.get()) KALDBChainEnum{};
    walk->chain = &chain;
    walk->compare = compare;
    walk->page = page.number();
    walk->lockType = lock;
    walk->pagesEntered = 1;
    std::memcpy(walk->key(), key, chain.recordSize);

    if (Status s = BTreeWalk::begin(page.tree(), {walk->key(), compare}, walk->btreeEnum); failed(s))
        return KAL_TRACE(query, s, u"could not retrieve btree enumerator");
    if (Status s = asStatus(kalEnumeratorCreate(&enumeratorCallbacks, walk, &enumerator)); failed(s))
        return KAL_TRACE(query, s, u"could not create enumerator");
    KAL_TRACE(query, u"enumerator 0x%08X on page %ld", traceAddress(walk), walk->page);
    enlist(*walk);
    (void)memory.release();  // the enumerator owns it from now on
    return Status::success;
}

}  // namespace

Status chainEnumeratorOf(const KALDBChain& chain, KALEnumerator* enumerator, KALDBChainEnum*& walk)
{
    void* data = nullptr;
    if (Status s = asStatus(kalEnumeratorGetUserData(enumerator, &data)); failed(s))
        return s;
    for (KALDBChainEnum* open = openEnumerators; open != nullptr; open = open->nextOpen) {
        if (open != data)
            continue;
        walk = open;
        return sameChain(*open->chain, chain) && storageIsOpen(*open->chain) ? Status::success
                                                                             : Status::invalidArgument;
    }
    return Status::invalidArgument;
}

void keepCurrentRecord(const ChainPage& page, SlotIndex index)
{
    for (KALDBChainEnum* walk = openEnumerators; walk != nullptr; walk = walk->nextOpen) {
        if (walk->page != page.number() || walk->btreeEnum.slot() != index || walk->isRemoved ||
            !storageIsOpen(*walk->chain))
            continue;
        std::memcpy(walk->removed(), page.tree().item(index), walk->chain->recordSize);
        walk->isRemoved = true;
    }
}

Status kaldbQueryChainPartialKey(KALDBChain& chain, bool readOnly, const void* key, Compare compare,
                                 KALEnumerator*& enumerator)
{
    KAL_TRACE(query, u"querying chain with partial key");
    const ChainOperation operation{chain, ChainOperation::Purpose::read};
    if (failed(operation.status()))
        return operation.status();
    const LockType lock = readOnly ? LockType::read : LockType::readWrite;
    ChainPage page{query, u"could not unload page %ld"};
    EmptyPageMet empty;
    if (Status s = dbchainFindFirstItemPage(chain, lock, key, compare, page, empty); failed(s)) {
        if (s == Status::notFound)
            KAL_TRACE(chainSource(u"kaldbQueryPartialKey"), u"no items found");
        else
            KAL_TRACE(query, s, u"could not retrieve search page for '%s'", chain.name);
        return s;
    }
    KALEnumerator* made = nullptr;
    if (Status s = createEnumerator(chain, lock, key, compare, page, made); failed(s))
        return s;
    [[maybe_unused]] const PageNumber number = page.number();
    if (Status s = page.leaveLock(); failed(s))
        KAL_TRACE(query, s, u"could not unreference page %ld", number);
    enumerator = made;
    return Status::success;
}

}  // namespace kaldb
