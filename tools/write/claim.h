// Keeps those who use the library away from a database file.
#pragma once

#include <filesystem>
#include <string>

struct KALOwnerLock;

namespace kaldb::tool {

/// A path as the library takes it. Throws a Failure for one that is not UTF-8.
std::u16string libraryName(const std::filesystem::path& path);

/// The lock that whoever opens the database takes too. The kernel gives it back when the process ends.
class Claim {
public:
    Claim() = default;
    /// Of a file that is there, and which failures call `shown`. Throws a Failure when another process owns it.
    Claim(const std::filesystem::path& path, const std::string& shown);
    Claim(Claim&& other) noexcept;
    Claim& operator=(Claim&& other) noexcept;
    ~Claim() { release(); }

    /// Of a name that no file has yet: nobody else can make one for as long as this lives. Throws a Failure when there
    /// is a file, or a backup of one.
    static Claim ofMissing(const std::filesystem::path& path);
    void release();

private:
    KALOwnerLock* lock_ = nullptr;
};

}  // namespace kaldb::tool
