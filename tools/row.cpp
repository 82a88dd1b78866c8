#include "row.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace kaldb::tool {

Row decodeRow(const TableSchema& schema, Bytes record, const StoredTexts& texts, const DamageSink& damage)
{
    Row row(schema.columns.size());
    for (std::size_t i = 0; i < row.size(); ++i) {
        const Column& column = schema.columns[i];
        const Bytes field = record.subspan(column.offset, column.fieldBytes());
        if (column.keyPosition != 0) {
            row[i] = decodeKey(column, field);
        } else if (nullBit(schema, record, i)) {
            continue;
        } else if (column.type == ColumnType::text) {
            std::string text;
            Damage found;
            if (texts.read(field, text, found)) {
                row[i] = std::move(text);
            } else {
                found.text = fmt::format("text of column '{}' {}", printable(column.name), found.text);
                damage(std::move(found));
            }
        } else {
            row[i] = decodeField(column, field);
        }
    }
    return row;
}

int KeyBytes::compare(const TableSchema& schema, Bytes record) const
{
    return std::memcmp(bytes.data(), record.data() + schema.keyOffset(), bytes.size());
}

KeyBytes makeKey(const TableSchema& schema, std::span<const std::string> values, bool open)
{
    const std::vector<std::size_t> columns = schema.keyColumns();
    if (values.size() > columns.size())
        throw wrongUse(fmt::format("{} key values given, but the key of table '{}' has {} columns", values.size(),
                                   printable(schema.table), columns.size()));
    KeyBytes key;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Column& column = schema.columns[columns[i]];
        const Value value = parseValue(values[i], column);
        std::vector<std::byte> field(column.width);
        if (!encodeKey(value, column, field))
            throw wrongUse(fmt::format("'{}' does not fit {} of key column '{}'", printable(values[i]),
                                       column.typeName(), printable(column.name)));
        if (open && i + 1 == values.size()) {
            if (column.type != ColumnType::chars)
                throw wrongUse(fmt::format("column '{}' is no text: it has no prefixes", printable(column.name)));
            field.resize(values[i].size());
        }
        key.bytes.insert(key.bytes.end(), field.begin(), field.end());
    }
    return key;
}

std::vector<KeyBytes> makeKeys(const TableSchema& schema, const std::vector<std::string>& values)
{
    const std::size_t columns = schema.keyColumns().size();
    if (values.size() % columns != 0)
        throw wrongUse(fmt::format("the key of table '{}' has {} columns, but {} values are given",
                                   printable(schema.table), columns, values.size()),
                       "--from and --to find rows by the first columns of their key");
    std::vector<KeyBytes> keys;
    for (std::size_t i = 0; i < values.size(); i += columns)
        keys.push_back(makeKey(schema, std::span{values}.subspan(i, columns)));
    return keys;
}

}  // namespace kaldb::tool
