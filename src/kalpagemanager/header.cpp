// The file header: made for a new file, checked in an existing one.
#include "kalpagemanager/internal.h"

#include <cstring>

using namespace kaldb;

Status kaldb::kalPageManagerInitNewFile(KALFile* file, KALPageFileHeader& header)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerInitNewFile");
    header = {.typeName = {'P', 'M', 'R'},
              .name = {},
              .headerLength = fileHeaderLength,
              .pageSize = pageSize,
              .pagesInFile = 0,
              .startPage = noPage,
              .version = fileVersion,
              .flags = 0};
    std::uint32_t length = sizeof header;
    if (Status s = asStatus(kalFileWrite(file, &header, &length)); failed(s))
        return KAL_TRACE(here, s, u"could not initialize new page file");
    if (Status s = asStatus(kalFileFlush(file)); failed(s))
        KAL_TRACE(here, s, u"couldn't flush file");
    return Status::success;
}

Status kaldb::kalPageManagerInitFromFile(KALFile* file, KALPageFileHeader& header)
{
    constexpr TraceSource here = pageManagerSource(u"kalPageManagerInitFromFile");
    KALPageFileHeader found{};
    std::uint32_t length = sizeof found;
    Status s = asStatus(kalFileSeek(file, 0));
    if (ok(s))
        s = asStatus(kalFileRead(file, &found, &length));
    if (failed(s))
        return KAL_TRACE(here, s, u"could not read header from file");

    if (std::memcmp(found.typeName, "PMR", sizeof found.typeName) != 0) {
        KAL_TRACE(here, u"header name mismatch");
        return Status::failure;
    }
    if (found.headerLength != fileHeaderLength) {
        KAL_TRACE(here, u"header length mismatch");
        return Status::failure;
    }
    if (found.pageSize != pageSize) {
        KAL_TRACE(here, u"page size mismatch");
        return Status::failure;
    }
    if (found.version != fileVersion) {
        KAL_TRACE(here, u"incompatible version");
        return Status::failure;
    }
    if (length != sizeof found)
        return KAL_TRACE(here, Status::failure, u"could not read header from file");
    if ((found.flags & fileDirty) != 0)
        KAL_TRACE(here, u"detected dirty shutdown");
    header = found;
    return Status::success;
}
