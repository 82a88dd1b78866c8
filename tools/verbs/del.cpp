// kaldb del FILE TABLE KEY...: deletes rows by their keys, all of them or none.

#include "json.h"
#include "rows.h"
#include "text.h"
#include "write/change.h"
#include "write/row_store.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct DelOptions {
    std::string path, table;
    std::vector<std::string> keys;
    bool inPlace = false, quiet = false;
};

std::string nameOf(const std::vector<std::string>& values, std::size_t key, std::size_t columns)
{
    std::string name;
    for (std::size_t i = 0; i < columns; ++i)
        name += (i == 0 ? "" : " ") + printable(values[key * columns + i]);
    return name;
}

/// All keys are looked for before any row goes.
void requireKeys(const DelOptions& options, const OpenFile& open, const Chain& table, const TableSchema& schema,
                 const std::vector<KeyBytes>& keys)
{
    for (std::size_t i = 0; i < keys.size(); ++i) {
        bool found = false;
        walkRecords(
            open.file, table.shape(),
            [&](const Record& record) {
                found = keys[i].compare(schema, record.bytes) == 0;
                return false;
            },
            [&](const Damage& damage) { failDamaged(open.file, damage); },
            [&](Bytes record) { return keys[i].compare(schema, record) > 0; });
        const auto same = [&](const KeyBytes& other) { return other.bytes == keys[i].bytes; };
        const bool twice = std::find_if(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(i), same) !=
                           keys.begin() + static_cast<std::ptrdiff_t>(i);
        if (!found || twice)
            throw Failure{Exit::no,
                          "no-key",
                          options.path,
                          fmt::format("table '{}' has no {}key '{}', nothing was deleted", printable(options.table),
                                      twice ? "second " : "", nameOf(options.keys, i, schema.keyColumns().size())),
                          {}};
    }
}

Exit del(const DelOptions& options, Session& session)
{
    if (options.keys.empty())
        throw wrongUse("no key is given");
    Change change{options.path, {{}, options.inPlace, /*create=*/false}};
    const OpenFile open{options.path};
    const Chain& table = requireTable(open, options.table);
    std::vector<Damage> damages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { damages.push_back(std::move(damage)); });
    const TableSchema& schema = requireSchema(open, schemas, damages, table);
    const std::vector<KeyBytes> keys = makeKeys(schema, options.keys);
    requireKeys(options, open, table, schema, keys);
    {
        RowStore store{change.begin(), schema};
        for (const KeyBytes& key : keys)
            store.erase(key);
    }
    change.finish();
    if (session.json)
        session.out.json({{"kaldb", 1}, {"file", options.path}, {"table", options.table}, {"deleted", keys.size()}});
    else if (!options.quiet)
        session.out.line(
            fmt::format("{}: {} row{} deleted", printable(options.table), keys.size(), keys.size() == 1 ? "" : "s"));
    return Exit::done;
}

}  // namespace

void addDel(CommandLine& line, Session& session)
{
    Verb verb = line.verb("del", "Deletes rows by their keys, all of them or none");
    const auto options = std::make_shared<DelOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.argument("TABLE", options->table, "Table");
    verb.arguments("KEY", options->keys, "Values of the key columns, key after key");
    verb.flag("--in-place", options->inPlace, "Change the file itself, not a copy of it");
    verb.flag("-q,--quiet", options->quiet, "Print no report");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] {
        session.file = options->path;
        session.run = [&session, options] { return del(*options, session); };
    });
}

}  // namespace kaldb::tool
