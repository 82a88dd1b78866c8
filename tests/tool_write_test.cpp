// The writing verbs, as a user calls them: what they write, that a failure changes nothing, and that a kill does not
// either.

#include "support/command.h"
#include "support/file_image.h"
#include "support/people.h"

#include "catalogue.h"
#include "output.h"

#include <array>
#include <chrono>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

namespace {

using test::Answer;

std::string rows(int count, int from = 0)
{
    std::string csv = "k,v\n";
    for (int i = from; i < from + count; ++i)
        csv += std::to_string(i * 7919 % 100'000) + "," + std::string(static_cast<std::size_t>(i % 40), 'x') + "\n";
    return csv;
}

using WriteTest = test::CommandTest;

TEST_F(WriteTest, LoadTellsWhatItMadeAndRefusesRepeatedKeys)
{
    file("a.csv", "city,code,n\nRome,IT,1\n\"Paris, \u00e9\",FR,2\nOslo,NO,\nRome,IT,4\nRome,IT,5\n");
    EXPECT_EQ(run("load new.kaldb t a.csv --key code").error,
              "kaldb: a.csv: 1 key occurs more than once (IT ×3), nothing was loaded\n"
              "hint: --on-duplicate=first keeps the first row of each\n");
    const std::string planned = "t: new table, 3 columns, record 24 bytes, 58 on a page\n"
                                "  code  key      char(2)\n  city           char(9)\n  n              i64\n";
    EXPECT_EQ(done("load new.kaldb t a.csv --key code --on-duplicate=last --dry-run"),
              planned + "would load 3 rows (2 duplicates skipped)\n");
    EXPECT_EQ(names(), "a.csv ");
    EXPECT_EQ(done("load new.kaldb t a.csv --key code --on-duplicate=last"),
              planned + "loaded 3 rows (2 duplicates skipped)\n"
                        "new.kaldb: 5 pages, 10.3 kB (10,332 bytes), checked, backup written\n");
    EXPECT_EQ(names(), "a.csv new.kaldb new.kaldb.backup ");
    EXPECT_TRUE(bytes("new.kaldb") == bytes("new.kaldb.backup"));
    EXPECT_EQ(done("dump new.kaldb t --format csv"), "city,code,n\n\"Paris, \u00e9\",FR,2\nRome,IT,5\nOslo,NO,\n");
    EXPECT_EQ(done("load new.kaldb t a.csv --on-duplicate=first --update -q --in-place"), "");
    EXPECT_EQ(done("get new.kaldb t IT --format csv"), "city,code,n\nRome,IT,1\n");
}

TEST_F(WriteTest, EveryFormatComesIn)
{
    const std::string expected = "{\"k\":1,\"v\":\"\u00e9\"}\n{\"k\":2,\"v\":\"b\"}\n";
    file("u.csv", "k,v\n2,b\n1,\u00e9\n"), file("l.csv", "k,v\n2,b\n1,\xE9\n"), file("n.csv", "2;b\n1;\u00e9\n");
    file("t.tsv", "v\tk\nb\t2\n\u00e9\t1\n"), file("w.txt", "b\n\u00e9\na\n");
    file("a.json", R"({"x":{"y":[{"k":2,"v":"b"},{"k":1,"v":"\u00e9"}]}})");
    file("r.jsonl", "{\"k\":2,\"v\":\"b\"}\n\n{\"k\":1,\"v\":\"\u00e9\"}\n");
    file("1.csv", "k,v\n2,b\n"), file("2.csv", "v,k\n\u00e9,1\n");
    int number = 0;
    for (const std::string input : {"u.csv", "l.csv --latin1", "n.csv --no-header --delimiter ';'", "t.tsv",
                                    "a.json --at /x/y", "r.jsonl", "- --format jsonl < r.jsonl", "1.csv 2.csv"}) {
        const std::string name = "f" + std::to_string(number++);
        const bool header = input.find("--no-header") == std::string::npos;
        done("load " + name + " t -q " + (header ? "--key k " : "--key column1 ") + input);
        std::string dumped = done("dump " + name + " t --columns " + (header ? "k,v" : "column1,column2"));
        dumped = std::regex_replace(std::regex_replace(dumped, std::regex{"column1"}, "k"), std::regex{"column2"}, "v");
        EXPECT_EQ(dumped, expected) << input;
    }
    done("load f0 words w.txt --key word -q --ids");
    EXPECT_EQ(done("dump f0 words --ids --format csv"), "_id,word\n1,a\n0,b\n2,\u00e9\n");
    // A whole dump comes back in, table by table, with schemas and keys.
    file("all.jsonl", done("dump f0")), file("schema.json", done("schema f0 t --json"));
    done("load again t all.jsonl -q"), done("load again words all.jsonl -q");
    EXPECT_EQ(done("dump again"), done("dump f0"));
    done("load third t u.csv --schema schema.json -q");
    EXPECT_EQ(done("schema third"), done("schema f0 t"));
}

TEST_F(WriteTest, BulkOrderFillsPagesAndKeepsThemNear)
{
    file("rows.csv", rows(1200));
    const auto shape = [&](const std::string& name, const std::string& options) {
        done("load " + name + " t rows.csv -q --key k --types 'v=text(24)' " + options);
        return std::regex_replace(done("tables " + name + " | tail -n 1"), std::regex{" +"}, " ");
    };
    EXPECT_EQ(shape("full", ""), "t 1,200 72 50 100 % 6 no\n");
    EXPECT_EQ(shape("loose", "--fill 75"), "t 1,200 72 67 75 % 7 no\n");
    EXPECT_TRUE(shape("slow", "--input-order --cache 1M").starts_with("t 1,200 72 8"));
}

// Random rows and random changes of them, beside the same in a map.
TEST_F(WriteTest, RowsAreThoseOfAModel)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random{seed};
    const auto draw = [&](int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); };
    using Key = std::pair<int, std::string>;
    using Row = std::pair<std::string, std::string>;  // a number or nothing, and a text
    using Rows = std::map<Key, Row>;
    Rows model;
    const auto drawn = [&] {
        const std::array pieces{"a", "\u00e9", ",", "\"", "\n", "\r", "\u20ac", " ", "\U0001F600", "x", "0"};
        std::string text = "t";
        for (int i = draw(draw(8) == 0 ? 300 : 20); i > 0; --i)
            text += pieces.at(random() % pieces.size());
        return Rows::value_type{{draw(9) - 4, "n" + std::to_string(draw(90))},
                                {draw(4) == 0 ? "" : std::to_string(draw(1999) - 999), text}};
    };
    const auto csv = [](const Rows& all) {
        std::string made = "group,name,number,text\n";
        for (const auto& [key, row] : all)
            made += std::to_string(key.first) + "," + key.second + "," + row.first + "," +
                    kaldb::tool::delimitedCell(row.second, ',') + "\n";
        return made;
    };
    const auto batch = [&](int count) {
        Rows all;
        while (count-- > 0)
            all.insert(drawn());
        for (const auto& [key, row] : all)
            model[key] = row;
        file("in.csv", csv(all));
    };
    batch(200);
    done("load f t in.csv -q --ids --key group,name --types 'number=i64,text=text(16),name=char(8)'");
    for (int round = 0; round < 9; ++round) {
        const std::string place = round % 2 == 0 ? " --in-place" : "";
        if (round % 3 == 0) {
            batch(40);
            done("load f t in.csv -q --update" + place);
        }
        const auto victim = std::next(model.begin(), draw(static_cast<int>(model.size())));
        done("del f t -q" + place + " -- " + std::to_string(victim->first.first) + " " + victim->first.second);
        model.erase(victim);
        auto [key, row] = drawn();
        row.second.assign(row.second.size(), 'y');
        file("row.json", "{\"group\":" + std::to_string(key.first) + ",\"name\":\"" + key.second +
                             (row.first.empty() ? "\"" : "\",\"number\":" + row.first) + ",\"text\":\"" + row.second +
                             "\"}");
        EXPECT_EQ(done("put f t" + place + " < row.json"),
                  model.contains(key) ? "t: 1 row replaced\n" : "t: 1 row added\n");
        model[key] = row;
        ASSERT_EQ(done("dump f t --format csv"), csv(model));
    }
    done("check f --strict --backup");
    EXPECT_TRUE(bytes("f") == bytes("f.backup"));
}

