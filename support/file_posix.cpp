// The operating system's side on POSIX. With copying, which has a file of its own, these are all the system calls of
// the library.
#include "os.h"
#include "posix.h"
#include "utf.h"

#include <ctime>

#include <fcntl.h>
#include <sys/file.h>

namespace kallib::posix {
namespace {

static_assert(sizeof(off_t) == 8, "files pass 4 GiB");

// 0, 1 and 2 stay free for those who expect the standard streams there.
Status moveAboveStandardStreams(Descriptor& file)
{
    if (file.number() > STDERR_FILENO)
        return Status::success;
    const int higher = ::fcntl(file.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (higher < 0)
        return lastError();
    file = Descriptor{higher};
    return Status::success;
}

Status readLink(const std::string& path, std::string& target)
{
    target.resize(256);
    for (;;) {
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0)
            return lastError();
        if (length == 0)
            return Status::fileNotFound;
        if (static_cast<std::size_t>(length) < target.size()) {
            target.resize(static_cast<std::size_t>(length));
            return Status::success;
        }
        target.resize(target.size() * 2);
    }
}

}  // namespace

Status fromErrno(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS: return Status::accessDenied;
    case ENOENT:
    case ENOTDIR: return Status::fileNotFound;
    case EEXIST: return Status::alreadyExists;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return Status::noSpace;
    case ENAMETOOLONG: return Status::nameTooLong;
    case EMFILE:
    case ENFILE: return Status::tooManyFiles;
    case ENOMEM: return Status::outOfMemory;
    case EBUSY:
    case ETXTBSY:
    case EWOULDBLOCK: return Status::fileInUse;
    case EISDIR:
    case ELOOP:
    case ENXIO:
    case ENODEV: return Status::notAFile;
    default: return Status::ioError;
    }
}

Status openDescriptor(const std::string& path, int flags, mode_t mode, Descriptor& file)
{
    const int number = uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); });
    if (number < 0)
        return lastError();
    file = Descriptor{number};
    return moveAboveStandardStreams(file);
}

Status openRegular(const std::string& path, int flags, Descriptor& file)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return Status::notAFile;
    if (Status s = openDescriptor(path, flags | O_NONBLOCK, 0666, file); failed(s))
        return s;
    if (::fstat(file.number(), &status) != 0)
        return lastError();
    return S_ISREG(status.st_mode) ? Status::success : Status::notAFile;
}

Status nativePath(const char16_t* path, std::string& native)
{
    return toUtf8(path, native) ? Status::success : Status::invalidArgument;
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

Status resolveLinks(std::string& path)
{
    for (int links = 0; links < 40; ++links) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0)
            return errno == ENOENT ? Status::success : lastError();
        if (!S_ISLNK(status.st_mode))
            return Status::success;
        std::string target;
        if (Status s = readLink(path, target); failed(s))
            return s;
        path = target.front() == '/' ? target : directoryOf(path).append("/").append(target);
    }
    return fromErrno(ELOOP);
}

Status syncDescriptor(const Descriptor& file)
{
    if (::fsync(file.number()) == 0)
        return Status::success;
    // There is nothing to wait for on a file system that cannot be written or has no such operation.
    return errno == EINVAL || errno == EROFS ? Status::success : lastError();
}

Status syncDirectory(const std::string& directory)
{
    Descriptor file;
    if (Status s = openDescriptor(directory, O_RDONLY | O_DIRECTORY, 0, file); failed(s))
        return s;
    return syncDescriptor(file);
}

Status readAll(int number, std::uint64_t offset, char* buffer, std::size_t wanted, std::size_t& got)
{
    got = 0;
    while (got < wanted) {
        const ssize_t count = uninterrupted(
            [&] { return ::pread(number, buffer + got, wanted - got, static_cast<off_t>(offset + got)); });
        if (count < 0)
            return lastError();
        if (count == 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    return Status::success;
}

Status writeAll(int number, std::uint64_t offset, const char* bytes, std::size_t length)
{
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = uninterrupted(
            [&] { return ::pwrite(number, bytes + done, length - done, static_cast<off_t>(offset + done)); });
        if (count < 0)
            return lastError();
        if (count == 0)
            return Status::ioError;
        done += static_cast<std::size_t>(count);
    }
    return Status::success;
}

}  // namespace kallib::posix

