// Searching and changing the order of a chain's pages.

#include "kaldbchain/page_order.h"

#include "common/prefetch.h"
#include "kaldbchain/internal.h"

#include <algorithm>
#include <cstring>

namespace kaldb {

namespace {

constexpr std::size_t memoryShare = 8;       // of the pages, at most one part in so many
constexpr std::size_t bytesBesideCopy = 32;  // page number, spare places, the block's own share
constexpr std::size_t spareEntries = 4;
constexpr unsigned stepsAhead = 3;

bool passed(PageOrder::Passes passes, std::int32_t order)
{
    return passes == PageOrder::Passes::notAbove ? order >= 0 : order > 0;
}

/// A look at a page that the operation may hold with any lock.
class PageGlance {
public:
    Status smallest(const KALDBChain& chain, PageNumber number, std::byte*& item)
    {
        if (Status s = page_.loadLocked(chain, number); failed(s))
            return s;
        SlotIndex index = noSlot;
        return page_.tree().smallest(item, index);
    }

private:
    static constexpr TraceSource here = chainSource(u"PageOrder");

    ChainPage page_{here, u"could not unload page %ld"};
};

}  // namespace

void PageOrder::begin(const KALDBChain& chain)
{
    drop();
    compare_ = chain.callbacks.compare;
    recordSize_ = chain.recordSize;
    copies_ = recordSize_ + bytesBesideCopy <= pageSize / memoryShare;
}

bool PageOrder::next(Place& place) const
{
    if (++place.entry < blocks_[place.block].pages.size())
        return true;
    place = {place.block + 1, 0};
    return place.block < blocks_.size();
}

bool PageOrder::previous(Place& place) const
{
    if (place.entry > 0) {
        --place.entry;
        return true;
    }
    if (place.block == 0)
        return false;
    --place.block;
    place.entry = static_cast<std::uint32_t>(blocks_[place.block].pages.size() - 1);
    return true;
}

Status PageOrder::find(const KALDBChain& chain, const void* key, Compare compare, Passes passes, Place& place)
{
    if (findWhereLastFound(key, compare, passes, place))
        return Status::success;
    std::size_t begin = 0;  // blocks before it are passed, those from `end` on are not
    for (std::size_t end = blocks_.size(); begin < end;) {
        const std::size_t middle = begin + (end - begin) / 2;
        if (passed(passes, compare(key, first(middle))))
            begin = middle + 1;
        else
            end = middle;
    }
    if (begin == 0)
        return Status::notFound;
    place = {static_cast<std::uint32_t>(begin - 1), 0};
    if (Status s = findInBlock(chain, key, compare, passes, place); failed(s))
        return s;
    stays_ = place == last_;
    last_ = place;
    return Status::success;
}

/// Ascending insertions find the same page many times.
bool PageOrder::findWhereLastFound(const void* key, Compare compare, Passes passes, Place& place) const
{
    if (!stays_ || !copies_)
        return false;
    const auto entryPassed = [&](Place at) {
        return passed(passes, compare(key, blocks_[at.block].records.data() + at.entry * recordSize_));
    };
    if (!entryPassed(last_))
        return false;
    place = last_;
    Place following = last_;
    return !next(following) || !entryPassed(following);
}

/// Asks for the records that the next steps may compare with, so that they need not wait for one another.
void PageOrder::prefetchAhead(const Block& block, std::size_t begin, std::size_t end) const
{
    constexpr std::size_t parts = std::size_t{1} << stepsAhead;
    for (std::size_t part = 1; part < parts; ++part)
        prefetch(block.records.data() + (begin + part * (end - begin) / parts) * recordSize_,
                 std::min(recordSize_, cacheLine));
}

/// From the block's first entry, which the key passes, to the last.
Status PageOrder::findInBlock(const KALDBChain& chain, const void* key, Compare compare, Passes passes, Place& place)
{
    Block& block = blocks_[place.block];
    std::size_t begin = 1;
    std::size_t end = block.pages.size();
    for (unsigned step = 0; begin < end; ++step) {
        if (copies_ && step % stepsAhead == 0)
            prefetchAhead(block, begin, end);
        const std::size_t middle = begin + (end - begin) / 2;
        PageGlance glance;
        std::byte* smallest = nullptr;
        if (copies_)
            smallest = block.records.data() + middle * recordSize_;
        else if (Status s = glance.smallest(chain, block.pages[middle], smallest); failed(s))
            return s;
        if (passed(passes, compare(key, smallest)))
            begin = middle + 1;
        else
            end = middle;
    }
    place.entry = static_cast<std::uint32_t>(begin - 1);
    return Status::success;
}

bool PageOrder::locate(const KALDBChain& chain, const ChainPage& page, Place& place)
{
    place = last_;
    if (this->page(place) == page.number())
        return true;
    std::byte* smallest = nullptr;
    SlotIndex index = noSlot;
    return ok(page.tree().smallest(smallest, index)) && ok(find(chain, smallest, compare_, Passes::notAbove, place)) &&
           this->page(place) == page.number();
}

void PageOrder::append(PageNumber page, const std::byte* smallest)
{
    if (blocks_.empty() || blocks_.back().pages.size() == blockLimit()) {
        addBlock(blocks_.size());
        setFirst(blocks_.size() - 1, smallest);
    }
    insertIntoBlock(blocks_.back(), blocks_.back().pages.size(), page, smallest);
}

Status PageOrder::insert(const KALDBChain& chain, Place place, PageNumber page, const std::byte* smallest)
{
    // What belongs between two blocks goes to the end of the first.
    if (place.block > 0 && place.entry == 0)
        place = {place.block - 1, static_cast<std::uint32_t>(blocks_[place.block - 1].pages.size())};
    if (blocks_[place.block].pages.size() == blockLimit()) {
        if (place.entry == blockLimit()) {
            // Keys that arrive in ascending order fill their block and leave it full.
            place = {place.block + 1, 0};
            addBlock(place.block);
        } else {
            if (Status s = splitBlock(chain, place.block); failed(s))
                return s;
            const auto left = static_cast<std::uint32_t>(blocks_[place.block].pages.size());
            if (place.entry > left)
                place = {place.block + 1, place.entry - left};
        }
    }
    insertIntoBlock(blocks_[place.block], place.entry, page, smallest);
    if (place.entry == 0)
        setFirst(place.block, smallest);
    last_ = place;
    return Status::success;
}

void PageOrder::setSmallest(Place place, const std::byte* smallest)
{
    if (copies_)
        std::memcpy(blocks_[place.block].records.data() + place.entry * recordSize_, smallest, recordSize_);
    if (place.entry == 0)
        setFirst(place.block, smallest);
}

Status PageOrder::erase(const KALDBChain& chain, Place place)
{
    last_ = {};
    stays_ = false;
    Block& block = blocks_[place.block];
    block.pages.erase(block.pages.begin() + place.entry);
    if (copies_) {
        const auto begin = block.records.begin() + static_cast<std::ptrdiff_t>(place.entry * recordSize_);
        block.records.erase(begin, begin + static_cast<std::ptrdiff_t>(recordSize_));
    }
    if (block.pages.empty()) {
        blocks_.erase(blocks_.begin() + place.block);
        const auto begin = firsts_.begin() + static_cast<std::ptrdiff_t>(place.block * recordSize_);
        firsts_.erase(begin, begin + static_cast<std::ptrdiff_t>(recordSize_));
        return Status::success;
    }
    return place.entry == 0 ? renewFirst(chain, place.block) : Status::success;
}

/// The block lost its first entry.
Status PageOrder::renewFirst(const KALDBChain& chain, std::size_t block)
{
    if (copies_) {
        setFirst(block, blocks_[block].records.data());
        return Status::success;
    }
    PageGlance glance;
    std::byte* smallest = nullptr;
    if (Status s = glance.smallest(chain, blocks_[block].pages.front(), smallest); failed(s))
        return s;
    setFirst(block, smallest);
    return Status::success;
}

void PageOrder::setFirst(std::size_t block, const std::byte* smallest)
{
    std::memcpy(firsts_.data() + block * recordSize_, smallest, recordSize_);
}

/// An empty block, whose first record its first entry will set.
void PageOrder::addBlock(std::size_t at)
{
    if (firsts_.size() == firsts_.capacity())
        firsts_.reserve(firsts_.size() + (blocks_.size() / 8 + spareEntries) * recordSize_);
    blocks_.emplace(blocks_.begin() + static_cast<std::ptrdiff_t>(at));
    firsts_.insert(firsts_.begin() + static_cast<std::ptrdiff_t>(at * recordSize_), recordSize_, std::byte{});
}

void PageOrder::insertIntoBlock(Block& block, std::size_t entry, PageNumber page, const std::byte* smallest) const
{
    if (block.pages.size() == block.pages.capacity()) {
        block.pages.reserve(block.pages.size() + spareEntries);
        if (copies_)
            block.records.reserve((block.pages.size() + spareEntries) * recordSize_);
    }
    block.pages.insert(block.pages.begin() + static_cast<std::ptrdiff_t>(entry), page);
    if (copies_)
        block.records.insert(block.records.begin() + static_cast<std::ptrdiff_t>(entry * recordSize_), smallest,
                             smallest + recordSize_);
}

/// Moves the greater half of a full block to a new one behind it.
Status PageOrder::splitBlock(const KALDBChain& chain, std::size_t index)
{
    addBlock(index + 1);
    Block& left = blocks_[index];
    Block& right = blocks_[index + 1];
    const std::size_t stay = left.pages.size() / 2;
    right.pages.assign(left.pages.begin() + static_cast<std::ptrdiff_t>(stay), left.pages.end());
    left.pages.resize(stay);
    left.pages.shrink_to_fit();
    if (copies_) {
        right.records.assign(left.records.begin() + static_cast<std::ptrdiff_t>(stay * recordSize_),
                             left.records.end());
        left.records.resize(stay * recordSize_);
        left.records.shrink_to_fit();
    }
    return renewFirst(chain, index + 1);
}

}  // namespace kaldb
