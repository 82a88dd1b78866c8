// Slots of raw bytes. Indexes come from locators in the file, lengths and counts from the page: all are checked.

#include "kaldbbinarypage/binary_view.h"
#include "kaldbbinarypage/layout.h"

#include <cstring>

namespace kaldb {
namespace {

/// Everything but the unused bytes at its end, which stay as they are.
void writeSlot(std::byte* slot, const KALDBBinarySlot& header)
{
    std::memcpy(slot, &header, offsetof(KALDBBinarySlot, unused));
}

bool inUse(const std::byte* slot) { return readField<std::uint32_t>(slot, offsetof(KALDBBinarySlot, inUse)) != 0; }

/// The piece may lie in this page, even in this slot.
void writePiece(std::byte* slot, std::uint32_t used, const KALDBBinaryRecord& record)
{
    if (record.length != 0)
        std::memmove(slot + sizeof(KALDBBinarySlot), record.data, record.length);
    writeSlot(slot, {.inUse = used,
                     .totalSize = record.totalSize,
                     .length = record.length,
                     .nextPage = record.nextPage,
                     .nextIndex = record.nextIndex});
}

}  // namespace

Status BinaryView::open(std::span<std::byte> area, std::uint32_t slotDataSize, BinaryView& view)
{
    if (area.size() < binaryHeaderLength)
        return Status::failure;
    auto* page = static_cast<KALDBBinaryPage*>(static_cast<void*>(area.data()));
    if (page->headerLength != binaryHeaderLength ||
        std::memcmp(page->typeName, binaryTypeName.data(), binaryTypeName.size()) != 0 ||
        page->slotDataSize != slotDataSize)
        return Status::failure;
    if (page->maxCount != binaryCapacity(page->size, slotDataSize) || page->count > page->maxCount ||
        binaryBytes(page->maxCount, slotDataSize) > area.size())
        return Status::failure;
    view = BinaryView{page};
    return Status::success;
}

Status BinaryView::format(std::byte* bytes, std::uint32_t size, std::uint32_t slotDataSize, BinaryView& view)
{
    if (size < binaryHeaderLength)
        return Status::bufferTooSmall;
    auto* page = static_cast<KALDBBinaryPage*>(static_cast<void*>(bytes));
    page->headerLength = binaryHeaderLength;
    std::memcpy(page->typeName, binaryTypeName.data(), binaryTypeName.size());
    page->size = size;
    page->slotDataSize = slotDataSize;
    page->maxCount = binaryCapacity(size, slotDataSize);
    page->count = 0;
    page->reserved = noSlot;

    const BinaryView made{page};
    for (std::uint32_t i = 0; i < page->maxCount; ++i)
        writeSlot(made.slot(i), {});
    view = made;
    return Status::success;
}

std::byte* BinaryView::slot(std::size_t index) const
{
    return static_cast<std::byte*>(static_cast<void*>(page_ + 1)) +
           index * static_cast<std::size_t>(binarySlotSize(page_->slotDataSize));
}

bool BinaryView::slotInUse(SlotIndex index) const { return inUse(slot(index)); }

Status BinaryView::insert(const KALDBBinaryRecord& record, SlotIndex& index) const
{
    if (record.length > page_->slotDataSize)
        return Status::bufferTooSmall;
    if (count() >= maxCount())
        return Status::noFreeSlot;
    std::uint32_t free = 0;
    while (free < maxCount() && inUse(slot(free)))
        ++free;
    if (free == maxCount())
        return Status::noFreeSlot;
    writePiece(slot(free), 1, record);
    ++page_->count;
    index = static_cast<SlotIndex>(free);
    return Status::success;
}

Status BinaryView::get(SlotIndex index, KALDBBinaryRecord& record) const
{
    if (index >= maxCount())
        return Status::notFound;
    const auto header = readField<KALDBBinarySlot>(slot(index));
    if (header.length > page_->slotDataSize)
        return Status::failure;
    record = {.data = slot(index) + sizeof(KALDBBinarySlot),
              .totalSize = header.totalSize,
              .length = header.length,
              .nextPage = header.nextPage,
              .nextIndex = header.nextIndex};
    return Status::success;
}

Status BinaryView::update(SlotIndex index, const KALDBBinaryRecord& record) const
{
    if (index >= maxCount())
        return Status::notFound;
    if (record.length > page_->slotDataSize)
        return Status::bufferTooSmall;
    const auto used = readField<std::uint32_t>(slot(index), offsetof(KALDBBinarySlot, inUse));
    writePiece(slot(index), used, record);
    return Status::success;
}

Status BinaryView::remove(SlotIndex index) const
{
    if (index >= maxCount() || !slotInUse(index))
        return Status::notFound;
    if (count() == 0)
        return Status::failure;
    writeSlot(slot(index), {});
    --page_->count;
    return Status::success;
}

}  // namespace kaldb
