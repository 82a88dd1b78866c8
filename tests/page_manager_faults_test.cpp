// The page manager when the support library fails, when a file is damaged, and where it keeps the backup.

#include "support/faults.h"
#include "support/page_store.h"

#include <fstream>
#include <vector>

namespace {

using test::fileHeader;
using test::formattedPage;
using test::isComplete;
using test::isDirty;
using test::page;
using test::same;
using test::withoutTimes;
using test::writeFile;

using PageManagerFiles = test::PageStore;
constexpr uint32_t injected = 77;

class PageManagerFaults : public test::PageStore {
protected:
    PageManagerFaults() { std::filesystem::current_path(dir.path()); }
    ~PageManagerFaults() override { faults::reset(); }

    /// More pages than slots, written, changed and read back, a backup on the way. Every step may be repeated until it
    /// succeeds.
    uint32_t step(uint32_t number)
    {
        switch (number) {
        case 0: return open(cacheBytes);
        case 8: return kalPageManagerBackupWhileRunning(manager);
        case 13: return kalPageManagerSetStartPage(manager, 3);
        case 14: return kalPageManagerFlushAllPages(manager);
        case 15: return change(5, "changed last");
        case 16: return close();
        default: return number < 8 ? create(std::to_string(number)) : change(2 * (number - 9), "changed");
        }
    }
    /// Runs the workload with a fault that a step meets; after it the fault is over and the step is repeated.
    void runWithFault(unsigned nth, bool forGood, bool torn, const std::string& expected)
    {
        SCOPED_TRACE(testing::Message() << "call " << nth << (forGood ? ", for good" : "") << (torn ? ", torn" : ""));
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            std::filesystem::remove_all(entry.path());
        unsynced.clear();
        faults::reset();
        faults::state().torn = torn;
        faults::state().before = [this](const char* call) { onSync(call); };
        faults::state().written = [this](KALFile*, uint64_t offset, const void*, uint32_t) {
            unsynced.push_back(offset);
        };
        faults::failAt(torn ? "kalFileWrite" : faults::anyCall, nth, injected, forGood);
        const std::size_t files = faults::openFiles(), blocks = faults::liveBlocks();
        for (uint32_t number = 0; number < steps; ++number) {
            const uint32_t status = step(number);
            if (status == 0)
                continue;
            // A failing question for a backup counts as one, and what is not there can be neither moved nor deleted.
            EXPECT_TRUE(status == injected || status == 7 || status == 1 || status == 2 || status == 13) << status;
            expectDirtyOrComplete();
            faults::state().countdown = 0;
            const uint32_t again = step(number);
            if (again == injected) {
                EXPECT_EQ(cacheBytes, 0u) << "all pages are in the cache still, and can be written again";
                EXPECT_EQ(close(), injected) << "pages are lost for good";
                EXPECT_TRUE(isDirty(file()));
                static auto* const noCloseEndsThem = new std::vector<KALPageManager*>;
                return noCloseEndsThem->push_back(std::exchange(manager, nullptr));
            }
            EXPECT_EQ(again, 0u) << "cannot be repeated after " << status;
        }
        EXPECT_TRUE(same(withoutTimes(file()), expected)) << "something is lost";
        expectDirtyOrComplete();
        EXPECT_EQ(faults::openFiles(), files);
        EXPECT_EQ(faults::liveBlocks(), blocks);
    }
    /// A wait for the disk that fails loses the pages that were written since the one before.
    void onSync(const std::string& call)
    {
        if (call != "kalFileSyncW")
            return;
        std::fstream lost(dir / "db", std::ios::in | std::ios::out | std::ios::binary);
        for (const uint64_t offset : std::exchange(unsynced, {}))
            if (offset > 0 && faults::strikesNext(call.c_str()))
                lost.seekp(static_cast<std::streamoff>(offset)) << std::string(2048, 'X');
    }
    /// What holds at every instant; a backup is always complete.
    void expectDirtyOrComplete()
    {
        EXPECT_TRUE(!std::filesystem::exists(dir / "db") || isDirty(file()) || isComplete(file()));
        EXPECT_TRUE(!std::filesystem::exists(dir / "db.backup") || (isComplete(backup()) && !isDirty(backup())));
    }

