// Opening: the file, the tracker, the cache, the header, and the dirty mark on the disk.
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <algorithm>
#include <utility>

using namespace kaldb;

namespace {

constexpr TraceSource here = pageManagerSource(u"kalPageManagerInitialize");
constexpr std::uint32_t trackedPages = 20;
constexpr std::uint32_t extraCacheBytes = 4 * pageSize;

}  // namespace

// Whatever fails, the half-made manager goes with all that it holds, the open file included.
Status KALPageManager::open(const char16_t* path, std::uint32_t cacheBytes, KALPageManager*& manager,
                            std::uint32_t& created)
{
    Handle<KALPageManager> made = makeHandle<KALPageManager>(sourceFile);
    if (!made) {
        KAL_TRACE(here, u"could not allocate page manager data");
        return Status::failure;
    }
    KAL_TRACE(here, u"new page manager 0x%08X", traceAddress(made.get()));
    made->location_ = copyName(path);
    made->absolutePath_ = absoluteName(path);
    if (!made->location_ || !made->absolutePath_)
        return Status::outOfMemory;

    if (Status s = made->openFile(created); failed(s))
        return s;
    if (Status s = KALPageTracker::initialize(trackedPages, made->tracker_); failed(s))
        return KAL_TRACE(here, s, u"could not initialize page tracker");
    if (Status s = made->buildCache(cacheBytes); failed(s))
        return s;
    if (Status s = made->adoptFile(); failed(s))
        return s;

    manager = made.release();
    KAL_TRACE(here, u"initialized page manager");
    return Status::success;
}

KALPageManager::~KALPageManager()
{
    if (file_ != nullptr)
        ignore(asStatus(kalFileClose(file_)));
    if (statistics_ != nullptr)
        ignore(asStatus(kalStatsDeinitialize(statistics_)));
}

Status KALPageManager::openFile(std::uint32_t& created)
{
    if (ok(asStatus(kalFileOpenW(location(), &file_, KAL_FILE_READ_WRITE)))) {
        created = 0;
        KAL_TRACE(here, u"opened %s", location());
        return Status::success;
    }
    if (Status s = asStatus(kalFileOpenW(location(), &file_, KAL_FILE_CREATE)); failed(s)) {
        file_ = nullptr;
        return KAL_TRACE(here, s, u"could not open %s", location());
    }
    created = 1;
    KAL_TRACE(here, u"created %s", location());
    return Status::success;
}

// The sum wraps: the largest sizes give fewer than four slots, or none.
Status KALPageManager::buildCache(std::uint32_t cacheBytes)
{
    const std::uint32_t bytes = cacheBytes + extraCacheBytes;
    if (bytes <= pageSize) {
        KAL_TRACE(here, u"using disk access only");
        return Status::success;
    }
    if (!cache_.allocate(bytes / pageSize)) {
        KAL_TRACE(here, u"could not allocate memory for pages");
        return Status::outOfMemory;
    }

    static constexpr const char16_t* counters[] = {u"Unused", u"Create Page", u"Load Page", u"Flush Page",
                                                   u"Find Page"};
    if (Status s = asStatus(kalStatsInitialize(std::size(counters), counters, &statistics_)); failed(s)) {
        statistics_ = nullptr;
        KAL_TRACE(here, s, u"could not initialize statistics");
    }
    KAL_TRACE(here, u"allocated %ld pages", cache_.size());
    return Status::success;
}

Status KALPageManager::adoptFile()
{
    std::uint64_t size = 0;
    if (Status s = asStatus(kalFileGetSize(file_, &size)); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve file size");
    const Status s = size > 0 ? kalPageManagerInitFromFile(file_, header_) : kalPageManagerInitNewFile(file_, header_);
    if (failed(s))
        return s;
    headerFound_ = header_;
    countPagesOfFile(size);

    header_.flags |= fileDirty;
    Status w = pmWriteHeader();
    if (failed(w)) {
        KAL_TRACE(here, w, u"could not write header");
    } else if (w = sync(); failed(w)) {
        KAL_TRACE(here, w, u"could not bring header to disk");
    }
    if (failed(w))
        ignore(putHeaderBack());
    markOnDisk_ = ok(w);
    return w;
}

// A file that was not opened after all must not look like one that was left open.
Status KALPageManager::putHeaderBack()
{
    header_ = headerFound_;
    return pmWriteHeader();
}

// A crash can leave more pages in the file than its header counts. They may belong to somebody, so new pages come after
// them, also after a last one that was cut off. It can as well leave fewer: those are the gap. A header that counts
// more than a cache can have held back tells no truth, and its file is not worth a backup.
void KALPageManager::countPagesOfFile(std::uint64_t size)
{
    const std::uint64_t bytes = size <= fileHeaderLength ? 0 : size - fileHeaderLength;
    const auto asCount = [](std::uint64_t pages) {
        return static_cast<PageNumber>(std::min<std::uint64_t>(pages, noPage));
    };
    pagesFound_ = asCount((bytes + pageSize - 1) / pageSize);
    header_.pagesInFile = std::max(header_.pagesInFile, pagesFound_);
    gapBegin_ = asCount(bytes / pageSize);
    gapEnd_ = header_.pagesInFile;
    tornBytes_ = static_cast<std::uint32_t>(bytes % pageSize);
    if (gapBegin_ < gapEnd_ && !hasGap())
        noteDamage();
}
