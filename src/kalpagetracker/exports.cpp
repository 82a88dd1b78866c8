// The C interface of the page tracker.
#include "common/guard.h"
#include "kalpagetracker/tracker.h"

#include <kaldb/page_tracker.h>

using namespace kaldb;

namespace {

constexpr std::uint32_t invalidArgument = code(Status::invalidArgument);

}  // namespace

extern "C" {

uint32_t kalPageTrackerInitialize(uint32_t recordCount, uint32_t, KALPageTracker** tracker)
{
    if (tracker == nullptr)
        return invalidArgument;
    return guarded([=] {
        Handle<KALPageTracker> made;
        if (Status s = KALPageTracker::initialize(recordCount, made); failed(s))
            return s;
        *tracker = made.release();
        return Status::success;
    });
}

uint32_t kalPageTrackerDeinitialize(KALPageTracker* tracker)
{
    if (!KALPageTracker::isLive(tracker))
        return invalidArgument;
    return guarded([=] { return KALPageTracker::deinitialize(Handle<KALPageTracker>{tracker}); });
}

uint32_t kalPageTrackerLockPage(KALPageTracker* tracker, uint32_t page, uint32_t lockType)
{
    if (!KALPageTracker::isLive(tracker))
        return invalidArgument;
    return guarded([=] { return tracker->lock(page, lockType); });
}

uint32_t kalPageTrackerUnlockPage(KALPageTracker* tracker, uint32_t page)
{
    if (!KALPageTracker::isLive(tracker))
        return invalidArgument;
    return guarded([=] { return tracker->unlock(page); });
}

uint32_t kalPageTrackerGetPageLockType(KALPageTracker* tracker, uint32_t page, uint32_t* lockType)
{
    if (!KALPageTracker::isLive(tracker) || lockType == nullptr)
        return invalidArgument;
    return guarded([=] {
        LockType type = LockType::none;
        if (Status s = tracker->lockType(page, type); failed(s))
            return s;
        *lockType = static_cast<std::uint32_t>(type);
        return Status::success;
    });
}

uint32_t kalPageTrackerGetPageLockCount(KALPageTracker* tracker, uint32_t page, uint32_t* count)
{
    if (!KALPageTracker::isLive(tracker) || count == nullptr)
        return invalidArgument;
    return guarded([=] { return tracker->lockCount(page, *count); });
}

uint32_t kalPageTrackerIsPageLocked(KALPageTracker* tracker, uint32_t page, uint32_t* locked)
{
    if (!KALPageTracker::isLive(tracker) || locked == nullptr)
        return invalidArgument;
    *locked = tracker->isLocked(page) ? 1 : 0;
    return code(Status::success);
}
}
