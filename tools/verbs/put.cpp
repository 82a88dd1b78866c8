// kaldb put FILE TABLE [ROW]: one row, added or in the place of that of its key.

#include "json.h"
#include "plan.h"
#include "rows.h"
#include "text.h"
#include "write/change.h"
#include "write/incoming.h"
#include "write/row_store.h"

#include <fmt/format.h>

#include <iostream>
#include <sstream>

namespace kaldb::tool {

namespace {

struct PutOptions {
    std::string path, table, row = "-";
    bool inPlace = false, quiet = false;
};

Inputs readRow(const std::string& text)
{
    InputOptions options;
    options.format = InputFormat::jsonl;
    std::istringstream argument{text};
    const std::string name = text == "-" ? "standard input" : "the row";
    Inputs inputs;
    inputs.names.emplace_back(0, name);
    inputs.rows = readInput(text == "-" ? std::cin : argument, name, options);
    if (inputs.rows.rows.size() != 1)
        throw wrongUse(fmt::format("{} rows are given, put takes one", inputs.rows.rows.size()),
                       "kaldb load takes many");
    return inputs;
}

Exit put(const PutOptions& options, Session& session)
{
    Inputs inputs = readRow(options.row);
    Change change{options.path, {{}, options.inPlace, /*create=*/false}};
    const OpenFile open{options.path};
    const Chain& table = requireTable(open, options.table);
    std::vector<Damage> damages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { damages.push_back(std::move(damage)); });
    const TableSchema& schema = requireSchema(open, schemas, damages, table);
    const Incoming incoming = convertRows(std::move(inputs), schema, OnDuplicate::refuse);
    const bool replaced = RowStore{change.begin(), schema}.put(incoming.rows.front());
    change.finish();
    if (session.json)
        session.out.json({{"kaldb", 1}, {"file", options.path}, {"table", options.table}, {"replaced", replaced}});
    else if (!options.quiet)
        session.out.line(fmt::format("{}: 1 row {}", printable(options.table), replaced ? "replaced" : "added"));
    return Exit::done;
}

}  // namespace

void addPut(CommandLine& line, Session& session)
{
    Verb verb = line.verb("put", "One row, added or in the place of that of its key");
    const auto options = std::make_shared<PutOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.argument("TABLE", options->table, "Table");
    verb.optionalArgument("ROW", options->row, "A JSON object; columns that it lacks are null; - is standard input");
    verb.flag("--in-place", options->inPlace, "Change the file itself, not a copy of it");
    verb.flag("-q,--quiet", options->quiet, "Print no report");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] {
        session.file = options->path;
        session.run = [&session, options] { return put(*options, session); };
    });
}

}  // namespace kaldb::tool
