#include "write/change.h"

#include "failure.h"
#include "page_file.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <unistd.h>

namespace kaldb::tool {

namespace {

constexpr std::uint32_t defaultCache = 64U << 20;

std::uint32_t parseCache(const std::string& text)
{
    if (text.empty())
        return defaultCache;
    std::uint64_t bytes = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, bytes);
    const std::string unit{end, last};
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max() / 2;
    const int shift = unit.empty() ? 0 : unit == "k" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : -1;
    if (error != std::errc{} || shift < 0 || bytes > most >> shift)
        throw wrongUse(fmt::format("'{}' is no size of a cache", printable(text)), "such as 8M, at most 1G");
    return static_cast<std::uint32_t>(bytes << shift);
}

bool isThere(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::exists(path, error) || error;
}

std::string restoreHint(const std::string& path)
{
    std::error_code error;
    const auto written = std::filesystem::last_write_time(path + ".backup", error);
    if (error)
        return fmt::format("there is no backup of it; kaldb dump --dirty {} shows what can be read", path);
    const auto age = std::filesystem::file_time_type::clock::now() - written;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(age).count();
    return fmt::format("opening it would replace it by its backup of {} ago; kaldb restore {} does so and keeps it too",
                       duration(std::max<std::int64_t>(0, seconds)), path);
}

}  // namespace

void requireClean(const std::string& path)
{
    const PageFile file{path};
    if (file.dirty())
        throw Failure{Exit::refused, "dirty", path, "was not closed cleanly (dirty flag set), not opened",
                      restoreHint(path)};
    if (file.heldPages() != file.header().pagesInFile)
        throw Failure{Exit::no, "damaged", path,
                      fmt::format("is damaged: it holds {} pages, its header counts {}", grouped(file.heldPages()),
                                  grouped(file.header().pagesInFile)),
                      restoreHint(path)};
}

Change::Change(const std::string& path, const Options& options)
    : path_(path), target_(path), options_(options), isNew_(options.create && !isThere(path)),
      cacheBytes_(parseCache(options.cache))
{
    if (isNew_) {
        if (isThere(path + ".backup"))
            throw Failure{Exit::refused, "stray-backup", path, "is missing, but there is a backup of it",
                          fmt::format("kaldb restore {} brings it back; or move {}.backup away", path, path)};
    } else {
        refuseUnfit();
        target_ = std::filesystem::canonical(path);
        claim_ = Claim{target_, path};
        // Looked at only now that nobody else can be writing to it.
        requireClean(path);
    }
    if (!inPlace())
        work_.emplace(target_, path);
}

void Change::refuseUnfit() const
{
    const PageFile readable{path_};
    if (::access(path_.c_str(), W_OK) != 0)
        throw Failure{Exit::unusable, "permission", path_, "no permission to write to it", {}};
}

kaldb::database& Change::begin()
{
    if (inPlace()) {
        claim_.release();  // the library takes it
    } else if (!isNew_) {
        work_->copyFrom(target_);
    }
    database_ = kaldb::database::open(work_ ? work_->path() : target_, {cacheBytes_, isNew_});
    return database_;
}

Change::Result Change::finish()
{
    database_.close();
    if (work_) {
        if (!isThere(work_->backup()))
            throw Failure{
                Exit::unusable, "backup", path_, "cannot be changed: its new backup could not be written", {}};
        work_->requireSound(path_);
        if (isNew_)
            claim_ = Claim::ofMissing(target_);
        // In this order: whoever is stopped in between has a new file and an old backup of it, both sound.
        work_->moveToTarget();
        renameFile(work_->backup(), path_ + ".backup");
    } else {
        requireSoundFile(path_, path_);
    }
    const PageFile file{path_};
    return {file.pages(), file.bytes()};
}

}  // namespace kaldb::tool
