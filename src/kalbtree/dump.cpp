// The slots of a page as traces.

#include "kalbtree/internal.h"

namespace kaldb {

void btreeDump(KALBTreePage* page)
{
    if constexpr (!tracing)
        return;
    KAL_TRACE(verbatim, u"\n");
    if (page == nullptr) {
        KAL_TRACE(verbatim, u"Not dumping NULL btree page\n");
    } else if (page->count == 0) {
        KAL_TRACE(verbatim, u"BTree contains no items\n");
    } else {
        KAL_TRACE(verbatim, u"BTree contains %ld item(s)\n", page->count);
        KAL_TRACE(verbatim, u" Iterating btree\n");
        for (std::uint32_t i = 0; i < page->maxCount; ++i) {
            const KALBTreeSlot& slot = btreeSlots(page)[i];
            KAL_TRACE(verbatim, u"  Index %ld\n", i);
            KAL_TRACE(verbatim, u"    Prev Index %d\n", slot.prev);
            KAL_TRACE(verbatim, u"    Next Index %d\n", slot.next);
            KAL_TRACE(verbatim, u"    Parent Index %d\n", slot.parent);
            KAL_TRACE(verbatim, u"    Flags 0x%08X\n", slot.flags);
        }
    }
    KAL_TRACE(verbatim, u"\n");
}

}  // namespace kaldb
