// kaldb get FILE TABLE KEY...: rows by key, by a range of keys, by identifier.

#include "rows.h"
#include "text.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct GetOptions {
    std::string path, table;
    std::vector<std::string> keys, prefix, from, to, columns;
    std::vector<std::uint64_t> ids;
    std::uint64_t limit = UINT64_MAX;
    std::string format = "table";
    bool showIds = false;
    bool dirty = false;

    bool byRange() const { return !prefix.empty() || !from.empty() || !to.empty(); }
};

/// Finds records through the identifier index of their table.
bool findById(const OpenFile& open, const Chain& table, std::uint64_t id, const RecordVisitor& visit,
              const DamageSink& damage)
{
    const Chain* const index = open.catalogue.find(KALDB_OBJECT_INDEX, table.name + "Index");
    if (!table.withIds() || index == nullptr || index->binary() || index->object.recordSize != sizeof(KALDBIndexRecord))
        throw wrongUse(fmt::format("table '{}' has no index of identifiers", printable(table.name)));
    const auto sequence = [](Bytes record) { return readField<KALDBID>(record.data()).sequence; };
    std::optional<KALDBIndexRecord> found;
    walkRecords(
        open.file, index->shape(),
        [&](const Record& record) {
            if (sequence(record.bytes) == id)
                found = readField<KALDBIndexRecord>(record.bytes.data());
            return false;
        },
        damage, [&](Bytes record) { return sequence(record) < id; });
    if (!found)
        return false;

    Page bytes;
    const auto page = open.file.read(found->page, bytes) ? RecordPage::open(bytes) : std::nullopt;
    if (!page || page->header().itemSize != table.object.recordSize || !page->holds(found->index) ||
        !page->inUse(found->index) || sequence(page->item(found->index)) != id) {
        damage({found->page, found->index, "index.wrong", fmt::format("is not the record of identifier {}", id)});
        return false;
    }
    visit({page->item(found->index), found->page, found->index});
    return true;
}

RowSelection range(const GetOptions& options, const TableSchema& schema)
{
    RowSelection selection;
    selection.limit = options.limit;
    if (!options.prefix.empty())
        selection.from = selection.to = makeKey(schema, options.prefix, /*open=*/true);
    if (!options.from.empty())
        selection.from = makeKey(schema, options.from);
    if (!options.to.empty())
        selection.to = makeKey(schema, options.to);
    return selection;
}

class Getter {
public:
    Getter(const GetOptions& options, const OpenFile& open, const TableRows& rows)
        : options_(options), open_(open), rows_(rows)
    {
    }

    /// Everything is found before anything is written: a key that is missing, or damage, leaves no half output behind.
    Exit run(RowWriter& writer) const
    {
        Nowhere nowhere;
        if (!find(nowhere, damage_))
            return Exit::no;
        writer.begin();
        find(writer, [](const Damage&) {});  // told already
        writer.end();
        return Exit::done;
    }

private:
    bool find(RowWriter& writer, const DamageSink& damage) const
    {
        bool all = true;
        for (const std::uint64_t id : options_.ids)
            all &= findById(
                open_, rows_.table(), id,
                [&](const Record& record) {
                    rows_.writeOne(record, writer, damage);
                    return true;
                },
                damage);
        if (!options_.keys.empty() || options_.byRange()) {
            const TableSchema& schema = *rows_.schema();
            for (const KeyBytes& key : makeKeys(schema, options_.keys))
                all &= rows_.write({key, key, 1}, writer, damage) == 1;
            if (options_.byRange())
                all &= rows_.write(range(options_, schema), writer, damage) > 0;
        }
        return all;
    }

    const GetOptions& options_;
    const OpenFile& open_;
    const TableRows& rows_;
    DamageSink damage_ = [this](const Damage& damage) {
        if (!options_.dirty)
            failDamaged(open_.file, damage);
        note(fmt::format("{}: {}", options_.path, describe(damage)));
    };
};

Exit get(const GetOptions& options, Session& session)
{
    if (options.keys.empty() && options.ids.empty() && !options.byRange())
        throw wrongUse("no key is given", "KEY..., --prefix, --from, --to or --id; kaldb dump shows all rows");
    const Format format = parseFormat(options.format);
    const OpenFile open{options.path};
    refuseDirty(open.file, options.dirty);
    const Chain& table = requireTable(open, options.table);
    std::vector<Damage> damages;
    const Schemas schemas =
        readSchemas(open.file, open.catalogue, [&](Damage damage) { damages.push_back(std::move(damage)); });
    const bool byId = options.keys.empty() && !options.byRange();
    const TableRows rows{
        open, table, byId ? schemaOf(open, schemas, damages, table) : &requireSchema(open, schemas, damages, table)};
    const auto writer = writerFor(rows, format, options.columns, options.showIds, session.out);
    return Getter{options, open, rows}.run(*writer);
}

}  // namespace

void addGet(CommandLine& line, Session& session)
{
    Verb verb = line.verb("get", "Rows by key");
    const auto options = std::make_shared<GetOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.argument("TABLE", options->table, "Table");
    verb.arguments("KEY", options->keys, "Values of the key columns, key after key");
    verb.words("--prefix", options->prefix, "Rows whose key begins so; the last value may be cut short");
    verb.words("--from", options->from, "The first key wanted, or its first columns");
    verb.words("--to", options->to, "The last key wanted, or its first columns");
    verb.list("--id", options->ids, "Rows by identifier");
    verb.option("--limit", options->limit, "So many rows of a range at most");
    verb.option("--format", options->format, "csv, tsv, jsonl, table or hex");
    verb.list("--columns", options->columns, "Only these columns, in this order");
    verb.flag("--ids", options->showIds, "Show identifiers");
    verb.flag("--dirty", options->dirty, "Also from a file that is open or was not closed cleanly");
    verb.chosen([&session, options] {
        session.json = options->format == "jsonl";
        session.run = [&session, options] { return get(*options, session); };
    });
}

}  // namespace kaldb::tool
