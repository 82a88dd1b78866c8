// The page tracker against its request table.

#include <kaldb/page_tracker.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

struct Lock {
    uint32_t type = 0;
    uint32_t count = 0;
};

class PageTracker : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(kalPageTrackerInitialize(20, 0, &tracker), 0u); }
    void TearDown() override { EXPECT_EQ(kalPageTrackerDeinitialize(tracker), 0u); }

    uint32_t lock(uint32_t page, uint32_t type) { return kalPageTrackerLockPage(tracker, page, type); }
    bool isLocked(uint32_t page)
    {
        uint32_t locked = 7;
        EXPECT_EQ(kalPageTrackerIsPageLocked(tracker, page, &locked), 0u);
        return locked == 1;
    }
    void expectLock(uint32_t page, Lock expected)
    {
        Lock found{7, 7};
        const uint32_t status = expected.count == 0 ? 1 : 0;
        EXPECT_EQ(kalPageTrackerGetPageLockType(tracker, page, &found.type), status);
        EXPECT_EQ(kalPageTrackerGetPageLockCount(tracker, page, &found.count), status);
        EXPECT_EQ(isLocked(page), expected.count > 0);
        if (expected.count == 0)
            expected = {7, 7};  // no record: the results stay as they were
        EXPECT_EQ(found.type, expected.type);
        EXPECT_EQ(found.count, expected.count);
    }

    KALPageTracker* tracker = nullptr;
};

// request, type before -> type after, or refused
constexpr uint32_t refused = 9;
constexpr uint32_t table[4][4] = {
    {0, 1, 2, 3},              // none: releases
    {1, 1, refused, 3},        // read
    {2, refused, 2, 3},        // write
    {3, refused, refused, 3},  // read/write
};

TEST_F(PageTracker, EverySequenceOfSixRequestsFollowsTheTable)
{
    const uint32_t page = 5;
    for (uint32_t sequence = 0; sequence < 5 * 5 * 5 * 5 * 5 * 5; ++sequence) {
        Lock model;
        for (uint32_t step = 0, rest = sequence; step < 6; ++step, rest /= 5) {
            const uint32_t request = rest % 5;
            uint32_t expected = 0;
            if (request == 4)
                expected = 27;
            else if (table[request][model.type] == refused)
                expected = 18;
            else if (request != 0)
                model = {table[request][model.type], model.count + 1};
            else if (model.count > 0 && --model.count == 0)
                model = {};
            ASSERT_EQ(lock(page, request), expected) << "sequence " << sequence << ", step " << step;
        }
        ASSERT_NO_FATAL_FAILURE(expectLock(page, model));
        for (; model.count > 0; --model.count)
            ASSERT_EQ(kalPageTrackerUnlockPage(tracker, page), 0u);
        ASSERT_EQ(kalPageTrackerUnlockPage(tracker, page), 16u);
    }
}

TEST_F(PageTracker, TwentyPagesFitAndRequestsThatTakeNothingLeaveNoRecord)
{
    EXPECT_EQ(lock(99, 0), 0u);
    EXPECT_EQ(lock(99, 4), 27u);
    EXPECT_EQ(lock(0xFFFFFFFF, 1), 4u);
    EXPECT_FALSE(isLocked(99));
    EXPECT_FALSE(isLocked(0xFFFFFFFF));
    for (uint32_t page = 0; page < 20; ++page)
        ASSERT_EQ(lock(page, 1), 0u);
    EXPECT_EQ(lock(99, 1), 12u);
    EXPECT_EQ(lock(99, 4), 12u);  // the search for a record comes first
    EXPECT_EQ(lock(99, 0), 0u);
    EXPECT_EQ(lock(19, 1), 0u);
    expectLock(19, {1, 2});

    EXPECT_EQ(kalPageTrackerUnlockPage(tracker, 3), 0u);  // a gap among the records
    expectLock(3, {});
    expectLock(19, {1, 2});
    EXPECT_EQ(lock(99, 3), 0u);
    expectLock(99, {3, 1});
}

}  // namespace
