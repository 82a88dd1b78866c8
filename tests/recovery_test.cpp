// What a start makes of the files that it finds, and what it leaves of them when it fails.

#include "kalpagemanager/layout.h"
#include "support/database.h"
#include "support/faults.h"
#include "support/log_lines.h"
#include "support/process.h"

#include <cstdlib>
#include <functional>
#include <set>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using namespace test;
using Keys = std::vector<std::int64_t>;

const std::string dirtyLine = "kaldbvalidate: dbValidateFile() Database was shut down in a dirty state\n";
const std::string corruptLine = "kaldbchain: dbchainValidateFile() detected corrupt database\n";
const std::string restoredLine = "kaldbchain: dbchainValidateFile() restored backup database\n";
std::string notRestoredLine(const std::string& status)
{
    return "kaldbchain: dbchainValidateFile() could not restore backup database [" + status + "]\n";
}
std::string sizeLine(int counted, int reported)
{
    return "kaldbvalidate: dbValidateFile() File size mismatch; file contains " + std::to_string(counted) +
           " pages but reports " + std::to_string(reported) + " pages\n";
}

class Recovery : public testing::Test {
protected:
    // The older state has key 1, the newer one keys 1 and 2; both were closed.
    Recovery()
    {
        for (std::string* const state : {&older, &newer}) {
            Table table{database, u"Kept", 100};
            EXPECT_EQ(table.insert(state == &older ? 1 : 2), 0U);
            table.reopen(database);
            *state = readFile(database.backup());
        }
        EXPECT_EQ(database.close(), 0U);
        pages = static_cast<int>((newer.size() - kaldb::fileHeaderLength) / kaldb::pageSize);
        fs::current_path(waiting.path());
    }
    ~Recovery() override { fs::current_path("/"); }

    template <class Field>
    static std::string with(std::string bytes, std::size_t offset, Field field)
    {
        std::memcpy(&bytes[offset], &field, sizeof field);
        return bytes;
    }
    static std::string dirty(const std::string& bytes)
    {
        return with(bytes, offsetof(kaldb::KALPageFileHeader, flags), std::uint32_t{1});
    }
    static std::string cut(const std::string& bytes) { return bytes.substr(0, bytes.size() - kaldb::pageSize); }

    void put(const std::string& file, const std::string& backup) const
    {
        for (const auto& [path, bytes] : {std::pair{database.file(), file}, {database.backup(), backup}}) {
            fs::remove_all(path);
            if (bytes != missing)
                writeFile(path, bytes);
        }
    }
    static std::string bytesOf(const fs::path& path) { return fs::exists(path) ? readFile(path) : missing; }

    Keys keys() { return Table{database, u"Kept", 100}.allKeys(); }
    /// The keys of a database that opens, or none.
    Keys keysAfterOpen()
    {
        EXPECT_EQ(database.tryOpen(), 0U);
        const Keys found = keys();
        EXPECT_EQ(database.close(), 0U);
        return found;
    }
    /// A process that opens the database, reports the status and lives on.
    Process starter(const std::function<void(const char*)>& before = {})
    {
        return Process{[&](const Process::Report& report) {
            faults::state().before = before;
            report(database.tryOpen());
        }};
    }

    static inline const std::string missing = "(missing)";
    TempDir waiting;  // the working directory, where backups wait
    LogLines log;
    Database database;
    std::string older, newer;
    int pages = 0;
};

