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
};

using ModelKey = std::tuple<std::string, Channel, std::uint32_t>;
ModelKey keyOf(const Release& r) { return {std::string{kaldb::text_of(r.product)}, r.channel, r.version}; }

TEST_F(WrapperTest, TypedTablesAgreeWithAMap)
{
    auto releases = Releases::create(db, "Releases");
    std::map<ModelKey, Release> model;
    std::mt19937 random{7};
    const auto draw = [&](int below) { return std::uniform_int_distribution<int>{0, below - 1}(random); };
    const std::array<const char*, 4> products = {"", "kal", "kaldb", "\xC3\xA4rger"};
    for (int step = 0; step < 6000; ++step) {
        Release r = Releases::probe(products[static_cast<std::size_t>(draw(4))], static_cast<Channel>(draw(3) - 1),
                                    0xFFFFFFF0U + static_cast<std::uint32_t>(draw(60)));
        r.value = step;
        const auto there = model.find(keyOf(r));
        const bool known = there != model.end();
        switch (draw(known ? 6 : 3)) {
        case 0:
        case 1:
            ASSERT_EQ(releases.insert(r), !known);
            ASSERT_EQ(r.id.is_none(), known) << "a refused record must not keep an identifier";
            model.emplace(keyOf(r), r);
            break;
        case 2:
            ASSERT_EQ(releases.update(r), known);  // without an identifier: it gets the stored one
            if (known) {
                ASSERT_EQ(r.id, there->second.id);
                there->second = r;
            }
            break;
        case 3:
        case 4:
            ASSERT_TRUE(step % 2 == 0 ? releases.erase(r) : releases.erase_id(there->second.id));
            ASSERT_FALSE(releases.erase(r) || releases.erase_id(there->second.id));
            ASSERT_FALSE(releases.find(r) || releases.find_id(there->second.id));
            model.erase(there);
            break;
        default:
            ASSERT_EQ(releases.find(products.at(2), Channel::testing, 0xFFFFFFF5U).has_value(),
                      model.contains({products[2], Channel::testing, 0xFFFFFFF5U}));
            ASSERT_EQ(releases.find(r)->value, there->second.value);
            ASSERT_EQ(keyOf(*releases.find_id(there->second.id)), there->first);
        }
        if (step % 1500 == 1499) {
            releases.close();
            db.close();
            db = kaldb::database::open(path);
            releases = Releases::open(db, "Releases");
        }
    }
    ASSERT_GT(model.size(), 200U);

    const auto expect = [&](auto&& walk, auto&& matches, std::size_t least) {
        std::vector<std::int64_t> expected, met;
        for (const auto& [key, record] : model)
            if (matches(key))
                expected.push_back(record.value);
        for (const Release& record : walk)
            met.push_back(record.value);
        EXPECT_EQ(met, expected);
        EXPECT_GE(met.size(), least);
        EXPECT_TRUE(test::Database::holdsNothing());
    };
    using Key = const ModelKey&;
    const auto product = [](Key key) -> const std::string& { return std::get<0>(key); };
    expect(
        releases, [](Key) { return true; }, 200);
    expect(
        releases.equal("kaldb"), [&](Key k) { return product(k) == "kaldb"; }, 20);
    expect(
        releases.equal("kaldb", Channel::stable),
        [&](Key k) { return product(k) == "kaldb" && std::get<1>(k) == Channel::stable; }, 5);
    expect(
        releases.equal<3>(Releases::probe("none")), [](Key) { return false; }, 0);
    expect(
        releases.from("kal", Channel::unstable),
        [](Key k) {
            return std::tuple{std::get<0>(k), std::get<1>(k)} >= std::tuple{"kal", Channel::unstable};
        },
        100);
    expect(
        releases.from(Releases::probe("kaldb", Channel::stable, 3U)),
        [](Key k) {
            return k >= ModelKey{"kaldb", Channel::stable, 3};
        },
        50);
    expect(
        releases.beginning("ka"), [&](Key k) { return product(k).starts_with("ka"); }, 100);
    expect(
        releases.beginning(""), [](Key) { return true; }, 200);
    std::vector<kaldb::id> ids;
    std::ranges::copy(releases.ids(), std::back_inserter(ids));
    ASSERT_EQ(ids.size(), model.size());
    for (auto at = model.begin(); const kaldb::id& id : ids)
        ASSERT_EQ(id, (at++)->second.id);

    releases.erase_equal<1>(Releases::probe("kaldb"));
    std::erase_if(model, [&](const auto& entry) { return product(entry.first) == "kaldb"; });
    expect(
        releases.all(), [](Key) { return true; }, 100);
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
    std::vector<Keys> records(9);
    const auto at = [&](std::size_t i) -> Keys& { return records[i]; };
    at(1).ordered = 1;
    at(2).id.sequence = 0;
    at(3).flag = true;
    at(4).large = UINT64_MAX;
    at(5).small = 1;
    at(6).bytes[2] = 0x80;
    at(7).wide[0] = u'\xE4';
    kaldb::assign(at(8).text, "\xC3\xA4");
    at(0).ordered = -1;
    for (Keys& record : records)
        record.wide[1] = record.wide[0] == 0 ? u'x' : u'\0';  // behind the terminator, so it does not count
    at(2).id.sequence = 1;
    for (std::size_t i : {0U, 1U})
        at(i).id.sequence = 0;

    using Order = kaldb::key<&Keys::text, &Keys::wide, &Keys::bytes, &Keys::small, &Keys::large, &Keys::flag, &Keys::id,
                             &Keys::ordered>;
    std::vector<char> place(sizeof(Keys) + 1);
    for (std::size_t i = 0; i < records.size(); ++i)
        for (std::size_t j = 0; j < records.size(); ++j) {
            std::memcpy(place.data() + 1, &records[j], sizeof(Keys));
            const std::int32_t order = Order::compare(&records[i], place.data() + 1);
            if ((i < 3) == (j < 3)) {
                EXPECT_EQ(order < 0 ? -1 : order > 0, i < j ? -1 : i > j) << i << ' ' << j;
            }
        }
    for (const std::int64_t number : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX})
        EXPECT_EQ(kaldb::ordered_int64{number}, number);
}

