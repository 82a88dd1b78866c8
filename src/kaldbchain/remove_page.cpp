// Taking an emptied page out of the tree of pages.
//
//   no child, one child:              two children (M: the last page along `next` below L):
//
//      parent            parent           parent               parent
//        |                 |                |                    |
//        P       =>      child              P        =>          L
//        |                                 / \                    \_ ...
//      child                              L   R                       \_ M
//                                          \_ ...                         \_ R
//                                              \_ M
//
// A removal either happens or leaves a tree with the same records: what it will write is checked before the first
// change, and each step loads all of its pages before it changes one. With two children the first step hangs R below M,
// which leaves P, an empty page, with one child. Removed pages stay in the file; nothing refers to them.

#include "kaldbchain/internal.h"
#include "kaldbchain/ordered.h"
#include "kaldbroot/catalogue.h"

namespace kaldb {

namespace {

constexpr TraceSource orphan = chainSource(u"dbchainOrphanPage");
constexpr TraceSource join = chainSource(u"kaldbchainJoinPageParentToChild");
constexpr TraceSource promote = chainSource(u"dbchainPromoteLMP");

/// What stands above and below a page that goes: its parent, if it has one, and the child that takes its place.
struct Neighbourhood {
    ChainPage parent{join, u"failed to unload parent page"};
    ChainPage child{join, u"failed to unload child page"};
};

/// Loads both, and makes sure that they know the page.
Status loadNeighbourhood(const KALDBChain& chain, const ChainPage& page, PageNumber child, Neighbourhood& around)
{
    const PageNumber parent = page.links().parent;
    if (parent != noPage) {
        if (Status s = around.parent.load(chain, LockType::write, parent); failed(s))
            return KAL_TRACE(join, s, u"could not load parent page");
        const KALDBPageLinks& links = around.parent.links();
        if (links.next != page.number() && links.prev != page.number())
            return KAL_TRACE(join, Status::notFound, u"failed dicern link from parent page");
    }
    if (child == noPage)
        return Status::success;
    if (Status s = around.child.load(chain, LockType::write, child); failed(s))
        return s;
    return around.child.links().parent == page.number() ? Status::success : damagedChain(join, child);
}

/// The child takes the page's place below the page's parent.
void kaldbchainJoinPageParentToChild(const ChainPage& page, PageNumber child, Neighbourhood& around)
{
    if (child != noPage) {
        around.child.links().parent = page.links().parent;
        if (Status s = around.child.markDirty(); failed(s))
            KAL_TRACE(join, s, u"failed mark child as dirty");
    }
    if (page.links().parent == noPage)
        return;
    KALDBPageLinks& links = around.parent.links();
    (links.next == page.number() ? links.next : links.prev) = child;
    if (Status s = around.parent.markDirty(); failed(s))
        KAL_TRACE(join, s, u"failed mark parentpage as dirty");
}

/// The page with the greatest records of the `prev` subtree.
Status dbchainGetLMPPage(const KALDBChain& chain, const ChainPage& page, PageNumber& found)
{
    constexpr static TraceSource here = chainSource(u"dbchainGetLMPPage");
    if (page.links().prev == noPage)
        return Status::notApplicable;
    if (ok(neighbourByOrder(chain, 0, page, Neighbour::previous, found)))
        return Status::success;
    WalkBound bound;
    for (PageNumber following = page.links().prev; following != noPage;) {
        if (!bound.step())
            return damagedChain(here, following);
        ChainPage visited{here, u"failed to unload previous page %ld"};
        if (Status s = visited.load(chain, LockType::read, following); failed(s)) {
            if (following == page.links().prev)
                KAL_TRACE(verbatim, u"kaldbchain: dbchainGetLMPPage() failed to load previous page %ld\n", following);
            else
                KAL_TRACE(verbatim, u"kaldbchain: dbchainGetLMPPage() failed to LMP next page %ld\n", following);
            return s;
        }
        found = following;
        following = visited.links().next;
    }
    return Status::success;
}

/// Hangs the page's `next` subtree below the page `last`, with the greatest records of the `prev` subtree.
Status hangBelowLast(const KALDBChain& chain, const ChainPage& page, PageNumber last)
{
    const PageNumber next = page.links().next;
    ChainPage lastPage{promote, u"failed to unload LMP page %ld"};
    if (Status s = lastPage.load(chain, LockType::write, last); failed(s)) {
        KAL_TRACE(verbatim, u"kaldbchain: dbchainPromoteLMP() failed to open the LMP page %ld\n", last);
        return s;
    }
    ChainPage nextPage{promote, u"failed to unload next page %ld"};
    if (Status s = nextPage.load(chain, LockType::write, next); failed(s))
        return s;
    nextPage.links().parent = last;
    lastPage.links().next = next;
    page.links().next = noPage;
    if (Status s = lastPage.markDirty(); failed(s))
        KAL_TRACE(verbatim, s, u"kaldbchain: dbchainPromoteLMP() failed to dirty LMP page %ld\n", last);
    if (Status s = nextPage.markDirty(); failed(s))
        KAL_TRACE(verbatim, s, u"kaldbchain: dbchainPromoteLMP() failed to dirty next page %ld\n", next);
    return Status::success;
}

/// What a removal is going to do, found out before it does anything.
struct Removal {
    PageNumber replacement = noPage;  // the child that takes the page's place
    PageNumber last = noPage;         // with two children: the page below which `next` is hung
    bool changesRoot = false;
    KALDBRootObject root{};  // as it will be
};

/// The leftmost page of the tree as it will be without the page.
Status leftmostWithout(const KALDBChain& chain, const ChainPage& page, PageNumber top, PageNumber replacement,
                       PageNumber& leftmost)
{
    if (ok(firstPageByOrder(chain, 0, &page, leftmost)))
        return Status::success;
    WalkBound bound;
    for (PageNumber current = top == page.number() ? replacement : top; current != noPage;) {
        if (!bound.step())
            return damagedChain(orphan, current);
        ChainPage visited{orphan, u"could not unload page %ld"};
        if (Status s = visited.load(chain, LockType::read, current); failed(s))
            return s;
        leftmost = current;
        current = visited.links().prev == page.number() ? replacement : visited.links().prev;
    }
    return Status::success;
}

Status planRootObject(const KALDBChain& chain, const ChainPage& page, Removal& removal)
{
    if (Status s = rootObjectOf(chain, removal.root); failed(s))
        return s;
    const PageNumber top = removal.root.topPage;
    if (page.links().parent == noPage) {
        // A page without a parent that is not the top was removed before.
        if (top != page.number())
            return Status::notFound;
        removal.root.topPage = removal.replacement;
        removal.changesRoot = true;
    }
    if (removal.root.firstPage == page.number()) {
        removal.changesRoot = true;
        if (Status s = leftmostWithout(chain, page, top, removal.replacement, removal.root.firstPage); failed(s))
            return s;
    }
    return removal.changesRoot ? dbchainCheckRootObject(chain) : Status::success;
}

/// Fills the plan and makes sure that every page of it can be read and write-locked.
Status planRemoval(const KALDBChain& chain, const ChainPage& page, Removal& removal)
{
    const KALDBPageLinks& links = page.links();
    if (Status s = chainStorage().pageManager->canHold(3); failed(s))
        return s;
    removal.replacement = links.prev != noPage ? links.prev : links.next;
    if (links.parent != noPage) {
        ChainPage parent{orphan, u"could not unload page %ld"};
        if (Status s = parent.load(chain, LockType::write, links.parent); failed(s))
            return KAL_TRACE(join, s, u"could not load parent page");
        if (parent.links().prev != page.number() && parent.links().next != page.number())
            return KAL_TRACE(join, Status::notFound, u"failed dicern link from parent page");
    }
    for (const PageNumber child : {links.prev, links.next})
        if (child != noPage)
            if (Status s = dbchainCheckChild(chain, child, page.number()); failed(s))
                return s;
    if (links.prev != noPage && links.next != noPage) {
        if (Status s = dbchainGetLMPPage(chain, page, removal.last); failed(s)) {
            KAL_TRACE(verbatim, u"kaldbchain: dbchainPromoteLMP() failed to identify the LMP page");
            return s;
        }
        ChainPage last{promote, u"failed to unload LMP page %ld"};
        if (Status s = last.load(chain, LockType::write, removal.last); failed(s)) {
            KAL_TRACE(verbatim, u"kaldbchain: dbchainPromoteLMP() failed to open the LMP page %ld\n", removal.last);
            return s;
        }
    }
    return planRootObject(chain, page, removal);
}

/// The root object is the last that can fail, and the first that changes.
Status replacePage(const KALDBChain& chain, const ChainPage& page, Removal& removal)
{
    Neighbourhood around;
    if (Status s = loadNeighbourhood(chain, page, removal.replacement, around); failed(s))
        return s;
    if (removal.changesRoot)
        if (Status s = kaldbUpdateRootObject(removal.root, chain.state); failed(s))
            return s;
    kaldbchainJoinPageParentToChild(page, removal.replacement, around);
    return Status::success;
}

/// The `prev` subtree takes the page's place, the `next` subtree goes below the greatest records of it.
Status dbchainPromoteLMP(const KALDBChain& chain, ChainPage& page, Removal& removal)
{
    if (Status s = hangBelowLast(chain, page, removal.last); failed(s))
        return s;
    const Status status = replacePage(chain, page, removal);
    if (ok(status))
        return status;
    KAL_TRACE(verbatim, u"kaldbchain: dbchainPromoteLMP() failed to promote left subtree");
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(promote, s, u"failed to dirty page %ld", page.number());
    return status;
}

}  // namespace

Status dbchainOrphanPage(const KALDBChain& chain, ChainPage& page)
{
    KAL_TRACE(orphan, u"deleting page %ld", page.number());
    const KALDBPageLinks& links = page.links();
    if (links.parent == noPage && links.prev == noPage && links.next == noPage)
        return Status::success;  // the only page of the tree stays
    if (links.next == noPage)
        KAL_TRACE(verbatim, u"kaldbchain: dbchainOrhpanPage() page %ld\n has no next page", page.number());
    else if (links.prev == noPage)
        KAL_TRACE(verbatim, u"kaldbchain: dbchainOrphanPage() page %ld\n has no prev page", page.number());
    else
        KAL_TRACE(verbatim, u"kaldbchain: dbchainOrphanPage() page %ld\n has two children", page.number());
    Removal removal;
    if (Status s = planRemoval(chain, page, removal); failed(s))
        return s;
    return removal.last == noPage ? replacePage(chain, page, removal) : dbchainPromoteLMP(chain, page, removal);
}

void dbchainRetryRemoval(const KALDBChain& chain, const EmptyPageMet& empty)
{
    if (empty.page == noPage)
        return;
    ChainPage page{orphan, u"could not unload page %ld"};
    if (failed(page.load(chain, LockType::write, empty.page)) || page.tree().count() > 0)
        return;
    if (ok(dbchainOrphanPage(chain, page)))
        ignore(page.markDirty());
}

}  // namespace kaldb
