// The walks and callbacks of tables: what they hold, what they keep others from doing, and what they may do themselves.

#include "common/trace.h"
#include "kaldbtable/table.h"
#include "support/chain_shape.h"
#include "support/log_lines.h"

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

using namespace test;
using Keys = std::vector<std::int64_t>;

constexpr std::uint32_t ended = KALDB_END_OF_ENUMERATION;

std::uint32_t pageCount() { return kaldb::kaldbChainGetPageManager()->pageCount(); }

/// Tables of small pages, so that a few records make a tree.
struct Walks : testing::Test {
    Database database{0};                     // 4 cache slots
    Table table{database, u"Small", 650, 0};  // every record outside a page's range starts a page of its own
    Table four{database, u"Four", 400, 0};    // four records a page; three before an edge page sprouts a child
    KALEnumerator *walk = nullptr, *second = nullptr;

    static void insert(Table& table, const Keys& keys)
    {
        for (const std::int64_t key : keys)
            ASSERT_EQ(table.insert(key), 0U) << key;
    }
    ~Walks() override { EXPECT_TRUE(Database::holdsNothing()); }
};

TEST_F(Walks, CrossPagesStayOnTheirLastRecordAndKeepWritersOffTheirPage)
{
    insert(table, {150, 120, 180, 110, 130, 170, 190, 90, 210});
    ASSERT_EQ(table.enumerate(100, walk), 0U);
    for (const std::int64_t key : {110, 120, 130, 150, 170, 180, 190}) {
        EXPECT_EQ(table.current(walk), key);
        EXPECT_EQ(kalEnumeratorMoveNext(walk), key == 190 ? ended : 0U);
    }
    for (std::uint32_t again = 0; again < 4 * pageCount(); ++again)
        ASSERT_EQ(kalEnumeratorMoveNext(walk), ended) << again;
    EXPECT_EQ(table.current(walk), 190);
    EXPECT_EQ(table.update(190, 1), lockConflict) << "the walk reads";
    EXPECT_EQ(table.insert(191), lockConflict);
    EXPECT_EQ(table.enumerate(190, second, false, byKey), lockConflict);
    ASSERT_EQ(table.enumerate(190, second, true, byKey), 0U) << "readers share a page";
    std::vector<char> record = table.make(190, 76);
    EXPECT_EQ(kaldbTableUpdateCurrentRecord(table.handle(), walk, record.data()), 0U);
    EXPECT_EQ(kalEnumeratorFree(second) + kalEnumeratorFree(walk), 0U);
    ASSERT_EQ(table.enumerate(190, walk, false, byKey), 0U);
    EXPECT_EQ(table.update(190, 77), 0U) << "a read/write walk lets writers in";
    EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    Record found;
    EXPECT_EQ(table.find(190, &found), 0U);
    EXPECT_EQ(found.value, 77);
    KALDBID id{0x1234, 0, 0, 77};
    EXPECT_EQ(table.insert(500, 0, &id), 0U);
    EXPECT_EQ(id.sequence, 77U) << "a table without identifiers gives none";
}

TEST_F(Walks, GoOnAsLongAsRecordsArriveBeforeThem)
{
    insert(four, {0, 1});
    ASSERT_EQ(four.enumerate(0, second, false), 0U);  // lets writers in
    ASSERT_EQ(four.enumerate(0, walk), 0U);
    for (const std::int64_t key : {1, 2, 3, 4, 5, 6, 7, 8, 9}) {
        EXPECT_EQ(kalEnumeratorMoveNext(walk), 0U);
        EXPECT_EQ(four.current(walk), key);
        EXPECT_EQ(four.remove(key - 1) + four.insert(key + 1), 0U);
    }
    EXPECT_EQ(kalEnumeratorFree(second) + kalEnumeratorFree(walk), 0U);
}

