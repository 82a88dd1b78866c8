// Putting a new page into the place of an existing one, in the tree and in the root object.
//
//        parent                 parent
//          |                      |
//       existing      =>       created
//       /      \               /      \    (prev to the left, next to the right)
//    child    ...          child   existing
//                                      \_ ...

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"

namespace kaldb {

namespace {

constexpr TraceSource here = chainSource(u"dbchainRelink");

void traceLinks([[maybe_unused]] const char16_t* what, [[maybe_unused]] const ChainPage& page)
{
    KAL_TRACE(here, u"%s page %ld, parent %ld, prev %ld, next %ld", what, page.links().page, page.links().parent,
              page.links().prev, page.links().next);
}

/// Replaces a page number in the chain's root object.
Status relinkRootObject(const KALDBChain& chain, KALDBRootObject& object, PageNumber from, PageNumber to)
{
    if (chain.kind == KALDB_OBJECT_ROOT) {
        const Status status = kaldbUpdateRootElement(from, to);
        return failed(status) ? KAL_TRACE(here, status, u"could not update root element") : status;
    }
    if (object.topPage == from)
        object.topPage = to;
    if (object.firstPage == from)
        object.firstPage = to;
    if (Status s = kaldbUpdateRootObject(object, chain.state); failed(s))
        return KAL_TRACE(here, s, u"could not update root object for chain '%s'", chain.name);
    return Status::success;
}

/// Loads the parent, which must know the page.
Status loadParent(const KALDBChain& chain, PageNumber parentPage, PageNumber page, ChainPage& parent)
{
    KAL_TRACE(here, u"loading parent page %ld", parentPage);
    if (Status s = parent.load(chain, LockType::write, parentPage); failed(s))
        return KAL_TRACE(here, s, u"could not load parent page %ld", parentPage);
    const KALDBPageLinks& links = parent.links();
    return links.prev == page || links.next == page ? Status::success : damagedChain(here, parentPage);
}

Status loadChild(const KALDBChain& chain, PageNumber childPage, PageNumber page, ChainPage& child)
{
    KAL_TRACE(here, u"loading child page %ld", childPage);
    if (Status s = child.load(chain, LockType::write, childPage); failed(s))
        return KAL_TRACE(here, s, u"could not load child page %ld", childPage);
    return child.links().parent == page ? Status::success : damagedChain(here, childPage);
}

/// In the parent, the link that held one page's number holds the other's; `prev` is looked at first.
void relinkParent(const ChainPage& parent, PageNumber from, PageNumber to)
{
    KALDBPageLinks& links = parent.links();
    (links.prev == from ? links.prev : links.next) = to;
    traceLinks(u"parent", parent);
    if (Status s = parent.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set parent page %ld as dirty", parent.number());
}

void relinkChild(const ChainPage& child, PageNumber to)
{
    child.links().parent = to;
    traceLinks(u"child", child);
    if (Status s = child.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set child page %ld as dirty", child.number());
}

Status loadNeighbours(const KALDBChain& chain, const KALDBPageLinks& links, PageNumber page, ChainPage& parent,
                      ChainPage& child)
{
    if (links.parent != noPage)
        if (Status s = loadParent(chain, links.parent, page, parent); failed(s))
            return s;
    return links.prev == noPage ? Status::success : loadChild(chain, links.prev, page, child);
}

/// The steps outside the two pages; a failure has changed nothing. The top page has no parent: beside the two pages,
/// two are held at most.
Status relinkNeighbours(const KALDBChain& chain, const KALDBPageLinks& links, PageNumber from, PageNumber to)
{
    KALDBRootObject object;
    if (Status s = rootObjectOf(chain, object); failed(s))
        return KAL_TRACE(here, s, u"could not get root object for chain '%s'", chain.name);
    const bool top = object.topPage == from;
    // The tree below the top hangs together without it, so a list of tables that holds its page stops no split there.
    if (!top)
        ignore(relinkRootObject(chain, object, from, to));
    ChainPage parent{here, u"could not unload parent page %ld"};
    ChainPage child{here, u"could not unload child page %ld"};
    Status status = loadNeighbours(chain, links, from, parent, child);
    if (failed(status) && !top)
        ignore(relinkRootObject(chain, object, to, from));
    if (ok(status) && top)
        status = relinkRootObject(chain, object, from, to);
    if (failed(status))
        return status;
    if (parent)
        relinkParent(parent, from, to);
    if (child)
        relinkChild(child, to);
    return Status::success;
}

}  // namespace

Status dbchainCheckRootObject(const KALDBChain& chain)
{
    // The root chain's own entry is rewritten in place, on the start page.
    if (chain.kind == KALDB_OBJECT_ROOT) {
        ChainPage start{here, u"could not unload page %ld"};
        return start.load(chain, LockType::write, chainStorage().pageManager->startPage());
    }
    KALDBChain* root = nullptr;
    if (Status s = kaldbGetRootChain(root); failed(s))
        return s;
    const KALDBRootObject key = rootObjectKey(chain.kind, chain.name);
    ChainPage page{here, u"could not unload page %ld"};
    SlotIndex slot = noSlot;
    if (ok(loadRootObjectInPlace(chain.state, key, page, slot)))
        return Status::success;
    return dbchainFindUpdatePage(*root, &key, page);
}

Status dbchainCheckParent(const KALDBChain& chain, PageNumber parent, PageNumber child)
{
    ChainPage page{here, u"could not unload parent page %ld"};
    if (Status s = page.load(chain, LockType::write, parent); failed(s))
        return s;
    return page.links().prev == child || page.links().next == child ? Status::success : damagedChain(here, parent);
}

Status dbchainCheckChild(const KALDBChain& chain, PageNumber child, PageNumber parent)
{
    ChainPage page{here, u"could not unload child page %ld"};
    if (Status s = page.load(chain, LockType::write, child); failed(s))
        return s;
    return page.links().parent == parent ? Status::success : damagedChain(here, child);
}

Status dbchainCheckRelink(const KALDBChain& chain, const ChainPage& existing)
{
    const KALDBPageLinks& links = existing.links();
    KALDBRootObject object;
    if (Status s = rootObjectOf(chain, object); failed(s))
        return s;
    const bool top = object.topPage == existing.number();
    // The new page, and beside it what changes together: a walk in whose callback this runs keeps a page too.
    const int together = (links.parent != noPage) + (links.prev != noPage) + top;
    if (Status s = chainStorage().pageManager->canHold(together < 2 ? 2 : 3); failed(s))
        return s;
    if (top)
        if (Status s = dbchainCheckRootObject(chain); failed(s))
            return s;
    if (links.parent != noPage)
        if (Status s = dbchainCheckParent(chain, links.parent, existing.number()); failed(s))
            return s;
    return links.prev == noPage ? Status::success : dbchainCheckChild(chain, links.prev, existing.number());
}

Status dbchainRelink(const KALDBChain& chain, ChainPage& existing, ChainPage& created)
{
    const KALDBPageLinks before = existing.links();
    created.links() = {
        .page = created.number(), .parent = before.parent, .prev = before.prev, .next = existing.number()};
    traceLinks(u"new", created);
    existing.links().parent = created.number();
    existing.links().prev = noPage;
    traceLinks(u"old", existing);
    if (Status s = existing.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set existing page %ld dirty", existing.number());
    if (Status s = created.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set new page %ld dirty", created.number());

    const Status status = relinkNeighbours(chain, before, existing.number(), created.number());
    if (failed(status))
        existing.links() = before;
    return status;
}

}  // namespace kaldb
