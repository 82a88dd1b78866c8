// The requests on a lock record:
//
//   request       none            read              write             read/write     (the record's type)
//   read          read, +1        +1                refused           +1
//   write         write, +1       refused           +1                +1
//   read/write    read/write, +1  refused           refused           +1
//   none          alredy unlocked -1, or free       -1, or free       -1, or free
#include "kalpagetracker/tracker.h"

#include "common/trace.h"

#include <algorithm>
#include <limits>

using namespace kaldb;

namespace {

constexpr const char* sourceFile = "./src/kalpagetracker";
constexpr TraceSource source(const char16_t* operation) { return {u"kalpagetracker: ", operation}; }

}  // namespace

const char16_t* kaldb::lockTypeName(LockType type)
{
    static constexpr const char16_t* names[] = {u"none", u"read", u"write", u"read/write"};
    const std::uint32_t index = static_cast<std::uint32_t>(type);
    return index < std::size(names) ? names[index] : names[0];
}

Status KALPageTracker::initialize(std::uint32_t recordCount, Handle<KALPageTracker>& tracker)
{
    constexpr TraceSource here = source(u"kalPageTrackerInitialize");
    Handle<KALPageTracker> made = makeHandle<KALPageTracker>(sourceFile);
    if (!made)
        return KAL_TRACE(here, Status::outOfMemory, u"could not allocate handle");

    if (recordCount <= std::numeric_limits<std::uint32_t>::max() / sizeof(KALPageLock))
        made->records_ = allocateMemory(static_cast<std::uint32_t>(recordCount * sizeof(KALPageLock)), sourceFile);
    if (!made->records_)
        return KAL_TRACE(here, Status::outOfMemory, u"could not allocate lock data");
    made->recordCount_ = recordCount;
    std::ranges::fill(made->records(), KALPageLock{});
    tracker = std::move(made);
    return Status::success;
}

Status KALPageTracker::deinitialize(Handle<KALPageTracker> tracker)
{
    tracker.reset();
    return Status::success;
}

// A request that takes no lock must not take a record either: that of a release or of an unknown type.
Status KALPageTracker::lock(PageNumber page, std::uint32_t lockType)
{
    KALPageLock* record = pagetrackerFindPage(page);
    if (record == nullptr) {
        record = pagetrackerFindFree();
        if (record == nullptr)
            return Status::full;
        if (static_cast<LockType>(lockType) == LockType::none) {
            KAL_TRACE(source(u"pagetrackerAddNoLock"), u"page %ld alredy unlocked", page);
            return Status::success;
        }
    }
    if (lockType > static_cast<std::uint32_t>(LockType::readWrite))
        return Status::noFreeSlot;
    if (page == noPage)
        return Status::invalidArgument;
    if (record->page == noPage) {
        record->page = page;
        ++held_;
    }

    switch (static_cast<LockType>(lockType)) {
    case LockType::read: return pagetrackerAddReadLock(*record);
    case LockType::write: return pagetrackerAddWriteLock(*record);
    case LockType::readWrite: return pagetrackerAddReadWriteLock(*record);
    case LockType::none: break;
    }
    pagetrackerAddNoLock(*record);
    return Status::success;
}

Status KALPageTracker::unlock(PageNumber page)
{
    KALPageLock* record = pagetrackerFindPage(page);
    if (record == nullptr)
        return Status::notFound;
    pagetrackerAddNoLock(*record);
    return Status::success;
}

Status KALPageTracker::lockType(PageNumber page, LockType& type) const
{
    const KALPageLock* record = pagetrackerFindPage(page);
    if (record == nullptr)
        return Status::failure;
    type = record->type;
    return Status::success;
}

Status KALPageTracker::lockCount(PageNumber page, std::uint32_t& count) const
{
    const KALPageLock* record = pagetrackerFindPage(page);
    if (record == nullptr)
        return Status::failure;
    count = record->count;
    return Status::success;
}

std::span<KALPageLock> KALPageTracker::records() const
{
    return {reinterpret_cast<KALPageLock*>(records_.get()), recordCount_};
}

KALPageLock* KALPageTracker::pagetrackerFindPage(PageNumber page) const
{
    std::uint32_t unseen = page == noPage ? 0 : held_;
    for (KALPageLock* record = records().data(); unseen > 0; ++record) {
        if (record->page == page)
            return record;
        if (record->page != noPage)
            --unseen;
    }
    return nullptr;
}

KALPageLock* KALPageTracker::pagetrackerFindFree() const
{
    for (KALPageLock& record : records())
        if (record.page == noPage)
            return &record;
    return nullptr;
}

void KALPageTracker::pagetrackerAddNoLock(KALPageLock& record)
{
    constexpr TraceSource here = source(u"pagetrackerAddNoLock");
    if (record.count > 1) {
        --record.count;
        KAL_TRACE(here, u"unlocked page %ld (%ld %s lock)", record.page, record.count, lockTypeName(record.type));
        return;
    }
    KAL_TRACE(here, u"unlocked page %ld (no locks)", record.page);
    record = KALPageLock{};
    --held_;
}

Status KALPageTracker::pagetrackerAddReadLock(KALPageLock& record)
{
    constexpr TraceSource here = source(u"pagetrackerAddReadLock");
    if (record.type == LockType::write)
        return KAL_TRACE(here, Status::lockConflict, u"could not read lock page %lu", record.page);
    if (record.type == LockType::none)
        record.type = LockType::read;
    ++record.count;
    KAL_TRACE(here, u"read locked page %lu (%lu %s lock)", record.page, record.count, lockTypeName(record.type));
    return Status::success;
}

Status KALPageTracker::pagetrackerAddWriteLock(KALPageLock& record)
{
    constexpr TraceSource here = source(u"pagetrackerAddWriteLock");
    if (record.type == LockType::read)
        return KAL_TRACE(here, Status::lockConflict, u"could not write lock page %lu", record.page);
    if (record.type == LockType::none)
        record.type = LockType::write;
    ++record.count;
    KAL_TRACE(here, u"write locked page %lu (%lu %s locks)", record.page, record.count, lockTypeName(record.type));
    return Status::success;
}

Status KALPageTracker::pagetrackerAddReadWriteLock(KALPageLock& record)
{
    constexpr TraceSource here = source(u"pagetrackerAddReadWriteLock");
    if (record.type == LockType::read || record.type == LockType::write)
        return KAL_TRACE(here, Status::lockConflict, u"could not read/write lock page %lu", record.page);
    record.type = LockType::readWrite;
    ++record.count;
    KAL_TRACE(here, u"read/write locked page %lu (%lu %s locks)", record.page, record.count, lockTypeName(record.type));
    return Status::success;
}
