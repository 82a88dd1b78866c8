// The register: open addressing, linear probing, a power of two of slots of which at most half are in use. A removal
// closes the gap, so there are no tombstones and a search ends at the first free slot.
#include "kaldbvalue/live_blocks.h"

#include "common/memory.h"

#include <array>
#include <bit>
#include <chrono>
#include <span>
#include <utility>

namespace kaldb {
namespace {

constexpr char source[] = "./src/kaldbvalue";

class Register {
public:
    LiveBlock find(BlockHandle handle) const { return handle == noBlock ? LiveBlock{} : slots_[position(handle)]; }

    /// Makes room for one more block; false when there is no memory for it.
    bool reserve()
    {
        if (2 * (count_ + 1) <= slots_.size())
            return true;
        const std::size_t size = 2 * slots_.size();
        if (size > UINT32_MAX / sizeof(LiveBlock))
            return false;
        Memory memory = allocateMemory(static_cast<std::uint32_t>(size * sizeof(LiveBlock)), source);
        if (!memory)
            return false;
        const std::span<LiveBlock> old = std::exchange(slots_, {reinterpret_cast<LiveBlock*>(memory.get()), size});
        for (LiveBlock& slot : slots_)
            new (&slot) LiveBlock{};
        for (const LiveBlock& block : old)
            if (block.address != nullptr)
                slots_[position(block.handle)] = block;
        memory_ = std::move(memory);
        return true;
    }

    /// After `reserve`.
    LiveBlock add(std::byte* address, std::uint32_t size, const void* owner)
    {
        const BlockHandle handle = nextHandle();
        ++count_;
        return slots_[position(handle)] = {address, owner, size, handle};
    }

    void remove(BlockHandle handle)
    {
        const std::size_t mask = slots_.size() - 1;
        std::size_t gap = position(handle);
        for (std::size_t at = (gap + 1) & mask; slots_[at].address != nullptr; at = (at + 1) & mask) {
            // A block whose search passes the gap moves into it.
            if (((at - home(slots_[at].handle)) & mask) >= ((at - gap) & mask)) {
                slots_[gap] = slots_[at];
                gap = at;
            }
        }
        slots_[gap] = {};
        if (--count_ == 0 && memory_) {
            slots_ = few_;
            few_.fill({});
            memory_.reset();
        }
    }

private:
    /// Where the search for a handle starts: consecutive handles are spread by the golden ratio.
    std::size_t home(BlockHandle handle) const
    {
        return static_cast<std::uint32_t>(handle * 0x9E3779B9u) >> (32 - std::countr_zero(slots_.size()));
    }

    /// The handle's slot, or the free one where its search ends.
    std::size_t position(BlockHandle handle) const
    {
        std::size_t at = home(handle);
        while (slots_[at].address != nullptr && slots_[at].handle != handle)
            at = (at + 1) & (slots_.size() - 1);
        return at;
    }

    BlockHandle nextHandle()
    {
        do
            ++counter_;
        while (counter_ == noBlock || slots_[position(counter_)].address != nullptr);
        return counter_;
    }

    /// Differs from process to process: the clock, and where the system put the library.
    static BlockHandle anyStart()
    {
        auto mix = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        mix ^= reinterpret_cast<std::uintptr_t>(&source) * 0x9E3779B97F4A7C15u;
        mix = (mix ^ (mix >> 31)) * 0xBF58476D1CE4E5B9u;
        return static_cast<BlockHandle>(mix >> 32);
    }

    std::array<LiveBlock, 32> few_{};  // serves until more than half as many blocks live, without an allocation
    Memory memory_;
    std::span<LiveBlock> slots_ = few_;
    std::size_t count_ = 0;
    BlockHandle counter_ = anyStart();
};

/// Never destroyed: a program's own static objects may release their values at the very end.
Register& theRegister()
{
    alignas(Register) static std::byte place[sizeof(Register)];
    static Register* const blocks = new (place) Register;
    return *blocks;
}

}  // namespace

LiveBlock findBlock(BlockHandle handle) { return theRegister().find(handle); }

void freeBlock(BlockHandle handle, const void* owner)
{
    const LiveBlock block = findBlock(handle);
    if (block.address == nullptr || block.owner != owner)
        return;
    theRegister().remove(handle);
    kalMemFree(block.address);
}

NewBlock::NewBlock(const void* owner, std::uint32_t size, const char* file, std::uint32_t line)
{
    Memory memory = allocateMemory(size, file, line);
    if (memory && theRegister().reserve())
        block_ = theRegister().add(memory.release(), size, owner);
}

}  // namespace kaldb
