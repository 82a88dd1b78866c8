/*
 * The page tracker: which pages are held, in which mode and how often.
 *
 * A request is recorded or refused at once; nothing waits. What a request does to a page:
 *
 *     request      not held         read             write            read/write
 *     read         read, 1          one more         refused          one more
 *     write        write, 1         refused          one more         one more
 *     read/write   read/write, 1    refused          refused          one more
 *     none         nothing          one less         one less         one less
 *
 * A page whose last lock is released is no longer tracked. A page manager has a tracker of its own with 20 records;
 * these operations are for callers that keep another. A null tracker or result, or a tracker that was ended, is
 * answered with KALDB_INVALID_ARGUMENT. The calls are not safe against each other.
 */
#ifndef KALDB_PAGE_TRACKER_H
#define KALDB_PAGE_TRACKER_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A tracker for at most `recordCount` pages at a time. The second argument is not used. *tracker is the caller's, who
 * ends it with kalPageTrackerDeinitialize. KALDB_SUCCESS; KALDB_OUT_OF_MEMORY; KALDB_INVALID_ARGUMENT.
 */
KALDB_API uint32_t kalPageTrackerInitialize(uint32_t recordCount, uint32_t unused, KALPageTracker** tracker);

/* Releases the tracker, whatever it holds. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageTrackerDeinitialize(KALPageTracker* tracker);

/*
 * The table above; `lockType` is one of KALDB_LOCK_NONE to KALDB_LOCK_READ_WRITE. A request that fails changes nothing.
 * KALDB_SUCCESS; KALDB_LOCK_CONFLICT where it says "refused"; KALDB_FULL when a further page finds no record;
 * KALDB_NO_FREE_SLOT for another lock type; KALDB_INVALID_ARGUMENT, also for a lock on KALDB_NO_PAGE.
 *
 *     kalPageTrackerLockPage(tracker, 7, KALDB_LOCK_READ);     // KALDB_SUCCESS
 *     kalPageTrackerLockPage(tracker, 7, KALDB_LOCK_WRITE);    // KALDB_LOCK_CONFLICT
 */
KALDB_API uint32_t kalPageTrackerLockPage(KALPageTracker* tracker, uint32_t page, uint32_t lockType);

/* Releases one lock. KALDB_SUCCESS; KALDB_NOT_FOUND when the page is not held; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageTrackerUnlockPage(KALPageTracker* tracker, uint32_t page);

/*
 * How, and how often, the page is held. KALDB_SUCCESS; KALDB_FAILURE when it is not, and the result stays as it was;
 * KALDB_INVALID_ARGUMENT.
 */
KALDB_API uint32_t kalPageTrackerGetPageLockType(KALPageTracker* tracker, uint32_t page, uint32_t* lockType);
KALDB_API uint32_t kalPageTrackerGetPageLockCount(KALPageTracker* tracker, uint32_t page, uint32_t* count);

/* *locked becomes 1 when the page is held, else 0. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageTrackerIsPageLocked(KALPageTracker* tracker, uint32_t page, uint32_t* locked);

#ifdef __cplusplus
}
#endif
#endif
