// Rows from outside: delimited text, JSON lines, a JSON array, plain lines.
#pragma once

#include "value.h"

#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace kaldb::tool {

enum class InputFormat { csv, tsv, jsonl, json, lines };

struct InputOptions {
    InputFormat format = InputFormat::csv;
    char delimiter = '\0';            // '\0': the format's own
    bool header = true;               // the first record of delimited text names the columns
    bool latin1 = false;              // the text is Latin-1 instead of UTF-8
    std::string at;                   // JSON: where the array lies, as a pointer such as "/3166-1"
    std::string table;                // JSON lines of a whole file: the table wanted
    std::string lineColumn = "line";  // what plain lines call their only column
};

/// The rows of an input, in its order. Delimited text and lines give strings, JSON gives its own types; a key that is
/// missing is null. What JSON nests is kept as JSON text, an integer that does not fit as its digits.
struct InputRows {
    std::vector<std::string> columns;
    bool typed = false;  // values have types of their own
    std::vector<std::vector<Value>> rows;
    std::vector<std::size_t> lines;     // where each row began, from 1
    std::optional<TableSchema> schema;  // the input's own, if it brings one
};

/// Throws a Failure that names the input and the line for what cannot be read.
InputRows readInput(std::istream& in, const std::string& name, const InputOptions& options);

/// Adds the rows of another input. Throws a Failure when its columns are others, which only typed rows may have.
void append(InputRows& all, InputRows more, const std::string& name);

/// Throws a Failure for an unknown name.
InputFormat parseInputFormat(const std::string& name);
/// From the ending of a file's name; csv when that says nothing.
InputFormat formatOfName(const std::string& name);

}  // namespace kaldb::tool
