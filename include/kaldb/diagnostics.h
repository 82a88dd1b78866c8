/* Looking into a running page manager. */
#ifndef KALDB_DIAGNOSTICS_H
#define KALDB_DIAGNOSTICS_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API void pmTracePageManager(KALPageManager* manager);
KALDB_API void pmTraceFilePages(KALPageManager* manager);
KALDB_API void pmTraceCachePages(KALPageManager* manager);
KALDB_API uint32_t pmAreMemPagesLocked(KALPageManager* manager);
KALDB_API uint32_t pmIsPageLocked(KALPageManager* manager, void* body);
KALDB_API void kaldbTracePageManager(void);

#ifdef __cplusplus
}
#endif
#endif
