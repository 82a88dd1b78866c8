// The file in which a replacement for another is made, beside it.
//
//   FILE.kaldb-work          the replacement
//   FILE.kaldb-work.backup   its backup, when the library closes it
//   FILE.kaldb-work.lock     held for as long as somebody works there
//
// What a killed run leaves behind is in nobody's way, and the next run for the same file removes it.
#pragma once

#include "write/claim.h"

#include <filesystem>

namespace kaldb::tool {

class WorkFile {
public:
    /// Throws a Failure when another process works on this target, or the folder cannot be written to.
    /// Failures call it `shown`.
    WorkFile(const std::filesystem::path& target, const std::string& shown);
    WorkFile(const WorkFile&) = delete;
    WorkFile& operator=(const WorkFile&) = delete;
    /// Removes what has not been given its place.
    ~WorkFile();

    /// Where to make the replacement. No file has this name at first.
    const std::filesystem::path& path() const { return work_; }
    std::filesystem::path backup() const { return work_.string() + ".backup"; }

    /// A whole copy of `source` as the replacement, on the disk.
    void copyFrom(const std::filesystem::path& source) const;
    /// Throws a Failure unless the replacement is sound; `of` is what it is called there.
    void requireSound(const std::string& of) const;
    /// Puts the replacement in the target's place.
    void moveToTarget() const;

private:
    std::filesystem::path lockPath() const { return work_.string() + ".lock"; }
    void claim(const std::string& shown);
    void clean() const;

    std::filesystem::path target_;
    std::filesystem::path work_;
    Claim claim_;
};

/// Throws a Failure for the first error that the check finds in the file; `of` is what it is called there.
void requireSoundFile(const std::filesystem::path& path, const std::string& of);
/// Renames on the disk: when it returns the new name is there to stay. Throws a Failure.
void renameFile(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace kaldb::tool
