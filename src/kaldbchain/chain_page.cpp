// Loading a page of a chain and measuring it once, before anything in it is used.

#include "kaldbchain/chain_page.h"

#include "kaldbchain/internal.h"

#include <cstring>

namespace kaldb {

Status ChainPage::load(const KALDBChain& chain, LockType lock, PageNumber page)
{
    if (Status s = hold_.load(*chainStorage().pageManager, lock, page); failed(s))
        return s;
    if (ok(check(chain)) && linksAreSound())
        return Status::success;
    ignore(hold_.release());
    return damagedChain(*source_, page);
}

Status ChainPage::loadLocked(const KALDBChain& chain, PageNumber page)
{
    if (Status s = hold_.reference(*chainStorage().pageManager, page); failed(s))
        return s;
    if (ok(check(chain)) && linksAreSound())
        return Status::success;
    ignore(hold_.release());
    return damagedChain(*source_, page);
}

Status ChainPage::loadByLocator(const KALDBChain& chain, LockType lock, PageNumber page)
{
    if (page >= chainStorage().pageManager->pageCount())
        return Status::notFound;
    if (Status s = hold_.load(*chainStorage().pageManager, lock, page); failed(s))
        return s;
    const char* typeName = chain.binary() ? "BPG" : "BTR";
    constexpr std::size_t typeNameOffset = offsetof(KALBTreePage, typeName);
    constexpr std::size_t itemSizeOffset = offsetof(KALBTreePage, itemSize);
    static_assert(typeNameOffset == offsetof(KALDBBinaryPage, typeName) &&
                  itemSizeOffset == offsetof(KALDBBinaryPage, slotDataSize));
    if (std::memcmp(typedPage() + typeNameOffset, typeName, sizeof KALBTreePage::typeName) != 0 ||
        readField<std::uint32_t>(typedPage(), itemSizeOffset) != chain.recordSize) {
        ignore(hold_.release());
        return Status::notFound;
    }
    if (ok(check(chain)) && linksAreSound())
        return Status::success;
    ignore(hold_.release());
    return damagedChain(*source_, page);
}

Status ChainPage::create(LockType lock)
{
    if (Status s = hold_.create(*chainStorage().pageManager, lock); failed(s))
        return s;
    links() = {.page = number(), .parent = noPage, .prev = noPage, .next = noPage};
    return Status::success;
}

Status ChainPage::format(const KALDBChain& chain)
{
    std::uint32_t size = 0;
    if (Status s = typedPageFormatSize(chain.recordSize, chain.binary(), size); failed(s))
        return s;
    if (chain.binary()) {
        BinaryView view;
        return BinaryView::format(typedPage(), size, chain.recordSize, view);
    }
    BTreeView view;
    return BTreeView::format(typedPage(), size, chain.recordSize, view);
}

Status ChainPage::leaveLock()
{
    const Status status = chainStorage().pageManager->unreference(hold_.body());
    hold_.detach();
    return status;
}

Status ChainPage::check(const KALDBChain& chain) const
{
    const std::span<std::byte> area{typedPage(), typedPageSize};
    if (chain.binary()) {
        BinaryView view;
        return BinaryView::open(area, chain.recordSize, view);
    }
    BTreeView view;
    return BTreeView::open(area, chain.recordSize, view);
}

bool ChainPage::linksAreSound() const
{
    const PageNumber pages = chainStorage().pageManager->pageCount();
    const auto sound = [pages](PageNumber link) { return link == noPage || link < pages; };
    const KALDBPageLinks& found = links();
    return found.page == number() && sound(found.parent) && sound(found.prev) && sound(found.next);
}

}  // namespace kaldb