TEST_F(Walks, MakeASplitThatChangesNothingWhereTheyHoldAPageOfIt)
{
    insert(four, {50, 20, 80, 10, 15, 5, 90, 85, 95, 12});
    const std::string before = shape(four);
    const std::uint32_t pages = pageCount();
    unsigned refused = 0;
    for (const std::int64_t held : four.allKeys()) {
        ASSERT_EQ(four.enumerate(held, walk, true, byKey), 0U);
        const std::uint32_t status = four.insert(11);  // the page of 10, 12 and 15 is full
        EXPECT_EQ(kalEnumeratorFree(walk), 0U);
        if (status == 0)
            break;
        ++refused;
        EXPECT_EQ(status, lockConflict);
        EXPECT_EQ(shape(four), before);
        EXPECT_EQ(pageCount(), pages);
    }
    EXPECT_GT(refused, 0U);
    for (const std::int64_t last : {51, 53}) {  // fills the top page, then one below it
        ASSERT_EQ(four.insert(last), 0U);
        const std::string full = shape(four);
        ASSERT_EQ(kaldbTableEnumerate(database.handle(), &walk), 0U);
        EXPECT_EQ(four.insert(last + 1), last == 51 ? lockConflict : 0U) << "the root object's page is held";
        EXPECT_EQ(shape(four) == full, last == 51);
        EXPECT_EQ(kalEnumeratorFree(walk), 0U);
        EXPECT_EQ(four.insert(last + 1), last == 51 ? 0U : alreadyExists);
        EXPECT_NE(shape(four), full);
    }
}

TEST_F(Walks, LeaveRoomForSplitsInTheSmallestCache)
{
    // The first page came to have a parent and a child: it was the leftmost when the top page went.
    insert(four, {500, 510, 520, 400, 410, 420, 600, 610, 620, 300, 310, 320, 200, 210, 220});
    for (const std::int64_t key : {500, 510, 520})
        ASSERT_EQ(four.remove(key), 0U);
    insert(four, {100, 110, 120, 215, 216, 217});

    Table other{database, u"Other", 400, 0};
    insert(other, {0, 1000});
    const auto copy = [](void* context, const void* record) {
        return static_cast<Table*>(context)->insert(keyOf(record));
    };
    EXPECT_EQ(kaldbTableEnumWithCallback(four.handle(), &other, copy), 0U);
}

// A page emptied while its neighbour is held stays in the tree. Its neighbours stay reachable by every road, and a
// later operation takes it out.
TEST_F(Walks, MakeAnEmptyPageStayThatHidesNothingAndGoesLater)
{
    insert(table, {500, 300, 700, 200, 400, 600, 800, 350, 450});
    const Keys all = table.allKeys();
    const LogLines log;
    for (const std::int64_t victim : {300, 500, 700})
        for (const std::int64_t held : all) {
            if (held == victim)
                continue;
            SCOPED_TRACE("without " + std::to_string(victim) + ", " + std::to_string(held) + " held");
            ASSERT_EQ(table.enumerate(held, walk, true, byKey), 0U);
            ASSERT_EQ(table.remove(victim), 0U);
            Keys expected = all;
            std::erase(expected, victim);
            EXPECT_EQ(table.allKeys(), expected);
            EXPECT_EQ(table.matches(0, [](const void*, const void*) { return 0; }), expected);
            for (const std::int64_t key : all)
                EXPECT_EQ(table.find(key), key == victim ? notFound : 0U) << key;
            EXPECT_EQ(kalEnumeratorFree(walk), 0U);
            ASSERT_EQ(table.insert(victim), 0U);
            EXPECT_EQ(table.allKeys(), all);
            EXPECT_EQ(shape(table).find("):\n"), std::string::npos) << "an empty page is left in\n" << shape(table);
        }
    const std::string why = "kaldbchainJoinPageParentToChild() could not load parent page [0x12 - ";
    EXPECT_EQ(log.count(KAL_LOG_TRACE, why) > 0, kaldb::tracing);
}

// A change that meets a lock is none. What a walk shows is in order, and everything that was there from end to end.
TEST_F(Walks, MissNothingThatStaysWhateverComesAndGoes)
{
    std::mt19937 random{6};
    const auto any = [&] { return static_cast<std::int64_t>(random() % 100); };
    for (int round = 0; round < 200; ++round) {
        Table& each = round % 2 == 0 ? table : four;
        std::set<std::int64_t> present;
        for (const std::int64_t key : each.allKeys())
            present.insert(key);
        std::set<std::int64_t> always = present;
        const auto insert = [&](std::int64_t key) {
            if (each.insert(key) == 0U)
                present.insert(key);
        };
        const auto remove = [&](std::int64_t key) {
            if (each.remove(key) == 0U)
                always.erase(key), present.erase(key);
        };
        for (int left = 20; left > 0; --left)
            insert(any());
        always = present;
        ASSERT_EQ(each.enumerate(0, walk, round % 4 < 2, [](const void*, const void*) { return 0; }), 0U);
        Keys seen;
        do {
            const std::int64_t current = each.current(walk);
            EXPECT_TRUE(present.count(current) == 1 && (seen.empty() || seen.back() < current)) << round;
            seen.push_back(current);
            for (std::uint32_t changes = random() % 4; changes > 0; --changes)
                random() % 2 == 0 ? insert(any()) : remove(random() % 3 == 0 ? any() : current);
            EXPECT_EQ(each.current(walk), current);
            std::vector<char> record = each.make(current, round);
            EXPECT_EQ(kaldbTableUpdateCurrentRecord(each.handle(), walk, record.data()) == 0U,
                      present.count(current) == 1);
            if (present.count(current) == 1) {
                std::vector<char> item(record.size());
                EXPECT_EQ(kalEnumeratorGetItem(walk, item.data(), static_cast<std::uint32_t>(item.size())), 0U);
                EXPECT_EQ(item, record) << round;
            }
        } while (kalEnumeratorMoveNext(walk) == 0U);
        EXPECT_TRUE(std::includes(seen.begin(), seen.end(), always.begin(), always.end())) << round;
        EXPECT_EQ(kalEnumeratorFree(walk), 0U);
    }
}

