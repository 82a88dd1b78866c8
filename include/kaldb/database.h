/* The database: open, close, running backup, field-error texts. */
#ifndef KALDB_DATABASE_H
#define KALDB_DATABASE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API uint32_t kaldbInitialize(const char16_t* path, uint32_t cacheBytes, KALDBDatabase** handle, uint32_t* isNew);
KALDB_API uint32_t kaldbDeinitialize(KALDBDatabase* handle);
KALDB_API uint32_t kaldbBackupDatabaseWhileRunning(KALDBDatabase* handle);
KALDB_API uint32_t kaldbForgetHandle(void* handle);
KALDB_API const char16_t* kaldbGetErrorString(uint32_t code);

#ifdef __cplusplus
}
#endif
#endif
