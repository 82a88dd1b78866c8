/*
 * Object identifiers.
 *
 * A table with KALDB_CHAIN_GUID stamps one into each record that it takes in: tag 0xFFFF, sequence 0 for the first
 * record, one more for each that follows, never the same again. They are unique within a table, not across tables.
 *
 * The pointers are not checked and must not be null. Every operation returns 0.
 */
#ifndef KALDB_IDENTIFIERS_H
#define KALDB_IDENTIFIERS_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* All 16 bytes become 0xFF: the identifier that no record has. It sorts after every identifier handed out. */
KALDB_API uint32_t kaldbIDZero(KALDBID* id);
/* Adds 1 to the sequence, which wraps from its greatest value to 0. Nothing else changes. */
KALDB_API uint32_t kaldbIDIncrement(KALDBID* id);
/* *result: -1, 0 or 1 as the first sequence is less than, equal to or greater than the second. Tags play no part, so 0
   does not mean that the identifiers are equal. */
KALDB_API uint32_t kaldbIDCompare(const KALDBID* first, const KALDBID* second, int32_t* result);
/* *result: 1 when tag and sequence are equal, else 0. */
KALDB_API uint32_t kaldbIDIsEqual(const KALDBID* first, const KALDBID* second, uint32_t* result);
/* Copies tag and sequence. Bytes 2 to 7 of the destination keep what they hold. */
KALDB_API uint32_t kaldbIDCopy(KALDBID* destination, const KALDBID* source);

#ifdef __cplusplus
}
#endif
#endif
