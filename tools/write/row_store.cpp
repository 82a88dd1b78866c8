#include "write/row_store.h"

#include "failure.h"
#include "text.h"

#include <kaldb/cpp/id.hpp>
#include <kaldb/cpp/schema.hpp>
#include <kaldb/cpp/stored_text.hpp>

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <utility>

namespace kaldb::tool {

namespace {

template <std::size_t Offset, std::size_t Length>
std::int32_t compareKeys(const void* probe, const void* stored) noexcept
{
    return std::memcmp(static_cast<const char*>(probe) + Offset, static_cast<const char*>(stored) + Offset, Length);
}

template <std::size_t Offset, std::size_t... Lengths>
constexpr std::array<KALBTreeCompare, sizeof...(Lengths)> comparisons(std::index_sequence<Lengths...>)
{
    return {compareKeys<Offset, Lengths>...};
}

/// The order of a table as a plain function, one for each place and length that a key prefix can have.
KALBTreeCompare orderOf(const TableSchema& schema)
{
    using Lengths = std::make_index_sequence<longestKey + 1>;
    static constexpr auto atFront = comparisons<0>(Lengths{});
    static constexpr auto behindIdentifier = comparisons<identifierBytes>(Lengths{});
    return (schema.ids ? behindIdentifier : atFront).at(schema.keyBytes());
}

kaldb::record_shape shapeOf(const TableSchema& schema) { return {schema.recordSize, schema.ids, orderOf(schema)}; }

}  // namespace

RowStore::RowStore(kaldb::database& db, const TableSchema& schema)
    : schema_(schema), table_(kaldb::raw_table::open(db, schema.table, shapeOf(schema)))
{
}

RowStore RowStore::create(kaldb::database& db, const TableSchema& schema)
{
    kaldb::raw_table::create(db, schema.table, shapeOf(schema));
    auto rows = kaldb::raw_table::open_or_create(db, schemaTableName,
                                                 {sizeof(SchemaRecord), false, kaldb::schema_record::compare});
    std::vector<SchemaRecord> records = schemaRecords(schema);
    rows.erase_all(&records.front(), kaldb::schema_record::compare_table);
    for (SchemaRecord& record : records)
        rows.insert(&record);
    return {db, schema};
}

void RowStore::insert(const Row& row)
{
    std::vector<std::byte> record = encode(row);
    if (!table_.insert(record.data()))
        throw Failure{Exit::internal,
                      "fault",
                      {},
                      fmt::format("table '{}' has a key of a new row already", printable(schema_.table)),
                      {}};
}

bool RowStore::put(const Row& row)
{
    std::vector<std::byte> record = encode(row);
    std::vector<std::byte> old(record.size());
    if (!table_.find(record.data(), old.data())) {
        table_.insert(record.data());
        return false;
    }
    table_.update(record.data());
    eraseTexts(old);  // only now: until the update the table referred to them
    return true;
}

bool RowStore::erase(const KeyBytes& key)
{
    std::vector<std::byte> record(schema_.recordSize);
    std::memcpy(record.data() + schema_.keyOffset(), key.bytes.data(), key.bytes.size());
    if (!table_.find(record.data(), record.data()))
        return false;
    table_.erase(record.data());
    eraseTexts(record);
    return true;
}

std::vector<std::byte> RowStore::encode(const Row& row) const
{
    std::vector<std::byte> record(schema_.recordSize);
    if (schema_.ids) {
        const kaldb::id none;
        std::memcpy(record.data(), &none, sizeof none);
    }
    for (std::size_t i = 0; i < row.size(); ++i) {
        const Column& column = schema_.columns[i];
        const std::span<std::byte> field = std::span{record}.subspan(column.offset, column.fieldBytes());
        if (column.keyPosition == 0 && isNull(row[i]))
            record[schema_.nullOffset + i / 8] |= std::byte{1} << (i % 8);
        if (column.type == ColumnType::text) {
            kaldb::text_field text{field.data(), column.width};
            const auto* const value = std::get_if<std::string>(&row[i]);
            value == nullptr ? text.clear() : text.store(*value);
        } else if (!(column.keyPosition != 0 ? encodeKey : encodeField)(row[i], column, field)) {
            throw wrongUse(fmt::format("'{}' does not fit {} of column '{}'", printable(toText(row[i], column)),
                                       column.typeName(), printable(column.name)));
        }
    }
    return record;
}

void RowStore::eraseTexts(std::vector<std::byte>& record) const
{
    for (std::size_t i = 0; i < schema_.columns.size(); ++i) {
        const Column& column = schema_.columns[i];
        if (column.type == ColumnType::text && !nullBit(schema_, record, i))
            kaldb::text_field{record.data() + column.offset, column.width}.erase();
    }
}

}  // namespace kaldb::tool
