// Blocks are checked where they enter, in `BlockWalk`; what follows a walk may trust them.
#include "kaldbvalue/value_store.h"

#include "kaldbroot/catalogue.h"

#include <algorithm>
#include <array>
#include <string>

namespace kaldb {
namespace {

KALDBIndexRecord locatorOf(std::uint32_t page, std::uint16_t index)
{
    KALDBIndexRecord locator = emptyLocator();
    locator.page = page;
    locator.index = index;
    return locator;
}

bool samePlace(const KALDBIndexRecord& a, const KALDBIndexRecord& b) { return a.page == b.page && a.index == b.index; }

// Follows the list of one value. A block is sound when it belongs to a value of the right size, holds 1 to `blockSize`
// bytes and no more than remain, and is the last one exactly when nothing remains after it.
class BlockWalk {
public:
    BlockWalk(KALDBTable* table, std::uint32_t blockSize, const KALDBIndexRecord& location, std::uint32_t size)
        : table_(table), blockSize_(blockSize), size_(size), remaining_(size),
          next_(locatorOf(location.page, location.index))
    {
    }

    bool done() const { return remaining_ == 0; }
    std::span<const std::byte> bytes() const { return {buffer_.data(), length_}; }
    const KALDBIndexRecord& place() const { return place_; }

    /// `failure` for a block that is not sound, else the table's status.
    Status next()
    {
        const bool first = remaining_ == size_;
        place_ = next_;
        KALDBBinaryRecord block{buffer_.data(), 0, blockSize_, KALDB_NO_PAGE, KALDB_NO_SLOT};
        const Status s = asStatus(kaldbBinaryTableGetRecord(table_, &place_, &block));
        if (failed(s))  // a block that names a place outside the table is damaged; a value's location is the caller's
            return s == Status::notFound && !first ? Status::failure : s;
        if (block.totalSize != size_ || block.length == 0 || block.length > std::min(blockSize_, remaining_))
            return Status::failure;
        if ((block.length == remaining_) != (block.nextPage == KALDB_NO_PAGE))
            return Status::failure;
        length_ = block.length;
        remaining_ -= length_;
        next_ = locatorOf(block.nextPage, block.nextIndex);
        return !done() && cycle() ? Status::failure : Status::success;
    }

private:
    /// Short blocks in a ring could keep a walk over a huge size busy: a mark that is moved to the place reached after
    /// 1, 2, 4, ... blocks is met again after at most three rounds.
    bool cycle()
    {
        if (samePlace(next_, mark_))
            return true;
        if (++steps_ == limit_) {
            mark_ = place_;
            limit_ *= 2;
        }
        return false;
    }

    KALDBTable* table_;
    std::uint32_t blockSize_;
    std::uint32_t size_;
    std::uint32_t remaining_;
    std::uint32_t length_ = 0;
    std::uint64_t steps_ = 0;
    std::uint64_t limit_ = 1;
    KALDBIndexRecord next_;
    KALDBIndexRecord place_ = emptyLocator();
    KALDBIndexRecord mark_ = emptyLocator();
    std::array<std::byte, 2048> buffer_;  // a page: the table of a foreign file may have larger slots than ours
};

}  // namespace

Status ValueStore::open(KALDBDatabase* db, const TraceSource& here)
{
    if (isOpen())
        return Status::success;
    KALDBRootObject object;
    const Status found = kaldbGetRootObject(KALDB_OBJECT_TABLE, name_, object);
    if (failed(found) && found != Status::notFound)
        return KAL_TRACE(here, found, u"problem retrieving data for '%s' table", name_);
    if (failed(found))
        if (Status s = create(db); failed(s))
            return KAL_TRACE(here, s, u"could not create '%s' table", name_);

    const KALDBChainCallbacks callbacks{};
    if (Status s = asStatus(kaldbTableOpen(db, name_, &callbacks, &table_)); failed(s)) {
        table_ = nullptr;
        return KAL_TRACE(here, s, u"could not open '%s' table", name_);
    }
    KAL_TRACE(here, u"successfully opened '%s' table", name_);
    return Status::success;
}

Status ValueStore::create(KALDBDatabase* db) const
{
    KALDBTableInfo info{};
    std::char_traits<char16_t>::copy(info.name, name_, std::char_traits<char16_t>::length(name_));
    info.recordSize = blockSize_;
    info.flags = KALDB_CHAIN_BINARY | KALDB_CHAIN_SYSTEM;
    info.reserved1 = 1;
    return asStatus(kaldbTableCreate(db, &info));
}

Status ValueStore::close()
{
    if (!isOpen())
        return Status::notOpen;
    const Status s = asStatus(kaldbTableClose(table_));
    table_ = nullptr;
    return s;
}

Status ValueStore::insert(std::span<const std::byte> value, KALDBIndexRecord& location, const TraceSource& here,
                          TraceText<> remainder, TraceText<std::uint32_t> numbered)
{
    const auto size = static_cast<std::uint32_t>(value.size());
    std::uint32_t offset = size;
    KALDBIndexRecord place = emptyLocator();
    const auto insertBlock = [&](std::uint32_t length) {
        offset -= length;
        // The descriptor serves reading too, so its pointer is not const; an insertion only reads.
        const KALDBBinaryRecord block{const_cast<std::byte*>(value.data()) + offset, size, length, place.page,
                                      place.index};
        return asStatus(kaldbBinaryTableInsertRecord(table_, &block, &place));
    };

    if (const std::uint32_t rest = size % blockSize_; rest > 0)
        if (Status s = insertBlock(rest); failed(s))
            return KAL_TRACE(here, s, remainder);
    for (std::uint32_t full = size / blockSize_; full > 0; --full)
        if (Status s = insertBlock(blockSize_); failed(s))
            return KAL_TRACE(here, s, numbered, full);
    location.page = place.page;
    location.index = place.index;
    return Status::success;
}

Status ValueStore::read(const KALDBIndexRecord& location, std::uint32_t size, const void* owner, const char* file,
                        LiveBlock& result, const TraceSource& here, TraceText<> text)
{
    BlockWalk walk{table_, blockSize_, location, size};
    if (Status s = walk.next(); failed(s))
        return KAL_TRACE(here, s, text);
    NewBlock block{owner, size, file};
    if (block.address() == nullptr)
        return Status::outOfMemory;

    std::byte* cursor = block.address();
    for (;;) {
        cursor = std::copy(walk.bytes().begin(), walk.bytes().end(), cursor);
        if (walk.done())
            break;
        if (Status s = walk.next(); failed(s))
            return KAL_TRACE(here, s, text);
    }
    result = block.handOver();
    return Status::success;
}

Status ValueStore::remove(const KALDBIndexRecord& location, std::uint32_t size, const TraceSource& here,
                          TraceText<> text)
{
    BlockWalk walk{table_, blockSize_, location, size};
    while (!walk.done()) {
        Status s = walk.next();
        if (ok(s))
            s = asStatus(kaldbBinaryTableDeleteRecord(table_, &walk.place()));
        if (failed(s))
            return KAL_TRACE(here, s, text);
    }
    return Status::success;
}

}  // namespace kaldb