    std::vector<uint64_t> unsynced;
    uint32_t cacheBytes = 0;
    static constexpr uint32_t steps = 17;
};

TEST_F(PageManagerFaults, EveryCallMayFailOnceOrForGoodAndNothingIsLost)
{
    for (uint32_t number = 0; number < steps; ++number)
        ASSERT_EQ(step(number), 0u);
    const std::string expected = withoutTimes(file());
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

TEST_F(PageManagerFaults, APageWaitsForTheMarkThatABackupCouldNotBringBack)
{
    std::string calls;
    faults::state().before = [&](const std::string& call) { calls += call + " "; };
    ASSERT_EQ(open(), 0u);
    EXPECT_TRUE(calls.ends_with("kalFileWrite kalFileSyncW ")) << calls;  // the mark is on the disk
    ASSERT_EQ(create("page"), 0u);
    faults::failAt("kalFileSyncW", 3, injected);  // pages, clean mark, dirty mark
    EXPECT_EQ(kalPageManagerBackupWhileRunning(manager), injected);
    EXPECT_TRUE(isComplete(backup()) && !isDirty(backup()));
    calls.clear();
    EXPECT_TRUE(change(0, "changed") == 0 && kalPageManagerFlushAllPages(manager) == 0);
    EXPECT_LT(calls.find("kalFileSyncW"), calls.rfind("kalFileWrite")) << calls;
}

TEST_F(PageManagerFaults, APageThatCannotBeWrittenKeepsNoOtherFromTheFile)
{
    ASSERT_TRUE(open() == 0 && create("zero") == 0 && create("one") == 0 && create("two") == 0);
    faults::failAt("kalFileWrite", 3, injected);  // the header, then page by page
    EXPECT_EQ(kalPageManagerFlushAllPages(manager), injected);
    EXPECT_TRUE(file().find("two") != std::string::npos && file().find("one") == std::string::npos);
    EXPECT_EQ(change(0, "null") + change(2, "deux"), 0u);
    faults::failAt("kalFileWrite", 1, injected);  // a close writes all three in one piece
    EXPECT_EQ(close(), injected);
    EXPECT_TRUE(isComplete(file()) && isDirty(file()));
}

// After a failed close the handle is gone; the manager opens the file again when it needs it.
TEST_F(PageManagerFaults, AFailedCloseCanBeRepeated)
{
    test::LogLines log;
    ASSERT_TRUE(open() == 0 && create("page") == 0);
    faults::failAt("kalFileClose", 1, injected);
    EXPECT_EQ(close(), injected);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "could not close page manager file [0x4D - "), 1);
    EXPECT_TRUE(isDirty(file())) << "marked again";
    EXPECT_EQ(create("another"), 0u);
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 1, &body), 0u);
    faults::failAt("kalFileWrite", 1, injected);
    EXPECT_EQ(kalPageManagerFlushPage(manager, body), injected);
    EXPECT_EQ(static_cast<char*>(body)[16 - 28], 1) << "still dirty";

    faults::state().before = [&](const std::string& call) {
        if (call == "kalFileClose")
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

TEST_F(PageManagerFaults, AFileWhoseNameIsGoneIsClosedWithoutABackup)
{
    test::LogLines log;
    ASSERT_TRUE(open() == 0 && create("page") == 0);
    std::filesystem::rename(dir / "db", dir / "elsewhere");
    EXPECT_EQ(close(), 0u);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "could not backup database [0x0D - "), 1);
    const std::string left = test::readFile(dir / "elsewhere");
    EXPECT_TRUE(isComplete(left) && !isDirty(left));
}

TEST_F(PageManagerFiles, PagesThatAreNotTheirOwnAreRefusedAndKeepTheLastGoodBackup)
{
    const std::string good = fileHeader(2) + page(0, 0, 0, 1, "good") + page(1, 0, 0, 2, "old");
    writeFile(dir / "db.backup", good);
    const std::pair<std::string, uint32_t> damaged[] = {
        {fileHeader(2) + page(1, 0, 0, 1, "wrong number") + page(1, 0, 0, 2, "old"), 1},
        {fileHeader(2) + std::string(2048, '\0') + page(1, 0, 0, 2, "old"), 1},
        {fileHeader(1) + page(0, 0, 0, 1, "cut").substr(0, 2047), 8},
    };
    for (const auto& [bytes, status] : damaged) {
        test::LogLines log;
        writeFile(dir / "db", bytes);
        ASSERT_EQ(open(), 0u);
        EXPECT_EQ(visit(0), status);
        EXPECT_EQ(visit(0), status) << "nothing of it stays in the cache";
        EXPECT_EQ(kalPageManagerBackupWhileRunning(manager), 26u);
        EXPECT_EQ(close(), 0u);
        EXPECT_EQ(log.count(KAL_LOG_ERROR, "kalPageManagerBackup() could not backup database '"), 2);
        EXPECT_TRUE(same(backup(), good));
        EXPECT_FALSE(isDirty(file()));
    }
}

TEST_F(PageManagerFiles, WhatAFileSaysOfReferencesAndFlagsIsNotBelieved)
{
    writeFile(dir / "db", fileHeader(1) + page(0, 77, 5, 9, "body"));
    ASSERT_EQ(open(), 0u);
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 0, &body), 0u);
    EXPECT_EQ(kalPageManagerFlushPage(manager, body), 6u);
    ASSERT_EQ(kalPageManagerSetPageDirty(manager, body) + kalPageManagerFlushPage(manager, body), 0u);
    EXPECT_TRUE(same(file(), fileHeader(1, 0xFFFFFFFF, 1) + page(0, 1, 0, 9, "body")));
}

