// Moving half of a page into another, item by item: each is in exactly one of the two pages.

#include "kalbtree/internal.h"

namespace kaldb {

Status BTreeView::split(BTreeView destination, bool fromSmallest, Compare compare) const
{
    static constexpr TraceSource here = btreeSource(u"kalBTreeSplit");
    for (std::uint32_t left = count() / 2; left > 0; --left) {
        const SlotIndex current = fromSmallest ? page_->smallest : page_->largest;
        std::byte* source = nullptr;
        SlotIndex index = noSlot;
        if (Status s = itemAtEnd(current, source, index); failed(s))
            return s;
        SlotIndex inserted = noSlot;
        if (Status s = destination.insert(source, compare, inserted); failed(s))
            return KAL_TRACE(here, s, u"could not insert item");
        if (Status s = btreeDeleteNode(BTreeParts{page_}, index, compare); failed(s))
            return KAL_TRACE(here, s, u"could not delete item");
    }
    return Status::success;
}

}  // namespace kaldb
