// The status of a step inside the support library, and the border that no exception crosses.
#pragma once

#include <kallib/kallib.h>

#include <cstdint>
#include <new>

namespace kallib {

enum class [[nodiscard]] Status : std::uint32_t{
    success = KAL_SUCCESS,
    failure = KAL_FAILURE,
    invalidArgument = KAL_INVALID_ARGUMENT,
    accessDenied = KAL_ACCESS_DENIED,
    outOfMemory = KAL_OUT_OF_MEMORY,
    ioError = KAL_IO_ERROR,
    noSpace = KAL_NO_SPACE,
    fileNotFound = KAL_FILE_NOT_FOUND,
    alreadyExists = KAL_ALREADY_EXISTS,
    notSupported = KAL_NOT_SUPPORTED,
    fileInUse = KAL_FILE_IN_USE,
    nameTooLong = KAL_NAME_TOO_LONG,
    notAFile = KAL_NOT_A_FILE,
    tooManyFiles = KAL_TOO_MANY_FILES,
};

constexpr bool failed(Status status) { return status != Status::success; }

/// Runs an exported operation. What a container or a callback throws becomes a status.
template <class Operation>
std::uint32_t guarded(Operation&& operation) noexcept
{
    try {
        return static_cast<std::uint32_t>(operation());
    } catch (const std::bad_alloc&) {
        return KAL_OUT_OF_MEMORY;
    } catch (...) {
        return KAL_FAILURE;
    }
}

}  // namespace kallib
