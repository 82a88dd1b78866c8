// The border to the operating system: what the rest of the library asks of it. One source file per system stands
// behind it. Paths are NUL-terminated UTF-16; one that is ill-formed is an invalid argument. Every transfer is
// complete or failed: interrupted calls are made again, short ones continued.
#pragma once

#include "status.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kallib::os {

/// An open file as the system numbers it.
using NativeFile = std::intptr_t;
inline constexpr NativeFile noFile = -1;

/// A position beyond this is never valid.
inline constexpr std::uint64_t maxOffset = INT64_MAX;

/// Opens a regular file; anything else is refused with `notAFile`. `mode` is one of KAL_FILE_READ and its like.
Status openFile(const char16_t* path, std::uint32_t mode, NativeFile& file);
/// The file is closed afterwards, whatever comes back.
Status closeFile(NativeFile file);
/// Reads until `wanted` bytes or the end of the file.
Status readAt(NativeFile file, std::uint64_t offset, void* buffer, std::uint32_t wanted, std::uint32_t& got);
Status writeAt(NativeFile file, std::uint64_t offset, const void* buffer, std::uint32_t length);
Status fileSize(NativeFile file, std::uint64_t& size);

/// Replaces `destination` by a copy of `source`, whole or not at all, and waits until it is on disk.
Status copyFile(const char16_t* source, const char16_t* destination);
Status deleteFile(const char16_t* path);
Status fileExists(const char16_t* path, bool& exists);
/// Also across file systems.
Status renameFile(const char16_t* oldPath, const char16_t* newPath);
/// Waits until the file's contents and its name are on disk.
Status syncFile(const char16_t* path);

// ---- for the owner lock

/// What tells a file or directory from all others, by whatever name it was reached.
struct Identity {
    std::uint64_t device = 0;
    std::uint64_t file = 0;
    bool operator==(const Identity&) const = default;
};

/// The name, as the system spells it, to which the links at the end of a path lead; nothing need be there yet.
Status resolveName(const char16_t* path, std::string& name);
/// For locking only. A missing file is `fileNotFound`, anything but a regular one `notAFile`.
Status openForLock(const std::string& name, NativeFile& file, Identity& identity);
/// The directory that the name is in.
Status openDirectoryForLock(const std::string& name, NativeFile& directory, Identity& identity);
/// Locks an open file or directory until it is closed or the process ends; `fileInUse` when it has been opened and
/// locked before, here or in another process.
Status tryLock(NativeFile file);
/// Ends the lock, also in children that have inherited the open file.
void unlock(NativeFile file);
void sleepMilliseconds(std::uint32_t milliseconds);
/// Tells a process from its parent.
std::int64_t processNumber();

// ---- standard error

/// Writes the bytes at once; nothing can be done about a failure.
void writeStandardError(const char* bytes, std::size_t length);

}  // namespace kallib::os
