// The C++ wrapper: databases, tables against a model, walks and what may happen during them, failures and their twins.

#include <kaldb/kaldb.hpp>

#include "support/database.h"
#include "support/faults.h"

#include <map>
#include <random>
#include <ranges>
#include <tuple>

namespace {

enum class Channel : std::int16_t { stable = -1, testing, unstable };

struct Release {
    kaldb::id id;
    char product[12];
    Channel channel;
    std::uint32_t version;
    std::int64_t value;
};
using Releases = kaldb::table<Release, kaldb::key<&Release::product, &Release::channel, &Release::version>>;
static_assert(Releases::identifiers && Releases::records_per_page == 34);
static_assert(std::ranges::input_range<Releases> && std::ranges::input_range<kaldb::record_walk<Release>>);

struct Plain {
    std::uint16_t key;
    char filler[300];
};
using Plains = kaldb::table<Plain, kaldb::key<&Plain::key>>;
static_assert(!Plains::identifiers && Plains::records_per_page == 6);

Plain plain(int key)
{
    Plain record{};
    record.key = static_cast<std::uint16_t>(key);
    return record;
}

const std::string invalid = ": invalid argument (4, KALDB_INVALID_ARGUMENT)",
                  wrongTable = " (4, KALDB_INVALID_ARGUMENT)", notOpen = ": database not open (3, KALDB_NOT_OPEN)",
                  exists = " already (17, KALDB_ALREADY_EXISTS)",
                  locked = " Plains: lock conflict (18, KALDB_LOCK_CONFLICT)";

template <class Action>
std::string failureOf(Action&& action)
{
    try {
        action();
    } catch (const kaldb::error& error) {
        return error.what();
    }
    return "none";
}

class WrapperTest : public testing::Test {
protected:
    ~WrapperTest() override { kaldb::log_to(nullptr); }

