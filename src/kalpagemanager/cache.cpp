// Loading, creating and giving back pages.
#include "common/prefetch.h"
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <ctime>

using namespace kaldb;

Status KALPageManager::load(LockType lock, PageNumber page, std::byte*& body)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerLoadPage");
    std::uint32_t slot = SlotCache::none;
    if (Status s = pmLoadPage(page, slot); failed(s))
        return s;
    prefetch(cache_.page(slot), pageSize);  // a search reads here and there, each time where the last look led it
    if (Status s = tracker_->lock(page, static_cast<std::uint32_t>(lock)); failed(s))
        return KAL_TRACE(here, s, u"could not lock page %ld", page);
    if (lock == LockType::none)
        cache_.dereference(slot);
    else
        cache_.reference(slot);
    body = cache_.body(slot);
    return Status::success;
}

Status KALPageManager::canHold(std::uint32_t pages)
{
    if (!cache_.makeRoomFor(pages))
        return Status::outOfMemory;
    return tracker_->freeRecords() < pages ? Status::full : Status::success;
}

Status KALPageManager::pmLoadPage(PageNumber page, std::uint32_t& slot)
{
    constexpr TraceSource here = pageManagerSource(u"pmLoadPage");
    slot = cache_.find(page);
    if (slot != SlotCache::none) {
        KAL_TRACE(here, u"page %ld already in memory (SHOW LOCK & COUNT)", page);
        return Status::success;
    }
    if (Status s = pmFindFreePage(slot); failed(s))
        return s;
    cache_.clear(slot);
    if (Status s = readPage(page, slot); failed(s)) {
        cache_.format(slot);
        return s;
    }
    KAL_TRACE(here, u"successfully loaded page %ld (SHOW LOCK & COUNT %lu refs)", page, cache_.header(slot).references);
    cache_.holdLoaded(slot, page);
    return Status::success;
}

// Of the header in the file only the page's own number counts. A page that was never written reads as zeros when later
// ones were, and zeros name page 0: no header is 0 bytes long.
Status KALPageManager::readPage(PageNumber page, std::uint32_t slot)
{
    constexpr TraceSource here = pageManagerSource(u"pmLoadPage");
    if (Status s = seek(pageOffset(page)); failed(s))
        return KAL_TRACE(here, s, u"could not seek to page");
    std::uint32_t length = pageSize;
    if (Status s = asStatus(kalFileRead(file_, cache_.page(slot), &length)); failed(s))
        return KAL_TRACE(here, s, u"could not read from file");
    if (page >= gapBegin_ && page < gapEnd_)
        length = page == gapBegin_ ? tornBytes_ : 0;  // pages written behind it do not make it whole
    if (length == 0)
        return Status::endOfFile;
    if (length != pageSize) {
        noteDamage();
        KAL_TRACE(here, u"could not read full page from file");
        return Status::shortRead;
    }
    const KALPageHeader& found = cache_.header(slot);
    if (found.page != page || found.headerLength == 0) {
        noteDamage();
        return KAL_TRACE(here, Status::failure, u"found page %ld in the place of page %ld", found.page, page);
    }
    return Status::success;
}

Status KALPageManager::pmFindFreePage(std::uint32_t& slot)
{
    constexpr TraceSource here = pageManagerSource(u"pmFindFreePage");
    slot = cache_.choose();
    if (slot == SlotCache::none)
        return Status::outOfMemory;
    if (cache_.isFree(slot))
        return Status::success;

    const PageNumber page = cache_.header(slot).page;
    if (cache_.isDirty(slot)) {
        if (Status s = kalPageManagerFlushPage(slot); failed(s))
            return KAL_TRACE(here, s, u"could not flush page %ld", page);
        cache_.clear(slot);
        cache_.format(slot);
    } else {
        KAL_TRACE(here, u"swapping clean page %ld", page);
    }
    leftUnsynced_ = leftUnsynced_ || unsynced_;
    return Status::success;
}

