// Closing: complete, clean, closed, backed up, released.
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <utility>

using namespace kaldb;

namespace {

constexpr TraceSource here = pageManagerSource(u"kalPageManagerDeinitialize");

}  // namespace

// Until the file is closed a failure leaves everything in place, the file marked dirty; from then on nothing changes
// the result.
Status KALPageManager::close()
{
    const std::uint32_t address = traceAddress(this);
    resetReferences();
    Status s = writeComplete();
    if (ok(s))
        s = markClean();
    if (failed(s)) {
        ignore(markDirty());
        return here.error(s, u"could not flush all pages");
    }
    if (s = closeFile(); failed(s)) {
        ignore(markDirty());
        here.error(s, u"could not close page manager file");
        here.debug(u"closed page manager 0x%08X", address);
        return s;
    }

    if (Status t = KALPageTracker::deinitialize(std::move(tracker_)); failed(t))
        KAL_TRACE(here, t, u"could not deinitialize page tracker");
    if (Status b = backupUnlessDamaged(); failed(b))
        here.error(b, u"could not backup database");
    if (KALStats* statistics = std::exchange(statistics_, nullptr); statistics != nullptr)
        if (Status t = asStatus(kalStatsDeinitialize(statistics)); failed(t))
            KAL_TRACE(here, t, u"could not deinitialize statistics");
    Handle<KALPageManager>{this}.reset();
    KAL_TRACE(here, u"deinitialized page manager");
    here.debug(u"closed page manager 0x%08X", address);
    return Status::success;
}

Status KALPageManager::abandon()
{
    const Status s = putHeaderBack();
    Handle<KALPageManager>{this}.reset();
    return s;
}

void KALPageManager::resetReferences()
{
    for (std::uint32_t slot = 0; slot < cache_.touched(); ++slot) {
        if (!cache_.isReferenced(slot))
            continue;
        KAL_TRACE(here, u"resetting non-zero reference (%ld) count for page %ld", cache_.header(slot).references,
                  cache_.header(slot).page);
        cache_.resetReferences(slot);
    }
}

// A failed close takes the handle as well.
Status KALPageManager::closeFile()
{
    KALFile* file = std::exchange(file_, nullptr);
    return file == nullptr ? Status::success : asStatus(kalFileClose(file));
}
