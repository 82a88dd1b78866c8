// Typed values inside callers' records.
//
//   0     4       8           12    16        40                 56
//   | type | isNull | inlineSize | size | location | value or data | inlineData ... |
//
// A value of variable size lies in `inlineData` when it is smaller than `inlineSize`, else in a block of its own.
// `data` points to it either way, for callers to read; the library itself finds an inline value from the structure's
// own address, and a block by the handle behind the pointer, of which `data` must be the address.
//
//   value:  0         8        12
//           | data    | handle | 0 |     on 32-bit machines `data` takes 4 bytes and 4 bytes of 0 follow it
#pragma once

#include "common/bytes.h"
#include "common/status.h"
#include "common/trace.h"
#include "kaldbvalue/live_blocks.h"

#include <kaldb/variant.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kaldb {

static_assert(sizeof(KALDBVariant) == 64 && std::is_trivially_copyable_v<KALDBVariant>);
static_assert(offsetof(KALDBVariant, type) == 0 && offsetof(KALDBVariant, isNull) == 4);
static_assert(offsetof(KALDBVariant, inlineSize) == 8 && offsetof(KALDBVariant, size) == 12);
static_assert(offsetof(KALDBVariant, location) == 16 && sizeof(KALDBIndexRecord) == 24);
static_assert(offsetof(KALDBVariant, value) == 40 && offsetof(KALDBVariant, data) == 40);
static_assert(offsetof(KALDBVariant, inlineData) == 56);

inline constexpr char variantSource[] = "./src/kaldbvariant";

constexpr TraceSource variantTrace(const char16_t* operation) { return {u"kaldbvariant: ", operation}; }

inline constexpr std::uint32_t variantTypes = 22;
inline constexpr std::int32_t variableSize = -1;

/// Bytes of a value of that type, or `variableSize`. `type` is below `variantTypes`.
std::int32_t variantTypeSize(std::uint32_t type);
inline bool variantTypeKnown(std::uint32_t type) { return type < variantTypes; }
/// Whether the value's bytes themselves lie in `value`.
bool variantHasFixedValue(const KALDBVariant& variant);

/// The bytes of a value that is not of a fixed size: `size` of them, or null when there are none to be had.
const std::byte* variantBytes(const KALDBVariant& variant);
std::byte* variantInlineArea(KALDBVariant& variant);

/// Frees the block that this very variant allocated, if it names one, and clears `value`.
void variantRelease(KALDBVariant& variant);
/// Puts a block in the place of whatever the variant held.
void variantTakeBlock(KALDBVariant& variant, const LiveBlock& block);
/// Points `data` at the inline area.
void variantPointInline(KALDBVariant& variant);
/// Makes it a null value of that type that is not stored.
void variantSetNull(KALDBVariant& variant, std::uint32_t type);

void variantInitialize(std::uint32_t inlineSize, KALDBVariant& variant);
void variantDeinitialize(KALDBVariant& variant);
void variantEmpty(KALDBVariant& variant);
Status variantAllocate(KALDBVariant& variant);
Status variantSet(KALDBVariant& variant, std::uint32_t type, const void* data, std::uint32_t size);
void variantSetID(KALDBVariant& variant, const KALDBID& id);
Status variantSetPrimitive(KALDBVariant& variant, std::uint32_t type, const void* data);
Status variantSetString(KALDBVariant& variant, std::uint32_t type, const void* string);
Status variantSetData(KALDBVariant& variant, std::uint32_t type, const void* data, std::uint32_t size);
Status variantSetWideString(KALDBVariant& variant, const char16_t* string, std::uint32_t byteSize);
Status variantGetData(const KALDBVariant& variant, void* buffer, std::uint32_t& size);
Status variantGetWideString(const KALDBVariant& variant, void* buffer, std::uint32_t& size);
Status variantGetDataPointer(const KALDBVariant& variant, const void*& data);

// The store of long values.
Status variantStoreOpen(KALDBDatabase* db);
Status variantStoreClose();
Status variantInsertRecord(KALDBVariant& variant);
Status variantGetRecord(KALDBVariant& variant);
Status variantDeleteRecord(KALDBVariant& variant);

}  // namespace kaldb
