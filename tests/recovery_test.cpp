// What a start makes of the files that it finds, and what it leaves of them when it fails.

#include "kalpagemanager/layout.h"
#include "support/database.h"
#include "support/faults.h"
#include "support/log_lines.h"
#include "support/process.h"

#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using test::Database;
using test::LogLines;
using test::Process;
using test::Record;
using test::Table;

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

/// Nobody reads the logs while it lives. The working directory, where backups wait, is one that goes away; both lie in
/// memory where there is such a place, for these tests wait for the disk most of the time.
class Surroundings {
public:
    Surroundings()
    {
        kalLogSetSink([](std::uint32_t, const char16_t*, void*) {}, nullptr);
        if (fs::is_directory("/dev/shm"))
            setenv("TMPDIR", "/dev/shm", 0);
        directory_ = std::make_unique<test::TempDir>();
        fs::current_path(directory_->path());
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    ~Surroundings()
    {
        kalLogSetSink(nullptr, nullptr);
        fs::current_path(before_);
    }

private:
    fs::path before_ = fs::current_path();
    std::unique_ptr<test::TempDir> directory_;
};

class Recovery : public testing::Test {
protected:
    // The older state has key 1, the newer one keys 1 and 2; both were closed.
    Recovery()
    {
        Table table{database, u"Kept", 100};
        EXPECT_EQ(table.insert(1), 0U);
        table.close();
        EXPECT_EQ(database.close(), 0U);
        older = test::readFile(database.file());
        database.open();
        table.open(database);
        EXPECT_EQ(table.insert(2), 0U);
        table.close();
        EXPECT_EQ(database.close(), 0U);
        newer = test::readFile(database.file());
        pages = static_cast<int>((newer.size() - kaldb::fileHeaderLength) / kaldb::pageSize);
    }

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

    void put(const fs::path& path, const std::string& bytes) const
    {
        fs::remove_all(path);
        if (bytes != missing)
            test::writeFile(path, bytes);
    }
    static std::string bytesOf(const fs::path& path) { return fs::exists(path) ? test::readFile(path) : missing; }

    std::vector<std::int64_t> keys()
    {
        Table table{database, u"Kept", 100};
        return table.allKeys();
    }
    /// The keys of a database that opens, or none.
    std::vector<std::int64_t> keysAfterOpen()
    {
        EXPECT_EQ(database.tryOpen(), 0U);
        const std::vector<std::int64_t> found = keys();
        EXPECT_EQ(database.close(), 0U);
        return found;
    }