TEST(WrapperKeys, RefuseWhatAMemberCannotHold)
{
    EXPECT_EQ(kaldb::text_of(Releases::probe("elevenchars").product), "elevenchars");
    EXPECT_EQ(failureOf([] { Releases::probe("twelve chars"); }),
              "make a key: buffer too small (19, KALDB_BUFFER_TOO_SMALL)");
    EXPECT_EQ(failureOf([] {
                  Releases::probe(std::string_view{"a\0b", 3});
              }),
              "make a key: invalid argument (4, KALDB_INVALID_ARGUMENT)");
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
    const std::string name = path.string();
    const std::filesystem::path other = directory / "other";
    std::error_code error;
    EXPECT_TRUE(db && db.is_new());
    EXPECT_EQ(failureOf([&] { kaldb::database::open(other); }),
              "open " + other.string() + ": a database is open already (17, KALDB_ALREADY_EXISTS)");
    EXPECT_FALSE(kaldb::database::open(other, error));
    EXPECT_EQ(error, kaldb::errc::already_open);
    EXPECT_EQ(failureOf([&] { kaldb::database::create(path); }),
              "create " + name + ": file exists already (17, KALDB_ALREADY_EXISTS)");

    kaldb::database moved = std::move(db);
    EXPECT_TRUE(moved && !db);  // NOLINT: what a moved-from database is, is the question
    db.close();
    EXPECT_EQ(failureOf([&] { db.backup(); }), "none");  // there is one, and backups need no handle
    moved = kaldb::database{};
    EXPECT_EQ(failureOf([&] { db.backup(); }), "back up: database not open (3, KALDB_NOT_OPEN)");

    kaldb::database::open(other, {.create = false}, error);
    EXPECT_TRUE(error == std::errc::no_such_file_or_directory && !std::filesystem::exists(other));
    db = kaldb::database::create(other, error);
    EXPECT_TRUE(!error && db && db.path() == other);
    db.close();
    db = kaldb::database::open(path, {.create = false});
    EXPECT_FALSE(db.is_new());
    std::filesystem::remove(other);
    EXPECT_NE(failureOf([&] { kaldb::database::create(other); }), "none") << "its backup would come back";
    db.close();
    EXPECT_EQ(failureOf([&] { kaldb::database::open(directory.path()); }).substr(0, 5), "open ");
    EXPECT_NE(failureOf([&] { kaldb::database::open(directory / "\xFF"); }).find("KALDB_CONVERSION_FAILED"),
              std::string::npos);
}

