// From rows to a schema: which types the columns have, and how wide they are.
#pragma once

#include "input.h"
#include "row.h"

#include <map>
#include <string>
#include <vector>

namespace kaldb::tool {

struct PlanOptions {
    std::string table = {};
    std::vector<std::string> key = {};              // columns, in the key's order; at least one
    std::map<std::string, std::string> types = {};  // given types by column: "i64", "char(20)", "text(64)", ...
    bool ids = false;
};

/// A schema that holds all of the rows. A column is bool, i64 or f64 when each value prints back as it stands there;
/// else it is text. Texts are laid out so that the fewest pages are needed: each is kept in a field as wide as the
/// longest, or in an inline area with the longer ones out of line, one of which counts as an eighth of a page. At least
/// 4 records share a page. Throws a Failure for columns, keys and types that make no sense.
TableSchema planTable(const InputRows& input, const PlanOptions& options);

/// The row's values in the types of the schema's columns; a column that the input lacks is null. Throws a Failure that
/// names `input` and the line.
Row convertRow(const InputRows& input, std::size_t row, const TableSchema& schema, const std::string& name);

/// Values that will lie out of line when the rows are kept under this schema.
std::size_t countLongTexts(const std::vector<Row>& rows, const TableSchema& schema);

}  // namespace kaldb::tool
