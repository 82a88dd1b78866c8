// The check of every page: its type, the structure of its slots, its links.

#include "common/memory.h"
#include "kalbtree/layout.h"
#include "kaldbbinarypage/layout.h"
#include "kaldbvalidate/internal.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace kaldb {

namespace {

constexpr const char* sourceFile = "./src/kaldbvalidate";

bool hasType(TypedPage page, std::uint32_t headerLength, const std::array<char, 4>& name)
{
    return readField<std::uint32_t>(page.data()) == headerLength &&
           readField<std::array<char, 4>>(page.data(), offsetof(KALBTreePage, typeName)) == name;
}

/// The slots of a B-tree page. Where they fit the page no index leads out of it; items are not looked at.
class ExaminedSlots {
public:
    explicit ExaminedSlots(TypedPage page) : page_(page), header_(readField<KALBTreePage>(page.data())) {}

    const KALBTreePage& header() const { return header_; }
    bool fitPage() const { return header_.maxCount <= (page_.size() - btreeHeaderLength) / sizeof(KALBTreeSlot); }
    bool holds(SlotIndex index) const { return index < header_.maxCount; }
    KALBTreeSlot operator[](std::size_t index) const
    {
        return readField<KALBTreeSlot>(page_.data(), sizeof(KALBTreePage) + index * sizeof(KALBTreeSlot));
    }
    /// Whether `child` is none or names `parent`.
    bool agrees(SlotIndex child, std::size_t parent) const
    {
        return child == noSlot || (holds(child) && (*this)[child].parent == parent);
    }

private:
    TypedPage page_;
    KALBTreePage header_;
};

bool unlinked(const KALBTreeSlot& slot) { return slot.prev == noSlot && slot.next == noSlot && slot.parent == noSlot; }

bool emptyPageIsSound(const ExaminedSlots& slots)
{
    const KALBTreePage& header = slots.header();
    if (header.root != noSlot || header.smallest != noSlot || header.largest != noSlot)
        return false;
    for (std::size_t i = 0; i < header.maxCount; ++i) {
        const KALBTreeSlot slot = slots[i];
        if ((slot.flags != 1 && slot.flags != 2) || !unlinked(slot))
            return false;
    }
    return true;
}

bool filledPageIsSound(const ExaminedSlots& slots)
{
    const KALBTreePage& header = slots.header();
    if (header.count > header.maxCount)
        return false;
    if (!slots.holds(header.root) || !slots.holds(header.smallest) || !slots.holds(header.largest))
        return false;
    if (slots[header.root].parent != noSlot || slots[header.smallest].prev != noSlot ||
        slots[header.largest].next != noSlot)
        return false;

    std::uint32_t inUse = 0;
    for (std::size_t i = 0; i < header.maxCount; ++i) {
        const KALBTreeSlot slot = slots[i];
        if (slot.flags != 0) {
            if (!unlinked(slot))
                return false;
            continue;
        }
        if (!slots.agrees(slot.prev, i) || !slots.agrees(slot.next, i))
            return false;
        ++inUse;
    }
    return inUse == header.count;
}

bool binarySlotIsSound(const KALDBBinarySlot& slot)
{
    if (slot.inUse != 0)
        return slot.totalSize > 0 && slot.length > 0;
    return slot.totalSize == 0 && slot.length == 0 && slot.nextPage == noPage && slot.nextIndex == noSlot;
}

void dbValidatePageType(KALDBValidateContext& context, TypedPage page, [[maybe_unused]] PageNumber number)
{
    constexpr TraceSource here = validateSource(u"dbValidatePageType");
    if (hasType(page, sizeof(KALBTreePage), btreeTypeName)) {
        if (dbValidateBTreePage(page))
            return;
        KAL_TRACE(here, u"Page %ld btree page invalid", number);
    } else if (hasType(page, sizeof(KALDBBinaryPage), binaryTypeName)) {
        if (dbValidateBinaryPage(page))
            return;
        KAL_TRACE(here, u"Page %ld binary page invalid", number);
    } else {
        KAL_TRACE(here, u"Page %ld is an invalid type", number);
    }
    context.addErrors();
}

constexpr TraceSource here = validateSource(u"dbCheckPages");

Status readWholePage(const ExaminedFile& file, PageNumber page, std::span<std::byte, pageSize> buffer)
{
    const std::uint64_t offset = pageOffset(page);
    if (Status s = file.seek(offset); failed(s))
        return KAL_TRACE(here, s, u"Could not seek to page %ld (offset %ld)", page, static_cast<std::uint32_t>(offset));
    std::size_t length = 0;
    Status s = file.read(buffer, length);
    if (ok(s) && length < buffer.size())
        s = length == 0 ? Status::endOfFile : Status::shortRead;
    if (failed(s))
        return KAL_TRACE(here, s, u"Could not read page %ld", page);
    return Status::success;
}

void checkPage(KALDBValidateContext& context, PageNumber number, std::span<std::byte, pageSize> buffer,
               CheckedLinks& checked)
{
    checked = {noPage, noPage, noPage, 0};
    if (failed(readWholePage(context.file, number, buffer))) {
        context.addErrors();
        return;
    }
    const auto links = readField<KALDBPageLinks>(buffer.data(), pageHeaderLength);
    checked = {links.parent, links.prev, links.next, 1};
    if ((context.options & validatePrintPages) != 0)
        printPageLinks(links);
    dbTracePageHeader(readField<KALPageHeader>(buffer.data()));
    dbValidatePageType(context, buffer.last<typedPageSize>(), number);
}

/// How many of the pages that the header counts the file can hold whole. Each of the others is an error of its own, and
/// is neither read nor given a place in the link table: a hostile header costs what the file's real length costs.
Status countHeldPages(KALDBValidateContext& context, PageNumber& held)
{
    std::uint64_t size = 0;
    if (Status s = context.file.size(size); failed(s)) {
        context.addErrors();
        return KAL_TRACE(here, s, u"Could not retrieve file length");
    }
    const std::uint64_t whole = size < fileHeaderLength ? 0 : (size - fileHeaderLength) / pageSize;
    held = static_cast<PageNumber>(std::min<std::uint64_t>(whole, context.header.pagesInFile));
    if (held < context.header.pagesInFile) {
        context.addErrors(context.header.pagesInFile - held);
        ignore(KAL_TRACE(here, Status::endOfFile, u"Could not read page %ld", held));
    }
    return Status::success;
}

/// The link table, one place a page; empty when there is no memory for it.
Memory allocateLinks(PageNumber pages)
{
    const std::uint64_t bytes = std::uint64_t{std::max<PageNumber>(pages, 1)} * sizeof(CheckedLinks);
    if (bytes > UINT32_MAX)
        return {};
    return allocateMemory(static_cast<std::uint32_t>(bytes), sourceFile);
}

}  // namespace

