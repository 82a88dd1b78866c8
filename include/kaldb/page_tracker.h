/* The page tracker: which pages are held, and how. */
#ifndef KALDB_PAGE_TRACKER_H
#define KALDB_PAGE_TRACKER_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API uint32_t kalPageTrackerInitialize(uint32_t recordCount, uint32_t unused, KALPageTracker** tracker);
KALDB_API uint32_t kalPageTrackerDeinitialize(KALPageTracker* tracker);
KALDB_API uint32_t kalPageTrackerLockPage(KALPageTracker* tracker, uint32_t page, uint32_t lockType);
KALDB_API uint32_t kalPageTrackerUnlockPage(KALPageTracker* tracker, uint32_t page);
KALDB_API uint32_t kalPageTrackerGetPageLockType(KALPageTracker* tracker, uint32_t page, uint32_t* lockType);
KALDB_API uint32_t kalPageTrackerGetPageLockCount(KALPageTracker* tracker, uint32_t page, uint32_t* count);
KALDB_API uint32_t kalPageTrackerIsPageLocked(KALPageTracker* tracker, uint32_t page, uint32_t* locked);

#ifdef __cplusplus
}
#endif
#endif
