// The C interface of the page manager, its backups and its diagnostics.
#include "common/guard.h"
#include "kalpagemanager/page_manager.h"

#include <kaldb/diagnostics.h>
#include <kaldb/page_manager.h>

using namespace kaldb;

namespace {

constexpr std::uint32_t invalidArgument = code(Status::invalidArgument);

std::byte* asBody(void* body) { return static_cast<std::byte*>(body); }

bool given(const void* pointer) { return pointer != nullptr; }
bool given(const KALPageManager* manager) { return KALPageManager::isLive(manager); }

/// Runs the operation unless one of the pointers that it needs is null, or the manager is gone.
template <class Operation, class... Pointers>
std::uint32_t checked(Operation&& operation, const Pointers*... pointers)
{
    return (given(pointers) && ...) ? guarded(operation) : invalidArgument;
}

/// Writes a value out; nothing can go wrong.
Status yield(std::uint32_t& result, std::uint32_t value)
{
    result = value;
    return Status::success;
}

}  // namespace

extern "C" {

uint32_t kalPageManagerInitialize(const char16_t* path, uint32_t cacheBytes, KALPageManager** manager,
                                  uint32_t* created)
{
    return checked([=] { return KALPageManager::open(path, cacheBytes, *manager, *created); }, path, manager, created);
}

uint32_t kalPageManagerDeinitialize(KALPageManager* manager)
{
    return checked([=] { return manager->close(); }, manager);
}

uint32_t kalPageManagerLoadPage(KALPageManager* manager, uint32_t lockType, uint32_t page, void** body)
{
    return checked(
        [=] {
            std::byte* loaded = nullptr;
            if (Status s = manager->load(static_cast<LockType>(lockType), page, loaded); failed(s))
                return s;
            *body = loaded;
            return Status::success;
        },
        manager, body);
}

uint32_t kalPageManagerCreatePage(KALPageManager* manager, uint32_t lockType, uint32_t* page, void** body)
{
    return checked(
        [=] {
            std::byte* created = nullptr;
            if (Status s = manager->create(static_cast<LockType>(lockType), *page, created); failed(s))
                return s;
            *body = created;
            return Status::success;
        },
        manager, page, body);
}

uint32_t kalPageManagerUnloadPage(KALPageManager* manager, void* body)
{
    return checked([=] { return manager->unload(asBody(body)); }, manager, asBody(body));
}

uint32_t kalPageManagerUnlockPage(KALPageManager* manager, uint32_t page)
{
    return checked([=] { return manager->unlock(page); }, manager);
}

uint32_t kalPageManagerUnreferencePage(KALPageManager* manager, void* body)
{
    return checked([=] { return manager->unreference(asBody(body)); }, manager, asBody(body));
}

uint32_t kalPageManagerReferencePage(KALPageManager*, void*) { return code(Status::failure); }

uint32_t kalPageManagerSetPageDirty(KALPageManager* manager, void* body)
{
    return checked([=] { return manager->setDirty(asBody(body)); }, manager, asBody(body));
}

uint32_t kalPageManagerFlushPage(KALPageManager* manager, void* body)
{
    return checked([=] { return manager->flushPage(asBody(body)); }, manager, asBody(body));
}

uint32_t kalPageManagerFlushAllPages(KALPageManager* manager)
{
    return checked([=] { return manager->flushAll(); }, manager);
}

uint32_t kalPageManagerGetPageSize(KALPageManager*, uint32_t* size)
{
    return checked([=] { return yield(*size, pageSize); }, size);
}

uint32_t kalPageManagerGetUsablePageSize(KALPageManager*, uint32_t* size)
{
    return checked([=] { return yield(*size, usablePageSize); }, size);
}

uint32_t kalPageManagerGetPageCount(KALPageManager* manager, uint32_t* count)
{
    return checked([=] { return yield(*count, manager->pageCount()); }, manager, count);
}

uint32_t kalPageManagerGetLocation(KALPageManager* manager, const char16_t** path)
{
    return checked(
        [=] {
            *path = manager->location();
            return Status::success;
        },
        manager, path);
}

uint32_t kalPageManagerGetStartPage(KALPageManager* manager, uint32_t* page)
{
    return checked([=] { return yield(*page, manager->startPage()); }, manager, page);
}

uint32_t kalPageManagerSetStartPage(KALPageManager* manager, uint32_t page)
{
    return checked([=] { return manager->setStartPage(page); }, manager);
}

uint32_t kalPageManagerBackup(const char16_t* path)
{
    return checked([=] { return KALPageManager::backup(path); }, path);
}

uint32_t kalPageManagerBackupWhileRunning(KALPageManager* manager)
{
    return checked([=] { return manager->backupWhileRunning(); }, manager);
}

uint32_t kalPageManagerRestore(const char16_t* path)
{
    return checked([=] { return KALPageManager::restore(path); }, path);
}

uint32_t kalPageManagerFileIsDirty(const char16_t* path, uint32_t* dirty)
{
    return checked(
        [=] {
            bool found = false;
            if (Status s = KALPageManager::fileIsDirty(path, found); failed(s))
                return s;
            return yield(*dirty, found ? 1 : 0);
        },
        path, dirty);
}

void pmTracePageManager(KALPageManager* manager)
{
    if (given(manager))
        manager->tracePageManager();
}

void pmTraceFilePages(KALPageManager* manager)
{
    if (given(manager))
        manager->traceFilePages();
}

void pmTraceCachePages(KALPageManager* manager)
{
    if (given(manager))
        manager->traceCachePages();
}

uint32_t pmAreMemPagesLocked(KALPageManager* manager) { return given(manager) && manager->areMemPagesLocked() ? 1 : 0; }

uint32_t pmIsPageLocked(KALPageManager* manager, void* body)
{
    return given(manager) && manager->isPageLocked(asBody(body)) ? 1 : 0;
}
}
