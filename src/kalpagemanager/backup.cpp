// The backup beside the file, its way back, and the question whether a file was closed cleanly.
//
// An old backup waits under a temporary name in the working directory while the new one is made; it comes back when the
// copy fails and goes when it succeeds.
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <string_view>

using namespace kaldb;

namespace {

constexpr TraceSource here = pageManagerSource(u"kalPageManagerBackup");

/// Not from the support library, whose memory may be short: a backup and its way back need no more than the name.
std::unique_ptr<char16_t[]> backupName(const char16_t* path)
{
    const std::u16string_view database{path};
    const std::u16string_view ending{u".backup"};
    std::unique_ptr<char16_t[]> name{new (std::nothrow) char16_t[database.size() + ending.size() + 1]{}};
    if (name)
        std::ranges::copy(ending, std::ranges::copy(database, name.get()).out);
    return name;
}

/// 16 digits of chance, and a number that this process uses once.
std::string uniqueDigits()
{
    static unsigned used = 0;
    unsigned long long chance = 0;
    try {
        std::random_device device;
        chance = static_cast<unsigned long long>(device()) << 32 | device();
    } catch (...) {
        chance = static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count());
    }
    char digits[16 + 8 + 1];
    std::snprintf(digits, sizeof digits, "%016llx%x", chance, used++);
    return digits;
}

/// A name in the directory that nothing has, as UTF-8; empty when none was found.
std::u8string unusedName(const std::filesystem::path& directory)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::filesystem::path name = directory / ("zorv" + uniqueDigits());
        std::error_code error;
        if (std::filesystem::symlink_status(name, error).type() == std::filesystem::file_type::not_found)
            return name.u8string();
    }
    return {};
}

/// The name as wide text in memory of its own.
Status widen(const char* name, std::uint32_t length, Memory& wide)
{
    const std::uint32_t chars = kalMultiByteToWideChar(name, 0, nullptr, 0);
    std::uint32_t converted = 0;
    if (chars <= length) {  // also not when it failed
        wide = allocateMemory(2 * chars + 2, sourceFile);
        if (!wide)
            return Status::backupFailed;
        converted = kalMultiByteToWideChar(name, length + 1, reinterpret_cast<char16_t*>(wide.get()), chars + 1);
    }
    if (converted == 0 || converted == KAL_CONVERSION_FAILED) {
        verbatim.error(u"Unable to copy wide string to MB string");
        return Status::backupFailed;
    }
    return Status::success;
}

Status temporaryName(Memory& wide)
{
    std::u8string name;
    try {
        std::error_code error;
        const std::filesystem::path directory = std::filesystem::current_path(error);
        if (error) {
            verbatim.warning(u"Unable to get current working directory: %s", error.message().c_str());
            return Status::backupFailed;
        }
        name = unusedName(directory);
    } catch (...) {
        name.clear();
    }
    if (name.empty()) {
        verbatim.error(u"Unable to allocate memory for wide file name");
        return Status::backupFailed;
    }
    return widen(reinterpret_cast<const char*>(name.c_str()), static_cast<std::uint32_t>(name.size()), wide);
}

/// Renames the backup and says under which name it waits; one that cannot wait is deleted, and `aside` is then empty.
Status moveAside(const char16_t* backup, Memory& aside)
{
    Memory name;
    Status s = temporaryName(name);
    if (ok(s))
        s = asStatus(kalFileRename(backup, asName(name)));
    if (ok(s)) {
        aside = std::move(name);
        return s;
    }
    verbatim.error(u"Unable to maintian existing backup, deleting.");
    s = asStatus(kalFileDeleteW(backup));
    if (failed(s))
        verbatim.error(u"Failed to delete existing backup!");
    return s;
}

}  // namespace

// A query that fails counts as an existing backup.
Status KALPageManager::backup(const char16_t* path, const char16_t* shownPath)
{
    const auto name = backupName(path);
    if (!name)
        return Status::outOfMemory;
    Memory aside;
    std::uint32_t exists = 1;
    ignore(asStatus(kalFileExistsW(name.get(), &exists)));
    if (exists == 1)
        if (Status s = moveAside(name.get(), aside); failed(s))
            return s;

    const Status s = asStatus(kalFileCopyW(path, name.get()));
    if (ok(s)) {
        if (aside)
            ignore(asStatus(kalFileDeleteW(asName(aside))));
        here.debug(u"backed-up '%s'", shownPath);
        return s;
    }
    here.error(s, u"could not backup database '%s'", shownPath);
    if (aside && ok(asStatus(kalFileRename(asName(aside), name.get()))))
        verbatim.warning(u"Backup repository will be out of date!");
    return s;
}

Status KALPageManager::backup(const char16_t* path) { return backup(path, path); }

// The backup lies beside the file, wherever the process has gone since.
Status KALPageManager::backupUnlessDamaged() const
{
    if (damaged_)
        return here.error(Status::damaged, u"could not backup database '%s'", location());
    return backup(asName(absolutePath_), location());
}

// The file is complete and marked clean while it is copied.
Status KALPageManager::backupWhileRunning()
{
    constexpr TraceSource running = pageManagerSource(u"kalPageManagerBackupWhileRunning");
    if (damaged_) {
        const Status refused = backupUnlessDamaged();
        return KAL_TRACE(running, refused, u"could not backup database");
    }
    Status s = writeComplete();
    if (ok(s))
        s = markClean();
    if (failed(s))
        KAL_TRACE(running, s, u"could not flush all pages");
    else if (s = backupUnlessDamaged(); failed(s))
        KAL_TRACE(running, s, u"could not backup database");

    const Status marked = markDirty();
    if (failed(marked))
        KAL_TRACE(running, marked, u"could not restore Dirty state");
    keepFirst(s, marked);
    return s;
}

Status KALPageManager::restore(const char16_t* path)
{
    constexpr TraceSource restoring = pageManagerSource(u"kalPageManagerRestore");
    const auto name = backupName(path);
    const Status s = name ? asStatus(kalFileCopyW(name.get(), path)) : Status::outOfMemory;
    if (failed(s))
        return KAL_TRACE(restoring, s, u"could not restore database '%s'", path);
    KAL_TRACE(restoring, u"restored '%s'", path);
    return s;
}

Status KALPageManager::fileIsDirty(const char16_t* path, bool& dirty)
{
    constexpr TraceSource probe = pageManagerSource(u"kalPageManagerFileIsDirty");
    KALFile* file = nullptr;
    if (Status s = asStatus(kalFileOpenW(path, &file, KAL_FILE_READ_WRITE)); failed(s))
        return KAL_TRACE(probe, s, u"could not open '%s'", path);
    KALPageFileHeader header{};
    const Status s = kalPageManagerInitFromFile(file, header);
    if (ok(s))
        dirty = (header.flags & fileDirty) != 0;
    if (Status closed = asStatus(kalFileClose(file)); failed(closed))
        KAL_TRACE(probe, closed, u"could not close file");
    return s;
}

Status KALPageManager::checkHeader(const char16_t* path)
{
    KALFile* file = nullptr;
    if (Status s = asStatus(kalFileOpenW(path, &file, KAL_FILE_READ)); failed(s))
        return s;
    KALPageFileHeader header{};
    const Status s = kalPageManagerInitFromFile(file, header);
    ignore(asStatus(kalFileClose(file)));
    return s;
}
