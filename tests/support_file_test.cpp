// Files against a model, what becomes of them when system calls fail, fall short or are interrupted, and the owner lock
// between real processes.

#include "support/process.h"
#include "support/temp_dir.h"

#include <kallib/kallib.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <map>
#include <random>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

// Asked before each of the system's calls below: 0 lets it through, else it fails with that error.
std::function<int(const std::string& call)> fault;
// How much of a transfer goes through at once.
std::size_t transferLimit = SIZE_MAX;
// Pauses, counted instead of waited for when not negative.
int pauses = -1;

bool fails(const char* call) { return (errno = fault ? fault(call) : 0) != 0; }

template <class Result, class... Arguments>
Result real(const char* name, Arguments... arguments)
{
    return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}
template <class Result, class... Arguments>
Result unlessItFails(const char* name, Arguments... arguments)
{
    return fails(name) ? -1 : real<Result>(name, arguments...);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails("open") ? -1 : reinterpret_cast<decltype(&open)>(dlsym(RTLD_NEXT, "open"))(path, flags, mode);
}
ssize_t pread(int file, void* buffer, size_t size, off_t offset)
{
    return unlessItFails<ssize_t>("pread", file, buffer, std::min(size, transferLimit), offset);
}
ssize_t pwrite(int file, const void* buffer, size_t size, off_t offset)
{
    return unlessItFails<ssize_t>("pwrite", file, buffer, std::min(size, transferLimit), offset);
}
ssize_t copy_file_range(int in, off_t* inAt, int out, off_t* outAt, size_t size, unsigned flags)
{
    return unlessItFails<ssize_t>("copy_file_range", in, inAt, out, outAt, std::min(size, transferLimit), flags);
}
int fsync(int file) { return unlessItFails<int>("fsync", file); }
int fchmod(int file, mode_t mode) noexcept { return unlessItFails<int>("fchmod", file, mode); }
int rename(const char* from, const char* to) noexcept { return unlessItFails<int>("rename", from, to); }
int unlink(const char* path) noexcept { return unlessItFails<int>("unlink", path); }
int close(int file)
{
    const int result = real<int>("close", file);  // closed in any case, as by the system
    return fails("close") ? -1 : result;
}
int nanosleep(const timespec* time, timespec* rest)
{
    return pauses < 0 ? real<int>("nanosleep", time, rest) : (++pauses, 0);
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

namespace fs = std::filesystem;
using test::Process;
constexpr auto put = test::writeFile;
using Names = std::set<std::string>;

/// Works in a directory of its own.
class Files : public testing::Test {
protected:
    Files() { fs::current_path(directory.path()); }
    ~Files() override
    {
        fault = nullptr;
        transferLimit = SIZE_MAX;
        EXPECT_EQ(openDescriptors(), descriptors) << "a descriptor was left open";
        fs::current_path("/");
    }

    static Names names(const char* directory = ".")
    {
        Names found;
        for (const auto& entry : fs::directory_iterator{directory})
            found.insert(entry.path().filename());
        return found;
    }
    static std::size_t openDescriptors() { return names("/proc/self/fd").size(); }
    static uint32_t write(KALFile* file, const std::string& bytes)
    {
        auto length = static_cast<uint32_t>(bytes.size());
        return kalFileWrite(file, bytes.data(), &length);
    }
    /// What is read; a failed read gives its status instead.
    static std::string read(KALFile* file, uint32_t length)
    {
        std::string bytes(length + 1, '\0');
        const uint32_t status = kalFileRead(file, bytes.data(), &length);
        bytes.resize(length);
        return status == KAL_SUCCESS ? bytes : bytes + "status " + std::to_string(status);
    }

    test::TempDir directory;
    std::size_t descriptors = openDescriptors();
};

TEST_F(Files, AgreeWithAModelThroughShortAndInterruptedTransfers)
{
    std::mt19937 random{20'240'601};
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    fault = [&](const std::string& call) { return call.starts_with("p") && below(3) == 0 ? EINTR : 0; };
    std::map<std::u16string, std::string> model;
    const std::u16string names[] = {u"a", u"\xE4\xD83D\xDE00", std::u16string(255, 'n')};
    for (int round = 0; round < 150; ++round) {
        const std::u16string& name = names[below(3)];
        KALFile* file = nullptr;
        const bool known = model.contains(name);
        ASSERT_EQ(kalFileOpenW(name.c_str(), &file, KAL_FILE_READ_WRITE), known ? KAL_SUCCESS : KAL_FILE_NOT_FOUND);
        ASSERT_EQ(known ? 0 : kalFileOpenW(name.c_str(), &file, KAL_FILE_CREATE), 0u);
        std::string& contents = model[name];
        std::size_t position = 0;
        for (int i = 0; i < 12; ++i) {
            transferLimit = 1 + below(3000);
            if (below(3) == 0)
                kalFileSeek(file, position = below(20'000));
            const std::string bytes(below(5000), static_cast<char>('a' + below(26)));
            if (below(2) == 0) {
                ASSERT_EQ(write(file, bytes), KAL_SUCCESS);
                contents.resize(std::max(contents.size(), bytes.empty() ? 0 : position + bytes.size()));
                contents.replace(std::min(position, contents.size()), bytes.size(), bytes);
                position += bytes.size();
            } else {
                const std::string there = position < contents.size() ? contents.substr(position, bytes.size()) : "";
                ASSERT_EQ(read(file, static_cast<uint32_t>(bytes.size())), there);
                position += there.size();
            }
            uint64_t size = 0;
            ASSERT_EQ(kalFileGetSize(file, &size), KAL_SUCCESS);
            ASSERT_EQ(size, contents.size());
        }
        ASSERT_EQ(kalFileFlush(file) + kalFileClose(file), 0u);
        EXPECT_EQ(test::readFile(name), contents);
    }
}

TEST_F(Files, PassFourGibibytes)
{
    constexpr uint64_t far = (uint64_t{5} << 30) + 123, last = (uint64_t{1} << 63) - 1;
    KALFile* file = nullptr;
    uint64_t size = 0;
    ASSERT_EQ(kalFileOpenW(u"big", &file, KAL_FILE_CREATE), KAL_SUCCESS);
    ASSERT_EQ(kalFileSeek(file, far) + write(file, "far away") + kalFileSeek(file, far - 2), KAL_SUCCESS);
    EXPECT_EQ(read(file, 64), std::string("\0\0far away", 10));
    EXPECT_EQ(kalFileGetSize(file, &size), KAL_SUCCESS);
    EXPECT_EQ(size, far + 8);
    EXPECT_EQ(kalFileSeek(file, last + 1), KAL_INVALID_ARGUMENT);
    ASSERT_EQ(kalFileSeek(file, last), KAL_SUCCESS);
    EXPECT_EQ(read(file, 64), "");
    EXPECT_EQ(write(file, "beyond"), KAL_NO_SPACE);
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
}

TEST_F(Files, LeaveTheStandardStreamsFreeAndChildrenAlone)
{
    put("a", "contents");
    const int input = dup(STDIN_FILENO);
    const int next = dup(STDIN_FILENO);
    ASSERT_EQ(::close(STDIN_FILENO) + ::close(next), 0);
    KALFile* file = nullptr;
    EXPECT_EQ(kalFileOpenW(u"a", &file, KAL_FILE_READ), KAL_SUCCESS);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
    dup2(input, STDIN_FILENO);
    ::close(input);
}

TEST_F(Files, NothingButARegularFileIsOpenedOrReplaced)
{
    put("file", "x");
    fs::create_directory("folder");
    fs::create_symlink("/dev/null", "device");
    fs::create_symlink("loop", "loop");
    ASSERT_EQ(mkfifo("pipe", 0600) + mknod("socket", S_IFSOCK | 0600, 0), 0);
    KALFile* file = nullptr;
    for (const char16_t* name : {u"folder", u"pipe", u"socket", u"device", u"loop"}) {
        SCOPED_TRACE(fs::path{name});
        for (const uint32_t mode : {KAL_FILE_READ, KAL_FILE_READ_WRITE, KAL_FILE_CREATE})
            EXPECT_EQ(kalFileOpenW(name, &file, mode), KAL_NOT_A_FILE);
        EXPECT_EQ(kalFileCopyW(name, u"new"), KAL_NOT_A_FILE);
        EXPECT_EQ(kalFileCopyW(u"file", name), KAL_NOT_A_FILE);
        EXPECT_EQ(kalFileSyncW(name), KAL_NOT_A_FILE);
    }
    EXPECT_EQ(kalFileRename(u"folder", u"new"), KAL_NOT_A_FILE);
    EXPECT_EQ(kalFileRename(u"file", u"pipe"), KAL_NOT_A_FILE);
    EXPECT_EQ(kalFileDeleteW(u"folder"), KAL_NOT_A_FILE);
    EXPECT_EQ(kalFileOpenW(u"file/below", &file, KAL_FILE_CREATE), KAL_FILE_NOT_FOUND);
    for (const auto operation : {kalFileSyncW, kalFileDeleteW})
        EXPECT_EQ(operation(u"none"), KAL_FILE_NOT_FOUND);
    for (const auto operation : {kalFileCopyW, kalFileRename})
        EXPECT_EQ(operation(u"none", u"new"), KAL_FILE_NOT_FOUND);
    uint32_t exists = 1;
    EXPECT_EQ(kalFileExistsW(std::u16string(5000, 'n').c_str(), &exists), KAL_NAME_TOO_LONG);
    EXPECT_EQ(exists, 1u) << "a failed query counts as an existing file";
    EXPECT_EQ(names(), (Names{"device", "file", "folder", "loop", "pipe", "socket"}));
}

TEST_F(Files, EachErrorHasItsStatus)
{
    const std::map<uint32_t, std::vector<int>> cases{{KAL_ACCESS_DENIED, {EACCES, EPERM, EROFS}},
                                                     {KAL_NO_SPACE, {ENOSPC, EDQUOT, EFBIG}},
                                                     {KAL_TOO_MANY_FILES, {EMFILE, ENFILE}},
                                                     {KAL_OUT_OF_MEMORY, {ENOMEM}},
                                                     {KAL_FILE_IN_USE, {ETXTBSY}},
                                                     {KAL_IO_ERROR, {EIO}},
                                                     {KAL_NAME_TOO_LONG, {ENAMETOOLONG}}};
    KALFile* file = nullptr;
    for (const auto& [status, errors] : cases)
        for (const int error : errors) {
            fault = [error](const std::string& call) { return call == "open" ? error : 0; };
            EXPECT_EQ(kalFileOpenW(u"a", &file, KAL_FILE_CREATE), status) << error;
        }
    fault = [](const std::string& call) { return call == "close" ? EIO : 0; };
    ASSERT_EQ(kalFileOpenW(u"a", &file, KAL_FILE_CREATE), KAL_SUCCESS);
    EXPECT_EQ(kalFileClose(file), KAL_IO_ERROR);
    EXPECT_EQ(kalFileClose(file), KAL_INVALID_ARGUMENT) << "closed all the same";
}

TEST_F(Files, ATransferThatFallsShortFailsAndKeepsThePosition)
{
    KALFile* file = nullptr;
    ASSERT_EQ(kalFileOpenW(u"a", &file, KAL_FILE_CREATE), KAL_SUCCESS);
    transferLimit = 3;
    int calls = 0;
    fault = [&](const std::string&) { return ++calls % 4 == 2 ? ENOSPC : 0; };
    uint32_t length = 10;
    EXPECT_EQ(kalFileWrite(file, "0123456789", &length), KAL_NO_SPACE);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(write(file, "again"), KAL_SUCCESS);
    EXPECT_EQ(test::readFile("a"), "again");
    ASSERT_EQ(kalFileSeek(file, 0), KAL_SUCCESS);
    calls = 0;
    EXPECT_EQ(read(file, 5), "status 10");
    EXPECT_EQ(read(file, 5), "again");
    fault = nullptr;
    transferLimit = 0;
    EXPECT_EQ(write(file, "x"), KAL_IO_ERROR) << "a system that takes nothing is not asked for ever";
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
}

TEST_F(Files, AFailedWaitForTheDiskIsNotRepeated)
{
    put("a", "x");
    for (const auto& [error, status] : {std::pair{EIO, KAL_IO_ERROR}, {EINTR, KAL_IO_ERROR}, {ENOSPC, KAL_NO_SPACE}})
        for (const int victim : {1, 2}) {  // the file, then its directory
            int waits = 0;
            fault = [&, code = error](const std::string& call) {
                return call == "fsync" && ++waits == victim ? code : 0;
            };
            EXPECT_EQ(kalFileSyncW(u"a"), static_cast<uint32_t>(status)) << error;
            EXPECT_EQ(waits, victim);
        }
}

/// Copies or renames a to b with the first, second, ... call failing, until it gets through. Each time both are whole.
void failEachCall(int error, const std::string& contents, const std::function<uint32_t()>& operation)
{
    std::string failing = "one";
    for (int victim = 1; !failing.empty(); ++victim) {
        put("a", contents);
        put("b", "old");
        failing.clear();
        fault = [&, calls = 0](const std::string& call) mutable {
            if (++calls == victim)
                failing = call;
            return calls == victim ? error : 0;
        };
        const uint32_t status = operation();
        fault = nullptr;
        SCOPED_TRACE(failing + ", call " + std::to_string(victim));
        // Closing a file that was only read loses nothing.
        EXPECT_TRUE((status == KAL_SUCCESS) == failing.empty() || failing == "close");
        EXPECT_TRUE(!failing.empty() || victim > 5) << "the calls did not come through the layer";
        const std::string to = test::readFile("b");
        const auto files = std::distance(fs::directory_iterator{"."}, {});
        EXPECT_TRUE(to == contents || (status != KAL_SUCCESS && to == "old")) << to.size();
        EXPECT_EQ(files, fs::exists("a") ? 2 : 1) << "no temporary file is left";
        EXPECT_TRUE(to == contents || test::readFile("a") == contents);
    }
}

TEST_F(Files, ACopyOrRenameIsWholeOrHasNotHappened)
{
    const std::string original = std::string(700'000, 'n') + "end";
    const auto copy = [] { return kalFileCopyW(u"a", u"b"); };
    failEachCall(EIO, original, copy);
    failEachCall(ENOSPC, original, copy);
    // Without the kernel's help it is the same, and so it is when the kernel stops half-way or copies in small pieces.
    for (const int later : {0, 1, 2}) {
        put("b", "old");
        transferLimit = later == 0 ? SIZE_MAX : 100'000;
        fault = [later, calls = 0](const std::string& call) mutable {
            return call == "copy_file_range" && ++calls > later ? EXDEV : 0;
        };
        EXPECT_EQ(copy(), KAL_SUCCESS);
        EXPECT_EQ(test::readFile("b"), original);
    }
    // The first renaming to fail is the direct one, and the copy takes over; then each call of the copy fails.
    failEachCall(EIO, original, [] {
        fault = [others = fault, direct = true](const std::string& call) mutable {
            return call == "rename" && std::exchange(direct, false) ? EXDEV : others(call);
        };
        return kalFileRename(u"a", u"b");
    });
    EXPECT_EQ(names(), Names{"b"});
    fault = [once = Names{"rename", "unlink"}](const std::string& call) mutable {
        return once.erase(call) == 0 ? 0 : call == "rename" ? EXDEV : EACCES;
    };
    EXPECT_EQ(kalFileRename(u"b", u"a"), KAL_ACCESS_DENIED);
    EXPECT_EQ(names(), Names{"b"}) << "what cannot be deleted is not doubled";
}

TEST_F(Files, NothingIsRenamedBeforeItIsOnDiskNorReportedBeforeItsNameIs)
{
    put("a", "contents");
    fs::create_directory("other");
    std::string calls;
    fault = [&](const std::string& call) {
        calls += call == "fsync" || call == "copy_file_range" || call == "rename" ? call + " " : "";
        return 0;
    };
    EXPECT_EQ(kalFileCopyW(u"a", u"b") + kalFileRename(u"b", u"other/b"), 0u);
    EXPECT_EQ(calls, "fsync copy_file_range copy_file_range fsync rename fsync rename fsync fsync ")
        << "at the end both directories";
}

TEST_F(Files, CopiesToOnePlaceWorkBesideEachOtherAndCleanUpAfterDeadOnes)
{
    put("a", "new");
    put("b", "old");
    for (const std::string last : {"copy_file_range", "fchmod", "rename"}) {
        Process dying{[&](const Process::Report& report) {
            fault = [&](const std::string& call) { return call == last ? raise(SIGKILL) : 0; };
            report(kalFileCopyW(u"a", u"b"));
        }};
        EXPECT_EQ(dying.report(), 255u) << last;
        EXPECT_EQ(test::readFile("b"), "old");
        EXPECT_EQ(names().size(), 3u) << "one temporary file, not one for each death";
    }
    uint32_t other = 99;
    fault = [&](const std::string& call) {
        if (call == "rename" && other == 99)
            other = Process{[](const Process::Report& report) {
                        fault = nullptr;
                        report(kalFileCopyW(u"a", u"b"));
                    }}.report();
        return 0;
    };
    EXPECT_EQ(kalFileCopyW(u"a", u"b"), KAL_SUCCESS);
    EXPECT_EQ(other, 0u) << "the other one neither failed nor took this one's temporary file away";
    EXPECT_EQ(test::readFile("b"), "new");
    EXPECT_EQ(names(), (Names{"a", "b"}));
}

TEST_F(Files, ACopyTakesTheModeAndFollowsLinks)
{
    put("a", "new");
    chmod("a", 0640);
    fs::create_directory("elsewhere");
    put("elsewhere/target", "old");
    fs::create_symlink("elsewhere/target", "link");
    fs::create_symlink(directory / "link", "linkToLink");
    fs::create_symlink("elsewhere/absent", "dangling");
    fs::create_symlink("a", "sameFile");
    fs::create_hard_link("a", "secondName");
    EXPECT_EQ(kalFileCopyW(u"a", u"linkToLink"), KAL_SUCCESS);
    EXPECT_TRUE(fs::is_symlink("link"));
    EXPECT_EQ(test::readFile("elsewhere/target"), "new");
    EXPECT_EQ(fs::status("elsewhere/target").permissions(), fs::perms{0640});
    EXPECT_EQ(kalFileCopyW(u"a", u"dangling"), KAL_SUCCESS);
    EXPECT_EQ(test::readFile("elsewhere/absent"), "new");
    EXPECT_EQ(kalFileCopyW(u"a", u"secondName"), KAL_SUCCESS);
    put("a", "newer");
    EXPECT_EQ(test::readFile("secondName"), "new") << "a copy, no longer the same file";
    for (const char16_t* name : {u"sameFile", static_cast<const char16_t*>(nullptr)})
        EXPECT_EQ(kalFileCopyW(u"a", name), KAL_INVALID_ARGUMENT);
}

uint32_t tryAcquire(const char16_t* name = u"db")
{
    KALOwnerLock* lock = nullptr;
    const uint32_t status = kalOwnerLockAcquire(name, &lock);
    EXPECT_EQ(kalOwnerLockRelease(lock) == KAL_SUCCESS, status == KAL_SUCCESS);
    return status;
}

/// As a server starts: lock, make the file good, settle.
void start(const Process::Report& report)
{
    KALOwnerLock* lock = nullptr;
    const uint32_t status = kalOwnerLockAcquire(u"db", &lock);
    if (status == KAL_SUCCESS && kalFileCopyW(u"db.backup", u"db") != KAL_SUCCESS)
        put("db", "new");
    report(status == KAL_SUCCESS ? kalOwnerLockSettle(lock) : status);
}

TEST_F(Files, AreWaitedForWhileTheyAreRestored)
{
    put("db", "old");
    put("db.backup", "new");
    KALOwnerLock* lock = nullptr;
    Process killed{[&](const Process::Report& report) { report(kalOwnerLockAcquire(u"db", &lock)); }};
    EXPECT_EQ(killed.report(), KAL_SUCCESS);
    Process successor{start};
    usleep(30'000);
    killed.end(SIGKILL);
    EXPECT_EQ(successor.report(), KAL_SUCCESS);
    successor.end();

    ASSERT_EQ(kalOwnerLockAcquire(u"db", &lock), KAL_SUCCESS);
    Process other{start};
    usleep(30'000);
    ASSERT_EQ(kalFileCopyW(u"db.backup", u"db"), KAL_SUCCESS);
    ASSERT_EQ(kalOwnerLockSettle(lock), KAL_SUCCESS);
    EXPECT_EQ(other.report(), KAL_FILE_IN_USE);
    // The child has inherited the lock; that neither keeps it alive nor lets the child end it.
    Process heir{[&](const Process::Report& report) { report(kalOwnerLockRelease(lock)); }};
    EXPECT_EQ(heir.report(), KAL_SUCCESS);
    EXPECT_EQ(Process{start}.report(), KAL_FILE_IN_USE);
    EXPECT_EQ(kalOwnerLockRelease(lock), KAL_SUCCESS);
    EXPECT_EQ(Process{start}.report(), KAL_SUCCESS);
}

TEST_F(Files, AreOwnedWithinOneProcessToo)
{
    KALOwnerLock* lock = nullptr;
    KALFile* file = nullptr;
    ASSERT_EQ(kalOwnerLockAcquire(u"db", &lock), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE) << "unsettled: refused at once, as nobody else could let go";
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_FILE_NOT_FOUND);
    put("db", "new");
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_SUCCESS);
    EXPECT_EQ(kalOwnerLockSettle(lock), KAL_INVALID_ARGUMENT);
    fs::create_symlink("db", "link");
    EXPECT_EQ(tryAcquire(u"link"), KAL_FILE_IN_USE);
    EXPECT_EQ(tryAcquire(u"other"), KAL_SUCCESS);
    EXPECT_EQ(kalFileOpenW(u"db", &file, KAL_FILE_READ_WRITE) + kalFileClose(file), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE) << "closing another descriptor of the file ends nothing";
    EXPECT_EQ(kalOwnerLockRelease(lock), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(), KAL_SUCCESS);
    EXPECT_EQ(tryAcquire(u""), KAL_FILE_NOT_FOUND);
    for (const uint32_t status :
         {kalOwnerLockAcquire(nullptr, &lock), kalOwnerLockAcquire(u"db", nullptr), kalOwnerLockSettle(nullptr)})
        EXPECT_EQ(status, KAL_INVALID_ARGUMENT);

    // A directory that somebody never lets go of.
    const int held = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    pauses = 0;
    EXPECT_EQ(tryAcquire(), KAL_FILE_IN_USE);
    EXPECT_EQ(std::exchange(pauses, -1), 3000) << "half a minute, ten milliseconds at a time";
    ::close(held);
}

}  // namespace
