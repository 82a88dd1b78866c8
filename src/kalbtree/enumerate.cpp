// Walks over the items of a page as enumerators of the support library. The page is looked up through a reference at
// every step.

#include "common/live_handle.h"
#include "common/memory.h"
#include "kalbtree/internal.h"
#include "kalbtree/walk.h"

#include <cstring>
#include <limits>
#include <new>

namespace kaldb {
namespace {

/// The user data of an enumerator. The key follows it: `itemSize` bytes.
struct KALBTreeEnum : LiveHandle<KALBTreeEnum> {
    KALBTreePage** pageRef = nullptr;
    std::uint32_t position = 0;  // the support library's, at the last successful move
    BTreeWalk walk;

    std::byte* key() { return static_cast<std::byte*>(static_cast<void*>(this + 1)); }
};
static_assert(alignof(KALBTreeEnum) <= alignof(std::max_align_t));

Status moveNext(KALBTreeEnum& record, std::uint32_t& position)
{
    const Status status = record.walk.moveNext(*record.pageRef);
    if (status == Status::endOfEnumeration)
        position = record.position;
    else if (ok(status))
        record.position = position;
    return status;
}

Status move(KALBTreeEnum& record, std::uint32_t kind, std::uint32_t& position)
{
    if (kind != KAL_MOVE_NEXT)  // which says so itself
        KAL_TRACE(btreeSource(u"btreeEnumMoveSequential"), u"locating item");
    switch (kind) {
    case KAL_MOVE_FIRST:
        record.walk.moveFirst();
        record.position = position;
        return Status::success;
    case KAL_MOVE_LAST: return Status::notSupported;
    case KAL_MOVE_NEXT: return moveNext(record, position);
    case KAL_MOVE_PREVIOUS:
        record.walk.leave();
        record.position = position;
        return Status::success;
    default: return Status::failure;
    }
}

std::uint32_t btreeEnumMoveSequential(KALEnumerator*, void* userData, std::uint32_t kind, std::uint32_t* position)
{
    return code(move(*static_cast<KALBTreeEnum*>(userData), kind, *position));
}

std::uint32_t btreeEnumUnsupported(KALEnumerator*, void*) { return KALDB_NOT_SUPPORTED; }

std::uint32_t btreeEnumGetItem(KALEnumerator*, void* userData, std::uint32_t position, void* buffer, std::uint32_t)
{
    const auto& record = *static_cast<const KALBTreeEnum*>(userData);
    std::byte* item = nullptr;
    if (position != record.position || failed(record.walk.current(*record.pageRef, item)))
        return KALDB_FAILURE;
    std::memcpy(buffer, item, (*record.pageRef)->itemSize);
    return KALDB_SUCCESS;
}

std::uint32_t btreeEnumFree(KALEnumerator*, void* userData)
{
    static_cast<KALBTreeEnum*>(userData)->~KALBTreeEnum();
    kalMemFree(userData);
    return KALDB_SUCCESS;
}

constexpr KALEnumeratorCallbacks callbacks{btreeEnumMoveSequential, btreeEnumUnsupported, btreeEnumGetItem,
                                           btreeEnumFree};

Status btreeEnumCreate(KALBTreePage** pageRef, BTreeWalk walk, const void* key, KALEnumerator*& enumerator)
{
    static constexpr TraceSource here = btreeSource(u"btreeEnumCreate");
    const std::uint32_t itemSize = (*pageRef)->itemSize;
    constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max() - sizeof(KALBTreeEnum);
    if (itemSize > largest)
        return Status::outOfMemory;
    Memory memory = allocateMemory(static_cast<std::uint32_t>(sizeof(KALBTreeEnum)) + itemSize, "./src/kalbtree");
    if (memory == nullptr)
        return Status::outOfMemory;

    auto* record = new (memory.get()) KALBTreeEnum;
    record->pageRef = pageRef;
    record->walk = walk;
    if (key != nullptr) {
        std::memcpy(record->key(), key, itemSize);
        record->walk.setKey(record->key());
    }
    KALEnumerator* made = nullptr;
    if (Status s = asStatus(kalEnumeratorCreate(&callbacks, record, &made)); failed(s)) {
        record->~KALBTreeEnum();
        return KAL_TRACE(here, s, u"could not create enumerator");
    }
    static_cast<void>(memory.release());
    enumerator = made;
    return Status::success;
}

Status createEnumerator(BTreeView page, BTreeWalk::Selection wanted, KALBTreePage** pageRef, KALEnumerator*& enumerator)
{
    if (page.count() == 0)
        return Status::notFound;
    // A walk needs its page behind the reference from the start.
    if (*pageRef == nullptr || (*pageRef)->itemSize != page.itemSize())
        return Status::failure;
    BTreeWalk walk;
    if (Status s = BTreeWalk::begin(page, wanted, walk); failed(s))
        return s;
    return btreeEnumCreate(pageRef, walk, wanted.key, enumerator);
}

}  // namespace

Status BTreeView::enumerate(KALBTreePage** pageRef, KALEnumerator*& enumerator) const
{
    return createEnumerator(*this, {}, pageRef, enumerator);
}

Status BTreeView::searchPartialKey(const void* key, Compare compare, KALBTreePage** pageRef,
                                   KALEnumerator*& enumerator) const
{
    return createEnumerator(*this, {key, compare}, pageRef, enumerator);
}

Status BTreeView::getByEnumerator(KALEnumerator* enumerator, std::byte*& item) const
{
    static constexpr TraceSource here = btreeSource(u"kalBTreeGetByEnumerator");
    void* userData = nullptr;
    if (Status s = asStatus(kalEnumeratorGetUserData(enumerator, &userData)); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve enumerator data");
    if (!KALBTreeEnum::isLive(userData))
        return Status::invalidArgument;
    const SlotIndex current = static_cast<const KALBTreeEnum*>(userData)->walk.slot();
    if (current >= maxCount())
        return Status::failure;
    item = this->item(current);
    return Status::success;
}

}  // namespace kaldb
