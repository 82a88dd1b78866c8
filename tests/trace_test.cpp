// Traces: what a build with them writes, and that a build without evaluates nothing.

#include "common/trace.h"

#include <gtest/gtest.h>

namespace {

constexpr kaldb::TraceSource here{u"kaldbchain: ", u"dbchainRelink"};

int evaluated = 0;
uint32_t page()
{
    ++evaluated;
    return 7;
}

TEST(Trace, ReleaseBuildEvaluatesNoArgumentAndStillYieldsTheStatus)
{
    evaluated = 0;
    KAL_TRACE(here, u"looking at page %ld", page());
    const kaldb::Status status = KAL_TRACE(here, kaldb::Status::lockConflict, u"could not load page %ld", page());
    EXPECT_EQ(status, kaldb::Status::lockConflict);
    EXPECT_EQ(evaluated, kaldb::tracing ? 2 : 0);
}

}  // namespace
