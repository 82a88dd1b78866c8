// Looking into a running page manager. The walks write to the trace only.
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <cstring>

using namespace kaldb;

namespace {

void tracePageHeader([[maybe_unused]] const KALPageHeader& header)
{
    KAL_TRACE(verbatim, u"Page %ld\n", header.page);
    KAL_TRACE(verbatim, u"Header Length = %ld\n", header.headerLength);
    KAL_TRACE(verbatim, u"Reference Count = %ld\n", header.references);
    KAL_TRACE(verbatim, u"Last Used = %d\n", header.lastUsed);
    KAL_TRACE(verbatim, u"Flags = 0x%08X\n", header.flags);
    KAL_TRACE(verbatim, u"Checksum = 0x%08X\n", header.checksum);
}

/// A field of the file, ended for good.
template <std::size_t length>
struct FieldText {
    explicit FieldText(const char (&field)[length]) { std::memcpy(text, field, length); }
    char text[length + 1] = {};
};

}  // namespace

void KALPageManager::tracePageManager() const
{
    KAL_TRACE(verbatim, u"Page Manager 0x%08X\n", traceAddress(this));
    KAL_TRACE(verbatim, u"Length = %ld\n", static_cast<std::uint32_t>(sizeof *this));
    KAL_TRACE(verbatim, u"Type Name = %s\n", static_cast<const char*>(FieldText{header_.typeName}.text));
    KAL_TRACE(verbatim, u"Name = %s\n", static_cast<const char*>(FieldText{header_.name}.text));
    KAL_TRACE(verbatim, u"File Header Length = %ld\n", header_.headerLength);
    KAL_TRACE(verbatim, u"Page Size = %ld\n", header_.pageSize);
    KAL_TRACE(verbatim, u"Usable Page Size = %ld\n", header_.pageSize - pageHeaderLength);
    KAL_TRACE(verbatim, u"Pages In File = %ld\n", header_.pagesInFile);
    KAL_TRACE(verbatim, u"Start Page = %ld\n", header_.startPage);
    KAL_TRACE(verbatim, u"Version = %ld\n", header_.version);
    KAL_TRACE(verbatim, u"Data File Handle = 0x%08X\n", traceAddress(file_));
    KAL_TRACE(verbatim, u"Journal File Handle = 0x%08X\n", 0u);  // there is no journal
    KAL_TRACE(verbatim, u"Lock Type = %s\n", lockTypeName(LockType::none));
    KAL_TRACE(verbatim, u"Read Lock Count = %ld\n", 0u);
    KAL_TRACE(verbatim, u"Max Cached Pages = %ld\n", cache_.size());
}

void KALPageManager::traceFilePages()
{
    constexpr TraceSource here = pageManagerSource(u"pmTraceFilePages");
    for (PageNumber page = 0; page < header_.pagesInFile; ++page) {
        std::byte* body = nullptr;
        if (Status s = load(LockType::read, page, body); failed(s)) {
            KAL_TRACE(here, s, u"could not load page %ld", page);
            continue;
        }
        tracePageHeader(cache_.header(cache_.slotOf(body)));
        ignore(unload(body));
    }
}

void KALPageManager::traceCachePages() const
{
    alignas(KALPageHeader) std::byte untouched[pageSize];
    pmFormatPage(untouched);
    for (std::uint32_t slot = 0; tracing && slot < cache_.size(); ++slot)
        tracePageHeader(slot < cache_.touched() ? cache_.header(slot)
                                                : *reinterpret_cast<const KALPageHeader*>(untouched));
}

bool KALPageManager::areMemPagesLocked() const
{
    for (std::uint32_t slot = 0; slot < cache_.touched(); ++slot)
        if (!cache_.isFree(slot) && tracker_->isLocked(cache_.pageOf(slot)))
            return true;
    return false;
}

bool KALPageManager::isPageLocked(const std::byte* body) const
{
    const std::uint32_t slot = cache_.slotOf(body);
    return slot != SlotCache::none && tracker_->isLocked(cache_.pageOf(slot));
}
