// Enumerators and callbacks: what they hold, what they keep others from doing, and what they may do themselves.

#include "support/chain_shape.h"

#include <functional>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace {

using test::byHundred;
using test::Database;
using test::lockConflict;
using test::shape;
using test::Table;

constexpr std::uint32_t endOfEnumeration = KALDB_END_OF_ENUMERATION;
constexpr std::uint32_t notSupported = KALDB_NOT_SUPPORTED;
constexpr std::uint32_t notOpen = KALDB_NOT_OPEN;

int32_t matchAll(const void*, const void*) { return 0; }

/// Tables of small pages, so that a few records make a tree.
struct SmallPages : testing::Test {
    Database database{0};                     // 4 cache slots
    Table table{database, u"Small", 650, 0};  // every record outside a page's range starts a page of its own
    Table four{database, u"Four", 400, 0};    // four records a page; three before an edge page sprouts a child

    void insert(std::initializer_list<std::int64_t> keys)
    {
        for (const std::int64_t key : keys)
            ASSERT_EQ(table.insert(key), 0U) << key;
    }
    std::uint32_t pageOf(std::int64_t key)
    {
        const std::string text = shape(table);
        const std::size_t at = text.find(" " + std::to_string(key) + "\n");
        const std::size_t line = text.rfind('\n', at) + 1;
        return static_cast<std::uint32_t>(std::stoul(text.substr(line)));
    }
};

TEST_F(SmallPages, WalkCrossesPagesAndEndsOnItsLastRecord)
{
    insert({150, 120, 180, 110, 130, 170, 190, 90, 210});
    KALEnumerator* walk = nullptr;
    ASSERT_EQ(table.enumerate(100, walk), 0U);
    EXPECT_EQ(kalEnumeratorMoveFirst(walk), notSupported);
    for (const std::int64_t key : {110, 120, 130, 150, 170, 180, 190}) {
        EXPECT_EQ(table.current(walk), key);
        EXPECT_EQ(kalEnumeratorMoveNext(walk), key == 190 ? endOfEnumeration : 0U);
    }
    EXPECT_EQ(table.current(walk), 190) << "the end leaves the walk where it was";
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    EXPECT_TRUE(Database::holdsNothing());
    EXPECT_EQ(table.enumerate(500, walk), test::notFound);
}

TEST_F(SmallPages, ReadOnlyWalksKeepWritersOffTheirPageAndNoOthers)
{
    insert({150, 250, 350});
    KALEnumerator* reader = nullptr;
    KALEnumerator* second = nullptr;
    ASSERT_EQ(table.enumerate(100, reader), 0U);
    ASSERT_EQ(table.enumerate(100, second), 0U) << "readers share a page";
    EXPECT_EQ(table.update(150, 1), lockConflict);
    EXPECT_EQ(table.insert(151), lockConflict);
    EXPECT_EQ(table.enumerate(100, second, false), lockConflict);
    EXPECT_EQ(table.find(150), 0U);
    EXPECT_EQ(kalEnumeratorFree(second), 0U);
    EXPECT_EQ(kalEnumeratorFree(reader), 0U);
    EXPECT_EQ(table.update(150, 1), 0U);

    ASSERT_EQ(table.enumerate(100, reader, false), 0U);
    EXPECT_EQ(table.update(150, 2), 0U) << "a read/write walk lets writers in";
    EXPECT_EQ(kalEnumeratorFree(reader), 0U);
    EXPECT_TRUE(Database::holdsNothing());
}

TEST_F(SmallPages, ARefusedSplitChangesNothing)
{
    for (const std::int64_t key : {50, 20, 80, 10, 15, 5, 90, 85, 95, 12})
        ASSERT_EQ(four.insert(key), 0U);
    const std::string before = shape(four);
    const std::uint32_t pages = kaldb::kaldbChainGetPageManager()->pageCount();
    unsigned refused = 0;
    for (const std::int64_t held : four.allKeys()) {
        KALEnumerator* reader = nullptr;
        ASSERT_EQ(four.enumerate(held, reader, true, test::byKey), 0U);
        const std::uint32_t status = four.insert(11);  // the page of 10, 12 and 15 is full
        EXPECT_EQ(kalEnumeratorFree(reader), 0U);
        if (status == 0)
            break;
        ++refused;
        EXPECT_EQ(status, lockConflict);
        EXPECT_EQ(shape(four), before);
        EXPECT_EQ(kaldb::kaldbChainGetPageManager()->pageCount(), pages);
    }
    EXPECT_GT(refused, 0U);
    KALEnumerator* tables = nullptr;
    for (const std::int64_t key : {51, 52, 53})
        ASSERT_EQ(four.insert(key), 0U);
    const std::string full = shape(four);
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &tables), 0U);
    EXPECT_EQ(four.insert(54), lockConflict) << "the root object's page is held";
    EXPECT_EQ(shape(four), full);
    EXPECT_EQ(kalEnumeratorFree(tables), 0U);
    EXPECT_EQ(four.insert(54), 0U);
    EXPECT_NE(shape(four), full);
    EXPECT_TRUE(Database::holdsNothing());
}