TEST_F(WrapperTest, ACloseThatFailsIsReportedAndCanBeRepeated)
{
    const auto count = [&] { return std::ranges::distance(Plains::open(db, "Plains").all()); };
    auto plains = Plains::create(db, "Plains");
    for (int key = 0; key < 50; ++key)
        plains.insert(plain(key));
    plains.close();
    faults::failAt("kalFileWrite", 1, KAL_NO_SPACE, /*forGood=*/true);
    std::error_code error;
    db.close(error);
    EXPECT_TRUE(error == std::errc::no_space_on_device && db);
    EXPECT_EQ(failureOf([&] { db.close(); }), "close " + path.string() + ": no space left (10, KALDB_NO_SPACE)");
    faults::reset();
    db.close(error);
    EXPECT_TRUE(!error && !db);
    db = kaldb::database::open(path);
    EXPECT_EQ(count(), 50);

    // Nobody is there to be told but the log.
    std::string lines;
    kaldb::log_to([&](kaldb::log_level level, std::string_view line) {
        if (level == kaldb::log_level::error)
            lines.append(line).append("|");
    });
    faults::failAt("kalFileWrite", 1, KAL_NO_SPACE, /*forGood=*/true);
    {
        const kaldb::database gone = std::move(db);
    }
    faults::reset();
    EXPECT_NE(lines.find("|kaldb: could not close database [0x0A - no space left]|"), std::string::npos) << lines;
    EXPECT_EQ(kaldbDeinitialize(nullptr), 0U);
}

TEST_F(WrapperTest, TablesAreHeldAgainstTheFile)
{
    using WithIds = kaldb::table<Release, kaldb::key<&Release::product>>;
    struct Other {
        char bytes[sizeof(Release)];
    };
    using SameSize = kaldb::table<Other, kaldb::key<&Other::bytes>>;
    const std::string longest(31, 'n');
    std::error_code error;
    EXPECT_EQ(failureOf([&] { Plains::open(db, "T"); }), "open table T: not found (16, KALDB_NOT_FOUND)");
    Plains::create(db, "T");
    WithIds::open_or_create(db, "Ids");
    EXPECT_TRUE(WithIds::open_or_create(db, "Ids", error) && !error);
    EXPECT_EQ(failureOf([&] { Plains::create(db, "T"); }),
              "create table T: table exists already (17, KALDB_ALREADY_EXISTS)");
    EXPECT_EQ(failureOf([&] { WithIds::open_or_create(db, "T"); }),
              "open table T: records have 302 bytes in the file, 48 here (4, KALDB_INVALID_ARGUMENT)");
    EXPECT_EQ(failureOf([&] { SameSize::open(db, "Ids"); }),
              "open table Ids: records begin with identifiers in the file, not here (4, KALDB_INVALID_ARGUMENT)");
    EXPECT_EQ(failureOf([&] { Plains::open(db, "SysBinary"); }),
              "open table SysBinary: it is a table of pieces (4, KALDB_INVALID_ARGUMENT)");
    for (const std::string& name : {longest + "n", std::string{"a\0b", 3}, std::string{"\xC3"}})
        EXPECT_FALSE(Plains::create(db, name, error) || !error) << name;
    EXPECT_TRUE(Plains::create(db, longest));

    std::string list;
    for (const kaldb::table_info& t : kaldb::tables(db))
        list += t.name + " " + std::to_string(t.record_size) +
                (t.identifiers() ? " ids"
                 : t.pieces()    ? " pieces"
                                 : "") +
                "\n";
    EXPECT_EQ(list, "Ids 48 ids\nSysBinary 64 pieces\nSysVarString 128 pieces\nT 302\n" + longest + " 302\n");

    auto empty = Plains::open(db, "T");
    EXPECT_FALSE(empty.find(1) || empty.erase(1) || empty.update(plain(1)) || empty.begin() != empty.end());
    Plains nothing;
    EXPECT_EQ(failureOf([&] { nothing.insert(plain(1)); }),
              "insert into: invalid argument (4, KALDB_INVALID_ARGUMENT)");
    EXPECT_EQ(failureOf([&] { nothing.begin(); }), "walk through: invalid argument (4, KALDB_INVALID_ARGUMENT)");
    db.close();
    EXPECT_EQ(kaldb::tables(db, error).size(), 0U);
    EXPECT_EQ(error, kaldb::errc::not_open);
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
        EXPECT_EQ(failureOf([&] { plains.insert(plain(3)); }),
                  "insert into Plains: lock conflict (18, KALDB_LOCK_CONFLICT)");
        EXPECT_EQ(failureOf([&] { plains.update(plain(2)); }),
                  "update in Plains: lock conflict (18, KALDB_LOCK_CONFLICT)");
        EXPECT_EQ(failureOf([&] { plains.erase(72); }), "erase from Plains: lock conflict (18, KALDB_LOCK_CONFLICT)");
        EXPECT_TRUE(plains.find(2) && !plains.find(3));
        auto other = std::move(at);  // the lock goes with it
        EXPECT_EQ(std::ranges::distance(plains.from(70)), 5);
    }
    EXPECT_TRUE(test::Database::holdsNothing()) << "a walk that is left early lets go";
    EXPECT_TRUE(plains.insert(plain(3)));

    int met = 0;
    std::error_code error;
    for (Plain record : plains.all(kaldb::walk_for::update)) {
        EXPECT_TRUE(!plains.insert(plain(5), error) && error == kaldb::errc::lock_conflict);
        EXPECT_TRUE(!plains.erase(record, error) && error == kaldb::errc::lock_conflict);
        record.filler[0] = 'u';
        ASSERT_TRUE(plains.update(record));
        ++met;
    }
    EXPECT_EQ(met, 41);
    for (const Plain& record : plains)
        ASSERT_EQ(record.filler[0], 'u');

    auto at = plains.begin();
    plains.close();
    EXPECT_EQ(failureOf([&] { ++at; }), "walk through Plains: database not open (3, KALDB_NOT_OPEN)");
    EXPECT_TRUE(at == std::default_sentinel && test::Database::holdsNothing());
}

