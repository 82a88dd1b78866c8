// Opening and closing the database, its system tables and its owner's lock.
//
//   closed --kaldbInitialize--> open --kaldbDeinitialize--> closed
//
// One database is open at a time. Its owner's lock is taken before the file is looked at, and held until the closing
// backup is complete: another process would take the dirty mark of a file in use for a crash.

#include "common/guard.h"
#include "common/memory.h"
#include "common/trace.h"
#include "kaldbchain/chain.h"
#include "kaldbindex/guid_index.h"
#include "kaldbindex/pending_changes.h"
#include "kaldbtable/table.h"
#include "kalpagemanager/page_manager.h"

#include <kaldb/database.h>
#include <kaldb/variant.h>
#include <kaldb/varstring.h>

#include <array>

using namespace kaldb;

struct KALDBDatabase {
    std::array<char16_t, 260> path{};  // the first 259 characters
};
static_assert(sizeof(KALDBDatabase) == 520);

namespace {

constexpr TraceSource databaseSource(const char16_t* operation) { return {u"kaldbgen: ", operation}; }

struct OpenDatabase {
    KALOwnerLock* owner = nullptr;
    KALDBDatabase* handle = nullptr;  // null when the caller had it forgotten
};
OpenDatabase openDatabase;

struct SystemTable {
    const char16_t* name;
    std::uint32_t (*initialize)(KALDBDatabase*);
    std::uint32_t (*deinitialize)(KALDBDatabase*);
};
constexpr std::array<SystemTable, 2> systemTables = {{
    {u"SysVarString", kaldbInitVarStringTable, kaldbDeinitVarStringTable},
    {u"SysBinary", kaldbInitBinaryTable, kaldbDeinitBinaryTable},
}};

/// A table that cannot be brought up is skipped: operations on values of its kind then find no open table.
void kaldbInitializeSystemTables(KALDBDatabase* database)
{
    constexpr TraceSource here = databaseSource(u"kaldbInitializeSystemTables");
    for (const SystemTable& table : systemTables) {
        if (Status s = asStatus(table.initialize(database)); failed(s))
            KAL_TRACE(here, s, u"could not initialize '%s' table", table.name);
        else
            KAL_TRACE(here, u"successfully initialized '%s' table", table.name);
    }
}

void kaldbDeinitializeSystemTables(KALDBDatabase* database)
{
    constexpr TraceSource here = databaseSource(u"kaldbDeinitializeSystemTables");
    for (const SystemTable& table : systemTables) {
        if (Status s = asStatus(table.deinitialize(database)); failed(s))
            KAL_TRACE(here, s, u"could not deinitialize '%s' table", table.name);
        else
            KAL_TRACE(here, u"successfully deinitialized '%s' table", table.name);
    }
}

void traceSizes()
{
    constexpr TraceSource here{nullptr, u"kaldbInitialize"};
    KAL_TRACE(here, u"KALDBID is %ld bytes", std::uint32_t{sizeof(KALDBID)});
    KAL_TRACE(here, u"empty KALDBVariant is %ld bytes", std::uint32_t{sizeof(KALDBVariant)});
    KAL_TRACE(here, u"KALDBIndexRecord is %ld bytes", std::uint32_t{sizeof(KALDBIndexRecord)});
}

void releaseOwner()
{
    if (openDatabase.owner != nullptr)
        ignore(asStatus(kalOwnerLockRelease(openDatabase.owner)));
    openDatabase.owner = nullptr;
}

/// A start that does not come to its end leaves everything as it was.
class StartUp {
public:
    explicit StartUp(const char16_t* path) : path_(path) {}
    ~StartUp()
    {
        if (done_)
            return;
        if (openDatabase.owner != nullptr)
            abandonStorage(path_);
        releaseOwner();
    }
    StartUp(const StartUp&) = delete;
    StartUp& operator=(const StartUp&) = delete;

