// The looking verbs, as a user calls them: what they print, their exit codes, and that they leave the file alone.

#include "support/command.h"
#include "support/people.h"

#include "json.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <sstream>

namespace {

using json = kaldb::tool::Json;
using test::Answer;
using test::kaldb;
using test::person;

class LookTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static const test::TempDir folder;
        people = folder / "people.kaldb";
        test::PeopleFile{people, /*foreign=*/true};
        std::filesystem::copy_file(people, dirty = folder / "dirty.kaldb");
        std::string bytes = test::readFile(dirty);
        bytes[88] = 1;
        test::writeFile(dirty, bytes);
    }

    static std::vector<json> lines(const std::string& text)
    {
        std::vector<json> all;
        std::istringstream in{text};
        for (std::string line; std::getline(in, line);)
            all.push_back(json::parse(line));
        return all;
    }
    static json row(int number)
    {
        const test::Person one = person(number);
        return {{"name", one.name},
                {"age", one.age % 3 == 0 ? json() : json(one.age)},
                {"active", one.age % 2 == 1},
                {"note", one.note}};
    }

    static inline std::string people, dirty;
};

TEST_F(LookTest, TablesAndInfoCountWhatIsThere)
{
    EXPECT_EQ(kaldb("tables " + people + " --names").out, "Foreign\nKaldbSchema\nPeople\n");
    const json tables = json::parse(kaldb("tables " + people + " --json").out)["tables"];
    EXPECT_EQ(tables[0]["records"], 5);
    EXPECT_EQ(tables[1]["records"], 5);
    EXPECT_EQ(tables[2]["records"], 120);
    EXPECT_EQ(tables[2]["recordSize"], 104);
    EXPECT_EQ(tables[2]["nextId"], 120);
    EXPECT_GT(tables[2]["pages"].integer(), 6);
    EXPECT_NE(kaldb("tables " + people).out.find("\nKaldbSchema        5   160      1  45 %      1  no\n"),
              std::string::npos);
    EXPECT_EQ(json::parse(kaldb("tables " + people + " --system --json").out)["tables"].size(), 7U);

    const json info = json::parse(kaldb("info " + people + " --json").out);
    EXPECT_EQ(info["bytes"], std::filesystem::file_size(people));
    EXPECT_EQ(info["pages"], info["pagesHeld"]);
    EXPECT_EQ(info["recordPages"].integer() + info["binaryPages"].integer(), info["pages"]);
    EXPECT_EQ(info["lostPages"], 0);
    EXPECT_EQ(info["tables"], 3);
    EXPECT_EQ(info["backup"]["state"], "clean");
    EXPECT_NE(kaldb("info " + dirty).out.find("state      dirty"), std::string::npos);
}

TEST_F(LookTest, DumpGivesEveryRowInKeyOrder)
{
    const Answer answer = kaldb("dump " + people + " People");
    const std::vector<json> rows = lines(answer.out);
    ASSERT_EQ(rows.size(), 120U) << answer;
    for (int i = 0; i < 120; ++i)
        ASSERT_EQ(rows[static_cast<std::size_t>(i)], row(i));
    EXPECT_EQ(kaldb("dump " + people + " People --format csv --columns note,name,age").out.substr(0, 58),
              "note,name,age\n\"" + std::string(42, 'x') + "x");
    const std::string csv = kaldb("dump " + people + " People --format csv --columns name,age,note").out;
    EXPECT_NE(csv.find("\nperson 007,7,\"note, \"\"007\"\"\"\n"), std::string::npos) << csv;
    EXPECT_NE(csv.find("x \u00e9\n,010\"\nperson 011"), std::string::npos);
    EXPECT_NE(kaldb("dump " + people + " Foreign").out.find(" 6300000000000000\n"), std::string::npos) << "as hex";

    const std::vector<json> schema = lines(kaldb("dump " + people + " --schema-only").out);
    ASSERT_EQ(schema.size(), 1U);
    EXPECT_EQ(schema[0], json::parse(kaldb("schema " + people + " People --json").out));
    EXPECT_EQ(schema[0]["columns"][0],
              (json{{"name", "name"}, {"type", "char"}, {"width", 16}, {"key", 1}, {"notNull", true}}));
}

TEST_F(LookTest, GetFindsRowsByKeyRangeAndIdentifier)
{
    const auto names = [](const std::string& arguments) {
        std::string found;
        for (const json& one : lines(kaldb("get " + people + " People --format jsonl " + arguments).out))
            found += one["name"].text().substr(7) + " ";
        return found;
    };
    EXPECT_EQ(lines(kaldb("get " + people + " People 'person 005' --format jsonl").out)[0], row(5));
    EXPECT_EQ(names("'person 099' 'person 000'"), "099 000 ");
    EXPECT_EQ(names("--prefix 'person 03'"), "030 031 032 033 034 035 036 037 038 039 ");
    EXPECT_EQ(names("--from 'person 118'"), "118 119 ");
    EXPECT_EQ(names("--from 'person 04' --to 'person 042' --limit 9"), "040 041 042 ");
    EXPECT_EQ(names("--from 'person' --limit 2"), "000 001 ");
    EXPECT_EQ(names("--id 0,1,119"), "000 007 113 ");
    EXPECT_EQ(lines(kaldb("get " + people + " People 'person 007' --ids --columns age --format jsonl").out)[0],
              (json{{"_id", 1}, {"age", 7}}));
    EXPECT_EQ(kaldb("get " + people + " People 'person 007' --columns name,age").out,
              "name        age\nperson 007    7\n");

    const Answer missing = kaldb("get " + people + " People nobody");
    EXPECT_EQ(missing.exit, 1);
    EXPECT_EQ(missing.out + missing.error, "");
    EXPECT_EQ(kaldb("get " + people + " People --id 120").exit, 1);
    EXPECT_EQ(kaldb("get " + people + " People --prefix q").exit, 1);
}

