// The quick ways to a page against the plain descents: the same work done both ways must leave the same file, page by
// page, and the same answers, events and index updates on the way. KALDB_TORTURE=n makes n times as many works.

#include "kaldbchain/chain_state.h"
#include "kalpagemanager/layout.h"
#include "support/database.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

namespace {

using test::Database;
using test::Table;

enum class Keys { ascending, descending, random, clustered, queue };

#if defined(__SANITIZE_ADDRESS__)
constexpr int manySteps = 450;
#else
constexpr int manySteps = 3000;
#endif

struct Work {
    Keys keys = Keys::random;
    std::uint32_t recordSize = 120;
    unsigned seed = 1;
    std::uint32_t cacheBytes = 8 << 20;  // holds the file
    int steps = manySteps;
};

/// Everything that a caller gets to see.
using Log = std::vector<std::uint64_t>;
Log* heard = nullptr;

std::uint32_t hearEvent(std::uint32_t event, std::uint32_t status, void* record)
{
    heard->push_back(event << 16 | status);
    const bool refused = event == KALDB_EVENT_BEFORE_INSERT && test::keyOf(record) % 97 == 13;
    return refused ? KALDB_ACCESS_DENIED : 0;
}

std::uint32_t hearIndexUpdate(const KALDBIndexRecord* from, const KALDBIndexRecord* to, std::uintptr_t)
{
    for (const KALDBIndexRecord* place : {from, to})
        heard->push_back(place->id.sequence ^ std::uint64_t{place->page} << 32 ^ place->index);
    return 0;
}

std::int32_t byKeyToo(const void* probe, const void* stored) { return test::byKey(probe, stored); }

class Worker {
public:
    explicit Worker(const Work& work) : work_(work), random_(work.seed), database_(work.cacheBytes)
    {
        heard = &log_;
        table_ = std::make_unique<Table>(database_, u"Records", work.recordSize);
        table_->callbacks.recordEvent = hearEvent;
        table_->callbacks.indexUpdate = hearIndexUpdate;
        table_->reopen(database_);
    }

    Log run(std::vector<char>& file)
    {
        for (step_ = 0; step_ < work_.steps; ++step_) {
            one();
            const kaldb::ChainState* state = kaldb::findChainState(kaldb::KALDB_OBJECT_TABLE, u"Records");
            stepsWithOrder_ += state != nullptr && !state->order.empty() ? 1 : 0;
            if (testing::Test::HasFailure())
                break;
        }
        closeWalks();
        table_.reset();
        EXPECT_EQ(database_.close(), 0U);
        file = fileWithoutTimes();
        if (!kaldb::plainDescents()) {
            EXPECT_GT(stepsWithOrder_, 20);
        }
        return std::move(log_);
    }

private:
    unsigned draw(unsigned below) { return static_cast<unsigned>(random_() % below); }
    std::int64_t nextKey()
    {
        ++serial_;
        switch (work_.keys) {
        case Keys::ascending:
        case Keys::queue: return serial_ * 3;
        case Keys::descending: return -serial_ * 3;
        case Keys::clustered: return static_cast<std::int64_t>(random_() % 8) * 100000 + serial_ * 5;
        case Keys::random: break;
        }
        return static_cast<std::int64_t>(random_() % 20000);
    }
    /// Mostly a key that was inserted, sometimes one beside it.
    std::int64_t someKey()
    {
        if (keys_.empty())
            return 7;
        const std::size_t oldest = std::min<std::size_t>(keys_.size() - 1, random_() % 8);
        const std::size_t at = work_.keys == Keys::queue ? oldest : random_() % keys_.size();
        return keys_[at] + (random_() % 6 == 0 ? 1 : 0);
    }

    void one()
    {
        const unsigned dice = draw(100);
        if (dice < 55)
            insert();
        else if (dice < 75)
            remove();
        else if (dice < 82)
            note(table_->update(someKey(), step_));
        else if (dice < 90)
            note(table_->find(someKey()));
        else if (dice < 93)
            note(table_->matches(someKey()));
        else if (dice < 96)
            walk();
        else
            seldom(draw(12));
    }

    void seldom(unsigned which)
    {
        const std::vector<char> record = table_->make(someKey(), 0);
        if (which == 0)
            note(table_->allKeys());
        else if (which == 1)
            note(kaldbTableDeletePartialPK(table_->handle(), record.data(), test::byHundred));
        else if (which == 2)
            withAnotherOrder();
        else if (which == 3)
            nestedReading();
        else if (which == 4 && walks_.empty())
            table_->reopen(database_);
        else if (which == 5)
            listTables();
        else
            closeWalks();
    }

