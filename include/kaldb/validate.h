/* The offline check of a database file. */
#ifndef KALDB_VALIDATE_H
#define KALDB_VALIDATE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API uint32_t kaldbValidateFile(const char16_t* path, uint32_t unused, uint32_t* errors);
KALDB_API uint32_t kaldbValidatePages(const char16_t* path, uint32_t unused, uint32_t* errors);

#ifdef __cplusplus
}
#endif
#endif