Status KALPageManager::create(LockType lock, PageNumber& page, std::byte*& body)
{
    std::uint32_t slot = SlotCache::none;
    if (Status s = pmCreatePage(lock, slot); failed(s))
        return s;
    page = cache_.header(slot).page;
    body = cache_.body(slot);
    return Status::success;
}

// A new page exists in the cache only, until it is written.
Status KALPageManager::pmCreatePage(LockType lock, std::uint32_t& slot)
{
    constexpr TraceSource here = pageManagerSource(u"pmCreatePage");
    const PageNumber page = header_.pagesInFile;
    if (page == noPage)
        return KAL_TRACE(here, Status::full, u"no page number is left");
    const Status found = pmFindFreePage(slot);
    if (found == Status::outOfMemory) {
        KAL_TRACE(here, u"no memory to create new page");
        return found;
    }
    if (failed(found))
        return KAL_TRACE(here, found, u"could not find free page");

    cache_.clear(slot);
    if (Status s = tracker_->lock(page, static_cast<std::uint32_t>(lock)); failed(s)) {
        cache_.format(slot);
        return KAL_TRACE(here, s, u"could not lock new page %ld", page);
    }
    cache_.holdCreated(slot, page, static_cast<std::uint32_t>(std::time(nullptr)));
    ++header_.pagesInFile;
    if (failed(pmWriteHeader()))
        KAL_TRACE(here, u"could not write header");
    KAL_TRACE(here, u"created new page %ld", page);
    return Status::success;
}

// Releasing gives back one lock and one reference, as a load without a lock does.
Status KALPageManager::unload(std::byte* body)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerUnloadPage");
    constexpr TraceSource misspelt = pageManagerSource(u"kalpageManagerUnloadPage");
    constexpr TraceSource finding = pageManagerSource(u"pmLoadPage");
    constexpr TraceSource loading = pageManagerSource(u"kalPageManagerLoadPage");
    const std::uint32_t slot = cache_.slotOf(body);
    if (slot == SlotCache::none)
        return Status::invalidArgument;
    const PageNumber page = cache_.header(slot).page;
    KAL_TRACE(finding, u"page %ld already in memory (SHOW LOCK & COUNT)", page);
    if (Status s = tracker_->lock(page, static_cast<std::uint32_t>(LockType::none)); failed(s)) {
        KAL_TRACE(loading, s, u"could not lock page %ld", page);
        return KAL_TRACE(here, s, u"could not load page %ld", page);
    }
    cache_.dereference(slot);
    KAL_TRACE(misspelt, u"unloaded page %ld", page);
    return Status::success;
}

Status KALPageManager::unlock(PageNumber page)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerUnlockPage");
    constexpr TraceSource misspelt = pageManagerSource(u"kalpageManagerUnlockPage");
    std::byte* body = nullptr;
    if (Status s = load(LockType::none, page, body); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", page);
    KAL_TRACE(misspelt, u"unlocked page %ld", page);
    return Status::success;
}

Status KALPageManager::reference(PageNumber page, std::byte*& body)
{
    std::uint32_t slot = SlotCache::none;
    if (Status s = pmLoadPage(page, slot); failed(s))
        return s;
    cache_.reference(slot);
    body = cache_.body(slot);
    return Status::success;
}

void KALPageManager::prefetchPage(PageNumber page) const
{
    if (const std::uint32_t slot = cache_.find(page); slot != SlotCache::none)
        prefetch(cache_.page(slot), pageSize);
}

Status KALPageManager::unreference(std::byte* body)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerUnreferencePage");
    const std::uint32_t slot = cache_.slotOf(body);
    if (slot == SlotCache::none)
        return Status::invalidArgument;
    cache_.dereference(slot);
    KAL_TRACE(here, u"unreferenced page %ld (SHOW LOCK & COUNT %ld refs)", cache_.header(slot).page,
              cache_.header(slot).references);
    return Status::success;
}

Status KALPageManager::releaseLock(PageNumber page) { return tracker_->unlock(page); }

Status KALPageManager::setDirty(std::byte* body)
{
    const std::uint32_t slot = cache_.slotOf(body);
    if (slot == SlotCache::none)
        return Status::invalidArgument;
    cache_.markDirty(slot);
    return Status::success;
}
