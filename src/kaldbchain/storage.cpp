// Storage start-up and shutdown: the file's check with the restore of its backup, the page manager, the root chain.

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"
#include "kaldbvalidate/validate.h"

#include <kaldb/diagnostics.h>

#include <string>

namespace kaldb {

ChainStorage& chainStorage()
{
    static ChainStorage storage;
    return storage;
}

KALPageManager* kaldbChainGetPageManager() { return chainStorage().pageManager; }

namespace {

/// Whether the backup may be copied over the database: always where there is nothing to lose, else only when the
/// backup itself passes the check.
Status checkBackup(const char16_t* path, bool databaseMissing)
{
    if (databaseMissing)
        return Status::success;
    const ValidateResult backup = validateHeader((std::u16string{path} + u".backup").c_str());
    if (backup.sound())
        return Status::success;
    return failed(backup.status) ? backup.status : Status::damaged;
}

void dbchainValidateFile(const char16_t* path)
{
    constexpr TraceSource here = chainSource(u"dbchainValidateFile");
    const ValidateResult check = validateHeader(path);
    if (!check.spoiled())
        return;
    here.error(u"detected corrupt database");
    Status status = checkBackup(path, check.absent);
    if (ok(status))
        status = asStatus(kalPageManagerRestore(path));
    if (ok(status))
        here.error(u"restored backup database");
    else
        here.error(status, u"could not restore backup database");
}

/// Makes the root chain in a file that has never had one. A start page that cannot be read is not a reason: one
/// unreadable page must not turn a database into an empty one.
void createRootInNewFile([[maybe_unused]] const TraceSource& here)
{
    bool exists = false;
    if (Status s = kaldbRootExists(exists); failed(s) || exists)
        return;
    if (chainStorage().pageManager->startPage() != noPage) {
        chainStorage().pageManager->noteDamage();
        return;
    }
    if (Status s = kaldbCreateRoot(); failed(s))
        KAL_TRACE(here, s, u"could not create root chain");
}

}  // namespace

Status kaldbInitializeStorage(const char16_t* path, std::uint32_t cacheBytes, std::uint32_t& isNew)
{
    constexpr TraceSource here = chainSource(u"kaldbInitializeStorage");
    constexpr TraceSource misspelt = chainSource(u"kaldbInitializeChainStorage");
    dbchainValidateFile(path);

    ChainStorage& storage = chainStorage();
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
    Status counters = storeWaitingCounters();

    if (Status s = kaldbCloseRoot(); failed(s))
        KAL_TRACE(here, s, u"could not close root chain");
    else
        KAL_TRACE(here, u"successfully closed root chain");

    if (Status s = storage.pageManager->close(); failed(s))
        return KAL_TRACE(here, s, u"could not deinitialize page manager");
    storage.pageManager = nullptr;
    storage.usablePageSize = 0;
    storage.rootElement = {};
    forgetCatalogueState();
    return counters;
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
