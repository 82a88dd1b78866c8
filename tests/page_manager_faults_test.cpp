// The page manager when the support library fails, when the process dies and when the power goes.

#include "support/faults.h"
#include "support/page_store.h"

#include <csignal>
#include <fstream>
#include <functional>
#include <set>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using test::isComplete;
using test::isDirty;
using test::same;
using test::withoutTimes;

constexpr uint32_t injected = 77;
constexpr uint32_t pages = 7;

class PageManagerFaults : public test::PageStore {
protected:
    PageManagerFaults() { std::filesystem::current_path(dir.path()); }
    ~PageManagerFaults() override
    {
        faults::reset();
        std::filesystem::current_path("/");
    }

    using Step = std::function<uint32_t()>;
    /// More pages than slots, written, changed and read back, a backup on the way. Every step may be repeated until it
    /// succeeds.
    std::vector<Step> workload()
    {
        std::vector<Step> steps{[this] { return open(cacheBytes); }};
        for (uint32_t n = 0; n < pages; ++n)
            steps.push_back([this] { return createNext(); });
        steps.push_back([this] { return kalPageManagerBackupWhileRunning(manager); });
        for (uint32_t n = 0; n < pages; n += 2)
            steps.push_back([this, n] { return change(n, "changed " + std::to_string(n)); });
        steps.push_back([this] { return kalPageManagerSetStartPage(manager, 3); });
        steps.push_back([this] { return kalPageManagerFlushAllPages(manager); });
        steps.push_back([this] { return change(5, "changed last"); });
        steps.push_back([this] { return close(); });
        return steps;
    }
    uint32_t createNext()
    {
        uint32_t next = 0;
        kalPageManagerGetPageCount(manager, &next);
        return create("page " + std::to_string(next));
    }
    std::string resultOfWorkload()
    {
        for (const Step& step : workload())
            EXPECT_EQ(step(), 0u);
        return withoutTimes(file());
    }
    void startAnew()
    {
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            std::filesystem::remove_all(entry.path());
    }

    /// Runs the workload with a fault that a step meets; after it the fault is over and the step is repeated.
    void runWithFault(unsigned nth, bool forGood, bool torn, const std::string& expected)
    {
        SCOPED_TRACE(testing::Message() << "call " << nth << (forGood ? ", for good" : "") << (torn ? ", torn" : ""));
        startAnew();
        faults::reset();
        faults::state().torn = torn;
        faults::failAt(torn ? "kalFileWrite" : faults::anyCall, nth, injected, forGood);
        watchDisk();
        for (const Step& step : workload()) {
            const uint32_t status = step();
            if (status == 0)
                continue;
            // A failing question for a backup counts as one, and what is not there can be neither moved nor deleted
            // (13).
            EXPECT_TRUE(status == injected || status == 7 || status == 1 || status == 2 || status == 13) << status;
            expectDirtyOrComplete();
            faults::state().countdown = 0;
            const uint32_t again = step();
            if (again == injected) {
                EXPECT_EQ(cacheBytes, 0u) << "all pages are in the cache still, and can be written again";
                EXPECT_EQ(close(), injected) << "pages are lost for good";
                EXPECT_TRUE(isDirty(file()));
                return abandon();
            }
            EXPECT_EQ(again, 0u) << "cannot be repeated after " << status;
        }
        EXPECT_TRUE(same(withoutTimes(file()), expected)) << "something is lost";
        expectDirtyOrComplete();
        EXPECT_EQ(faults::openFiles(), abandonedFiles);
        EXPECT_EQ(faults::liveBlocks(), abandonedBlocks);
    }
    /// From here on, what the disk may hold when the power goes: of all that was written since the last wait, any part.
    /// A wait that fails loses the pages that were written since the one before.
    void watchDisk()
    {
        disk = {};
        faults::state().before = [this](const char* call) {
            if (std::string(call) != "kalFileSyncW")
                return;
            ++disk.waits;
            if (faults::strikesNext(call)) {
                for (const uint64_t offset : disk.unsynced)
                    spoil(offset);
                return;
            }
            disk.mayBeClean = !disk.marked;
            disk.mayBeDirty = disk.marked;
            disk.unsynced.clear();
        };
        faults::state().written = [this](KALFile*, uint64_t offset, const void* bytes, uint32_t length) {
            if (offset > 0) {
                disk.unsynced.insert(offset);
                EXPECT_TRUE(disk.mayBeDirty && !disk.mayBeClean) << "a page, and the disk may call the file complete";
            } else if (length == 92) {
                disk.marked = (test::u32At({static_cast<const char*>(bytes), length}, 88) & 1) != 0;
                (disk.marked ? disk.mayBeDirty : disk.mayBeClean) = true;
                EXPECT_TRUE(disk.marked || disk.unsynced.empty()) << "called complete before its pages are on the disk";
            }
        };
    }
    void spoil(uint64_t offset)
    {
        std::fstream lost(dir / "db", std::ios::in | std::ios::out | std::ios::binary);
        lost.seekp(static_cast<std::streamoff>(offset));
        lost << std::string(2048, 'X');
    }
    /// What holds at every instant; a backup is always complete.
    void expectDirtyOrComplete()
    {
        EXPECT_TRUE(!std::filesystem::exists(dir / "db") || isDirty(file()) || isComplete(file()));
        EXPECT_TRUE(!hasBackup() || (isComplete(backup()) && !isDirty(backup())));
    }
    /// A manager that no close can end.
    void abandon()
    {
        static auto* kept = new std::vector<KALPageManager*>;
        kept->push_back(std::exchange(manager, nullptr));
        abandonedFiles = faults::openFiles();
        abandonedBlocks = faults::liveBlocks();
    }

