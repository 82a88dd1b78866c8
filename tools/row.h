// Rows: the values of one record, in the schema's order.
#pragma once

#include "stored_text.h"
#include "value.h"

#include <vector>

namespace kaldb::tool {

using Row = std::vector<Value>;

/// Reads a record's values. A text that cannot be read comes out as null, and is told to `damage`.
Row decodeRow(const TableSchema& schema, Bytes record, const StoredTexts& texts, const DamageSink& damage);

inline bool nullBit(const TableSchema& schema, Bytes record, std::size_t column)
{
    return (std::to_integer<unsigned>(record[schema.nullOffset + column / 8]) >> (column % 8) & 1U) != 0;
}

/// A key or the beginning of one, as bytes to be held against the key prefix of records.
struct KeyBytes {
    std::vector<std::byte> bytes;

    int compare(const TableSchema& schema, Bytes record) const;
};

/// The bytes of a key from its first values, given as text. With `open`, the last value is a text of which only the
/// beginning is given. Throws a Failure for values that are none of their columns.
KeyBytes makeKey(const TableSchema& schema, std::span<const std::string> values, bool open = false);
/// Whole keys from values that follow each other, key after key. Throws a Failure when they do not come out even.
std::vector<KeyBytes> makeKeys(const TableSchema& schema, const std::vector<std::string>& values);

}  // namespace kaldb::tool
