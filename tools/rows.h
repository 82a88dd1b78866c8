// Rows of one table, found and written: what get and dump share.
#pragma once

#include "row.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

namespace kaldb::tool {

struct RowSelection {
    std::optional<KeyBytes> from;  // the first key wanted, or its beginning
    std::optional<KeyBytes> to;    // the last
    std::uint64_t limit = UINT64_MAX;
};

/// Walks the rows of one table and writes them.
class TableRows {
public:
    TableRows(const OpenFile& open, const Chain& table, const TableSchema* schema)
        : open_(open), table_(table), schema_(schema), texts_(open.file, open.catalogue.table(textTableName))
    {
    }

    const Chain& table() const { return table_; }
    /// Null when the table has none: its records are then shown as hex.
    const TableSchema* schema() const { return schema_; }

    /// Writes the selected rows and returns their number. Damage is told to `damage` and left out.
    std::uint64_t write(const RowSelection& selection, RowWriter& writer, const DamageSink& damage) const;
    /// Writes one record that has been found otherwise.
    void writeOne(const Record& record, RowWriter& writer, const DamageSink& damage) const;
    /// Throws a Failure for the first damage in the table's pages and texts.
    void requireSound() const;

private:
    const OpenFile& open_;
    const Chain& table_;
    const TableSchema* schema_;
    StoredTexts texts_;
};

/// A writer for the table's rows: `columns` by name, all when empty. Hex when there is no schema.
std::unique_ptr<RowWriter> writerFor(const TableRows& rows, Format format, const std::vector<std::string>& columns,
                                     bool ids, Output& out);

/// The schema of a table, null when it has none; throws a Failure when it has one that is damaged.
const TableSchema* schemaOf(const OpenFile& open, const Schemas& schemas, const std::vector<Damage>& damages,
                            const Chain& table);
/// Throws a Failure for a table that has none.
const TableSchema& requireSchema(const OpenFile& open, const Schemas& schemas, const std::vector<Damage>& damages,
                                 const Chain& table);

}  // namespace kaldb::tool