TEST_F(WriteTest, BackupAndRestoreCheckAndKeep)
{
    file("a.csv", "k\n1\n"), file("b.csv", "k\n2\n");
    done("load f t a.csv --key k -q"), done("backup f old -q"), done("load f t b.csv -q");
    const std::string newer = bytes("f");
    EXPECT_EQ(done("backup f"), "f.backup: 10.3 kB (10,332 bytes), checked\n");
    EXPECT_EQ(done("restore f --from old -q --json"),
              "{\"kaldb\":1,\"file\":\"f\",\"from\":\"old\",\"bytes\":10332,\"replaced\":\"f.damaged\"}\n");
    EXPECT_TRUE(bytes("f") == bytes("old") && bytes("f.damaged") == newer);
    std::filesystem::remove(folder_ / "f");
    EXPECT_EQ(done("restore f"), "f: 10.3 kB (10,332 bytes) from f.backup, checked\n");
    done("backup f old --force -q");
    EXPECT_TRUE(bytes("old") == newer);
    EXPECT_EQ(names(), "a.csv b.csv f f.backup f.damaged old ");
    std::filesystem::create_symlink("f", folder_ / "link");
    done("put link t '{\"k\":3}' -q");
    EXPECT_EQ(done("get f t 3 --format csv"), "k\n3\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link"));
}

