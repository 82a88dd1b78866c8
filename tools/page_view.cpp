#include "page_view.h"

#include <cstring>

namespace kaldb::tool {

namespace {

Bytes typedPage(const Page& page) { return Bytes{page}.last(typedPageSize); }

bool named(Bytes typed, std::uint32_t headerLength, const std::array<char, 4>& name)
{
    return readField<std::uint32_t>(typed.data()) == headerLength &&
           std::memcmp(typed.data() + 4, name.data(), name.size()) == 0;
}

}  // namespace

PageKind pageKind(const Page& page)
{
    const Bytes typed = typedPage(page);
    if (named(typed, sizeof(KALBTreePage), btreeTypeName))
        return PageKind::records;
    if (named(typed, sizeof(KALDBBinaryPage), binaryTypeName))
        return PageKind::pieces;
    return PageKind::other;
}

std::optional<RecordPage> RecordPage::open(const Page& page)
{
    const Bytes typed = typedPage(page);
    const auto header = readField<KALBTreePage>(typed.data());
    if (pageKind(page) != PageKind::records || btreeBytes(header.maxCount, header.itemSize) > typed.size())
        return std::nullopt;
    return RecordPage{typed, header};
}

KALBTreeSlot RecordPage::slot(std::size_t index) const
{
    return readField<KALBTreeSlot>(typed_.data(), sizeof header_ + index * sizeof(KALBTreeSlot));
}

Bytes RecordPage::item(std::size_t index) const
{
    const std::size_t items = sizeof header_ + header_.maxCount * sizeof(KALBTreeSlot);
    return typed_.subspan(items + index * header_.itemSize, header_.itemSize);
}

bool RecordPage::order(std::vector<SlotIndex>& order) const
{
    order.clear();
    std::vector<SlotIndex> pending;
    std::vector<bool> met(header_.maxCount);
    SlotIndex index = header_.root;
    while (index != noSlot || !pending.empty()) {
        for (; index != noSlot; index = slot(index).prev) {
            if (!holds(index) || met[index] || !inUse(index))
                return false;
            met[index] = true;
            pending.push_back(index);
        }
        index = pending.back();
        pending.pop_back();
        order.push_back(index);
        index = slot(index).next;
    }
    return order.size() == header_.count;
}

std::optional<PiecePage> PiecePage::open(const Page& page)
{
    const Bytes typed = typedPage(page);
    const auto header = readField<KALDBBinaryPage>(typed.data());
    if (pageKind(page) != PageKind::pieces || binaryBytes(header.maxCount, header.slotDataSize) > typed.size())
        return std::nullopt;
    return PiecePage{typed, header};
}

KALDBBinarySlot PiecePage::slot(std::size_t index) const
{
    return readField<KALDBBinarySlot>(typed_.data(), at(index));
}

Bytes PiecePage::data(std::size_t index) const
{
    return typed_.subspan(at(index) + sizeof(KALDBBinarySlot), header_.slotDataSize);
}

}  // namespace kaldb::tool