    test::TempDir directory;
    std::filesystem::path path = directory / "db \xC3\xA4";
    kaldb::database db = kaldb::database::open(path, {.cache = 256 << 10});
    std::error_code error;
};

using ModelKey = std::tuple<std::string, Channel, std::uint32_t>;
ModelKey keyOf(const Release& r) { return {std::string{kaldb::text_of(r.product)}, r.channel, r.version}; }
/// Where a product, or one of its channels, begins.
ModelKey start(const std::string& product, Channel channel = Channel::stable, std::uint32_t version = 0)
{
    return {product, channel, version};
}

TEST_F(WrapperTest, TypedTablesAgreeWithAMap)
{
    auto releases = Releases::create(db, "Releases");
    std::map<ModelKey, Release> model;
    std::mt19937 random{7};
    const auto draw = [&](unsigned below) { return static_cast<unsigned>(random() % below); };
    const std::array<const char*, 4> products = {"", "kal", "kaldb", "\xC3\xA4rger"};
    for (unsigned step = 0; step < 6000; ++step) {
        Release r = Releases::probe(products.at(draw(4)), static_cast<Channel>(static_cast<int>(draw(3)) - 1),
                                    0xFFFFFFF0U + draw(60));
        r.value = step;
        const auto there = model.find(keyOf(r));
        const bool known = there != model.end();
        const unsigned dice = draw(known ? 6 : 3);
        if (dice < 2) {
            ASSERT_EQ(releases.insert(r), !known);
            ASSERT_EQ(r.id.is_none(), known) << "a refused record must not keep an identifier";
            model.emplace(keyOf(r), r);
        } else if (dice == 2) {
            ASSERT_EQ(releases.update(r), known);  // without an identifier: it gets the stored one
            ASSERT_TRUE(!known || r.id == std::exchange(there->second, r).id);
        } else if (dice == 3) {
            ASSERT_EQ(releases.find(r)->value, there->second.value);
            ASSERT_EQ(keyOf(*releases.find_id(there->second.id)), there->first);
        } else {
            ASSERT_TRUE(dice == 4 ? releases.erase(r) : releases.erase_id(there->second.id));
            ASSERT_FALSE(releases.erase(r) || releases.erase_id(there->second.id));
            ASSERT_FALSE(releases.find(r) || releases.find_id(there->second.id));
            model.erase(there);
        }
        if (step % 1500 == 1499) {
            releases.close();
            db.close();
            db = kaldb::database::open(path);
            releases = Releases::open(db, "Releases");
        }
    }
    const auto expect = [&](const auto& walk, const ModelKey& from, const ModelKey& to, std::size_t least) {
        std::vector<std::int64_t> expected, met;
        for (auto at = model.lower_bound(from); at != model.lower_bound(to); ++at)
            expected.push_back(at->second.value);
        for (const Release& record : walk)
            met.push_back(record.value);
        EXPECT_EQ(met, expected);
        EXPECT_GE(met.size(), least);
        EXPECT_TRUE(test::Database::holdsNothing());
    };
    EXPECT_EQ(releases.find("kaldb", Channel::testing, 0xFFFFFFF5U).has_value(),
              model.contains(start("kaldb", Channel::testing, 0xFFFFFFF5U)));
    const ModelKey first = start(""), end = start("\xFF");
    expect(releases, first, end, 200);
    expect(releases.equal("kaldb"), start("kaldb"), start("kaldc"), 20);
    expect(releases.equal("kaldb", Channel::stable), start("kaldb"), start("kaldb", Channel::testing), 5);
    expect(releases.equal<3>(Releases::probe("none")), first, first, 0);
    expect(releases.from("kal", Channel::unstable), start("kal", Channel::unstable), end, 100);
    expect(releases.from(Releases::probe("kaldb", Channel::stable, 3U)), start("kaldb", Channel::stable, 3), end, 50);
    expect(releases.beginning("ka"), start("ka"), start("kb"), 100);
    expect(releases.beginning(""), first, end, 200);
    auto record = model.begin();
    for (const kaldb::id& id : releases.ids())
        ASSERT_EQ(id, (record++)->second.id);
    ASSERT_EQ(record, model.end());

    releases.erase_equal<1>(Releases::probe("kaldb"));
    model.erase(model.lower_bound(start("kaldb")), model.lower_bound(start("kaldc")));
    expect(releases.all(), first, end, 100);
}

struct Keys {
    char text[6];
    char16_t wide[3];
    unsigned char bytes[3];
    std::int8_t small;
    std::uint64_t large;
    bool flag;
    kaldb::id id;
    kaldb::ordered_int64 ordered;
};

TEST(WrapperKeys, MembersCompareByTheirValuesWhereverARecordLies)
{
    using Order = kaldb::key<&Keys::text, &Keys::wide, &Keys::bytes, &Keys::small, &Keys::large, &Keys::flag, &Keys::id,
                             &Keys::ordered>;
    // From the last member to the first, each with a greater value than in all records before.
    std::vector<Keys> records(9);
    for (Keys& record : records)
        record.id.sequence = 0;
    records[0].ordered = -1;
    records[1].ordered = 1;
    records[2].id.sequence = 1;
    records[3].flag = true;
    records[4].large = UINT64_MAX;
    records[5].small = 1;
    records[6].bytes[2] = 0x80;
    records[7].wide[0] = u'\xE4';
    kaldb::assign(records[8].text, "\xC3\xA4");
    for (Keys& record : records)
        record.wide[1] = record.wide[0] == 0 ? u'x' : u'\0';  // behind the terminator, so it does not count
    std::vector<char> place(sizeof(Keys) + 1);
    for (std::size_t i = 0; i < records.size(); ++i)
        for (std::size_t j = 0; j < records.size(); ++j) {
            std::memcpy(place.data() + 1, &records[j], sizeof(Keys));
            const std::int32_t order = Order::compare(&records[i], place.data() + 1);
            EXPECT_EQ(order < 0 ? -1 : order > 0, i < j ? -1 : i > j) << i << ' ' << j;
        }
    for (const std::int64_t number : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX})
        EXPECT_EQ(kaldb::ordered_int64{number}, number);
}