TEST_F(WrapperTest, EveryCallHasATwinThatReports)
{
    auto releases = Releases::create(db, "Releases");
    for (std::uint32_t version = 0; version < 100; ++version)
        releases.insert(Releases::probe("kaldb", Channel::stable, version));
    const Release probe = Releases::probe("kaldb", Channel::stable, 70U);
    std::error_code error = kaldb::errc::failure;

    EXPECT_TRUE(!releases.insert(probe, error) && !error) << "a duplicate is an answer";
    EXPECT_TRUE(releases.find(probe, error)->id == releases.find_id(releases.find(probe)->id, error)->id && !error);
    EXPECT_TRUE(!releases.find_id({}, error) && !releases.erase_id({}, error) && !error);
    int met = 0;
    for (const Release& release : releases.from(probe, error))
        met += release.version >= 70;
    EXPECT_TRUE(met == 30 && !error);
    EXPECT_TRUE(releases.erase(probe, error) && !releases.update(probe, error) && !error);

    // A walk whose page cannot be read any more ends, and says why.
    releases.close();
    db.close();
    db = kaldb::database::open(path, {.cache = 0});
    releases = Releases::open(db, "Releases");
    met = 0;
    for (const Release& release : releases.all(error)) {
        static_cast<void>(release);
        if (++met == 10)
            faults::failAt("kalFileRead", 1, KAL_IO_ERROR, /*forGood=*/true);
    }
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
    EXPECT_EQ(failureOf([&] { static_cast<void>(releases.begin()); }),
              "walk through Releases: database not open (3, KALDB_NOT_OPEN)");

    EXPECT_EQ(std::error_code{kaldb::errc::already_open}.message(), "already exists (17, KALDB_ALREADY_EXISTS)");
    EXPECT_EQ(std::error_code(0x02000003, kaldb::category()).message(), "field required (33554435)");
    EXPECT_EQ(std::error_code(27, kaldb::category()).message(), "no free slot (27, KALDB_NO_FREE_SLOT)");
}

TEST_F(WrapperTest, LogLinesGoWhereTheProgramSays)
{
    std::vector<std::pair<kaldb::log_level, std::string>> lines;
    const auto keep = [&](kaldb::log_level level, std::string_view line) {
        if (level <= kaldb::log_level::warning)
            lines.emplace_back(level, line);
    };
    db.close();
    testing::internal::CaptureStderr();
    kaldb::database::open(directory / "silent").close();
    kaldb::log_to(keep);
    kaldb::database::open(directory / "as silent").close();
    EXPECT_TRUE(lines.empty());
    std::filesystem::remove(directory / "as silent");
    kaldb::database::open(directory / "as silent").close();  // its backup comes back: that is news
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].second, "kaldbchain: dbchainValidateFile() restored backup database");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    lines.clear();
    const char16_t text[] = {u'a', 0x00E4, 0x20AC, 0xD83D, 0xDE00, 0xD83D, u'b', 0xDE00, u'\n', 0};
    kalWarning(u"%s", text);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].second, "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD"
                               "b\xEF\xBF\xBD");
    EXPECT_EQ(lines[0].first, kaldb::log_level::warning);

    kaldb::log_to([&](kaldb::log_level, std::string_view) {
        kaldb::log_to(keep);  // while it runs
        throw std::runtime_error("dropped");
    });
    EXPECT_EQ(kalError(u"lost"), std::uint32_t{KAL_FAILURE});
    kalError(u"kept");
    EXPECT_EQ(lines.back().second, "kept");
    kaldb::log_to(nullptr);
    testing::internal::CaptureStderr();
    kaldb::database::open(directory / "silent again").close();
    kalError(u"by default");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "by default\n");
}

}  // namespace
