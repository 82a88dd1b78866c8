// The looking verbs, as a user calls them: what they print.

#include "support/command.h"
#include "support/people.h"

#include "json.h"

#include <sstream>

namespace {

using json = kaldb::tool::Json;

class LookTest : public test::CommandTest {
protected:
    LookTest() { test::PeopleFile{folder_ / "p", /*foreign=*/true}; }

    json report(const std::string& arguments) const { return json::parse(done(arguments + " --json")); }
    std::vector<json> lines(const std::string& arguments) const
    {
        std::vector<json> all;
        std::istringstream in{done(arguments)};
        for (std::string line; std::getline(in, line);)
            all.push_back(json::parse(line));
        return all;
    }
    static json row(int number)
    {
        const test::Person one = test::person(number);
        return {{"name", one.name},
                {"age", one.age % 3 == 0 ? json() : json(one.age)},
                {"active", one.age % 2 == 1},
                {"note", one.note}};
    }
};

TEST_F(LookTest, TablesInfoAndPagesCountWhatIsThere)
{
    EXPECT_EQ(done("tables p --names"), "Foreign\nKaldbSchema\nPeople\n");
    EXPECT_NE(done("tables p").find("\nKaldbSchema        5   160      1  45 %      1  no\n"), std::string::npos);
    EXPECT_EQ(report("tables p --system")["tables"].size(), 7U);
    EXPECT_EQ(report("tables p --names")["tables"].size(), 3U);
    const json tables = report("tables p")["tables"];
    EXPECT_TRUE(tables[0]["records"] == 5 && tables[1]["records"] == 5) << tables;
    EXPECT_TRUE(tables[2]["records"] == 120 && tables[2]["recordSize"] == 104 && tables[2]["nextId"] == 120) << tables;

    const json info = report("info p");
    EXPECT_EQ(info["bytes"], std::filesystem::file_size(folder_ / "p"));
    EXPECT_EQ(info["pages"], info["pagesHeld"]);
    EXPECT_EQ(info["recordPages"].integer() + info["binaryPages"].integer(), info["pages"]);
    EXPECT_TRUE(info["lostPages"] == 0 && info["tables"] == 3 && info["backup"]["state"] == "clean") << info;

    const json pages = report("pages p")["pages"], root = report("pages p 0 --hex");
    EXPECT_EQ(pages.size(), info["pages"]);
    std::int64_t records = 0;
    for (const json& page : pages.elements())
        records += page["table"] == "People" ? page["count"].integer() : 0;
    EXPECT_EQ(records, 120);
    EXPECT_TRUE(root["table"] == "ROOT" && root["slots"].size() == root["count"]) << root;
    EXPECT_EQ(root["slots"][0]["bytes"].text().substr(32, 16), "52004f004f005400");
    EXPECT_EQ(report("pages p 1-3")["pages"].size(), 3U);
    file("lonely", bytes("p").replace(88, 1, "\1"));
    EXPECT_TRUE(run("pages lonely 0 --hex").out.starts_with("page 0: ROOT, ")) << run("pages lonely 0 --hex");
    EXPECT_EQ(report("info lonely")["backup"], json());
    file("\xFF", bytes("p"));
    EXPECT_NE(done("check \xFF").find("the library's page check counts nothing"), std::string::npos);
}

TEST_F(LookTest, DumpGivesEveryRowInKeyOrder)
{
    const std::vector<json> rows = lines("dump p People");
    ASSERT_EQ(rows.size(), 120U);
    for (int i = 0; i < 120; ++i)
        ASSERT_EQ(rows[static_cast<std::size_t>(i)], row(i));
    const std::string csv = done("dump p People --format csv --columns note,name,age");
    EXPECT_TRUE(csv.starts_with("note,name,age\n\"" + std::string(300, 'x') + " \u00e9\n,000\",person 000,\n")) << csv;
    EXPECT_NE(csv.find("\n\"note, \"\"007\"\"\",person 007,7\n"), std::string::npos) << csv;
    EXPECT_NE(done("dump p Foreign").find(" 6300000000000000\n"), std::string::npos) << "as hex";

    const std::vector<json> schema = lines("dump p --schema-only");
    ASSERT_EQ(schema.size(), 1U);
    EXPECT_EQ(schema[0], report("schema p People"));
    EXPECT_EQ(schema[0]["columns"][0],
              (json{{"name", "name"}, {"type", "char"}, {"width", 16}, {"key", 1}, {"notNull", true}}));
}

TEST_F(LookTest, GetFindsRowsByKeyRangeAndIdentifier)
{
    EXPECT_EQ(lines("get p People 'person 005' --format jsonl")[0], row(5));
    for (const auto& [which, names] : {std::pair{"'person 099' 'person 000'", "099 000 "},
                                       {"--prefix 'person 03'", "030 031 032 033 034 035 036 037 038 039 "},
                                       {"--from 'person 118'", "118 119 "},
                                       {"--from 'person 04' --to 'person 042' --limit 9", "040 041 042 "},
                                       {"--from 'person' --limit 2", "000 001 "},
                                       {"--id 0,1,119", "000 007 113 "}}) {
        std::string found;
        for (const json& one : lines("get p People --format jsonl " + std::string{which}))
            found += one["name"].text().substr(7) + " ";
        EXPECT_EQ(found, names) << which;
    }
    EXPECT_EQ(done("get p People 'person 007' --ids --columns age --format jsonl"), "{\"_id\":1,\"age\":7}\n");
    EXPECT_EQ(done("get p People 'person 007' --columns name,age"), "name        age\nperson 007    7\n");
    for (const char* missing : {"nobody", "--id 120", "--prefix q", "'person 001' nobody --format csv"}) {
        const test::Answer answer = run("get p People " + std::string{missing});
        EXPECT_TRUE(answer.exit == 1 && answer.out.empty() && answer.error.empty()) << missing << answer;
    }
}

}  // namespace