TEST(WrapperKeys, RefuseWhatAMemberCannotHold)
{
    EXPECT_EQ(kaldb::text_of(Releases::probe("elevenchars").product), "elevenchars");
    EXPECT_EQ(failureOf([] { Releases::probe("twelve chars"); }),
              "make a key: buffer too small (19, KALDB_BUFFER_TOO_SMALL)");
    EXPECT_EQ(failureOf([] { Releases::probe(std::string("a\0b", 3)); }), "make a key" + invalid);
    for (const long long number : {-1LL, 65536LL, 1LL << 32})
        EXPECT_NE(failureOf([&] { Plains::probe(number); }), "none") << number;
    EXPECT_EQ(Plains::probe(65535LL).key, 65535);
    char field[4] = "abc";
    std::error_code error;
    kaldb::assign(field, "1234", error);
    EXPECT_TRUE(error == kaldb::errc::buffer_too_small && kaldb::text_of(field) == "abc");
    kaldb::assign(field, "x", error);
    EXPECT_TRUE(!error && std::memcmp(field, "x\0\0\0", 4) == 0);
}

TEST_F(WrapperTest, DatabasesAreOpenedOnceAndMadeOnPurpose)
{
    const std::filesystem::path other = directory / "other";
    EXPECT_TRUE(db && db.is_new());
    EXPECT_EQ(failureOf([&] { kaldb::database::open(other); }),
              "open " + other.string() + ": a database is open" + exists);
    EXPECT_TRUE(!kaldb::database::open(other, error) && error == kaldb::errc::already_open);
    EXPECT_EQ(failureOf([&] { kaldb::database::create(path); }), "create " + path.string() + ": file exists" + exists);

    kaldb::database moved = std::move(db);
    EXPECT_TRUE(moved && !db);  // NOLINT: what a moved-from database is, is the question
    db.close();
    EXPECT_EQ(failureOf([&] { db.backup(); }), "none");  // there is one, and backups need no handle
    EXPECT_TRUE(kaldb::tables(db, error).empty() && error == kaldb::errc::not_open) << "that one is not its own";
    EXPECT_TRUE(!Releases::create(moved, "", error) && error == kaldb::errc::invalid_argument);
    EXPECT_TRUE(!Releases::open_or_create(db, "Empty", error) && error == kaldb::errc::not_open);
    moved = kaldb::database{};
    EXPECT_EQ(failureOf([&] { db.backup(); }), "back up" + notOpen);

    kaldb::database::open(other, {.create = false}, error);
    EXPECT_TRUE(error == std::errc::no_such_file_or_directory && !std::filesystem::exists(other));
    db = kaldb::database::create(other, error);
    EXPECT_TRUE(!error && db && db.path() == other);
    db.close();
    std::filesystem::remove(other);
    EXPECT_NE(failureOf([&] { kaldb::database::create(other); }), "none") << "its backup would come back";
    db = kaldb::database::open(path, {.create = false});
    EXPECT_FALSE(db.is_new());
    db.close();
    kaldb::database::open(directory / "\xFF", error);
    EXPECT_EQ(error, kaldb::errc::conversion_failed);
}

TEST_F(WrapperTest, ACloseThatFailsIsReportedAndCanBeRepeated)
{
    Plains::create(db, "Plains").insert(plain(5));
    faults::failAt("kalFileWrite", 1, KAL_NO_SPACE, /*forGood=*/true);
    db.close(error);
    EXPECT_TRUE(error == std::errc::no_space_on_device && db);
    EXPECT_EQ(failureOf([&] { db.close(); }), "close " + path.string() + ": no space left (10, KALDB_NO_SPACE)");
    faults::reset();
    db.close(error);
    EXPECT_TRUE(!error && !db);
    db = kaldb::database::open(path);
    EXPECT_TRUE(Plains::open(db, "Plains").find(5));

    // Nobody is there to be told but the log.
    std::string lines;
    kaldb::log_to([&](kaldb::log_level, std::string_view line) { lines.append(line).append("|"); });
    faults::failAt("kalFileWrite", 1, KAL_NO_SPACE, /*forGood=*/true);
    static_cast<void>(kaldb::database{std::move(db)});
    kaldb::database::open(path, error);
    EXPECT_EQ(error, std::errc::no_space_on_device) << "it has to be closed first";
    faults::reset();
    EXPECT_NE(lines.find("|kaldb: could not close database [0x0A - no space left]|"), std::string::npos) << lines;
    db = kaldb::database::open(path);
    EXPECT_TRUE(Plains::open(db, "Plains").find(5));
}

