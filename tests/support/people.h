// A database as a program makes it, with a schema: people with identifiers, names as keys, notes of any length.
#pragma once

#include "row.h"
#include "schema.h"
#include "text.h"

#include <kaldb/kaldb.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
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
        fillSchema();
        fillPeople();
        if (foreign)
            fillForeign();
        must(kaldbDeinitialize(database_));
    }

private:
    static std::int32_t bySchemaKey(const void* a, const void* b)
    {
        return std::memcmp(a, b, kaldb::tool::schemaKeyBytes);
    }
    static std::int32_t byName(const void* a, const void* b)
    {
        const auto name = [](const void* record) { return static_cast<const char*>(record) + 16; };
        return std::memcmp(name(a), name(b), 16);
    }

    KALDBTable* make(const char16_t* name, std::uint32_t recordSize, std::uint32_t flags, KALBTreeCompare compare)
    {
        KALDBTableInfo info{};
        std::char_traits<char16_t>::copy(info.name, name, std::char_traits<char16_t>::length(name));
        info.recordSize = recordSize;
        info.flags = flags;
        must(kaldbTableCreate(database_, &info));
        KALDBChainCallbacks callbacks{};
        callbacks.compare = compare;
        KALDBTable* table = nullptr;
        must(kaldbTableOpen(database_, name, &callbacks, &table));
        return table;
    }

    void fillSchema()
    {
        KALDBTable* table = make(u"KaldbSchema", sizeof(kaldb::tool::SchemaRecord), 0, bySchemaKey);
        for (kaldb::tool::SchemaRecord& record : kaldb::tool::schemaRecords(peopleSchema()))
            must(kaldbTableInsertRecord(table, &record, 0, nullptr));
        must(kaldbTableClose(table));
    }

    void fillPeople()
    {
        const kaldb::tool::TableSchema schema = peopleSchema();
        KALDBTable* table = make(u"People", schema.recordSize, KALDB_CHAIN_GUID, byName);
        for (int i = 0; i < count; ++i) {
            const Person one = person(i * 7 % count);
            std::vector<std::byte> record(schema.recordSize);
            one.name.copy(reinterpret_cast<char*>(&record[schema.columns[0].offset]), 16);
            if (one.age % 3 == 0)
                record[schema.nullOffset] = std::byte{1 << 1};
            else
                std::memcpy(&record[schema.columns[1].offset], &one.age, sizeof one.age);
            record[schema.columns[2].offset] = std::byte{one.age % 2 == 1};
            auto* const note = reinterpret_cast<KALDBVarString*>(&record[schema.columns[3].offset]);
            must(kaldbVarStringCreate(schema.columns[3].width, note, kaldb::tool::utf16(one.note).c_str()));
            if (one.note.size() >= schema.columns[3].width)
                must(kaldbVarStringInsertRecord(note));
            KALDBID id;
            must(kaldbTableInsertRecord(table, record.data(), 0, &id));
            must(kaldbVarStringDelete(note));
        }
        must(kaldbTableClose(table));
    }

    void fillForeign()
    {
        KALDBTable* table =
            make(u"Foreign", 8, 0, [](const void* a, const void* b) -> std::int32_t { return std::memcmp(a, b, 8); });
        for (char key[8] = "a"; key[0] < 'f'; ++key[0])
            must(kaldbTableInsertRecord(table, key, 0, nullptr));
        must(kaldbTableClose(table));
    }

    KALDBDatabase* database_ = nullptr;
};

}  // namespace test
