// Every page by itself: headers, links, slots. Pages that no chain reaches are looked at too.

#include "checker.h"

#include "text.h"

#include <fmt/format.h>

#include <cstring>

namespace kaldb::tool {

namespace {

std::string shown(SlotIndex index) { return index == noSlot ? "none" : fmt::format("slot {}", index); }

/// Why `parent` cannot be what the slot's parent field says; empty when it can.
std::string faultOfParent(const RecordPage& page, SlotIndex index)
{
    const SlotIndex parent = page.slot(index).parent;
    if (parent == noSlot)
        return index == page.header().root ? "" : "names no parent, but is not the root";
    if (index == page.header().root)
        return fmt::format("is the root, but names slot {} as its parent", parent);
    if (!page.holds(parent))
        return fmt::format("parent names slot {}, which the page does not have", parent);
    if (!page.inUse(parent))
        return fmt::format("parent names slot {}, which is free", parent);
    const KALBTreeSlot above = page.slot(parent);
    if (above.prev != index && above.next != index)
        return fmt::format("parent names slot {}, which does not name it", parent);
    return {};
}

/// The slot at the end of the prev or next links from the root; none when the links lead nowhere.
SlotIndex outermost(const RecordPage& page, SlotIndex KALBTreeSlot::*side)
{
    SlotIndex index = page.header().root;
    for (std::uint32_t steps = 0; page.holds(index) && steps < page.maxCount(); ++steps) {
        const SlotIndex further = page.slot(index).*side;
        if (further == noSlot)
            return index;
        index = further;
    }
    return noSlot;
}

}  // namespace

void Checker::checkPages()
{
    Page page;
    for (PageNumber number = 0; number < file_.pages(); ++number) {
        if (!file_.read(number, page)) {
            error(number, noSlot, "page.unreadable", "cannot be read");
            continue;
        }
        const KALPageHeader common = commonHeader(page);
        if (common.headerLength != pageHeaderLength || std::memcmp(common.typeName, "PGE", 4) != 0)
            error(number, noSlot, "page.header", "has no page header");
        else if (common.page != number)
            error(number, noSlot, "page.number", fmt::format("its header says page {}", common.page));
        if (common.flags != 0)
            warning(number, noSlot, "page.flags", fmt::format("has the flags 0x{:X} on disk", common.flags));
        if (common.checksum != 0)
            warning(number, noSlot, "page.checksum", "has a checksum, which nothing writes");
        if (owners_[number] == noOwner)
            add(Severity::note, number, noSlot, "page.unreachable",
                fmt::format("not reachable from any table (removed page, {} bytes)", grouped(pageSize)));
        if (owners_[number] == noOwner && pageLinks(page).page != number)
            continue;  // never formatted

        switch (pageKind(page)) {
        case PageKind::records: checkRecordPage(number, page); break;
        case PageKind::pieces: checkBinaryPage(number, page); break;
        case PageKind::other: error(number, noSlot, "page.type", "holds neither records nor binary pieces"); break;
        }
    }
}

void Checker::checkRecordPage(PageNumber number, const Page& bytes)
{
    const auto page = RecordPage::open(bytes);
    if (!page) {
        error(number, noSlot, "page.type", "its records would run past its end");
        return;
    }
    const KALBTreePage& header = page->header();
    if (header.maxCount != btreeCapacity(header.size, header.itemSize))
        error(number, noSlot, "btree.size",
              fmt::format("has {} places for records of {} bytes", header.maxCount, header.itemSize));
    std::uint32_t used = 0;
    for (SlotIndex index = 0; page->holds(index); ++index) {
        const KALBTreeSlot slot = page->slot(index);
        if (!page->inUse(index)) {
            if (slot.prev != noSlot || slot.next != noSlot || slot.parent != noSlot)
                error(number, index, "btree.free", "is free, but linked");
            continue;
        }
        ++used;
        if (slot.flags != 0)
            warning(number, index, "btree.flags", fmt::format("has the unknown flags 0x{:X}", slot.flags));
        if (const std::string fault = faultOfParent(*page, index); !fault.empty())
            error(number, index, "btree.parent", fault);
        for (const SlotIndex child : {slot.prev, slot.next})
            if (child != noSlot && (!page->holds(child) || !page->inUse(child) || page->slot(child).parent != index))
                error(number, index, "btree.child",
                      fmt::format("names {} as its child, which does not name it as its parent", shown(child)));
    }
    if (used != header.count)
        error(number, noSlot, "btree.count", fmt::format("{} slots in use, header says {}", used, header.count));
    if (header.smallest != outermost(*page, &KALBTreeSlot::prev))
        error(number, noSlot, "btree.smallest", fmt::format("{} is not its smallest record", shown(header.smallest)));
    if (header.largest != outermost(*page, &KALBTreeSlot::next))
        error(number, noSlot, "btree.largest", fmt::format("{} is not its largest record", shown(header.largest)));
    std::vector<SlotIndex> order;
    if (!page->order(order) && used == header.count)
        error(number, noSlot, "btree.tree", "its records cannot all be reached");
}

void Checker::checkBinaryPage(PageNumber number, const Page& bytes)
{
    const auto page = PiecePage::open(bytes);
    if (!page) {
        error(number, noSlot, "page.type", "its pieces would run past its end");
        return;
    }
    const KALDBBinaryPage& header = page->header();
    if (header.maxCount != binaryCapacity(header.size, header.slotDataSize))
        error(number, noSlot, "binary.size",
              fmt::format("has {} slots for pieces of {} bytes", header.maxCount, header.slotDataSize));
    std::uint32_t used = 0;
    for (SlotIndex index = 0; page->holds(index); ++index) {
        const KALDBBinarySlot slot = page->slot(index);
        if (slot.inUse == 0) {
            if (slot.totalSize != 0 || slot.length != 0 || slot.nextPage != noPage || slot.nextIndex != noSlot)
                error(number, index, "binary.free", "is free, but says something of a piece");
            continue;
        }
        ++used;
        if (slot.length == 0 || slot.length > header.slotDataSize || slot.length > slot.totalSize)
            error(number, index, "binary.length",
                  fmt::format("holds {} of {} bytes, which cannot be", slot.length, slot.totalSize));
        if ((slot.nextPage == noPage) != (slot.nextIndex == noSlot) ||
            (slot.nextPage != noPage && slot.nextPage >= file_.pages()))
            error(number, index, "binary.next",
                  fmt::format("goes on in page {} slot {}, which cannot be", slot.nextPage, slot.nextIndex));
    }
    if (used != header.count)
        error(number, noSlot, "binary.count", fmt::format("{} slots in use, header says {}", used, header.count));
}

}  // namespace kaldb::tool
