// The identifier indexes: every record of a table is found by its identifier, and nothing else is.

#include "checker.h"

#include "text.h"

#include <fmt/format.h>

#include <algorithm>

namespace kaldb::tool {

namespace {

/// One record of an index, and whether a record of the table answered to it.
struct Entry {
    KALDBIndexRecord record;
    PageNumber page;
    SlotIndex slot;
    bool answered = false;
};

std::vector<Entry> readIndex(const PageFile& file, const Chain& index)
{
    std::vector<Entry> entries;
    walkRecords(
        file, index.shape(),
        [&](const Record& record) {
            entries.push_back({readField<KALDBIndexRecord>(record.bytes.data()), record.page, record.slot});
            return true;
        },
        [](const Damage&) {});
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.record.id.sequence < b.record.id.sequence; });
    return entries;
}

}  // namespace

void Checker::checkIndexes()
{
    for (const Chain& chain : open_.catalogue.chains) {
        if (chain.object.kind == KALDB_OBJECT_INDEX) {
            const std::string suffix = "Index";
            const bool named = chain.name.ends_with(suffix);
            const Chain* const table =
                open_.catalogue.table(chain.name.substr(0, chain.name.size() - (named ? suffix.size() : 0)));
            if (!named || table == nullptr || !table->withIds())
                warning(chain.page, chain.slot, "index.orphan",
                        fmt::format("index '{}' belongs to no table", printable(chain.name)));
        } else if (chain.table() && chain.withIds() && !chain.binary()) {
            const Chain* const index = open_.catalogue.find(KALDB_OBJECT_INDEX, chain.name + "Index");
            if (index == nullptr || index->binary() || index->object.recordSize != sizeof(KALDBIndexRecord))
                error(chain.page, chain.slot, "index.missing",
                      fmt::format("table '{}' has no index of its identifiers", printable(chain.name)));
            else if (chain.object.recordSize >= sizeof(KALDBID))
                checkIndex(chain, *index);
        }
    }
}

void Checker::checkIndex(const Chain& table, const Chain& index)
{
    std::vector<Entry> entries = readIndex(file_, index);
    const auto check = [&](const Record& record) {
        const std::uint64_t id = readField<KALDBID>(record.bytes.data()).sequence;
        const auto wrong = [&](const char* code, std::string text) {
            add(Severity::error, record.page, record.slot, code, std::move(text), table.name);
            return true;
        };
        if (id >= table.object.nextID.sequence)
            wrong("id.counter", fmt::format("has identifier {}, but the next is {}", id, table.object.nextID.sequence));
        const auto entry =
            std::lower_bound(entries.begin(), entries.end(), id,
                             [](const Entry& e, std::uint64_t wanted) { return e.record.id.sequence < wanted; });
        if (entry == entries.end() || entry->record.id.sequence != id)
            return wrong("index.lacks", fmt::format("identifier {} is not in the index", id));
        if (entry->answered)
            return wrong("id.twice", fmt::format("identifier {} belongs to another record too", id));
        entry->answered = true;
        if (entry->record.page != record.page || entry->record.index != record.slot)
            return wrong("index.wrong", fmt::format("the index looks for identifier {} in page {} slot {}", id,
                                                    entry->record.page, entry->record.index));
        return true;
    };
    walkRecords(file_, table.shape(), check, known);
    for (const Entry& entry : entries)
        if (!entry.answered)
            add(Severity::error, entry.page, entry.slot, "index.stray",
                fmt::format("leads to identifier {}, which no record has", entry.record.id.sequence), index.name);
}

}  // namespace kaldb::tool
