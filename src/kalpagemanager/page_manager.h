// The page manager: one page file and a fixed cache of page slots.
#pragma once

#include "common/page_number.h"
#include "common/status.h"
#include "kalpagemanager/layout.h"

#include <kaldb/page_manager.h>

#include <cstddef>
#include <cstdint>

struct KALPageManager {
public:
    using Status = kaldb::Status;
    using PageNumber = kaldb::PageNumber;
    using LockType = kaldb::LockType;

    /// Opens or creates the file and builds the cache; `created` is written as soon as the file is open.
    static Status open(const char16_t* path, std::uint32_t cacheBytes, KALPageManager*& manager, bool& created);
    /// Flushes, closes, backs up and releases this object; on failure of flush or close it stays, and the file dirty.
    Status close();

    Status load(LockType lock, PageNumber page, std::byte*& body);
    Status create(LockType lock, PageNumber& page, std::byte*& body);
    /// Releases one lock and one reference of the page.
    Status unload(std::byte* body);
    /// The same by page number; reads the page back in when it was swapped out.
    Status unlock(PageNumber page);
    /// Drops one reference and keeps the lock.
    Status unreference(std::byte* body);
    /// Releases one lock and nothing else: no reference, no read.
    Status releaseLock(PageNumber page);

    Status setDirty(std::byte* body);
    Status flushPage(std::byte* body);
    Status flushAll();
    Status backupWhileRunning();

    std::uint32_t pageCount() const;
    PageNumber startPage() const;
    Status setStartPage(PageNumber page);
    const char16_t* location() const;

    /// Damage was met in this session: its backups are refused from now on, so that the last good one stays.
    void noteDamage();
};
