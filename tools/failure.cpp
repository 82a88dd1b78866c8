#include "failure.h"

#include <kaldb/cpp/error.hpp>

namespace kaldb::tool {

namespace {

/// The word for a status that the file's surroundings cause; null for any other.
const char* kindOf(std::uint32_t status)
{
    switch (status) {
    case KALDB_ACCESS_DENIED: return "permission";
    case KALDB_NO_SPACE: return "disk-full";
    case KALDB_FILE_NOT_FOUND: return "missing";
    case KALDB_FILE_IN_USE: return "in-use";
    case KALDB_NAME_TOO_LONG: return "name";
    case KALDB_NOT_A_FILE: return "not-a-file";
    case KALDB_IO_ERROR:
    case KALDB_TOO_MANY_FILES: return "system";
    default: return nullptr;
    }
}

}  // namespace

Failure libraryFailure(std::uint32_t status, std::string file, const std::string& what)
{
    const char* const kind = kindOf(status);
    return {kind != nullptr ? Exit::unusable : Exit::internal,
            kind != nullptr ? kind : "library",
            std::move(file),
            kaldb::error{status, what}.what(),
            {}};
}

}  // namespace kaldb::tool
