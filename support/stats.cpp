// Statistics: a set of named counters.
#include "status.h"

#include <memory>
#include <string>
#include <vector>

using kallib::guarded;
using kallib::Status;

struct KALStats {
    struct Counter {
        std::u16string name;
        uint64_t value = 0;
    };
    std::vector<Counter> counters;
};

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
        *stats = created.release();
        return Status::success;
    });
}

extern "C" uint32_t kalStatsDeinitialize(KALStats* stats)
{
    if (stats == nullptr)
        return KAL_INVALID_ARGUMENT;
    delete stats;
    return KAL_SUCCESS;
}
