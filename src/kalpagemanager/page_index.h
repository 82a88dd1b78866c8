// From page number to cache slot: open addressing, linear probing, at most half full.
//
// Page numbers are dense: eight neighbours share a cache line, and a multiplication spreads the lines. Removal shifts
// the entries behind the gap back, so that no probe ever meets a grave.
#pragma once

#include "common/memory.h"
#include "common/page_number.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

namespace kaldb {

class PageIndex {
public:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    /// Room for so many pages; false when there is no memory, with the index as it was. A cache that is hardly used
    /// keeps a small one, which is made in no time.
    bool reserve(std::uint32_t pages, const char* file)
    {
        if (2 * pages <= capacity())
            return true;
        PageIndex larger;
        if (!larger.allocate(std::max(std::bit_ceil(2 * pages), smallest), file))
            return false;
        for (std::uint32_t at = 0; at < capacity(); ++at)
            if (entries()[at].slot != none)
                larger.insert(entries()[at].page, entries()[at].slot);
        *this = std::move(larger);
        return true;
    }

    std::uint32_t find(PageNumber page) const
    {
        for (std::uint32_t at = home(page);; at = (at + 1) & mask_) {
            const Entry& entry = entries()[at];
            if (entry.slot == none || entry.page == page)
                return entry.slot;
        }
    }

    /// The page must not be there yet.
    void insert(PageNumber page, std::uint32_t slot)
    {
        std::uint32_t at = home(page);
        while (entries()[at].slot != none)
            at = (at + 1) & mask_;
        entries()[at] = {page, slot};
    }

    /// The page must be there.
    void erase(PageNumber page)
    {
        std::uint32_t gap = home(page);
        while (entries()[gap].page != page)
            gap = (gap + 1) & mask_;
        for (std::uint32_t at = (gap + 1) & mask_; entries()[at].slot != none; at = (at + 1) & mask_) {
            // An entry may fill the gap unless its home lies between the gap and itself.
            const std::uint32_t fromHome = (at - home(entries()[at].page)) & mask_;
            if (fromHome < ((at - gap) & mask_))
                continue;
            entries()[gap] = entries()[at];
            gap = at;
        }
        entries()[gap] = {noPage, none};
    }

private:
    static constexpr std::uint32_t neighbourBits = 3;
    static constexpr std::uint32_t smallest = 1024;

    struct Entry {
        PageNumber page;
        std::uint32_t slot;
    };

    bool allocate(std::uint32_t capacity, const char* file)
    {
        const std::uint32_t bytes = capacity * static_cast<std::uint32_t>(sizeof(Entry));
        memory_ = allocateMemory(bytes, file);
        if (!memory_)
            return false;
        std::memset(memory_.get(), 0xFF, bytes);  // every slot `none`
        mask_ = capacity - 1;
        shift_ = 32 + neighbourBits - static_cast<std::uint32_t>(std::countr_zero(capacity));
        return true;
    }
    std::uint32_t capacity() const { return memory_ ? mask_ + 1 : 0; }
    Entry* entries() const { return reinterpret_cast<Entry*>(memory_.get()); }
    std::uint32_t home(PageNumber page) const
    {
        constexpr std::uint32_t place = (1u << neighbourBits) - 1;
        return ((page >> neighbourBits) * 2654435769u >> shift_) << neighbourBits | (page & place);
    }

    Memory memory_;
    std::uint32_t mask_ = 0;
    std::uint32_t shift_ = 0;
};

}  // namespace kaldb
