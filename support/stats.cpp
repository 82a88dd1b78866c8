// Statistics: a set of named counters.
#include "live_list.h"
#include "status.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

using kallib::guarded;
using kallib::Status;

struct KALStats {
    struct Counter {
        std::u16string name;
        uint64_t value = 0;
    };
    std::vector<Counter> counters;
    KALStats* next = nullptr;
};

namespace {
kallib::LiveList<KALStats> sets;
}

extern "C" uint32_t kalStatsInitialize(uint32_t count, const char16_t* const* names, KALStats** stats)
{
    return guarded([&] {
        if (stats == nullptr)
            return Status::invalidArgument;
        *stats = nullptr;
        if (count != 0 && names == nullptr)
            return Status::invalidArgument;
        auto created = std::make_unique<KALStats>();
        created->counters.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            if (names[i] == nullptr)
                return Status::invalidArgument;
            created->counters.push_back({names[i]});
        }
        *stats = sets.add(std::move(created));
        return Status::success;
    });
}

extern "C" uint32_t kalStatsDeinitialize(KALStats* stats)
{
    return sets.remove(stats) == nullptr ? KAL_INVALID_ARGUMENT : KAL_SUCCESS;
}
