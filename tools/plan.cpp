#include "plan.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace kaldb::tool {

namespace {

constexpr std::uint32_t leastRecordsPerPage = 4;
constexpr std::uint32_t inlineStep = 8;
constexpr std::uint32_t widestInline = 128;
constexpr std::size_t longTextsPerPage = 8;

/// A value as the input wrote it: bytes come in as hex text.
std::string inputText(const Value& value, const Column& column)
{
    const auto* const text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : toText(value, column);
}

/// What all values of one column have in common.
struct ColumnFacts {
    bool boolean = true, integer = true, number = true;
    bool anyNull = false;
    std::size_t filled = 0;
    std::vector<std::size_t> lengths;  // of the texts, sorted

    void see(const Value& value, const Column& column, bool typed)
    {
        const auto* const text = std::get_if<std::string>(&value);
        if (isNull(value) || (!typed && text != nullptr && text->empty())) {
            anyNull = true;
            lengths.push_back(0);
            return;
        }
        ++filled;
        lengths.push_back(inputText(value, column).size());
        if (text != nullptr && typed) {
            boolean = integer = number = false;
        } else if (text != nullptr) {
            bool asBool = false;
            std::int64_t asInteger = 0;
            double asNumber = 0;
            boolean = boolean && parseBool(*text, asBool);
            integer = integer && parseInteger(*text, asInteger);
            number = number && parseNumber(*text, asNumber);
        } else {
            const auto* const whole = std::get_if<std::int64_t>(&value);
            boolean = boolean && std::holds_alternative<bool>(value);
            integer = integer && whole != nullptr;
            number = number && (std::holds_alternative<double>(value) || (whole != nullptr && exact(*whole)));
        }
    }
    ColumnType type() const
    {
        if (filled == 0)
            return ColumnType::text;
        return boolean   ? ColumnType::boolean
               : integer ? ColumnType::integer
               : number  ? ColumnType::number
                         : ColumnType::text;
    }
    std::size_t longest() const { return lengths.empty() ? 0 : *std::max_element(lengths.begin(), lengths.end()); }
    std::size_t longerThan(std::size_t inlineBytes) const
    {
        // A text lies inline when its terminator fits too.
        return static_cast<std::size_t>(lengths.end() - std::lower_bound(lengths.begin(), lengths.end(), inlineBytes));
    }

private:
    /// Whether an integer survives as f64.
    static bool exact(std::int64_t number)
    {
        constexpr std::int64_t limit = std::int64_t{1} << 53;
        return number >= -limit && number <= limit;
    }
};

/// "char(20)", "i64", ... ; the width is 0 when the text leaves it open.
void setType(Column& column, const std::string& text)
{
    const std::size_t open = text.find('(');
    const std::string base = text.substr(0, open);
    constexpr std::array<const char*, 6> names{"bool", "i64", "f64", "char", "text", "bytes"};
    const auto found = std::find(names.begin(), names.end(), base);
    if (found == names.end())
        throw wrongUse(fmt::format("column '{}': unknown type '{}'", printable(column.name), printable(text)),
                       "bool, i64, f64, char(N), text(N), bytes(N)");
    column.type = static_cast<ColumnType>(found - names.begin() + 1);
    if (open == std::string::npos)
        return;
    const char* const first = text.data() + open + 1;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(first, last, column.width);
    if (error != std::errc{} || end + 1 != last || *end != ')' || column.width == 0 || column.width > typedPageSize)
        throw wrongUse(fmt::format("column '{}': no type '{}'", printable(column.name), printable(text)));
}

/// A column that the plan may still give a form: its place in the schema and what is known of it.
struct OpenColumn {
    std::size_t column;
    const ColumnFacts* facts;
};

/// The forms a text may be kept in: a field as wide as the longest, or inline areas of several sizes.
struct TextForm {
    ColumnType type;
    std::uint32_t width;
};

std::vector<TextForm> formsOf(const ColumnFacts& facts)
{
    std::vector<TextForm> forms;
    const auto longest = static_cast<std::uint32_t>(std::max<std::size_t>(1, facts.longest()));
    if (longest <= widestInline)
        forms.push_back({ColumnType::chars, longest});
    for (std::uint32_t width = inlineStep; width <= widestInline; width += inlineStep)
        forms.push_back({ColumnType::text, width});
    return forms;
}

class TextPlan {
public:
    TextPlan(TableSchema& schema, std::vector<OpenColumn> open, std::size_t rows)
        : schema_(schema), open_(std::move(open)), rows_(rows)
    {
        for (const OpenColumn& column : open_)
            forms_.push_back(formsOf(*column.facts));
    }