    static inline const std::string missing = "(missing)";
    Surroundings surroundings;
    Database database;
    std::string older, newer;
    int pages = 0;
};

TEST_F(Recovery, RestoresOnlyWhatIsSpoiledAndOnlyFromASoundBackup)
{
    const std::string foreign(5000, 'x');
    const std::string wrongType = with(newer, 0, 'Q');
    const std::string onlyHeader = cut(newer);
    const std::string noBackup = corruptLine + notRestoredLine("0x0D - file not found");
    const std::string badBackup = notRestoredLine("0x1A - damage found");
    const std::string cutLine = sizeLine(pages - 1, pages);
    const std::string foreignLines = sizeLine(0, 0x78787878);
    const std::vector<std::int64_t> none, one{1}, two{1, 2};
    struct Case {
        const char* name;
        std::string database, backup;
        std::uint32_t status;
        std::vector<std::int64_t> keys;
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
        put(database.file(), c.database);
        put(database.backup(), c.backup);
        LogLines log;
        const std::uint32_t status = database.tryOpen();
        ASSERT_EQ(status, c.status);
        EXPECT_EQ(log.of(KAL_LOG_ERROR), c.log);
        if (status != 0) {
            const bool restored = c.log.find("restored backup") != std::string::npos;
            EXPECT_TRUE(bytesOf(database.file()) == (restored ? c.backup : c.database));
            EXPECT_TRUE(bytesOf(database.backup()) == c.backup);
            continue;
        }
        EXPECT_EQ(keys(), c.keys);
        ASSERT_EQ(database.close(), 0U);
        EXPECT_EQ(database.errorsInFile(), 0U);
        EXPECT_TRUE(bytesOf(database.file()) == bytesOf(database.backup()));
    }
}

TEST_F(Recovery, RefusesWhatIsNoDatabaseAtOnceAndLeavesIt)
{
    const fs::path file = database.file();
    fs::remove(database.backup());
    fs::remove(file);
    const auto refused = [&](std::uint32_t status) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(database.tryOpen(), status);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{5});
        EXPECT_FALSE(fs::exists(database.backup()));
    };
    for (const std::string& bytes : {std::string{"\x89PNG\r\n\x1A\n"} + std::string(300, '\0'), std::string{"text"}}) {
        put(file, bytes);
        refused(KALDB_FAILURE);
        EXPECT_EQ(bytesOf(file), bytes);
    }
    fs::remove(file);
    fs::create_directory(file);
    refused(KALDB_NOT_A_FILE);
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    refused(KALDB_NOT_A_FILE);
    fs::remove(file);
    fs::create_symlink("/dev/null", file);
    refused(KALDB_NOT_A_FILE);
    fs::remove(file);
    fs::create_symlink(database.directory() / "nowhere" / "db", file);
    refused(KALDB_FILE_NOT_FOUND);
    EXPECT_TRUE(fs::is_symlink(file));
    fs::remove(file);
    put(file, dirty(newer));
    fs::permissions(file, fs::perms::none);
    if (::access(file.c_str(), R_OK) != 0) {  // the superuser reads everything
        refused(KALDB_ACCESS_DENIED);
    }
}

