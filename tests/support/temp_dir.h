// A directory that lives as long as a test, and whole files in and out of it. It lies in memory where the system has
// such a place: the library waits for the disk often.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace test {

class TempDir {
public:
    TempDir()
    {
        const bool inMemory = std::getenv("TMPDIR") == nullptr && access("/dev/shm", W_OK) == 0;
        const std::filesystem::path root = inMemory ? "/dev/shm" : std::filesystem::temp_directory_path();
        std::string pattern = (root / "kaldb-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
        path_ = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(std::filesystem::file_size(path)), '\0');
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error("cannot read " + path.string());
    return bytes;
}

inline void writeFile(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
        throw std::runtime_error("cannot write " + path.string());
}

}  // namespace test