    void insert()
    {
        const std::int64_t key = nextKey();
        KALDBID id{};
        note(table_->insert(key, step_, &id));
        log_.push_back(id.sequence);
        keys_.push_back(key);
        ids_.push_back(id);
    }
    void remove()
    {
        if (keys_.empty())
            return;
        const std::size_t at = work_.keys == Keys::queue ? 0 : random_() % keys_.size();
        test::Record found;
        if (random_() % 3 == 0) {
            note(table_->findByID(ids_[at], found));
            note(kaldbTableDeleteRecordByID(table_->handle(), &ids_[at]));
        } else {
            note(table_->remove(keys_[at]));
        }
        keys_.erase(keys_.begin() + static_cast<std::ptrdiff_t>(at));
        ids_.erase(ids_.begin() + static_cast<std::ptrdiff_t>(at));
    }
    /// Opens a walk, or moves one on: it locks its page until it is closed, some steps later.
    void walk()
    {
        KALEnumerator* walk = nullptr;
        if (walks_.empty() || random_() % 4 == 0) {
            note(table_->enumerate(someKey(), walk, random_() % 2 == 0));
            if (walk != nullptr)
                walks_.push_back(walk);
            return;
        }
        walk = walks_[random_() % walks_.size()];
        note(kalEnumeratorMoveNext(walk));
        std::vector<char> record(work_.recordSize);
        note(kalEnumeratorGetItem(walk, record.data(), work_.recordSize));
        log_.push_back(static_cast<std::uint64_t>(test::keyOf(record.data())));
    }
    void closeWalks()
    {
        for (KALEnumerator* walk : walks_)
            note(kalEnumeratorFree(walk));
        walks_.clear();
    }
    /// A second handle whose compare function is another, though it orders alike.
    void withAnotherOrder()
    {
        KALDBChainCallbacks callbacks = table_->callbacks;
        callbacks.compare = byKeyToo;
        KALDBTable* other = nullptr;
        ASSERT_EQ(kaldbTableOpen(database_.handle(), u"Records", &callbacks, &other), 0U);
        for (int i = 0; i < 20; ++i) {
            std::vector<char> record = table_->make(static_cast<std::int64_t>(random_() % 20000) * 2 + 1, 0);
            note(i % 2 == 0 ? kaldbTableInsertRecord(other, record.data(), 0, nullptr)
                            : kaldbTableDeleteRecord(other, record.data(), 0, nullptr));
        }
        note(kaldbTableClose(other));
    }
    /// A walk over the whole table that queries the table on its way, until it is told to stop.
    void nestedReading()
    {
        left_ = draw(200);
        note(kaldbTableEnumWithCallback(table_->handle(), this, [](void* context, const void* record) {
            auto& worker = *static_cast<Worker*>(context);
            worker.note(worker.table_->find(test::keyOf(record) + 1));
            return worker.left_-- == 0 ? 4711U : 0U;
        }));
    }
    /// Insertions while a list of tables keeps the catalogue locked: their counters have to wait.
    void listTables()
    {
        KALEnumerator* tables = nullptr;
        ASSERT_EQ(kaldbTableEnumerate(database_.handle(), &tables), 0U);
        for (int i = 0; i < 5; ++i)
            insert();
        note(kalEnumeratorFree(tables));
    }

    void note(std::uint64_t answer) { log_.push_back(answer); }
    void note(const std::vector<std::int64_t>& keys) { log_.insert(log_.end(), keys.begin(), keys.end()); }

    /// The file's bytes, but for the time in each page's header.
    std::vector<char> fileWithoutTimes() const
    {
        std::ifstream stream{database_.file(), std::ios::binary};
        std::vector<char> bytes{std::istreambuf_iterator<char>{stream}, {}};
        for (std::size_t page = kaldb::fileHeaderLength; page < bytes.size(); page += kaldb::pageSize)
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page + offsetof(kaldb::KALPageHeader, lastUsed)), 4,
                        '\0');
        return bytes;
    }

    Work work_;
    std::mt19937 random_;
    Database database_;
    std::unique_ptr<Table> table_;
    std::vector<std::int64_t> keys_;
    std::vector<KALDBID> ids_;
    std::vector<KALEnumerator*> walks_;
    std::int64_t serial_ = 0;
    int step_ = 0;
    int stepsWithOrder_ = 0;
    unsigned left_ = 0;
    Log log_;
};

TEST(ChainOrder, SameFileAndAnswersAsPlainDescents)
{
    std::vector<Work> works;
    const char* const times = std::getenv("KALDB_TORTURE");
    for (int round = times == nullptr ? 1 : std::atoi(times); round > 0; --round)
        for (const Keys keys : {Keys::ascending, Keys::descending, Keys::random, Keys::clustered, Keys::queue})
            for (const std::uint32_t recordSize : {100U, 180U, 300U, 900U})
                works.push_back({keys, recordSize, static_cast<unsigned>(works.size()) + 1});
    works.push_back({Keys::random, 900, 77, 20 * 1024, manySteps});  // a cache that holds a few pages only
    for (const Work& work : works) {
        SCOPED_TRACE("keys " + std::to_string(static_cast<int>(work.keys)) + " record size " +
                     std::to_string(work.recordSize));
        std::vector<char> files[2];
        Log logs[2];
        for (const bool plain : {false, true}) {
            kaldb::usePlainDescents(plain);
            logs[plain] = Worker{work}.run(files[plain]);
        }
        kaldb::usePlainDescents(false);
        EXPECT_TRUE(logs[0] == logs[1]);
        ASSERT_EQ(files[0].size(), files[1].size());
        if (work.cacheBytes < files[0].size())
            continue;  // a new page keeps what its slot of the cache held before, which differs
        const auto differing = std::mismatch(files[0].begin(), files[0].end(), files[1].begin());
        EXPECT_EQ(differing.first, files[0].end())
            << "byte "
            << (differing.first - files[0].begin() - std::ptrdiff_t{kaldb::fileHeaderLength}) %
                   std::ptrdiff_t{kaldb::pageSize};
        if (HasFailure())
            break;
    }
}

}  // namespace
