// Storage start-up and shutdown: the file's check with the restore of its backup, the page manager, the root chain.

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"
#include "kaldbvalidate/validate.h"

#include <kaldb/diagnostics.h>

#include <filesystem>
#include <string>

namespace kaldb {

ChainStorage& chainStorage()
{
    static ChainStorage storage;
    return storage;
}

KALPageManager* kaldbChainGetPageManager() { return chainStorage().pageManager; }

namespace {

std::u16string backupOf(const char16_t* path) { return std::u16string{path} + u".backup"; }

/// Whether the backup may replace a file that is there: it was closed cleanly, is whole, and an open will accept it.
Status checkBackup(const char16_t* path)
{
    const std::u16string backup = backupOf(path);
    const ValidateResult check = validateHeader(backup.c_str());
    if (failed(check.status))
        return check.status;
    return check.sound() ? KALPageManager::checkHeader(backup.c_str()) : Status::damaged;
}

/// A failed restore that shows that there is no backup worth keeping. After any other a backup may lie there, and a
/// start without it would end with a close that replaces it.
bool nothingToRestore(Status failure)
{
    return failure == Status::fileNotFound || failure == Status::notAFile || failure == Status::nameTooLong ||
           failure == Status::damaged || failure == Status::failure;
}

/// The dirty mark is about to make the backup all that a crash leaves, but there is none when a process was killed
/// while it replaced its backup. A failure is told to the error log, as at a close.
void makeMissingBackup(const char16_t* path)
{
    std::uint32_t exists = 1;
    if (ok(asStatus(kalFileExistsW(backupOf(path).c_str(), &exists))) && exists == 0 &&
        ok(KALPageManager::checkHeader(path)))
        ignore(KALPageManager::backup(path));
}

/// Fails only where the start must not go on.
Status dbchainValidateFile(const char16_t* path)
{
    constexpr TraceSource here = chainSource(u"dbchainValidateFile");
    const ValidateResult check = validateHeader(path);
    chainStorage().missing = check.absent;
    if (check.sound())
        makeMissingBackup(path);
    if (!check.spoiled())
        return check.status;  // a check that could not be made does not call the file sound
    here.error(u"detected corrupt database");
    Status status = check.absent ? Status::success : checkBackup(path);
    if (ok(status))
        status = asStatus(kalPageManagerRestore(path));
    if (failed(status)) {
        here.error(status, u"could not restore backup database");
        return nothingToRestore(status) ? Status::success : status;
    }
    here.error(u"restored backup database");
    chainStorage().missing = false;
    return Status::success;
}

/// Makes the root chain in a file that has never had one. A start page that cannot be read is not a reason, nor are
/// pages that no start page leads to: a damaged page or header must not turn a database into an empty one. A single
/// page may be the root chain of a start that was killed before it had noted it.
void createRootInNewFile([[maybe_unused]] const TraceSource& here)
{
    ChainStorage& storage = chainStorage();
    bool exists = false;
    if (Status s = kaldbRootExists(exists); failed(s) || exists)
        return;
    if (storage.pageManager->startPage() != noPage || storage.pageManager->pagesFound() > 1) {
        storage.pageManager->noteDamage();
        return;
    }
    if (Status s = kaldbCreateRoot(); failed(s))
        KAL_TRACE(here, s, u"could not create root chain");
    else
        storage.rootMade = true;
}

/// A link that leads to a missing file stays.
void deleteFileMadeHere(const char16_t* path)
{
    std::error_code error;
    if (!std::filesystem::is_symlink(path, error))
        ignore(asStatus(kalFileDeleteW(path)));
}

/// An empty file that got a root chain holds nothing either way, and is whole only when it is closed as usual.
void closeAsFound()
{
    const ChainStorage& storage = chainStorage();
    ignore(kaldbCloseRoot());
    if (!storage.rootMade || storage.missing || failed(storage.pageManager->close()))
        ignore(storage.pageManager->abandon());
}

/// A shutdown that failed before has closed the root chain, which waiting counters need.
void reopenRoot()
{
    KALDBChain* root = nullptr;
    if (failed(kaldbGetRootChain(root)))
        ignore(kaldbOpenRoot());
}

void forgetStorage()
{
    ChainStorage& storage = chainStorage();
    storage.pageManager = nullptr;
    storage.usablePageSize = 0;
    storage.rootElement = {};
    storage.missing = storage.rootMade = false;
    forgetCatalogueState();
    forgetChainStates();
}

}  // namespace

Status kaldbInitializeStorage(const char16_t* path, std::uint32_t cacheBytes, std::uint32_t& isNew)
{
    constexpr TraceSource here = chainSource(u"kaldbInitializeStorage");
    constexpr TraceSource misspelt = chainSource(u"kaldbInitializeChainStorage");
    ChainStorage& storage = chainStorage();
    storage.rootMade = false;
    if (Status s = dbchainValidateFile(path); failed(s))
        return s;

    if (Status s = KALPageManager::open(path, cacheBytes, storage.pageManager, isNew); failed(s))
        return KAL_TRACE(here, s, u"could not initialize page manager for '%s'", path);
    storage.usablePageSize = usablePageSize;
    ++storage.session;

    createRootInNewFile(here);
    if (Status s = kaldbOpenRoot(); failed(s))
        return KAL_TRACE(misspelt, s, u"could not open root chain");
    KAL_TRACE(here, u"succeeded");
    return Status::success;
}

Status kaldbDeinitializeStorage()
{
    constexpr TraceSource here = chainSource(u"kaldbDeinitializeStorage");
    ChainStorage& storage = chainStorage();
    if (!storage.up())
        return Status::notOpen;
    reopenRoot();
    const Status counters = storeWaitingCounters();

    if (Status s = kaldbCloseRoot(); failed(s))
        KAL_TRACE(here, s, u"could not close root chain");
    else
        KAL_TRACE(here, u"successfully closed root chain");

    if (Status s = storage.pageManager->close(); failed(s))
        return KAL_TRACE(here, s, u"could not deinitialize page manager");
    forgetStorage();
    return counters;
}

void abandonStorage(const char16_t* path) noexcept
{
    try {
        ChainStorage& storage = chainStorage();
        const bool missing = storage.missing;
        if (storage.up())
            closeAsFound();
        forgetStorage();
        if (missing)
            deleteFileMadeHere(path);
    } catch (...) {
        // A name that needs memory which is not there: an empty database stays.
    }
}

Status completeNewStorage()
{
    const ChainStorage& storage = chainStorage();
    return storage.rootMade ? storage.pageManager->writeComplete() : Status::success;
}

Status kaldbBackupStorage()
{
    ChainStorage& storage = chainStorage();
    if (!storage.up())
        return Status::notOpen;
    if (Status s = storeWaitingCounters(); failed(s))
        return s;
    return storage.pageManager->backupWhileRunning();
}

}  // namespace kaldb

extern "C" void kaldbTracePageManager(void)
{
    using namespace kaldb;
    if (KALPageManager* manager = kaldbChainGetPageManager())
        pmTraceCachePages(manager);
    else
        KAL_TRACE(chainSource(u"kaldbTracePageManager"), u"could not retrieve page manager");
}
