// Where log lines go: a sink that keeps errors and warnings, and what a file that was not closed says at its opening.
#include <kaldb/kaldb.hpp>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

int main()
try {
    std::vector<std::string> lines;
    kaldb::log_to([&lines](kaldb::log_level level, std::string_view line) {
        if (level <= kaldb::log_level::warning)
            lines.emplace_back(line);
    });

    kaldb::database original = kaldb::database::open("original.kaldb");
    original.backup();
    std::filesystem::copy_file("original.kaldb", "copy.kaldb");  // in use, so it looks as after a crash; no backup
    original.close();
    std::printf("%zu lines while a database is made and closed\n", lines.size());

    kaldb::database copy = kaldb::database::open("copy.kaldb");
    copy.close();
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
    kaldb::log_to(nullptr);  // `lines` goes away
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