    /// Changes one column at a time for as long as that helps, from several beginnings, and keeps the best end.
    void run()
    {
        std::vector<std::size_t> best;
        double leastPages = std::numeric_limits<double>::infinity();
        for (std::size_t start = 0; start <= widestInline / inlineStep; ++start) {
            std::vector<std::size_t> chosen;
            for (const auto& forms : forms_)
                chosen.push_back(std::min(start, forms.size() - 1));
            const double pages = improve(chosen);
            if (best.empty() || pages < leastPages) {
                leastPages = pages;
                best = chosen;
            }
        }
        cost(best);
    }

private:
    double improve(std::vector<std::size_t>& chosen)
    {
        double least = cost(chosen);
        for (bool better = true; better;) {
            better = false;
            for (std::size_t i = 0; i < chosen.size(); ++i) {
                std::vector<std::size_t> other = chosen;
                for (other[i] = 0; other[i] < forms_[i].size(); ++other[i]) {
                    if (const double pages = cost(other); pages < least) {
                        least = pages;
                        chosen[i] = other[i];
                        better = true;
                    }
                }
            }
        }
        return least;
    }

    /// Pages that the rows take with these forms, which the schema then has.
    double cost(const std::vector<std::size_t>& chosen)
    {
        std::size_t longTexts = 0;
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            const TextForm form = forms_[i][chosen[i]];
            Column& column = schema_.columns[open_[i].column];
            column.type = form.type;
            column.width = form.width;
            if (form.type == ColumnType::text)
                longTexts += open_[i].facts->longerThan(form.width);
        }
        schema_.place();
        const std::uint32_t perPage = btreeCapacity(usablePageSize, schema_.recordSize);
        if (perPage < leastRecordsPerPage)
            return std::numeric_limits<double>::infinity();
        return static_cast<double>((rows_ + perPage - 1) / perPage) +
               static_cast<double>(longTexts) / static_cast<double>(longTextsPerPage);
    }

    TableSchema& schema_;
    std::vector<OpenColumn> open_;
    std::vector<std::vector<TextForm>> forms_;
    std::size_t rows_;
};

/// Columns by name, with the key's positions and the types that are given.
TableSchema nameColumns(const InputRows& input, const PlanOptions& options)
{
    TableSchema schema;
    schema.table = options.table;
    schema.ids = options.ids;
    for (const std::string& name : input.columns) {
        if (name.empty() || name.size() > longestColumnName || schema.find(name) != nullptr)
            throw wrongUse(fmt::format("column name '{}' is empty, too long or occurs twice", printable(name)));
        schema.columns.emplace_back().name = name;
    }
    const auto require = [&](const std::string& name) -> Column& {
        const Column* const column = schema.find(name);
        if (column == nullptr)
            throw wrongUse(fmt::format("there is no column '{}'", printable(name)));
        return schema.columns[static_cast<std::size_t>(column - schema.columns.data())];
    };
    for (std::size_t i = 0; i < options.key.size(); ++i) {
        Column& column = require(options.key[i]);
        if (column.keyPosition != 0)
            throw wrongUse(fmt::format("column '{}' is in the key twice", printable(column.name)));
        column.keyPosition = static_cast<std::uint32_t>(i + 1);
        column.notNull = true;
    }
    if (options.key.empty())
        throw wrongUse("no key is given", "--key names the column, or columns, that tell the rows apart");
    for (const auto& [name, type] : options.types)
        setType(require(name), type);
    return schema;
}

}  // namespace

