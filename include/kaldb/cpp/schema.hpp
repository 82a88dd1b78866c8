// What a table's records look like, told to those who know the file only: the `kaldb` command reads the table
// "KaldbSchema", of which every record describes a column.
//
//   0       64        66     67     68       72      76             80       144
//   | table | ordinal | type | bits | offset | width | key position | column | zeros |  160 bytes
#pragma once

#include <kaldb/cpp/key.hpp>
#include <kaldb/cpp/raw_table.hpp>
#include <kaldb/cpp/stored_text.hpp>
#include <kaldb/cpp/text.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace kaldb {

/// One bit a column, all 0, as a member of a record: a column whose bit is set is null.
template <std::size_t Columns>
struct null_bits {
    std::array<std::uint8_t, (Columns + 7) / 8> bits{};
};

/// A record of KaldbSchema. Numbers are little-endian but for the ordinal: the order is that of the first 66 bytes.
struct schema_record {
    char16_t table[32];
    std::array<std::uint8_t, 2> ordinal;  ///< big-endian; 0 describes the table itself
    std::uint8_t type;                    ///< 0 table, 1 bool, 2 i64, 3 f64, 4 char(n), 5 text, 6 bytes(n)
    std::uint8_t bits;                    ///< 1 key, 2 not null, 4 identifiers, 8 hex in dumps
    std::uint32_t offset;                 ///< in the record; for ordinal 0 that of the null bits
    std::uint32_t width;                  ///< in the record, for a text its area; for ordinal 0 that of the record
    std::uint32_t key_position;           ///< from 1, 0 for no key; for ordinal 0 the version, 1
    char column[64];                      ///< UTF-8
    std::array<std::uint8_t, 16> zero;

    static constexpr std::size_t key_bytes = 66;
    static std::int32_t compare(const void* probe, const void* stored) noexcept
    {
        return std::memcmp(probe, stored, key_bytes);
    }
    static std::int32_t compare_table(const void* probe, const void* stored) noexcept
    {
        return std::memcmp(probe, stored, sizeof table);
    }
};
static_assert(sizeof(schema_record) == 160 && offsetof(schema_record, ordinal) == 64 &&
              offsetof(schema_record, type) == 66 && offsetof(schema_record, offset) == 68 &&
              offsetof(schema_record, column) == 80 && offsetof(schema_record, zero) == 144);
static_assert(std::endian::native == std::endian::little);

inline constexpr std::string_view schema_table_name = "KaldbSchema";

namespace detail {

enum : std::uint8_t { schema_bool = 1, schema_i64, schema_f64, schema_chars, schema_text, schema_bytes };
enum : std::uint8_t { schema_key = 1, schema_not_null = 2, schema_ids = 4, schema_hex = 8 };

template <class Field>
struct is_stored_text : std::false_type {
};
template <std::uint32_t N>
struct is_stored_text<stored_text<N>> : std::true_type {
};

template <class Field>
constexpr std::uint8_t schema_type()
{
    if constexpr (std::same_as<Field, bool>)
        return schema_bool;
    else if constexpr (std::same_as<Field, std::int64_t> || std::same_as<Field, ordered_int64>)
        return schema_i64;
    else if constexpr (std::same_as<Field, double>)
        return schema_f64;
    else if constexpr (std::same_as<Field, char[sizeof(Field)]>)
        return schema_chars;
    else if constexpr (is_stored_text<Field>::value)
        return schema_text;
    else
        return schema_bytes;
}

}  // namespace detail

/// A member of a record as a column. bool, std::int64_t (in a key ordered_int64), double, arrays of char and stored
/// texts are readable; anything else is shown as bytes in hex.
struct schema_column {
    std::string name;
    std::uint8_t type;
    std::uint32_t offset;
    std::uint32_t width;
    bool in_key_form;  ///< whether its bytes have its order

    template <auto Member>
    static schema_column of(std::string_view name)
    {
        using Field = typename detail::member_of<Member>::field;
        constexpr std::uint8_t type = detail::schema_type<Field>();
        constexpr std::size_t header = type == detail::schema_text ? sizeof(KALDBVarString) : 0;
        return {std::string{name}, type, static_cast<std::uint32_t>(detail::offset_of<Member>()),
                static_cast<std::uint32_t>(sizeof(Field) - header),
                type == detail::schema_chars || type == detail::schema_bool || detail::is_byte_array<Field> ||
                    std::same_as<Field, ordered_int64>};
    }
};

