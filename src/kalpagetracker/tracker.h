// The page tracker: which pages are held, in which mode and how often.
//
// A request is recorded or refused at once; nothing waits. Releasing is a request too (`LockType::none`). At most one
// record holds a page; a record is free exactly when its page is `noPage`, and then its type is none and its count 0.
#pragma once

#include "common/live_handle.h"
#include "common/memory.h"
#include "common/page_number.h"
#include "common/status.h"

#include <kaldb/page_tracker.h>

#include <cstdint>
#include <span>
#include <type_traits>

namespace kaldb {

struct KALPageLock {
    PageNumber page = noPage;
    LockType type = LockType::none;
    std::uint32_t count = 0;
};
static_assert(sizeof(KALPageLock) == 12 && std::is_trivially_copyable_v<KALPageLock>);

/// The name of a lock type in texts; "none" for a value that is no lock type.
const char16_t* lockTypeName(LockType type);

}  // namespace kaldb

struct KALPageTracker : kaldb::LiveHandle<KALPageTracker> {
public:
    using Status = kaldb::Status;
    using PageNumber = kaldb::PageNumber;
    using LockType = kaldb::LockType;
    using KALPageLock = kaldb::KALPageLock;

    static Status initialize(std::uint32_t recordCount, kaldb::Handle<KALPageTracker>& tracker);
    /// Always succeeds, whatever the records hold.
    static Status deinitialize(kaldb::Handle<KALPageTracker> tracker);

    /// `lockType` comes as the caller gave it: above 3 it is refused with `noFreeSlot`.
    Status lock(PageNumber page, std::uint32_t lockType);
    /// Releases one lock; `notFound` for a page without a record.
    Status unlock(PageNumber page);
    /// The next two fail and leave the result alone for a page without a record.
    Status lockType(PageNumber page, LockType& type) const;
    Status lockCount(PageNumber page, std::uint32_t& count) const;
    /// How many further pages can be held.
    std::uint32_t freeRecords() const { return recordCount_ - held_; }
    bool isLocked(PageNumber page) const { return pagetrackerFindPage(page) != nullptr; }

private:
    std::span<KALPageLock> records() const;
    KALPageLock* pagetrackerFindPage(PageNumber page) const;
    KALPageLock* pagetrackerFindFree() const;
    void pagetrackerAddNoLock(KALPageLock& record);
    Status pagetrackerAddReadLock(KALPageLock& record);
    Status pagetrackerAddWriteLock(KALPageLock& record);
    Status pagetrackerAddReadWriteLock(KALPageLock& record);

    std::uint32_t recordCount_ = 0;
    std::uint32_t held_ = 0;  // records in use: searches for a page end at the last of them
    kaldb::Memory records_;
};
