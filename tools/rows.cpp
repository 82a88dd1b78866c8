#include "rows.h"

#include "text.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

/// Walks a binary table's pieces as if they were records.
void walkPieces(const PageFile& file, const ChainShape& chain, const RecordVisitor& visit, const DamageSink& damage)
{
    const auto visitPage = [&](const VisitedPage& visited) {
        const auto page = PiecePage::open(visited.bytes);
        for (SlotIndex slot = 0; page->holds(slot); ++slot) {
            const KALDBBinarySlot piece = page->slot(slot);
            const Bytes data = page->data(slot);
            const Bytes bytes = data.first(std::min<std::size_t>(piece.length, data.size()));
            if (piece.inUse != 0 && !visit({bytes, visited.number, slot}))
                return false;
        }
        return true;
    };
    walkPages(file, chain, visitPage, damage);
}

}  // namespace

std::uint64_t TableRows::write(const RowSelection& selection, RowWriter& writer, const DamageSink& damage) const
{
    std::uint64_t written = 0;
    const auto visit = [&](const Record& record) {
        if (written >= selection.limit || (selection.to && selection.to->compare(*schema_, record.bytes) < 0))
            return false;
        writeOne(record, writer, damage);
        ++written;
        return true;
    };
    Before before;
    if (selection.from)
        before = [&](Bytes record) { return selection.from->compare(*schema_, record) > 0; };
    if (table_.binary())
        walkPieces(open_.file, table_.shape(), visit, damage);
    else
        walkRecords(open_.file, table_.shape(), visit, damage, before);
    return written;
}

void TableRows::writeOne(const Record& record, RowWriter& writer, const DamageSink& damage) const
{
    const auto located = [&](Damage found) {
        found.page = record.page;
        found.slot = record.slot;
        damage(std::move(found));
    };
    writer.row(schema_ == nullptr ? Row{} : decodeRow(*schema_, record.bytes, texts_, located), record);
}

void TableRows::requireSound() const
{
    Nowhere nowhere;
    write({}, nowhere, [&](const Damage& damage) { failDamaged(open_.file, damage); });
}

std::unique_ptr<RowWriter> writerFor(const TableRows& rows, Format format, const std::vector<std::string>& columns,
                                     bool ids, Output& out)
{
    const TableSchema* const schema = rows.schema();
    if (ids && !rows.table().withIds())
        throw wrongUse(fmt::format("table '{}' has no identifiers", printable(rows.table().name)));
    if (schema == nullptr || format == Format::hex)
        return makeHexWriter(rows.table().withIds(), out);

    std::vector<std::size_t> chosen;
    for (const std::string& name : columns) {
        const Column* const column = schema->find(name);
        if (column == nullptr)
            throw wrongUse(fmt::format("table '{}' has no column '{}'", printable(schema->table), printable(name)));
        chosen.push_back(static_cast<std::size_t>(column - schema->columns.data()));
    }
    for (std::size_t i = 0; columns.empty() && i < schema->columns.size(); ++i)
        chosen.push_back(i);
    return makeRowWriter(format, {*schema, std::move(chosen), ids}, out);
}

const TableSchema* schemaOf(const OpenFile& open, const Schemas& schemas, const std::vector<Damage>& damages,
                            const Chain& table)
{
    const auto found = schemas.find(table.name);
    if (found != schemas.end())
        return &found->second;
    if (!damages.empty())
        failDamaged(open.file, damages.front());
    return nullptr;
}

const TableSchema& requireSchema(const OpenFile& open, const Schemas& schemas, const std::vector<Damage>& damages,
                                 const Chain& table)
{
    if (const TableSchema* const schema = schemaOf(open, schemas, damages, table))
        return *schema;
    throw wrongUse(fmt::format("table '{}' has no schema, so that its keys are unknown", printable(table.name)),
                   "kaldb dump shows its records as hex");
}

}  // namespace kaldb::tool