TEST_F(PageManagerFiles, GapsThatACrashLeftAreFilledAndLiesAreNot)
{
    // The header counts two pages that the file never got, and half of the one before is missing.
    writeFile(dir / "db", fileHeader(4, 0, 1) + page(0, 0, 0, 1, "a") + page(1, 0, 0, 2, "b").substr(0, 1000));
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(visit(2), 15u);
    ASSERT_TRUE(create("new") == 0 && kalPageManagerFlushAllPages(manager) == 0);
    EXPECT_EQ(visit(1), 8u) << "the zeros before the new page do not make it whole";
    EXPECT_EQ(visit(3), 15u);
    ASSERT_EQ(close(), 0u);
    const std::string filling = formattedPage() + formattedPage() + formattedPage();
    EXPECT_TRUE(
        same(withoutTimes(file()), fileHeader(5, 0) + page(0, 0, 0, 0, "a") + filling + page(4, 0, 0, 0, "new")));

    // More pages than the header counts: new ones come after them.
    writeFile(dir / "db", fileHeader(1) + page(0, 0, 0, 0, "a") + page(1, 0, 0, 0, "b") + "tail");
    uint32_t number = 0;
    ASSERT_TRUE(open() == 0 && create("c", &number) == 0 && close() == 0);
    EXPECT_EQ(number, 3u);

    for (const uint32_t count : {1u + (1u << 14) + 1, 1u << 21, 0xFFFFFFFFu}) {
        writeFile(dir / "db", fileHeader(count) + page(0, 0, 0, 0, "a"));
        ASSERT_EQ(open(), 0u);
        EXPECT_TRUE(count != 0xFFFFFFFF || create("none left") == 12);
        ASSERT_EQ(close(), 0u);
        EXPECT_TRUE(same(file(), fileHeader(count) + page(0, 0, 0, 0, "a")));
        EXPECT_NE(test::u32At(backup(), 76), count) << "a file that lies is no backup";
    }
}

TEST_F(PageManagerFiles, BackupsAreMadeReplacedAndRestored)
{
    std::filesystem::create_directory(dir / "cwd");
    std::filesystem::current_path(dir / "cwd");
    test::LogLines log;
    uint32_t dirty = 7;
    ASSERT_TRUE(open() == 0 && create("first") == 0 && kalPageManagerBackupWhileRunning(manager) == 0);
    EXPECT_TRUE(isComplete(backup()) && !isDirty(backup()) && isComplete(file()));
    EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 0u);
    EXPECT_EQ(dirty, 1u);
    ASSERT_TRUE(change(0, "second") == 0 && close() == 0);
    EXPECT_TRUE(same(file(), backup()));
    EXPECT_EQ(log.count(KAL_LOG_DEBUG, "kalPageManagerBackup() backed-up '"), 2);
    EXPECT_EQ(log.of(KAL_LOG_ERROR) + log.of(KAL_LOG_WARNING), "");
    EXPECT_TRUE(std::filesystem::is_empty(dir / "cwd")) << "no temporary file stays";

    const std::string good = backup();
    writeFile(dir / "db", "rubbish");
    EXPECT_EQ(kalPageManagerRestore(path.c_str()), 0u);
    EXPECT_TRUE(same(file(), good));
    EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 0u);
    EXPECT_EQ(dirty, 0u);

    // Without memory for its name beside, and without the working directory, the old backup is deleted. It comes back
    // where the copy fails.
    faults::failAt("kalMemAllocate", 1, KAL_OUT_OF_MEMORY, true);
    EXPECT_EQ(kalPageManagerBackup(path.c_str()) + kalPageManagerRestore(path.c_str()), 0u);
    faults::reset();
    std::filesystem::remove(dir / "db");
    EXPECT_EQ(kalPageManagerBackup(path.c_str()), 13u);
    EXPECT_TRUE(same(backup(), good));
    EXPECT_EQ(log.of(KAL_LOG_WARNING), "Backup repository will be out of date!");
    writeFile(dir / "db", "anything");
    std::filesystem::remove(dir / "cwd");
    EXPECT_EQ(kalPageManagerBackup(path.c_str()), 0u);
    EXPECT_TRUE(same(backup(), "anything"));
    EXPECT_EQ(log.count(KAL_LOG_WARNING, "Unable to get current working directory: "), 1);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "Unable to maintian existing backup, deleting."), 2);
}

TEST_F(PageManagerFiles, ARelativePathIsFoundWhereverTheProcessGoes)
{
    std::filesystem::current_path(dir.path());
    path = u"db";
    const char16_t* location = nullptr;
    ASSERT_TRUE(open() == 0 && create("page") == 0 && kalPageManagerGetLocation(manager, &location) == 0);
    EXPECT_EQ(location, path);
    std::filesystem::current_path("/");
    EXPECT_EQ(close(), 0u);
    EXPECT_TRUE(isComplete(file()) && !isDirty(file()) && same(file(), backup()));
}

}  // namespace