namespace kallib::os {

using namespace posix;

namespace {

Status moveFile(const std::string& from, const std::string& to)
{
    if (::rename(from.c_str(), to.c_str()) == 0)
        return Status::success;
    if (errno != EXDEV)
        return lastError();
    struct stat status {};
    const bool isNew = ::lstat(to.c_str(), &status) != 0;
    if (Status s = replaceByCopy(from, to); failed(s))
        return s;
    if (::unlink(from.c_str()) == 0)
        return Status::success;
    const Status s = lastError();
    // Nobody asked for a second copy; one that took another's place stays.
    if (isNew && ::lstat(from.c_str(), &status) == 0)
        ::unlink(to.c_str());
    return s;
}

Status syncBoth(const std::string& first, const std::string& second)
{
    if (Status s = syncDirectory(first); failed(s) || first == second)
        return s;
    return syncDirectory(second);
}

Status identify(const Descriptor& file, Identity& identity)
{
    struct stat status {};
    if (::fstat(file.number(), &status) != 0)
        return lastError();
    identity = {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
    return Status::success;
}

Status handOver(Descriptor& opened, NativeFile& file, Identity& identity)
{
    if (Status s = identify(opened, identity); failed(s))
        return s;
    file = opened.release();
    return Status::success;
}

}  // namespace

// ---- open files

Status openFile(const char16_t* path, std::uint32_t mode, NativeFile& file)
{
    std::string native;
    if (Status s = nativePath(path, native); failed(s))
        return s;
    const int flags = mode == KAL_FILE_READ ? O_RDONLY : mode == KAL_FILE_READ_WRITE ? O_RDWR : O_RDWR | O_CREAT;
    Descriptor opened;
    if (Status s = openRegular(native, flags, opened); failed(s))
        return s;
    file = opened.release();
    return Status::success;
}

Status closeFile(NativeFile file) { return Descriptor{static_cast<int>(file)}.close(); }

Status readAt(NativeFile file, std::uint64_t offset, void* buffer, std::uint32_t wanted, std::uint32_t& got)
{
    // No file reaches there, and the last byte asked for would have no position.
    if (wanted > maxOffset - offset) {
        got = 0;
        return Status::success;
    }
    std::size_t count = 0;
    const Status status = readAll(static_cast<int>(file), offset, static_cast<char*>(buffer), wanted, count);
    got = static_cast<std::uint32_t>(count);
    return status;
}

Status writeAt(NativeFile file, std::uint64_t offset, const void* buffer, std::uint32_t length)
{
    return writeAll(static_cast<int>(file), offset, static_cast<const char*>(buffer), length);
}

Status fileSize(NativeFile file, std::uint64_t& size)
{
    struct stat status {};
    if (::fstat(static_cast<int>(file), &status) != 0)
        return lastError();
    size = static_cast<std::uint64_t>(status.st_size);
    return Status::success;
}

// ---- files by path

Status copyFile(const char16_t* source, const char16_t* destination)
{
    std::string from;
    std::string to;
    if (Status s = nativePath(source, from); failed(s))
        return s;
    if (Status s = nativePath(destination, to); failed(s))
        return s;
    if (Status s = resolveLinks(to); failed(s))
        return s;
    return replaceByCopy(from, to);
}

Status deleteFile(const char16_t* path)
{
    std::string native;
    if (Status s = nativePath(path, native); failed(s))
        return s;
    return ::unlink(native.c_str()) == 0 ? Status::success : lastError();
}

Status fileExists(const char16_t* path, bool& exists)
{
    std::string native;
    if (Status s = nativePath(path, native); failed(s))
        return s;
    struct stat status {};
    exists = ::stat(native.c_str(), &status) == 0;
    return exists || errno == ENOENT || errno == ENOTDIR ? Status::success : lastError();
}

Status renameFile(const char16_t* oldPath, const char16_t* newPath)
{
    std::string from;
    std::string to;
    if (Status s = nativePath(oldPath, from); failed(s))
        return s;
    if (Status s = nativePath(newPath, to); failed(s))
        return s;
    if (Status s = checkReplaceable(from); failed(s))
        return s;
    if (Status s = checkReplaceable(to); failed(s))
        return s;
    if (Status s = moveFile(from, to); failed(s))
        return s;
    return syncBoth(directoryOf(to), directoryOf(from));
}

Status syncFile(const char16_t* path)
{
    std::string native;
    if (Status s = nativePath(path, native); failed(s))
        return s;
    if (Status s = resolveLinks(native); failed(s))
        return s;
    Descriptor file;
    if (Status s = openRegular(native, O_RDONLY, file); failed(s))
        return s;
    if (Status s = syncDescriptor(file); failed(s))
        return s;
    return syncDirectory(directoryOf(native));
}

// ---- for the owner lock

Status resolveName(const char16_t* path, std::string& name)
{
    if (Status s = nativePath(path, name); failed(s))
        return s;
    return resolveLinks(name);
}

Status openForLock(const std::string& name, NativeFile& file, Identity& identity)
{
    Descriptor opened;
    if (Status s = openRegular(name, O_RDONLY, opened); failed(s))
        return s;
    return handOver(opened, file, identity);
}

Status openDirectoryForLock(const std::string& name, NativeFile& directory, Identity& identity)
{
    Descriptor opened;
    if (Status s = openDescriptor(directoryOf(name), O_RDONLY | O_DIRECTORY, 0, opened); failed(s))
        return s;
    return handOver(opened, directory, identity);
}

Status tryLock(NativeFile file)
{
    const auto lock = [&] { return ::flock(static_cast<int>(file), LOCK_EX | LOCK_NB); };
    return uninterrupted(lock) == 0 ? Status::success : lastError();
}

void unlock(NativeFile file) { ::flock(static_cast<int>(file), LOCK_UN); }

std::int64_t processNumber() { return ::getpid(); }

void sleepMilliseconds(std::uint32_t milliseconds)
{
    timespec pause{};
    pause.tv_sec = milliseconds / 1000;
    pause.tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000;
    ::nanosleep(&pause, nullptr);
}

// ---- standard error

void writeStandardError(const char* bytes, std::size_t length)
{
    while (length != 0) {
        const ssize_t written = uninterrupted([&] { return ::write(STDERR_FILENO, bytes, length); });
        if (written <= 0)
            return;
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
}

}  // namespace kallib::os
