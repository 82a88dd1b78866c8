// kaldb load FILE TABLE INPUT...: rows from outside, into a new or an existing table.

#include "json.h"
#include "rows.h"
#include "text.h"
#include "write/change.h"
#include "write/incoming.h"
#include "write/progress.h"
#include "write/row_store.h"

#include <kaldb/cpp/bulk_order.hpp>

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <unordered_set>

namespace kaldb::tool {

namespace {

struct LoadOptions {
    std::string path, table;
    InputNames inputs;
    std::vector<std::string> key, types;
    std::string schema, delimiter, onDuplicate = "error", progress = "auto", cache;
    std::uint64_t fill = 100;
    bool update = false, ids = false, inputOrder = false, dryRun = false, inPlace = false;
    bool noHeader = false, quiet = false;
};

InputNames inputNames(const LoadOptions& options)
{
    if (options.inputs.paths.empty())
        throw wrongUse("no input is given", "a file's name, or - for standard input");
    InputNames names = options.inputs;
    names.options.header = !options.noHeader;
    names.options.table = options.table;
    if (!options.delimiter.empty())
        names.options.delimiter = options.delimiter == "\\t" ? '\t' : options.delimiter[0];
    if (options.delimiter.size() > 1 && names.options.delimiter != '\t')
        throw wrongUse(fmt::format("'{}' is no single character", printable(options.delimiter)),
                       "such as --delimiter ';'");
    if (options.key.size() == 1)
        names.options.lineColumn = options.key.front();
    return names;
}

std::map<std::string, std::string> parseTypes(const std::vector<std::string>& list)
{
    std::map<std::string, std::string> types;
    for (const std::string& entry : list) {
        const std::size_t equal = entry.rfind('=');
        if (equal == std::string::npos)
            throw wrongUse(fmt::format("'{}' gives no column a type", printable(entry)), "--types 'COLUMN=TYPE,...'");
        types[entry.substr(0, equal)] = entry.substr(equal + 1);
    }
    return types;
}

TableSchema readSchemaFile(const std::string& path)
{
    std::ifstream in{path};
    if (!in)
        throw Failure{Exit::unusable, "schema", path, "cannot be read", {}};
    return schemaFromJson(Json::parse({std::istreambuf_iterator<char>{in}, {}}, path));
}

/// Columns as they are given, at places that the command chooses.
TableSchema placed(TableSchema schema, const LoadOptions& options)
{
    schema.table = options.table;
    schema.ids = schema.ids || options.ids;
    schema.place();
    if (const std::string fault = schema.fault(); !fault.empty())
        throw wrongUse("schema: " + fault);
    if (btreeCapacity(usablePageSize, schema.recordSize) == 0)
        throw wrongUse(fmt::format("a record would take {} bytes, more than a page has", schema.recordSize));
    return schema;
}

TableSchema newSchema(const LoadOptions& options, const InputRows& rows)
{
    constexpr std::size_t longestName = 31, longestNameWithIds = 26;  // in UTF-16 units
    constexpr std::uint32_t narrowestText = 4;                        // what a text out of line needs of its area
    const TableSchema schema = [&] {
        if (!options.schema.empty() && (!options.key.empty() || !options.types.empty()))
            throw wrongUse("a schema says already which columns are the key and of which types they are",
                           "--schema, or --key and --types");
        if (!options.schema.empty())
            return placed(readSchemaFile(options.schema), options);
        if (rows.schema && options.key.empty() && options.types.empty())
            return placed(*rows.schema, options);
        return planTable(rows, {options.table, options.key, parseTypes(options.types), options.ids});
    }();
    if (findInvalidUtf8(options.table) != std::string::npos || options.table.empty() ||
        utf16(options.table).size() > (schema.ids ? longestNameWithIds : longestName))
        throw wrongUse(fmt::format("no table can be called '{}'", printable(options.table)),
                       "up to 31 characters, 26 with --ids");
    if (schema.ids && schema.find(identifierColumn) != nullptr)
        throw wrongUse(fmt::format("column '{}' cannot be told from the identifiers", identifierColumn));
    for (const Column& column : schema.columns)
        if (column.width < (column.type == ColumnType::text ? narrowestText : 1))
            throw wrongUse(fmt::format("column '{}': {} is too narrow", printable(column.name), column.typeName()));
    return schema;
}

TableSchema existingSchema(const LoadOptions& options, const OpenFile& open, const Chain& table)
{
    std::vector<Damage> damages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { damages.push_back(std::move(damage)); });
    const TableSchema& schema = requireSchema(open, schemas, damages, table);
    if (!options.key.empty() || !options.types.empty() || !options.schema.empty() || options.ids)
        throw wrongUse(fmt::format("table '{}' is there already: --key, --types, --schema and --ids are for new tables",
                                   printable(options.table)));
    return schema;
}

std::unordered_set<std::string> keysOf(const OpenFile& open, const Chain& table, const TableSchema& schema)
{
    std::unordered_set<std::string> keys;
    walkRecords(
        open.file, table.shape(),
        [&](const Record& record) {
            const auto* const key = reinterpret_cast<const char*>(record.bytes.data()) + schema.keyOffset();
            keys.emplace(key, schema.keyBytes());
            return true;
        },
        [&](const Damage& damage) { failDamaged(open.file, damage); });
    return keys;
}

class Loader {
public:
    Loader(const LoadOptions& options, Session& session)
        : options_(options), session_(session), onDuplicate_(parseOnDuplicate(options.onDuplicate)),
          progress_(options.progress, options.quiet)
    {
    }

