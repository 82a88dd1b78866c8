// What long texts cost that are stored beside the records: stored one after the other, read and deleted in any order.
// Prints a line of JSON, microseconds per text. With two counts it shows whether a text costs more where there are
// more.
//
//   texts_bench --count 100000 --length 300

#include <kaldb/kaldb.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

void check(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(what);
}

struct Text {
    KALDBVarString string;
    char area[16];
};

/// Begins with its number.
std::string textOf(std::uint32_t number, std::size_t length)
{
    std::string text = std::to_string(number) + " ";
    for (char letter = 'a'; text.size() < length; letter = letter == 'z' ? 'a' : static_cast<char>(letter + 1))
        text += letter;
    return text;
}

class Texts {
public:
    Texts(std::uint32_t count, std::size_t length) : length_(length), texts_(count), visits_(count)
    {
        std::iota(visits_.begin(), visits_.end(), 0U);
        std::shuffle(visits_.begin(), visits_.end(), std::mt19937{1});
    }

    nlohmann::ordered_json run()
    {
        time("store", [&](std::uint32_t number) { store(number); });
        std::shuffle(visits_.begin(), visits_.end(), std::mt19937{2});
        time("read", [&](std::uint32_t number) { read(number); });
        time("delete",
             [&](std::uint32_t number) { check(kaldbVarStringDeleteRecord(&texts_[number].string) == 0, "deleting"); });
        return phases_;
    }

private:
    template <class Work>
    void time(const char* name, Work&& work)
    {
        const auto start = std::chrono::steady_clock::now();
        for (const std::uint32_t number : visits_)
            work(number);
        const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
        phases_[name] = taken.count() / static_cast<double>(texts_.size());
    }
    /// Keeps what a record would, and gives back the memory of the text.
    void store(std::uint32_t number)
    {
        const std::string narrow = textOf(number, length_);
        const std::u16string text{narrow.begin(), narrow.end()};
        Text made;
        check(kaldbVarStringCreate(sizeof made.area, &made.string, text.c_str()) == 0, "making");
        check(kaldbVarStringInsertRecord(&made.string) == 0, "storing");
        texts_[number] = made;
        kaldbVarStringDelete(&made.string);
    }
    void read(std::uint32_t number) const
    {
        Text found = texts_[number];
        check(kaldbVarStringGetRecord(&found.string) == 0, "reading");
        check(textOf(number, length_) == kaldbVarStringGetPSZ(&found.string), "another text");
        kaldbVarStringDelete(&found.string);
    }

    const std::size_t length_;
    std::vector<Text> texts_;
    std::vector<std::uint32_t> visits_;
    nlohmann::ordered_json phases_;
};

void run(std::uint32_t count, std::size_t length, std::uint32_t cacheMebibytes)
{
    const fs::path directory = fs::temp_directory_path() / ("kaldb-texts-" + std::to_string(getpid()));
    struct Remover {
        const fs::path& path;
        ~Remover() { fs::remove_all(path); }
    } const remover{directory};
    fs::create_directories(directory);
    fs::current_path(directory);

    kalLogSetSink([](std::uint32_t, const char16_t*, void*) {}, nullptr);
    const fs::path file = directory / "texts.kaldb";
    KALDBDatabase* database = nullptr;
    std::uint32_t isNew = 0;
    check(kaldbInitialize(file.u16string().c_str(), cacheMebibytes << 20, &database, &isNew) == 0, "opening");
    nlohmann::ordered_json line = {{"texts", count}, {"length", length}, {"us", Texts{count, length}.run()}};
    check(kaldbDeinitialize(database) == 0, "closing");
    line["file bytes"] = fs::file_size(file);
    std::puts(line.dump().c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    std::uint32_t count = 100000, cacheMebibytes = 64;
    std::size_t length = 300;
    CLI::App app{"Storing, reading and deleting long texts"};
    app.add_option("--count", count, "Texts")->check(CLI::PositiveNumber);
    app.add_option("--length", length, "Bytes of each")->check(CLI::Range(16, 1 << 20));
    app.add_option("--cache", cacheMebibytes, "MiB")->check(CLI::Range(1, 4095));
    CLI11_PARSE(app, argc, argv);
    try {
        run(count, length, cacheMebibytes);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "texts_bench: %s failed\n", error.what());
        return 1;
    }
}
