// The slots of raw bytes of one page.
#pragma once

#include "common/bytes.h"
#include "common/page_number.h"
#include "common/status.h"

#include <kaldb/binary_page.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace kaldb {

/// Owns nothing; valid while the page is held.
class BinaryView {
public:
    BinaryView() = default;
    explicit BinaryView(KALDBBinaryPage* page) : page_(page) {}

    /// Checks the typed header against the bytes really there and the expected slot size, in constant time.
    static Status open(std::span<std::byte> area, std::uint32_t slotDataSize, BinaryView& view);
    /// `bufferTooSmall` when not even the header fits; a page of no slots is a page.
    static Status format(std::byte* page, std::uint32_t size, std::uint32_t slotDataSize, BinaryView& view);

    KALDBBinaryPage* page() const { return page_; }
    std::uint32_t count() const { return page_->count; }
    std::uint32_t maxCount() const { return page_->maxCount; }
    bool full() const { return page_->count == page_->maxCount; }
    bool slotInUse(SlotIndex index) const;

    /// Whose length is above the slot's data size is refused with `bufferTooSmall`, here and in `update`.
    Status insert(const KALDBBinaryRecord& record, SlotIndex& index) const;
    /// The data is a place in the page; at most a slot's data size, whatever the file says.
    Status get(SlotIndex index, KALDBBinaryRecord& record) const;
    Status update(SlotIndex index, const KALDBBinaryRecord& record) const;
    Status remove(SlotIndex index) const;

private:
    std::byte* slot(std::size_t index) const;

    KALDBBinaryPage* page_ = nullptr;
};

}  // namespace kaldb
