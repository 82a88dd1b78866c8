// How a chain grows and shrinks, against a simulation that keeps its pages as sorted lists of keys.

#include "support/chain_shape.h"

#include <functional>
#include <map>
#include <random>
#include <set>

namespace {

using test::Database;
using test::shape;
using test::Table;

constexpr std::uint32_t none = 0xFFFFFFFF;

/// The rules of growth and removal, as plainly as they can be said.
class Simulation {
public:
    Simulation(std::uint32_t firstPage, std::uint32_t capacity)
        : top_(firstPage), first_(firstPage), next_(firstPage + 1), capacity_(capacity)
    {
        pages_[firstPage] = {};
    }

    void insert(std::int64_t key)
    {
        for (std::uint32_t at = top_;;) {
            Page& page = pages_[at];
            const bool before = !page.keys.empty() && key < *page.keys.begin();
            const bool after = !page.keys.empty() && key > *page.keys.rbegin();
            if (before || after) {
                std::uint32_t& child = before ? page.prev : page.next;
                if (child != none) {
                    at = child;
                    continue;
                }
                if (page.keys.size() < 3 * (capacity_ / 4)) {
                    page.keys.insert(key);
                } else {
                    child = next_;
                    pages_[next_++] = {at, none, none, {key}};
                }
            } else if (page.keys.size() < capacity_) {
                page.keys.insert(key);
            } else {
                split(at);
                Page& rest = pages_[at];
                (key < *rest.keys.begin() ? pages_[rest.parent] : rest).keys.insert(key);
            }
            return;
        }
    }

    void remove(std::int64_t key)
    {
        for (auto& [number, page] : pages_) {
            if (page.keys.erase(key) == 0 || !page.keys.empty())
                continue;
            return takeOut(number);
        }
    }

    std::string text() const
    {
        std::string text = "top " + std::to_string(top_) + " first " + std::to_string(first_) + "\n";
        show(top_, text);
        return text;
    }

private:
    struct Page {
        std::uint32_t parent = none, prev = none, next = none;
        std::set<std::int64_t> keys;
    };

    /// The smaller half goes to a new page, which takes the old one's place.
    void split(std::uint32_t old)
    {
        const std::uint32_t made = next_++;
        Page& page = pages_[old];
        Page& half = pages_[made];
        for (std::size_t left = page.keys.size() / 2; left > 0; --left)
            half.keys.insert(page.keys.extract(page.keys.begin()));
        half.parent = page.parent;
        half.prev = page.prev;
        half.next = old;
        replace(old, made);
        if (half.prev != none)
            pages_[half.prev].parent = made;
        page.parent = made;
        page.prev = none;
        if (first_ == old)
            first_ = made;
    }

    void takeOut(std::uint32_t number)
    {
        const Page page = pages_[number];
        if (page.parent == none && page.prev == none && page.next == none)
            return;
        const std::uint32_t child = page.prev != none ? page.prev : page.next;
        if (page.prev != none && page.next != none) {
            std::uint32_t last = page.prev;
            while (pages_[last].next != none)
                last = pages_[last].next;
            pages_[last].next = page.next;
            pages_[page.next].parent = last;
        }
        if (child != none)
            pages_[child].parent = page.parent;
        replace(number, child);
        pages_.erase(number);
        if (first_ == number)
            for (first_ = top_; pages_[first_].prev != none;)
                first_ = pages_[first_].prev;
    }

    void replace(std::uint32_t old, std::uint32_t made)
    {
        const std::uint32_t parent = pages_[old].parent;
        if (parent == none)
            top_ = made;
        else
            (pages_[parent].prev == old ? pages_[parent].prev : pages_[parent].next) = made;
    }

    void show(std::uint32_t number, std::string& text) const
    {
        if (number == none)
            return;
        const Page& page = pages_.at(number);
        show(page.prev, text);
        text += std::to_string(number) + " (" + std::to_string(static_cast<int>(page.prev)) + " " +
                std::to_string(static_cast<int>(page.next)) + "):";
        for (const std::int64_t key : page.keys)
            text += " " + std::to_string(key);
        text += "\n";
        show(page.next, text);
    }

