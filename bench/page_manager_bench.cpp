// What the page store costs, beside copies of memory and plain reads and writes of a page that the system has cached.
//
//   page_manager_bench --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
//
// Files lie in TMPDIR, or in the system's directory for temporary files.

#include <benchmark/benchmark.h>
#include <kaldb/page_manager.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint32_t pageSize = 2048;
constexpr uint32_t read = KALDB_LOCK_READ, write = KALDB_LOCK_WRITE;

void check(bool good, const char* what)
{
    if (good)
        return;
    std::fprintf(stderr, "page_manager_bench: %s failed\n", what);
    std::exit(1);
}

/// A page manager with this many slots on a file of its own.
class Store {
public:
    explicit Store(uint32_t slots)
        : file(std::filesystem::temp_directory_path() / ("kaldb-bench-" + std::to_string(++made)))
    {
        remove();
        uint32_t created = 0;
        const uint32_t bytes = (slots - 4) * pageSize;
        check(kalPageManagerInitialize(path.c_str(), bytes, &manager, &created) == 0, "opening");
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store()
    {
        check(kalPageManagerDeinitialize(manager) == 0, "closing");
        remove();
    }

    void create(uint32_t pages)
    {
        for (uint32_t i = 0; i < pages; ++i) {
            uint32_t number = 0;
            void* body = nullptr;
            check(kalPageManagerCreatePage(manager, write, &number, &body) == 0, "creating");
            std::memset(body, static_cast<int>(i), 2020);
            check(kalPageManagerUnloadPage(manager, body) == 0, "unloading");
        }
    }
    void flush() { check(kalPageManagerFlushAllPages(manager) == 0, "flushing"); }
    void visit(uint32_t page, bool change = false)
    {
        void* body = nullptr;
        check(kalPageManagerLoadPage(manager, change ? write : read, page, &body) == 0, "loading");
        if (change)
            kalPageManagerSetPageDirty(manager, body);
        check(kalPageManagerUnloadPage(manager, body) == 0, "unloading");
    }

    KALPageManager* manager = nullptr;

private:
    void remove()
    {
        std::filesystem::remove(file);
        std::filesystem::remove(file.string() + ".backup");
    }

    static inline int made = 0;
    std::filesystem::path file;
    std::u16string path = file.u16string();
};

/// A store whose slots all hold pages, made once for all runs.
Store& fullStore(uint32_t slots)
{
    static std::map<uint32_t, Store> stores;
    const auto [store, isNew] = stores.try_emplace(slots, slots);
    if (isNew)
        store->second.create(slots);
    return store->second;
}

void CopyOnePage(benchmark::State& state)
{
    std::array<char, pageSize> from{}, to;
    benchmark::DoNotOptimize(from.data());
    benchmark::DoNotOptimize(to.data());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), pageSize);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CopyOnePage);

/// A page anywhere in as much memory as the cache has.
void CopyAnyPage(benchmark::State& state)
{
    const auto pages = static_cast<uint32_t>(state.range(0));
    const std::vector<char> memory(std::size_t{pages} * pageSize, 'x');
    std::array<char, pageSize> to;
    benchmark::DoNotOptimize(to.data());
    std::mt19937 random(1);
    for (auto _ : state) {
        std::memcpy(to.data(), memory.data() + std::size_t{random() % pages} * pageSize, pageSize);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CopyAnyPage)->Arg(4)->Arg(512)->Arg(32768)->Arg(262144);

/// A plain file of 1024 pages, read or written at random places.
template <bool writing>
void PlainFile(benchmark::State& state)
{
    const std::string path = (std::filesystem::temp_directory_path() / "kaldb-bench.plain").string();
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    std::array<char, pageSize> page{};
    for (int i = 0; i < 1024; ++i)
        check(::write(file, page.data(), pageSize) == pageSize, "writing");
    std::mt19937 random(1);
    for (auto _ : state) {
        const off_t at = 92 + static_cast<off_t>(random() % 1023) * pageSize;
        const ssize_t done = writing ? pwrite(file, page.data(), pageSize, at) : pread(file, page.data(), pageSize, at);
        check(done == pageSize, "plain transfer");
    }
    close(file);
    unlink(path.c_str());
}
BENCHMARK(PlainFile<false>)->Name("PreadCachedPage");
BENCHMARK(PlainFile<true>)->Name("PwriteCachedPage");

void LoadAndUnloadOnePage(benchmark::State& state)
{
    const auto slots = static_cast<uint32_t>(state.range(0));
    Store& store = fullStore(slots);
    for (auto _ : state)
        store.visit(slots - 1);
}
BENCHMARK(LoadAndUnloadOnePage)->Arg(4)->Arg(512)->Arg(32768)->Arg(262144);

void LoadAndUnloadAnyCachedPage(benchmark::State& state)
{
    const auto slots = static_cast<uint32_t>(state.range(0));
    Store& store = fullStore(slots);
    std::mt19937 random(1);
    for (auto _ : state)
        store.visit(static_cast<uint32_t>(random()) % slots);
}
BENCHMARK(LoadAndUnloadAnyCachedPage)->Arg(4)->Arg(512)->Arg(32768)->Arg(262144);

void CreatePage(benchmark::State& state)
{
    constexpr uint32_t batch = 32768;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Store store(batch);
            state.ResumeTiming();
            store.create(batch);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(CreatePage)->Unit(benchmark::kMillisecond);

/// Every load takes the place of another page, which is clean or has to be written first.
template <bool dirty>
void Evict(benchmark::State& state)
{
    constexpr uint32_t pages = 4096;
    const auto slots = static_cast<uint32_t>(state.range(0));
    Store store(slots);
    store.create(pages);
    store.flush();
    uint32_t next = slots;  // slot 0 takes them all; the pages below stay in the others
    for (auto _ : state) {
        store.visit(next, dirty);
        next = next + 1 < pages ? next + 1 : slots;
    }
}
BENCHMARK(Evict<false>)->Name("LoadEvictingCleanPage")->Arg(4)->Arg(2048);
BENCHMARK(Evict<true>)->Name("LoadEvictingDirtyPage")->Arg(4)->Arg(2048);

void FlushAllPages(benchmark::State& state)
{
    const auto slots = static_cast<uint32_t>(state.range(0));
    Store store(slots);
    store.create(slots);
    store.flush();
    for (auto _ : state) {
        state.PauseTiming();
        for (uint32_t page = 0; page < slots; ++page)
            store.visit(page, true);
        state.ResumeTiming();
        store.flush();
    }
    state.SetItemsProcessed(state.iterations() * slots);
}
BENCHMARK(FlushAllPages)->Arg(512)->Arg(32768)->Unit(benchmark::kMillisecond);

void OpenWithCacheOf4GiB(benchmark::State& state)
{
    for (auto _ : state)
        Store store(2097151 - 4);
}
BENCHMARK(OpenWithCacheOf4GiB)->Unit(benchmark::kMillisecond);

void BackupOf1GiB(benchmark::State& state)
{
    Store store(262145);
    store.create(524288);
    store.flush();
    for (auto _ : state)
        check(kalPageManagerBackupWhileRunning(store.manager) == 0, "backup");
    state.SetBytesProcessed(state.iterations() * 524288 * pageSize);
}
BENCHMARK(BackupOf1GiB)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace
