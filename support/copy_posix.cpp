// Copying on POSIX: a temporary file beside the destination, filled, synced, and renamed over it.
#include "posix.h"

#include <cstddef>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>

namespace kallib::posix {
namespace {

// Whether a refused copy_file_range means "not between these two files" rather than a failure of the copy.
bool kernelCannotCopy(int error)
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
           error == ETXTBSY;
}

// Copies what the kernel can copy by itself, sharing blocks where the file system can; `done` tells how far it came.
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
    const std::unique_ptr<char[]> buffer{new char[size]};
    for (;;) {
        std::size_t got = 0;
        if (Status s = readAll(from, done, buffer.get(), size, got); failed(s) || got == 0)
            return s;
        if (Status s = writeAll(to, done, buffer.get(), got); failed(s))
            return s;
        done += got;
    }
}

// Names for the copies of one destination: short however long its own name is, and the same in every process, so that
// what a killed one has left behind is found again.
std::string temporaryName(const std::string& destination, unsigned attempt)
{
    std::uint64_t hash = 14695981039346656037u;
    for (std::size_t i = destination.rfind('/') + 1; i < destination.size(); ++i)
        hash = (hash ^ static_cast<unsigned char>(destination[i])) * 1099511628211u;
    std::string name = "/.kaltmp-";
    for (unsigned shift = 64; shift != 0; shift -= 4)
        name += "0123456789abcdef"[hash >> (shift - 4) & 15];
    name += {'-', static_cast<char>('0' + attempt / 10), static_cast<char>('0' + attempt % 10)};
    return directoryOf(destination) + name;
}

bool tryLock(const Descriptor& file)
{
    return uninterrupted([&] { return ::flock(file.number(), LOCK_EX | LOCK_NB); }) == 0;
}

bool isStill(const std::string& path, const Descriptor& file)
{
    struct stat named {};
    struct stat opened {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(file.number(), &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// Removes a temporary file of ours whose maker is gone: it keeps its file locked for as long as it lives.
bool removeAbandoned(const std::string& path)
{
    Descriptor file;
    if (failed(openDescriptor(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0, file)))
        return false;
    struct stat status {};
    const bool regular = ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode);
    return regular && tryLock(file) && isStill(path, file) && ::unlink(path.c_str()) == 0;
}

// A file under a name of its own beside the destination, removed again unless it takes the destination's.
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

    Status create(const std::string& destination)
    {
        constexpr unsigned attempts = 100;
        Status status = Status::alreadyExists;
        for (unsigned attempt = 0; attempt < attempts && status == Status::alreadyExists; ++attempt) {
            const std::string path = temporaryName(destination, attempt);
            status = createExclusively(path);
            if (status == Status::alreadyExists && removeAbandoned(path))
                status = createExclusively(path);
        }
        return status;
    }

    const Descriptor& descriptor() const { return file_; }

    // Still locked while it is renamed, so that nobody takes it for abandoned.
    Status moveTo(const std::string& destination)
    {
        if (::rename(path_.c_str(), destination.c_str()) != 0)
            return lastError();
        path_.clear();
        return file_.close();
    }

private:
    // Readable for nobody else until the contents and the source's mode are there.
    Status createExclusively(const std::string& path)
    {
        Descriptor file;
        if (Status s = openDescriptor(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600, file); failed(s))
            return s;
        // Where files cannot be locked, nothing is ever taken for abandoned.
        if (!tryLock(file) && errno == EWOULDBLOCK)
            return Status::alreadyExists;
        if (!isStill(path, file))
            return Status::alreadyExists;
        file_ = std::move(file);
        path_ = path;
        return Status::success;
    }

    std::string path_;
    Descriptor file_;
};

// The copy belongs to whom the original belongs, where that can be had: an administrator who restores a server's file
// must not take it away.
Status takeOwnerAndMode(const Descriptor& copy, const struct stat& source)
{
    [[maybe_unused]] const bool owned = ::geteuid() == 0 && ::fchown(copy.number(), source.st_uid, source.st_gid) == 0;
    return ::fchmod(copy.number(), source.st_mode & 0777) == 0 ? Status::success : lastError();
}

// A file with one name that is reached twice: there would be no second copy afterwards.
bool isSameFile(const std::string& destination, const struct stat& source)
{
    struct stat status {};
    return ::lstat(destination.c_str(), &status) == 0 && status.st_dev == source.st_dev &&
           status.st_ino == source.st_ino && status.st_nlink == 1;
}

}  // namespace

Status checkReplaceable(const std::string& name)
{
    struct stat status {};
    if (::lstat(name.c_str(), &status) != 0)
        return errno == ENOENT ? Status::success : lastError();
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) ? Status::success : Status::notAFile;
}

Status replaceByCopy(const std::string& source, const std::string& destination)
{
    Descriptor from;
    if (Status s = openRegular(source, O_RDONLY, from); failed(s))
        return s;
    struct stat status {};
    if (::fstat(from.number(), &status) != 0)
        return lastError();
    if (isSameFile(destination, status))
        return Status::invalidArgument;
    if (Status s = checkReplaceable(destination); failed(s))
        return s;
    if (Status s = syncDescriptor(from); failed(s))
        return s;

    TemporaryFile copy;
    if (Status s = copy.create(destination); failed(s))
        return s;
    if (Status s = copyContents(from.number(), copy.descriptor().number()); failed(s))
        return s;
    if (Status s = takeOwnerAndMode(copy.descriptor(), status); failed(s))
        return s;
    if (Status s = syncDescriptor(copy.descriptor()); failed(s))
        return s;
    if (Status s = copy.moveTo(destination); failed(s))
        return s;
    return syncDirectory(directoryOf(destination));
}

}  // namespace kallib::posix
