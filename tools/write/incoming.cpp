#include "write/incoming.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <numeric>
#include <system_error>

namespace kaldb::tool {

namespace {

constexpr std::size_t listedKeys = 5;

InputRows readOne(const std::string& path, const InputNames& names)
{
    InputOptions options = names.options;
    options.format = names.format.empty() ? formatOfName(path) : parseInputFormat(names.format);
    if (path == "-")
        return readInput(std::cin, "standard input", options);
    errno = 0;
    std::ifstream in{path, std::ios::binary};
    if (!in || std::filesystem::is_directory(path)) {
        const std::string reason = std::generic_category().message(in ? EISDIR : errno);
        throw Failure{Exit::unusable, "input", path, fmt::format("cannot be read: {}", reason), {}};
    }
    return readInput(in, path, options);
}

/// The key's bytes, which have the rows' order.
std::string keyOf(const Row& row, const TableSchema& schema, const std::vector<std::size_t>& columns)
{
    std::string key(schema.keyBytes(), '\0');
    std::span<std::byte> rest = std::as_writable_bytes(std::span{key});
    for (const std::size_t i : columns) {
        const Column& column = schema.columns[i];
        if (!encodeKey(row[i], column, rest.first(column.width)))
            throw wrongUse(fmt::format("'{}' does not fit {} of key column '{}'", printable(toText(row[i], column)),
                                       column.typeName(), printable(column.name)));
        rest = rest.subspan(column.width);
    }
    return key;
}

[[noreturn]] void refuseRepeated(const TableSchema& schema, const std::vector<Row>& rows,
                                 const std::vector<std::pair<std::size_t, std::size_t>>& repeated,
                                 const std::string& name)
{
    std::vector<std::pair<const Row*, std::size_t>> keys;
    for (const auto& [row, count] : repeated)
        keys.emplace_back(&rows[row], count);
    throw Failure{Exit::wrongUse, "duplicate-keys", name,
                  fmt::format("{} key{} more than once ({}), nothing was loaded", grouped(keys.size()),
                              keys.size() == 1 ? " occurs" : "s occur", listKeys(schema, keys)),
                  "--on-duplicate=first keeps the first row of each"};
}

}  // namespace

const std::string& Inputs::nameOf(std::size_t row) const
{
    const auto after = std::find_if(names.begin(), names.end(), [row](const auto& name) { return name.first > row; });
    return std::prev(after)->second;
}

Inputs readInputs(const InputNames& names)
{
    Inputs inputs;
    for (const std::string& path : names.paths) {
        inputs.names.emplace_back(inputs.rows.rows.size(), path == "-" ? "standard input" : path);
        InputRows rows = readOne(path, names);
        if (inputs.names.size() == 1)
            inputs.rows = std::move(rows);
        else
            append(inputs.rows, std::move(rows), path);
    }
    return inputs;
}

OnDuplicate parseOnDuplicate(const std::string& name)
{
    if (name == "error")
        return OnDuplicate::refuse;
    if (name != "first" && name != "last")
        throw wrongUse(fmt::format("'{}' is nothing to do with repeated keys", printable(name)),
                       "--on-duplicate=error, first or last");
    return name == "first" ? OnDuplicate::first : OnDuplicate::last;
}

Incoming convertRows(Inputs inputs, const TableSchema& schema, OnDuplicate onDuplicate)
{
    for (const std::string& column : inputs.rows.columns)
        if (schema.find(column) == nullptr)
            throw Failure{Exit::wrongUse,
                          "input",
                          inputs.names.front().second,
                          fmt::format("table '{}' has no column '{}'", printable(schema.table), printable(column)),
                          {}};
    const std::vector<std::size_t> keyColumns = schema.keyColumns();
    const std::size_t count = inputs.rows.rows.size();
    std::vector<Row> rows(count);
    std::vector<std::string> keys(count);
    for (std::size_t i = 0; i < count; ++i) {
        rows[i] = convertRow(inputs.rows, i, schema, inputs.nameOf(i));
        keys[i] = keyOf(rows[i], schema, keyColumns);
        inputs.rows.rows[i] = {};
    }

    std::vector<std::size_t> order(count);
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    Incoming incoming;
    std::vector<std::pair<std::size_t, std::size_t>> repeated;
    for (auto at = order.begin(); at != order.end();) {
        const auto end = std::find_if(at, order.end(), [&](std::size_t i) { return keys[i] != keys[*at]; });
        if (end - at > 1)
            repeated.emplace_back(*at, end - at);
        incoming.from.push_back(onDuplicate == OnDuplicate::last ? *std::prev(end) : *at);
        at = end;
    }
    if (onDuplicate == OnDuplicate::refuse && !repeated.empty())
        refuseRepeated(schema, rows, repeated, inputs.names.front().second);
    for (const std::size_t i : incoming.from) {
        incoming.rows.push_back(std::move(rows[i]));
        incoming.keys.push_back(std::move(keys[i]));
    }
    incoming.skipped = count - incoming.rows.size();
    return incoming;
}

std::string listKeys(const TableSchema& schema, std::vector<std::pair<const Row*, std::size_t>> keys)
{
    std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string list;
    for (std::size_t k = 0; k < std::min(keys.size(), listedKeys); ++k) {
        list += k == 0 ? "" : ", ";
        bool first = true;
        for (const std::size_t i : schema.keyColumns()) {
            list += std::exchange(first, false) ? "" : " ";
            list += printable(toText((*keys[k].first)[i], schema.columns[i]));
        }
        if (keys[k].second > 1)
            list += fmt::format(" ×{}", keys[k].second);
    }
    return keys.size() > listedKeys ? list + ", ..." : list;
}

}  // namespace kaldb::tool
