// What comes in: delimited text, JSON, the types of columns, and the forms of values in records and keys.

#include "csv.h"
#include "failure.h"
#include "output.h"
#include "plan.h"
#include "text.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace {

using namespace kaldb::tool;

std::string failureOf(const std::function<std::string()>& action)
{
    try {
        return action();
    } catch (const Failure& failure) {
        return failure.what;
    }
}

/// The fields of all records in brackets, with the lines that they begin in; or the failure.
std::string cells(const std::string& text, char delimiter = ',')
{
    return failureOf([&] {
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
    });
}

TEST(Csv, ReadsQuotesLineEndsAndMarks)
{
    for (const auto& [text, expected] :
         {std::pair{"a,b\nc,d\n", "[a][b]1[c][d]2"},
          {"a,b\r\nc,d", "[a][b]1[c][d]2"},
          {"\xEF\xBB\xBF\"a\",b", "[a][b]1"},
          {"\"a,\"\"x\"\"\",\"two\r\nlines\"\nz,", "[a,\"x\"][two\r\nlines]1[z][]3"},
          {"\n\r\na\n\n\"\"\n", "[a]3[]5"},  // an empty line is no record, an empty field is
          {"a\rb,c\n", "[a\rb][c]1"},
          {"", ""},
          {"a,\"b\nc", "line 2, column 2: a quoted field is not closed"},
          {"x\n\"a\"b,c\n", "line 2, column 4: text follows a closing quote"},
          {"a\"b", "line 1, column 2: a quote inside an unquoted field"}})
        EXPECT_EQ(cells(text), expected);
    EXPECT_EQ(cells("a b\tc,d\n", '\t'), "[a b][c,d]1");
    EXPECT_EQ(delimitedCell("\r", ',') + delimitedCell("a;b", ',') + delimitedCell("a;b", ';'), "\"\r\"a;b\"a;b\"");
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
    EXPECT_EQ(byteSize(8'761'436) + ", " + byteSize(999), "8.8 MB (8,761,436 bytes), 999 bytes");
    EXPECT_EQ(byteSize(999'960), "1.0 MB (999,960 bytes)");
}

// Greater values have greater key bytes, and come back as they went in.
TEST(Key, ByteOrderIsValueOrder)
{
    const auto check = [](ColumnType type, const std::vector<Value>& ascending) {
        const Column column{"k", type, true, false, 0, type == ColumnType::boolean ? 1U : 8U, 1};
        std::vector<std::byte> last, field(column.width);
        for (const Value& value : ascending) {
            ASSERT_TRUE(encodeKey(value, column, field));
            EXPECT_TRUE(last.empty() || last < field) << toText(value, column);
            EXPECT_TRUE(decodeKey(column, field) == value) << toText(value, column);
            EXPECT_TRUE(parseValue(toText(value, column), column) == value);
            last = field;
        }
        EXPECT_FALSE(encodeKey({}, column, field)) << "null is no key";
        EXPECT_TRUE(type != ColumnType::chars || !encodeKey(std::string(9, 'x'), column, field));
    };
    constexpr auto least = std::numeric_limits<std::int64_t>::min(), most = std::numeric_limits<std::int64_t>::max();
    check(ColumnType::integer, {least, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, std::int64_t{256}, most});
    check(ColumnType::number, {-1e300, -1.5, -5e-324, 0.0, 5e-324, 1.0, 1.0000000000000002, 1e300});
    check(ColumnType::boolean, {false, true});
    check(ColumnType::chars,
          {std::string{}, std::string{"a"}, std::string{"ab"}, std::string{"b"}, std::string{"\u00e9"}});
}

TableSchema plan(const std::string& text, PlanOptions options = {}, InputFormat format = InputFormat::csv)
{
    std::istringstream in{text};
    InputOptions from;
    from.format = format;
    const InputRows input = readInput(in, "input", from);
    if (options.key.empty())
        options.key = {input.columns.front()};
    return planTable(input, options);
}

/// The types of the columns, or the failure.
std::string types(const std::string& text, const PlanOptions& options = {}, InputFormat format = InputFormat::csv)
{
    return failureOf([&] {
        std::string all;
        for (const Column& column : plan(text, options, format).columns)
            all += column.typeName() + " ";
        return all;
    });
}

TEST(Plan, TypesKeepWhatTheInputSays)
{
    const std::string wide(255, 'x');
    for (const auto& [csv, expected] : std::vector<std::pair<std::string, std::string>>{
             {"k,v\n1,5\n2,-6\n3,\n", "i64 i64 "},
             {"k,v\n1,5\n2,6.25\n", "i64 f64 "},
             {"k,v\n1,true\n2,false\n", "i64 bool "},
             {"k,v\n1,true\n2,1\n", "i64 char(4) "},
             {"k,v\n1," + std::string(3000, 'x') + "\n", "i64 text(8) "},
             {"k,k\n1,2\n", "column name 'k' is empty, too long or occurs twice"},
             {"k\n" + wide + "\n", "the key takes 255 bytes; at most 254 are possible"},
             {"k,v\n1,2,3\n", "line 2: 3 fields, but there are 2 columns"},
             {"k\n\xFF\n", "line 2: not valid UTF-8"}})
        EXPECT_EQ(types(csv), expected);
    for (const std::string kept : {"007", "+5", "1.0", "1e5", " 5", "nan"})
        EXPECT_TRUE(types("k,v\n1,5\n2," + kept + "\n").starts_with("i64 char(")) << kept;
    EXPECT_EQ(types("k,v\n1,5\n", {.types = {{"v", "text(40)"}, {"k", "char(9)"}}}), "char(9) text(40) ");
    EXPECT_EQ(types("k,v\n1,aabb\n", {.types = {{"v", "bytes"}}}), "i64 bytes(2) ");
    EXPECT_EQ(types("k\n1\n", {.key = {"z"}}), "there is no column 'z'");
    EXPECT_EQ(types("k\n1\n", {.types = {{"k", "char(0)"}}}), "column 'k': no type 'char(0)'");
    EXPECT_EQ(types("[1]", {}, InputFormat::jsonl), "line 1: a row is no JSON object");
    EXPECT_EQ(types(R"({"k":1,"a":{"k":2},"k":3})", {}, InputFormat::jsonl), "line 1: member 'k' occurs twice");
    EXPECT_EQ(types(R"({"kaldb":1,"columns":2})", {}, InputFormat::jsonl), "i64 i64 ") << "a row, no schema";
    EXPECT_EQ(types("\xEF\xBB\xBF"
                    "ab\n",
                    {}, InputFormat::lines),
              "char(2) ");
    EXPECT_NE(types(R"([{"k":7e999}])", {}, InputFormat::json).find("number overflow"), std::string::npos);
    EXPECT_EQ(types(R"({"k":"7","v":1,"w":18446744073709551615})"
                    "\n"
                    R"({"k":"8","x":{"a":[1]},"v":1.5})",
                    {}, InputFormat::jsonl),
              "char(1) f64 char(20) char(9) ");
}

// Short texts lie in the record; when a few are long, those go out of line and the page keeps its many records.
TEST(Plan, TextsAreLaidOutForTheFewestPages)
{
    std::string text = "k,v\n";
    for (int i = 0; i < 1000; ++i)
        text += std::to_string(i) + "," + std::string(i % 100 == 0 ? 400 : 20, 'x') + "\n";
    EXPECT_EQ(types(text), "i64 text(24) ");
    const TableSchema schema = plan(text, {.ids = true});
    EXPECT_EQ((std::vector{schema.columns[0].offset, schema.nullOffset, schema.columns[1].offset, schema.recordSize}),
              (std::vector{16U, 24U, 32U, 88U}));
}

}  // namespace
