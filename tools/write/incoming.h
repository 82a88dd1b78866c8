// The rows that a load brings: read, given their types, sorted by key, each key once.
#pragma once

#include "plan.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kaldb::tool {

struct InputNames {
    std::vector<std::string> paths;  // "-" is standard input
    std::string format;              // empty: from each path's ending
    InputOptions options;
};

/// Several inputs as one.
struct Inputs {
    InputRows rows;
    std::vector<std::pair<std::size_t, std::string>> names;  // with the number of each input's first row

    const std::string& nameOf(std::size_t row) const;
};

/// Throws a Failure for what cannot be read.
Inputs readInputs(const InputNames& names);

/// What to do with rows of equal keys.
enum class OnDuplicate { refuse, first, last };
OnDuplicate parseOnDuplicate(const std::string& name);

struct Incoming {
    std::vector<Row> rows;          // in the order of their keys
    std::vector<std::string> keys;  // of each row, as bytes
    std::vector<std::size_t> from;  // the number of each row in the input
    std::size_t skipped = 0;        // rows that another row of their key has put out
};

/// Throws a Failure that names line and column for a row that the schema does not take, and one that names keys for
/// those that occur more than once.
Incoming convertRows(Inputs inputs, const TableSchema& schema, OnDuplicate onDuplicate);

/// "080030 ×3, 0001C8 ×2": keys that are counted, the most frequent first, and of many the first ones only.
std::string listKeys(const TableSchema& schema, std::vector<std::pair<const Row*, std::size_t>> keys);

}  // namespace kaldb::tool
