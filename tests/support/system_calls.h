// The system calls by which the support library changes files: recorded, or the death of the process at one of them.
//
// Include it in exactly one source file of a test program: its definitions stand before those of the C library. What is
// recorded can be played on a `Disk`, which tells what a kill or a power cut at any moment leaves behind.
#pragma once

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace calls {

enum class Kind { create, write, rename, unlink, syncFile, syncDirectory };

struct Call {
    Kind kind = Kind::write;
    std::uint64_t file = 0;  // the file itself, whatever its name
    std::uint64_t offset = 0;
    std::string bytes;     // what is written
    std::string name, to;  // of the directory for `syncDirectory`
    std::uint32_t tag = 0;
};

enum class Death { before, halfWay, after };

struct Layer {
    bool recording = false;
    std::vector<Call> log;
    std::uint32_t tag = 0;                         // given to each call
    std::map<std::uint64_t, std::uint64_t> files;  // of each inode, the file that has it now
    std::map<std::uint64_t, std::string> directories;
    std::uint64_t lastFile = 0;
    unsigned dieAt = 0;  // the number of the call that the process dies at; 0: it lives
    Death death = Death::before;
    unsigned count = 0;
};

inline Layer& layer()
{
    static Layer theOne;
    return theOne;
}

inline bool diesHere(Death death) { return layer().dieAt == layer().count && layer().death == death; }
inline void dieIf(bool dying)
{
    if (dying)
        ::kill(::getpid(), SIGKILL);
}

/// Runs a changing call, half of it first where that is when the process dies.
template <class Whole, class Half>
auto change(Whole&& whole, Half&& half)
{
    ++layer().count;
    dieIf(diesHere(Death::before));
    if (diesHere(Death::halfWay))
        half();
    dieIf(diesHere(Death::halfWay));
    const auto result = whole();
    dieIf(diesHere(Death::after));
    return result;
}
template <class Whole>
auto change(Whole&& whole)
{
    return change(whole, [] {});
}

inline void note(Call call)
{
    if (!layer().recording)
        return;
    call.tag = layer().tag;
    layer().log.push_back(std::move(call));
}

inline std::uint64_t inodeOf(int file)
{
    struct stat status {};
    ::fstat(file, &status);
    return status.st_ino;
}
inline std::uint64_t fileOf(int file) { return layer().files[inodeOf(file)]; }

inline std::vector<Call> endRecording()
{
    layer().recording = false;
    return std::move(layer().log);
}

template <class Function>
Function* real(const char* name, Function*)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// File names and contents.
using Image = std::map<std::string, std::string>;

/// From here on calls are recorded; `files` are those that exist.
inline void startRecording(const Image& files)
{
    layer() = {};
    for (const auto& [name, bytes] : files) {
        struct stat status {};
        ::stat(name.c_str(), &status);
        layer().files[status.st_ino] = ++layer().lastFile;  // as a `Disk` of the image numbers them
    }
    layer().recording = true;
}

/// A disk with a cache: what it holds for good, and what a power cut may take.
class Disk {
public:
    explicit Disk(const Image& image)
    {
        for (const auto& [name, bytes] : image) {
            names_[name] = ++last_;
            files_[last_] = {bytes, bytes, {}};
        }
        syncedNames_ = names_;
    }

    void play(const Call& call)
    {
        switch (call.kind) {
        case Kind::create:
            change({directoryOf(call.name), {{call.name, call.file}}});
            files_[call.file] = {};
            break;
        case Kind::write:
            put(files_.at(call.file).now, call.offset, call.bytes);
            files_.at(call.file).pending.push_back(call);
            break;
        case Kind::rename: rename(call.name, call.to); break;
        case Kind::unlink: change({directoryOf(call.name), {{call.name, std::nullopt}}}); break;
        case Kind::syncFile:
            files_.at(call.file).synced = files_.at(call.file).now;
            files_.at(call.file).pending.clear();
            break;
        case Kind::syncDirectory:
            std::erase_if(pending_, [&](const NameChange& change) {
                const bool settled = change.directory == call.name;
                if (settled)
                    apply(change, syncedNames_);
                return settled;
            });
        }
    }

    /// What a killed process leaves; the system lives on and loses nothing.
    Image afterKill() const
    {
        Image image;
        for (const auto& [name, file] : names_)
            image[name] = files_.at(file).now;
        return image;
    }

    static constexpr std::size_t sector = 512;
    /// What a power cut leaves: of all that was not synced, what `keeps` says. It is asked for each change of names
    /// (`sector` 0), and for each sector of each write, with the number of the write or change from 0.
    Image afterPowerCut(const std::function<bool(std::size_t unsynced, std::size_t sector)>& keeps) const
    {
        std::size_t unsynced = 0;
        auto names = syncedNames_;
        for (const NameChange& change : pending_)
            if (keeps(unsynced++, 0))
                apply(change, names);
        std::map<std::uint64_t, std::string> contents;
        for (const auto& [number, file] : files_) {
            std::string& bytes = contents[number] = file.synced;
            for (const Call& write : file.pending) {
                for (std::size_t at = 0; at < write.bytes.size();) {
                    const std::size_t length = std::min(sector - (write.offset + at) % sector, write.bytes.size() - at);
                    if (keeps(unsynced, (write.offset + at) / sector))
                        put(bytes, write.offset + at, write.bytes.substr(at, length));
                    at += length;
                }
                ++unsynced;
            }
        }
        Image image;
        for (const auto& [name, file] : names)
            image[name] = contents.at(file);
        return image;
    }
    std::size_t unsynced() const
    {
        std::size_t count = pending_.size();
        for (const auto& [number, file] : files_)
            count += file.pending.size();
        return count;
    }

private:
    struct File {
        std::string now, synced;
        std::vector<Call> pending;
    };
    using Names = std::map<std::string, std::uint64_t>;
    struct NameChange {
        std::string directory;
        std::vector<std::pair<std::string, std::optional<std::uint64_t>>> entries;
    };

    static std::string directoryOf(const std::string& name) { return std::filesystem::path{name}.parent_path(); }
    static void put(std::string& bytes, std::size_t offset, const std::string& part)
    {
        if (bytes.size() < offset + part.size())
            bytes.resize(offset + part.size());
        bytes.replace(offset, part.size(), part);
    }
    static void apply(const NameChange& change, Names& names)
    {
        for (const auto& [name, file] : change.entries)
            if (file)
                names[name] = *file;
            else
                names.erase(name);
    }
    void change(NameChange change)
    {
        apply(change, names_);
        pending_.push_back(std::move(change));
    }
    /// Between two directories it is two changes, each settled with its own directory.
    void rename(const std::string& from, const std::string& to)
    {
        const std::uint64_t file = names_.at(from);
        if (directoryOf(from) == directoryOf(to))
            return change({directoryOf(to), {{to, file}, {from, std::nullopt}}});
        change({directoryOf(to), {{to, file}}});
        change({directoryOf(from), {{from, std::nullopt}}});
    }

    std::map<std::uint64_t, File> files_;
    Names names_, syncedNames_;
    std::vector<NameChange> pending_;
    std::uint64_t last_ = 0;
};

}  // namespace calls