TableSchema planTable(const InputRows& input, const PlanOptions& options)
{
    TableSchema schema = nameColumns(input, options);
    std::vector<ColumnFacts> facts(schema.columns.size());
    for (const std::vector<Value>& row : input.rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            facts[i].see(row[i], schema.columns[i], input.typed);

    std::vector<OpenColumn> open;
    for (std::size_t i = 0; i < facts.size(); ++i) {
        Column& column = schema.columns[i];
        std::sort(facts[i].lengths.begin(), facts[i].lengths.end());
        const bool given = options.types.contains(column.name);
        if (!given)
            column.type = facts[i].type();
        const auto longest = static_cast<std::uint32_t>(
            std::clamp<std::size_t>(facts[i].longest(), 1, std::numeric_limits<std::uint32_t>::max()));
        if (column.type == ColumnType::boolean)
            column.width = 1;
        else if (column.type == ColumnType::integer || column.type == ColumnType::number)
            column.width = 8;
        else if (column.keyPosition != 0)
            column.type = column.type == ColumnType::bytes ? ColumnType::bytes : ColumnType::chars;
        else if (!given || (column.type == ColumnType::text && column.width == 0))
            open.push_back({i, &facts[i]});
        if (column.width == 0)
            column.width = column.type == ColumnType::bytes ? std::max(longest / 2, 1U) : longest;
    }
    if (!open.empty())
        TextPlan{schema, std::move(open), input.rows.size()}.run();
    if (schema.keyBytes() > longestKey)
        throw wrongUse(fmt::format("the key takes {} bytes; at most {} are possible", schema.keyBytes(), longestKey));
    schema.place();
    if (btreeCapacity(usablePageSize, schema.recordSize) == 0)
        throw wrongUse(fmt::format("a record would take {} bytes, more than a page has", schema.recordSize));
    return schema;
}

Row convertRow(const InputRows& input, std::size_t number, const TableSchema& schema, const std::string& name)
{
    const auto refuse = [&](std::string what) {
        return Failure{Exit::wrongUse, "input", name, fmt::format("line {}: {}", input.lines[number], what), {}};
    };
    Row row(schema.columns.size());
    for (std::size_t i = 0; i < row.size(); ++i) {
        const Column& column = schema.columns[i];
        const auto from = std::find(input.columns.begin(), input.columns.end(), column.name);
        if (from != input.columns.end()) {
            const Value& value = input.rows[number][static_cast<std::size_t>(from - input.columns.begin())];
            const bool textual = column.type == ColumnType::chars || column.type == ColumnType::text;
            const std::string text = inputText(value, column);
            const bool null = isNull(value) || (text.empty() && !input.typed && !textual);
            try {
                if (!null)
                    row[i] = parseValue(text, column);
            } catch (Failure& failure) {
                throw refuse(failure.what);
            }
        }
        const auto* const text = std::get_if<std::string>(&row[i]);
        if (text != nullptr && ((column.type == ColumnType::chars && text->size() > column.width) ||
                                (column.type == ColumnType::bytes && text->size() != column.width)))
            throw refuse(fmt::format("{} bytes do not fit {} of column '{}'", text->size(), column.typeName(),
                                     printable(column.name)));
        if (isNull(row[i]) && (column.notNull || column.keyPosition != 0))
            throw refuse(fmt::format("column '{}' is empty", printable(column.name)));
    }
    return row;
}

std::size_t countLongTexts(const std::vector<Row>& rows, const TableSchema& schema)
{
    std::size_t count = 0;
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) {
            const auto* const text = std::get_if<std::string>(&row[i]);
            count += schema.columns[i].type == ColumnType::text && text != nullptr &&
                     text->size() >= schema.columns[i].width;
        }
    return count;
}

}  // namespace kaldb::tool