TEST_F(LookTest, PagesShowsEveryPageOnceAndOneInFull)
{
    json pages = json::parse(kaldb("pages " + people + " --json").out)["pages"];
    EXPECT_EQ(pages.size(), json::parse(kaldb("info " + people + " --json").out)["pages"]);
    std::int64_t records = 0;
    for (const json& page : pages.elements())
        records += page["table"] == "People" ? page["count"].integer() : 0;
    EXPECT_EQ(records, 120);
    const json root = json::parse(kaldb("pages " + people + " 0 --json --hex").out);
    EXPECT_EQ(root["table"], "ROOT");
    EXPECT_EQ(root["slots"].size(), root["count"]);
    EXPECT_EQ(root["slots"][0]["bytes"].text().substr(32, 16), "52004f004f005400");
    EXPECT_EQ(lines(kaldb("pages " + people + " 1-3 --json").out)[0]["pages"].size(), 3U);
}

TEST_F(LookTest, EveryWayToEndHasItsExitCodeAndPrintsNothing)
{
    const test::TempDir folder;
    const auto file = [&](const char* name, const std::string& bytes) {
        test::writeFile(folder / name, bytes);
        return (folder / name).string();
    };
    const std::string image = test::readFile(people);
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(std::system(("mkfifo " + pipe).c_str()), 0);
    std::string future = image;
    future[84] = 2;

    const std::vector<std::pair<std::string, int>> cases{
        {"info " + folder.path().string() + "/none", 3},
        {"info " + folder.path().string(), 3},
        {"check " + pipe, 3},
        {"check /dev/null", 3},
        {"tables " + file("empty", ""), 3},
        {"tables " + file("short", image.substr(0, 91)), 3},
        {"dump " + file("picture", "\x89PNG\r\n" + std::string(5000, 'x')), 3},
        {"info " + file("future", future), 3},
        {"get " + dirty + " People x", 4},
        {"dump " + dirty, 4},
        {"dump " + people + " Nothing", 1},
        {"schema " + people + " Foreign", 1},
        {"pages " + people + " 9999", 1},
        {"pages " + people + " 3-1", 2},
        {"get " + people + " Foreign x", 2},
        {"get " + people + " People", 2},
        {"get " + people + " People 'a name of 17 byte'", 2},
        {"get " + people + " People x --columns nothing", 2},
        {"dump " + people + " --format xml", 2},
        {"dump " + people + " Foreign People --format csv", 2},
        {"frobnicate " + people, 2},
        {"", 2},
        {"info", 2},
        {"dump " + people + " People> /dev/full; exit $?; echo", 3},
    };
    for (const auto& [arguments, exit] : cases) {
        const Answer answer = kaldb(arguments);
        EXPECT_EQ(answer.exit, exit) << arguments << "\n" << answer;
        EXPECT_EQ(answer.out, "") << arguments;
        EXPECT_EQ(answer.error.substr(0, 7), "kaldb: ") << arguments << answer;
    }
    const json error = json::parse(kaldb("tables --json " + folder.path().string() + "/none").error)["error"];
    EXPECT_EQ(error["exit"], 3);
    EXPECT_EQ(error["kind"], "missing");
    EXPECT_EQ(kaldb("--help").exit, 0);
    EXPECT_EQ(kaldb("dump " + dirty + " People --dirty").exit, 0);
}

TEST_F(LookTest, LookingChangesNothing)
{
    const std::string before = test::readFile(people), backup = test::readFile(people + ".backup");
    const std::string unclean = test::readFile(dirty);
    const auto files = [&] {
        std::string names;
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(people).parent_path()))
            names += entry.path().filename().string() + " ";
        return names;
    };
    const std::string listing = files();
    // Nobody's user, since the superuser may write everywhere; where that user cannot reach the command, the present
    // one.
    const auto folder = std::filesystem::path(people).parent_path();
    const std::string nobody = geteuid() == 0 ? "exec setpriv --reuid 65534 --regid 65534 --clear-groups env " : "";
    const std::string reader = kaldb("version", nobody).exit == 0 ? nobody : "";
    std::filesystem::permissions(folder, std::filesystem::perms{0555});
    for (const char* verb : {"info ", "tables ", "schema ", "check ", "pages ", "dump --dirty "})
        for (const std::string& path : {people, dirty})
            EXPECT_EQ(kaldb(verb + path, reader).exit, 0) << verb << path;
    std::filesystem::permissions(folder, std::filesystem::perms{0755});
    EXPECT_EQ(files(), listing);
    EXPECT_TRUE(test::readFile(people) == before && test::readFile(people + ".backup") == backup &&
                test::readFile(dirty) == unclean);
}

}  // namespace
