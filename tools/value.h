// Values of rows, and their forms: in a record, in a key, as text.
#pragma once

#include "json.h"
#include "schema.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kaldb::tool {

/// Null, or a value of its column's type; `bytes` columns hold their bytes in the string.
using Value = Scalar;

inline bool isNull(const Value& value) { return std::holds_alternative<std::monostate>(value); }

/// The value as text that `parseValue` takes back; empty for null.
std::string toText(const Value& value, const Column& column);
/// Reads a value of the column's type. Throws a Failure that names the column when the text is none.
Value parseValue(std::string_view text, const Column& column);

/// Strict forms: what prints back as the very same text.
bool parseBool(std::string_view text, bool& value);
bool parseInteger(std::string_view text, std::int64_t& value);
bool parseNumber(std::string_view text, double& value);

/// Key columns are kept in a form whose byte order is the values' order; `field` has the column's width. False when the
/// value does not fit or is null.
bool encodeKey(const Value& value, const Column& column, std::span<std::byte> field);
Value decodeKey(const Column& column, Bytes field);

/// Columns outside the key, but for texts. False when the value does not fit.
bool encodeField(const Value& value, const Column& column, std::span<std::byte> field);
Value decodeField(const Column& column, Bytes field);

}  // namespace kaldb::tool
