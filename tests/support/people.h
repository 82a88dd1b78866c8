// A database as a program makes it, with a schema: people with identifiers, names as keys, notes of any length.
#pragma once

#include "row.h"
#include "schema.h"
#include "text.h"

#include <kaldb/kaldb.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// Throws for a status: what builds a test's files must work.
inline void must(std::uint32_t status)
{
    if (status != 0)
        throw std::runtime_error("status " + std::to_string(status));
}

inline kaldb::tool::TableSchema peopleSchema()
{
    using kaldb::tool::ColumnType;
    kaldb::tool::TableSchema schema;
    schema.table = "People";
    schema.ids = true;
    schema.columns = {{"name", ColumnType::chars, true, false, 0, 16, 1},
                      {"age", ColumnType::integer, false, false, 0, 8, 0},
                      {"active", ColumnType::boolean, false, false, 0, 1, 0},
                      {"note", ColumnType::text, false, false, 0, 24, 0}};
    schema.place();
    return schema;
}

struct Person {
    std::string name;
    std::int64_t age;
    std::string note;
};

/// "person 007" is 7 years old; every third has no age, and a note that is long for every fifth.
inline Person person(int number)
{
    const std::string digits = std::to_string(number + 1000).substr(1);
    return {"person " + digits, number,
            number % 5 == 0 ? std::string(300, 'x') + " \u00e9\n," + digits : "note, \"" + digits + "\""};
}

class PeopleFile {
public:
    static constexpr int count = 120;

    /// Creates the database and closes it. With `foreign`, a table without a schema too.
    explicit PeopleFile(const std::filesystem::path& path, bool foreign = false)
    {
        std::uint32_t isNew = 0;
        must(kaldbInitialize(path.u16string().c_str(), 1 << 20, &database_, &isNew));
        const kaldb::tool::TableSchema schema = peopleSchema();
        std::vector<kaldb::tool::SchemaRecord> rows = kaldb::tool::schemaRecords(schema);
        fill(u"KaldbSchema", sizeof rows[0], 0, byBytes<0, kaldb::tool::schemaKeyBytes>,
             [&](int i) { return std::size_t(i) < rows.size() ? &rows[std::size_t(i)] : nullptr; });
        std::vector<std::byte> record;
        fill(u"People", schema.recordSize, KALDB_CHAIN_GUID, byBytes<16, 16>, [&](int i) {
            if (i > 0)
                must(kaldbVarStringDelete(reinterpret_cast<KALDBVarString*>(&record[schema.columns[3].offset])));
            return i < count ? (record = recordOf(person(i * 7 % count), schema)).data() : nullptr;
        });
        char key[8] = {'a' - 1};
        if (foreign)
            fill(u"Foreign", 8, 0, byBytes<0, 8>, [&](int) { return ++key[0] < 'f' ? key : nullptr; });
        must(kaldbDeinitialize(database_));
    }

private:
    /// Orders records by `size` bytes at `offset`.
    template <std::size_t offset, std::size_t size>
    static std::int32_t byBytes(const void* a, const void* b)
    {
        return std::memcmp(static_cast<const char*>(a) + offset, static_cast<const char*>(b) + offset, size);
    }

    /// Creates a table and fills it with what `next` gives, until it gives nothing.
    void fill(std::u16string_view name, std::uint32_t recordSize, std::uint32_t flags, KALBTreeCompare compare,
              const std::function<void*(int)>& next) const
    {
        KALDBTableInfo info{{}, recordSize, flags, 0, 0};
        name.copy(info.name, 31);
        must(kaldbTableCreate(database_, &info));
        KALDBChainCallbacks callbacks{};
        callbacks.compare = compare;
        KALDBTable* table = nullptr;
        must(kaldbTableOpen(database_, info.name, &callbacks, &table));
        int number = 0;
        while (void* const record = next(number++))
            must(kaldbTableInsertRecord(table, record, 0, nullptr));
        must(kaldbTableClose(table));
    }

    static std::vector<std::byte> recordOf(const Person& one, const kaldb::tool::TableSchema& schema)
    {
        std::vector<std::byte> record(schema.recordSize);
        const auto field = [&](std::size_t column) { return &record[schema.columns[column].offset]; };
        one.name.copy(reinterpret_cast<char*>(field(0)), 16);
        if (one.age % 3 == 0)
            record[schema.nullOffset] = std::byte{1 << 1};
        else
            std::memcpy(field(1), &one.age, sizeof one.age);
        *field(2) = std::byte{one.age % 2 == 1};
        auto* const note = reinterpret_cast<KALDBVarString*>(field(3));
        must(kaldbVarStringCreate(schema.columns[3].width, note, kaldb::tool::utf16(one.note).c_str()));
        if (one.note.size() >= schema.columns[3].width)
            must(kaldbVarStringInsertRecord(note));
        return record;
    }

    KALDBDatabase* database_ = nullptr;
};

}  // namespace test
