// The catalogue's record at work: building one, and the orders of the root chain.
#pragma once

#include "common/page_number.h"
#include "kaldbroot/layout.h"

#include <cstdint>

namespace kaldb {

/// An identifier of all bytes 0xFF.
KALDBID zeroIdentifier();
/// The locator that names no record.
KALDBIndexRecord emptyLocator();
/// Copies at most 31 characters and ends them.
void copyChainName(char16_t (&destination)[rootNameChars], const char16_t* source);
/// A record with only `kind` and `name` set, which is all that the root chain's order reads.
KALDBRootObject rootObjectKey(std::int32_t kind, const char16_t* name);

/// The root chain's order: kind, then name by code units. Reads unaligned records.
std::int32_t compareRootObjects(const void* probe, const void* stored);
/// The order by kind alone.
std::int32_t compareRootObjectKinds(const void* probe, const void* stored);

}  // namespace kaldb