// Whatever is short during a start: the file is as it was or was restored, the next start finds the same as ever.
TEST_F(Recovery, AStartThatFailsLeavesTheFilesAsTheyWere)
{
    const std::string found[] = {newer, dirty(newer), missing, missing, ""};
    const std::string backups[] = {older, older, older, missing, missing};
    const std::vector<std::int64_t> expected[] = {{1, 2}, {1}, {1}, {}, {}};
    for (std::size_t which = 0; which < std::size(found); ++which) {
        bool struck = true;
        for (unsigned call = 1; struck; ++call) {
            SCOPED_TRACE(std::to_string(which) + ", call " + std::to_string(call));
            put(database.file(), found[which]);
            put(database.backup(), backups[which]);
            faults::reset();
            faults::failAt(faults::anyCall, call, KAL_NO_SPACE);
            const std::size_t blocks = faults::liveBlocks();
            const std::uint32_t status = database.tryOpen();
            struck = faults::struck();
            faults::reset();
            if (status == 0) {
                EXPECT_EQ(keys(), expected[which]);
                ASSERT_EQ(database.close(), 0U);
                continue;
            }
            EXPECT_EQ(faults::liveBlocks(), blocks);
            EXPECT_EQ(faults::openFiles(), 0U);
            const std::string left = bytesOf(database.file());
            if (found[which].empty())
                EXPECT_LE(left.size(), kaldb::fileHeaderLength + kaldb::pageSize);
            else
                EXPECT_TRUE(left == found[which] || left == backups[which]);
            if (!found[which].empty()) {
                EXPECT_TRUE(bytesOf(database.backup()) == backups[which]);
            }
            ASSERT_EQ(keysAfterOpen(), expected[which]);
        }
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
        EXPECT_EQ(database.tryOpen(), test::alreadyExists);
        EXPECT_NE(test::readFile(database.backup()), older);
    }
    faults::reset();
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(keysAfterOpen(), (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(Recovery, ASessionThatMetDamageKeepsTheBackup)
{
    // The table's only page is the last but one; its index came after it.
    const std::size_t page = kaldb::fileHeaderLength + (static_cast<std::size_t>(pages) - 2) * kaldb::pageSize;
    const std::string damaged = with(newer, page + 44 + 4, std::array{'X', 'X', 'X'});
    put(database.file(), damaged);
    put(database.backup(), newer);
    LogLines log;
    database.open();
    {
        Table table{database, u"Kept", 100};
        EXPECT_EQ(table.find(1), 1U);
        EXPECT_EQ(kaldbBackupDatabaseWhileRunning(database.handle()), KALDB_DAMAGED);
    }
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(bytesOf(database.backup()), newer);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "kalpagemanager: kalPageManagerDeinitialize() could not backup database "
                                       "[0x1A - damage found]\n"),
              1);
}

class Owners : public Recovery {
protected:
    Process starter()
    {
        return Process{[this](const Process::Report& report) {
            report(database.tryOpen());
            ::pause();
        }};
    }
};

TEST_F(Owners, OnlyOneProcessOpensADatabase)
{
    for (const int signal : {SIGKILL, SIGTERM}) {
        put(database.file(), newer);
        put(database.backup(), older);
        LogLines log;
        Process owner = starter();
        ASSERT_EQ(owner.report(), 0U);
        const std::string live = bytesOf(database.file());
        EXPECT_EQ(live, dirty(newer));
        EXPECT_EQ(database.tryOpen(), KALDB_FILE_IN_USE);
        EXPECT_EQ(bytesOf(database.file()), live);
        EXPECT_EQ(bytesOf(database.backup()), older);
        EXPECT_EQ(log.of(KAL_LOG_ERROR), "");
        owner.end(signal);
        EXPECT_EQ(keysAfterOpen(), std::vector<std::int64_t>{1});
        EXPECT_EQ(log.of(KAL_LOG_ERROR), dirtyLine + corruptLine + restoredLine);
    }
}

TEST_F(Owners, StayOwnersUntilTheClosingBackupIsMade)
{
    database.open();
    unsigned copies = 0;
    faults::state().before = [&](const std::string& call) {
        KALOwnerLock* second = nullptr;
        if (call == "kalFileCopyW" && ++copies > 0) {
            EXPECT_EQ(kalOwnerLockAcquire(database.path().c_str(), &second), KALDB_FILE_IN_USE);
        }
    };
    EXPECT_EQ(database.close(), 0U);
    faults::reset();
    EXPECT_EQ(copies, 1U);
}

TEST_F(Owners, OfTwoThatStartAtOnceOneWins)
{
    for (int round = 0; round < 5; ++round)
        for (const std::string& found : {missing, newer, dirty(newer)}) {
            put(database.file(), found);
            put(database.backup(), found == missing ? missing : older);
            std::vector<Process> starters;
            starters.push_back(starter());
            starters.push_back(starter());
            const std::set<std::uint32_t> statuses{starters[0].report(), starters[1].report()};
            EXPECT_EQ(statuses, (std::set<std::uint32_t>{0U, KALDB_FILE_IN_USE}));
            starters[0].end(SIGKILL);
            starters[1].end(SIGKILL);
            const std::vector<std::int64_t> expected =
                found == missing ? std::vector<std::int64_t>{} : std::vector<std::int64_t>{1};
            EXPECT_EQ(keysAfterOpen(), expected);
        }
}

// Step `step` of an endless history: two insertions, then a deletion of something inserted before.
void change(std::set<std::int64_t>& model, int step, const std::function<void(std::int64_t, bool)>& done = {})
{
    const bool insertion = step % 3 != 2;
    const std::int64_t key = (insertion ? step : step / 3 * 3 / 2 / 3 * 3) * std::int64_t{7919} % 100003;
    if (insertion)
        model.insert(key);
    else
        model.erase(key);
    if (done)
        done(key, insertion);
}

/// Waits a random time, up to `microseconds`, then kills the process.
void killWithin(Process& process, std::mt19937& random, unsigned microseconds)
{
    std::this_thread::sleep_for(std::chrono::microseconds{random() % microseconds});
    process.end(SIGKILL);
}

/// Opens the database, restoring it where need be, and does nothing with it.
Process starterOf(Database& database)
{
    return Process{[&](const Process::Report& report) {
        report(0);
        database.open();
        ::pause();
    }};
}

struct Committed {
    int done;     // steps that a backup or close has certainly taken in
    int pending;  // that one in progress may have taken in
};

void workUntilKilled(Database& database, Committed& committed, const Process::Report& report)
{
    std::set<std::int64_t> model;
    for (int step = 0; step < committed.done; ++step)
        change(model, step);
    database.open();
    Table table{database, u"History", 250};
    report(0);
    for (int step = committed.done;; ++step) {
        change(model, step, [&](std::int64_t key, bool insertion) {
            const std::uint32_t status = insertion ? table.insert(key) : table.remove(key);
            if (status != 0 && (insertion || status != test::notFound))
                _exit(1);
        });
        if (step % 15 != 14)
            continue;
        committed.pending = step + 1;
        if (step % 60 == 59)
            table.reopen(database);
        else if (kaldbBackupDatabaseWhileRunning(database.handle()) != 0)
            _exit(1);
        committed.done = step + 1;
    }
}

TEST(Kill, TheNextOpenShowsExactlyTheLastBackupOrClose)
{
    Surroundings surroundings;
    Database database{0};
    Table table{database, u"History", 250};
    table.close();
    ASSERT_EQ(database.close(), 0U);
    auto& committed = *static_cast<Committed*>(
        mmap(nullptr, sizeof(Committed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::mt19937 random{std::random_device{}()};
    for (int round = 0; round < 20; ++round) {
        Process worker{[&](const Process::Report& report) { workUntilKilled(database, committed, report); }};
        ASSERT_EQ(worker.report(), 0U);
        killWithin(worker, random, 40'000);
        if (round % 2 == 0) {  // another one dies over the recovery
            Process starter = starterOf(database);
            ASSERT_EQ(starter.report(), 0U);
            killWithin(starter, random, 4'000);
        }
        database.open();
        table.open(database);
        const std::vector<std::int64_t> found = table.allKeys();
        std::set<std::int64_t> model;
        int step = 0;
        for (; step < committed.done; ++step)
            change(model, step);
        if (std::vector<std::int64_t>(model.begin(), model.end()) != found)
            for (; step < committed.pending; ++step)
                change(model, step);
        ASSERT_EQ(found, (std::vector<std::int64_t>(model.begin(), model.end()))) << "steps " << committed.done;
        committed.done = committed.pending = step;
        for (const std::int64_t key : found) {
            Record byKey;
            Record byID;
            ASSERT_EQ(table.find(key, &byKey), 0U);
            ASSERT_EQ(table.findByID(byKey.id, byID), 0U);
            ASSERT_EQ(byID.key, key);
        }
        table.close();
        ASSERT_EQ(database.close(), 0U);
        ASSERT_EQ(database.errorsInFile(), 0U);
    }
    EXPECT_GT(committed.done, 100) << "too few steps to prove anything";
    munmap(&committed, sizeof committed);
    database.open();
}

// A first session has no backup to fall back to, but whatever is left of it opens.
TEST(Kill, AStartOnANewPathLeavesSomethingThatOpens)
{
    Surroundings surroundings;
    Database database;
    ASSERT_EQ(database.close(), 0U);
    std::mt19937 random{std::random_device{}()};
    for (int round = 0; round < 30; ++round) {
        fs::remove(database.file());
        fs::remove(database.backup());
        Process starter = starterOf(database);
        ASSERT_EQ(starter.report(), 0U);
        killWithin(starter, random, 6'000);
        ASSERT_EQ(database.tryOpen(), 0U);
        ASSERT_EQ(database.close(), 0U);
    }
    database.open();
}

}  // namespace
