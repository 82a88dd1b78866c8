// kaldb dump FILE [TABLE...]: all rows in key order.

#include "json.h"
#include "rows.h"
#include "text.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct DumpOptions {
    std::string path;
    std::vector<std::string> tables, columns;
    std::string format;  // jsonl when empty
    bool schemaOnly = false;
    bool showIds = false;
    bool dirty = false;
};

/// The tables that the options name; without names all of the users' tables.
std::vector<const Chain*> chosenTables(const DumpOptions& options, const OpenFile& open)
{
    std::vector<const Chain*> tables;
    for (const std::string& name : options.tables)
        tables.push_back(&requireTable(open, name));
    if (!options.tables.empty())
        return tables;
    for (const Chain& chain : open.catalogue.chains)
        if (chain.table() && !chain.system() && chain.name != schemaTableName)
            tables.push_back(&chain);
    return tables;
}

Exit dump(const DumpOptions& options, Session& session)
{
    const Format format = options.format.empty() ? Format::jsonl : parseFormat(options.format);
    const OpenFile open{options.path};
    refuseDirty(open.file, options.dirty);
    if (!options.dirty && !open.catalogue.damages.empty())
        failDamaged(open.file, open.catalogue.damages.front());

    std::vector<Damage> schemaDamages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { schemaDamages.push_back(std::move(damage)); });
    const std::vector<const Chain*> tables = chosenTables(options, open);
    if (tables.size() > 1 && format != Format::jsonl && format != Format::hex)
        throw wrongUse(fmt::format("{} tables do not fit one {} output", tables.size(), options.format),
                       "name one table, or use --format jsonl");

    bool damaged = false;
    const auto tell = [&](const Damage& damage) {
        damaged = true;
        note(fmt::format("{}: {}", options.path, describe(damage)));
    };
    // Everything is read before anything is written: a failure leaves no half output behind.
    std::vector<TableRows> sources;
    for (const Chain* table : tables) {
        sources.emplace_back(open, *table, schemaOf(open, schemas, schemaDamages, *table));
        if (!options.dirty && !options.schemaOnly)
            sources.back().requireSound();
    }
    for (const TableRows& rows : sources) {
        const TableSchema* const schema = rows.schema();
        if (options.schemaOnly || (options.tables.empty() && format == Format::jsonl && schema != nullptr)) {
            if (schema != nullptr)
                session.out.json(toJson(*schema));
        } else if (schema == nullptr && sources.size() > 1) {
            session.out.line(fmt::format("# table {}", printable(rows.table().name)));
        }
        if (options.schemaOnly)
            continue;
        const auto writer = writerFor(rows, format, options.columns, options.showIds, session.out);
        writer->begin();
        rows.write({}, *writer, tell);
        writer->end();
    }
    return damaged ? Exit::no : Exit::done;
}

}  // namespace

void addDump(CommandLine& line, Session& session)
{
    Verb verb = line.verb("dump", "All rows in key order");
    const auto options = std::make_shared<DumpOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.arguments("TABLE", options->tables, "Only these tables");
    verb.option("--format", options->format, "csv, tsv, jsonl (which is the default), table or hex");
    verb.list("--columns", options->columns, "Only these columns, in this order");
    verb.flag("--schema-only", options->schemaOnly, "The schemas, as JSON, instead of rows");
    verb.flag("--ids", options->showIds, "Show identifiers");
    verb.flag("--dirty", options->dirty, "Also from a file that is open or was not closed cleanly");
    verb.chosen([&session, options] {
        session.json = options->format == "jsonl";
        session.run = [&session, options] { return dump(*options, session); };
    });
}

}  // namespace kaldb::tool
