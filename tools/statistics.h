// How a chain fills its pages.
#pragma once

#include "catalogue.h"

#include <cstdint>
#include <vector>

namespace kaldb::tool {

struct ChainStatistics {
    std::uint64_t records = 0;  // records, or pieces in use
    std::uint64_t places = 0;   // what its pages could hold
    std::uint64_t pages = 0;
    std::uint32_t depth = 0;  // pages on the longest way from the top
    std::uint64_t damages = 0;

    /// From 0 to 1.
    double fill() const { return places == 0 ? 0 : static_cast<double>(records) / static_cast<double>(places); }
};

/// Bits of the pages that it meets are set in `met`, if given.
ChainStatistics gatherStatistics(const PageFile& file, const Chain& chain, std::vector<bool>* met = nullptr);

}  // namespace kaldb::tool
