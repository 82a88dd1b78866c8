// The cache: a block of page slots, and what finds one of them without a walk over all.
//
//   free       flag "unused", page number none; formatted
//   clean      holds a page as the file has it
//   dirty      holds a page that was changed since it was last written
//
// A slot's header is the truth about its page, state and references; the index and the sets mirror it, and every change
// of page number, flags or reference count goes through here. Slots are used from the lowest up, so those from
// `touched_` on have never been: they count as free, and their memory is formatted when the first of them is needed.
#pragma once

#include "common/memory.h"
#include "common/page_number.h"
#include "kalpagemanager/layout.h"
#include "kalpagemanager/page_index.h"
#include "kalpagemanager/slot_set.h"

#include <cstddef>
#include <cstdint>

namespace kaldb {

class SlotCache {
public:
    static constexpr std::uint32_t none = SlotSet::none;

    /// False when there is no memory for that many slots.
    bool allocate(std::uint32_t slots);

    std::uint32_t size() const { return size_; }
    /// Counts the changes of what the slots hold.
    std::uint64_t contents() const { return contents_; }
    /// Slots below were used at least once; the others are as formatting leaves them.
    std::uint32_t touched() const { return touched_; }

    /// `pmFindMemPage`: the slot that holds the page, or none.
    std::uint32_t find(PageNumber page) const { return size_ == 0 ? none : index_.find(page); }
    /// The lowest free slot, else the lowest without references, or none.
    std::uint32_t choose();

    /// Whether that many pages can be brought in at once. A small cache takes its spare slots into use for them, for
    /// good.
    bool makeRoomFor(std::uint32_t pages);

    const KALPageHeader& header(std::uint32_t slot) const { return *reinterpret_cast<const KALPageHeader*>(at(slot)); }
    PageNumber pageOf(std::uint32_t slot) const { return slot < touched_ ? header(slot).page : noPage; }
    std::byte* page(std::uint32_t slot) { return at(slot); }
    const std::byte* page(std::uint32_t slot) const { return at(slot); }
    std::byte* body(std::uint32_t slot) { return at(slot) + pageHeaderLength; }
    /// The slot whose page has this body, or none for any other pointer and for a free slot.
    std::uint32_t slotOf(const std::byte* body) const;

    bool isFree(std::uint32_t slot) const { return slot >= touched_ || free_.contains(slot); }
    bool isDirty(std::uint32_t slot) const { return slot < touched_ && dirty_.contains(slot); }
    bool isReferenced(std::uint32_t slot) const { return !isFree(slot) && !unreferenced_.contains(slot); }
    std::uint32_t nextDirty(std::uint32_t from) const { return size_ == 0 ? none : dirty_.next(from); }

    /// Takes the slot's page away, so that its bytes may be overwritten: the slot is nothing until `hold...` or
    /// `format` says what it is. A free slot may be taken as well.
    void clear(std::uint32_t slot);
    /// `pmFormatPage`: a cleared slot becomes free.
    void format(std::uint32_t slot);
    /// A cleared slot into which the page was read; nothing that the file says of references and flags is kept.
    void holdLoaded(std::uint32_t slot, PageNumber page);
    /// A cleared slot becomes a new page, dirty, with one reference. The body stays as it is.
    void holdCreated(std::uint32_t slot, PageNumber page, std::uint32_t time);

    void reference(std::uint32_t slot);
    /// Does nothing to a slot without references.
    void dereference(std::uint32_t slot);
    void resetReferences(std::uint32_t slot);
    void markDirty(std::uint32_t slot);
    /// Clears the flag in the header, which is written with the page. `written` must follow a success, `markDirty` a
    /// failure.
    void beginWrite(std::uint32_t slot) { mutableHeader(slot).flags &= ~pageDirty; }
    void written(std::uint32_t slot) { dirty_.erase(slot); }

private:
    std::byte* at(std::uint32_t slot) const { return memory_.get() + std::size_t{slot} * pageSize; }
    KALPageHeader& mutableHeader(std::uint32_t slot) { return *reinterpret_cast<KALPageHeader*>(at(slot)); }

    /// What a change of several pages may need beside the pages that its caller holds.
    static constexpr std::uint32_t spareSlots = 3;
    static constexpr std::uint32_t smallCache = 64;

    bool hasRoomFor(std::uint32_t pages) const;

    Memory memory_;
    std::uint32_t size_ = 0;
    std::uint32_t sizeWithSpare_ = 0;
    std::uint32_t touched_ = 0;
    std::uint64_t contents_ = 0;
    PageIndex index_;
    SlotSet free_;
    SlotSet unreferenced_;  // of those that are not free
    SlotSet dirty_;
};

/// A page as formatting leaves it: zeros behind a header that names no page.
void pmFormatPage(std::byte* page);

}  // namespace kaldb
