// The order in which to insert many sorted records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace kaldb {

namespace detail {

/// Hands `visit` the numbers from `begin` up to `end`, the middle one first, then the middles of both halves, and so
/// on.
template <class Visit>
void breadth_first(std::size_t begin, std::size_t end, Visit&& visit)
{
    std::deque<std::pair<std::size_t, std::size_t>> ranges{{begin, end}};
    while (!ranges.empty()) {
        const std::pair<std::size_t, std::size_t> range = ranges.front();
        ranges.pop_front();
        if (range.first == range.second)
            continue;
        // The lower middle: the last number has nothing above it or below it then.
        const std::size_t middle = range.first + (range.second - range.first - 1) / 2;
        visit(middle);
        ranges.push_back({range.first, middle});
        ranges.push_back({middle + 1, range.second});
    }
}

/// One page's records: the middle, both ends, then what lies between.
inline void fill_page(std::size_t begin, std::size_t end, std::vector<std::size_t>& order)
{
    const auto put = [&order](std::size_t number) { order.push_back(number); };
    const std::size_t middle = begin + (end - begin - 1) / 2;
    put(middle);
    if (begin < middle)
        put(begin);
    if (middle + 1 < end)
        put(end - 1);
    if (begin < middle)
        breadth_first(begin + 1, middle, put);
    if (middle + 1 < end)
        breadth_first(middle + 1, end - 1, put);
}

}  // namespace detail

/// The order in which to insert `count` sorted records, `per_page` (of 2 and more) to a page, into an empty table:
///
///     std::sort(packages.begin(), packages.end(), byName);
///     for (const std::size_t i : kaldb::bulk_order(packages.size(), Packages::records_per_page))
///         t.insert(packages[i]);
///
/// Pages come out full and their tree balanced: a lookup in a million records, 8 to a page, reads 17 pages at most.
/// Records inserted in the order of their keys leave pages three quarters full, each hanging below the one before, so
/// that a lookup reads half of all pages until the library has put them in order in its memory; random order is hardly
/// better. A smaller `per_page`, such as three quarters of what a page takes, leaves room for records that come later.
inline std::vector<std::size_t> bulk_order(std::size_t count, std::size_t per_page)
{
    std::vector<std::size_t> order;
    order.reserve(count);
    const std::size_t run = std::max<std::size_t>(per_page, 1);
    const std::size_t runs = count / run + (count % run != 0 ? 1 : 0);
    detail::breadth_first(0, runs, [&](std::size_t number) {
        const std::size_t begin = number * run;
        detail::fill_page(begin, begin + std::min(run, count - begin), order);
    });
    return order;
}

}  // namespace kaldb
