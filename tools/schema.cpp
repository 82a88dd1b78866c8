#include "schema.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace kaldb::tool {

namespace {

std::string columnName(const SchemaRecord& record)
{
    const char* const end = std::find(record.column, record.column + sizeof record.column, '\0');
    return {record.column, end};
}

std::string tableName(const SchemaRecord& record)
{
    return utf8({record.table, std::find(record.table, record.table + std::size(record.table), u'\0')});
}

std::uint32_t fixedWidth(ColumnType type)
{
    switch (type) {
    case ColumnType::boolean: return 1;
    case ColumnType::integer:
    case ColumnType::number: return 8;
    default: return 0;
    }
}

constexpr std::array<const char*, 7> typeNames{"table", "bool", "i64", "f64", "char", "text", "bytes"};

/// Adds a row to the schema that it belongs to; false when the row makes no sense there.
bool addRow(TableSchema& schema, const SchemaRecord& record)
{
    const auto ordinal = static_cast<std::size_t>(record.ordinal[0] << 8 | record.ordinal[1]);
    if (ordinal == 0) {
        schema.ids = (record.bits & schemaIds) != 0;
        schema.recordSize = record.width;
        schema.nullOffset = record.offset;
        return record.type == 0 && record.keyPosition == schemaVersion;
    }
    if (ordinal != schema.columns.size() + 1 || record.type < 1 || record.type >= typeNames.size())
        return false;
    schema.columns.push_back({columnName(record), static_cast<ColumnType>(record.type),
                              (record.bits & schemaNotNull) != 0, (record.bits & schemaHex) != 0, record.offset,
                              record.width, record.keyPosition});
    return findInvalidUtf8(schema.columns.back().name) == std::string::npos;
}

}  // namespace

std::string Column::typeName() const
{
    const char* const base = typeNames[static_cast<std::size_t>(type)];
    return fixedWidth(type) != 0 ? base : fmt::format("{}({})", base, width);
}

std::vector<std::size_t> TableSchema::keyColumns() const
{
    std::vector<std::size_t> keys;
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (columns[i].keyPosition != 0)
            keys.push_back(i);
    std::sort(keys.begin(), keys.end(),
              [&](std::size_t a, std::size_t b) { return columns[a].keyPosition < columns[b].keyPosition; });
    return keys;
}

std::size_t TableSchema::keyBytes() const
{
    std::size_t bytes = 0;
    for (const Column& column : columns)
        bytes += column.keyPosition != 0 ? column.width : 0;
    return bytes;
}

const Column* TableSchema::find(std::string_view column) const
{
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const Column& c) { return c.name == column; });
    return found == columns.end() ? nullptr : &*found;
}

void TableSchema::place()
{
    constexpr std::size_t alignment = 8;
    const auto alignedUp = [](std::size_t offset) { return (offset + alignment - 1) / alignment * alignment; };
    std::size_t offset = keyOffset();
    for (const std::size_t key : keyColumns())
        columns[key].offset = static_cast<std::uint32_t>(std::exchange(offset, offset + columns[key].width));
    nullOffset = static_cast<std::uint32_t>(offset);
    offset += nullBytes();
    for (const bool texts : {false, true}) {
        for (Column& column : columns) {
            if (column.keyPosition != 0 || (column.type == ColumnType::text) != texts)
                continue;
            if (texts)
                offset = alignedUp(offset);
            column.offset = static_cast<std::uint32_t>(offset);
            offset += column.fieldBytes();
        }
    }
    recordSize = static_cast<std::uint32_t>(alignedUp(offset));
}

std::string TableSchema::fault() const
{
    const auto inside = [&](std::uint64_t offset, std::uint64_t bytes) { return offset + bytes <= recordSize; };
    if (!inside(nullOffset, nullBytes()))
        return "its null bits lie outside the record";
    for (const Column& column : columns) {
        if (fixedWidth(column.type) != 0 && column.width != fixedWidth(column.type))
            return fmt::format("column '{}' has a wrong width", printable(column.name));
        if (column.width > recordSize || !inside(column.offset, column.fieldBytes()))
            return fmt::format("column '{}' lies outside the record", printable(column.name));
        if (column.name.empty() || column.name.size() > longestColumnName || find(column.name) != &column)
            return fmt::format("column name '{}' is empty, too long or occurs twice", printable(column.name));
    }
    const std::vector<std::size_t> keys = keyColumns();
    std::size_t offset = keyOffset();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const Column& column = columns[keys[i]];
        if (column.keyPosition != i + 1 || column.offset != offset || column.type == ColumnType::text)
            return fmt::format("column '{}' has no place in the key", printable(column.name));
        offset += column.width;
    }
    if (keys.empty() || keyBytes() > longestKey)
        return fmt::format("its key has {} bytes", keyBytes());
    return {};
}