bool dbValidateBTreePage(TypedPage page)
{
    const ExaminedSlots slots{page};
    if (!hasType(page, sizeof(KALBTreePage), btreeTypeName) || !slots.fitPage())
        return false;
    return slots.header().count == 0 ? emptyPageIsSound(slots) : filledPageIsSound(slots);
}

bool dbValidateBinaryPage(TypedPage page)
{
    const auto header = readField<KALDBBinaryPage>(page.data());
    if (!hasType(page, sizeof(KALDBBinaryPage), binaryTypeName) || header.size < sizeof header)
        return false;
    const std::uint64_t stride = sizeof(KALDBBinarySlot) + std::uint64_t{header.slotDataSize};
    if (header.maxCount != (header.size - sizeof header) / stride)
        return false;
    for (std::uint64_t i = 0; i < header.maxCount; ++i) {
        // The header of each slot must lie in the page; what the last slot can hold need not.
        const std::uint64_t offset = sizeof header + i * stride;
        if (offset + sizeof(KALDBBinarySlot) > page.size() ||
            !binarySlotIsSound(readField<KALDBBinarySlot>(page.data(), offset)))
            return false;
    }
    return true;
}

void dbCheckPages(KALDBValidateContext& context)
{
    const Memory buffer = allocateMemory(pageSize, sourceFile);
    if (!buffer) {
        context.addErrors();
        KAL_TRACE(here, u"Could not allocate memory for page");
        return;
    }
    std::fill_n(buffer.get(), pageSize, std::byte{0});

    PageNumber held = 0;
    if (failed(countHeldPages(context, held)))
        return;
    const Memory table = allocateLinks(held);
    if (!table) {
        context.addErrors();
        here.error(u"Could not allocate memory for links");
        return;
    }
    auto* const first = reinterpret_cast<CheckedLinks*>(table.get());
    std::uninitialized_default_construct_n(first, held);
    const std::span<CheckedLinks> links{first, held};
    for (PageNumber page = 0; page < held; ++page)
        checkPage(context, page, std::span<std::byte, pageSize>{buffer.get(), pageSize}, links[page]);
    dbCheckLinks(context, links);
}

}  // namespace kaldb