// A page emptied while its neighbour is held stays in the tree. Its neighbours stay reachable by every road, and a
// later operation takes it out.
TEST_F(SmallPages, AnEmptyPageThatHadToStayHidesNothingAndGoesLater)
{
    insert({500, 300, 700, 200, 400, 600, 800, 350, 450});
    const std::vector<std::int64_t> all = table.allKeys();
    for (const std::int64_t victim : {300, 500, 700}) {
        for (const std::int64_t held : all) {
            if (held == victim)
                continue;
            KALEnumerator* reader = nullptr;
            ASSERT_EQ(table.enumerate(held, reader, true, test::byKey), 0U);
            ASSERT_EQ(table.remove(victim), 0U);
            std::vector<std::int64_t> expected = all;
            expected.erase(std::find(expected.begin(), expected.end(), victim));
            EXPECT_EQ(table.allKeys(), expected) << "without " << victim << ", " << held << " held";
            for (const std::int64_t key : expected)
                EXPECT_EQ(table.find(key), 0U) << key << " without " << victim << ", " << held << " held";
            EXPECT_EQ(table.matches(0, matchAll), expected);
            EXPECT_EQ(table.find(victim), test::notFound);
            EXPECT_EQ(kalEnumeratorFree(reader), 0U);
            ASSERT_EQ(table.insert(victim), 0U);
            EXPECT_EQ(table.allKeys(), all);
            const std::string text = shape(table);
            EXPECT_EQ(text.find("):\n"), std::string::npos) << "an empty page is left in\n" << text;
        }
    }
    EXPECT_TRUE(Database::holdsNothing());
}

TEST_F(SmallPages, TwentyPagesCanBeHeldAtOnce)
{
    std::vector<std::int64_t> keys(40);
    std::iota(keys.begin(), keys.end(), 0);
    for (const std::int64_t key : keys)
        ASSERT_EQ(table.insert(key * 100), 0U);
    std::vector<KALEnumerator*> open;
    KALEnumerator* walk = nullptr;
    std::uint32_t status = 0;
    for (const std::int64_t key : keys)
        if ((status = table.enumerate(key * 100, walk)) == 0)
            open.push_back(walk);
    EXPECT_EQ(open.size(), 20U);
    EXPECT_EQ(status, std::uint32_t{KALDB_FULL});
    for (KALEnumerator* enumerator : open)
        EXPECT_EQ(kalEnumeratorFree(enumerator), 0U);
    EXPECT_TRUE(Database::holdsNothing());
    EXPECT_EQ(table.insert(7), 0U);
}

TEST_F(SmallPages, CurrentRecordIsUpdatedInPlaceAndForeignEnumeratorsAreRefused)
{
    insert({100, 101, 102});
    Table other{database, u"Other", 650, 0};
    ASSERT_EQ(other.insert(100), 0U);
    KALEnumerator* walk = nullptr;
    KALEnumerator* foreign = nullptr;
    KALEnumerator* tables = nullptr;
    ASSERT_EQ(table.enumerate(100, walk), 0U);
    ASSERT_EQ(other.enumerate(100, foreign), 0U);
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &tables), 0U);
    std::vector<char> record = table.make(100, 77);
    EXPECT_EQ(kaldbTableUpdateCurrentRecord(table.handle(), walk, record.data()), 0U);
    EXPECT_EQ(kaldbTableUpdateCurrentRecord(table.handle(), foreign, record.data()),
              std::uint32_t{KALDB_INVALID_ARGUMENT});
    EXPECT_EQ(kaldbTableUpdateCurrentRecord(table.handle(), tables, record.data()),
              std::uint32_t{KALDB_INVALID_ARGUMENT});
    EXPECT_EQ(kaldbTableDeleteCurrentRecord(table.handle(), walk), notSupported);
    test::Record found;
    EXPECT_EQ(table.find(100, &found), 0U);
    EXPECT_EQ(found.value, 77);
    for (KALEnumerator* enumerator : {walk, foreign, tables})
        EXPECT_EQ(kalEnumeratorFree(enumerator), 0U);
}

