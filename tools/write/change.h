// A change to a database file that happens whole or not at all.
//
// The library writes to a copy beside the file. The copy is closed, checked, and then takes the file's name, so a
// change that fails or is killed leaves the file and its backup as they were. The file stays claimed meanwhile:
// nobody's work is overwritten.
//
//     Change change{path, options};      claims the file; nothing is written yet
//     kaldb::database& db = change.begin();
//     ...
//     change.finish();
#pragma once

#include "write/work_file.h"

#include <kaldb/cpp/database.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace kaldb::tool {

class Change {
public:
    struct Options {
        std::string cache;     // page cache, such as "64M"; empty for a fitting size
        bool inPlace = false;  // no copy: a file that is there is changed itself
        bool create = false;   // a missing file is made
    };
    struct Result {
        std::uint64_t pages = 0;
        std::uint64_t bytes = 0;
    };

    /// Throws a Failure for a file that is in use, was not closed cleanly, or must not be changed for another reason.
    Change(const std::string& path, const Options& options);

    bool isNew() const { return isNew_; }
    kaldb::database& begin();
    Result finish();

private:
    bool inPlace() const { return options_.inPlace && !isNew_; }
    void refuseUnfit() const;

    std::string path_;
    std::filesystem::path target_;  // the file itself, where the path is a link
    Options options_;
    bool isNew_;
    std::uint32_t cacheBytes_;
    Claim claim_;
    std::optional<WorkFile> work_;
    kaldb::database database_;  // closed first
};

/// Throws a Failure for a file that was not closed cleanly or is not whole: the library would replace it.
void requireClean(const std::string& path);

}  // namespace kaldb::tool
