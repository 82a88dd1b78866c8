// One page seen as records or pieces. A view is made only of a page whose header fits the page; after that no slot or
// item leaves the page's bytes, whatever its slots say.
#pragma once

#include "kalbtree/layout.h"
#include "kaldbbinarypage/layout.h"
#include "page_file.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kaldb::tool {

using Bytes = std::span<const std::byte>;

inline KALPageHeader commonHeader(const Page& page) { return readField<KALPageHeader>(page.data()); }
inline KALDBPageLinks pageLinks(const Page& page) { return readField<KALDBPageLinks>(page.data(), pageHeaderLength); }

enum class PageKind { other, records, pieces };
/// What the typed header calls itself, right or wrong.
PageKind pageKind(const Page& page);

/// A page of ordered records.
class RecordPage {
public:
    /// None when the page is of another kind or its header does not fit it.
    static std::optional<RecordPage> open(const Page& page);

    const KALBTreePage& header() const { return header_; }
    std::uint32_t count() const { return header_.count; }
    std::uint32_t maxCount() const { return header_.maxCount; }
    bool holds(SlotIndex index) const { return index < header_.maxCount; }
    /// `index` is below maxCount.
    KALBTreeSlot slot(std::size_t index) const;
    Bytes item(std::size_t index) const;
    bool inUse(std::size_t index) const { return (slot(index).flags & btreeSlotFree) == 0; }

    /// The slots in key order. False when the slot tree is damaged; what was met until then is in `order`.
    bool order(std::vector<SlotIndex>& order) const;

private:
    RecordPage(Bytes typed, const KALBTreePage& header) : typed_(typed), header_(header) {}

    Bytes typed_;
    KALBTreePage header_;
};

/// A page of raw pieces.
class PiecePage {
public:
    static std::optional<PiecePage> open(const Page& page);

    const KALDBBinaryPage& header() const { return header_; }
    std::uint32_t maxCount() const { return header_.maxCount; }
    bool holds(SlotIndex index) const { return index < header_.maxCount; }
    /// `index` is below maxCount.
    KALDBBinarySlot slot(std::size_t index) const;
    /// The whole data area of a slot, whatever its length says.
    Bytes data(std::size_t index) const;

private:
    PiecePage(Bytes typed, const KALDBBinaryPage& header) : typed_(typed), header_(header) {}
    std::size_t at(std::size_t index) const
    {
        return sizeof header_ + index * (sizeof(KALDBBinarySlot) + header_.slotDataSize);
    }

    Bytes typed_;
    KALDBBinaryPage header_;
};

}  // namespace kaldb::tool
