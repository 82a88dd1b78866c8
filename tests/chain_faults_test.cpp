// Chains under failing memory and files: whatever call fails at whatever moment, what was stored stays findable and
// nothing stays held.

#include "support/chain_shape.h"
#include "support/faults.h"

#include <map>
#include <random>

namespace {

using test::Database;
using test::Table;

/// Insertions and deletions that split, grow and remove pages. `kept` gets what must be there afterwards; a key whose
/// operation failed may be there or not.
struct Workload {
    std::map<std::int64_t, bool> certain;  // key: whether it must be there
    std::map<std::int64_t, KALDBID> ids;   // of those inserted with an identifier

    void run(Table& table)
    {
        std::mt19937 random{11};
        for (int step = 0; step < 160; ++step) {
            const std::int64_t key = static_cast<std::int64_t>(random() % 60);
            const bool remove = random() % 5 < 2;
            KALDBID id;
            kaldbIDZero(&id);
            const std::uint32_t status = remove ? table.remove(key) : table.insert(key, key, &id);
            ASSERT_TRUE(Database::holdsNothing()) << "step " << step;
            const auto known = certain.find(key);
            if (status == 0 && !remove)
                ids[key] = id;
            if (status == 0)
                certain[key] = !remove;
            else if (remove && status == test::notFound && known != certain.end())
                ASSERT_FALSE(known->second) << "key " << key << " lost at step " << step;
            else if (status != test::notFound && status != test::alreadyExists && known == certain.end())
                uncertain(key);
            else if (status != test::notFound && status != test::alreadyExists && known->second == remove)
                uncertain(key);
        }
    }

    void check(Table& table) const
    {
        std::size_t there = 0;
        for (const auto& [key, present] : certain) {
            test::Record found;
            ASSERT_EQ(table.find(key, &found), present ? 0U : test::notFound) << "key " << key;
            there += present ? 1 : 0;
            const bool stamped = present && ids.at(key).sequence != UINT64_MAX;
            if (stamped) {
                ASSERT_EQ(table.findByID(ids.at(key), found), 0U) << "key " << key;
                ASSERT_EQ(found.key, key);
            }
        }
        const std::vector<std::int64_t> all = table.allKeys();
        EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
        EXPECT_GE(all.size(), there);
        std::int64_t missing = static_cast<std::int64_t>(there);
        for (const std::int64_t key : all)
            missing -= certain.count(key) != 0 && certain.at(key) ? 1 : 0;
        EXPECT_EQ(missing, 0);
    }

private:
    void uncertain(std::int64_t key) { certain.erase(key); }
};

struct Sweep {
    std::uint32_t cacheBytes;
    const char* call;
    std::uint32_t status;
    bool forGood;
};

class ChainFaults : public testing::TestWithParam<Sweep> {};

TEST_P(ChainFaults, LoseNothingAndHoldNothing)
{
    const Sweep sweep = GetParam();
    const std::size_t blocks = faults::liveBlocks();
    const std::size_t files = faults::openFiles();
    unsigned runs = 0;
    bool struck = true;
    for (unsigned nth = 1; struck; nth += 1 + nth / 4, ++runs) {
        SCOPED_TRACE(std::string(sweep.call) + " " + std::to_string(nth));
        faults::reset();
        {
            Database database{sweep.cacheBytes};
            Table table{database, u"Faulty", 650, KALDB_CHAIN_GUID};
            Workload workload;
            faults::failAt(sweep.call, nth, sweep.status, sweep.forGood);
            workload.run(table);
            struck = faults::struck();
            faults::failAt(sweep.call, 0, 0);
            if (HasFatalFailure())
                return;
            workload.check(table);
            table.reopen(database);
            workload.check(table);
        }
        ASSERT_EQ(faults::liveBlocks(), blocks);
        ASSERT_EQ(faults::openFiles(), files);
    }
    EXPECT_GT(runs, 3U);
}

INSTANTIATE_TEST_SUITE_P(Calls, ChainFaults,
                         testing::Values(Sweep{0, "kalFileRead", KAL_IO_ERROR, false},
                                         Sweep{0, "kalFileWrite", KAL_NO_SPACE, false},
                                         Sweep{0, "kalFileWrite", KAL_NO_SPACE, true},
                                         Sweep{0, faults::anyCall, KAL_IO_ERROR, false},
                                         Sweep{8 << 10, faults::anyCall, KAL_IO_ERROR, false}));

}  // namespace