    Exit run()
    {
        if (options_.fill < 1 || options_.fill > 100)
            throw wrongUse("--fill is a percentage, such as 75 or 100");
        if (options_.table == schemaTableName)
            throw wrongUse("the table of schemas is not loaded into");
        Inputs inputs = readInputs(inputNames(options_));
        Change change{options_.path, {options_.cache, options_.inPlace, /*create=*/true}};
        plan(inputs, change.isNew());
        longTexts_ = countLongTexts(incoming_.rows, schema_);
        if (!options_.dryRun)
            write(change);
        report();
        return Exit::done;
    }

private:
    /// Everything that input and table can be refused for.
    void plan(Inputs& inputs, bool newFile)
    {
        std::unordered_set<std::string> present;
        const std::string name = inputs.names.front().second;
        const std::optional<OpenFile> open = newFile ? std::nullopt : std::optional<OpenFile>{options_.path};
        if (open && !open->catalogue.damages.empty())
            failDamaged(open->file, open->catalogue.damages.front());
        if (const Chain* const table = open ? open->catalogue.table(options_.table) : nullptr) {
            schema_ = existingSchema(options_, *open, *table);
            present = keysOf(*open, *table, schema_);
        } else {
            newTable_ = true;
            schema_ = newSchema(options_, inputs.rows);
        }
        incoming_ = convertRows(std::move(inputs), schema_, onDuplicate_);
        std::vector<std::pair<const Row*, std::size_t>> taken;
        for (std::size_t i = 0; i < incoming_.rows.size(); ++i) {
            const bool there = present.contains(incoming_.keys[i]);
            (there ? replacing_ : fresh_).push_back(i);
            if (there)
                taken.emplace_back(&incoming_.rows[i], 1);
        }
        if (!taken.empty() && !options_.update)
            throw Failure{Exit::wrongUse, "duplicate-keys", name,
                          fmt::format("table '{}' has {} of the keys already ({}), nothing was loaded",
                                      printable(options_.table), grouped(taken.size()), listKeys(schema_, taken)),
                          "--update replaces the rows that are there"};
    }

    /// The order in which new rows go in.
    std::vector<std::size_t> insertionOrder() const
    {
        if (options_.inputOrder) {
            std::vector<std::size_t> order = fresh_;
            std::sort(order.begin(), order.end(),
                      [&](std::size_t a, std::size_t b) { return incoming_.from[a] < incoming_.from[b]; });
            return order;
        }
        const std::size_t perPage = std::max<std::size_t>(2, recordsPerPage() * options_.fill / 100);
        std::vector<std::size_t> order = kaldb::bulk_order(fresh_.size(), perPage);
        for (std::size_t& i : order)
            i = fresh_[i];
        return order;
    }

    void write(Change& change)
    {
        kaldb::database& db = change.begin();
        RowStore store = newTable_ ? RowStore::create(db, schema_) : RowStore{db, schema_};
        progress_.begin(options_.table, incoming_.rows.size());
        for (const std::size_t i : insertionOrder()) {
            store.insert(incoming_.rows[i]);
            progress_.step();
        }
        for (const std::size_t i : replacing_) {
            store.put(incoming_.rows[i]);
            progress_.step();
        }
        result_ = change.finish();
    }

    std::size_t recordsPerPage() const { return btreeCapacity(usablePageSize, schema_.recordSize); }

    void report() const
    {
        if (session_.json)
            session_.out.json({{"kaldb", 1},
                               {"file", options_.path},
                               {"table", options_.table},
                               {"dryRun", options_.dryRun},
                               {"newTable", newTable_},
                               {"rows", incoming_.rows.size()},
                               {"replaced", replacing_.size()},
                               {"skipped", incoming_.skipped},
                               {"longTexts", longTexts_},
                               {"pages", options_.dryRun ? Json() : Json(result_.pages)},
                               {"bytes", options_.dryRun ? Json() : Json(result_.bytes)},
                               {"schema", toJson(schema_)}});
        else if (!options_.quiet)
            reportText();
    }

