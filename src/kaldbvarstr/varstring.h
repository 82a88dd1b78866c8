// Texts inside callers' records: a header with an inline area of `capacity` bytes behind it.
//
//   0          4        8          32
//   | capacity | length | location | inline area ... |
//
// A text of `length` bytes lies in the inline area with its terminator when `capacity` is greater than `length`. A
// longer one lies in a block of its own, and the first 4 bytes of the inline area are the block's handle. What lies in
// the area of a string that was copied or read back from a record may be stale: only the register of live blocks says
// what a handle means. Nothing but the first `length` bytes is ever taken for text.
#pragma once

#include "common/bytes.h"
#include "common/status.h"
#include "kaldbvalue/live_blocks.h"

#include <kaldb/varstring.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

static_assert(sizeof(KALDBVarString) == 32 && std::is_trivially_copyable_v<KALDBVarString>);
static_assert(offsetof(KALDBVarString, capacity) == 0 && offsetof(KALDBVarString, length) == 4);
static_assert(offsetof(KALDBVarString, location) == 8 && sizeof(KALDBIndexRecord) == 24);

inline constexpr char varStringSource[] = "./src/kaldbvarstr";

inline bool varStringIsInline(const KALDBVarString& string) { return string.capacity > string.length; }
/// Whether the inline area can name a block.
inline bool varStringTakesBlock(const KALDBVarString& string) { return string.capacity >= sizeof(BlockHandle); }

/// The text's first byte, in the inline area or in the block that the string names; null when there is none to be had.
const char* varStringText(const KALDBVarString& string);
/// Frees the block that this very string allocated, if it names one, and makes the area name `block` instead.
/// The string's text is a long one, and it can take a block.
void varStringTakeBlock(KALDBVarString& string, BlockHandle block);

void varStringAllocate(std::uint32_t capacity, KALDBVarString& string);
Status varStringCreate(std::uint32_t capacity, KALDBVarString& string, const char16_t* text);
void varStringDelete(KALDBVarString& string);
Status varStringSet(KALDBVarString& string, const char16_t* text);
Status varStringCopy(const KALDBVarString& string, char16_t* buffer, std::uint32_t chars);
Status varStringDup(KALDBVarString& destination, const KALDBVarString& source);
Status varStringCompare(const KALDBVarString& first, const KALDBVarString& second, std::int32_t& result);
Status varStringICompare(const KALDBVarString& first, const KALDBVarString& second, std::int32_t& result);
Status varStringIComparePSZ(const KALDBVarString& string, const char16_t* text, std::int32_t& result);

// The store of long texts.
Status varStringStoreOpen(KALDBDatabase* db);
Status varStringStoreClose();
Status varStringInsertRecord(KALDBVarString& string);
Status varStringGetRecord(KALDBVarString& string);
Status varStringDeleteRecord(KALDBVarString& string);

}  // namespace kaldb
