// The operating system's side on POSIX: every system call of the library is in this file.
#include "os.h"
#include "utf.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kallib::os {
namespace {

static_assert(sizeof(off_t) == 8, "files pass 4 GiB");

// ---- errors and interrupted calls

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

Status lastError() { return fromErrno(errno); }

// Makes a call again while a signal interrupts it.
template <class Call>
auto uninterrupted(Call&& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

// ---- descriptors

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor()
    {
        if (number_ >= 0)
            ::close(number_);
    }

    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }
    // Never repeated: the number may already belong to somebody else.
    Status close() { return ::close(release()) == 0 ? Status::success : lastError(); }

private:
    int number_ = -1;
};

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

Status openDescriptor(const std::string& path, int flags, mode_t mode, Descriptor& file)
{
    const int number = uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); });
    if (number < 0)
        return lastError();
    file = Descriptor{number};
    return moveAboveStandardStreams(file);
}

// Does not wait for the other end of a pipe, and does not wake a device: what is there already is looked at first.
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

// ---- paths

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

Status readLink(const std::string& path, std::string& target)
{
    target.resize(256);
    for (;;) {
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0)
            return lastError();
        if (static_cast<std::size_t>(length) < target.size()) {
            target.resize(static_cast<std::size_t>(length));
            return Status::success;
        }
        target.resize(target.size() * 2);
    }
}

// Follows symbolic links at the end of a path. What they lead to need not exist.
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
        path = target.front() == '/' ? target : directoryOf(path) + '/' + target;
    }
    return fromErrno(ELOOP);
}

// ---- waiting for the disk

// Not even an interrupted wait is made again: the second could report success for what the first has lost.
Status syncDescriptor(int number)
{
    if (::fsync(number) == 0)
        return Status::success;
    // There is nothing to wait for on a file system that cannot be written or has no such operation.
    return errno == EINVAL || errno == EROFS ? Status::success : lastError();
}

Status syncDirectory(const std::string& directory)
{
    Descriptor file;
    if (Status s = openDescriptor(directory, O_RDONLY | O_DIRECTORY, 0, file); failed(s))
        return s;
    return syncDescriptor(file.number());
}

// ---- transfers

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

// ---- copying

// Whether a refused copy_file_range means "not between these two files" rather than a failure of the copy.
bool kernelCannotCopy(int error)
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
           error == ETXTBSY;
}

// Copies what the kernel can copy by itself; `done` tells how far it came.
Status copyInKernel(int from, int to, std::uint64_t& done)
{
    constexpr std::size_t atOnce = std::size_t{1} << 30;
    for (;;) {
        auto in = static_cast<off_t>(done);
        auto out = static_cast<off_t>(done);
        const ssize_t count = uninterrupted([&] { return ::copy_file_range(from, &in, to, &out, atOnce, 0); });
        if (count < 0)
            return kernelCannotCopy(errno) ? Status::success : lastError();
        if (count == 0)
            return Status::success;
        done += static_cast<std::uint64_t>(count);
    }
}

// Some file systems answer copy_file_range with 0 before the end, so the last word is always a read that finds the end.
Status copyContents(int from, int to)
{
    std::uint64_t done = 0;
    if (Status s = copyInKernel(from, to, done); failed(s))
        return s;
    constexpr std::size_t size = std::size_t{1} << 18;
    const auto buffer = std::make_unique_for_overwrite<char[]>(size);
    for (;;) {
        std::size_t got = 0;
        if (Status s = readAll(from, done, buffer.get(), size, got); failed(s) || got == 0)
            return s;
        if (Status s = writeAll(to, done, buffer.get(), got); failed(s))
            return s;
        done += got;
    }
}

// A file under a name of its own beside `neighbour`, removed again unless it takes another name.
class TemporaryFile {
public:
    TemporaryFile() = default;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (!path_.empty())
            ::unlink(path_.c_str());
    }

    Status create(const std::string& neighbour)
    {
        static std::atomic<unsigned> counter{0};
        const std::string directory = directoryOf(neighbour);
        for (;;) {
            char name[64];
            std::snprintf(name, sizeof name, "/.kaltmp-%ld-%u", static_cast<long>(::getpid()), ++counter);
            const std::string path = directory + name;
            const Status s = openDescriptor(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600, file_);
            if (s == Status::alreadyExists)
                continue;
            if (!failed(s))
                path_ = path;
            return s;
        }
    }

    int number() const { return file_.number(); }

    // Closes the file and gives it its final name.
    Status moveTo(const std::string& name)
    {
        if (Status s = file_.close(); failed(s))
            return s;
        if (::rename(path_.c_str(), name.c_str()) != 0)
            return lastError();
        path_.clear();
        return Status::success;
    }

private:
    std::string path_;
    Descriptor file_;
};

Status refuseUnlessReplaceable(const std::string& destination, const struct stat& source)
{
    struct stat status {};
    if (::lstat(destination.c_str(), &status) != 0)
        return errno == ENOENT ? Status::success : lastError();
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        return Status::notAFile;
    // A file with one name that is reached twice: there would be no second copy afterwards.
    const bool same = status.st_dev == source.st_dev && status.st_ino == source.st_ino && status.st_nlink == 1;
    return same ? Status::invalidArgument : Status::success;
}

// Old contents or new ones, both whole, bear the name `destination` at every instant.
Status replaceByCopy(const std::string& source, const std::string& destination)
{
    Descriptor from;
    if (Status s = openRegular(source, O_RDONLY, from); failed(s))
        return s;
    struct stat status {};
    if (::fstat(from.number(), &status) != 0)
        return lastError();
    if (Status s = refuseUnlessReplaceable(destination, status); failed(s))
        return s;
    if (Status s = syncDescriptor(from.number()); failed(s))
        return s;

    TemporaryFile copy;
    if (Status s = copy.create(destination); failed(s))
        return s;
    if (Status s = copyContents(from.number(), copy.number()); failed(s))
        return s;
    if (::fchmod(copy.number(), status.st_mode & 0777) != 0)
        return lastError();
    if (Status s = syncDescriptor(copy.number()); failed(s))
        return s;
    if (Status s = copy.moveTo(destination); failed(s))
        return s;
    return syncDirectory(directoryOf(destination));
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
    struct stat status {};
    if (::lstat(from.c_str(), &status) != 0)
        return lastError();
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        return Status::notAFile;
    if (::rename(from.c_str(), to.c_str()) != 0) {
        if (errno != EXDEV)
            return lastError();
        if (Status s = replaceByCopy(from, to); failed(s))
            return s;
        if (::unlink(from.c_str()) != 0)
            return lastError();
    }
    if (Status s = syncDirectory(directoryOf(to)); failed(s))
        return s;
    return syncDirectory(directoryOf(from));
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
    if (Status s = syncDescriptor(file.number()); failed(s))
        return s;
    return syncDirectory(directoryOf(native));
}

// ---- standard error

void writeStandardError(const char* bytes, std::size_t length)
{
    [[maybe_unused]] const ssize_t written = uninterrupted([&] { return ::write(STDERR_FILENO, bytes, length); });
}

}  // namespace kallib::os