// ---- callbacks ---------------------------------------------------------------------------------------------------

struct Events {
    std::vector<std::string> seen;
    std::uint32_t refused = UINT32_MAX;  // the event that is answered with 99
    std::function<void()> during;
};
Events* events = nullptr;

std::uint32_t record(std::uint32_t event, std::uint32_t status, void* record)
{
    events->seen.push_back(std::to_string(event) + ":" + std::to_string(status) + (record == nullptr ? "!" : ""));
    if (events->during)
        std::exchange(events->during, nullptr)();
    return event == events->refused ? 99 : 0;
}

struct Callbacks : testing::Test {
    Database database{0};
    Table table{database, u"Called", 64};
    Events told;

    Callbacks()
    {
        events = &told;
        table.callbacks.recordEvent = record;
        table.close();
        table.open(database);
    }
    std::vector<std::string> take() { return std::exchange(told.seen, {}); }
};

using Seen = std::vector<std::string>;

TEST_F(Callbacks, AreCalledInOrderAndMayRefuse)
{
    KALDBID id{};
    EXPECT_EQ(table.insert(1, 0, &id), 0U);
    EXPECT_EQ(take(), (Seen{"0:0", "1:0"}));
    EXPECT_EQ(table.insert(1), test::alreadyExists);
    EXPECT_EQ(take(), (Seen{"0:0", "1:17"}));
    EXPECT_EQ(table.update(1, 5, id), 0U);
    EXPECT_EQ(table.update(2, 5), test::notFound);
    EXPECT_EQ(take(), (Seen{"4:0", "5:0"})) << "a key that falls off the tree is not an update";
    EXPECT_EQ(table.find(1), 0U);
    EXPECT_EQ(take(), (Seen{"6:0"}));
    for (const std::uint32_t event :
         {KALDB_EVENT_BEFORE_INSERT, KALDB_EVENT_BEFORE_UPDATE, KALDB_EVENT_BEFORE_DELETE}) {
        told.refused = event;
        EXPECT_EQ(table.insert(7), event == KALDB_EVENT_BEFORE_INSERT ? 99U : 0U);
        EXPECT_EQ(table.update(1, 6), event == KALDB_EVENT_BEFORE_UPDATE ? 99U : 0U);
        EXPECT_EQ(table.remove(7), event == KALDB_EVENT_BEFORE_INSERT   ? test::notFound
                                   : event == KALDB_EVENT_BEFORE_DELETE ? 99U
                                                                        : 0U);
    }
    told.refused = UINT32_MAX;
    take();
    KALDBID other{};
    EXPECT_EQ(table.insert(9, 0, &other), 0U);
    EXPECT_EQ(kaldbTableDeleteRecordByID(table.handle(), &other), 0U);
    EXPECT_EQ(take(), (Seen{"0:0", "1:0", "2:0", "3:0!"}));
    EXPECT_TRUE(Database::holdsNothing());
}

TEST_F(Callbacks, MayUseOtherTablesButNotChangeTheirOwn)
{
    Table other{database, u"Other", 64};
    std::uint32_t same = 0, elsewhere = 1, closed = 0, backup = 0, stopped = 0, again = 0, found = 1;
    ASSERT_EQ(table.insert(1), 0U);
    told.during = [&] {
        same = table.insert(2);
        elsewhere = other.insert(2);
        closed = kaldbTableClose(table.handle());
        backup = kaldbBackupDatabaseWhileRunning(database.handle());
        stopped = kaldbDeinitialize(database.handle());
        again = database.tryOpen();
        found = other.find(2);
    };
    EXPECT_EQ(table.find(1), 0U);
    for (const std::uint32_t status : {same, closed, backup, stopped, again})
        EXPECT_EQ(status, lockConflict);
    EXPECT_EQ(elsewhere, 0U);
    EXPECT_EQ(found, 0U);
    EXPECT_EQ(table.find(2), test::notFound);
    EXPECT_TRUE(Database::holdsNothing());
}