    Status openStorage(std::uint32_t cacheBytes, std::uint32_t& isNew) const
    {
        if (Status s = asStatus(kalOwnerLockAcquire(path_, &openDatabase.owner)); failed(s))
            return s;
        if (Status s = kaldbInitializeStorage(path_, cacheBytes, isNew); failed(s))
            return s;
        // The file that is there now is the one that stays: a restore may have replaced it, or start-up made it.
        return asStatus(kalOwnerLockSettle(openDatabase.owner));
    }
    void done() { done_ = true; }

private:
    const char16_t* path_;
    bool done_ = false;
};

Handle<KALDBDatabase> makeDatabaseHandle(const char16_t* path)
{
    Handle<KALDBDatabase> handle = makeHandle<KALDBDatabase>("./src/kaldbgen");
    if (handle)
        for (std::size_t i = 0; i + 1 < handle->path.size() && path[i] != u'\0'; ++i)
            handle->path[i] = path[i];
    return handle;
}

Status initialize(const char16_t* path, std::uint32_t cacheBytes, KALDBDatabase*& handle, std::uint32_t& isNew)
{
    if (insideChainOperation())
        return Status::lockConflict;
    if (kaldbChainGetPageManager() != nullptr)
        return Status::alreadyExists;
    traceSizes();
    StartUp start{path};
    if (Status s = start.openStorage(cacheBytes, isNew); failed(s))
        return s;
    Handle<KALDBDatabase> database = makeDatabaseHandle(path);
    if (!database)
        return Status::outOfMemory;
    start.done();
    kaldbInitializeSystemTables(database.get());
    ignore(completeNewStorage());  // what could not be written now is written later, or the close says why not
    openDatabase.handle = database.release();
    handle = openDatabase.handle;
    return Status::success;
}

/// Storage that cannot be closed keeps the lock, for the file is still ours; the caller may close again.
Status closeStorage()
{
    const Status status = kaldbDeinitializeStorage();
    if (kaldbChainGetPageManager() != nullptr)
        return status;
    dropAllPendingChanges();
    releaseOwner();
    return status;
}

Status deinitialize(KALDBDatabase* handle)
{
    if (insideChainOperation())
        return Status::lockConflict;
    if (kaldbChainGetPageManager() == nullptr)
        return Status::notOpen;
    if (openDatabase.handle != nullptr && handle != openDatabase.handle)
        return Status::invalidArgument;
    Status status = settleIndexes();
    if (ok(status)) {
        kaldbDeinitializeSystemTables(handle);
        status = closeStorage();
    }
    Handle<KALDBDatabase>{openDatabase.handle}.reset();
    openDatabase.handle = nullptr;
    return status;
}

}  // namespace

extern "C" {

uint32_t kaldbInitialize(const char16_t* path, uint32_t cacheBytes, KALDBDatabase** handle, uint32_t* isNew)
{
    return guarded([&] {
        if (path == nullptr || handle == nullptr || isNew == nullptr)
            return Status::invalidArgument;
        return initialize(path, cacheBytes, *handle, *isNew);
    });
}

uint32_t kaldbDeinitialize(KALDBDatabase* handle)
{
    return guarded([&] { return deinitialize(handle); });
}

uint32_t kaldbBackupDatabaseWhileRunning(KALDBDatabase*)
{
    return guarded([] {
        if (insideChainOperation())
            return Status::lockConflict;
        if (Status s = settleIndexes(); failed(s))
            return s;
        return kaldbBackupStorage();
    });
}

uint32_t kaldbForgetHandle(void* handle)
{
    if (insideChainOperation())
        return code(Status::lockConflict);
    KALDBTable::forget(handle);
    KALPageManager::forget(handle);
    KALPageTracker::forget(handle);
    if (handle == openDatabase.handle)
        openDatabase.handle = nullptr;
    kalHandleFree(handle);
    return code(Status::failure);
}

}  // extern "C"
