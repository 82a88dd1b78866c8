// What comes in: delimited text, JSON, the types of columns, and the forms of values in records and keys.

#include "csv.h"
#include "failure.h"
#include "output.h"
#include "plan.h"
#include "text.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <sstream>

namespace {

using namespace kaldb::tool;

std::string cells(const std::string& text, char delimiter = ',')
{
    std::istringstream in{text};
    CsvReader reader{in, "input", delimiter};
    std::string all;
    std::vector<std::string> fields;
    while (reader.next(fields)) {
        for (const std::string& field : fields)
            all += "[" + field + "]";
        all += std::to_string(reader.line());
    }
    return all;
}

std::string failureOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what;
    }
    return "none";
}

TEST(Csv, ReadsQuotesLineEndsAndMarks)
{
    EXPECT_EQ(cells("a,b\nc,d\n"), "[a][b]1[c][d]2");
    EXPECT_EQ(cells("a,b\r\nc,d"), "[a][b]1[c][d]2");
    EXPECT_EQ(cells("\xEF\xBB\xBF\"a\",b"), "[a][b]1");
    EXPECT_EQ(cells("\"a,\"\"x\"\"\",\"two\r\nlines\"\nz,"), "[a,\"x\"][two\r\nlines]1[z][]3");
    EXPECT_EQ(cells("\n\r\na\n\n\"\"\n"), "[a]3[]5") << "an empty line is no record, an empty field is";
    EXPECT_EQ(cells("a b\tc,d\n", '\t'), "[a b][c,d]1");
    EXPECT_EQ(cells("a\rb,c\n"), "[a\rb][c]1");
    EXPECT_EQ(cells(""), "");
    EXPECT_EQ(failureOf([] { cells("a,\"b\nc"); }), "line 2, column 2: a quoted field is not closed");
    EXPECT_EQ(failureOf([] { cells("x\n\"a\"b,c\n"); }), "line 2, column 4: text follows a closing quote");
    EXPECT_EQ(failureOf([] { cells("a\"b"); }), "line 1, column 2: a quote inside an unquoted field");
}

TEST(Csv, WhatIsWrittenReadsBack)
{
    std::mt19937 random{3};
    for (int round = 0; round < 500; ++round) {
        std::vector<std::string> fields(1 + random() % 4);
        std::string text;
        for (std::string& field : fields) {
            for (std::size_t i = random() % 5; i > 0; --i)
                field += "a,\"\n\r x"[random() % 7];
            text += (text.empty() && &field == fields.data() ? "" : ",") + delimitedCell(field, ',');
        }
        if (fields.size() == 1 && fields[0].empty())
            continue;
        std::istringstream in{text + "\n"};
        CsvReader reader{in, "input"};
        std::vector<std::string> read;
        ASSERT_TRUE(reader.next(read)) << text;
        ASSERT_EQ(read, fields) << text;
        ASSERT_FALSE(reader.next(read));
    }
}

