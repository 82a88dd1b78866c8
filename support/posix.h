// What the POSIX files share: errors, descriptors, paths and waiting for the disk.
#pragma once

#include "status.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace kallib::posix {

Status fromErrno(int error);
inline Status lastError() { return fromErrno(errno); }

/// Makes a call again while a signal interrupts it.
template <class Call>
auto uninterrupted(Call&& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
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
    /// Never repeated: the number may already belong to somebody else.
    Status close() { return ::close(release()) == 0 ? Status::success : lastError(); }

private:
    int number_ = -1;
};

/// Closed in children, and never 0, 1 or 2: those stay free for the standard streams.
Status openDescriptor(const std::string& path, int flags, mode_t mode, Descriptor& file);
/// Opens a regular file and refuses anything else, without waiting for a pipe's other end or waking a device.
Status openRegular(const std::string& path, int flags, Descriptor& file);

Status nativePath(const char16_t* path, std::string& native);
std::string directoryOf(const std::string& path);
/// Follows symbolic links at the end of a path. What they lead to need not exist.
Status resolveLinks(std::string& path);

/// Waits until contents are on disk. Not even an interrupted wait is made again: the second could report success for
/// what the first has lost.
Status syncDescriptor(const Descriptor& file);
Status syncDirectory(const std::string& directory);

Status readAll(int number, std::uint64_t offset, char* buffer, std::size_t wanted, std::size_t& got);
Status writeAll(int number, std::uint64_t offset, const char* bytes, std::size_t length);

/// Success for a name that is free or that a file or link bears, which a rename may replace.
Status checkReplaceable(const std::string& name);
/// Puts a copy of `source` in the place of `destination`: old contents or new ones, both whole, bear that name at
/// every instant.
Status replaceByCopy(const std::string& source, const std::string& destination);

}  // namespace kallib::posix