Schemas readSchemas(const PageFile& file, const Catalogue& catalogue, const DamageSink& damage)
{
    Schemas schemas;
    const Chain* const table = catalogue.table(schemaTableName);
    if (table == nullptr)
        return schemas;
    if (table->binary() || table->object.recordSize != sizeof(SchemaRecord)) {
        damage({table->page, table->slot, "schema.size", "the table of schemas has records of a wrong size"});
        return schemas;
    }
    std::map<std::string, Damage, std::less<>> spoiled;
    walkRecords(
        file, table->shape(),
        [&](const Record& bytes) {
            const auto record = readField<SchemaRecord>(bytes.bytes.data());
            TableSchema& schema = schemas[tableName(record)];
            if (!addRow(schema, record))
                spoiled.try_emplace(tableName(record), Damage{bytes.page, bytes.slot, "schema.row", {}});
            return true;
        },
        damage);
    for (auto at = schemas.begin(); at != schemas.end();) {
        TableSchema& schema = at->second;
        schema.table = at->first;
        const Chain* const described = catalogue.table(schema.table);
        std::string fault = spoiled.contains(at->first) ? "its rows make no sense" : schema.fault();
        if (described == nullptr)
            fault = "there is no such table";
        else if (fault.empty() && (described->binary() || described->object.recordSize != schema.recordSize ||
                                   described->withIds() != schema.ids))
            fault = "it describes records of another kind";
        if (fault.empty()) {
            ++at;
            continue;
        }
        Damage told = spoiled.contains(at->first) ? spoiled[at->first]
                                                  : Damage{table->object.topPage, noSlot, "schema.fault", {}};
        told.text = fmt::format("schema of table '{}': {}", printable(at->first), fault);
        damage(std::move(told));
        at = schemas.erase(at);
    }
    return schemas;
}

std::vector<SchemaRecord> schemaRecords(const TableSchema& schema)
{
    std::vector<SchemaRecord> records;
    SchemaRecord record{};
    const std::u16string name = utf16(schema.table);
    std::copy_n(name.begin(), std::min(name.size(), std::size(record.table) - 1), record.table);
    record.bits = schema.ids ? schemaIds : 0;
    record.offset = schema.nullOffset;
    record.width = schema.recordSize;
    record.keyPosition = schemaVersion;
    records.push_back(record);
    for (const Column& column : schema.columns) {
        const std::size_t ordinal = records.size();
        record.ordinal = {static_cast<std::uint8_t>(ordinal >> 8), static_cast<std::uint8_t>(ordinal)};
        record.type = static_cast<std::uint8_t>(column.type);
        record.bits = static_cast<std::uint8_t>((column.keyPosition != 0 ? schemaKey : 0) |
                                                (column.notNull ? schemaNotNull : 0) | (column.hex ? schemaHex : 0));
        record.offset = column.offset;
        record.width = column.width;
        record.keyPosition = column.keyPosition;
        std::memset(record.column, 0, sizeof record.column);
        column.name.copy(record.column, longestColumnName);
        records.push_back(record);
    }
    return records;
}

Json toJson(const TableSchema& schema)
{
    Json columns = Json::array();
    for (const Column& column : schema.columns) {
        Json json{{"name", column.name}, {"type", typeNames[static_cast<std::size_t>(column.type)]}};
        if (fixedWidth(column.type) == 0)
            json.set("width", column.width);
        if (column.keyPosition != 0)
            json.set("key", column.keyPosition);
        if (column.notNull)
            json.set("notNull", true);
        if (column.hex)
            json.set("hex", true);
        columns.push(std::move(json));
    }
    return {{"kaldb", 1},
            {"table", schema.table},
            {"ids", schema.ids},
            {"recordSize", schema.recordSize},
            {"columns", std::move(columns)}};
}

namespace {

/// A member of one type; `missing` when there is none. Throws a Failure for another type.
template <class Type>
Type member(const Json& json, const char* key, const Type& missing)
{
    const Scalar value = json[key].scalar();
    if (std::holds_alternative<std::monostate>(value))
        return missing;
    if (const auto* const found = std::get_if<Type>(&value))
        return *found;
    throw wrongUse(fmt::format("schema: '{}' makes no sense", key));
}

std::uint32_t countMember(const Json& json, const char* key)
{
    const auto count = member<std::int64_t>(json, key, 0);
    if (count < 0 || count > std::numeric_limits<std::uint32_t>::max())
        throw wrongUse(fmt::format("schema: '{}' makes no sense", key));
    return static_cast<std::uint32_t>(count);
}

}  // namespace

TableSchema schemaFromJson(Json json)
{
    TableSchema schema;
    if (!json["columns"].isArray())
        throw wrongUse("schema: there is no array of columns");
    schema.table = member<std::string>(json, "table", {});
    schema.ids = member(json, "ids", false);
    for (const Json& entry : json.take("/columns").takeElements()) {
        Column& column = schema.columns.emplace_back();
        column.name = member<std::string>(entry, "name", {});
        const auto type = member<std::string>(entry, "type", {});
        const auto name = std::find(typeNames.begin() + 1, typeNames.end(), type);
        if (name == typeNames.end())
            throw wrongUse(
                fmt::format("schema: column '{}' has the unknown type '{}'", printable(column.name), printable(type)));
        column.type = static_cast<ColumnType>(name - typeNames.begin());
        column.width = fixedWidth(column.type);
        if (column.width == 0)
            column.width = countMember(entry, "width");
        column.keyPosition = countMember(entry, "key");
        column.notNull = member(entry, "notNull", false);
        column.hex = member(entry, "hex", false);
    }
    return schema;
}

}  // namespace kaldb::tool