TEST_F(Walks, KeepTheirPageWhenTheCallbackEnumeratesTheSamePage)
{
    insert(four, {101, 102, 100, 200, 300});
    std::pair<Table&, Keys> visit{four, {}};
    const auto look = [](void* context, const void* record) -> std::uint32_t {
        auto& [walked, keys] = *static_cast<std::pair<Table&, Keys>*>(context);
        const std::int64_t key = keyOf(record);
        // Pages of others take all slots of the cache but the walk's own.
        EXPECT_EQ(walked.matches(key, byKey), Keys{key});
        for (const std::int64_t other : {100, 200, 300})
            EXPECT_EQ(walked.find(other), 0U);
        EXPECT_EQ(keyOf(record), key) << "the record went away under the walk";
        EXPECT_EQ(walked.insert(555), lockConflict);
        keys.push_back(key);
        return key == 101 ? ended : 0U;
    };
    EXPECT_EQ(kaldbTableEnumWithCallback(four.handle(), &visit, look), 0U);
    EXPECT_EQ(visit.second, (Keys{100, 101, 200, 300})) << "14 goes on with the next page";
}

// The leftmost page leads back to the top, in a file whose header counts 2^31 pages.
TEST_F(Walks, EndWhereLinksRunInACircleHoweverManyPagesTheHeaderCounts)
{
    insert(table, {50, 40, 30, 60});
    kaldb::KALDBRootObject root{};
    ASSERT_EQ(kaldb::kaldbGetRootObject(kaldb::KALDB_OBJECT_TABLE, u"Small", root), kaldb::Status::success);
    table.close();
    four.close();
    ASSERT_EQ(database.close(), 0U);
    std::string file = readFile(database.file());
    const std::uint32_t lie = 1U << 31;
    std::memcpy(&file[offsetof(kaldb::KALPageFileHeader, pagesInFile)], &lie, sizeof lie);
    const std::size_t links =
        kaldb::fileHeaderLength + std::size_t{root.firstPage} * kaldb::pageSize + sizeof(kaldb::KALPageHeader);
    std::memcpy(&file[links + offsetof(kaldb::KALDBPageLinks, next)], &root.topPage, sizeof root.topPage);
    std::filesystem::remove(database.backup());
    writeFile(database.file(), file);
    LogLines log;
    database.open();
    table.open(database);
    std::vector<char> record = table.make(40, 0);
    EXPECT_EQ(kaldbTableEnumWithCallback(table.handle(), nullptr, [](void*, const void*) { return 0U; }), 1U);
    EXPECT_EQ(kaldb::kaldbQueryChainRecords(*table.handle()->chain, record.data()), kaldb::Status::success);
}

// ---- callbacks -----------------------------------------------------------------------------------------------------

struct Callbacks : testing::Test {
    static inline std::string seen;              // events with their statuses; "!" without a record
    static inline std::uint32_t refused = 99;    // the event that is answered with 99
    static inline std::function<void()> during;  // what the next event does

    Database database{0};
    Table table{database, u"Called", 64};

