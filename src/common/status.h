// The status of an operation inside the library. Holds any code: our own, the support library's, a callback's.
#pragma once

#include <kaldb/status.h>

#include <cstdint>

namespace kaldb {

enum class [[nodiscard]] Status : std::uint32_t{
    success = KALDB_SUCCESS,
    failure = KALDB_FAILURE,
    backupFailed = KALDB_BACKUP_FAILED,
    notOpen = KALDB_NOT_OPEN,
    invalidArgument = KALDB_INVALID_ARGUMENT,
    accessDenied = KALDB_ACCESS_DENIED,
    notApplicable = KALDB_NOT_APPLICABLE,
    outOfMemory = KALDB_OUT_OF_MEMORY,
    shortRead = KALDB_SHORT_READ,
    ioError = KALDB_IO_ERROR,
    noSpace = KALDB_NO_SPACE,
    emptyPage = KALDB_EMPTY_PAGE,
    full = KALDB_FULL,
    fileNotFound = KALDB_FILE_NOT_FOUND,
    endOfEnumeration = KALDB_END_OF_ENUMERATION,
    endOfFile = KALDB_END_OF_FILE,
    notFound = KALDB_NOT_FOUND,
    alreadyExists = KALDB_ALREADY_EXISTS,
    lockConflict = KALDB_LOCK_CONFLICT,
    bufferTooSmall = KALDB_BUFFER_TOO_SMALL,
    notSupported = KALDB_NOT_SUPPORTED,
    fileInUse = KALDB_FILE_IN_USE,
    nameTooLong = KALDB_NAME_TOO_LONG,
    notAFile = KALDB_NOT_A_FILE,
    conversionFailed = KALDB_CONVERSION_FAILED,
    tooManyFiles = KALDB_TOO_MANY_FILES,
    damaged = KALDB_DAMAGED,
    noFreeSlot = KALDB_NO_FREE_SLOT,
};

constexpr bool ok(Status status) { return status == Status::success; }
constexpr bool failed(Status status) { return status != Status::success; }

/// The number that crosses the library's border.
constexpr std::uint32_t code(Status status) { return static_cast<std::uint32_t>(status); }
/// A number that came from the support library or a callback.
constexpr Status asStatus(std::uint32_t code) { return static_cast<Status>(code); }

/// Where all steps must run: the first failure is the result.
constexpr void keepFirst(Status& kept, Status next)
{
    if (ok(kept))
        kept = next;
}

/// Where all steps must run: the last failure is the result.
constexpr void keepLast(Status& kept, Status next)
{
    if (failed(next))
        kept = next;
}

/// A failure that has been traced and changes nothing.
constexpr void ignore(Status) {}

}  // namespace kaldb
