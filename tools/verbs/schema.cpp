// kaldb schema FILE [TABLE]: columns, types and keys of the tables that have a schema.

#include "schema.h"

#include "json.h"
#include "session.h"
#include "text.h"

#include <fmt/format.h>

#include <utility>

namespace kaldb::tool {

namespace {

void printText(const TableSchema& schema, Output& out)
{
    out.line(fmt::format("{}: record {} bytes{}", printable(schema.table), schema.recordSize,
                         schema.ids ? ", with identifiers" : ""));
    TextTable text{{"  COLUMN", "KEY", "TYPE", "NULL", ">OFFSET"}};
    for (const Column& column : schema.columns)
        text.row({"  " + printable(column.name),
                  column.keyPosition == 0 ? "" : fmt::format("key {}", column.keyPosition), column.typeName(),
                  column.notNull || column.keyPosition != 0 ? "no" : "yes", std::to_string(column.offset)});
    text.print(out);
}

Exit schema(const std::string& path, const std::string& table, Session& session)
{
    const OpenFile open{path};
    std::vector<Damage> damages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { damages.push_back(std::move(damage)); });
    if (damages.empty() && schemas.empty())
        damages = open.catalogue.damages;  // which may hide them
    if (!damages.empty())
        failDamaged(open.file, damages.front());
    if (!table.empty()) {
        requireTable(open, table);
        if (!schemas.contains(table))
            throw Failure{
                Exit::no, "no-schema", path, fmt::format("has no schema for table '{}'", printable(table)), {}};
    }
    bool first = true;
    for (const auto& [name, schema] : schemas) {
        if (!table.empty() && name != table)
            continue;
        if (session.json) {
            session.out.json(toJson(schema));
        } else {
            if (!std::exchange(first, false))
                session.out.line("");
            printText(schema, session.out);
        }
    }
    return Exit::done;
}

}  // namespace

void addSchema(CommandLine& line, Session& session)
{
    struct SchemaOptions {
        std::string path, table;
    };
    Verb verb = line.verb("schema", "Columns, types and keys of the tables");
    const auto options = std::make_shared<SchemaOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.optionalArgument("TABLE", options->table, "Only this table");
    verb.flag("--json", session.json, "One JSON object a table");
    verb.chosen([&session, options] {
        session.run = [&session, options] { return schema(options->path, options->table, session); };
    });
}

}  // namespace kaldb::tool
