/*
 * Looking into a running page manager.
 *
 * The trace walks write to the trace (level 3 of kalLogSetSink), which only a build with traces produces; in any other
 * build they write nothing. They return nothing, and do nothing with a null or closed manager.
 */
#ifndef KALDB_DIAGNOSTICS_H
#define KALDB_DIAGNOSTICS_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The manager's record: a line for each field of the file header but its flags, then for the manager's own. */
KALDB_API void pmTracePageManager(KALPageManager* manager);

/*
 * The header of every page of the file, six lines each. Each page is loaded with a read lock and unloaded, so cached
 * pages may be swapped out, dirty ones written, and a page that is held for writing is passed over with a line that
 * says so.
 */
KALDB_API void pmTraceFilePages(KALPageManager* manager);

/* The header of every slot of the cache, six lines each. A free slot shows page -1 and flags 0x00000004. */
KALDB_API void pmTraceCachePages(KALPageManager* manager);

/* 1 when a page in the cache is locked, else 0; 0 for a null manager. */
KALDB_API uint32_t pmAreMemPagesLocked(KALPageManager* manager);

/* 1 when the page with this body is locked, else 0; 0 for a null manager and for no page's body. */
KALDB_API uint32_t pmIsPageLocked(KALPageManager* manager, void* body);

/* pmTraceCachePages for the open database; without one, a line that says so. */
KALDB_API void kaldbTracePageManager(void);

#ifdef __cplusplus
}
#endif
#endif