TEST_F(WriteTest, EveryFailureHasItsExitCodePrintsNothingAndChangesNothing)
{
    test::PeopleFile{folder_ / "p", /*foreign=*/true};
    const std::string image = bytes("p");
    for (const char* name : {"x", "alone.backup", "old.damaged", "old", "old.backup"})
        file(name, image);
    for (const char* name : {"dirty", "unclean.backup"})
        file(name, std::string{image}.replace(88, 1, "\1"));
    file("cut", image.substr(0, image.size() - 2048)), file("future", std::string{image}.replace(84, 1, "\2"));
    file("empty", ""), file("short", image.substr(0, 91)), file("picture", "\x89PNG\r\n" + std::string(5000, 'x'));
    kaldb::test::FileImage damaged = kaldb::test::FileImage::parse(image);
    for (const auto& chain : kaldb::tool::readCatalogue(kaldb::tool::PageFile{folder_ / "p"}).chains)
        if (chain.name == "People")
            damaged[chain.object.topPage].put(kaldb::test::PageImage::typed + 4, 'X');
    damaged.write(folder_ / "broken"), damaged.write(folder_ / "bad.backup");
    damaged.header.startPage = 5000, damaged.write(folder_ / "headless");
    file("a.csv", "k,v\n1,x\n"), file("b.csv", "name,age\nperson 007,1\n"), file("age.csv", "name,age\nq,old\n");
    file("twice.csv", "k\n1\n1\n"), file("many.csv", rows(1500));
    file("p.json", R"({"columns":[{"name":"k","type":"char","width":4}]})");
    ASSERT_EQ(std::system(("mkfifo " + (folder_ / "pipe").string()).c_str()), 0);

    const auto refused = [&](const std::string& arguments, int exit, const std::string& says,
                             const std::string& conditions = "") {
        const auto before = snapshot();
        const Answer answer = run(arguments, conditions);
        EXPECT_TRUE(answer.exit == exit && answer.out.empty() && answer.error.find(says) != std::string::npos)
            << arguments << "\n"
            << answer;
        EXPECT_TRUE(snapshot() == before) << arguments << ": " << names();
    };
    std::istringstream table{test::readFile(KALDB_FAILURES)};
    for (std::string line; std::getline(table, line);) {
        std::smatch one;  // exit code, arguments, message
        if (line.starts_with('#'))
            continue;
        ASSERT_TRUE(std::regex_match(line, one, std::regex{R"((\d) \| (.*) \| (.+))"})) << line;
        refused(one[2], std::stoi(one[1]), one[3]);
    }
    for (const std::string printing : {"dump p People", "info --help"})
        EXPECT_EQ(run(printing + " > /dev/full 2> /dev/null; exit $?; echo").exit, 3);
    for (const char* arguments : {"load p New many.csv --key k", "load new New many.csv --key k", "backup p y"})
        refused(arguments, 3, "KALDB_NO_SPACE", "trap '' XFSZ; ulimit -f 40; ");
}

