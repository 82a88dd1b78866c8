// The check that every open begins with: is the file there, whole, and closed cleanly?

#include "kaldbvalidate/internal.h"

#include <algorithm>
#include <limits>

namespace kaldb {

ExaminedFile::~ExaminedFile()
{
    if (file_ != nullptr)
        ignore(asStatus(kalFileClose(file_)));
}

Status ExaminedFile::open(const char16_t* path)
{
    if (path == nullptr)
        return Status::invalidArgument;
    return asStatus(kalFileOpenW(path, &file_, KAL_FILE_READ));
}

Status ExaminedFile::read(std::span<std::byte> buffer, std::size_t& length) const
{
    length = 0;
    while (length < buffer.size()) {
        auto chunk = static_cast<std::uint32_t>(buffer.size() - length);
        if (Status s = asStatus(kalFileRead(file_, buffer.data() + length, &chunk)); failed(s))
            return s;
        if (chunk == 0)
            break;
        length += chunk;
    }
    return Status::success;
}

void KALDBValidateContext::addErrors(std::uint32_t count)
{
    const std::uint32_t room = std::numeric_limits<std::uint32_t>::max() - result.errors;
    result.errors += std::min(count, room);
}

void validateFile(const char16_t* path, KALDBValidateContext& context, void (*check)(KALDBValidateContext&))
{
    // Both entry points name this operation.
    constexpr TraceSource here = validateSource(u"kaldbValidateFile");
    ValidateResult& result = context.result;

    std::size_t length = 0;
    if (Status s = context.file.open(path); failed(s)) {
        context.addErrors();
        result.absent = s == Status::fileNotFound;
        result.status = KAL_TRACE(here, s, u"Could not open file '%s'", path == nullptr ? u"" : path);
    } else if (s = context.file.read(std::as_writable_bytes(std::span{&context.header, 1}), length); failed(s)) {
        context.addErrors();
        result.status = KAL_TRACE(here, s, u"Could not retrieve file header");
    } else {
        result.read = true;
        if (length < fileHeaderLength) {
            context.addErrors();
            result.tooShort = true;
            KAL_TRACE(here, u"Invalid header length read");
        } else {
            check(context);
        }
    }
    KAL_TRACE(here, u"Found %ld error(s)", result.errors);
}

void dbValidateFile(KALDBValidateContext& context)
{
    constexpr TraceSource here = validateSource(u"dbValidateFile");
    KALPageFileHeader& header = context.header;
    ValidateResult& result = context.result;

    if ((header.flags & fileDirty) != 0) {
        context.addErrors();
        result.dirty = true;
        here.error(u"Database was shut down in a dirty state");
    }

    std::uint64_t size = 0;
    if (Status s = context.file.size(size); failed(s)) {
        context.addErrors();
        result.status = KAL_TRACE(here, s, u"Could not retrieve file length");
        return;
    }
    if (header.pageSize == 0) {
        context.addErrors();
        result.sizeMismatch = true;
        KAL_TRACE(here, u"Page size is 0");
        return;
    }
    // The header is smaller than a page and drops out of the division.
    const std::uint64_t counted = size / header.pageSize;
    if (counted != header.pagesInFile) {
        context.addErrors();
        result.sizeMismatch = true;
        const auto shown = static_cast<std::uint32_t>(std::min<std::uint64_t>(counted, noPage));
        here.error(u"File size mismatch; file contains %ld pages but reports %ld pages", shown, header.pagesInFile);
        header.pagesInFile = shown;
    }
}

ValidateResult validateHeader(const char16_t* path)
{
    KALDBValidateContext context;
    validateFile(path, context, dbValidateFile);
    return context.result;
}

}  // namespace kaldb
