// The exported operations on B-tree pages: a check for null arguments and the call.

#include "common/guard.h"
#include "kalbtree/internal.h"

using namespace kaldb;

namespace {

/// `operation` on the page's view, unless one of the arguments is null.
template <class Operation, class... Arguments>
std::uint32_t onPage(Operation&& operation, KALBTreePage* page, Arguments... required)
{
    if (page == nullptr || ((required == nullptr) || ...))
        return KALDB_INVALID_ARGUMENT;
    return guarded([&] { return operation(BTreeView{page}); });
}

/// Hands out a place inside the page; `out` keeps its value on failure.
template <class Find>
Status giveItem(void** out, Find&& find)
{
    std::byte* item = nullptr;
    if (Status s = find(item); failed(s))
        return s;
    *out = item;
    return Status::success;
}

Status give(std::uint32_t* out, std::uint32_t value)
{
    *out = value;
    return Status::success;
}

}  // namespace

extern "C" {

uint32_t kalBTreeFormat(KALBTreePage* page, uint32_t size, uint32_t itemSize)
{
    auto* bytes = static_cast<std::byte*>(static_cast<void*>(page));
    return onPage([&](BTreeView view) { return BTreeView::format(bytes, size, itemSize, view); }, page);
}

uint32_t kalBTreeInsertItem(KALBTreePage* page, const void* item, KALBTreeCompare compare, uint16_t* index)
{
    return onPage([&](BTreeView view) { return view.insert(item, compare, *index); }, page, item, compare, index);
}

uint32_t kalBTreeUpdateItem(KALBTreePage* page, const void* item, KALBTreeCompare compare)
{
    return onPage([&](BTreeView view) { return view.update(item, compare); }, page, item, compare);
}

uint32_t kalBTreeDeleteItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, uint16_t* index)
{
    return onPage([&](BTreeView view) { return view.remove(key, compare, *index); }, page, key, compare, index);
}

uint32_t kalBTreeDeleteIndex(KALBTreePage* page, uint16_t index, KALBTreeCompare compare)
{
    return onPage([&](BTreeView view) { return view.removeIndex(index, compare); }, page, compare);
}

uint32_t kalBTreeGetIndex(KALBTreePage* page, uint16_t index, void** item)
{
    return onPage(
        [&](BTreeView view) { return giveItem(item, [&](std::byte*& place) { return view.getIndex(index, place); }); },
        page, item);
}

uint32_t kalBTreeGetSmallest(KALBTreePage* page, void** item, uint16_t* index)
{
    return onPage(
        [&](BTreeView view) { return giveItem(item, [&](std::byte*& place) { return view.smallest(place, *index); }); },
        page, item, index);
}

uint32_t kalBTreeSearchPrimaryKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, void** item)
{
    return onPage(
        [&](BTreeView view) {
            return giveItem(item, [&](std::byte*& place) { return view.search(key, compare, place); });
        },
        page, key, compare, item);
}

uint32_t kalBTreeCompareItem(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position)
{
    return onPage([&](BTreeView view) { return view.compareItem(key, compare, *position); }, page, key, compare,
                  position);
}

uint32_t kalBTreeCanBeHere(KALBTreePage* page, const void* key, KALBTreeCompare compare, int32_t* position)
{
    return onPage([&](BTreeView view) { return view.canBeHere(key, compare, *position); }, page, key, compare,
                  position);
}

uint32_t kalBTreeGetCount(KALBTreePage* page, uint32_t* count)
{
    return onPage([&](BTreeView view) { return give(count, view.count()); }, page, count);
}

uint32_t kalBTreeGetMaxCount(KALBTreePage* page, uint32_t* count)
{
    return onPage([&](BTreeView view) { return give(count, view.maxCount()); }, page, count);
}

uint32_t kalBTreeIsFull(KALBTreePage* page, uint32_t* full)
{
    return onPage([&](BTreeView view) { return give(full, view.full()); }, page, full);
}

uint32_t kalBTreeEnumerate(KALBTreePage* page, KALBTreePage** pageRef, KALEnumerator** enumerator)
{
    return onPage([&](BTreeView view) { return view.enumerate(pageRef, *enumerator); }, page, pageRef, enumerator);
}

uint32_t kalBTreeSearchPartialKey(KALBTreePage* page, const void* key, KALBTreeCompare compare, KALBTreePage** pageRef,
                                  KALEnumerator** enumerator)
{
    if (compare != nullptr && key == nullptr)
        return KALDB_INVALID_ARGUMENT;
    return onPage([&](BTreeView view) { return view.searchPartialKey(key, compare, pageRef, *enumerator); }, page,
                  pageRef, enumerator);
}

uint32_t kalBTreeGetByEnumerator(KALBTreePage* page, KALEnumerator* enumerator, void** item)
{
    return onPage(
        [&](BTreeView view) {
            return giveItem(item, [&](std::byte*& place) { return view.getByEnumerator(enumerator, place); });
        },
        page, item);
}

uint32_t kalBTreeShouldSplit(KALBTreePage* page, uint32_t* flag)
{
    return onPage([&](BTreeView view) { return give(flag, view.shouldSplit()); }, page, flag);
}

uint32_t kalBTreeSplit(KALBTreePage* source, KALBTreePage* destination, uint32_t fromSmallest, KALBTreeCompare compare)
{
    return onPage(
        [&](BTreeView view) {
            return source->itemSize == destination->itemSize
                       ? view.split(BTreeView{destination}, fromSmallest != 0, compare)
                       : Status::invalidArgument;
        },
        source, destination, compare);
}

uint32_t kalBTreeBalance(KALBTreePage*) { return KALDB_FAILURE; }

void kalBTreeDump(KALBTreePage* page) { btreeDump(page); }

}  // extern "C"
