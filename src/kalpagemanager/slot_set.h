// An ordered set of slot numbers whose smallest member is found in a handful of steps, however many slots there are.
//
// Level 0 has a bit for each slot; a bit of the level above tells whether a word of the level below has any bit set.
// Four levels of 64-bit words are enough for 16 million slots.
#pragma once

#include "common/memory.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace kaldb {

class SlotSet {
public:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    /// An empty set of slots below `slots`; false when there is no memory.
    bool allocate(std::uint32_t slots, const char* file)
    {
        std::uint32_t total = 0;
        levels_ = 0;
        for (std::uint32_t bits = slots; levels_ == 0 || bits > 1; ++levels_) {
            bits = (bits + 63) / 64;
            start_[levels_] = total;
            total += bits;
        }
        start_[levels_] = total;
        const std::uint32_t bytes = total * static_cast<std::uint32_t>(sizeof(std::uint64_t));
        memory_ = allocateMemory(bytes, file);
        if (memory_)
            std::memset(memory_.get(), 0, bytes);
        return memory_ != nullptr;
    }

    bool contains(std::uint32_t slot) const { return (word(0, slot / 64) >> (slot % 64) & 1) != 0; }

    void insert(std::uint32_t slot)
    {
        for (std::uint32_t level = 0; level < levels_; ++level, slot /= 64) {
            std::uint64_t& bits = word(level, slot / 64);
            const bool wasEmpty = bits == 0;
            bits |= bit(slot);
            if (!wasEmpty)
                return;
        }
    }

    void erase(std::uint32_t slot)
    {
        for (std::uint32_t level = 0; level < levels_; ++level, slot /= 64) {
            std::uint64_t& bits = word(level, slot / 64);
            bits &= ~bit(slot);
            if (bits != 0)
                return;
        }
    }

    std::uint32_t first() const { return next(0); }

    /// The smallest member that is `from` or greater.
    std::uint32_t next(std::uint32_t from) const
    {
        for (std::uint32_t level = 0; level < levels_; ++level) {
            const std::uint32_t index = from / 64;
            if (index >= start_[level + 1] - start_[level])
                return none;
            const std::uint64_t bits = word(level, index) & ~std::uint64_t{0} << (from % 64);
            if (bits != 0)
                return descend(level, index * 64 + lowest(bits));
            from = index + 1;
        }
        return none;
    }

private:
    static constexpr std::uint32_t maxLevels = 4;

    static std::uint64_t bit(std::uint32_t slot) { return std::uint64_t{1} << (slot % 64); }
    static std::uint32_t lowest(std::uint64_t bits) { return static_cast<std::uint32_t>(std::countr_zero(bits)); }

    std::uint64_t& word(std::uint32_t level, std::uint32_t index) const
    {
        return reinterpret_cast<std::uint64_t*>(memory_.get())[start_[level] + index];
    }
    std::uint32_t descend(std::uint32_t level, std::uint32_t at) const
    {
        while (level > 0)
            at = at * 64 + lowest(word(--level, at));
        return at;
    }

    Memory memory_;
    std::uint32_t levels_ = 0;
    std::array<std::uint32_t, maxLevels + 1> start_{};  // first word of each level; one more for the end
};

}  // namespace kaldb