TEST_F(Callbacks, AThrowingCallbackLeavesNothingHeld)
{
    for (std::int64_t key = 0; key < 60; ++key)
        ASSERT_EQ(table.insert(key * 7 % 60), 0U);
    const std::vector<std::int64_t> keys = table.allKeys();
    table.callbacks.compare = [](const void* probe, const void* stored) -> int32_t {
        static int calls = 0;
        if (++calls % 5 == 0)
            throw std::runtime_error("compare");
        return test::byKey(probe, stored);
    };
    table.close();
    table.open(database);
    for (std::int64_t key = 100; key < 130; ++key) {
        table.insert(key);
        table.remove(key - 50);
        EXPECT_TRUE(Database::holdsNothing());
    }
    table.callbacks.compare = test::byKey;
    table.close();
    table.open(database);
    const std::vector<std::int64_t> left = table.allKeys();
    EXPECT_TRUE(std::is_sorted(left.begin(), left.end()));
    for (std::int64_t key = 0; key < 50; ++key)
        EXPECT_EQ(table.find(key), 0U) << key;
}

TEST_F(SmallPages, AWalkKeepsItsPageWhenTheCallbackEnumeratesTheSamePage)
{
    for (const std::int64_t key : {101, 102, 100, 200, 300})
        ASSERT_EQ(four.insert(key), 0U);
    struct Visit {
        Table* table;
        std::vector<std::int64_t> keys;
    } visit{&four, {}};
    const auto look = [](void* context, const void* record) -> std::uint32_t {
        auto& at = *static_cast<Visit*>(context);
        const std::int64_t key = test::keyOf(record);
        // Pages of others take all slots of the cache but the walk's own.
        EXPECT_EQ(at.table->matches(key, test::byKey), std::vector<std::int64_t>{key});
        for (const std::int64_t other : {100, 200, 300})
            EXPECT_EQ(at.table->find(other), 0U);
        EXPECT_EQ(test::keyOf(record), key) << "the record went away under the walk";
        EXPECT_EQ(at.table->insert(555), lockConflict);
        at.keys.push_back(key);
        return key == 101 ? endOfEnumeration : 0U;
    };
    EXPECT_EQ(kaldbTableEnumWithCallback(four.handle(), &visit, look), 0U);
    EXPECT_EQ(visit.keys, (std::vector<std::int64_t>{100, 101, 200, 300})) << "14 goes on with the next page";
    EXPECT_TRUE(Database::holdsNothing());
}

TEST_F(SmallPages, ClosedTablesAndEarlierDatabasesAnswerTheirEnumerators)
{
    insert({100, 101, 200});
    KALEnumerator* walk = nullptr;
    ASSERT_EQ(table.enumerate(100, walk), 0U);
    table.close();
    std::vector<char> record(table.recordSize());
    EXPECT_EQ(kalEnumeratorMoveNext(walk), notOpen);
    EXPECT_EQ(kalEnumeratorGetItem(walk, record.data(), 650), notOpen);
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    EXPECT_TRUE(Database::holdsNothing());

    table.open(database);
    ASSERT_EQ(table.enumerate(100, walk), 0U);
    EXPECT_EQ(database.close(), 0U);
    database.open();
    EXPECT_EQ(table.find(100), notOpen) << "the handle belongs to the earlier database";
    EXPECT_EQ(kalEnumeratorMoveNext(walk), notOpen);
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    table.close();
    table.open(database);
    EXPECT_EQ(table.find(100), 0U);
    EXPECT_EQ(four.find(1), notOpen);
}

// While a table list stands on the catalogue's page, counters wait in memory; no identifier comes twice.
TEST(TableList, KeepsNoIdentifierFromBeingHandedOut)
{
    Database database;
    Table table{database, u"Counted", 64};
    KALDBID before{}, during{}, after{};
    ASSERT_EQ(table.insert(1, 0, &before), 0U);
    KALEnumerator* tables = nullptr;
    ASSERT_EQ(kaldbTableEnumerate(database.handle(), &tables), 0U);
    EXPECT_EQ(table.create(database, 0), lockConflict);
    EXPECT_EQ(table.insert(2, 0, &during), 0U);
    EXPECT_EQ(during.sequence, before.sequence + 1);
    EXPECT_EQ(kaldbBackupDatabaseWhileRunning(database.handle()), 0U);
    table.close();
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(kalEnumeratorFree(tables), 0U);
    database.open();
    table.open(database);
    EXPECT_EQ(table.insert(3, 0, &after), 0U);
    EXPECT_EQ(after.sequence, during.sequence + 1);
    test::Record found;
    EXPECT_EQ(table.findByID(during, found), 0U);
    EXPECT_EQ(found.key, 2);
}

}  // namespace