TEST_F(WrapperTest, TablesAreHeldAgainstTheFile)
{
    using WithIds = kaldb::table<Release, kaldb::key<&Release::product>>;
    struct Other {
        char bytes[sizeof(Release)];
    };
    using SameSize = kaldb::table<Other, kaldb::key<&Other::bytes>>;
    const std::string longest(31, 'n');
    EXPECT_EQ(failureOf([&] { Plains::open(db, "T"); }), "open table T: not found (16, KALDB_NOT_FOUND)");
    Plains::create(db, "T");
    WithIds::open_or_create(db, "Ids");
    EXPECT_TRUE(WithIds::open_or_create(db, "Ids", error) && !error);
    EXPECT_EQ(failureOf([&] { Plains::create(db, "T"); }), "create table T: table exists" + exists);
    EXPECT_EQ(failureOf([&] { WithIds::open_or_create(db, "T"); }),
              "open table T: records have 302 bytes in the file, 48 here" + wrongTable);
    EXPECT_EQ(failureOf([&] { SameSize::open(db, "Ids"); }),
              "open table Ids: records begin with identifiers in the file, not here" + wrongTable);
    EXPECT_EQ(failureOf([&] { Plains::open(db, "SysBinary"); }),
              "open table SysBinary: it is a table of pieces" + wrongTable);
    for (const std::string& name : {longest + "n", std::string{"a\0b", 3}, std::string{"\xC3"}})
        EXPECT_FALSE(Plains::create(db, name, error) || !error) << name;
    EXPECT_TRUE(Plains::create(db, longest));

    std::string list;
    for (const kaldb::table_info& t : kaldb::tables(db))
        list += t.name +
                (t.identifiers() ? " ids "
                 : t.pieces()    ? " pieces "
                                 : " ") +
                std::to_string(t.record_size) + ", ";
    EXPECT_EQ(list, "Ids ids 48, SysBinary pieces 64, SysVarString pieces 128, T 302, " + longest + " 302, ");

    auto empty = Plains::open(db, "T");
    EXPECT_FALSE(empty.find(1) || empty.erase(1) || empty.update(plain(1)) || empty.begin() != empty.end());
    Plains nothing;
    EXPECT_EQ(failureOf([&] { nothing.insert(plain(1)); }), "insert into" + invalid);
    EXPECT_EQ(failureOf([&] { nothing.begin(); }), "walk through" + invalid);
}

TEST_F(WrapperTest, WalksKeepTheirTableFromChangingOrLetItBeUpdated)
{
    auto plains = Plains::create(db, "Plains");
    for (int key = 0; key < 40; ++key)
        plains.insert(plain(2 * key));
    {
        auto at = plains.begin();
        ++at;
        EXPECT_EQ(at->key, 2);
        EXPECT_EQ(failureOf([&] { plains.insert(plain(3)); }), "insert into" + locked);
        EXPECT_EQ(failureOf([&] { plains.update(plain(2)); }), "update in" + locked);
        EXPECT_EQ(failureOf([&] { plains.erase(72); }), "erase from" + locked);
        EXPECT_TRUE(plains.find(2) && !plains.find(3));
        auto other = std::move(at);  // the lock goes with it
        EXPECT_EQ(std::ranges::distance(plains.from(70)), 5);
    }
    EXPECT_TRUE(test::Database::holdsNothing()) << "a walk that is left early lets go";
    EXPECT_TRUE(plains.insert(plain(3)));

    for (Plain record : plains.all(kaldb::walk_for::update)) {
        EXPECT_TRUE(!plains.insert(plain(5), error) && error == kaldb::errc::lock_conflict);
        EXPECT_TRUE(!plains.erase(record, error) && error == kaldb::errc::lock_conflict);
        record.filler[0] = 'u';
        ASSERT_TRUE(plains.update(record));
    }
    EXPECT_EQ(std::ranges::count_if(plains, [](const Plain& record) { return record.filler[0] == 'u'; }), 41);

    auto at = plains.begin();
    plains.close();
    EXPECT_EQ(failureOf([&] { ++at; }), "walk through Plains" + notOpen);
    EXPECT_TRUE(at == std::default_sentinel && test::Database::holdsNothing());
}

