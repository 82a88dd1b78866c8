/* The page manager: one page file and its cache. */
#ifndef KALDB_PAGE_MANAGER_H
#define KALDB_PAGE_MANAGER_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API uint32_t kalPageManagerInitialize(const char16_t* path, uint32_t cacheBytes, KALPageManager** manager,
                                            uint32_t* created);
KALDB_API uint32_t kalPageManagerDeinitialize(KALPageManager* manager);
KALDB_API uint32_t kalPageManagerLoadPage(KALPageManager* manager, uint32_t lockType, uint32_t page, void** body);
KALDB_API uint32_t kalPageManagerCreatePage(KALPageManager* manager, uint32_t lockType, uint32_t* page, void** body);
KALDB_API uint32_t kalPageManagerUnloadPage(KALPageManager* manager, void* body);
KALDB_API uint32_t kalPageManagerUnlockPage(KALPageManager* manager, uint32_t page);
KALDB_API uint32_t kalPageManagerUnreferencePage(KALPageManager* manager, void* body);
KALDB_API uint32_t kalPageManagerReferencePage(KALPageManager* manager, void* body);
KALDB_API uint32_t kalPageManagerSetPageDirty(KALPageManager* manager, void* body);
KALDB_API uint32_t kalPageManagerFlushPage(KALPageManager* manager, void* body);
KALDB_API uint32_t kalPageManagerFlushAllPages(KALPageManager* manager);
KALDB_API uint32_t kalPageManagerGetPageSize(KALPageManager* manager, uint32_t* size);
KALDB_API uint32_t kalPageManagerGetUsablePageSize(KALPageManager* manager, uint32_t* size);
KALDB_API uint32_t kalPageManagerGetPageCount(KALPageManager* manager, uint32_t* count);
KALDB_API uint32_t kalPageManagerGetLocation(KALPageManager* manager, const char16_t** path);
KALDB_API uint32_t kalPageManagerGetStartPage(KALPageManager* manager, uint32_t* page);
KALDB_API uint32_t kalPageManagerSetStartPage(KALPageManager* manager, uint32_t page);
KALDB_API uint32_t kalPageManagerBackup(const char16_t* path);
KALDB_API uint32_t kalPageManagerBackupWhileRunning(KALPageManager* manager);
KALDB_API uint32_t kalPageManagerRestore(const char16_t* path);
KALDB_API uint32_t kalPageManagerFileIsDirty(const char16_t* path, uint32_t* dirty);

#ifdef __cplusplus
}
#endif
#endif
