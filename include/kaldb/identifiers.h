/* Object identifiers. */
#ifndef KALDB_IDENTIFIERS_H
#define KALDB_IDENTIFIERS_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

KALDB_API uint32_t kaldbIDZero(KALDBID* id);
KALDB_API uint32_t kaldbIDIncrement(KALDBID* id);
KALDB_API uint32_t kaldbIDCompare(const KALDBID* first, const KALDBID* second, int32_t* result);
KALDB_API uint32_t kaldbIDIsEqual(const KALDBID* first, const KALDBID* second, uint32_t* result);
KALDB_API uint32_t kaldbIDCopy(KALDBID* destination, const KALDBID* source);

#ifdef __cplusplus
}
#endif
#endif
