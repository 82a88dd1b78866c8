#include "write/claim.h"

#include "failure.h"

#include <fmt/format.h>
#include <kallib/kallib.h>

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <utility>

namespace kaldb::tool {

namespace {

/// "process 1234", as far as the system tells.
std::string holderOf(const std::filesystem::path& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return "another process";
    std::ifstream locks{"/proc/locks"};
    for (std::string line; std::getline(locks, line);) {
        unsigned process = 0, major = 0, minor = 0;
        std::uint64_t number = 0;
        if (std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %u %x:%x:%" SCNu64, &process, &major, &minor, &number) == 4 &&
            number == status.st_ino && major == ::major(status.st_dev) && minor == ::minor(status.st_dev))
            return fmt::format("process {}", process);
    }
    return "another process";
}

KALOwnerLock* acquire(const std::filesystem::path& path, const std::string& shown)
{
    KALOwnerLock* lock = nullptr;
    const std::uint32_t status = kalOwnerLockAcquire(libraryName(path).c_str(), &lock);
    if (status == KAL_FILE_IN_USE)
        throw Failure{Exit::unusable, "in-use", shown, "is in use by " + holderOf(path), {}};
    if (status != KAL_SUCCESS)
        throw libraryFailure(status, shown, "cannot be locked");
    return lock;
}

}  // namespace

std::u16string libraryName(const std::filesystem::path& path)
{
    try {
        return path.u16string();
    } catch (const std::system_error&) {
        throw Failure{Exit::unusable, "name", path.string(), "has a name that is not UTF-8", {}};
    }
}

Claim::Claim(const std::filesystem::path& path, const std::string& shown) : lock_(acquire(path, shown))
{
    if (const std::uint32_t status = kalOwnerLockSettle(lock_); status != KAL_SUCCESS) {
        release();
        throw libraryFailure(status, shown, "cannot be locked");
    }
}

Claim::Claim(Claim&& other) noexcept : lock_(std::exchange(other.lock_, nullptr)) {}

Claim& Claim::operator=(Claim&& other) noexcept
{
    std::swap(lock_, other.lock_);
    return *this;
}

Claim Claim::ofMissing(const std::filesystem::path& path)
{
    Claim claim;
    claim.lock_ = acquire(path, path.string());
    for (const std::string& taken : {path.string(), path.string() + ".backup"})
        if (std::filesystem::exists(std::filesystem::symlink_status(taken)))
            throw Failure{Exit::refused, "exists", taken, "has come into being meanwhile, nothing was changed", {}};
    return claim;
}

void Claim::release()
{
    if (KALOwnerLock* const lock = std::exchange(lock_, nullptr))
        kalOwnerLockRelease(lock);
}

}  // namespace kaldb::tool
