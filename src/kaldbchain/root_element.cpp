// The root chain's own root object: the only one that is found without a search, on the file's start page.
//
// A copy is kept from the first read on. Every update refreshes it, so that the counter in it never falls behind.

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"

#include <cstring>

namespace kaldb {

namespace {

/// What a page of the root chain must look like, before the root chain is open.
const KALDBChain& rootShape()
{
    static const KALDBChain shape = [] {
        KALDBChain chain{};
        chain.kind = KALDB_OBJECT_ROOT;
        chain.recordSize = sizeof(KALDBRootObject);
        chain.flags = KALDB_CHAIN_GUID | KALDB_CHAIN_SYSTEM;
        return chain;
    }();
    return shape;
}

Status startPage(PageNumber& page)
{
    page = chainStorage().pageManager->startPage();
    return page == noPage ? Status::notFound : Status::success;
}

bool isRootElement(const KALDBRootObject& object)
{
    return object.kind == KALDB_OBJECT_ROOT && object.recordSize == sizeof(KALDBRootObject) &&
           (object.flags & KALDB_CHAIN_BINARY) == 0 && plausibleRootObject(object);
}

}  // namespace

Status kaldbGetRootEntry(KALDBRootObject& object)
{
    constexpr static TraceSource here = chainSource(u"kaldbGetRootEntry");
    ChainStorage& storage = chainStorage();
    if (!storage.up())
        return Status::notOpen;
    if (storage.rootElement.kind == KALDB_OBJECT_ROOT) {
        object = storage.rootElement;
        return Status::success;
    }
    PageNumber start = noPage;
    if (Status s = startPage(start); failed(s))
        return s;

    KAL_TRACE(here, u"loading page %ld", start);
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.load(rootShape(), LockType::read, start); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", start);
    const KALDBRootObject key = rootObjectKey(KALDB_OBJECT_ROOT, u"ROOT");
    std::byte* item = nullptr;
    if (Status s = page.tree().search(&key, compareRootObjects, item); failed(s))
        return s;
    const auto found = readField<KALDBRootObject>(item);
    if (!isRootElement(found))
        return damagedChain(here, start);
    storage.rootElement = found;
    object = found;
    return Status::success;
}

void refreshRootElement(const KALDBRootObject& object) { chainStorage().rootElement = object; }

Status kaldbUpdateRootElement(PageNumber existing, PageNumber created)
{
    constexpr TraceSource here = chainSource(u"kaldbUpdateRootElement");
    KALDBRootObject element;
    if (Status s = kaldbGetRootEntry(element); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve root element");
    if (element.topPage == existing)
        element.topPage = created;
    if (element.firstPage == existing)
        element.firstPage = created;
    return kaldbUpdatePhysicalRootElement(element);
}

Status kaldbUpdatePhysicalRootElement(const KALDBRootObject& object)
{
    constexpr static TraceSource here = chainSource(u"kaldbUpdatePhysicalRootElement");
    PageNumber start = noPage;
    if (Status s = startPage(start); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve start page");

    KAL_TRACE(here, u"loading page %ld", start);
    ChainPage page{here, u"could not unload page"};
    if (Status s = page.load(rootShape(), LockType::write, start); failed(s))
        return KAL_TRACE(here, s, u"could not load page %ld", start);
    if (Status s = page.tree().update(&object, compareRootObjects); failed(s))
        return KAL_TRACE(here, s, u"could not update root entry");
    ignore(page.markDirty());
    refreshRootElement(object);
    return Status::success;
}

}  // namespace kaldb