    Callbacks()
    {
        table.callbacks.recordEvent = [](std::uint32_t event, std::uint32_t status, void* record) {
            seen += std::to_string(event) + ":" + std::to_string(status) + (record == nullptr ? "! " : " ");
            if (during)
                std::exchange(during, nullptr)();
            return event == refused ? 99U : 0U;
        };
        table.callbacks.checkConstraints = [](std::uint32_t mode, const void* record, std::uint32_t* field) {
            *field = 1;
            const bool bad = fieldOf<std::int64_t>(record, offsetof(Record, value)) == (mode == 0 ? 13 : 14);
            return std::uint32_t{bad ? KALDB_FIELD_INVALID_VALUE : KALDB_FIELD_SUCCESS};
        };
        table.reopen(database);
        seen.clear();
    }
    ~Callbacks() override { EXPECT_TRUE(Database::holdsNothing()); }
};

TEST_F(Callbacks, AreCalledInOrderAndMayRefuse)
{
    KALDBID id{}, next{};
    Table large{database, u"Large", 1000};  // a page holds one record
    large.close();
    large.callbacks = table.callbacks;
    large.open(database);
    struct Step {
        std::uint32_t refused, status;
        const char* seen;
        std::function<std::uint32_t()> operation;
    };
    const std::uint32_t no = 99, badField = KALDB_FIELD_INVALID_VALUE;
    const auto updateCurrent = [&](std::int64_t key, std::int64_t value, const KALDBID& stamped) {
        KALEnumerator* walk = nullptr;
        EXPECT_EQ(table.enumerate(key, walk, false, byKey), 0U);
        std::vector<char> record = table.make(key, value);
        std::memcpy(record.data(), &stamped, sizeof stamped);
        const std::uint32_t status = kaldbTableUpdateCurrentRecord(table.handle(), walk, record.data());
        EXPECT_EQ(kalEnumeratorFree(walk), 0U);
        return status;
    };
    const Step steps[] = {
        {no, 0, "0:0 1:0 ", [&] { return table.insert(1, 0, &id); }},
        {no, alreadyExists, "0:0 1:17 ", [&] { return table.insert(1); }},
        {no, 0, "0:0 1:0 ", [&] { return large.insert(1); }},
        {no, alreadyExists, "0:0 1:17 ", [&] { return large.insert(1); }},
        {no, 2, "0:0 1:0 ", [&] { return large.insert(2, 0, &next) + std::uint32_t(next.sequence); }},
        {no, 0, "4:0 5:0 ", [&] { return table.update(1, 5, id); }},
        {no, notFound, "", [&] { return table.update(2, 5); }},  // a key that falls off the tree is not an update
        {no, 0, "6:0 ", [&] { return table.find(1); }},
        {no, badField, "", [&] { return table.insert(3, 13); }},
        {no, badField, "", [&] { return table.update(1, 13, id); }},
        {no, badField, "", [&] { return updateCurrent(1, 14, id); }},
        {no, 0, "2:0 0:0 1:0 3:0 ", [&] { return updateCurrent(1, 13, id); }},
        {KALDB_EVENT_BEFORE_INSERT, 99, "0:0 ", [&] { return table.insert(7); }},
        {KALDB_EVENT_BEFORE_UPDATE, 99, "4:0 ", [&] { return table.update(1, 6, id); }},
        {KALDB_EVENT_BEFORE_DELETE, 99, "2:0 ", [&] { return table.remove(1); }},
        {no, 0, "2:0 3:0! ", [&] { return kaldbTableDeleteRecordByID(table.handle(), &id); }},
    };
    for (const Step& step : steps) {
        refused = step.refused;
        EXPECT_EQ(step.operation(), step.status) << &step - steps;
        EXPECT_EQ(std::exchange(seen, ""), step.seen) << &step - steps;
    }
}

TEST_F(Callbacks, ThatThrowLeaveNothingHeld)
{
    for (std::int64_t key = 0; key < 60; ++key)
        ASSERT_EQ(table.insert(key * 7 % 60), 0U);
    table.callbacks.compare = [](const void* probe, const void* stored) -> int32_t {
        static int calls = 0;
        if (++calls % 5 == 0)
            throw std::runtime_error("compare");
        return byKey(probe, stored);
    };
    table.reopen(database);
    for (std::int64_t key = 100; key < 130; ++key) {
        table.insert(key);
        table.remove(key - 50);
        EXPECT_TRUE(Database::holdsNothing());
    }
    table.callbacks.compare = byKey;
    table.reopen(database);
    const Keys left = table.allKeys();
    EXPECT_TRUE(std::is_sorted(left.begin(), left.end()));
    for (std::int64_t key = 0; key < 50; ++key)
        EXPECT_EQ(table.find(key), 0U) << key;
}

}  // namespace
