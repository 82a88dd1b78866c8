// The first pages of a binary chain along its list, and the first of them that may have room.
//
// Pages join the list right before the last one and are never taken out, so their numbers ascend; only the page that
// the chain was created with stays last. A list that is otherwise is none of ours and not remembered.
#pragma once

#include "common/memory.h"
#include "common/page_number.h"

#include <algorithm>
#include <cstddef>

namespace kaldb {

class PageList {
public:
    void drop() { *this = PageList{}; }
    std::size_t size() const { return pages_.size(); }
    PageNumber operator[](std::size_t place) const { return pages_[place]; }

    /// Pages before this place are full.
    std::size_t room() const { return room_; }
    void setRoom(std::size_t place) { room_ = place; }
    /// A piece was deleted from the page.
    void noteRoom(PageNumber page)
    {
        const auto end = pages_.begin() + static_cast<std::ptrdiff_t>(ascending_);
        auto found = std::lower_bound(pages_.begin(), end, page);
        if (found == end || *found != page)
            found = std::find(end, pages_.end(), page);
        room_ = std::min(room_, static_cast<std::size_t>(found - pages_.begin()));
    }

    // The next two throw `std::bad_alloc`, and are false when the list is not in the order that it must have.

    /// The next page along the list.
    bool append(PageNumber page)
    {
        if (ascending_ < pages_.size())
            return false;
        const bool ascends = pages_.empty() || pages_.back() < page;
        pages_.push_back(page);
        ascending_ += ascends ? 1 : 0;
        return true;
    }
    /// A new page came before the last one, which is known.
    bool insertBeforeLast(PageNumber page)
    {
        const PageNumber last = pages_.back();
        pages_.pop_back();
        ascending_ = std::min(ascending_, pages_.size());
        return append(page) && append(last);
    }

private:
    Vector<PageNumber> pages_;
    std::size_t ascending_ = 0;  // so many pages from the first on; one more may follow
    std::size_t room_ = 0;
};

}  // namespace kaldb