    struct Disk {
        bool mayBeDirty = true, mayBeClean = false;
        bool marked = true;
        std::set<uint64_t> unsynced;
        unsigned waits = 0;
    };
    Disk disk;
    uint32_t cacheBytes = 0;
    std::size_t abandonedFiles = 0;
    std::size_t abandonedBlocks = 0;
};

TEST_F(PageManagerFaults, EveryCallMayFailOnceOrForGoodAndNothingIsLost)
{
    const std::string expected = resultOfWorkload();
    ASSERT_TRUE(isComplete(expected) && !isDirty(expected));
    for (const uint32_t bytes : {0u, 32768u}) {
        cacheBytes = bytes;
        for (const bool forGood : {false, true})
            for (unsigned n = 1; n == 1 || faults::struck(); ++n)
                runWithFault(n, forGood, false, expected);
        // The first write makes the header of a new file: cut off, it is no page file and is left as it is.
        for (unsigned n = 2; n == 2 || faults::struck(); ++n)
            runWithFault(n, false, true, expected);
    }
}

// Dies at each of its calls in turn, a write half done.
TEST_F(PageManagerFaults, ADeathAtAnyCallLeavesTheFileDirtyOrComplete)
{
    int result = 1;
    for (unsigned n = 1; result != 0; ++n) {
        SCOPED_TRACE(n);
        startAnew();
        const pid_t child = fork();
        if (child == 0) {
            faults::reset();
            faults::state().torn = true;
            faults::state().before = [n](const char* call) {
                if (faults::struck() || (faults::calls() + 1 == n && std::string(call) != "kalFileWrite"))
                    _exit(1);
                if (faults::calls() + 1 == n)
                    faults::failAt(faults::anyCall, 1, injected);
            };
            for (const Step& step : workload())
                step();
            _exit(0);
        }
        ASSERT_EQ(waitpid(child, &result, 0), child);
        ASSERT_TRUE(WIFEXITED(result));
        expectDirtyOrComplete();
    }
}

TEST_F(PageManagerFaults, AKillAtAnyMomentLeavesTheFileDirtyOrComplete)
{
    for (unsigned round = 0; round < 20; ++round) {
        startAnew();
        const pid_t child = fork();
        if (child == 0)
            while (true)
                for (const Step& step : workload())
                    step();
        usleep(500 + 997 * round);
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        expectDirtyOrComplete();
    }
}

TEST_F(PageManagerFaults, ALossOfPowerFindsTheFileDirtyOrComplete)
{
    faults::reset();
    watchDisk();
    resultOfWorkload();
    EXPECT_EQ(disk.waits, 6u) << "one to open, three for a backup, two to close";
}

TEST_F(PageManagerFaults, APageWaitsForTheMarkThatABackupCouldNotBringBack)
{
    faults::reset();
    watchDisk();
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("page"), 0u);
    faults::failAt("kalFileSyncW", 3, injected);  // pages, clean mark, dirty mark
    EXPECT_EQ(kalPageManagerBackupWhileRunning(manager), injected);
    EXPECT_TRUE(isComplete(backup()) && !isDirty(backup()));
    EXPECT_EQ(change(0, "changed"), 0u);
    EXPECT_EQ(kalPageManagerFlushAllPages(manager), 0u);
    EXPECT_EQ(disk.unsynced.size(), 1u);
}

// After a failed close the handle is gone; the manager opens the file again when it needs it.
TEST_F(PageManagerFaults, AFailedCloseCanBeRepeated)
{
    test::LogLines log;
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("page"), 0u);
    faults::reset();
    faults::failAt("kalFileClose", 1, injected);
    EXPECT_EQ(close(), injected);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "could not close page manager file [0x4D - "), 1);
    EXPECT_TRUE(isDirty(file())) << "marked again";
    EXPECT_EQ(visit(0), 0u);
    EXPECT_EQ(create("another"), 0u);
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 1, &body), 0u);
    faults::failAt("kalFileWrite", 1, injected);
    EXPECT_EQ(kalPageManagerFlushPage(manager, body), injected);
    EXPECT_EQ(static_cast<char*>(body)[16 - 28], 1) << "still dirty";

    faults::state().before = [&](const char* call) {
        if (std::string(call) == "kalFileClose")
            std::filesystem::rename(dir / "db", dir / "elsewhere");
    };
    faults::failAt("kalFileClose", 1, injected);
    EXPECT_EQ(close(), injected);
    faults::reset();
    EXPECT_EQ(visit(1), 0u) << "in the cache still";
    EXPECT_EQ(close(), 13u);
    EXPECT_EQ(kalPageManagerSetStartPage(manager, 1), 13u);
    std::filesystem::rename(dir / "elsewhere", dir / "db");
    EXPECT_EQ(close(), 0u);
    EXPECT_TRUE(isComplete(file()) && !isDirty(file()));
}

}  // namespace
