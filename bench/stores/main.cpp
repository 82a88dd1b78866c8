// The same work on one of several stores: loads it, reads, changes and deletes, closes and opens it again, and checks
// all that comes back. Prints a line of JSON: microseconds of time and of processor time per operation for each phase
// (a scan counts its records, a scan of a prefix is one operation), and the sizes of the files and of the process.
//
//   stores_bench kaldb --count 10000 --order random
//
// The files lie in a directory of their own in TMPDIR, which should not wait for a disk.
#include "workload.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

namespace fs = std::filesystem;

/// Expects records from a first number on, each so far from the one before.
class Expected final : public Sink {
public:
    Expected(const Workload& work, const Store& store, std::uint32_t first, std::uint32_t step, std::uint32_t updates)
        : work_(work), store_(store), next_(first), step_(step), updates_(updates)
    {
    }
    void take(const View& record) override
    {
        check(next_ < work_.places.size() && same(record, work_.record(store_, next_, updates_)), "wrong record");
        next_ += step_;
        ++taken_;
    }
    void finish(std::size_t count) const { check(taken_ == count, "wrong number of records"); }

private:
    const Workload& work_;
    const Store& store_;
    std::uint32_t next_;
    const std::uint32_t step_;
    const std::uint32_t updates_;
    std::size_t taken_ = 0;
};

class Run {
public:
    Run(Store& store, const Workload& work) : store_(store), work_(work) {}

    nlohmann::ordered_json all()
    {
        store_.open();
        load();
        read();
        change();
        closeAndReopen();
        plainMemory();
        return std::move(phases_);
    }

private:
    template <class Work>
    double time(const char* name, std::size_t operations, Work&& work)
    {
        const std::clock_t cpuStart = std::clock();
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
        const double cpu = static_cast<double>(std::clock() - cpuStart) * 1e6 / CLOCKS_PER_SEC;
        const auto each = static_cast<double>(operations);
        phases_[name] = {{"us", taken.count() / each}, {"cpu", cpu / each}};
        return taken.count();
    }
    template <class Work>
    void phase(const char* name, bool writing, std::size_t operations, Work&& work)
    {
        time(name, operations, [&] {
            store_.begin(writing);
            work();
            store_.end();
        });
    }
    template <class Work>
    void phase(const char* name, bool writing, const std::vector<std::uint32_t>& numbers, Work&& work)
    {
        phase(name, writing, numbers.size(), [&] {
            for (const std::uint32_t number : numbers)
                work(number);
        });
    }
    Record record(std::uint32_t number, std::uint32_t updates = 0) const
    {
        return work_.record(store_, number, updates);
    }

    void load()
    {
        phase("load", true, work_.loading, [&](std::uint32_t number) {
            Record r = record(number);
            check(store_.insert(r), "not inserted");
        });
    }

    void read()
    {
        View found{};
        phase("key", false, work_.visits, [&](std::uint32_t number) {
            const Record r = record(number);
            check(store_.find(r.key, found) && same(found, r), "wrong record by key");
        });
        phase("identifier", false, work_.visits, [&](std::uint32_t number) {
            const Record r = record(number);
            check(store_.findId(r.id, found) && same(found, r), "wrong record by identifier");
        });
        phase("missing key", false, work_.visits, [&](std::uint32_t number) {
            char key[sizeof(Record::key)];
            makeMissingKey(number, key);
            check(!store_.find(key, found), "found what is not there");
        });
        phase("scan", false, work_.places.size(), [&] { scanAll(1, 0); });
        phase("scan of 100", false, work_.groups, [&](std::uint32_t group) {
            char prefix[prefixSize];
            putBigEndian(group, prefix);
            Expected expected{work_, store_, group * groupSize, 1, 0};
            store_.scanPrefix({prefix, sizeof prefix}, expected);
            expected.finish(groupSize);
        });
    }

    /// Every so many-th record, updated so many times.
    void scanAll(std::uint32_t step, std::uint32_t updates)
    {
        Expected expected{work_, store_, 0, step, updates};
        store_.scan(expected);
        expected.finish((work_.places.size() + step - 1) / step);
    }
    void verify(std::uint32_t step)
    {
        store_.begin(false);
        scanAll(step, 1);
        View found{};
        for (std::uint32_t number = 0; number < work_.places.size(); ++number) {
            const Record r = record(number, 1);
            const bool there = store_.findId(r.id, found);
            check(there == (number % step == 0) && (!there || same(found, r)), "wrong record by identifier");
        }
        store_.end();
    }

