// What the wrapper keeps in records: texts, variants, rows in bulk order, descriptions of tables.

#include <kaldb/kaldb.hpp>

#include "kaldbchain/layout.h"
#include "kaldbroot/catalogue.h"
#include "support/database.h"

#include <random>
#include <set>

namespace {

struct Note {
    std::int64_t key;
    kaldb::stored_text<16> text;
    kaldb::variant_value value;
};
using Notes = kaldb::table<Note, kaldb::key<&Note::key>>;

template <class Action>
std::uint32_t statusOf(Action&& action)
{
    try {
        action();
    } catch (const kaldb::error& error) {
        return error.status();
    }
    return 0;
}

std::vector<std::byte> bytesOf(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span{text});
    return {bytes.begin(), bytes.end()};
}

class WrapperValuesTest : public testing::Test {
protected:
    void reopen()
    {
        notes.close();
        db.close();
        db = kaldb::database::open(directory / "db");
        notes = Notes::open(db, "Notes");
    }

    test::TempDir directory;
    kaldb::database db = kaldb::database::open(directory / "db");
    Notes notes = Notes::create(db, "Notes");
};

TEST_F(WrapperValuesTest, TextsOfEveryLengthComeBackFromCopiesInAnotherSession)
{
    std::string sample;
    while (sample.size() < 3000)
        sample += "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";
    std::map<std::int64_t, std::string> texts;
    for (const std::size_t size : {0U, 1U, 14U, 15U, 16U, 17U, 126U, 127U, 128U, 129U, 3000U}) {
        std::string text = sample.substr(0, size);
        while (!text.empty() && statusOf([&] { kaldb::stored_text<16>{}.store(text); }) != 0)
            text.replace(text.find_last_of("\xC3\xE2\xF0"), std::string::npos, text.size(), 'x').resize(size);
        texts.emplace(static_cast<std::int64_t>(size), text);
        Note note{static_cast<std::int64_t>(size), {}, {}};
        note.text.store("what was there before, short or long");
        note.text.store(text);
        EXPECT_EQ(note.text.load(), text) << size;
        EXPECT_EQ(note.text.is_long(), size >= 16) << size;
        const Note copy = note;
        EXPECT_TRUE(notes.insert(copy));
    }
    reopen();
    for (Note note : notes.all(kaldb::walk_for::update)) {
        EXPECT_EQ(note.text.size(), texts[note.key].size());
        EXPECT_EQ(note.text.load(), texts[note.key]);
        const kaldb::stored_text<16> old = note.text;
        note.text.erase();
        EXPECT_EQ(note.text.load(), "");
        EXPECT_EQ(statusOf([&] { static_cast<void>(old.load()); }) != 0, old.is_long()) << note.key;
    }
}

TEST_F(WrapperValuesTest, TextsRefuseWhatIsNoTextAndStayAsTheyWere)
{
    kaldb::stored_text<16> text;
    text.store("stays");
    std::error_code error;
    for (const std::string& bad : {std::string{"\xFF"}, std::string(30, '\x80'), std::string{"a\0b", 3}}) {
        text.store(bad, error);
        EXPECT_EQ(error, bad.size() == 3 ? kaldb::errc::invalid_argument : kaldb::errc::conversion_failed);
        EXPECT_EQ(text.load(error), "stays");
        EXPECT_FALSE(error);
    }
    kaldb::stored_text<16> longer;
    longer.store("sixteen bytes and more");
    notes.close();
    db.close();
    EXPECT_EQ(statusOf([&] { longer.store("sixteen bytes or more"); }), std::uint32_t{KALDB_NOT_OPEN});
    EXPECT_EQ(statusOf([&] { static_cast<void>(longer.load()); }), std::uint32_t{KALDB_NOT_OPEN});
    EXPECT_EQ(text.load(), "stays");
    EXPECT_FALSE(kaldb::stored_text<16>{}.is_long());
}

TEST_F(WrapperValuesTest, StoredBytesHoldNothingOfTheProcess)
{
    const auto image = [](std::string_view text) {
        Note note{};
        std::memset(static_cast<void*>(&note.text), 0x5A, sizeof note.text);
        kaldb::text_field{&note.text, 16}.store(text);
        note.value.store(text.substr(0, 5));
        return std::string{reinterpret_cast<const char*>(&note.text), sizeof note.text + sizeof note.value};
    };
    EXPECT_EQ(image("short"), image("short"));
    std::string first = image("a text that is long"), second = image("a text that is long");
    EXPECT_NE(first, second) << "each has a place of its own";
    for (std::string* bytes : {&first, &second})
        bytes->replace(24, 6, 6, '\0');  // page and slot of the place
    EXPECT_EQ(first, second);
}