TEST_F(Recovery, RestoresOnlyWhatIsSpoiledAndOnlyFromASoundBackup)
{
    const std::string foreign(5000, 'x');
    const std::string wrongType = with(newer, 0, 'Q');
    const std::string noBackup = corruptLine + notRestoredLine("0x0D - file not found");
    const std::string badBackup = notRestoredLine("0x1A - damage found");
    const std::string cutLine = sizeLine(pages - 1, pages);
    const std::string foreignLines = sizeLine(0, 0x78787878);
    const Keys none, one{1}, two{1, 2};
    struct Case {
        const char* name;
        std::string database, backup;
        std::uint32_t status;
        Keys keys;
        std::string log;
    };
    const Case cases[] = {
        {"sound, no backup", newer, missing, 0, two, ""},
        {"sound, older backup", newer, older, 0, two, ""},
        {"sound, damaged backup", newer, foreign, 0, two, ""},
        {"dirty, backup", dirty(newer), older, 0, one, dirtyLine + corruptLine + restoredLine},
        {"dirty, no backup", dirty(newer), missing, 0, two, dirtyLine + noBackup},
        {"dirty, dirty backup", dirty(newer), dirty(older), 0, two, dirtyLine + corruptLine + dirtyLine + badBackup},
        {"dirty, short backup", dirty(newer), older.substr(0, 50), 0, two, dirtyLine + corruptLine + badBackup},
        {"dirty, cut backup", dirty(newer), cut(newer), 0, two, dirtyLine + corruptLine + cutLine + badBackup},
        {"dirty, backup of a foreign type", dirty(newer), wrongType, 0, two,
         dirtyLine + corruptLine + notRestoredLine("0x01 - general failure")},
        {"short, backup", newer.substr(0, 91), older, 0, one, corruptLine + restoredLine},
        {"short, no backup", newer.substr(0, 91), missing, 1, none, noBackup},
        {"short, short backup", newer.substr(0, 91), "x", 1, none, corruptLine + badBackup},
        {"cut, backup", cut(newer), older, 0, one, cutLine + corruptLine + restoredLine},
        {"without pages, no backup", newer.substr(0, 92), missing, 15, none, sizeLine(0, pages) + noBackup},
        {"missing, backup", missing, older, 0, one, corruptLine + restoredLine},
        {"missing, no backup", missing, missing, 0, none, noBackup},
        {"missing, foreign backup", missing, foreign, 1, none, corruptLine + restoredLine},
        {"missing, dirty backup", missing, dirty(older), 0, one, corruptLine + restoredLine},
        {"empty, backup", "", older, 0, one, corruptLine + restoredLine},
        {"empty, no backup", "", missing, 0, none, noBackup},
        {"foreign, backup", foreign, older, 0, one, foreignLines + corruptLine + restoredLine},
        {"foreign, no backup", foreign, missing, 1, none, foreignLines + noBackup},
        {"foreign type, backup", wrongType, older, 1, none, ""},
        {"no page size", with(newer, offsetof(kaldb::KALPageFileHeader, pageSize), 0U), missing, 1, none, noBackup},
        {"no start page", with(newer, offsetof(kaldb::KALPageFileHeader, startPage), kaldb::noPage), older, 16, none,
         ""},
        {"start page of zeros", with(newer, kaldb::fileHeaderLength, std::array<char, 2048>{}), older, 1, none, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        put(c.database, c.backup);
        log.clear();
        const std::uint32_t status = database.tryOpen();
        ASSERT_EQ(status, c.status);
        EXPECT_EQ(log.of(KAL_LOG_ERROR), c.log);
        EXPECT_EQ(log.count(KAL_LOG_TRACE, "kaldbGetRootObject() could not"), 0);
        if (status != 0) {
            const bool restored = c.log.find("restored backup") != std::string::npos;
            EXPECT_TRUE(bytesOf(database.file()) == (restored ? c.backup : c.database));
            EXPECT_TRUE(bytesOf(database.backup()) == c.backup);
            continue;
        }
        EXPECT_EQ(database.isNew(), c.database == missing && c.backup == missing ? 1U : 0U);
        EXPECT_EQ(keys(), c.keys);
        ASSERT_EQ(database.close(), 0U);
        EXPECT_EQ(database.errorsInFile(), 0U);
        EXPECT_TRUE(bytesOf(database.file()) == bytesOf(database.backup()));
    }
}

TEST_F(Recovery, RefusesWhatIsNoFileAndLeavesItAndTheBackup)
{
    const fs::path file = database.file();
    const std::pair<std::uint32_t, std::function<void()>> cases[] = {
        {KALDB_NOT_A_FILE, [&] { fs::create_directory(file); }},
        {KALDB_NOT_A_FILE, [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }},
        {KALDB_NOT_A_FILE, [&] { fs::create_symlink("/dev/null", file); }},
        {KALDB_FILE_NOT_FOUND, [&] { fs::create_symlink("nowhere/db", file); }},
    };
    for (const auto& [status, make] : cases) {
        put(missing, status == KALDB_NOT_A_FILE ? older : missing);
        make();
        const fs::file_type type = fs::symlink_status(file).type();
        EXPECT_EQ(database.tryOpen(), status);
        EXPECT_EQ(fs::symlink_status(file).type(), type);
        EXPECT_EQ(bytesOf(database.backup()), status == KALDB_NOT_A_FILE ? older : missing);
    }
}

// Whatever call of a start fails: the file is as it was or was restored, the next start finds the same as ever. A first
// session may also die at any call: it has no backup to fall back to, but whatever is left of it opens.
TEST_F(Recovery, AStartThatFailsOrDiesLeavesFilesThatOpen)
{
    struct Case {
        std::string file, backup;
        Keys keys;
    };
    const Case cases[] = {{newer, older, {1, 2}},
                          {dirty(newer), older, {1}},
                          {missing, older, {1}},
                          {missing, missing, {}},
                          {"", missing, {}}};
    for (const Case& c : cases)
        for (unsigned call = 1;; ++call) {
            SCOPED_TRACE(std::to_string(&c - cases) + ", call " + std::to_string(call));
            put(c.file, c.backup);
            faults::failAt(faults::anyCall, call, KAL_NO_SPACE);
            const std::size_t blocks = faults::liveBlocks();
            const std::uint32_t status = database.tryOpen();
            const bool struck = faults::struck();
            faults::reset();
            if (status != 0) {
                EXPECT_EQ(faults::liveBlocks(), blocks);
                EXPECT_EQ(faults::openFiles(), 0U);
                const std::string left = bytesOf(database.file());
                const bool begun = c.file.empty() && left.size() <= kaldb::fileHeaderLength + kaldb::pageSize;
                EXPECT_TRUE(begun || left == c.file || left == c.backup);
                EXPECT_TRUE(c.file.empty() || bytesOf(database.backup()) == c.backup);
            }
            ASSERT_EQ(status != 0 ? database.tryOpen() : 0U, 0U);
            EXPECT_EQ(keys(), c.keys);
            ASSERT_EQ(database.close(), 0U);
            if (!struck)
                break;
            if (c.backup != missing)
                continue;
            put(c.file, c.backup);
            unsigned left = call;
            starter([&](const char*) { --left == 0 ? ::raise(SIGKILL) : 0; }).report();
            ASSERT_EQ(keysAfterOpen(), c.keys) << "after a death";
        }
}

TEST_F(Recovery, ACloseThatFailsIsMadeAgain)
{
    database.open();
    Table table{database, u"Kept", 100};
    ASSERT_EQ(table.insert(3), 0U);
    table.close();
    KALDBDatabase* const handle = database.handle();
    for (const char* call : {"kalFileWrite", "kalFileSyncW", "kalFileClose"}) {
        faults::failAt(call, 1, KAL_NO_SPACE);
        EXPECT_EQ(kaldbDeinitialize(handle), KALDB_NO_SPACE) << call;
        EXPECT_EQ(database.tryOpen(), alreadyExists);
        EXPECT_NE(readFile(database.backup()), older);
    }
    faults::reset();
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(keysAfterOpen(), (Keys{1, 2, 3}));
}

TEST_F(Recovery, ASessionThatMetDamageKeepsTheBackup)
{
    // The table's only page is the last but one; its index came after it.
    const std::size_t page = kaldb::fileHeaderLength + (static_cast<std::size_t>(pages) - 2) * kaldb::pageSize;
    put(with(newer, page + 44 + 4, std::array{'X', 'X', 'X'}), newer);
    database.open();
    {
        Table table{database, u"Kept", 100};
        EXPECT_EQ(table.find(1), 1U);
        EXPECT_EQ(kaldbBackupDatabaseWhileRunning(database.handle()), KALDB_DAMAGED);
    }
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(bytesOf(database.backup()), newer);
}

// KALDB_TORTURE=n in the environment makes 50 n rounds.
TEST_F(Recovery, OnlyOneProcessOpensADatabaseAlsoOfTwoThatStartAtOnce)
{
    const char* const times = std::getenv("KALDB_TORTURE");
    const int rounds = times == nullptr ? 21 : 50 * std::max(1, std::atoi(times));
    for (int round = 0; round < rounds; ++round) {
        const std::string found = round % 3 == 0 ? newer : round % 3 == 1 ? missing : dirty(newer);
        const std::string& backup = found == missing ? missing : older;
        put(found, backup);
        Process starters[] = {starter(), starter()};
        const std::set<std::uint32_t> statuses{starters[0].report(), starters[1].report()};
        ASSERT_EQ(statuses, (std::set<std::uint32_t>{0U, KALDB_FILE_IN_USE}));
        const std::string live = bytesOf(database.file());
        EXPECT_TRUE(found != newer || live == dirty(newer));
        log.clear();
        ASSERT_EQ(database.tryOpen(), KALDB_FILE_IN_USE);
        ASSERT_EQ(bytesOf(database.file()), live);
        ASSERT_EQ(bytesOf(database.backup()), backup);
        EXPECT_EQ(log.of(KAL_LOG_ERROR), "");
        for (Process& each : starters)
            each.end(round % 2 == 0 ? SIGKILL : SIGTERM);
        ASSERT_EQ(keysAfterOpen(), found == missing ? Keys{} : Keys{1});
    }
    std::printf("%d openers refused\n", 2 * rounds);
}

TEST_F(Recovery, AnOwnerStaysOwnerUntilTheClosingBackupIsMade)
{
    database.open();
    unsigned copies = 0;
    faults::state().before = [&](const std::string& call) {
        KALOwnerLock* second = nullptr;
        if (call != "kalFileCopyW")
            return;
        ++copies;
        EXPECT_EQ(kalOwnerLockAcquire(database.path().c_str(), &second), KALDB_FILE_IN_USE);
    };
    EXPECT_EQ(database.close(), 0U);
    faults::reset();
    EXPECT_EQ(copies, 1U);
}

}  // namespace
