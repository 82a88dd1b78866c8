#include "input.h"

#include "csv.h"
#include "failure.h"
#include "json.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <unordered_map>

namespace kaldb::tool {

namespace {

[[noreturn]] void fail(const std::string& name, std::size_t line, std::string what)
{
    throw Failure{Exit::wrongUse, "input", name, fmt::format("line {}: {}", line, what), {}};
}

/// Text as the table keeps it: UTF-8 without NUL characters.
std::string accept(std::string text, const InputOptions& options, const std::string& name, std::size_t line)
{
    if (options.latin1)
        text = latin1ToUtf8(text);
    else if (findInvalidUtf8(text) != std::string::npos)
        throw Failure{Exit::wrongUse, "input", name, fmt::format("line {}: not valid UTF-8", line),
                      "--latin1 converts from Latin-1"};
    if (text.find('\0') != std::string::npos)
        fail(name, line, "a NUL character, which no text can hold");
    return text;
}

std::vector<std::string> numberedColumns(std::size_t count)
{
    std::vector<std::string> names;
    for (std::size_t i = 1; i <= count; ++i)
        names.push_back(fmt::format("column{}", i));
    return names;
}

InputRows readDelimited(std::istream& in, const std::string& name, const InputOptions& options)
{
    const char own = options.format == InputFormat::tsv ? '\t' : ',';
    CsvReader reader{in, name, options.delimiter == '\0' ? own : options.delimiter};
    InputRows input;
    std::vector<std::string> fields;
    while (reader.next(fields)) {
        for (std::string& field : fields)
            field = accept(std::move(field), options, name, reader.line());
        if (input.columns.empty()) {
            input.columns = options.header ? fields : numberedColumns(fields.size());
            if (options.header)
                continue;
        }
        if (fields.size() != input.columns.size())
            fail(name, reader.line(),
                 fmt::format("{} fields, but there are {} columns", fields.size(), input.columns.size()));
        input.rows.emplace_back(std::make_move_iterator(fields.begin()), std::make_move_iterator(fields.end()));
        input.lines.push_back(reader.line());
    }
    return input;
}

InputRows readLines(std::istream& in, const std::string& name, const InputOptions& options)
{
    InputRows input;
    input.columns = {options.lineColumn};
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number) {
        if (number == 1 && line.starts_with("\xEF\xBB\xBF"))  // a byte-order mark
            line.erase(0, 3);
        if (line.ends_with('\r'))
            line.pop_back();
        input.rows.push_back({accept(std::move(line), options, name, number)});
        input.lines.push_back(number);
    }
    return input;
}

/// Rows of JSON objects; columns come in the order in which they are first met.
class ObjectRows {
public:
    explicit ObjectRows(const std::string& name) : name_(name) { input_.typed = true; }

    void add(const Json& object, std::size_t line)
    {
        if (!object.isObject())
            fail(name_, line, "a row is no JSON object");
        std::vector<Value>& row = input_.rows.emplace_back(input_.columns.size());
        input_.lines.push_back(line);
        object.members([&](const std::string& key, Value value) {
            if (auto* const text = std::get_if<std::string>(&value))
                *text = accept(std::move(*text), {}, name_, line);
            const auto [column, fresh] = columns_.try_emplace(key, input_.columns.size());
            if (fresh) {
                input_.columns.push_back(key);
                row.emplace_back();
            }
            row[column->second] = std::move(value);
        });
    }
    void setSchema(TableSchema schema) { input_.schema = std::move(schema); }

    InputRows take()
    {
        for (std::vector<Value>& row : input_.rows)
            row.resize(input_.columns.size());
        return std::move(input_);
    }

private:
    const std::string& name_;
    InputRows input_;
    std::unordered_map<std::string, std::size_t> columns_;
};

/// A dump of a whole file has, before the rows of each table, a line with its schema.
bool isTableLine(const Json& json) { return json.isObject() && json.contains("kaldb") && json["columns"].isArray(); }

InputRows readJsonLines(std::istream& in, const std::string& name, const InputOptions& options)
{
    ObjectRows rows{name};
    bool wanted = true;
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        std::string fault;
        std::optional<Json> json = Json::tryParse(line, fault);
        if (!json)
            fail(name, number, fault);
        if (isTableLine(*json)) {
            TableSchema schema = schemaFromJson(std::move(*json));
            wanted = schema.table == options.table;
            if (wanted)
                rows.setSchema(std::move(schema));
        } else if (!wanted) {
            continue;
        } else if (json->isArray()) {
            for (const Json& entry : json->takeElements())
                rows.add(entry, number);
        } else {
            rows.add(*json, number);
        }
    }
    return rows.take();
}

InputRows readJsonArray(std::istream& in, const std::string& name, const InputOptions& options)
{
    const std::string text{std::istreambuf_iterator<char>{in}, {}};
    Json array = Json::parse(text, name).take(options.at);
    if (!array.isArray())
        throw Failure{Exit::wrongUse, "input", name, fmt::format("there is no array at '{}'", options.at),
                      "--at /pointer says where it is"};
    ObjectRows rows{name};
    std::size_t number = 0;
    for (const Json& entry : array.takeElements())
        rows.add(entry, ++number);
    return rows.take();
}

}  // namespace

InputRows readInput(std::istream& in, const std::string& name, const InputOptions& options)
{
    InputRows input = [&] {
        switch (options.format) {
        case InputFormat::jsonl: return readJsonLines(in, name, options);
        case InputFormat::json: return readJsonArray(in, name, options);
        case InputFormat::lines: return readLines(in, name, options);
        default: return readDelimited(in, name, options);
        }
    }();
    if (in.bad())
        throw Failure{Exit::unusable, "input", name, "cannot be read", {}};
    return input;
}

void append(InputRows& all, InputRows more, const std::string& name)
{
    std::vector<std::size_t> places;
    for (const std::string& column : more.columns) {
        const auto found = std::find(all.columns.begin(), all.columns.end(), column);
        places.push_back(static_cast<std::size_t>(found - all.columns.begin()));
        if (found == all.columns.end())
            all.columns.push_back(column);
    }
    const bool same = places.size() == all.columns.size();
    if (more.typed != all.typed || (!all.typed && !all.rows.empty() && !same))
        throw Failure{Exit::wrongUse, "input", name, "has other columns than the input before it", {}};
    for (std::vector<Value>& row : all.rows)
        row.resize(all.columns.size());
    for (std::vector<Value>& row : more.rows) {
        std::vector<Value>& placed = all.rows.emplace_back(all.columns.size());
        for (std::size_t i = 0; i < row.size(); ++i)
            placed[places[i]] = std::move(row[i]);
    }
    all.lines.insert(all.lines.end(), more.lines.begin(), more.lines.end());
    if (!all.schema)
        all.schema = std::move(more.schema);
}

InputFormat parseInputFormat(const std::string& name)
{
    constexpr std::array<const char*, 5> names{"csv", "tsv", "jsonl", "json", "lines"};
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
        throw wrongUse(fmt::format("unknown format '{}'", printable(name)), "csv, tsv, jsonl, json or lines");
    return static_cast<InputFormat>(found - names.begin());
}

InputFormat formatOfName(const std::string& name)
{
    const auto ends = [&](const char* ending) { return name.ends_with(ending); };
    if (ends(".tsv") || ends(".tab"))
        return InputFormat::tsv;
    if (ends(".jsonl") || ends(".ndjson"))
        return InputFormat::jsonl;
    return ends(".json") ? InputFormat::json : ends(".txt") ? InputFormat::lines : InputFormat::csv;
}

}  // namespace kaldb::tool
