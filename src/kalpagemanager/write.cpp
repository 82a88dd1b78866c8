// Writing: the header, a page, all pages, and waiting for the disk.
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <algorithm>

using namespace kaldb;

namespace {

/// What the way to a file fails with, before anything is asked of the file.
bool couldNotOpen(Status status)
{
    return status == Status::accessDenied || status == Status::tooManyFiles || status == Status::outOfMemory;
}

}  // namespace

// A close that failed took the handle with it; the file is opened again when it is needed.
Status KALPageManager::seek(std::uint64_t offset)
{
    if (file_ == nullptr)
        if (Status s = reopen(); failed(s))
            return s;
    return asStatus(kalFileSeek(file_, offset));
}

Status KALPageManager::reopen()
{
    const Status s = asStatus(kalFileOpenW(asName(absolutePath_), &file_, KAL_FILE_READ_WRITE));
    if (failed(s))
        file_ = nullptr;
    return s;
}

Status KALPageManager::pmWriteHeader()
{
    if (Status s = seek(0); failed(s))
        return s;
    std::uint32_t length = sizeof header_;
    return asStatus(kalFileWrite(file_, &header_, &length));
}

Status KALPageManager::setStartPage(PageNumber page)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerSetStartPage");
    header_.startPage = page;
    if (Status s = pmWriteHeader(); failed(s))
        return KAL_TRACE(here, s, u"could not write header");
    return Status::success;
}

// The page stays dirty: its holder is about to go on with it.
Status KALPageManager::setStartPageWritten(PageNumber page)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerSetStartPage");
    header_.startPage = page;
    if (const std::uint32_t slot = cache_.find(page); slot != SlotCache::none && cache_.isDirty(slot)) {
        if (Status s = kalPageManagerFlushPage(slot); failed(s))
            return KAL_TRACE(here, s, u"could not write page %ld", page);
        cache_.markDirty(slot);
    }
    return setStartPage(page);
}

Status KALPageManager::flushPage(std::byte* body)
{
    const std::uint32_t slot = cache_.slotOf(body);
    return slot == SlotCache::none ? Status::invalidArgument : kalPageManagerFlushPage(slot);
}

Status KALPageManager::kalPageManagerFlushPage(std::uint32_t slot)
{
    constexpr TraceSource shortened = pageManagerSource(u"kalPageManagerFlush");
    if (cache_.isDirty(slot))
        return writeSlots(slot, 1);
    KAL_TRACE(shortened, u"flushing clean page %ld", cache_.pageOf(slot));
    return Status::notApplicable;
}

// Neighbouring slots with neighbouring pages go to the file in one piece. The image in the file has the flag clear; the
// slots keep it when the write fails, and are written again later.
Status KALPageManager::writeSlots(std::uint32_t slot, std::uint32_t count)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerFlushPage");
    const PageNumber page = cache_.pageOf(slot);
    if (Status s = markDirty(); failed(s))
        return KAL_TRACE(here, s, u"could not mark the file dirty before page %ld", page);
    if (Status s = seek(pageOffset(page)); failed(s))
        return KAL_TRACE(here, s, u"could move to position for page %ld", page);

    const std::uint32_t end = slot + count;
    for (std::uint32_t at = slot; at < end; ++at)
        cache_.beginWrite(at);
    unsynced_ = true;
    std::uint32_t length = count * pageSize;
    if (Status s = asStatus(kalFileWrite(file_, cache_.page(slot), &length)); failed(s)) {
        for (std::uint32_t at = slot; at < end; ++at)
            cache_.markDirty(at);
        return KAL_TRACE(here, s, u"could not write page %ld", page);
    }
    for (std::uint32_t at = slot; at < end; ++at) {
        cache_.written(at);
        KAL_TRACE(here, u"successfully wrote page %ld (SHOW LOCK & COUNT %lu refs)", cache_.pageOf(at),
                  cache_.header(at).references);
    }
    if (Status s = asStatus(kalFileFlush(file_)); failed(s))
        KAL_TRACE(here, s, u"could not flush file");
    return Status::success;
}

Status KALPageManager::flushAll()
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerFlushAllPages");
    if (Status s = pmWriteHeader(); failed(s))
        return KAL_TRACE(here, s, u"could not write header");

    // Only traces show the slots that need no write, so they are visited for traces only.
    Status kept = Status::success;
    const auto next = [&](std::uint32_t from) { return tracing ? from : cache_.nextDirty(from); };
    for (std::uint32_t slot = next(0); slot < cache_.size(); slot = next(slot + 1))
        if (Status s = kalPageManagerFlushPage(slot); failed(s) && s != Status::notApplicable)
            kept = KAL_TRACE(here, s, u"could not write page %ld", cache_.pageOf(slot));
    return kept;
}