TEST(Text, ConversionsAndSizes)
{
    const std::string all = "a\u00e9\u20ac\U0001F600";
    EXPECT_EQ(utf8(utf16(all)), all);
    EXPECT_EQ(utf8(std::u16string{u'a', char16_t{0xD800}, u'b'}), "a\uFFFDb");
    EXPECT_EQ(findInvalidUtf8(all), std::string::npos);
    for (const char* invalid :
         {"\x80", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8", "\xE2\x82"})
        EXPECT_EQ(findInvalidUtf8(std::string{"ab"} + invalid), 2U) << printable(invalid);
    EXPECT_EQ(latin1ToUtf8("\xE9"), "\u00e9");
    EXPECT_EQ(printable("a\n\x1B[31m\xC2\x9B\xFF\u00e9"), "a\\n\\x1B[31m\\x9B\\xFF\u00e9");
    EXPECT_EQ(byteSize(8'761'436), "8.8 MB (8,761,436 bytes)");
    EXPECT_EQ(byteSize(999), "999 bytes");
    EXPECT_EQ(byteSize(999'960), "1.0 MB (999,960 bytes)");
}

// Greater values have greater key bytes, and come back as they went in.
TEST(Key, ByteOrderIsValueOrder)
{
    const auto check = [](ColumnType type, std::vector<Value> ascending) {
        const Column column{"k", type, true, false, 0, type == ColumnType::boolean ? 1U : 8U, 1};
        std::vector<std::byte> last;
        for (const Value& value : ascending) {
            std::vector<std::byte> field(column.width);
            ASSERT_TRUE(encodeKey(value, column, field));
            EXPECT_TRUE(last.empty() || last < field) << toText(value, column);
            EXPECT_TRUE(decodeKey(column, field) == value) << toText(value, column);
            EXPECT_TRUE(parseValue(toText(value, column), column) == value);
            last = field;
        }
    };
    constexpr auto least = std::numeric_limits<std::int64_t>::min(), most = std::numeric_limits<std::int64_t>::max();
    check(ColumnType::integer, {least, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, std::int64_t{256}, most});
    check(ColumnType::number, {-1e300, -1.5, -5e-324, 0.0, 5e-324, 1.0, 1.0000000000000002, 1e300});
    check(ColumnType::boolean, {false, true});
    check(ColumnType::chars,
          {std::string{}, std::string{"a"}, std::string{"ab"}, std::string{"b"}, std::string{"\u00e9"}});
    std::vector<std::byte> field(8);
    EXPECT_FALSE(encodeKey(std::string(9, 'x'), {"k", ColumnType::chars, true, false, 0, 8, 1}, field));
    EXPECT_FALSE(encodeKey({}, {"k", ColumnType::integer, true, false, 0, 8, 1}, field)) << "null is no key";
}

TableSchema plan(const std::string& text, PlanOptions options, InputFormat format = InputFormat::csv)
{
    std::istringstream in{text};
    InputOptions from;
    from.format = format;
    const InputRows input = readInput(in, "input", from);
    if (options.key.empty())
        options.key = {input.columns.front()};
    return planTable(input, options);
}

std::string types(const TableSchema& schema)
{
    std::string all;
    for (const Column& column : schema.columns)
        all += column.typeName() + " ";
    return all;
}

TEST(Plan, TypesKeepWhatTheInputSays)
{
    const auto typeOf = [](const std::string& values) { return types(plan("k,v\n" + values, {})).substr(4); };
    EXPECT_EQ(typeOf("1,5\n2,-6\n3,\n"), "i64 ");
    EXPECT_EQ(typeOf("1,5\n2,6.25\n"), "f64 ");
    EXPECT_EQ(typeOf("1,true\n2,false\n"), "bool ");
    EXPECT_EQ(typeOf("1,true\n2,1\n"), "char(4) ");
    for (const char* kept : {"007", "+5", "1.0", "1e5", " 5", "nan"})
        EXPECT_EQ(typeOf("1,5\n2," + std::string{kept} + "\n").substr(0, 4), "char") << kept;
    EXPECT_EQ(
        types(plan("{\"k\":\"7\",\"v\":1,\"w\":18446744073709551615}\n{\"k\":\"8\",\"x\":{\"a\":[1]},\"v\":1.5}\n", {},
                   InputFormat::jsonl)),
        "char(1) f64 char(20) char(9) ");
    EXPECT_EQ(types(plan("k,v\n1,5\n", {.types = {{"v", "text(40)"}, {"k", "char(9)"}}})), "char(9) text(40) ");
    EXPECT_EQ(types(plan("k,v\n1,aabb\n", {.types = {{"v", "bytes"}}})), "i64 bytes(2) ");

    EXPECT_EQ(failureOf([] { plan("k,k\n1,2\n", {}); }), "column name 'k' is empty, too long or occurs twice");
    EXPECT_EQ(failureOf([] { plan("k\n1\n", {.key = {"z"}}); }), "there is no column 'z'");
    EXPECT_EQ(failureOf([] { plan("k\n1\n", {.types = {{"k", "char(0)"}}}); }), "column 'k': no type 'char(0)'");
    EXPECT_EQ(failureOf([] { plan("k\n" + std::string(255, 'x') + "\n", {}); }),
              "the key takes 255 bytes; at most 254 are possible");
    EXPECT_EQ(failureOf([] { plan("k,v\n1,2,3\n", {}); }), "line 2: 3 fields, but there are 2 columns");
    EXPECT_EQ(failureOf([] { plan("k\n\xFF\n", {}); }), "line 2: not valid UTF-8");
    EXPECT_EQ(failureOf([] { plan("[1]", {}, InputFormat::jsonl); }), "line 1: a row is no JSON object");
}

// Short texts lie in the record; when a few are long, those go out of line and the page keeps its many records.
TEST(Plan, TextsAreLaidOutForTheFewestPages)
{
    std::string text = "k,v\n";
    for (int i = 0; i < 1000; ++i)
        text += std::to_string(i) + "," + std::string(i % 100 == 0 ? 400 : 20, 'x') + "\n";
    const TableSchema schema = plan(text, {.ids = true});
    EXPECT_EQ(types(schema), "i64 text(24) ");
    EXPECT_EQ(schema.columns[0].offset, 16U);
    EXPECT_EQ(schema.nullOffset, 24U);
    EXPECT_EQ(schema.columns[1].offset, 32U);
    EXPECT_EQ(schema.recordSize, 88U);
    EXPECT_EQ(schema.fault(), "");
    EXPECT_EQ(types(plan("k,v\n1," + std::string(3000, 'x') + "\n", {})), "i64 text(8) ");
}

TEST(Schema, RowsOfTheSchemaTableAndJsonAgree)
{
    TableSchema schema = plan("k,n,v\n1,2,text\n", {.table = "T", .key = {"n", "k"}});
    std::vector<std::string> keys;
    for (const SchemaRecord& record : schemaRecords(schema))
        keys.emplace_back(reinterpret_cast<const char*>(&record), schemaKeyBytes);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_EQ(keys.size(), 4U);
    EXPECT_EQ(schema.keyColumns(), (std::vector<std::size_t>{1, 0}));

    schema.columns[2].width = 600;
    EXPECT_NE(schema.fault(), "");
    schema.place();
    EXPECT_EQ(schema.fault(), "");
}

}  // namespace
