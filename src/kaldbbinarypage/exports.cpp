// The exported operations on binary pages: a check for null arguments and the call.

#include "common/guard.h"
#include "kaldbbinarypage/binary_view.h"

using namespace kaldb;

namespace {

/// `operation` on the page's view, unless one of the arguments is null.
template <class Operation, class... Arguments>
std::uint32_t onPage(Operation&& operation, KALDBBinaryPage* page, Arguments... required)
{
    if (page == nullptr || ((required == nullptr) || ...))
        return KALDB_INVALID_ARGUMENT;
    return guarded([&] { return operation(BinaryView{page}); });
}

Status give(std::uint32_t* out, std::uint32_t value)
{
    *out = value;
    return Status::success;
}

bool hasData(const KALDBBinaryRecord* record)
{
    return record != nullptr && (record->data != nullptr || record->length == 0);
}

}  // namespace

extern "C" {

uint32_t kaldbBinaryPageFormat(KALDBBinaryPage* page, uint32_t size, uint32_t slotDataSize)
{
    auto* bytes = static_cast<std::byte*>(static_cast<void*>(page));
    return onPage([&](BinaryView view) { return BinaryView::format(bytes, size, slotDataSize, view); }, page);
}

uint32_t kaldbBinaryPageInsertItem(KALDBBinaryPage* page, const KALDBBinaryRecord* record, uint16_t* index)
{
    if (!hasData(record))
        return KALDB_INVALID_ARGUMENT;
    return onPage([&](BinaryView view) { return view.insert(*record, *index); }, page, index);
}

uint32_t kaldbBinaryPageGetItem(KALDBBinaryPage* page, uint16_t index, KALDBBinaryRecord* record)
{
    return onPage([&](BinaryView view) { return view.get(index, *record); }, page, record);
}

uint32_t kaldbBinaryPageUpdateItem(KALDBBinaryPage* page, uint16_t index, const KALDBBinaryRecord* record)
{
    if (!hasData(record))
        return KALDB_INVALID_ARGUMENT;
    return onPage([&](BinaryView view) { return view.update(index, *record); }, page);
}

uint32_t kaldbBinaryPageDeleteItem(KALDBBinaryPage* page, uint16_t index)
{
    return onPage([&](BinaryView view) { return view.remove(index); }, page);
}

uint32_t kaldbBinaryPageIsFull(KALDBBinaryPage* page, uint32_t* full)
{
    return onPage([&](BinaryView view) { return give(full, view.full()); }, page, full);
}

uint32_t kaldbBinaryPageGetCount(KALDBBinaryPage* page, uint32_t* count)
{
    return onPage([&](BinaryView view) { return give(count, view.count()); }, page, count);
}

uint32_t kaldbBinaryPageGetMaxCount(KALDBBinaryPage* page, uint32_t* count)
{
    return onPage([&](BinaryView view) { return give(count, view.maxCount()); }, page, count);
}

}  // extern "C"