TEST_F(WrapperValuesTest, VariantsHoldOneOfManyThings)
{
    const std::string text = "\xC3\xA4 text of more than eight bytes";
    const std::vector<std::byte> bytes = bytesOf(std::string_view{"bytes with \0 among them", 23});
    const auto make = [&](std::int64_t key, auto&& fill) {
        Note note{key, {}, {}};
        fill(note.value);
        EXPECT_TRUE(notes.insert(note));
    };
    make(0, [](kaldb::variant_value&) {});
    make(1, [&](kaldb::variant_value& v) { v.store(text); });
    make(2, [](kaldb::variant_value& v) { v.store("short"); });
    make(3, [](kaldb::variant_value& v) { v.store(""); });
    make(4, [&](kaldb::variant_value& v) { v.store(std::span{bytes}); });
    make(5, [](kaldb::variant_value& v) { v.store(kaldb::id{0xFFFF, 0, 0, 77}); });
    make(6, [](kaldb::variant_value& v) { v.store(14, 2.5); });
    make(7, [](kaldb::variant_value& v) { v.store(3, true); });
    reopen();
    const auto value = [&](std::int64_t key) { return notes.find(key)->value; };
    EXPECT_TRUE(value(0).is_null() && value(0).type() == 0);
    EXPECT_EQ(value(1).load_text(), text);
    EXPECT_EQ(value(2).load_text(), "short");
    EXPECT_EQ(value(3).load_text(), "");
    EXPECT_EQ(value(4).load_bytes(), bytes);
    EXPECT_EQ(value(5).load<kaldb::id>().sequence, 77U);
    EXPECT_EQ(value(6).load<double>(), 2.5);
    EXPECT_EQ(value(6).load_bytes().size(), 8U);
    EXPECT_TRUE(value(7).load<bool>());

    constexpr std::uint32_t wrong = KALDB_INVALID_ARGUMENT;
    EXPECT_EQ(statusOf([&] { static_cast<void>(value(0).load_bytes()); }), wrong);
    EXPECT_EQ(statusOf([&] { static_cast<void>(value(4).load_text()); }), wrong);
    EXPECT_EQ(statusOf([&] { static_cast<void>(value(6).load<float>()); }), wrong);
    EXPECT_EQ(statusOf([&] { static_cast<void>(value(1).load<double>()); }), wrong);
    EXPECT_EQ(statusOf([&] { value(0).store(3, 1.0); }), wrong);
    EXPECT_EQ(statusOf([&] { value(0).store(17, 1.0); }), wrong);
    for (std::int64_t key = 0; key < 8; ++key) {
        kaldb::variant_value erased = value(key);
        erased.erase();
        EXPECT_TRUE(erased.is_null());
        const bool wasLong = key == 1 || key == 4;
        EXPECT_EQ(statusOf([&] { static_cast<void>(value(key).load_bytes()); }) != 0, wasLong || key == 0) << key;
    }
}

TEST_F(WrapperValuesTest, BytesThatMakeNoSenseAreFailuresAtMost)
{
    Note note{};
    note.text.store("a text to be found by chance, long enough to be stored");
    note.value.store("a text to be found by chance, long enough to be stored");
    std::mt19937 random{11};
    auto* const bytes = reinterpret_cast<unsigned char*>(&note.text);
    const Note good = note;
    unsigned failures = 0;
    for (int round = 0; round < 4000; ++round) {
        note = good;
        const bool wild = round % 4 == 0;
        for (unsigned changes = wild ? 40 : 1 + random() % 2; changes > 0; --changes)
            bytes[random() % (sizeof note.text + sizeof note.value)] = static_cast<unsigned char>(random() >> 8);
        std::error_code error;
        static_cast<void>(note.text.load(error));
        failures += error ? 1U : 0U;
        static_cast<void>(note.value.load_text(error));
        failures += error ? 1U : 0U;
        static_cast<void>(note.value.load_bytes(error));
        if (wild) {
            note.text.erase(error);
            note.value.erase(error);
        }
    }
    EXPECT_GT(failures, 1000U);
    EXPECT_TRUE(test::Database::holdsNothing());
}

struct Row {
    std::uint32_t key;
    char filler[60];
};
using Rows = kaldb::table<Row, kaldb::key<&Row::key>>;

/// Pages of a table and the longest way from its top page.
struct Tree {
    std::uint32_t pages = 0;
    std::uint32_t depth = 0;
};

void measure(std::uint32_t page, std::uint32_t depth, Tree& tree)
{
    if (page == KALDB_NO_PAGE)
        return;
    void* body = nullptr;
    KALPageManager* manager = kaldb::kaldbChainGetPageManager();
    ASSERT_EQ(kalPageManagerLoadPage(manager, KALDB_LOCK_READ, page, &body), 0U);
    const auto links = test::fieldOf<kaldb::KALDBPageLinks>(body, 0);
    ASSERT_EQ(kalPageManagerUnloadPage(manager, body), 0U);
    ++tree.pages;
    tree.depth = std::max(tree.depth, depth);
    measure(links.prev, depth + 1, tree);
    measure(links.next, depth + 1, tree);
}

