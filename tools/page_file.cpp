#include "page_file.h"

#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace kaldb::tool {

namespace {

[[noreturn]] void refuse(const std::filesystem::path& path, const char* kind, std::string what)
{
    throw Failure{Exit::unusable, kind, path.string(), std::move(what), {}};
}

[[noreturn]] void refuse(const std::filesystem::path& path, std::error_code error)
{
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        refuse(path, "missing", "no such file");
    if (error == std::errc::permission_denied)
        refuse(path, "permission", "no permission to read it");
    refuse(path, "unreadable", fmt::format("cannot be read: {}", error.message()));
}

}  // namespace

PageFile::PageFile(const std::filesystem::path& path) : path_(path)
{
    // Asked first: opening a pipe would wait for a writer.
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
        refuse(path, error ? error : std::make_error_code(std::errc::no_such_file_or_directory));
    if (!std::filesystem::is_regular_file(status))
        refuse(path, "not-a-file", "not a regular file");

    errno = 0;
    file_.rdbuf()->pubsetbuf(nullptr, 0);
    file_.open(path, std::ios::binary);
    if (!file_)
        refuse(path, std::error_code{errno == 0 ? EIO : errno, std::generic_category()});
    bytes_ = std::filesystem::file_size(path, error);
    if (error)
        refuse(path, error);

    if (bytes_ == 0)
        refuse(path, "not-a-database", "not a kaldb file: it is empty");
    file_.read(reinterpret_cast<char*>(&header_), sizeof header_);
    if (std::strncmp(header_.typeName, "PMR", sizeof header_.typeName) != 0)
        refuse(path, "not-a-database", "not a kaldb file");
    if (bytes_ < fileHeaderLength || !file_)
        refuse(path, "not-a-database", "not a kaldb file: it ends inside its header");
    if (header_.headerLength != fileHeaderLength || header_.pageSize != pageSize || header_.version != fileVersion)
        refuse(path, "not-a-database",
               fmt::format("not a kaldb file of version {}: it says version {}, header length {}, page size {}",
                           fileVersion, header_.version, header_.headerLength, header_.pageSize));
}

PageNumber PageFile::pages() const
{
    return static_cast<PageNumber>(std::min<std::uint64_t>(heldPages(), header_.pagesInFile));
}

bool PageFile::read(PageNumber number, Page& page) const
{
    if (number >= pages())
        return false;
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(pageOffset(number)));
    file_.read(reinterpret_cast<char*>(page.data()), static_cast<std::streamsize>(page.size()));
    return file_.gcount() == static_cast<std::streamsize>(page.size());
}

}  // namespace kaldb::tool
