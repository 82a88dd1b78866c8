// The owner lock between real processes.

#include "support/process.h"

#include <kallib/kallib.h>

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {
int pauses = -1;  // counted instead of waited for when not negative
}

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec* rest)
{
    using Sleep = int(const timespec*, timespec*);
    if (pauses < 0)
        return reinterpret_cast<Sleep*>(dlsym(RTLD_NEXT, "nanosleep"))(time, rest);
    ++pauses;
    return 0;
}

namespace {

namespace fs = std::filesystem;
using test::Process;

class OwnerLock : public testing::Test {
protected:
    OwnerLock()
    {
        char name[] = "/tmp/kallock-XXXXXX";
        directory = mkdtemp(name);
        database = (directory / "data.db").u16string();
        backup = (directory / "data.db.backup").u16string();
    }
    ~OwnerLock() override
    {
        EXPECT_LE(std::distance(fs::directory_iterator{directory}, {}), 3) << "locking leaves no file of its own";
        fs::remove_all(directory);
    }

    void put(const std::string& name) const { std::ofstream{directory / name} << "contents"; }
    uint32_t acquire(KALOwnerLock*& lock) const { return kalOwnerLockAcquire(database.c_str(), &lock); }
    uint32_t tryAcquire() const
    {
        KALOwnerLock* lock = nullptr;
        const uint32_t status = acquire(lock);
        if (status == KAL_SUCCESS)
            kalOwnerLockRelease(lock);
        return status;
    }
    // As a server starts: lock, make the file good, settle.
    uint32_t start(KALOwnerLock*& lock) const
    {
        if (const uint32_t status = acquire(lock); status != KAL_SUCCESS)
            return status;
        if (kalFileCopyW(backup.c_str(), database.c_str()) != KAL_SUCCESS) {
            KALFile* file = nullptr;
            kalFileOpenW(database.c_str(), &file, KAL_FILE_CREATE);
            kalFileClose(file);
        }
        return kalOwnerLockSettle(lock);
    }
    Process starter() const
    {
        return Process{[this](const Process::Report& report) {
            KALOwnerLock* lock = nullptr;
            report(start(lock));
        }};
    }

    fs::path directory;
    std::u16string database;
    std::u16string backup;
};

TEST_F(OwnerLock, OfSeveralProcessesThatStartTogetherOneOwnsTheDatabase)
{
    const std::vector<std::vector<std::string>> situations = {
        {}, {"data.db"}, {"data.db.backup"}, {"data.db", "data.db.backup"}};
    for (int round = 0; round < 6; ++round) {
        for (const auto& files : situations) {
            for (const auto& entry : fs::directory_iterator{directory})
                fs::remove(entry);
            for (const std::string& name : files)
                put(name);
            std::vector<Process> processes;
            for (int i = 0; i < 4; ++i)
                processes.push_back(starter());
            int owners = 0;
            for (Process& process : processes) {
                const uint32_t status = process.report();
                owners += status == KAL_SUCCESS ? 1 : 0;
                EXPECT_TRUE(status == KAL_SUCCESS || status == KAL_FILE_IN_USE) << status;
            }
            EXPECT_EQ(owners, 1);
            EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE);
        }
    }
}

TEST_F(OwnerLock, IsFreeAgainHoweverTheOwnerEnds)
{
    for (const int signal : {0, SIGKILL}) {
        Process owner = starter();
        EXPECT_EQ(owner.report(), KAL_SUCCESS);
        EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE);
        owner.end(signal);
        EXPECT_EQ(tryAcquire(), KAL_SUCCESS);
    }
    // Killed between acquiring and settling, with the other already waiting for the directory.
    Process starting{[this](const Process::Report& report) {
        KALOwnerLock* lock = nullptr;
        report(acquire(lock));
    }};
    EXPECT_EQ(starting.report(), KAL_SUCCESS);
    Process waiting = starter();
    usleep(30'000);
    starting.end(SIGKILL);
    EXPECT_EQ(waiting.report(), KAL_SUCCESS);
}

TEST_F(OwnerLock, AStarterWaitsWhileTheFileIsRestoredAndThenMeetsTheOwner)
{
    put("data.db");
    put("data.db.backup");
    KALOwnerLock* lock = nullptr;
    ASSERT_EQ(acquire(lock), KAL_SUCCESS);
    Process other = starter();
    usleep(30'000);
    ASSERT_EQ(kalFileCopyW(backup.c_str(), database.c_str()), KAL_SUCCESS);
    ASSERT_EQ(kalOwnerLockSettle(lock), KAL_SUCCESS);
    EXPECT_EQ(other.report(), KAL_FILE_IN_USE);
    // The child has inherited the lock; that neither keeps it alive nor lets the child end it.
    Process heir{[this, lock](const Process::Report& report) { report(kalOwnerLockRelease(lock)); }};
    EXPECT_EQ(heir.report(), KAL_SUCCESS);
    EXPECT_EQ(starter().report(), KAL_FILE_IN_USE);
    EXPECT_EQ(kalOwnerLockRelease(lock), KAL_SUCCESS);
    EXPECT_EQ(starter().report(), KAL_SUCCESS);
}

TEST_F(OwnerLock, HoldsWithinOneProcessToo)
{
    KALOwnerLock* lock = nullptr;
    ASSERT_EQ(acquire(lock), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE) << "unsettled: refused at once, as nobody else could let go";
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_FILE_NOT_FOUND);
    put("data.db");
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_SUCCESS);
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE);

    // Other names of the file are the same database; another file in the directory is not.
    fs::create_symlink("data.db", directory / "link");
    KALOwnerLock* second = nullptr;
    EXPECT_EQ(kalOwnerLockAcquire((directory / "link").u16string().c_str(), &second), KAL_FILE_IN_USE);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(kalOwnerLockAcquire((directory / "other").u16string().c_str(), &second), KAL_SUCCESS);
    EXPECT_EQ(kalOwnerLockRelease(second), KAL_SUCCESS);
    EXPECT_EQ(kalOwnerLockRelease(second), KAL_INVALID_ARGUMENT);

    // Others can open the file all the same.
    KALFile* file = nullptr;
    EXPECT_EQ(kalFileOpenW(database.c_str(), &file, KAL_FILE_READ_WRITE), KAL_SUCCESS);
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE) << "closing another descriptor of the file ends nothing";
    EXPECT_EQ(kalOwnerLockRelease(lock), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_SUCCESS);
}

TEST_F(OwnerLock, RefusesWhatCannotBeOwned)
{
    KALOwnerLock* lock = nullptr;
    fs::create_directory(directory / "data.db");
    EXPECT_EQ(acquire(lock), KAL_NOT_A_FILE);
    EXPECT_EQ(kalOwnerLockAcquire((directory / "none/data.db").u16string().c_str(), &lock), KAL_FILE_NOT_FOUND);
    EXPECT_EQ(kalOwnerLockAcquire(nullptr, &lock), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalOwnerLockAcquire(database.c_str(), nullptr), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalOwnerLockSettle(nullptr), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalOwnerLockRelease(nullptr), KAL_INVALID_ARGUMENT);

    // A directory that somebody never lets go of.
    const int held = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    pauses = 0;
    EXPECT_EQ(acquire(lock), KAL_FILE_IN_USE);
    EXPECT_EQ(std::exchange(pauses, -1), 3000) << "half a minute, ten milliseconds at a time";
    ::close(held);
}

}  // namespace
