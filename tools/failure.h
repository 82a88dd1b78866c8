// How a verb ends when it cannot do what it was asked.
#pragma once

#include <cstdint>
#include <string>

namespace kaldb::tool {

enum class Exit : int {
    done = 0,      // done; found; sound
    no = 1,        // the answer is no: key not found, damage found
    wrongUse = 2,  // options or input that make no sense
    unusable = 3,  // the file cannot be used
    refused = 4,   // refused to protect data
    internal = 5,  // a call of the library failed, or a fault of this program
};

/// Thrown by verbs; `main` prints it, as text or as JSON, and ends with its exit code.
struct Failure {
    Exit exit = Exit::internal;
    std::string kind;  // one word for programs: "missing", "dirty", "not-a-database", ...
    std::string file;  // the file it is about; may be empty
    std::string what;
    std::string hint;  // what to do; may be empty, may have several lines
};

/// Wrong options or input.
inline Failure wrongUse(std::string what, std::string hint = {})
{
    return {Exit::wrongUse, "usage", {}, std::move(what), std::move(hint)};
}

/// A status of the library that ends what was being done to `file`.
Failure libraryFailure(std::uint32_t status, std::string file, const std::string& what);

}  // namespace kaldb::tool
