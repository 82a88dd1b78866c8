// The memory that values own outside their structure: a process-wide register of live blocks.
//
// A value lives in the caller's memory. It is copied byte for byte, written into records, and read back later, by
// another process perhaps, so whatever it holds about its block can be stale or wrong. A value therefore names its
// block by a 32-bit handle, and only the register says whether the handle names a live block, how large that is and
// which structure allocated it. Handles come from a counter that starts anywhere and does not come back to a value
// before 2^32 allocations, so one from an old record is not taken for a new block.
//
// Finding, adding and removing take constant time. Callers serialise all calls, as everywhere in the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace kaldb {

using BlockHandle = std::uint32_t;
inline constexpr BlockHandle noBlock = 0;

struct LiveBlock {
    std::byte* address = nullptr;  // null: not a live block
    const void* owner = nullptr;   // the structure that allocated it, compared only
    std::uint32_t size = 0;
    BlockHandle handle = noBlock;
};

/// The live block of that handle, whoever owns it, or one without an address.
LiveBlock findBlock(BlockHandle handle);

/// Frees the block if `owner` is the structure that allocated it, else does nothing.
void freeBlock(BlockHandle handle, const void* owner);

/// The same for a block whose place in the structure is taken by another one. A handle in bytes out of an old record
/// can be the very one that the new block got; that one stays.
inline void freeReplacedBlock(BlockHandle earlier, BlockHandle later, const void* owner)
{
    if (earlier != later)
        freeBlock(earlier, owner);
}

/// A block that no value names yet; freed at the end of the scope unless it was handed over.
class NewBlock {
public:
    /// Contents are not initialised. `file` is the module's path without extension. Check `address()` for null.
    NewBlock(const void* owner, std::uint32_t size, const char* file, std::uint32_t line = __builtin_LINE());
    ~NewBlock() { freeBlock(block_.handle, block_.owner); }
    NewBlock(const NewBlock&) = delete;
    NewBlock& operator=(const NewBlock&) = delete;

    std::byte* address() const { return block_.address; }
    std::uint32_t size() const { return block_.size; }
    /// From now on the owner's own bytes name the block.
    LiveBlock handOver() { return std::exchange(block_, {}); }

private:
    LiveBlock block_;
};

}  // namespace kaldb
