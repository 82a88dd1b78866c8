// What the wrapper keeps in records: texts, variants, rows in bulk order, descriptions of tables.

#include <kaldb/kaldb.hpp>

#include "support/database.h"

#include <array>
#include <functional>
#include <numeric>
#include <random>

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
    const auto textOf = [](std::int64_t length) {
        std::string text = length % 3 == 0 ? "" : length % 3 == 1 ? "z" : "\xC3\xA4";
        while (text.size() < static_cast<std::size_t>(length))
            text += "\xE2\x82\xAC";
        return text;
    };
    for (const std::int64_t length : {0, 1, 14, 15, 16, 17, 126, 127, 128, 129, 3000}) {
        Note note{length, {}, {}};
        note.text.store("what was there before, short or long");
        note.text.store(textOf(length));
        EXPECT_EQ(note.text.load(), textOf(length));
        EXPECT_EQ(note.text.is_long(), length >= 16) << length;
        const Note copy = note;
        EXPECT_TRUE(notes.insert(copy));
    }
    reopen();
    for (Note note : notes.all(kaldb::walk_for::update)) {
        EXPECT_EQ(note.text.size(), note.key);
        EXPECT_EQ(note.text.load(), textOf(note.key));
        const kaldb::stored_text<16> old = note.text;
        note.text.erase();
        EXPECT_EQ(note.text.load(), "");
        EXPECT_EQ(statusOf([&] { static_cast<void>(old.load()); }) != 0, old.is_long()) << note.key;
    }
}

TEST_F(WrapperValuesTest, TextsRefuseWhatIsNoTextAndStayAsTheyWere)
{
    kaldb::stored_text<16> text, longer;
    text.store("stays");
    longer.store("sixteen bytes and more");
    std::error_code error;
    for (const std::string& bad : {std::string{"\xFF"}, std::string(30, '\x80'), std::string{"a\0b", 3}}) {
        text.store(bad, error);
        EXPECT_EQ(error, bad.size() == 3 ? kaldb::errc::invalid_argument : kaldb::errc::conversion_failed);
        EXPECT_TRUE(text.load(error) == "stays" && !error);
    }
    notes.close();
    db.close();
    longer.store("sixteen bytes or more", error);
    EXPECT_EQ(error, kaldb::errc::not_open);
    static_cast<void>(longer.load(error));
    EXPECT_TRUE(error == kaldb::errc::not_open && text.load() == "stays");
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
    const auto view = std::as_bytes(std::span{"bytes with \0 among them"});
    const std::vector<std::byte> bytes{view.begin(), view.end()};
    std::array<Note, 8> made{};  // the first value stays null
    made[1].value.store(text);
    made[2].value.store("short");
    made[3].value.store("");
    made[4].value.store(std::span{bytes});
    made[5].value.store(kaldb::id{0xFFFF, 0, 0, 77});
    made[6].value.store(14, 2.5);
    made[7].value.store(3, true);
    for (std::size_t i = 0; i < made.size(); ++i) {
        made[i].key = static_cast<std::int64_t>(i);
        EXPECT_TRUE(notes.insert(made[i]));
    }
    reopen();
    const auto value = [&](std::int64_t key) { return notes.find(key)->value; };
    EXPECT_TRUE(value(0).is_null() && value(0).type() == 0);
    EXPECT_EQ(value(1).load_text() + value(2).load_text() + value(3).load_text(), text + "short");
    EXPECT_EQ(value(4).load_bytes(), bytes);
    EXPECT_EQ(value(5).load<kaldb::id>().sequence, 77U);
    EXPECT_TRUE(value(6).load<double>() == 2.5 && value(6).load_bytes().size() == 8 && value(7).load<bool>());

    for (const std::function<void()>& wrong : std::initializer_list<std::function<void()>>{
             [&] { static_cast<void>(value(0).load_bytes()); }, [&] { static_cast<void>(value(4).load_text()); },
             [&] { static_cast<void>(value(6).load<float>()); }, [&] { static_cast<void>(value(1).load<double>()); },
             [&] { value(0).store(3, 1.0); }, [&] { value(0).store(17, 1.0); }})
        EXPECT_EQ(statusOf(wrong), std::uint32_t{KALDB_INVALID_ARGUMENT});
    for (std::int64_t key = 0; key < 8; ++key) {
        kaldb::variant_value erased = value(key);
        erased.erase();
        EXPECT_TRUE(erased.is_null());
        const bool gone = key == 0 || key == 1 || key == 4;  // null, or long
        EXPECT_EQ(statusOf([&] { static_cast<void>(value(key).load_bytes()); }) != 0, gone) << key;
    }
}

TEST_F(WrapperValuesTest, BytesThatMakeNoSenseAreFailuresAtMost)
{
    Note good{};
    good.text.store("a text to be found by chance, long enough to be stored");
    good.value.store("a text to be found by chance, long enough to be stored");
    std::mt19937 random{11};
    unsigned failures = 0;
    for (int round = 0; round < 4000; ++round) {
        Note note = good;
        auto* const bytes = reinterpret_cast<char*>(&note.text);
        for (unsigned changes = round % 4 == 0 ? 40 : 1 + random() % 2; changes > 0; --changes)
            bytes[random() % (sizeof note.text + sizeof note.value)] = static_cast<char>(random() >> 8);
        std::error_code error;
        static_cast<void>(note.text.load(error));
        failures += error ? 1U : 0U;
        static_cast<void>(note.value.load_text(error));
        failures += error ? 1U : 0U;
        static_cast<void>(note.value.load_bytes(error));
        if (round % 4 == 0) {
            note.text.erase(error);
            note.value.erase(error);
        }
    }
    EXPECT_GT(failures, 1000U);
    EXPECT_TRUE(test::Database::holdsNothing());
}

// That pages come out full and near is seen by the command, which loads in this order.
TEST(BulkOrder, NamesEachRecordOnce)
{
    EXPECT_EQ(kaldb::bulk_order(7, 3), (std::vector<std::size_t>{4, 3, 5, 1, 0, 2, 6}));
    for (const std::size_t count : {0U, 1U, 2U, 3U, 26U, 27U, 1000U})
        for (const std::size_t perPage : {0U, 1U, 2U, 3U, 4U, 7U, 26U}) {
            std::vector<std::size_t> order = kaldb::bulk_order(count, perPage), all(count);
            std::iota(all.begin(), all.end(), std::size_t{0});
            std::ranges::sort(order);
            EXPECT_EQ(order, all) << perPage;
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
    for (const char* name : {"Another", "D"})
        kaldb::describe<DescribedTable, &Described::nulls>(db, name, columns);
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
    std::error_code gap, bits;  // before the second member, which has no order of bytes; eight for nine columns
    kaldb::describe<Unordered, &Described::nulls>(db, "D", columns, gap);
    kaldb::describe<DescribedTable, &Described::nulls>(db, "D", std::vector<schema_column>(9, columns[4]), bits);
    EXPECT_TRUE(gap == kaldb::errc::invalid_argument && bits == kaldb::errc::invalid_argument);
}

}  // namespace
