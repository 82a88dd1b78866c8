// Standard output, and rows on it.
#pragma once

#include "json.h"
#include "row.h"
#include "walk.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kaldb::tool {

/// Standard output, gathered. Throws a Failure when it cannot be written.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view text);
    void line(std::string_view text);
    void json(const Json& json);
    /// To be called at the end: a destructor could not report a full disk.
    void finish();

private:
    std::string gathered_;
};

/// Text in columns as wide as their widest cell; numbers to the right.
class TextTable {
public:
    /// A heading that begins with '>' puts its column to the right.
    explicit TextTable(std::vector<std::string> headings);
    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    void print(Output& out) const;

private:
    std::vector<bool> right_;
    std::vector<std::vector<std::string>> rows_;
};

enum class Format { csv, tsv, jsonl, table, hex };
/// Throws a Failure for an unknown name.
Format parseFormat(const std::string& name);

/// Writes the rows of one table. `columns` are indexes into the schema's; `ids` puts identifiers before them.
class RowWriter {
public:
    struct Shape {
        const TableSchema& schema;
        std::vector<std::size_t> columns;
        bool ids = false;
    };
    virtual ~RowWriter() = default;
    virtual void begin() {}
    virtual void row(const Row& row, const Record& record) = 0;
    virtual void end() {}
};

/// Finds out what would be written.
class Nowhere final : public RowWriter {
public:
    void row(const Row&, const Record&) override {}
};

/// `shape` is not used for hex, which shows the records of any table.
std::unique_ptr<RowWriter> makeRowWriter(Format format, RowWriter::Shape shape, Output& out);
std::unique_ptr<RowWriter> makeHexWriter(bool ids, Output& out);

/// A value as JSON: bytes as hex text, a number that JSON does not know as null.
Json valueToJson(const Value& value, const Column& column);
/// One cell of delimited text, quoted where it must be.
std::string delimitedCell(std::string_view text, char delimiter);

}  // namespace kaldb::tool