#define KALDB_REAL_CALL(function, name) calls::real(name, &function)
#define KALDB_SHOWN extern "C" __attribute__((visibility("default")))

KALDB_SHOWN int open(const char* name, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto open = [&] { return KALDB_REAL_CALL(::open, "open64")(name, flags, mode); };
    struct stat status {};
    const bool creates = (flags & O_CREAT) != 0 && ::stat(name, &status) != 0;
    const int file = creates ? calls::change(open) : open();
    if (file >= 0 && (flags & O_DIRECTORY) != 0)
        calls::layer().directories[calls::inodeOf(file)] = name;
    if (file >= 0 && creates && calls::layer().recording) {
        calls::layer().files[calls::inodeOf(file)] = ++calls::layer().lastFile;
        calls::note({calls::Kind::create, calls::layer().lastFile, 0, {}, name, {}});
    }
    return file;
}

KALDB_SHOWN ssize_t pwrite(int file, const void* bytes, std::size_t length, off_t offset)
{
    const auto write = [&](std::size_t count) {
        return KALDB_REAL_CALL(::pwrite, "pwrite64")(file, bytes, count, offset);
    };
    const ssize_t written = calls::change([&] { return write(length); }, [&] { return write(length / 2); });
    if (written > 0)
        calls::note({calls::Kind::write,
                     calls::fileOf(file),
                     static_cast<std::uint64_t>(offset),
                     std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(written)),
                     {},
                     {}});
    return written;
}

/// In pieces of 16 KiB, as some file systems do it, and through the call above.
KALDB_SHOWN ssize_t copy_file_range(int in, off_t* inOffset, int out, off_t* outOffset, std::size_t length, unsigned)
{
    std::string bytes(std::min<std::size_t>(length, 16 << 10), '\0');
    const ssize_t read = ::pread(in, bytes.data(), bytes.size(), *inOffset);
    return read <= 0 ? read : ::pwrite(out, bytes.data(), static_cast<std::size_t>(read), *outOffset);
}

KALDB_SHOWN int rename(const char* from, const char* to) noexcept
{
    const int result = calls::change([&] { return KALDB_REAL_CALL(::rename, "rename")(from, to); });
    if (result == 0)
        calls::note({calls::Kind::rename, 0, 0, {}, from, to});
    return result;
}

KALDB_SHOWN int unlink(const char* name) noexcept
{
    const int result = calls::change([&] { return KALDB_REAL_CALL(::unlink, "unlink")(name); });
    if (result == 0)
        calls::note({calls::Kind::unlink, 0, 0, {}, name, {}});
    return result;
}

KALDB_SHOWN int fsync(int file)
{
    struct stat status {};
    ::fstat(file, &status);
    const int result = calls::change([&] { return KALDB_REAL_CALL(::fsync, "fsync")(file); });
    if (result != 0)
        return result;
    if (S_ISDIR(status.st_mode))
        calls::note({calls::Kind::syncDirectory, 0, 0, {}, calls::layer().directories[status.st_ino], {}});
    else
        calls::note({calls::Kind::syncFile, calls::fileOf(file), 0, {}, {}, {}});
    return result;
}
