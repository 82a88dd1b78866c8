// Walks over the items of a page in key order, all of them or the run that a partial key selects, as enumerators of the
// support library.
//
// The page is looked up through a reference at every step, so that its owner may unload it and load it again between
// steps. A walk tells nothing about items that come and go: it goes on from its current slot, and from a slot that was
// freed meanwhile there is nowhere to go. On a sound page every step leads to a greater item, so that a walk ends;
// links that lead round in a damaged page are found out after as many steps as the page has slots.

#include "kalbtree/internal.h"

#include "common/memory.h"

#include <cstring>
#include <limits>

namespace kaldb {
namespace {

/// The user data of an enumerator. The key follows it: `itemSize` bytes.
struct KALBTreeEnum {
    KALBTreePage** pageRef;
    Compare compare;          // null: the walk is over all items
    std::uint32_t position;   // the support library's, at the last successful move
    std::uint32_t itemSize;   // of the page that the walk began on
    std::uint32_t stepsLeft;  // until the next look ahead for a circle
    SlotIndex start;
    SlotIndex current;

    std::byte* key() { return static_cast<std::byte*>(static_cast<void*>(this + 1)); }
};
static_assert(std::is_trivially_copyable_v<KALBTreeEnum> && alignof(KALBTreeEnum) <= alignof(std::max_align_t));

/// What a walk looks for: everything without `compare`.
struct Selection {
    const void* key = nullptr;
    Compare compare = nullptr;
};

/// Up from `index` to the first ancestor that it lies on the smaller side of.
Status climb(BTreeParts page, SlotIndex index, SlotIndex& found)
{
    SlotIndex child = index;
    SlotIndex parent = page.slots[index].parent;
    for (std::uint32_t stepsLeft = page.maxCount; page.has(parent); --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        if (page.slots[parent].prev == child)
            break;
        child = parent;
        parent = page.slots[parent].parent;
    }
    if (parent != noSlot && !page.has(parent))
        return Status::failure;
    found = parent;
    return Status::success;
}

/// The next matching item in key order after slot `index`, or `noSlot`.
Status btreeFindNextItemIndex(BTreeParts page, SlotIndex index, Selection wanted, SlotIndex& found)
{
    SlotIndex next = noSlot;
    if (page.slots[index].next != noSlot) {
        const SlotIndex below = page.slots[index].next;
        if (Status s = btreeFindFirstItemIndex(page, below, wanted.key, wanted.compare, next); failed(s))
            return s;
    }
    if (next == noSlot) {
        if (Status s = climb(page, index, next); failed(s))
            return s;
        if (next != noSlot && wanted.compare != nullptr && wanted.compare(wanted.key, page.item(next)) != 0)
            next = noSlot;
    }
    found = next;
    return Status::success;
}

/// Whether a walk from slot `index` comes to an end; `failure` when links lead round.
Status checkWalkEnds(BTreeParts page, SlotIndex index, Selection wanted)
{
    for (std::uint32_t stepsLeft = page.maxCount; index != noSlot; --stepsLeft) {
        if (stepsLeft == 0)
            return Status::failure;
        if (Status s = btreeFindNextItemIndex(page, index, wanted, index); failed(s))
            return s;
    }
    return Status::success;
}

/// The page that the walk is on now; `failure` when there is none or its items are of another size.
Status currentPage(const KALBTreeEnum& walk, KALBTreePage*& page)
{
    page = *walk.pageRef;
    return page != nullptr && page->itemSize == walk.itemSize ? Status::success : Status::failure;
}

Status moveNext(KALBTreeEnum& walk, std::uint32_t& position)
{
    KALBTreePage* header = nullptr;
    if (Status s = currentPage(walk, header); failed(s))
        return s;
    const BTreeParts page{header};
    const Selection wanted{walk.compare == nullptr ? nullptr : walk.key(), walk.compare};
    SlotIndex next = noSlot;
    if (walk.current != noSlot) {
        if (!page.has(walk.current))
            return Status::failure;
        if (Status s = btreeFindNextItemIndex(page, walk.current, wanted, next); failed(s))
            return s;
    }
    if (next == noSlot) {
        position = walk.position;
        return Status::endOfEnumeration;
    }
    if (walk.stepsLeft == 0) {
        // Items that come and go make a walk this long too; only an endless one is refused.
        if (Status s = checkWalkEnds(page, next, wanted); failed(s))
            return s;
        walk.stepsLeft = page.maxCount;
    }
    --walk.stepsLeft;
    walk.current = next;
    walk.position = position;
    return Status::success;
}

Status move(KALBTreeEnum& walk, std::uint32_t kind, std::uint32_t& position)
{
    switch (kind) {
    case KAL_MOVE_FIRST:
        walk.current = walk.start;
        walk.position = position;
        return Status::success;
    case KAL_MOVE_LAST: return Status::notSupported;
    case KAL_MOVE_NEXT: return moveNext(walk, position);
    case KAL_MOVE_PREVIOUS:
        walk.current = noSlot;
        walk.position = position;
        return Status::success;
    default: return Status::failure;
    }
}

std::uint32_t btreeEnumMoveSequential(KALEnumerator*, void* userData, std::uint32_t kind, std::uint32_t* position)
{
    static constexpr TraceSource here = btreeSource(u"btreeEnumMoveSequential");
    KAL_TRACE(here, u"locating item");
    return code(move(*static_cast<KALBTreeEnum*>(userData), kind, *position));
}

std::uint32_t btreeEnumUnsupported(KALEnumerator*, void*) { return KALDB_NOT_SUPPORTED; }

std::uint32_t btreeEnumGetItem(KALEnumerator*, void* userData, std::uint32_t position, void* buffer, std::uint32_t)
{
    const auto& walk = *static_cast<const KALBTreeEnum*>(userData);
    KALBTreePage* header = nullptr;
    if (position != walk.position || failed(currentPage(walk, header)))
        return KALDB_FAILURE;
    const BTreeParts page{header};
    if (!page.has(walk.current))
        return KALDB_FAILURE;
    std::memcpy(buffer, page.item(walk.current), page.itemSize);
    return KALDB_SUCCESS;
}

std::uint32_t btreeEnumFree(KALEnumerator*, void* userData)
{
    kalMemFree(userData);
    return KALDB_SUCCESS;
}

constexpr KALEnumeratorCallbacks callbacks{btreeEnumMoveSequential, btreeEnumUnsupported, btreeEnumGetItem,
                                           btreeEnumFree};

Status btreeEnumCreate(KALBTreePage** pageRef, SlotIndex start, Selection wanted, KALEnumerator*& enumerator)
{
    static constexpr TraceSource here = btreeSource(u"btreeEnumCreate");
    const std::uint32_t itemSize = (*pageRef)->itemSize;
    constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max() - sizeof(KALBTreeEnum);
    if (itemSize > largest)
        return Status::outOfMemory;
    Memory memory = allocateMemory(static_cast<std::uint32_t>(sizeof(KALBTreeEnum)) + itemSize, "./src/kalbtree");
    if (memory == nullptr)
        return Status::outOfMemory;

    auto* walk = new (memory.get()) KALBTreeEnum{.pageRef = pageRef,
                                                 .compare = wanted.compare,
                                                 .position = 0,
                                                 .itemSize = itemSize,
                                                 .stepsLeft = (*pageRef)->maxCount,
                                                 .start = start,
                                                 .current = start};
    if (wanted.key != nullptr)
        std::memcpy(walk->key(), wanted.key, itemSize);
    KALEnumerator* made = nullptr;
    if (Status s = asStatus(kalEnumeratorCreate(&callbacks, walk, &made)); failed(s))
        return KAL_TRACE(here, s, u"could not create enumerator");
    static_cast<void>(memory.release());
    enumerator = made;
    return Status::success;
}

/// A walk needs its page behind the reference from the start.
bool refersTo(KALBTreePage** pageRef, const KALBTreePage* page)
{
    return *pageRef != nullptr && (*pageRef)->itemSize == page->itemSize;
}

}  // namespace

Status BTreeView::enumerate(KALBTreePage** pageRef, KALEnumerator*& enumerator) const
{
    if (count() == 0)
        return Status::notFound;
    if (!refersTo(pageRef, page_))
        return Status::failure;
    return btreeEnumCreate(pageRef, page_->smallest, {}, enumerator);
}

Status BTreeView::searchPartialKey(const void* key, Compare compare, KALBTreePage** pageRef,
                                   KALEnumerator*& enumerator) const
{
    if (count() == 0)
        return Status::notFound;
    if (!refersTo(pageRef, page_))
        return Status::failure;
    SlotIndex first = noSlot;
    if (Status s = btreeFindFirstItemIndex(BTreeParts{page_}, page_->root, key, compare, first); failed(s))
        return s;
    if (first == noSlot)
        return Status::notFound;
    return btreeEnumCreate(pageRef, first, {key, compare}, enumerator);
}

Status BTreeView::getByEnumerator(KALEnumerator* enumerator, std::byte*& item) const
{
    static constexpr TraceSource here = btreeSource(u"kalBTreeGetByEnumerator");
    void* userData = nullptr;
    if (Status s = asStatus(kalEnumeratorGetUserData(enumerator, &userData)); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve enumerator data");
    const SlotIndex current = static_cast<const KALBTreeEnum*>(userData)->current;
    if (current >= maxCount())
        return Status::failure;
    item = this->item(current);
    return Status::success;
}

}  // namespace kaldb
