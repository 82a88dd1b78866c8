#include "findings.h"

#include <algorithm>

namespace kaldb::tool {

void Findings::add(Finding finding)
{
    if (finding.page == noPage || known_.emplace(finding.page, finding.slot, finding.code).second)
        list_.push_back(std::move(finding));
}

void Findings::sort()
{
    // What concerns the whole file comes first, what concerns a whole page after its slots.
    const auto key = [](const Finding& f) { return std::tuple{f.page + 1, f.slot}; };
    std::stable_sort(list_.begin(), list_.end(), [&](const Finding& a, const Finding& b) { return key(a) < key(b); });
}

std::size_t Findings::count(Severity severity) const
{
    return static_cast<std::size_t>(
        std::count_if(list_.begin(), list_.end(), [&](const Finding& f) { return f.severity == severity; }));
}

}  // namespace kaldb::tool