    void change()
    {
        phase("update", true, work_.visits,
              [&](std::uint32_t number) { check(store_.update(record(number, 1)), "not updated"); });
        verify(1);
        std::vector<std::uint32_t> half = work_.visits;
        std::erase_if(half, [](std::uint32_t number) { return number % 2 == 0; });
        phase("delete", true, half, [&](std::uint32_t number) {
            char key[sizeof(Record::key)];
            makeKey(number, key);
            check(store_.erase(key), "not deleted");
        });
        verify(2);
    }

    void closeAndReopen()
    {
        const double taken = time("close", 1, [&] { store_.close(); });
        if (const double copying = store_.backupSeconds() * 1e6; copying > 0) {
            phases_["close, backup"] = phases_["close"];
            phases_["close"]["us"] = taken - copying;
            phases_["close"]["cpu"] = nullptr;  // the copy's part of it is not known
        }
        time("reopen", 1, [&] { store_.open(); });
        verify(2);
        store_.close();
    }

    /// A scan of some records in plain memory: what making and comparing one takes in the phases of all stores.
    void plainMemory()
    {
        std::vector<Record> records;
        for (std::uint32_t number = 0; number < std::min<std::size_t>(work_.places.size(), 4096); ++number)
            records.push_back(record(number));
        Expected expected{work_, store_, 0, 1, 0};
        Sink& sink = expected;
        time("plain memory", records.size(), [&] {
            for (const Record& r : records)
                sink.take(View::of(&r));
        });
        expected.finish(records.size());
    }

    Store& store_;
    const Workload& work_;
    nlohmann::ordered_json phases_;
};

/// Bytes that the directory's files take, but for backups: holes count nothing.
std::uintmax_t bytesIn(const fs::path& directory)
{
    std::uintmax_t sum = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        struct ::stat status {};
        if (entry.path().extension() != ".backup" && stat(entry.path().c_str(), &status) == 0 &&
            S_ISREG(status.st_mode))
            sum += static_cast<std::uintmax_t>(std::min<off_t>(status.st_size, status.st_blocks * 512));
    }
    return sum;
}

/// The largest size in memory that the process had, in bytes.
std::uint64_t peakMemory()
{
    std::ifstream status{"/proc/self/status"};
    for (std::string word; status >> word;)
        if (std::uint64_t kibibytes = 0; word == "VmHWM:" && status >> kibibytes)
            return kibibytes * 1024;
    throw std::runtime_error("no peak memory");
}

struct Arguments {
    std::string store;
    std::string order = "random";
    std::uint32_t count = 10000;
    std::uint32_t seed = 1;
    std::uint32_t cacheMebibytes = 64;
};

void run(const Arguments& arguments)
{
    const fs::path directory = fs::temp_directory_path() / ("kaldb-stores-" + std::to_string(getpid()));
    struct Remover {
        const fs::path& path;
        ~Remover() { fs::remove_all(path); }
    } const remover{directory};
    fs::create_directories(directory);
    fs::current_path(directory);  // where old backups wait

    const Workload work{arguments.count, arguments.order == "ordered", arguments.seed};
    const std::uint64_t memoryBefore = peakMemory();
    const Kind& kind = kinds().at(arguments.store);
    const std::unique_ptr<Store> store = kind.make({directory, arguments.cacheMebibytes << 20});
    nlohmann::ordered_json phases = Run{*store, work}.all();
    const nlohmann::ordered_json line = {{"store", arguments.store},   {"version", kind.version},
                                         {"order", arguments.order},   {"count", arguments.count},
                                         {"seed", arguments.seed},     {"cache", arguments.cacheMebibytes},
                                         {"phases", phases},           {"file bytes", bytesIn(directory)},
                                         {"peak bytes", peakMemory()}, {"bytes before", memoryBefore}};
    std::puts(line.dump().c_str());
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv)
{
    std::vector<std::string> names;
    for (const auto& [name, kind] : bench::kinds())
        names.push_back(name);
    bench::Arguments arguments;
    bool list = false;
    CLI::App app{"The same work on one of several stores"};
    app.add_flag("--list", list, "Print the names of the stores");
    app.add_option("store", arguments.store)->check(CLI::IsMember(names));
    app.add_option("--order", arguments.order)->check(CLI::IsMember({"ordered", "random"}));
    app.add_option("--count", arguments.count, "Records")->check(CLI::Range(2 * bench::groupSize, 1U << 30));
    app.add_option("--cache", arguments.cacheMebibytes, "MiB")->check(CLI::Range(1, 4095));
    app.add_option("--seed", arguments.seed);
    CLI11_PARSE(app, argc, argv);
    try {
        if (list || arguments.store.empty())
            for (const std::string& name : names)
                std::puts(name.c_str());
        else
            bench::run(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "stores_bench: %s: %s\n", arguments.store.c_str(), error.what());
        return 1;
    }
}
