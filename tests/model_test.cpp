// Random operations against two maps, one by key and one by identifier: the same answers at every step, the same
// contents after it all, whatever the pattern of the keys, the size of records and of the cache, with callbacks that
// refuse, walks that are open meanwhile, and reopenings.
//
// KALDB_TORTURE=n in the environment makes n times as many operations.

#include "support/chain_shape.h"
#include "support/quiet.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>

namespace {

using test::Database;
using test::Table;

enum class Keys { ascending, descending, random, clustered, queue };

struct Work {
    Keys keys;
    std::uint32_t recordSize, cacheBytes;
};

long operationsEach()
{
    const char* const times = std::getenv("KALDB_TORTURE");
#if defined(__SANITIZE_ADDRESS__)
    const long once = 600;
#else
    const long once = 42'000;
#endif
    return once * (times == nullptr ? 1 : std::max(1L, std::atol(times)));
}

std::uint32_t refuse(std::uint32_t event, std::uint32_t, void* record)
{
    const bool refused = event == KALDB_EVENT_BEFORE_INSERT && test::keyOf(record) % 50 == 49;
    return refused ? KALDB_ACCESS_DENIED : 0;
}

class Model {
public:
    Model(const Work& work, unsigned seed) : work_(work), random_(seed), database_(work.cacheBytes)
    {
        table_ = std::make_unique<Table>(database_, u"Records", work.recordSize);
        table_->callbacks.recordEvent = refuse;
        table_->reopen(database_);
    }

    void run(long operations)
    {
        for (long i = 0; i < operations && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("operation " + std::to_string(i));
            one(draw(1000));
            ASSERT_TRUE(Database::holdsNothing());
            if (i % (operations / 4) == operations / 8) {
                checkAll();
                table_->reopen(database_);
            }
        }
        checkAll();
        static_cast<void>(test::shape(*table_));  // links of pages, and items counted against their slots
        table_.reset();
        ASSERT_EQ(database_.close(), 0U);
        std::uint32_t errors = 0;
        ASSERT_EQ(kaldbValidateFile(database_.path().c_str(), 0, &errors) + errors, 1U);
        ASSERT_TRUE(test::readFile(database_.file()) == test::readFile(database_.backup()));
    }

private:
    unsigned draw(unsigned below) { return static_cast<unsigned>(random_() % below); }
    std::int64_t newKey()
    {
        ++serial_;
        switch (work_.keys) {
        case Keys::ascending:
        case Keys::queue: return serial_ * 3;
        case Keys::descending: return -serial_ * 3;
        case Keys::clustered: return draw(8) * std::int64_t{1'000'000} + serial_ * 5 % 4001;
        case Keys::random: break;
        }
        return draw(6000);
    }
    /// A key that is there or near one; of a queue the oldest.
    std::int64_t someKey()
    {
        if (rows_.empty() || draw(8) == 0)
            return newKey() + 1;
        if (work_.keys == Keys::queue)
            return rows_.begin()->first;
        const auto found = rows_.lower_bound(
            rows_.begin()->first +
            static_cast<std::int64_t>(random_() %
                                      static_cast<unsigned long>(rows_.rbegin()->first - rows_.begin()->first + 1)));
        return found->first;
    }

    void one(unsigned dice)
    {
        const bool crowded = rows_.size() > 1500;
        if (dice < (crowded ? 300U : 450U))
            insert(newKey());
        else if (dice < 650)
            dice % 3 == 0 ? removeByID(someKey()) : remove(someKey());
        else if (dice < 750)
            update(someKey());
        else if (dice < 990)
            find(someKey());
        else if (dice < 994)
            walk(someKey());
        else if (dice < 997)
            removeHundred(someKey());
        else
            changeUnderWalk(someKey());
    }