namespace detail {

/// The rows for a table, its own first. `phrase` says what is wrong with them.
template <class Table, auto Nulls>
std::uint32_t schema_rows(const table_name& name, const std::vector<schema_column>& columns,
                          std::vector<schema_record>& rows, std::string& phrase)
{
    using Record = typename Table::record_type;
    const auto refuse = [&phrase](std::string_view text) {
        phrase = text;
        return std::uint32_t{KALDB_INVALID_ARGUMENT};
    };
    if (sizeof(typename member_of<Nulls>::field) * 8 < columns.size())
        return refuse("a null bit is missing");
    schema_record row{};
    std::memcpy(row.table, name.units, sizeof row.table);
    row.bits = Table::identifiers ? schema_ids : 0;
    row.offset = static_cast<std::uint32_t>(offset_of<Nulls>());
    row.width = sizeof(Record);
    row.key_position = 1;
    rows.push_back(row);
    for (const schema_column& column : columns) {
        const std::size_t ordinal = rows.size();
        row.ordinal = {static_cast<std::uint8_t>(ordinal >> 8), static_cast<std::uint8_t>(ordinal)};
        row.type = column.type;
        row.bits = static_cast<std::uint8_t>(schema_not_null | (column.type == schema_bytes ? schema_hex : 0));
        row.offset = column.offset;
        row.width = column.width;
        row.key_position = 0;
        if (column.name.empty() || assign_chars(row.column, sizeof row.column, column.name) != KALDB_SUCCESS)
            return refuse("a column name is empty or has more than 63 bytes");
        rows.push_back(row);
    }
    // The key stands at the beginning, member by member, in bytes that have its order.
    std::size_t expected = Table::identifiers ? sizeof(id) : 0;
    std::uint32_t position = 0;
    for (const std::size_t offset : Table::order_type::offsets()) {
        const auto at = std::find_if(columns.begin(), columns.end(),
                                     [offset](const schema_column& column) { return column.offset == offset; });
        if (offset != expected || at == columns.end() || !at->in_key_form)
            return refuse("the key is not at the beginning, member after member, in a form that bytes can order");
        schema_record& described = rows[static_cast<std::size_t>(at - columns.begin()) + 1];
        described.key_position = ++position;
        described.bits |= schema_key;
        expected += at->width;
    }
    return KALDB_SUCCESS;
}

template <class Table, auto Nulls>
std::uint32_t describe_table(database& db, std::string_view table, const std::vector<schema_column>& columns,
                             std::string& phrase)
{
    table_name name;
    if (const std::uint32_t status = to_table_name(table, name); status != KALDB_SUCCESS)
        return status;
    std::vector<schema_record> rows;
    if (const std::uint32_t status = schema_rows<Table, Nulls>(name, columns, rows, phrase); status != KALDB_SUCCESS)
        return status;
    std::error_code error;
    const record_shape shape{sizeof(schema_record), false, schema_record::compare};
    raw_table schema = raw_table::open_or_create(db, schema_table_name, shape, error);
    if (!error)
        schema.erase_all(&rows.front(), schema_record::compare_table, error);
    for (std::size_t i = 0; i < rows.size() && !error; ++i)
        schema.insert(&rows[i], error);
    return static_cast<std::uint32_t>(error.value());
}

}  // namespace detail

/// Describes a table in KaldbSchema, in place of what is said of it there, so that the `kaldb` command shows its rows.
/// The record must be laid out as the command lays out its own: identifier if any, key members without gaps, and
/// somewhere a null_bits member with a bit for each column; errc::invalid_argument says what is not so.
///
///     struct Package { char name[48]; kaldb::null_bits<2> nulls; std::int64_t size; };
///     using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;
///     kaldb::describe<Packages, &Package::nulls>(db, "Packages", {
///         kaldb::schema_column::of<&Package::name>("name"), kaldb::schema_column::of<&Package::size>("size")});
template <class Table, auto Nulls>
void describe(database& db, std::string_view table, const std::vector<schema_column>& columns)
{
    std::string phrase;
    detail::check(detail::describe_table<Table, Nulls>(db, table, columns, phrase), "describe table", table, phrase);
}
template <class Table, auto Nulls>
void describe(database& db, std::string_view table, const std::vector<schema_column>& columns, std::error_code& error)
{
    std::string phrase;
    detail::report(detail::describe_table<Table, Nulls>(db, table, columns, phrase), error);
}

}  // namespace kaldb
