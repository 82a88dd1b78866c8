// The C++ wrapper beside the C calls that it stands on. The same work is done in turns on the same table, so that both
// meet the same caches; the counters are nanoseconds of processor time per operation and their ratio.

#include <kaldb/kaldb.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <vector>

namespace {

struct Package {
    char name[24];
    std::uint32_t size;
    char rest[36];
};
using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;

int32_t byName(const void* probe, const void* stored)
{
    return std::strncmp(static_cast<const char*>(probe), static_cast<const char*>(stored), sizeof(Package::name));
}

constexpr std::size_t count = 20000;

/// A table in bulk order, opened through both interfaces, in a cache that holds it whole.
class Tables {
public:
    Tables()
    {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
        db = kaldb::database::open(folder_ / "db", {.cache = 64 << 20});
        packages = Packages::create(db, "Packages");
        for (std::size_t i = 0; i < count; ++i) {
            char name[24];
            std::snprintf(name, sizeof name, "package-%06zu", i);
            records.push_back(Packages::probe(name));
        }
        for (const std::size_t i : kaldb::bulk_order(count, Packages::records_per_page))
            packages.insert(records[i]);
        std::shuffle(records.begin(), records.end(), std::mt19937{1});
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byName;
        kaldbTableOpen(db.native_handle(), u"Packages", &callbacks, &table);
    }
    ~Tables()
    {
        kaldbTableClose(table);
        packages.close();
        db.close();
        std::filesystem::remove_all(folder_);
    }

    KALDBTable* table = nullptr;
    Packages packages;
    std::vector<Package> records;
    kaldb::database db;

private:
    std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "kaldb-wrapper-bench";
};

/// Runs both in turns, the C side first in even rounds.
template <class C, class Wrapper>
void compare(benchmark::State& state, std::size_t operations, C&& c, Wrapper&& wrapper)
{
    double seconds[2] = {};
    const auto timed = [&](int side, auto& work) {
        const std::clock_t start = std::clock();
        benchmark::DoNotOptimize(work());
        seconds[side] += static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    };
    bool odd = false;
    for (auto _ : state) {
        odd ? timed(1, wrapper) : timed(0, c);
        odd ? timed(0, c) : timed(1, wrapper);
        odd = !odd;
    }
    const double total = static_cast<double>(operations) * static_cast<double>(state.iterations());
    state.counters["c_ns"] = seconds[0] / total * 1e9;
    state.counters["wrapper_ns"] = seconds[1] / total * 1e9;
    state.counters["ratio"] = seconds[1] / seconds[0];
}

void find(benchmark::State& state)
{
    Tables t;
    compare(
        state, count,
        [&] {
            std::uint64_t sum = 0;
            for (const Package& key : t.records) {
                Package found;
                sum += kaldbTableQueryPK(t.table, &key, &found, sizeof found) == 0 ? found.size + 1 : 0;
            }
            return sum;
        },
        [&] {
            std::uint64_t sum = 0;
            for (const Package& key : t.records)
                if (const auto found = t.packages.find(key))
                    sum += found->size + 1;
            return sum;
        });
}

void update(benchmark::State& state)
{
    Tables t;
    compare(
        state, count,
        [&] {
            std::uint32_t failures = 0;
            for (Package& record : t.records)
                failures += kaldbTableUpdateRecord(t.table, &record) != 0;
            return failures;
        },
        [&] {
            std::uint32_t failures = 0;
            for (Package& record : t.records)
                failures += !t.packages.update(record);
            return failures;
        });
}

/// Into tables of their own, all made alike.
void insert(benchmark::State& state)
{
    Tables t;
    std::sort(t.records.begin(), t.records.end(), [](auto& a, auto& b) { return byName(&a, &b) < 0; });
    const std::vector<std::size_t> order = kaldb::bulk_order(count, Packages::records_per_page);
    int tables = 0;
    Packages fresh;
    const auto renew = [&] { fresh = Packages::create(t.db, std::to_string(++tables)); };
    compare(
        state, count,
        [&] {
            renew();
            std::uint32_t failures = 0;
            for (const std::size_t i : order)
                failures += kaldbTableInsertRecord(fresh.native_handle(), &t.records[i], 0, nullptr) != 0;
            return failures;
        },
        [&] {
            renew();
            std::uint32_t failures = 0;
            for (const std::size_t i : order)
                failures += !fresh.insert(t.records[i]);
            return failures;
        });
}

void walk(benchmark::State& state)
{
    Tables t;
    compare(
        state, count,
        [&] {
            std::uint64_t sum = 0;
            const Package key{};
            KALEnumerator* walk = nullptr;
            kaldbTableQueryPartialPK(
                t.table, 1, &key, [](const void*, const void*) { return 0; }, &walk);
            do {
                Package record;
                kalEnumeratorGetItem(walk, &record, sizeof record);
                sum += record.size + 1;
            } while (kalEnumeratorMoveNext(walk) == 0);
            kalEnumeratorFree(walk);
            return sum;
        },
        [&] {
            std::uint64_t sum = 0;
            for (const Package& record : t.packages)
                sum += record.size + 1;
            return sum;
        });
}

void walkToOne(benchmark::State& state)
{
    Tables t;
    compare(
        state, count,
        [&] {
            std::uint64_t sum = 0;
            for (const Package& key : t.records) {
                KALEnumerator* walk = nullptr;
                kaldbTableQueryPartialPK(t.table, 1, &key, byName, &walk);
                Package record;
                kalEnumeratorGetItem(walk, &record, sizeof record);
                sum += record.size + 1;
                kalEnumeratorFree(walk);
            }
            return sum;
        },
        [&] {
            std::uint64_t sum = 0;
            for (const Package& key : t.records)
                sum += t.packages.equal<1>(key).begin()->size + 1;
            return sum;
        });
}

BENCHMARK(find)->Unit(benchmark::kMillisecond);
BENCHMARK(update)->Unit(benchmark::kMillisecond);
BENCHMARK(insert)->Unit(benchmark::kMillisecond);
BENCHMARK(walk)->Unit(benchmark::kMillisecond);
BENCHMARK(walkToOne)->Unit(benchmark::kMillisecond);

}  // namespace