TEST_F(WriteTest, LookingChangesNothingAndAFileInUseIsOnlyLookedAt)
{
    file("a.csv", "k\n1\n");
    done("load f t a.csv --key k -q"), done("backup f clean -q"), done("backup clean -q");
    KALDBDatabase* database = nullptr;
    std::uint32_t isNew = 0;
    test::must(kaldbInitialize((folder_ / "f").u16string().c_str(), 1 << 20, &database, &isNew));
    EXPECT_NE(done("info f").find("state      dirty"), std::string::npos);
    const auto before = snapshot();
    const std::string inUse = "kaldb: f: is in use by process " + std::to_string(getpid()) + "\n";
    for (const char* arguments : {"load f t a.csv --update", "put f t '{\"k\":2}'", "put f t '{\"k\":2}' --in-place",
                                  "del f t 1", "backup f", "backup f x", "restore f"})
        if (const Answer answer = run(arguments); answer.exit != 3 || answer.error != inUse)
            ADD_FAILURE() << arguments << "\n" << answer;
    // Nobody's user, since the superuser may write everywhere; where that user cannot reach the command, the present
    // one.
    const std::string nobody = geteuid() == 0 ? "exec setpriv --reuid 65534 --regid 65534 --clear-groups env " : "";
    std::filesystem::permissions(folder_.path(), std::filesystem::perms{0555});
    const std::string reader = run("version", nobody).exit == 0 ? nobody : "";
    for (const std::string name : {" f", " clean"})
        for (const std::string verb :
             {"info", "tables", "schema", "check --backup", "pages", "pages --hex", "dump --dirty"})
            EXPECT_EQ(run(verb + name, reader).exit, 0) << verb << name;
    std::filesystem::permissions(folder_.path(), std::filesystem::perms{0755});
    EXPECT_TRUE(snapshot() == before) << names();
    test::must(kaldbDeinitialize(database));
}

// Killed at any moment, a load leaves the file whole, old or new, and the next one tidies up.
TEST_F(WriteTest, AKilledLoadLeavesTheFileAsItWas)
{
    file("a.csv", rows(600)), file("b.csv", rows(600, 600));
    done("load f t a.csv --key k -q");
    const std::string old = bytes("f");
    const auto start = [&] {
        const pid_t child = fork();
        if (child == 0) {
            [[maybe_unused]] const int moved = chdir(folder_.path().c_str());
            execl(KALDB_COMMAND, "kaldb", "load", "f", "t", "b.csv", "-q", "--progress=never", nullptr);
            _exit(127);
        }
        return child;
    };
    const auto end = [](pid_t child, int signal) {
        int status = 0;
        kill(child, signal);
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) && WTERMSIG(status) == signal;
    };
    using namespace std::chrono;
    const auto began = steady_clock::now();
    ASSERT_FALSE(end(start(), 0));
    const auto whole = duration_cast<microseconds>(steady_clock::now() - began);
    const std::string changed = done("dump f t");

    std::mt19937 random{std::random_device{}()};
    int killed = 0;
    for (int round = 0; round < 20; ++round) {
        file("f", old), file("f.backup", old);
        const auto moment = microseconds{random() % static_cast<unsigned long>(whole.count())};
        SCOPED_TRACE(moment.count());
        const pid_t child = start();
        std::this_thread::sleep_for(moment);
        const bool interrupted = round % 5 == 4;
        killed += end(child, interrupted ? SIGINT : SIGKILL);
        const bool untouched = bytes("f") == old;
        ASSERT_TRUE(untouched ? bytes("f.backup") == old : done("dump f t") == changed);
        EXPECT_TRUE(!interrupted || names().find("kaldb-work") == std::string::npos) << names();
        done("put f t '{\"k\":-1}' -q");
        // A backup that the killed process had set aside keeps its name of chance.
        EXPECT_EQ(std::regex_replace(names(), std::regex{"zorv\\w+ "}, ""), "a.csv b.csv f f.backup ");
    }
    EXPECT_GT(killed, 0);
    done("check f --backup --strict");
}

// What the command takes and what its manual and its completion know are the same.
TEST_F(WriteTest, ManualKnowsEveryVerbAndOption)
{
    const std::string manual = test::readFile(KALDB_MANUAL);
    const std::regex verb{"\n  ([a-z]+) +[A-Z]"}, option{"(--[a-z-]+)"};
    const std::string help = done("--help");
    int verbs = 0;
    for (std::sregex_iterator at{help.begin(), help.end(), verb}, end; at != end; ++at, ++verbs) {
        const std::string section = (*at)[1];
        const std::size_t begins = manual.find("\n## " + section);
        ASSERT_NE(begins, std::string::npos) << section;
        const std::string text = manual.substr(begins, manual.find("\n## ", begins + 1) - begins);
        const std::string own = done(section + " --help");
        for (std::sregex_iterator found{own.begin(), own.end(), option}; found != end; ++found)
            EXPECT_TRUE((*found)[1] == "--help" || text.find((*found)[1]) != std::string::npos)
                << section << " " << (*found)[1];
    }
    EXPECT_EQ(verbs, 13);
}

}  // namespace
