// Values out of line: a binary table whose slots hold the pieces of long values.
//
//   location --> | block 0 | --> | block 1 | --> ... --> | last block | --> no page
//
// Every block but the last holds `blockSize` bytes; each carries the size of the whole value. Blocks are written from
// the value's end to its start, so each is written once, with its successor known. What is read back may be
// damaged: its blocks must add up to the value's size exactly where the list ends.
#pragma once

#include "common/status.h"
#include "common/trace.h"
#include "kaldbvalue/live_blocks.h"

#include <kaldb/table.h>
#include <kaldb/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace kaldb {

/// The texts given to an operation report a table operation that failed: `remainder` the short last block, `numbered`
/// one of the full blocks, counted from 1, and `text` any block.
class ValueStore {
public:
    constexpr ValueStore(const char16_t* tableName, std::uint32_t blockSize) : name_(tableName), blockSize_(blockSize)
    {
    }

    /// Opens the table and makes it first where the file has none. Nothing is done when it is open already.
    Status open(KALDBDatabase* db, const TraceSource& here);
    /// `notOpen` when there is nothing to close.
    Status close();
    bool isOpen() const { return table_ != nullptr; }

    /// Writes `page` and `index` of `location` on success only. After a failure the blocks written so far stay in the
    /// table and nothing refers to them.
    Status insert(std::span<const std::byte> value, KALDBIndexRecord& location, const TraceSource& here,
                  TraceText<> remainder, TraceText<std::uint32_t> numbered);

    /// Reads the value of `size` bytes (1 or more) at `location` into a new block for `owner`. Nothing is allocated
    /// before the first block has shown that the stored value has that size.
    Status read(const KALDBIndexRecord& location, std::uint32_t size, const void* owner, const char* file,
                LiveBlock& result, const TraceSource& here, TraceText<> text);

    /// Deletes every block of the value of `size` bytes at `location`. `failure` when the list is damaged; what lies
    /// before the damage is deleted then.
    Status remove(const KALDBIndexRecord& location, std::uint32_t size, const TraceSource& here, TraceText<> text);

private:
    Status create(KALDBDatabase* db) const;

    const char16_t* name_;
    std::uint32_t blockSize_;
    KALDBTable* table_ = nullptr;
};

}  // namespace kaldb
