#include "case_folding.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace kallib {
namespace {

// Every `step`-th code point from `first` to `last` folds to the one at `distance`. In ascending order.
struct Run {
    char32_t first;
    char32_t last;
    char32_t step;
    std::int32_t distance;
};

constexpr Run runs[] = {
#include "case_folding.inc"
};

}  // namespace

char32_t foldCase(char32_t point)
{
    if (point < 0x80)
        return point >= U'A' && point <= U'Z' ? point + (U'a' - U'A') : point;
    const Run* run = std::lower_bound(std::begin(runs), std::end(runs), point,
                                      [](const Run& candidate, char32_t sought) { return candidate.last < sought; });
    if (run == std::end(runs) || point < run->first || (point - run->first) % run->step != 0)
        return point;
    return point + static_cast<char32_t>(run->distance);
}

}  // namespace kallib
