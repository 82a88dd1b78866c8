// A database file read page by page, without the library: nothing is marked, locked, restored or written.
//
// Whatever the file holds, reading it ends in an answer: every length and index is held against the bytes really there.
#pragma once

#include "common/page_number.h"
#include "kaldbchain/layout.h"
#include "kalpagemanager/layout.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace kaldb::tool {

using Page = std::array<std::byte, pageSize>;

class PageFile {
public:
    /// Throws a Failure when the file cannot be read or does not begin as a database does.
    explicit PageFile(const std::filesystem::path& path);

    const std::filesystem::path& path() const { return path_; }
    const KALPageFileHeader& header() const { return header_; }
    std::uint64_t bytes() const { return bytes_; }
    /// Open in a process, or not closed cleanly.
    bool dirty() const { return (header_.flags & fileDirty) != 0; }
    /// Whole pages that the file holds.
    std::uint64_t heldPages() const { return (bytes_ - fileHeaderLength) / pageSize; }
    /// Pages that the header counts and the file holds: all that there is to read.
    PageNumber pages() const;

    /// False for a page at or beyond `pages()` and for one that the system cannot read.
    bool read(PageNumber number, Page& page) const;

private:
    std::filesystem::path path_;
    mutable std::ifstream file_;
    std::uint64_t bytes_ = 0;
    KALPageFileHeader header_{};
};

}  // namespace kaldb::tool