// One page that cannot be written must not keep its neighbours from the file: after a failure each goes alone.
Status KALPageManager::writePiece(std::uint32_t slot, std::uint32_t count)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerFlushAllPages");
    Status s = writeSlots(slot, count);
    if (failed(s) && (count == 1 || !markOnDisk_))
        return KAL_TRACE(here, s, u"could not write page %ld", cache_.pageOf(slot));
    for (std::uint32_t at = slot; failed(s) && at < slot + count; ++at)
        if (Status alone = writeSlots(at, 1); failed(alone))
            s = KAL_TRACE(here, alone, u"could not write page %ld", cache_.pageOf(at));
    return s;
}

/// How many slots from this one on are dirty and hold pages that follow each other in the file.
std::uint32_t KALPageManager::neighboursToWrite(std::uint32_t slot) const
{
    constexpr std::uint32_t largestPiece = 512;  // pages
    std::uint32_t count = 0;
    while (count < largestPiece && slot + count < cache_.size() && cache_.isDirty(slot + count) &&
           cache_.pageOf(slot + count) == cache_.pageOf(slot) + count)
        ++count;
    return count;
}

// A failed wait is final for what was written before it: the system may have dropped those pages and will not say so
// again. Pages that are still in the cache are written anew; without one of them the file can never be called complete.
// A wait that could not even begin has lost nothing.
Status KALPageManager::sync()
{
    if (failed(syncFailure_))
        return syncFailure_;
    const Status s = asStatus(kalFileSyncW(asName(absolutePath_)));
    if (ok(s)) {
        unsynced_ = leftUnsynced_ = false;
        return s;
    }
    // Without a name there is nothing that a next open could find half-way.
    if (s == Status::fileNotFound)
        return Status::success;
    if (couldNotOpen(s))
        return s;
    if (leftUnsynced_)
        syncFailure_ = s;
    else if (unsynced_)
        redirtyCache();
    return s;
}

void KALPageManager::redirtyCache()
{
    for (std::uint32_t slot = 0; slot < cache_.touched(); ++slot)
        if (!cache_.isFree(slot))
            cache_.markDirty(slot);
}

// Sets the mark and waits until it is on the disk, unless it is.
Status KALPageManager::markDirty()
{
    if (markOnDisk_)
        return Status::success;
    header_.flags |= fileDirty;
    if (Status s = pmWriteHeader(); failed(s))
        return s;
    if (Status s = sync(); failed(s))
        return s;
    markOnDisk_ = true;
    return Status::success;
}

Status KALPageManager::writeComplete()
{
    Status written = Status::success;
    for (std::uint32_t slot = cache_.nextDirty(0), count = 0; slot < cache_.size();
         slot = cache_.nextDirty(slot + count)) {
        count = neighboursToWrite(slot);
        keepLast(written, writePiece(slot, count));
    }
    if (failed(written))
        return written;
    if (hasGap())
        if (Status s = fillGap(); failed(s))
            return s;
    if (unsynced_)
        if (Status s = sync(); failed(s))
            return s;
    if (hasGap())
        gapBegin_ = gapEnd_;
    return Status::success;
}

// Pages that the header counts and a crash kept from the file: without them its length would never fit its header
// again. A load refuses what stands there instead.
Status KALPageManager::fillGap()
{
    Memory page = allocateMemory(pageSize, sourceFile);
    if (!page)
        return Status::outOfMemory;
    pmFormatPage(page.get());

    if (Status s = markDirty(); failed(s))
        return s;
    if (Status s = seek(pageOffset(gapBegin_)); failed(s))
        return s;
    unsynced_ = true;  // and should the disk fail, the gap is filled again
    for (PageNumber filled = gapBegin_; filled < gapEnd_; ++filled) {
        std::uint32_t length = pageSize;
        if (Status s = asStatus(kalFileWrite(file_, page.get(), &length)); failed(s))
            return s;
    }
    return Status::success;
}

// After `writeComplete`: the header says that the file is whole.
Status KALPageManager::markClean()
{
    markOnDisk_ = false;
    header_.flags &= ~fileDirty;
    if (Status s = flushAll(); failed(s))
        return s;
    return sync();
}
