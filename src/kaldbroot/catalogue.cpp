// The root chain: its handle, its own entry's place, and the root objects in it.

#include "kaldbroot/catalogue.h"

#include "common/trace.h"
#include "kaldbchain/internal.h"
#include "kaldbroot/waiting_counters.h"
#include "kalpagemanager/page_manager.h"

#include <kaldb/identifiers.h>

namespace kaldb {

namespace {

KALDBChain* rootChain = nullptr;
/// Where the root chain's own entry lives; its page is the file's start page.
KALDBIndexRecord rootEntryPlace = emptyLocator();

constexpr TraceSource rootSource(const char16_t* operation) { return {u"kaldbroot: ", operation}; }

}  // namespace

Status kaldbCreateRoot()
{
    constexpr TraceSource here = rootSource(u"kaldbCreateRoot");
    const Status status =
        kaldbCreateChain(KALDB_OBJECT_ROOT, u"ROOT", sizeof(KALDBRootObject), KALDB_CHAIN_GUID | KALDB_CHAIN_SYSTEM);
    if (failed(status))
        return KAL_TRACE(here, status, u"could not create root chain");
    KAL_TRACE(here, u"successfully created root chain");
    return Status::success;
}

Status kaldbOpenRoot()
{
    constexpr TraceSource here = rootSource(u"kaldbOpenRoot");
    KALDBChainCallbacks callbacks{};
    callbacks.compare = compareRootObjects;
    callbacks.indexUpdate = kaldbRootIndexUpdate;
    if (Status s = kaldbOpenChain(KALDB_OBJECT_ROOT, u"ROOT", callbacks, 0, rootChain); failed(s))
        return KAL_TRACE(here, s, u"could not open root chain");
    rootEntryPlace = emptyLocator();
    rootEntryPlace.page = kaldbChainGetPageManager()->startPage();
    KAL_TRACE(here, u"successfully opened root chain");
    return Status::success;
}

Status kaldbCloseRoot()
{
    constexpr TraceSource here{u"kaldbroot:  ", u"kaldbCloseRoot"};
    const Status status = rootChain == nullptr ? Status::notOpen : kaldbCloseChain(rootChain);
    if (failed(status))
        return KAL_TRACE(here, status, u"could not close root chain");
    rootChain = nullptr;
    KAL_TRACE(here, u"successfully closed root chain");
    return Status::success;
}

Status kaldbRootExists(bool& exists)
{
    KALDBRootObject entry;
    exists = ok(kaldbGetRootEntry(entry));
    return Status::success;
}

Status kaldbGetRootChain(KALDBChain*& chain)
{
    if (rootChain == nullptr)
        return Status::notOpen;
    chain = rootChain;
    return Status::success;
}

Status kaldbInsertRootObject(KALDBRootObject& object)
{
    constexpr TraceSource here = rootSource(u"kaldbInsertRootObject");
    KALDBChain* root = nullptr;
    Status status = kaldbGetRootChain(root);
    KALDBIndexRecord locator = emptyLocator();
    if (ok(status))
        status = kaldbInsertChainRecord(*root, &object, &locator);
    if (failed(status))
        return KAL_TRACE(here, status, u"could not insert object '%s' into root", object.name);
    return Status::success;
}

namespace {

/// With a walk or an operation on the root chain only a search meets every page that may be locked.
bool placesAreOfUse()
{
    return rootChain != nullptr && rootChain->state != nullptr && !plainDescents() && rootChain->state->running == 0 &&
           rootChain->state->walks == 0;
}

}  // namespace

Status loadRootObjectInPlace(const ChainState* state, const KALDBRootObject& key, ChainPage& page, SlotIndex& slot)
{
    if (state == nullptr || state->rootPage == noPage || !placesAreOfUse())
        return Status::notApplicable;
    if (failed(page.load(*rootChain, LockType::write, state->rootPage)))
        return Status::notApplicable;
    slot = state->rootSlot;
    const BTreeView objects = page.tree();
    if (slot < objects.maxCount() && objects.slotInUse(slot) && compareRootObjects(&key, objects.item(slot)) == 0)
        return Status::success;
    ignore(page.release());
    return Status::notApplicable;
}

void noteRootObject(ChainState* state, const KALDBRootObject& object)
{
    if (state != nullptr)
        state->root = object;
}

namespace {

/// Remembers where the chain's root object is stored.
void notePlace(ChainState& state, KALDBChain& root, const KALDBRootObject& object)
{
    constexpr static TraceSource here = rootSource(u"kaldbUpdateRootObject");
    ChainPage page{here, u"could not unload page %ld"};
    EmptyPageMet empty;
    SlotIndex slot = noSlot;
    state.rootPage = noPage;
    if (ok(dbchainFindSearchPage(root, &object, page, empty)) &&
        ok(page.tree().searchIndex(&object, compareRootObjects, slot))) {
        state.rootPage = page.number();
        state.rootSlot = slot;
    }
}

Status storeRootObject(ChainState* state, KALDBChain& root, KALDBRootObject& object)
{
    constexpr static TraceSource here = rootSource(u"kaldbUpdateRootObject");
    ChainPage page{here, u"could not unload page %ld"};
    SlotIndex slot = noSlot;
    if (ok(loadRootObjectInPlace(state, object, page, slot))) {
        writeField(page.tree().item(slot), 0, object);
        ignore(page.markDirty());
        return Status::success;
    }
    const Status status = kaldbUpdateChainRecord(root, &object);
    if (ok(status) && state != nullptr && placesAreOfUse())
        notePlace(*state, root, object);
    return status;
}

}  // namespace

Status kaldbUpdateRootObject(KALDBRootObject& object, ChainState* state)
{
    constexpr TraceSource here = rootSource(u"kaldbUpdateRootObject");
    KALDBChain* root = nullptr;
    Status status = kaldbGetRootChain(root);
    if (ok(status)) {
        useWaitingCounter(object);
        status = storeRootObject(state, *root, object);
    }
    if (failed(status))
        return KAL_TRACE(here, status, u"could not update object '%s' in root", object.name);
    dropWaitingCounter(object);
    noteRootObject(state != nullptr ? state : findChainState(object.kind, object.name), object);
    if (object.kind == KALDB_OBJECT_ROOT)
        refreshRootElement(object);
    return Status::success;
}

Status kaldbGetRootObject(std::int32_t kind, const char16_t* name, KALDBRootObject& object)
{
    constexpr TraceSource here = rootSource(u"kaldbGetRootObject");
    if (kind == KALDB_OBJECT_ROOT) {
        if (Status s = kaldbGetRootEntry(object); failed(s))
            return KAL_TRACE(here, s, u"could not retrieve root entry");
        return Status::success;
    }
    KALDBChain* root = nullptr;
    if (Status s = kaldbGetRootChain(root); failed(s))
        return s;
    const KALDBRootObject key = rootObjectKey(kind, name);
    KALDBRootObject found;
    Status status = kaldbQueryChainPrimaryKey(*root, &key, &found);
    if (ok(status) && !plausibleRootObject(found)) {
        kaldbChainGetPageManager()->noteDamage();
        status = Status::failure;
    }
    if (failed(status))
        return status == Status::notFound ? status : KAL_TRACE(here, status, u"could not query chain");
    object = found;
    return Status::success;
}

Status rootObjectOf(const KALDBChain& chain, KALDBRootObject& object)
{
    const ChainState* state = chain.state;
    if (chain.kind == KALDB_OBJECT_ROOT || state == nullptr || !state->knowsRoot() || plainDescents())
        return kaldbGetRootObject(chain.kind, chain.name, object);
    object = state->root;
    return Status::success;
}

Status kaldbGetChainTopPage(const KALDBChain& chain, PageNumber& page)
{
    KALDBRootObject object;
    if (Status s = rootObjectOf(chain, object); failed(s))
        return s;
    page = object.topPage;
    return Status::success;
}

Status kaldbGetChainFirstPage(const KALDBChain& chain, PageNumber& page)
{
    KALDBRootObject object;
    if (Status s = rootObjectOf(chain, object); failed(s))
        return s;
    page = object.firstPage;
    return Status::success;
}

std::uint32_t kaldbRootIndexUpdate(const KALDBIndexRecord* from, const KALDBIndexRecord* to, std::uintptr_t)
{
    constexpr TraceSource here = rootSource(u"kaldbRootIndexUpdate");
    std::uint32_t same = 0;
    kaldbIDIsEqual(&from->id, &rootEntryPlace.id, &same);
    if (same == 0 || from->page != rootEntryPlace.page)
        return code(Status::success);
    // The page manager keeps the new start page in memory even when its header cannot be written now.
    const Status status = kaldbChainGetPageManager()->setStartPageWritten(to->page);
    rootEntryPlace = *to;
    if (failed(status))
        return code(KAL_TRACE(here, status, u"could not update start page"));
    KAL_TRACE(here, u"successfully updated start page to %ld", to->page);
    return code(Status::success);
}

void forgetCatalogueState()
{
    rootEntryPlace = emptyLocator();
    dropAllWaitingCounters();
}

}  // namespace kaldb