    void reportText() const
    {
        if (newTable_)
            reportSchema();
        std::string extra;
        if (!replacing_.empty())
            extra = grouped(replacing_.size()) + " replaced";
        if (incoming_.skipped != 0)
            extra += fmt::format("{}{} duplicate{} skipped", extra.empty() ? "" : ", ", grouped(incoming_.skipped),
                                 incoming_.skipped == 1 ? "" : "s");
        std::string line = fmt::format("{} {} row{}", options_.dryRun ? "would load" : "loaded",
                                       grouped(incoming_.rows.size()), incoming_.rows.size() == 1 ? "" : "s");
        line += extra.empty() ? "" : " (" + extra + ")";
        line += longTexts_ == 0 ? "" : fmt::format(", {} long values out of line", grouped(longTexts_));
        session_.out.line(line);
        if (!options_.dryRun)
            session_.out.line(fmt::format("{}: {} pages, {}, checked, backup written", options_.path,
                                          grouped(result_.pages), byteSize(result_.bytes)));
    }

    void reportSchema() const
    {
        session_.out.line(fmt::format("{}: new table, {} column{}, record {} bytes, {} on a page{}",
                                      printable(options_.table), schema_.columns.size(),
                                      schema_.columns.size() == 1 ? "" : "s", schema_.recordSize, recordsPerPage(),
                                      schema_.ids ? ", with identifiers" : ""));
        const bool one = schema_.keyColumns().size() == 1;
        std::size_t width = 0;
        for (const Column& column : schema_.columns)
            width = std::max(width, textWidth(printable(column.name)));
        const auto line = [&](const Column& column) {
            const std::string name = printable(column.name);
            const std::string key = column.keyPosition == 0 ? ""
                                    : one                   ? "key"
                                                            : fmt::format("key {}", column.keyPosition);
            session_.out.line(fmt::format("  {}{}  {:<7}  {}", name, std::string(width - textWidth(name), ' '), key,
                                          column.typeName()));
        };
        for (const std::size_t key : schema_.keyColumns())
            line(schema_.columns[key]);
        for (const Column& column : schema_.columns)
            if (column.keyPosition == 0)
                line(column);
    }

    const LoadOptions& options_;
    Session& session_;
    OnDuplicate onDuplicate_;
    Progress progress_;
    TableSchema schema_;
    bool newTable_ = false;
    Incoming incoming_;
    std::vector<std::size_t> fresh_, replacing_;  // numbers of incoming rows
    std::size_t longTexts_ = 0;
    Change::Result result_;
};

}  // namespace

void addLoad(CommandLine& line, Session& session)
{
    Verb verb = line.verb("load", "Rows from outside, into a new or an existing table");
    const auto options = std::make_shared<LoadOptions>();
    verb.argument("FILE", options->path, "Database file; a missing one is made");
    verb.argument("TABLE", options->table, "Table; a missing one is made");
    verb.arguments("INPUT", options->inputs.paths, "Files with rows; - is standard input");
    verb.option("--format", options->inputs.format, "csv, tsv, jsonl, json or lines; else from the input's name");
    verb.list("--key", options->key, "Columns that tell the rows of a new table apart, in their order");
    verb.list("--types", options->types, "COLUMN=TYPE,... with bool, i64, f64, char(N), text(N), bytes(N)");
    verb.option("--schema", options->schema, "Columns of a new table from this file, as kaldb schema --json writes it");
    verb.flag("--ids", options->ids, "Rows of a new table get identifiers");
    verb.option("--on-duplicate", options->onDuplicate, "Rows of equal keys in the input: error, first or last");
    verb.flag("--update", options->update, "Rows take the place of those of their key in the table");
    verb.option("--fill", options->fill, "How full pages get, in percent: 75 leaves room for later rows");
    verb.flag("--input-order", options->inputOrder, "Insert in the input's order; makes lookups slow");
    verb.option("--delimiter", options->delimiter, "What stands between the fields of delimited text");
    verb.flag("--no-header", options->noHeader, "The first line is a row; columns are column1, column2, ...");
    verb.flag("--latin1", options->inputs.options.latin1, "The input is Latin-1 instead of UTF-8");
    verb.option("--at", options->inputs.options.at, "Where the array lies in a JSON document, such as /639-3");
    verb.flag("--dry-run", options->dryRun, "Read, plan and check, but write nothing");
    verb.option("--cache", options->cache, "Page cache, such as 64M");
    verb.flag("--in-place", options->inPlace, "Change the file itself, not a copy of it");
    verb.option("--progress", options->progress, "always, never or auto: on a terminal");
    verb.flag("-q,--quiet", options->quiet, "Print neither progress nor a report");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] {
        session.file = options->path;
        session.run = [&session, options] { return Loader{*options, session}.run(); };
    });
}

}  // namespace kaldb::tool