    void insert(std::int64_t key)
    {
        KALDBID id{};
        const std::uint32_t expected = rows_.count(key) != 0 ? test::alreadyExists
                                       : key % 50 == 49      ? std::uint32_t{KALDB_ACCESS_DENIED}
                                                             : 0U;
        const std::uint32_t status = table_->insert(key, serial_, &id);
        ASSERT_TRUE(status == expected || (status == KALDB_ACCESS_DENIED && key % 50 == 49))
            << status << " for key " << key;
        if (status != 0)
            return;
        ASSERT_TRUE(identifiers_.insert(id.sequence).second) << "an identifier given twice";
        rows_[key] = {serial_, id};
    }
    void remove(std::int64_t key)
    {
        ASSERT_EQ(table_->remove(key), rows_.count(key) != 0 ? 0U : test::notFound) << key;
        rows_.erase(key);
    }
    void removeByID(std::int64_t key)
    {
        const auto found = rows_.find(key);
        if (found == rows_.end())
            return;
        ASSERT_EQ(kaldbTableDeleteRecordByID(table_->handle(), &found->second.id), 0U) << key;
        test::Record record;
        ASSERT_EQ(table_->findByID(found->second.id, record), test::notFound) << key;
        rows_.erase(found);
    }
    void update(std::int64_t key)
    {
        const auto found = rows_.find(key);
        ++serial_;
        ASSERT_EQ(table_->update(key, serial_, found == rows_.end() ? KALDBID{} : found->second.id),
                  found == rows_.end() ? test::notFound : 0U)
            << key;
        if (found != rows_.end())
            found->second.value = serial_;
    }
    void find(std::int64_t key)
    {
        const auto found = rows_.find(key);
        test::Record byKey, byID;
        ASSERT_EQ(table_->find(key, &byKey), found == rows_.end() ? test::notFound : 0U) << key;
        if (found == rows_.end())
            return;
        ASSERT_EQ(byKey.value, found->second.value) << key;
        ASSERT_EQ(byKey.id.sequence, found->second.id.sequence) << key;
        ASSERT_EQ(table_->findByID(found->second.id, byID), 0U) << key;
        ASSERT_EQ(std::memcmp(&byID, &byKey, sizeof byID), 0) << key;
    }
    std::vector<std::int64_t> hundred(std::int64_t key) const
    {
        const std::int64_t first = test::hundredOf(key) * 100;
        std::vector<std::int64_t> keys;
        for (auto row = rows_.lower_bound(first); row != rows_.end() && row->first < first + 100; ++row)
            keys.push_back(row->first);
        return keys;
    }
    void walk(std::int64_t key) { ASSERT_EQ(table_->matches(key), hundred(key)); }
    void removeHundred(std::int64_t key)
    {
        const std::vector<char> record = table_->make(key, 0);
        ASSERT_EQ(kaldbTableDeletePartialPK(table_->handle(), record.data(), test::byHundred), 0U);
        for (const std::int64_t gone : hundred(key))
            rows_.erase(gone);
    }
    /// A read-only walk keeps changes off its page: what is refused has changed nothing.
    void changeUnderWalk(std::int64_t key)
    {
        KALEnumerator* walk = nullptr;
        if (table_->enumerate(key, walk) != 0)
            return;
        const std::int64_t current = table_->current(walk);
        ASSERT_EQ(kaldbTableDeleteRecordByID(table_->handle(), &rows_.at(current).id), test::lockConflict) << current;
        ASSERT_EQ(table_->update(current, 1, rows_.at(current).id), test::lockConflict) << current;
        ASSERT_EQ(kalEnumeratorFree(walk), 0U);
        find(current);
    }
    void checkAll()
    {
        ASSERT_TRUE(Database::holdsNothing());
        std::vector<std::int64_t> keys;
        for (const auto& [key, row] : rows_)
            keys.push_back(key);
        ASSERT_TRUE(table_->allKeys() == keys);
        for (const std::int64_t key : keys)
            find(key);
    }

    struct Row {
        std::int64_t value = 0;
        KALDBID id{};
    };
    Work work_;
    std::mt19937 random_;
    Database database_;
    std::unique_ptr<Table> table_;
    std::map<std::int64_t, Row> rows_;
    std::set<std::uint64_t> identifiers_;
    std::int64_t serial_ = 0;
};

TEST(Model, RandomOperationsAgreeWithMaps)
{
    const long operations = operationsEach();
    unsigned seed = std::random_device{}();
    for (const Keys keys : {Keys::ascending, Keys::descending, Keys::random, Keys::clustered, Keys::queue})
        for (const Work work : {Work{keys, 32, 1 << 20},
                                {keys, 120, 40 << 10},
                                {keys, 500, 1 << 20},
                                {keys, 120, 1 << 20},
                                {keys, 900, 20 << 10},
                                {keys, 1200, 0}}) {
            SCOPED_TRACE("keys " + std::to_string(static_cast<int>(keys)) + ", records of " +
                         std::to_string(work.recordSize) + ", seed " + std::to_string(++seed));
            Model{work, seed}.run(operations);
            if (HasFailure())
                return;
        }
    std::printf("%ld operations\n", operations * 30);
}

}  // namespace
