// The texts of described tables: each is whole, no block belongs to two, none belongs to nobody.

#include "checker.h"

#include "row.h"
#include "stored_text.h"
#include "text.h"

#include <fmt/format.h>

#include <set>
#include <utility>

namespace kaldb::tool {

namespace {

using Blocks = std::set<std::pair<PageNumber, SlotIndex>>;

bool hasTexts(const TableSchema& schema)
{
    for (const Column& column : schema.columns)
        if (column.type == ColumnType::text)
            return true;
    return false;
}

/// Checks the texts of one table; the blocks that they use are added to `used`.
class TextCheck {
public:
    TextCheck(const TableSchema& schema, const StoredTexts& texts, Blocks& used)
        : schema_(schema), texts_(texts), used_(used)
    {
    }

    using Report = std::function<void(Severity, const char* code, std::string text)>;
    void record(Bytes record, const Report& report) const
    {
        for (std::size_t i = 0; i < schema_.columns.size(); ++i) {
            const Column& column = schema_.columns[i];
            if (column.type != ColumnType::text || nullBit(schema_, record, i))
                continue;
            std::string text;
            Damage damage;
            const Bytes field = record.subspan(column.offset, column.fieldBytes());
            const auto claim = [&](PageNumber page, SlotIndex slot) { return used_.emplace(page, slot).second; };
            const std::string name = fmt::format("text of column '{}'", printable(column.name));
            if (!texts_.read(field, text, damage, claim))
                report(Severity::error, damage.code.c_str(), fmt::format("{} {}", name, damage.text));
            else if (findInvalidUtf8(text) != std::string::npos || text.find('\0') != std::string::npos)
                report(Severity::warning, "text.encoding", fmt::format("{} is not valid UTF-8", name));
        }
    }

private:
    const TableSchema& schema_;
    const StoredTexts& texts_;
    Blocks& used_;
};

}  // namespace

void Checker::checkTexts()
{
    const Chain* const store = open_.catalogue.table(textTableName);
    const StoredTexts texts{file_, store != nullptr && store->binary() ? store : nullptr};
    Blocks used;
    bool foreign = false;
    for (const Chain& chain : open_.catalogue.chains) {
        const auto schema = schemas_.find(chain.name);
        if (!chain.table() || schema == schemas_.end()) {
            foreign |= chain.table() && !chain.system() && chain.name != schemaTableName;
            continue;
        }
        if (!hasTexts(schema->second))
            continue;
        const TextCheck check{schema->second, texts, used};
        walkRecords(
            file_, chain.shape(),
            [&](const Record& record) {
                check.record(record.bytes, [&](Severity severity, const char* code, std::string text) {
                    add(severity, record.page, record.slot, code, std::move(text), chain.name);
                });
                return true;
            },
            known);
    }
    if (store == nullptr || !store->binary())
        return;
    // A program with records of its own keeps texts that this check cannot see.
    if (foreign) {
        add(Severity::note, noPage, noSlot, "text.unknown",
            "its blocks were not checked for lost ones: tables without a schema may use them", store->name);
        return;
    }
    const auto visit = [&](const VisitedPage& visited) {
        const auto page = PiecePage::open(visited.bytes);
        for (SlotIndex slot = 0; page->holds(slot); ++slot)
            if (page->slot(slot).inUse != 0 && !used.contains({visited.number, slot}))
                add(Severity::warning, visited.number, slot, "text.leaked", "belongs to no text", store->name);
        return true;
    };
    walkPages(file_, store->shape(), visit, known);
}

}  // namespace kaldb::tool
