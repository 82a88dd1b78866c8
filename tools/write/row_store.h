// The rows of one table, written through the library.
#pragma once

#include "row.h"

#include <kaldb/cpp/raw_table.hpp>

#include <cstddef>
#include <vector>

namespace kaldb::tool {

class RowStore {
public:
    /// Of a table that is there, and of which the schema is `schema`.
    RowStore(kaldb::database& db, const TableSchema& schema);
    /// Makes the table and describes it in KaldbSchema.
    static RowStore create(kaldb::database& db, const TableSchema& schema);

    /// Inserts a row whose key is not in the table.
    void insert(const Row& row);
    /// Inserts the row or puts it in the place of that of its key; true when it took another's place.
    bool put(const Row& row);
    /// False when there is no row of this whole key.
    bool erase(const KeyBytes& key);

private:
    std::vector<std::byte> encode(const Row& row) const;
    void eraseTexts(std::vector<std::byte>& record) const;

    const TableSchema& schema_;
    kaldb::raw_table table_;
};

}  // namespace kaldb::tool
