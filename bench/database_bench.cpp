// What opening and closing a database costs, beside plain copies of its file.
//
//   database_bench --benchmark_repetitions=5
//
// The database lies in TMPDIR, or in the system's directory for temporary files: it needs three times 1 GiB there.

#include <benchmark/benchmark.h>
#include <kaldb/kaldb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

namespace fs = std::filesystem;

void check(bool good, const char* what)
{
    if (good)
        return;
    std::fprintf(stderr, "database_bench: %s failed\n", what);
    std::exit(1);
}

/// A closed database of at least this many bytes, with its backup, in a directory that goes with it. The benchmarks of
/// one size follow each other and share it.
class Repository {
public:
    explicit Repository(std::uint64_t bytes) : bytes_(bytes)
    {
        kalLogSetSink([](std::uint32_t, const char16_t*, void*) {}, nullptr);
        fs::remove_all(directory_);
        fs::create_directories(directory_);
        fs::current_path(directory_);  // where old backups wait
        open(1200U << 20);             // so that no page is written twice
        fill();
        close();
    }
    Repository(const Repository&) = delete;
    Repository& operator=(const Repository&) = delete;
    ~Repository()
    {
        fs::current_path(directory_.parent_path());
        fs::remove_all(directory_);
    }

    static Repository& of(std::uint64_t bytes)
    {
        static std::unique_ptr<Repository> current;
        if (!current || current->bytes_ != bytes) {
            current.reset();
            current = std::make_unique<Repository>(bytes);
        }
        return *current;
    }

    void open(std::uint32_t cacheBytes = 64U << 20)
    {
        std::uint32_t isNew = 0;
        check(kaldbInitialize(file.u16string().c_str(), cacheBytes, &database_, &isNew) == 0, "opening");
    }
    void close() { check(kaldbDeinitialize(database_) == 0, "closing"); }

private:
    /// Each record fills a page. Keys are counters with their bits reversed: they make a balanced tree of pages.
    void fill() const
    {
        const KALDBTableInfo info{u"Pages", 1964, 0, 0, 0};
        check(kaldbTableCreate(database_, &info) == 0, "creating a table");
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byKey;
        KALDBTable* table = nullptr;
        check(kaldbTableOpen(database_, info.name, &callbacks, &table) == 0, "opening a table");
        std::vector<char> record(info.recordSize, 'x');
        for (std::uint32_t i = 0; std::uint64_t{i} * 2048 < bytes_; ++i) {
            const std::uint32_t key = reversed(i);
            std::memcpy(record.data(), &key, sizeof key);
            check(kaldbTableInsertRecord(table, record.data(), 0, nullptr) == 0, "inserting");
        }
        check(kaldbTableClose(table) == 0, "closing a table");
    }

    static std::uint32_t reversed(std::uint32_t bits)
    {
        std::uint32_t result = 0;
        for (int i = 0; i < 32; ++i, bits >>= 1)
            result = result << 1 | (bits & 1);
        return result;
    }

    static std::int32_t byKey(const void* probe, const void* stored)
    {
        std::uint32_t keys[2];
        std::memcpy(&keys[0], probe, sizeof keys[0]);
        std::memcpy(&keys[1], stored, sizeof keys[1]);
        return keys[0] < keys[1] ? -1 : keys[0] > keys[1] ? 1 : 0;
    }

    std::uint64_t bytes_;
    KALDBDatabase* database_ = nullptr;
    fs::path directory_ = fs::temp_directory_path() / "kaldb-database-bench";

public:
    const fs::path file = directory_ / "repository.kaldb";
    const fs::path copy = directory_ / "copy";
};

template <class Work>
double secondsOf(Work&& work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void countBytes(benchmark::State& state, const Repository& repository)
{
    state.counters["fileBytes"] = static_cast<double>(fs::file_size(repository.file));
}

void Open(benchmark::State& state)
{
    Repository& repository = Repository::of(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state) {
        state.SetIterationTime(secondsOf([&] { repository.open(); }));
        repository.close();
    }
    countBytes(state, repository);
}

void Close(benchmark::State& state)
{
    Repository& repository = Repository::of(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state) {
        repository.open();
        state.SetIterationTime(secondsOf([&] { repository.close(); }));
    }
    countBytes(state, repository);
}

/// The support library's copy, synced as a backup is.
void CopyOfTheFile(benchmark::State& state)
{
    const Repository& repository = Repository::of(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state)
        state.SetIterationTime(secondsOf([&] {
            check(kalFileCopyW(repository.file.u16string().c_str(), repository.copy.u16string().c_str()) == 0,
                  "copying");
        }));
    fs::remove(repository.copy);
    countBytes(state, repository);
}

/// As many iterations as are asked for: each opens, closes and copies, whatever of it is timed.
void times(benchmark::internal::Benchmark* bench, std::int64_t bytes, int iterations)
{
    bench->UseManualTime()->Unit(benchmark::kMillisecond)->Arg(bytes)->Iterations(iterations);
}

}  // namespace

#define KALDB_OF_SIZE(bytes, iterations)                                                                               \
    BENCHMARK(Open)->Apply([](auto* bench) { times(bench, bytes, iterations); });                                      \
    BENCHMARK(Close)->Apply([](auto* bench) { times(bench, bytes, iterations); });                                     \
    BENCHMARK(CopyOfTheFile)->Apply([](auto* bench) { times(bench, bytes, iterations); })

KALDB_OF_SIZE(0, 100);
KALDB_OF_SIZE(1 << 30, 3);