TEST_F(WrapperValuesTest, BulkOrderFillsPagesAndBalancesTheirTree)
{
    EXPECT_EQ(kaldb::bulk_order(7, 3), (std::vector<std::size_t>{4, 3, 5, 1, 0, 2, 6}));
    for (const std::size_t count : {0U, 1U, 2U, 3U, 26U, 27U, 1000U})
        for (const std::size_t perPage : {0U, 1U, 2U, 3U, 4U, 7U, 26U}) {
            const std::vector<std::size_t> order = kaldb::bulk_order(count, perPage);
            const std::set<std::size_t> numbers(order.begin(), order.end());
            ASSERT_TRUE(order.size() == count && numbers.size() == count) << count << ' ' << perPage;
            ASSERT_TRUE(count == 0 || *numbers.rbegin() == count - 1);
        }

    struct Case {
        std::size_t records, perPage;
        std::uint32_t pages, depth;
    };
    static_assert(Rows::records_per_page == 26);
    for (const Case& c : {Case{26 * 63, 26, 63, 6}, Case{26 * 100 + 1, 26, 101, 7}, Case{20 * 63, 20, 63, 6}}) {
        const std::string name = "Rows" + std::to_string(c.records);
        Rows rows = Rows::create(db, name);
        for (const std::size_t number : kaldb::bulk_order(c.records, c.perPage))
            ASSERT_TRUE(rows.insert(Row{static_cast<std::uint32_t>(number), {}}));
        kaldb::KALDBRootObject root;
        const std::u16string wide(name.begin(), name.end());
        ASSERT_EQ(kaldb::kaldbGetRootObject(kaldb::KALDB_OBJECT_TABLE, wide.c_str(), root), kaldb::Status::success);
        Tree tree;
        measure(root.topPage, 1, tree);
        EXPECT_EQ(tree.pages, c.pages) << c.records;
        EXPECT_EQ(tree.depth, c.depth) << c.records;
        std::uint32_t next = 0;
        for (const Row& row : rows)
            ASSERT_EQ(row.key, next++);
        EXPECT_EQ(next, c.records);
    }
}

struct Described {
    kaldb::id id;
    char name[24];
    kaldb::ordered_int64 number;
    kaldb::null_bits<5> nulls;
    bool flag;
    std::int64_t size;
    std::uint32_t raw;
    kaldb::stored_text<8> text;
};
using DescribedTable = kaldb::table<Described, kaldb::key<&Described::name, &Described::number>>;

TEST_F(WrapperValuesTest, DescriptionsBecomeRowsThatReplaceEarlierOnes)
{
    using kaldb::schema_column;
    const std::vector<schema_column> columns = {
        schema_column::of<&Described::number>("number"), schema_column::of<&Described::name>("name"),
        schema_column::of<&Described::flag>("flag"),     schema_column::of<&Described::size>("size"),
        schema_column::of<&Described::raw>("raw"),       schema_column::of<&Described::text>("text")};
    kaldb::describe<DescribedTable, &Described::nulls>(db, "Another", columns);
    kaldb::describe<DescribedTable, &Described::nulls>(db, "D", columns);
    kaldb::describe<DescribedTable, &Described::nulls>(db, "D", {columns[1], columns[0], columns[5]});
    std::string rows;
    const auto schema =
        kaldb::raw_table::open(db, kaldb::schema_table_name, {160, false, kaldb::schema_record::compare});
    for (const std::span<const std::byte> bytes : schema.all()) {
        kaldb::schema_record row;
        std::memcpy(&row, bytes.data(), sizeof row);
        for (const unsigned number : {unsigned{row.table[0]}, unsigned{row.ordinal[1]}, unsigned{row.type},
                                      unsigned{row.bits}, row.offset, row.width, row.key_position})
            rows += std::to_string(number) + " ";
        rows += row.column + std::string{"\n"};
    }
    EXPECT_EQ(rows, "65 0 0 4 48 112 1 \n65 1 2 3 40 8 2 number\n65 2 4 3 16 24 1 name\n65 3 1 2 49 1 0 flag\n"
                    "65 4 2 2 56 8 0 size\n65 5 6 10 64 4 0 raw\n65 6 5 2 72 8 0 text\n"
                    "68 0 0 4 48 112 1 \n68 1 4 3 16 24 1 name\n68 2 2 3 40 8 2 number\n68 3 5 2 72 8 0 text\n");

    using Unordered = kaldb::table<Described, kaldb::key<&Described::name, &Described::size>>;
    std::error_code error;
    kaldb::describe<Unordered, &Described::nulls>(db, "D", columns, error);
    EXPECT_EQ(error, kaldb::errc::invalid_argument) << "a gap before the second member, and no order of bytes";
    std::vector<schema_column> many(9, columns[4]);
    kaldb::describe<DescribedTable, &Described::nulls>(db, "D", many, error);
    EXPECT_EQ(error, kaldb::errc::invalid_argument) << "eight bits for nine columns";
}

}  // namespace
