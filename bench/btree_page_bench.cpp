// Search, insertion and deletion inside one page, beside a binary search over a sorted array of the same items with the
// same compare function. The counters are nanoseconds per item and their ratio.
//
// Arguments: items in the page, bytes in an item, order of filling (0 ascending, 1 random).

#include "kalbtree/btree_view.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

namespace {

using namespace kaldb;
using Key = std::uint64_t;
using Clock = std::chrono::steady_clock;

int32_t byKey(const void* probe, const void* stored)
{
    const Key a = readField<Key>(probe);
    const Key b = readField<Key>(stored);
    return a < b ? -1 : a > b ? 1 : 0;
}

/// So many that no branch predictor learns them by heart.
constexpr std::size_t probeCount = 1 << 15;

struct Items {
    explicit Items(const benchmark::State& state)
        : count(static_cast<std::size_t>(state.range(0))), size(static_cast<std::size_t>(state.range(1))),
          sorted(count * size), filling(count), leaving(count), probes(probeCount)
    {
        for (std::size_t i = 0; i < count; ++i)
            writeField(&sorted[i * size], 0, Key{i});
        std::iota(filling.begin(), filling.end(), std::size_t{0});
        std::iota(leaving.begin(), leaving.end(), std::size_t{0});
        std::mt19937 random{7};
        if (state.range(2) != 0)
            std::shuffle(filling.begin(), filling.end(), random);
        std::shuffle(leaving.begin(), leaving.end(), random);
        for (std::size_t& probe : probes)
            probe = random() % count;
    }
    const std::byte* item(std::size_t rank) const { return &sorted[rank * size]; }

    std::size_t count;
    std::size_t size;
    std::vector<std::byte> sorted;
    std::vector<std::size_t> filling;
    std::vector<std::size_t> leaving;
    std::vector<std::size_t> probes;
};

std::vector<std::byte> emptyPage(const Items& items)
{
    const auto size = static_cast<std::uint32_t>(32 + items.count * (items.size + 10));
    std::vector<std::byte> page(size);
    BTreeView view;
    ignore(BTreeView::format(page.data(), size, static_cast<std::uint32_t>(items.size), view));
    return page;
}

BTreeView viewOf(std::vector<std::byte>& page)
{
    return BTreeView{static_cast<KALBTreePage*>(static_cast<void*>(page.data()))};
}

void fill(BTreeView view, const Items& items)
{
    SlotIndex index = noSlot;
    for (const std::size_t rank : items.filling)
        ignore(view.insert(items.item(rank), byKey, index));
}

const std::byte* binarySearch(const Items& items, const void* key, Compare compare)
{
    std::size_t low = 0;
    for (std::size_t high = items.count; low < high;) {
        const std::size_t middle = (low + high) / 2;
        const std::int32_t order = compare(key, items.item(middle));
        if (order == 0)
            return items.item(middle);
        (order < 0 ? high : low) = order < 0 ? middle : middle + 1;
    }
    return nullptr;
}

double nanosecondsEach(Clock::duration time, std::size_t operations)
{
    return std::chrono::duration<double, std::nano>(time).count() / static_cast<double>(operations);
}

double binarySearchTime(const Items& items)
{
    constexpr std::size_t rounds = 20;
    Compare compare = byKey;
    benchmark::DoNotOptimize(compare);  // a call, as it is for the page
    const Clock::time_point start = Clock::now();
    for (std::size_t round = 0; round < rounds; ++round)
        for (const std::size_t rank : items.probes)
            benchmark::DoNotOptimize(binarySearch(items, items.item(rank), compare));
    return nanosecondsEach(Clock::now() - start, rounds * probeCount);
}

/// Times rounds of so many operations.
template <class Round>
void run(benchmark::State& state, const Items& items, std::size_t operations, Round&& round)
{
    const double reference = binarySearchTime(items);
    const Clock::time_point start = Clock::now();
    for (auto _ : state)
        round();
    const double each =
        nanosecondsEach(Clock::now() - start, static_cast<std::size_t>(state.iterations()) * operations);
    state.counters["each_ns"] = each;
    state.counters["binary_search_ns"] = reference;
    state.counters["ratio"] = each / reference;
}

void search(benchmark::State& state)
{
    const Items items{state};
    std::vector<std::byte> page = emptyPage(items);
    const BTreeView view = viewOf(page);
    fill(view, items);
    run(state, items, probeCount, [&] {
        for (const std::size_t rank : items.probes) {
            std::byte* found = nullptr;
            benchmark::DoNotOptimize(view.search(items.item(rank), byKey, found));
        }
    });
}

void insert(benchmark::State& state)
{
    const Items items{state};
    const std::vector<std::byte> empty = emptyPage(items);
    std::vector<std::byte> page = empty;
    run(state, items, items.count, [&] {
        std::memcpy(page.data(), empty.data(), page.size());
        fill(viewOf(page), items);
        benchmark::ClobberMemory();
    });
}

void remove(benchmark::State& state)
{
    const Items items{state};
    std::vector<std::byte> page = emptyPage(items);
    fill(viewOf(page), items);
    const std::vector<std::byte> full = page;
    run(state, items, items.count, [&] {
        std::memcpy(page.data(), full.data(), page.size());
        SlotIndex index = noSlot;
        for (const std::size_t rank : items.leaving)
            ignore(viewOf(page).remove(items.item(rank), byKey, index));
        benchmark::ClobberMemory();
    });
}

void pages(benchmark::internal::Benchmark* benchmark)
{
    for (const int order : {0, 1})
        for (const auto& [items, size] : {std::pair{15, 120}, {58, 24}, {198, 8}})
            benchmark->Args({items, size, order});
}

BENCHMARK(search)->Apply(pages);
BENCHMARK(insert)->Apply(pages);
BENCHMARK(remove)->Apply(pages);

}  // namespace
