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
            } else if (page.keys.size() < capacity_ || capacity_ == 1) {  // one record that fills a page is not split
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
        for (auto& [number, page] : pages_)
            if (page.keys.erase(key) != 0 && page.keys.empty())
                return takeOut(number);
    }

    std::string text() const
    {
        std::ostringstream text;
        text << "top " << top_ << " first " << first_ << "\n";
        show(top_, text);
        return text.str();
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

    void show(std::uint32_t number, std::ostream& text) const
    {
        if (number == none)
            return;
        const Page& page = pages_.at(number);
        show(page.prev, text);
        text << number << " (" << static_cast<int>(page.prev) << " " << static_cast<int>(page.next) << "):";
        for (const std::int64_t key : page.keys)
            text << " " << key;
        text << "\n";
        show(page.next, text);
    }

    std::map<std::uint32_t, Page> pages_;
    std::uint32_t top_, first_, next_, capacity_;
};

std::uint32_t pageCount() { return kaldb::kaldbChainGetPageManager()->pageCount(); }

std::uint32_t capacityOf(std::uint32_t recordSize)
{
    const std::uint32_t reckoned = (2020 - 32) / (recordSize + 10);
    return 32 + reckoned * (8 + recordSize) <= 2004 ? reckoned : (2004 - 32) / (recordSize + 10);
}

struct Workload {
    const char* name;
    std::uint32_t cacheBytes;
    int removePercent;
    std::function<std::int64_t(std::mt19937&, int step)> next;
};

const Workload workloads[] = {
    {"ascending", 0, 20, [](std::mt19937&, int step) { return step; }},
    {"descending", 8 << 10, 20, [](std::mt19937&, int step) { return -step; }},
    {"random", 1 << 20, 45, [](std::mt19937& random, int) { return static_cast<std::int64_t>(random() % 3000); }},
    {"clustered", 0, 40,
     [](std::mt19937& random, int step) {
         return step / 100 % 7 * std::int64_t{100000} + static_cast<std::int64_t>(random() % 150);
     }},
};

TEST(ChainGrowth, FollowsTheSimulationPageByPage)
{
    for (const std::uint32_t recordSize : {24U, 64U, 120U, 274U, 650U, 1200U})
        for (const Workload& workload : workloads) {
            SCOPED_TRACE(workload.name + (", records of " + std::to_string(recordSize)));
            Database database{workload.cacheBytes};
            Table table{database, u"Grows", recordSize, 0};
            Simulation simulation{pageCount() - 1, capacityOf(recordSize)};
            std::set<std::int64_t> keys;
            std::mt19937 random{recordSize};
            for (int step = 0; step < 600; ++step) {
                if (!keys.empty() && static_cast<int>(random() % 100) < workload.removePercent) {
                    const auto victim = keys.lower_bound(workload.next(random, static_cast<int>(random()) % 600));
                    const std::int64_t key = victim == keys.end() ? *keys.begin() : *victim;
                    ASSERT_EQ(table.remove(key), 0U);
                    simulation.remove(key);
                    keys.erase(key);
                } else {
                    const std::int64_t key = workload.next(random, step);
                    ASSERT_EQ(table.insert(key), keys.insert(key).second ? 0U : test::alreadyExists);
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

TEST(ChainGrowth, FourSlotsAreEnoughUnderAWalkOfAnotherTable)
{
    Database database{0};
    Table walked{database, u"Walked", 32}, other{database, u"Other", 500};
    ASSERT_EQ(walked.insert(1), 0U);
    const auto growAndShrink = [](void* context, const void*) {
        auto& table = *static_cast<Table*>(context);
        for (std::int64_t key = 0; key < 401; ++key)
            EXPECT_EQ(table.insert(key * 37 % 401), 0U) << key;
        for (std::int64_t key = 0; key < 401; ++key)
            EXPECT_EQ(table.remove(key * 53 % 401), 0U) << key;
        return 0U;
    };
    EXPECT_EQ(kaldbTableEnumWithCallback(walked.handle(), &other, growAndShrink), 0U);
    EXPECT_EQ(other.allKeys(), std::vector<std::int64_t>{});
}

TEST(ChainGrowth, StartPageFollowsTheRootEntryOfAnExistingFile)
{
    Database database{0};  // where the catalogue's split and a new table's page do not fit together
    const auto startPage = [] { return kaldb::kaldbChainGetPageManager()->startPage(); };
    const std::uint32_t before = startPage();
    EXPECT_EQ(database.close(), 0U);
    database.open();
    for (char16_t number = 0; number < 40; ++number) {
        const KALDBTableInfo info{
            {u'T', static_cast<char16_t>(u'0' + number % 10), static_cast<char16_t>(u'0' + number / 10)}, 32, 0, 0, 0};
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
