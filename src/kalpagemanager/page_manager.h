// The page manager: one page file and a fixed cache of page slots.
//
// What holds at every instant, also through a loss of power: the file is marked dirty, or it is complete.
//   open            the mark is set and on the disk before the first page is written
//   while open      pages are written as slots are needed; the header counts a page from its creation on
//   close, backup   every page written, on the disk; then the clean mark, on the disk; then the copy is made
//   after a backup  the mark is set again and on the disk before the next page is written
#pragma once

#include "common/live_handle.h"
#include "common/memory.h"
#include "common/page_number.h"
#include "common/status.h"
#include "kalpagemanager/layout.h"
#include "kalpagemanager/slot_cache.h"
#include "kalpagetracker/tracker.h"

#include <kaldb/page_manager.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

struct KALPageManager : kaldb::LiveHandle<KALPageManager> {
public:
    using Status = kaldb::Status;
    using PageNumber = kaldb::PageNumber;
    using LockType = kaldb::LockType;

    /// Opens or creates the file and builds the cache; `created` is written as soon as the file is open.
    static Status open(const char16_t* path, std::uint32_t cacheBytes, KALPageManager*& manager,
                       std::uint32_t& created);
    ~KALPageManager();
    /// Flushes, closes, backs up and releases this object; on failure of flush or close it stays, and the file dirty.
    Status close();
    /// Closes the file as it was found and releases this object; makes no backup. Only before a page was written.
    Status abandon();

    Status load(LockType lock, PageNumber page, std::byte*& body);
    Status create(LockType lock, PageNumber& page, std::byte*& body);
    /// Releases one lock and one reference of the page.
    Status unload(std::byte* body);
    /// The same by page number; reads the page back in when it was swapped out.
    Status unlock(PageNumber page);
    /// Keeps the page in the cache without a lock, whoever holds one.
    Status reference(PageNumber page, std::byte*& body);
    /// One more reference on a page that is in the cache.
    void referenceAgain(const std::byte* body) { cache_.reference(cache_.slotOf(body)); }
    /// Changes whenever a page enters or leaves the cache: while it stays the same, bodies stay where they are.
    std::uint64_t cacheContents() const { return cache_.contents(); }
    /// The page will be loaded soon; does nothing for one that is not in the cache.
    void prefetchPage(PageNumber page) const;
    /// Drops one reference and keeps the lock.
    Status unreference(std::byte* body);
    /// Releases one lock and nothing else: no reference, no read.
    Status releaseLock(PageNumber page);

    /// Whether that many pages, none of which is held yet, can be held at once, with the spare slots of a small cache
    /// if need be: `outOfMemory` when the cache has no slots for them, `full` when the tracker has no records.
    Status canHold(std::uint32_t pages);

    Status setDirty(std::byte* body);
    Status flushPage(std::byte* body);
    Status flushAll();
    /// Every page that the header counts is in the file and on the disk, while the mark is still dirty.
    Status writeComplete();
    Status backupWhileRunning();

    /// The pages whose bytes, or some of them, the file held when it was opened, whatever its header said.
    std::uint32_t pagesFound() const { return pagesFound_; }
    std::uint32_t pageCount() const { return header_.pagesInFile; }
    /// Those of them that can be loaded: a header that lies may count any number of pages that never were.
    std::uint32_t loadablePages() const { return header_.pagesInFile - (gapEnd_ - gapBegin_); }
    PageNumber startPage() const { return header_.startPage; }
    Status setStartPage(PageNumber page);
    /// Writes the page first: should the process end, the header names no page that the file does not hold.
    Status setStartPageWritten(PageNumber page);
    const char16_t* location() const { return reinterpret_cast<const char16_t*>(location_.get()); }

    /// Damage was met since the file was opened: backups are refused from now on, so that the last good one stays.
    void noteDamage() { damaged_ = true; }
    bool damageNoted() const { return damaged_; }
    void setDamageNoted(bool noted) { damaged_ = noted; }

    /// The file at `path`, closed or complete, becomes its backup.
    static Status backup(const char16_t* path);
    /// The backup becomes the file, which must not be open.
    static Status restore(const char16_t* path);
    /// `dirty` is written when the file could be opened and its header is sound.
    static Status fileIsDirty(const char16_t* path, bool& dirty);
    /// Whether the file begins with a header that an open accepts. Never writes.
    static Status checkHeader(const char16_t* path);

    void tracePageManager() const;
    void traceFilePages();
    void traceCachePages() const;
    bool areMemPagesLocked() const;
    bool isPageLocked(const std::byte* body) const;

private:
    static constexpr PageNumber usualGap = PageNumber{1} << 14;  // pages: 32 MiB that a crash may have kept in a cache

    Status openFile(std::uint32_t& created);
    Status buildCache(std::uint32_t cacheBytes);
    Status adoptFile();
    void countPagesOfFile(std::uint64_t size);
    Status putHeaderBack();

    Status pmLoadPage(PageNumber page, std::uint32_t& slot);
    Status readPage(PageNumber page, std::uint32_t slot);
    Status pmFindFreePage(std::uint32_t& slot);
    Status pmCreatePage(LockType lock, std::uint32_t& slot);

    Status pmWriteHeader();
    Status seek(std::uint64_t offset);
    Status reopen();
    Status kalPageManagerFlushPage(std::uint32_t slot);
    std::uint32_t neighboursToWrite(std::uint32_t slot) const;
    Status writePiece(std::uint32_t slot, std::uint32_t count);
    Status writeSlots(std::uint32_t slot, std::uint32_t count);
    Status sync();
    void redirtyCache();

    void resetReferences();
    Status closeFile();
    /// Pages to fill in. A gap is none that is wider than this cache, the file and a usual cache: a header that lies
    /// must not make a small file a huge one.
    bool hasGap() const { return gapBegin_ < gapEnd_ && gapEnd_ - gapBegin_ <= largestGap(); }
    PageNumber largestGap() const { return std::max({usualGap, cache_.size(), pagesFound_}); }
    Status fillGap();
    Status markClean();
    Status markDirty();
    Status backupUnlessDamaged() const;
    static Status backup(const char16_t* path, const char16_t* shownPath);

    KALFile* file_ = nullptr;  // gone when a close failed; the next access opens the file again
    kaldb::KALPageFileHeader header_{};
    kaldb::KALPageFileHeader headerFound_{};  // as it was before this open marked it
    std::uint32_t pagesFound_ = 0;
    kaldb::SlotCache cache_;
    kaldb::Handle<KALPageTracker> tracker_;
    KALStats* statistics_ = nullptr;
    kaldb::Memory location_;      // the path as given
    kaldb::Memory absolutePath_;  // the same, wherever the process goes
    // Pages that the header counted at the opening and the file did not have; of the first one some bytes may be there.
    PageNumber gapBegin_ = 0;
    PageNumber gapEnd_ = 0;
    std::uint32_t tornBytes_ = 0;
    bool damaged_ = false;
    bool markOnDisk_ = false;    // the dirty mark: no page may be written without
    bool unsynced_ = false;      // pages were written since the last wait for the disk
    bool leftUnsynced_ = false;  // one of them may have left the cache since
    Status syncFailure_ = Status::success;
};
