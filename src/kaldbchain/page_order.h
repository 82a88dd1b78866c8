// The pages of a chain in key order, each with its smallest record.
//
// The tree of pages is never rebalanced, so a descent may pass as many pages as the chain has. This order finds a page
// by comparing with smallest records instead. It lives in memory only, and its owner keeps it exact: the record of an
// entry is the page's smallest at every instant.
//
//   firsts_   smallest record of block 0 | of block 1 | ...
//   blocks_   (page numbers, smallest records)  (page numbers, smallest records)  ...
//
// Where copies of the records would take more than an eighth of the pages, a block keeps page numbers only, and its
// records are read in their pages.
#pragma once

#include "common/memory.h"
#include "common/page_number.h"
#include "common/status.h"
#include "kalbtree/btree_view.h"

#include <cstddef>
#include <cstdint>

struct KALDBChain;

namespace kaldb {

class ChainPage;

class PageOrder {
public:
    /// A page's place in the order; a change of the order makes it stale.
    struct Place {
        std::uint32_t block = 0;
        std::uint32_t entry = 0;
        bool operator==(const Place&) const = default;
    };
    /// Which entries a key passes: those that it is not below, or only those that it is beyond.
    enum class Passes { notAbove, below };

    /// An empty order for the chain's records, by its compare function.
    void begin(const KALDBChain& chain);
    void drop() { *this = PageOrder{}; }
    bool empty() const { return blocks_.empty(); }
    Compare orderedBy() const { return compare_; }

    /// The last entry that the key passes; `notFound` when it passes none. Another failure is one of reading a page.
    Status find(const KALDBChain& chain, const void* key, Compare compare, Passes passes, Place& place);
    bool next(Place& place) const;
    bool previous(Place& place) const;
    /// The page's own place; false when it has none. A page without records must be the one that was found last.
    bool locate(const KALDBChain& chain, const ChainPage& page, Place& place);
    /// Saves the search when the page at the place is located next.
    void noteFound(Place place) { last_ = place; }
    PageNumber page(Place place) const { return blocks_[place.block].pages[place.entry]; }

    void setPage(Place place, PageNumber page) { blocks_[place.block].pages[place.entry] = page; }
    // What changes the order may fail to read a page, or throws `std::bad_alloc`: the order must be dropped then.

    void append(PageNumber page, const std::byte* smallest);
    /// The entry comes to stand at `place`, before the one that stands there.
    Status insert(const KALDBChain& chain, Place place, PageNumber page, const std::byte* smallest);
    void setSmallest(Place place, const std::byte* smallest);
    Status erase(const KALDBChain& chain, Place place);

private:
    struct Block {
        Vector<PageNumber> pages;
        Vector<std::byte> records;  // as many, where copies are kept
    };

    std::size_t blockLimit() const { return copies_ ? 64 : 32; }
    const std::byte* first(std::size_t block) const { return firsts_.data() + block * recordSize_; }
    void setFirst(std::size_t block, const std::byte* smallest);
    Status renewFirst(const KALDBChain& chain, std::size_t block);

    bool findWhereLastFound(const void* key, Compare compare, Passes passes, Place& place) const;
    Status findInBlock(const KALDBChain& chain, const void* key, Compare compare, Passes passes, Place& place);
    void prefetchAhead(const Block& block, std::size_t begin, std::size_t end) const;
    void addBlock(std::size_t at);
    void insertIntoBlock(Block& block, std::size_t entry, PageNumber page, const std::byte* smallest) const;
    Status splitBlock(const KALDBChain& chain, std::size_t index);

    Compare compare_ = nullptr;
    std::size_t recordSize_ = 0;
    bool copies_ = false;
    Vector<Block> blocks_;
    Vector<std::byte> firsts_;
    Place last_;          // where the last search ended
    bool stays_ = false;  // it ended there twice in a row, so the next one is likely to
};

}  // namespace kaldb
