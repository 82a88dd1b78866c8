// The database: one file, open in one process, one at a time in that process.
#pragma once

#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/log.hpp>
#include <kaldb/cpp/text.hpp>
#include <kaldb/database.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace kaldb {

struct open_options {
    std::uint32_t cache = 8 << 20;  ///< bytes of page cache
    bool create = true;             ///< false: a missing file is errc::file_not_found
};

/// Owns the open database.
///
///     kaldb::database db = kaldb::database::open("packages.kaldb");
///     ...
///     db.close();  // the moment at which a full disk is reported
///
/// Everything that was written becomes permanent when the database is closed, or by backup(); a process that ends
/// otherwise comes back to the last of these. Calls must not run concurrently, on tables and texts of it neither.
class database {
public:
    /// Owns nothing.
    database() noexcept = default;
    database(database&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)), open_(std::exchange(other.open_, false)), isNew_(other.isNew_)
    {
        path_.swap(other.path_);
    }
    database& operator=(database&& other) noexcept
    {
        if (this != &other) {
            closeAndLog();
            handle_ = std::exchange(other.handle_, nullptr);
            open_ = std::exchange(other.open_, false);
            isNew_ = other.isNew_;
            path_.swap(other.path_);
        }
        return *this;
    }
    /// Closes; a failure is logged, since nobody can be told, and the next opening tries once more. Call close() to be
    /// told.
    ~database() { closeAndLog(); }

    /// Opens the database, making it when it is missing. A file that was not closed cleanly is replaced by its backup
    /// first. errc::already_open: this process has a database open; errc::file_in_use: another process has this one.
    static database open(const std::filesystem::path& path, const open_options& options = {})
    {
        database opened;
        const std::uint32_t status = opened.start(path, options);
        detail::check(status, "open", path.string(), phraseOf(status));
        return opened;
    }
    static database open(const std::filesystem::path& path, const open_options& options, std::error_code& error)
    {
        database opened;
        detail::report(opened.start(path, options), error);
        return opened;
    }
    static database open(const std::filesystem::path& path, std::error_code& error) { return open(path, {}, error); }

    /// Makes a new database; errc::already_exists when there is a file of this name, or a backup of one.
    static database create(const std::filesystem::path& path, const open_options& options = {})
    {
        database created;
        const bool taken = exists(path);
        const std::uint32_t status = taken ? std::uint32_t{KALDB_ALREADY_EXISTS} : created.start(path, options);
        detail::check(status, "create", path.string(), taken ? "file exists already" : phraseOf(status));
        return created;
    }
    static database create(const std::filesystem::path& path, const open_options& options, std::error_code& error)
    {
        database created;
        detail::report(exists(path) ? std::uint32_t{KALDB_ALREADY_EXISTS} : created.start(path, options), error);
        return created;
    }
    static database create(const std::filesystem::path& path, std::error_code& error)
    {
        return create(path, {}, error);
    }

    /// Writes everything out, closes the file and replaces its backup. On an object that owns nothing it does nothing.
    /// After a failure the object still owns the database, whose tables are to be used no more: make room and close
    /// once more, or give up, and the next open brings the last backup back.
    void close() { detail::check(finish(), "close", path_.string()); }
    void close(std::error_code& error) noexcept { detail::report(finish(), error); }

    /// Brings the file and its backup up to date while it stays open: a crash later comes back to this moment.
    void backup() { detail::check(kaldbBackupDatabaseWhileRunning(handle_), "back up", path_.string()); }
    void backup(std::error_code& error) noexcept { detail::report(kaldbBackupDatabaseWhileRunning(handle_), error); }

    explicit operator bool() const noexcept { return open_; }
    /// Whether the opening made the file.
    bool is_new() const noexcept { return isNew_; }
    const std::filesystem::path& path() const noexcept { return path_; }
    /// For calls of the C interface; null when nothing is open.
    KALDBDatabase* native_handle() const noexcept { return handle_; }

private:
    static std::string_view phraseOf(std::uint32_t status)
    {
        return status == KALDB_ALREADY_EXISTS ? "a database is open already" : std::string_view{};
    }

    static std::filesystem::path backupOf(std::filesystem::path path) { return path += ".backup"; }

    /// What cannot be looked at counts as there: the library will say why.
    static bool exists(const std::filesystem::path& path)
    {
        std::error_code error;
        return std::filesystem::exists(path, error) || error || std::filesystem::exists(backupOf(path), error) || error;
    }

    std::uint32_t start(const std::filesystem::path& path, const open_options& options)
    {
        const std::u8string name = path.u8string();
        std::u16string wide;
        const std::string_view utf8{reinterpret_cast<const char*>(name.data()), name.size()};
        if (const std::uint32_t status = detail::to_utf16(utf8, wide); status != KALDB_SUCCESS)
            return status;
        const bool there = exists(path);
        if (!there && !options.create)
            return KALDB_FILE_NOT_FOUND;
        if (const std::uint32_t status = closeAbandoned(); status != KALDB_SUCCESS)
            return status;
        path_ = path;
        std::uint32_t isNew = 0;
        const detail::quiet_creation quiet{!there};
        const std::uint32_t status = kaldbInitialize(wide.c_str(), options.cache, &handle_, &isNew);
        open_ = status == KALDB_SUCCESS;
        isNew_ = isNew != 0;
        return status;
    }

    std::uint32_t finish() noexcept
    {
        if (!open_)
            return KALDB_SUCCESS;
        const std::uint32_t status = kaldbDeinitialize(handle_);
        if (status == KALDB_LOCK_CONFLICT)  // asked for from inside a callback of the library: nothing has happened
            return status;
        // The handle is gone even when the file could not be written. A second attempt needs none; that it finds
        // nothing of ours to close means that the first had come far enough.
        const bool again = std::exchange(handle_, nullptr) == nullptr;
        const bool gone = status == KALDB_NOT_OPEN || (again && status == KALDB_INVALID_ARGUMENT);
        open_ = status != KALDB_SUCCESS && !gone;
        return again && gone ? std::uint32_t{KALDB_SUCCESS} : status;
    }

    void closeAndLog() noexcept
    {
        if (const std::uint32_t status = finish(); status != KALDB_SUCCESS)
            kalError(u"kaldb: could not close database [0x%02X - %s]\n", status, kalErrorGetString(status));
        abandoned() |= open_ && handle_ == nullptr;
        open_ = false;
    }

    /// Whether a database that could not be closed is still open in the library, and no object owns it any more.
    static bool& abandoned() noexcept
    {
        static bool is = false;
        return is;
    }

    /// Before another one can be opened.
    static std::uint32_t closeAbandoned() noexcept
    {
        database again;
        again.open_ = std::exchange(abandoned(), false);
        return again.finish();  // a second failure is for its destructor to note
    }

    std::filesystem::path path_;
    KALDBDatabase* handle_ = nullptr;
    bool open_ = false;
    bool isNew_ = false;
};

}  // namespace kaldb
