// What the table KaldbSchema says of the other tables: columns, types, places in the record.
//
//   record of a described table
//   | identifier (16, if any) | key columns | null bits | fixed columns | text columns |   rounded up to 8
#pragma once

#include "catalogue.h"
#include "json.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kaldb::tool {

enum class ColumnType : std::uint8_t {
    table = 0,
    boolean = 1,
    integer = 2,
    number = 3,
    chars = 4,
    text = 5,
    bytes = 6
};

/// A row of KaldbSchema. Integers are little-endian but for the ordinal: the order is memcmp of the first 66 bytes.
struct SchemaRecord {
    char16_t table[32];
    std::array<std::uint8_t, 2> ordinal;  // big-endian; 0 describes the table itself
    std::uint8_t type;
    std::uint8_t bits;
    std::uint32_t offset;       // in the record; for ordinal 0 of the null bits
    std::uint32_t width;        // in the record without a text's header; for ordinal 0 the record size
    std::uint32_t keyPosition;  // from 1, 0 for no key; for ordinal 0 the layout's version
    char column[64];            // UTF-8
    std::array<std::uint8_t, 16> zero;
};
static_assert(sizeof(SchemaRecord) == 160 && offsetof(SchemaRecord, ordinal) == 64 &&
              offsetof(SchemaRecord, type) == 66 && offsetof(SchemaRecord, bits) == 67 &&
              offsetof(SchemaRecord, offset) == 68 && offsetof(SchemaRecord, width) == 72 &&
              offsetof(SchemaRecord, keyPosition) == 76 && offsetof(SchemaRecord, column) == 80 &&
              offsetof(SchemaRecord, zero) == 144);
inline constexpr std::size_t schemaKeyBytes = 66;
inline constexpr std::uint32_t schemaVersion = 1;
inline constexpr std::uint8_t schemaKey = 0x1, schemaNotNull = 0x2, schemaIds = 0x4, schemaHex = 0x8;

inline constexpr std::size_t textHeaderBytes = 32;
inline constexpr std::size_t identifierBytes = 16;
inline constexpr std::size_t longestKey = 254;
inline constexpr std::size_t longestColumnName = 63;
inline constexpr const char* identifierColumn = "_id";  // where rows are written with their identifiers

struct Column {
    std::string name;
    ColumnType type = ColumnType::text;
    bool notNull = false;
    bool hex = false;  // bytes are shown as hex in dumps
    std::uint32_t offset = 0;
    std::uint32_t width = 0;        // for text the inline capacity
    std::uint32_t keyPosition = 0;  // from 1; 0 for no key

    std::size_t fieldBytes() const { return type == ColumnType::text ? textHeaderBytes + width : width; }
    /// "char(6)", "i64", ...
    std::string typeName() const;
    bool operator==(const Column&) const = default;
};

struct TableSchema {
    std::string table;
    bool ids = false;
    std::uint32_t recordSize = 0;
    std::uint32_t nullOffset = 0;  // where the null bits lie, one a column
    std::vector<Column> columns;

    std::size_t keyOffset() const { return ids ? identifierBytes : 0; }
    std::size_t keyBytes() const;
    /// Indexes into `columns`, in the key's order.
    std::vector<std::size_t> keyColumns() const;
    std::size_t nullBytes() const { return (columns.size() + 7) / 8; }
    /// Null when there is no such column.
    const Column* find(std::string_view column) const;

    /// Gives columns their places, and the record its size: the order of the drawing above.
    void place();
    /// Why the schema describes no record of `recordSize` bytes; empty when it does.
    std::string fault() const;
};

using Schemas = std::map<std::string, TableSchema, std::less<>>;
/// Reads the table of schemas; none when the file has no such table. A schema that does not describe its table is told
/// to `damage` and left out.
Schemas readSchemas(const PageFile& file, const Catalogue& catalogue, const DamageSink& damage);

/// The rows of KaldbSchema for a table, its own first.
std::vector<SchemaRecord> schemaRecords(const TableSchema& schema);

Json toJson(const TableSchema& schema);
/// Takes columns, types and key; the places in the record are not read. Throws a Failure for what makes no sense.
TableSchema schemaFromJson(Json json);

}  // namespace kaldb::tool
