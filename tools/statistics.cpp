#include "statistics.h"

#include <algorithm>

namespace kaldb::tool {

ChainStatistics gatherStatistics(const PageFile& file, const Chain& chain, std::vector<bool>* met)
{
    ChainStatistics gathered;
    const ChainShape shape = chain.shape();
    const auto visit = [&](const VisitedPage& visited) {
        ++gathered.pages;
        gathered.depth = std::max(gathered.depth, visited.depth);
        if (shape.binary) {
            const auto page = PiecePage::open(visited.bytes);
            gathered.records += page->header().count;
            gathered.places += page->maxCount();
        } else {
            const auto page = RecordPage::open(visited.bytes);
            gathered.records += page->count();
            gathered.places += page->maxCount();
        }
        return true;
    };
    walkPages(
        file, shape, visit, [&](const Damage&) { ++gathered.damages; }, {}, met);
    return gathered;
}

}  // namespace kaldb::tool