    std::map<std::uint32_t, Page> pages_;
    std::uint32_t top_, first_, next_, capacity_;
};

std::uint32_t capacityOf(std::uint32_t recordSize)
{
    const std::uint32_t reckoned = (2020 - 32) / (recordSize + 10);
    return 32 + reckoned * (8 + recordSize) <= 2004 ? reckoned : (2004 - 32) / (recordSize + 10);
}

using Keys = std::function<std::int64_t(std::mt19937&, int)>;
struct Workload {
    const char* name;
    Keys next;
    int removePercent;
};

const Workload workloads[] = {
    {"ascending", [](std::mt19937&, int step) { return step; }, 20},
    {"descending", [](std::mt19937&, int step) { return -step; }, 20},
    {"random", [](std::mt19937& random, int) { return static_cast<std::int64_t>(random() % 3000); }, 45},
    {"clustered",
     [](std::mt19937& random, int step) {
         return step / 100 % 7 * std::int64_t{100000} + static_cast<std::int64_t>(random() % 150);
     },
     40},
};

class ChainGrowth : public testing::TestWithParam<std::uint32_t> {};

TEST_P(ChainGrowth, FollowsTheSimulationPageByPage)
{
    for (const Workload& workload : workloads) {
        SCOPED_TRACE(workload.name);
        Database database;
        Table table{database, u"Grows", GetParam(), 0};
        Simulation simulation{kaldb::kaldbChainGetPageManager()->pageCount() - 1, capacityOf(GetParam())};
        std::set<std::int64_t> keys;
        std::mt19937 random{GetParam()};
        for (int step = 0; step < 600; ++step) {
            if (!keys.empty() && static_cast<int>(random() % 100) < workload.removePercent) {
                auto victim = keys.lower_bound(workload.next(random, static_cast<int>(random()) % 600));
                const std::int64_t key = victim == keys.end() ? *keys.begin() : *victim;
                ASSERT_EQ(table.remove(key), 0U);
                simulation.remove(key);
                keys.erase(key);
            } else {
                const std::int64_t key = workload.next(random, step);
                const bool fresh = keys.insert(key).second;
                ASSERT_EQ(table.insert(key), fresh ? 0U : test::alreadyExists);
                simulation.insert(key);
            }
            if (step % 50 == 0 || step > 595) {
                ASSERT_EQ(shape(table), simulation.text()) << "after step " << step;
            }
            if (step % 250 == 249)
                table.reopen(database);
        }
        EXPECT_TRUE(Database::holdsNothing());
    }
}

INSTANTIATE_TEST_SUITE_P(RecordSizes, ChainGrowth, testing::Values(24U, 64U, 120U, 274U, 650U));

TEST(ChainGrowthExamples, EdgePageFillsToThreeQuartersThenSproutsAChild)
{
    Database database;
    Table table{database, u"Edge", 120, 0};  // 15 slots a page, so 9 is three quarters
    for (std::int64_t key = 1; key <= 9; ++key)
        ASSERT_EQ(table.insert(key), 0U);
    const std::uint32_t first = kaldb::kaldbChainGetPageManager()->pageCount() - 1;
    ASSERT_EQ(table.insert(10), 0U);
    ASSERT_EQ(table.insert(0), 0U);
    const auto number = [first](std::uint32_t offset) { return std::to_string(first + offset); };
    EXPECT_EQ(shape(table), "top " + number(0) + " first " + number(0) + "\n" + number(2) + " (-1 -1): 0\n" +
                                number(0) + " (" + number(2) + " " + number(1) + "): 1 2 3 4 5 6 7 8 9\n" + number(1) +
                                " (-1 -1): 10\n");
}

TEST(ChainGrowthExamples, SmallAndLargeCachesGiveTheSamePagesAndSlots)
{
    std::string shapes[3];
    const std::uint32_t caches[] = {0, 8 << 10, 4 << 20};
    for (int i = 0; i < 3; ++i) {
        Database database{caches[i]};
        Table table{database, u"Same", 120};
        std::mt19937 random{7U};
        for (int step = 0; step < 800; ++step) {
            const std::int64_t key = static_cast<std::int64_t>(random() % 500);
            if (random() % 3 == 0)
                table.remove(key);
            else
                table.insert(key);
        }
        shapes[i] = shape(table, true);
    }
    EXPECT_EQ(shapes[0], shapes[1]);
    EXPECT_EQ(shapes[0], shapes[2]);
}

TEST(ChainGrowthExamples, RecordsThatFillAPageNeverSplitIt)
{
    Database database;
    Table table{database, u"Single", 1200, 0};
    for (const std::int64_t key : {5, 3, 9, 4, 8})
        ASSERT_EQ(table.insert(key), 0U);
    const std::string before = shape(table);
    const std::uint32_t pages = kaldb::kaldbChainGetPageManager()->pageCount();
    EXPECT_EQ(table.insert(4), test::alreadyExists);
    EXPECT_EQ(shape(table), before);
    EXPECT_EQ(kaldb::kaldbChainGetPageManager()->pageCount(), pages);
}

TEST(ChainGrowthExamples, RecordSizesThatDoNotFitAreRefusedWithoutAPage)
{
    Database database;
    const std::uint32_t pages = kaldb::kaldbChainGetPageManager()->pageCount();
    const auto create = [&](std::uint32_t size, std::uint32_t flags) {
        KALDBTableInfo info{u"Sizes", size, flags, 0, 0};
        return kaldbTableCreate(database.handle(), &info);
    };
    EXPECT_EQ(create(1965, 0), std::uint32_t{KALDB_BUFFER_TOO_SMALL});
    EXPECT_EQ(create(0xFFFFFFF0, 0), std::uint32_t{KALDB_BUFFER_TOO_SMALL});
    EXPECT_EQ(create(15, KALDB_CHAIN_GUID), std::uint32_t{KALDB_BUFFER_TOO_SMALL});
    EXPECT_EQ(create(1957, KALDB_CHAIN_BINARY), std::uint32_t{KALDB_BUFFER_TOO_SMALL});
    EXPECT_EQ(kaldb::kaldbChainGetPageManager()->pageCount(), pages);
    EXPECT_EQ(create(1962, 0), 0U);
}

TEST(ChainGrowthExamples, StartPageFollowsTheRootEntryOfAnExistingFile)
{
    Database database;
    const auto startPage = [] { return kaldb::kaldbChainGetPageManager()->startPage(); };
    const std::uint32_t before = startPage();
    EXPECT_EQ(database.close(), 0U);
    database.open();
    for (int i = 0; i < 40; ++i) {
        KALDBTableInfo info{u"T00", 32, 0, 0, 0};
        info.name[1] = static_cast<char16_t>(u'0' + i % 10);
        info.name[2] = static_cast<char16_t>(u'0' + i / 10);
        ASSERT_EQ(kaldbTableCreate(database.handle(), &info), 0U);
    }
    EXPECT_NE(startPage(), before) << "the page never split";
    EXPECT_EQ(database.close(), 0U);
    database.open();
    std::uint32_t exists = 0;
    EXPECT_EQ(kaldbTableExists(u"T93", &exists), 0U);
    EXPECT_EQ(exists, 1U);
}

}  // namespace