TEST_F(WrapperTest, EveryCallHasATwinThatReports)
{
    auto releases = Releases::create(db, "Releases");
    for (std::uint32_t version = 0; version < 100; ++version)
        releases.insert(Releases::probe("kaldb", Channel::stable, version));
    const Release probe = Releases::probe("kaldb", Channel::stable, 70U);
    error = kaldb::errc::failure;
    EXPECT_TRUE(!releases.insert(probe, error) && !error) << "a duplicate is an answer";
    EXPECT_TRUE(releases.find_id(releases.find(probe, error)->id, error)->version == 70 && !error);
    EXPECT_TRUE(std::ranges::distance(releases.from(probe, error)) == 30 && !error);
    EXPECT_TRUE(releases.erase(probe, error) && !releases.update(probe, error) && !error);

    // A walk whose page cannot be read any more ends, and says why.
    releases.close();
    db.close();
    db = kaldb::database::open(path, {.cache = 0});
    releases = Releases::open(db, "Releases");
    int met = 0;
    for ([[maybe_unused]] const Release& release : releases.all(error))
        if (++met == 10)
            faults::failAt("kalFileRead", 1, KAL_IO_ERROR, /*forGood=*/true);
    EXPECT_TRUE(met >= 10 && met < 99 && error == std::errc::io_error) << met << error.message();
    faults::reset();
    EXPECT_EQ(std::ranges::distance(releases.ids()), 99);

    db.close();
    for (const auto& call : std::initializer_list<std::function<void()>>{
             [&] { releases.insert(probe, error); }, [&] { releases.find(probe, error); },
             [&] { releases.find_id({}, error); }, [&] { releases.erase(probe, error); },
             [&] { releases.erase_id({}, error); }, [&] { releases.erase_equal<1>(probe, error); },
             [&] { releases.equal<1>(probe, error).begin(); }, [&] { releases.ids(error).begin(); },
             [&] { Releases::open(db, "Releases", error); }, [&] { Releases::create(db, "New", error); },
             [&] { static_cast<void>(kaldb::tables(db, error)); }, [&] { db.backup(error); }}) {
        error.clear();
        call();
        EXPECT_EQ(error, kaldb::errc::not_open);
    }
    for (const auto& [status, message] : {std::pair{17, "already exists (17, KALDB_ALREADY_EXISTS)"},
                                          {27, "no free slot (27, KALDB_NO_FREE_SLOT)"},
                                          {0x02000003, "field required (33554435)"}})
        EXPECT_EQ(std::error_code(status, kaldb::category()).message(), message);
}

TEST_F(WrapperTest, LogLinesGoWhereTheProgramSays)
{
    std::vector<std::string> lines;
    const auto keep = [&](kaldb::log_level level, std::string_view line) {
        if (level <= kaldb::log_level::warning)
            lines.emplace_back(line);
    };
    const auto openAndClose = [&] { kaldb::database::open(directory / "other").close(); };
    db.close();
    testing::internal::CaptureStderr();
    kaldb::log_to(keep);
    openAndClose();
    EXPECT_TRUE(lines.empty());
    std::filesystem::remove(directory / "other");
    openAndClose();  // its backup comes back: that is news
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1], "kaldbchain: dbchainValidateFile() restored backup database");

    const char16_t text[] = {u'a', 0x00E4, 0x20AC, 0xD83D, 0xDE00, 0xD83D, u'b', 0xDE00, u'\n', 0};
    kalWarning(u"%s", text);
    EXPECT_EQ(lines.back(), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD\x62\xEF\xBF\xBD");
    kaldb::log_to([&](kaldb::log_level, std::string_view) {
        kaldb::log_to(keep);  // while it runs
        throw std::runtime_error("dropped");
    });
    EXPECT_EQ(kalError(u"lost"), std::uint32_t{KAL_FAILURE});
    kalError(u"kept");
    EXPECT_EQ(lines.back(), "kept");
    kaldb::log_to(nullptr);
    std::filesystem::remove(directory / "other.backup");
    std::filesystem::remove(directory / "other");
    openAndClose();
    kalError(u"by default");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "by default\n");
}

}  // namespace
