#include "output.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <system_error>
#include <utility>

namespace kaldb::tool {

namespace {

constexpr std::size_t gatherBytes = 1 << 16;

std::uint64_t identifierOf(const Record& record) { return readField<KALDBID>(record.bytes.data()).sequence; }

class DelimitedWriter final : public RowWriter {
public:
    DelimitedWriter(Shape shape, Output& out, char delimiter) : shape_(shape), out_(out), delimiter_(delimiter) {}

    void begin() override
    {
        std::vector<std::string> names;
        if (shape_.ids)
            names.push_back(identifierColumn);
        for (const std::size_t column : shape_.columns)
            names.push_back(shape_.schema.columns[column].name);
        write(names);
    }
    void row(const Row& row, const Record& record) override
    {
        std::vector<std::string> cells;
        if (shape_.ids)
            cells.push_back(std::to_string(identifierOf(record)));
        for (const std::size_t column : shape_.columns)
            cells.push_back(toText(row[column], shape_.schema.columns[column]));
        write(cells);
    }

private:
    void write(const std::vector<std::string>& cells)
    {
        std::string text;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i > 0)
                text += delimiter_;
            text += delimitedCell(cells[i], delimiter_);
        }
        // An empty line would be no row at all to a reader.
        out_.line(text.empty() && cells.size() == 1 ? "\"\"" : text);
    }

    Shape shape_;
    Output& out_;
    char delimiter_;
};

class JsonWriter final : public RowWriter {
public:
    JsonWriter(Shape shape, Output& out) : shape_(shape), out_(out) {}

    void row(const Row& row, const Record& record) override
    {
        Json json = Json::object();
        if (shape_.ids)
            json.set(identifierColumn, identifierOf(record));
        for (const std::size_t column : shape_.columns)
            json.set(shape_.schema.columns[column].name, valueToJson(row[column], shape_.schema.columns[column]));
        out_.json(json);
    }

private:
    Shape shape_;
    Output& out_;
};

class TableWriter final : public RowWriter {
public:
    TableWriter(Shape shape, Output& out) : shape_(shape), out_(out), table_(headings(shape)) {}

    void row(const Row& row, const Record& record) override
    {
        std::vector<std::string> cells;
        if (shape_.ids)
            cells.push_back(std::to_string(identifierOf(record)));
        for (const std::size_t column : shape_.columns)
            cells.push_back(printable(toText(row[column], shape_.schema.columns[column])));
        table_.row(std::move(cells));
        any_ = true;
    }
    void end() override
    {
        if (any_)
            table_.print(out_);
    }

private:
    static std::vector<std::string> headings(const Shape& shape)
    {
        std::vector<std::string> names;
        if (shape.ids)
            names.push_back(std::string(">") + identifierColumn);
        for (const std::size_t column : shape.columns) {
            const Column& c = shape.schema.columns[column];
            const bool right = c.type == ColumnType::integer || c.type == ColumnType::number;
            names.push_back((right ? ">" : "") + printable(c.name));
        }
        return names;
    }

    Shape shape_;
    Output& out_;
    TextTable table_;
    bool any_ = false;
};

class HexWriter final : public RowWriter {
public:
    HexWriter(bool ids, Output& out) : ids_(ids), out_(out) {}

    void row(const Row&, const Record& record) override
    {
        const std::string id = ids_ ? fmt::format(" id {}", identifierOf(record)) : "";
        out_.line(fmt::format("page {} slot {}{} {}", record.page, record.slot, id, hex(record.bytes)));
    }

private:
    bool ids_;
    Output& out_;
};

}  // namespace

void Output::write(std::string_view text)
{
    gathered_ += text;
    if (gathered_.size() >= gatherBytes)
        finish();
}

void Output::json(const Json& json) { line(json.dump()); }

void Output::line(std::string_view text)
{
    gathered_ += text;
    write("\n");
}

void Output::finish()
{
    const std::string text = std::exchange(gathered_, {});
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Failure{Exit::unusable,
                      "output",
                      {},
                      fmt::format("cannot write to standard output: {}", std::generic_category().message(errno)),
                      {}};
}

TextTable::TextTable(std::vector<std::string> headings)
{
    for (std::string& heading : headings) {
        right_.push_back(heading.starts_with('>'));
        if (right_.back())
            heading.erase(0, 1);
    }
    rows_.push_back(std::move(headings));
}

void TextTable::print(Output& out) const
{
    std::vector<std::size_t> widths(right_.size());
    for (const auto& row : rows_)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], textWidth(row[i]));
    for (const auto& row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string gap(widths[i] - textWidth(row[i]), ' ');
            line += i == 0 ? "" : "  ";
            line += right_[i] ? gap + row[i] : row[i] + gap;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out.line(line);
    }
}

Format parseFormat(const std::string& name)
{
    constexpr std::array<const char*, 5> names{"csv", "tsv", "jsonl", "table", "hex"};
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
        throw wrongUse(fmt::format("unknown format '{}'", printable(name)), "csv, tsv, jsonl, table or hex");
    return static_cast<Format>(found - names.begin());
}

std::unique_ptr<RowWriter> makeRowWriter(Format format, RowWriter::Shape shape, Output& out)
{
    switch (format) {
    case Format::csv: return std::make_unique<DelimitedWriter>(std::move(shape), out, ',');
    case Format::tsv: return std::make_unique<DelimitedWriter>(std::move(shape), out, '\t');
    case Format::jsonl: return std::make_unique<JsonWriter>(std::move(shape), out);
    case Format::table: return std::make_unique<TableWriter>(std::move(shape), out);
    case Format::hex: break;
    }
    return makeHexWriter(shape.schema.ids, out);
}

std::unique_ptr<RowWriter> makeHexWriter(bool ids, Output& out) { return std::make_unique<HexWriter>(ids, out); }

Json valueToJson(const Value& value, const Column& column)
{
    if (const auto* flag = std::get_if<bool>(&value))
        return *flag;
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return *integer;
    if (const auto* number = std::get_if<double>(&value))
        return std::isfinite(*number) ? Json(*number) : Json();
    return isNull(value) ? Json() : Json(toText(value, column));
}

std::string delimitedCell(std::string_view text, char delimiter)
{
    if (text.find_first_of("\"\r\n") == std::string_view::npos && text.find(delimiter) == std::string_view::npos)
        return std::string{text};
    std::string quoted = "\"";
    for (const char c : text)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

}  // namespace kaldb::tool
