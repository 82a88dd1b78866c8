// Files against a model, and what becomes of them when system calls fail, fall short or are interrupted.

#include <kallib/kallib.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// ---- a layer before the system's calls

// Asked before each call: 0 lets it through, else it fails with that error.
std::function<int(const std::string& call)> fault;
// How much of a transfer goes through at once.
std::size_t transferLimit = SIZE_MAX;

bool fails(const char* call)
{
    errno = fault ? fault(call) : 0;
    return errno != 0;
}

template <class Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define KAL_TEST_CALL extern "C" __attribute__((visibility("default")))

KAL_TEST_CALL int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails("open") ? -1 : next<int(const char*, int, ...)>("open64")(path, flags, mode);
}
KAL_TEST_CALL ssize_t pread(int file, void* buffer, size_t size, off_t offset)
{
    static const auto real = next<ssize_t(int, void*, size_t, off_t)>("pread64");
    return fails("pread") ? -1 : real(file, buffer, std::min(size, transferLimit), offset);
}
KAL_TEST_CALL ssize_t pwrite(int file, const void* buffer, size_t size, off_t offset)
{
    static const auto real = next<ssize_t(int, const void*, size_t, off_t)>("pwrite64");
    return fails("pwrite") ? -1 : real(file, buffer, std::min(size, transferLimit), offset);
}
KAL_TEST_CALL ssize_t copy_file_range(int in, off64_t* inAt, int out, off64_t* outAt, size_t size, unsigned flags)
{
    static const auto real = next<ssize_t(int, off64_t*, int, off64_t*, size_t, unsigned)>("copy_file_range");
    return fails("copy_file_range") ? -1 : real(in, inAt, out, outAt, std::min(size, transferLimit), flags);
}
KAL_TEST_CALL int fsync(int file) { return fails("fsync") ? -1 : next<int(int)>("fsync")(file); }
KAL_TEST_CALL int fchmod(int file, mode_t mode) noexcept
{
    return fails("fchmod") ? -1 : next<int(int, mode_t)>("fchmod")(file, mode);
}
KAL_TEST_CALL int rename(const char* from, const char* to) noexcept
{
    return fails("rename") ? -1 : next<int(const char*, const char*)>("rename")(from, to);
}
KAL_TEST_CALL int unlink(const char* path) noexcept
{
    return fails("unlink") ? -1 : next<int(const char*)>("unlink")(path);
}
// Closed in any case, as by the system.
KAL_TEST_CALL int close(int file)
{
    const int result = next<int(int)>("close")(file);
    return fails("close") ? -1 : result;
}

namespace {

namespace fs = std::filesystem;

std::set<int> openDescriptors()
{
    std::set<int> numbers;
    for (int number = 0; number < 1024; ++number)
        if (fcntl(number, F_GETFD) != -1)
            numbers.insert(number);
    return numbers;
}

class Files : public testing::Test {
protected:
    Files()
    {
        char name[] = "/tmp/kallib-XXXXXX";
        directory = mkdtemp(name);
        descriptors = openDescriptors();
    }
    ~Files() override
    {
        fault = nullptr;
        transferLimit = SIZE_MAX;
        EXPECT_EQ(openDescriptors(), descriptors) << "a descriptor was left open";
        fs::remove_all(directory);
    }

    std::u16string path(const std::string& name) const { return (directory / name).u16string(); }
    void put(const std::string& name, const std::string& contents) const
    {
        std::ofstream{directory / name, std::ios::binary} << contents;
    }
    std::string get(const std::string& name) const
    {
        std::ifstream file{directory / name, std::ios::binary};
        return file ? std::string{std::istreambuf_iterator<char>{file}, {}} : "(missing)";
    }
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator{directory})
            found.insert(entry.path().filename());
        return found;
    }
    uint32_t copy(const std::string& from, const std::string& to) const
    {
        return kalFileCopyW(path(from).c_str(), path(to).c_str());
    }
    uint32_t rename(const std::string& from, const std::string& to) const
    {
        return kalFileRename(path(from).c_str(), path(to).c_str());
    }
    uint32_t open(const std::string& name, KALFile*& file, uint32_t mode) const
    {
        return kalFileOpenW(path(name).c_str(), &file, mode);
    }
    static uint32_t write(KALFile* file, const std::string& bytes)
    {
        auto length = static_cast<uint32_t>(bytes.size());
        return kalFileWrite(file, bytes.data(), &length);
    }

    fs::path directory;
    std::set<int> descriptors;
};

// ---- against a model

TEST_F(Files, DoWhatTheirModelDoesThroughShortAndInterruptedTransfers)
{
    std::mt19937 random{20'240'601};
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    fault = [&](const std::string& call) { return call.starts_with("p") && below(3) == 0 ? EINTR : 0; };
    std::map<std::string, std::string> model;
    const std::string all[] = {"a", "b", "\xC3\xA4\xF0\x9F\x98\x80", std::string(255, 'n')};

    const auto useFile = [&](const std::string& name) {
        KALFile* file = nullptr;
        const bool known = model.contains(name);
        const uint32_t mode = below(2) == 0 ? KAL_FILE_READ_WRITE : KAL_FILE_CREATE;
        ASSERT_EQ(open(name, file, mode), !known && mode == KAL_FILE_READ_WRITE ? KAL_FILE_NOT_FOUND : KAL_SUCCESS);
        if (file == nullptr)
            return;
        std::string& contents = model[name];
        std::size_t position = 0;
        for (int i = 0; i < 12; ++i) {
            transferLimit = 1 + below(3000);
            if (below(3) == 0) {
                position = below(20'000);
                ASSERT_EQ(kalFileSeek(file, position), KAL_SUCCESS);
            }
            uint32_t length = below(5000);
            if (below(2) == 0) {
                const std::string bytes(length, static_cast<char>('a' + below(26)));
                ASSERT_EQ(kalFileWrite(file, bytes.data(), &length), KAL_SUCCESS);
                ASSERT_EQ(length, bytes.size());
                if (length != 0)
                    contents.resize(std::max(contents.size(), position + length));
                contents.replace(std::min(position, contents.size()), length, bytes);
            } else {
                std::string bytes(length + 1, '\0');
                ASSERT_EQ(kalFileRead(file, bytes.data(), &length), KAL_SUCCESS);
                const std::string expected =
                    position < contents.size() ? contents.substr(position, bytes.size() - 1) : "";
                ASSERT_EQ(bytes.substr(0, length), expected);
            }
            position += length;
            uint64_t size = 0;
            ASSERT_EQ(kalFileGetSize(file, &size), KAL_SUCCESS);
            ASSERT_EQ(size, contents.size());
        }
        ASSERT_EQ(kalFileFlush(file), KAL_SUCCESS);
        ASSERT_EQ(kalFileClose(file), KAL_SUCCESS);
    };
    const auto change = [&](const std::string& name, const std::string& other) {
        const bool known = model.contains(name);
        uint32_t exists = 7;
        ASSERT_EQ(kalFileExistsW(path(name).c_str(), &exists), KAL_SUCCESS);
        ASSERT_EQ(exists, known ? 1u : 0u);
        const unsigned kind = below(3);
        uint32_t status = KAL_FILE_NOT_FOUND;
        if (kind == 0) {
            status = kalFileDeleteW(path(name).c_str());
        } else {
            status = kind == 1 ? copy(name, other) : rename(name, other);
            if (known && name != other)
                model[other] = model[name];
        }
        const bool ontoItself = kind == 1 && known && name == other;
        ASSERT_EQ(status, ontoItself ? KAL_INVALID_ARGUMENT : known ? KAL_SUCCESS : KAL_FILE_NOT_FOUND);
        if (kind == 0 || (kind == 2 && name != other))
            model.erase(name);
    };
    for (int round = 0; round < 250 && !HasFatalFailure(); ++round) {
        if (below(3) == 0)
            change(all[below(4)], all[below(4)]);
        else
            useFile(all[below(4)]);
    }
    for (const std::string& name : all)
        EXPECT_EQ(get(name), model.contains(name) ? model[name] : "(missing)");
    EXPECT_EQ(names().size(), model.size());
}

TEST_F(Files, PassFourGibibytes)
{
    constexpr uint64_t far = (uint64_t{5} << 30) + 123;
    KALFile* file = nullptr;
    ASSERT_EQ(open("big", file, KAL_FILE_CREATE), KAL_SUCCESS);
    ASSERT_EQ(kalFileSeek(file, far), KAL_SUCCESS);
    ASSERT_EQ(write(file, "far away"), KAL_SUCCESS);
    ASSERT_EQ(kalFileSeek(file, far - 2), KAL_SUCCESS);
    char buffer[64];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(kalFileRead(file, buffer, &length), KAL_SUCCESS);
    EXPECT_EQ(std::string(buffer, length), std::string("\0\0far away", 10));
    uint64_t size = 0;
    EXPECT_EQ(kalFileGetSize(file, &size), KAL_SUCCESS);
    EXPECT_EQ(size, far + 8);

    EXPECT_EQ(kalFileSeek(file, uint64_t{1} << 63), KAL_INVALID_ARGUMENT);
    ASSERT_EQ(kalFileSeek(file, (uint64_t{1} << 63) - 1), KAL_SUCCESS);
    length = sizeof buffer;
    EXPECT_EQ(kalFileRead(file, buffer, &length), KAL_SUCCESS);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(write(file, "beyond"), KAL_NO_SPACE);
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
}

// ---- handles, descriptors and what is no file

TEST_F(Files, AHandleIsDeadAfterAnyClose)
{
    KALFile* file = nullptr;
    ASSERT_EQ(open("a", file, KAL_FILE_CREATE), KAL_SUCCESS);
    fault = [](const std::string& call) { return call == "close" ? EIO : 0; };
    EXPECT_EQ(kalFileClose(file), KAL_IO_ERROR);
    fault = nullptr;
    char byte = 'x';
    uint32_t length = 1;
    uint64_t size = 0;
    EXPECT_EQ(kalFileClose(file), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileRead(file, &byte, &length), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileWrite(file, &byte, &length), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileSeek(file, 0), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileGetSize(file, &size), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileFlush(file), KAL_INVALID_ARGUMENT);

    for (const uint32_t mode : {0u, 2u, 8u, 9u, 27u})
        EXPECT_EQ(open("a", file, mode), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileOpenW(nullptr, &file, KAL_FILE_READ), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileOpenW(u"\xD800", &file, KAL_FILE_CREATE), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalFileCopyW(path("a").c_str(), nullptr), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(file, nullptr);
}

TEST_F(Files, LeaveTheStandardStreamsFreeAndChildrenAlone)
{
    put("a", "contents");
    const int input = dup(STDIN_FILENO);
    ASSERT_EQ(::close(STDIN_FILENO), 0);
    const std::set<int> before = openDescriptors();
    KALFile* file = nullptr;
    EXPECT_EQ(open("a", file, KAL_FILE_READ), KAL_SUCCESS);
    std::set<int> added = openDescriptors();
    for (const int number : before)
        added.erase(number);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_GT(*added.begin(), STDERR_FILENO);
    EXPECT_EQ(fcntl(*added.begin(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
    dup2(input, STDIN_FILENO);
    ::close(input);
}

TEST_F(Files, NothingButARegularFileIsOpenedOrReplaced)
{
    put("file", "x");
    fs::create_directory(directory / "folder");
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (directory / "socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(server);
    fs::create_symlink("/dev/null", directory / "device");
    fs::create_symlink("loop", directory / "loop");
    KALFile* file = nullptr;
    for (const char* name : {"folder", "pipe", "socket", "device", "loop"}) {
        for (const uint32_t mode : {KAL_FILE_READ, KAL_FILE_READ_WRITE, KAL_FILE_CREATE})
            EXPECT_EQ(open(name, file, mode), KAL_NOT_A_FILE) << name;
        EXPECT_EQ(copy(name, "new"), KAL_NOT_A_FILE) << name;
        EXPECT_EQ(copy("file", name), KAL_NOT_A_FILE) << name;
        EXPECT_EQ(kalFileSyncW(path(name).c_str()), KAL_NOT_A_FILE) << name;
    }
    EXPECT_EQ(rename("folder", "new"), KAL_NOT_A_FILE);
    EXPECT_EQ(rename("file", "pipe"), KAL_NOT_A_FILE);
    EXPECT_EQ(kalFileDeleteW(path("folder").c_str()), KAL_NOT_A_FILE);
    EXPECT_EQ(open("file/below", file, KAL_FILE_CREATE), KAL_FILE_NOT_FOUND);
    EXPECT_EQ(open("none/below", file, KAL_FILE_CREATE), KAL_FILE_NOT_FOUND);
    EXPECT_EQ(open(std::string(256, 'n'), file, KAL_FILE_CREATE), KAL_NAME_TOO_LONG);
    uint32_t exists = 1;
    EXPECT_EQ(kalFileExistsW(path(std::string(5000, 'n')).c_str(), &exists), KAL_NAME_TOO_LONG);
    EXPECT_EQ(exists, 1u) << "a failed query counts as an existing file";
    EXPECT_EQ(names(), (std::set<std::string>{"device", "file", "folder", "loop", "pipe", "socket"}));
}

TEST_F(Files, WithoutAFreeDescriptorNothingIsLost)
{
    put("a", "new");
    put("b", "old");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit low{64, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    std::vector<int> taken;
    for (int number = dup(STDIN_FILENO); number >= 0; number = dup(STDIN_FILENO))
        taken.push_back(number);
    uint32_t status = KAL_TOO_MANY_FILES;
    for (unsigned free = 0; status == KAL_TOO_MANY_FILES && free < 4; ++free) {
        KALFile* file = nullptr;
        EXPECT_EQ(open("a", file, KAL_FILE_READ), free == 0 ? KAL_TOO_MANY_FILES : KAL_SUCCESS);
        EXPECT_EQ(kalFileClose(file), free == 0 ? KAL_INVALID_ARGUMENT : KAL_SUCCESS);
        status = copy("a", "b");
        ::close(taken.back());
        taken.pop_back();
        EXPECT_EQ(get("b"), status == KAL_SUCCESS ? "new" : "old");
    }
    EXPECT_EQ(status, KAL_SUCCESS);
    for (const int number : taken)
        ::close(number);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// ---- faults

struct ErrorCase {
    int error;
    uint32_t status;
};

TEST_F(Files, EachErrorHasItsStatus)
{
    const ErrorCase cases[] = {
        {EACCES, KAL_ACCESS_DENIED},
        {EPERM, KAL_ACCESS_DENIED},
        {EROFS, KAL_ACCESS_DENIED},
        {ENOSPC, KAL_NO_SPACE},
        {EDQUOT, KAL_NO_SPACE},
        {EFBIG, KAL_NO_SPACE},
        {ENOMEM, KAL_OUT_OF_MEMORY},
        {ENFILE, KAL_TOO_MANY_FILES},
        {EIO, KAL_IO_ERROR},
        {ETXTBSY, KAL_FILE_IN_USE},
        {ENAMETOOLONG, KAL_NAME_TOO_LONG},
    };
    for (const auto& [error, status] : cases) {
        fault = [&, code = error](const std::string& call) { return call == "open" ? code : 0; };
        KALFile* file = nullptr;
        EXPECT_EQ(open("a", file, KAL_FILE_CREATE), status) << error;
    }
}

TEST_F(Files, AWriteThatFallsShortFailsAndKeepsThePosition)
{
    KALFile* file = nullptr;
    ASSERT_EQ(open("a", file, KAL_FILE_CREATE), KAL_SUCCESS);
    transferLimit = 3;
    int calls = 0;
    fault = [&](const std::string& call) { return call == "pwrite" && ++calls == 2 ? ENOSPC : 0; };
    uint32_t length = 10;
    EXPECT_EQ(kalFileWrite(file, "0123456789", &length), KAL_NO_SPACE);
    EXPECT_EQ(length, 0u);
    fault = nullptr;
    EXPECT_EQ(write(file, "again"), KAL_SUCCESS);
    EXPECT_EQ(get("a"), "again");
    ASSERT_EQ(kalFileSeek(file, 0), KAL_SUCCESS);
    fault = [&](const std::string& call) { return call == "pread" && ++calls == 4 ? EIO : 0; };
    char buffer[10];
    length = 5;
    EXPECT_EQ(kalFileRead(file, buffer, &length), KAL_IO_ERROR);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(kalFileRead(file, buffer, &(length = 5)), KAL_SUCCESS);
    EXPECT_EQ(std::string(buffer, length), "again");
    transferLimit = 0;
    EXPECT_EQ(write(file, "x"), KAL_IO_ERROR) << "a system that takes nothing is not asked for ever";
    EXPECT_EQ(kalFileClose(file), KAL_SUCCESS);
}

// Runs `operation` with its first, second, ... call failing, until it gets through. `check` sees each status.
void failEachCall(int error, const std::function<uint32_t()>& operation, const std::function<void(uint32_t)>& check)
{
    for (int victim = 1;; ++victim) {
        int calls = 0;
        std::string failing;
        fault = [&](const std::string& call) {
            if (++calls == victim)
                failing = call;
            return calls == victim ? error : 0;
        };
        const uint32_t status = operation();
        fault = nullptr;
        if (failing.empty()) {
            EXPECT_EQ(status, KAL_SUCCESS);
            EXPECT_GT(victim, 5) << "the calls did not come through the layer";
            return;
        }
        // Closing a file that was only read loses nothing.
        const bool harmless = failing == "close" && status == KAL_SUCCESS;
        EXPECT_TRUE(harmless || status != KAL_SUCCESS) << failing;
        SCOPED_TRACE(failing + ", call " + std::to_string(victim));
        check(status);
    }
}

TEST_F(Files, ACopyIsWholeOrHasNotHappened)
{
    const std::string original = std::string(700'000, 'n') + "end";
    const auto attempt = [&] { return copy("a", "b"); };
    const auto check = [&](uint32_t) {
        const std::string now = get("b");
        EXPECT_TRUE(now == "old" || now == original) << now.size();
        EXPECT_EQ(names(), (std::set<std::string>{"a", "b"})) << "no temporary file is left";
        put("b", "old");
    };
    put("a", original);
    put("b", "old");
    failEachCall(EIO, attempt, check);
    EXPECT_EQ(get("b"), original);
    put("b", "old");
    failEachCall(ENOSPC, attempt, check);

    // Without the kernel's help it is the same, and so it is when the kernel stops half-way or copies in small pieces.
    put("b", "old");
    int calls = 0;
    for (const int later : {0, 1, 2}) {
        calls = 0;
        transferLimit = later == 0 ? SIZE_MAX : 100'000;
        fault = [&](const std::string& call) { return call == "copy_file_range" && ++calls > later ? EXDEV : 0; };
        EXPECT_EQ(copy("a", "b"), KAL_SUCCESS);
        EXPECT_EQ(get("b"), original);
    }
}

TEST_F(Files, NothingIsRenamedBeforeItIsOnDiskNorReportedBeforeItsNameIs)
{
    put("a", "contents");
    std::string calls;
    fault = [&](const std::string& call) {
        if (call == "fsync" || call == "copy_file_range" || call == "rename")
            calls += call + " ";
        return 0;
    };
    EXPECT_EQ(copy("a", "b"), KAL_SUCCESS);
    EXPECT_EQ(calls, "fsync copy_file_range copy_file_range fsync rename fsync ");
    calls.clear();
    fs::create_directory(directory / "other");
    EXPECT_EQ(rename("b", "other/b"), KAL_SUCCESS);
    EXPECT_EQ(calls, "rename fsync fsync ") << "both directories";
}

TEST_F(Files, TwoProcessesMayCopyToOnePlaceAtOnce)
{
    put("a", "contents");
    int other = -1;
    fault = [&](const std::string& call) {
        if (call != "rename" || other != -1)
            return 0;
        const pid_t child = fork();
        if (child == 0) {
            fault = nullptr;
            _exit(static_cast<int>(copy("a", "b")));
        }
        waitpid(child, &other, 0);
        return 0;
    };
    EXPECT_EQ(copy("a", "b"), KAL_SUCCESS);
    EXPECT_EQ(other, 0) << "the other one neither failed nor took this one's temporary file away";
    EXPECT_EQ(names(), (std::set<std::string>{"a", "b"}));
}

TEST_F(Files, AFailedWaitForTheDiskIsNotRepeated)
{
    put("a", "x");
    for (const int error : {EIO, EINTR, ENOSPC}) {
        for (const int victim : {1, 2}) {  // the file, then its directory
            int waits = 0;
            fault = [&](const std::string& call) { return call == "fsync" && ++waits == victim ? error : 0; };
            EXPECT_EQ(kalFileSyncW(path("a").c_str()), error == ENOSPC ? KAL_NO_SPACE : KAL_IO_ERROR);
            EXPECT_EQ(waits, victim);
        }
    }
    fault = nullptr;
    EXPECT_EQ(kalFileSyncW(path("a").c_str()), KAL_SUCCESS);
    EXPECT_EQ(kalFileSyncW(path("none").c_str()), KAL_FILE_NOT_FOUND);
}

// ---- copying and renaming

TEST_F(Files, ACopyTakesTheModeAndFollowsLinks)
{
    put("a", "new");
    chmod((directory / "a").c_str(), 0640);
    fs::create_directory(directory / "elsewhere");
    put("elsewhere/target", "old");
    fs::create_symlink("elsewhere/target", directory / "link");
    fs::create_symlink(directory / "link", directory / "linkToLink");
    EXPECT_EQ(copy("a", "linkToLink"), KAL_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(directory / "link"));
    EXPECT_EQ(get("elsewhere/target"), "new");
    EXPECT_EQ(fs::status(directory / "elsewhere/target").permissions(), fs::perms{0640});

    fs::create_symlink("elsewhere/absent", directory / "dangling");
    EXPECT_EQ(copy("a", "dangling"), KAL_SUCCESS);
    EXPECT_EQ(get("elsewhere/absent"), "new");

    fs::create_symlink("a", directory / "sameFile");
    EXPECT_EQ(copy("a", "sameFile"), KAL_INVALID_ARGUMENT);
    fs::create_hard_link(directory / "a", directory / "secondName");
    EXPECT_EQ(copy("a", "secondName"), KAL_SUCCESS);
    put("a", "newer");
    EXPECT_EQ(get("secondName"), "new") << "a copy, no longer the same file";
}

TEST_F(Files, ARenameCrossesFileSystems)
{
    put("a", "contents");
    put("b", "old");
    // The first renaming to fail is the direct one, and the copy takes over; then each call of the copy fails.
    const auto move = [&] {
        const auto others = std::exchange(fault, nullptr);
        bool direct = true;
        fault = [&, others](const std::string& call) {
            if (call == "rename" && std::exchange(direct, false))
                return EXDEV;
            return others(call);
        };
        return rename("a", "b");
    };
    failEachCall(EIO, move, [&](uint32_t) {
        EXPECT_TRUE(get("a") == "contents" || get("b") == "contents");
        EXPECT_LE(names().size(), 2u) << "no temporary file is left";
        put("a", "contents");
        put("b", "old");
    });
    EXPECT_EQ(names(), std::set<std::string>{"b"});

    const fs::path other = fs::path{"/dev/shm"} / directory.filename();
    std::error_code unavailable;
    if (fs::create_directory(other, unavailable)) {
        const std::u16string there = (other / "c").u16string();
        EXPECT_EQ(kalFileRename(path("b").c_str(), there.c_str()), KAL_SUCCESS);
        EXPECT_TRUE(names().empty());
        EXPECT_EQ(kalFileRename(there.c_str(), path("d").c_str()), KAL_SUCCESS);
        EXPECT_EQ(get("d"), "contents");
        EXPECT_TRUE(fs::is_empty(other));
        fs::remove_all(other);
    }
}

TEST_F(Files, ACopyWhoseProcessDiesLeavesTheOldFileAndIsCleanedUpAfter)
{
    put("a", "new");
    put("b", "old");
    for (const char* last : {"copy_file_range", "fsync", "fchmod", "rename"}) {
        const pid_t child = fork();
        if (child == 0) {
            int seen = 0;
            fault = [&](const std::string& call) {
                if (call == last && ++seen == (call == "fsync" ? 2 : 1))
                    raise(SIGKILL);
                return 0;
            };
            copy("a", "b");
            _exit(0);
        }
        int result = 0;
        waitpid(child, &result, 0);
        ASSERT_TRUE(WIFSIGNALED(result)) << last;
        EXPECT_EQ(get("b"), "old");
        EXPECT_EQ(names().size(), 3u) << "one temporary file, not one for each death";
    }
    EXPECT_EQ(copy("a", "b"), KAL_SUCCESS);
    EXPECT_EQ(get("b"), "new");
    EXPECT_EQ(names(), (std::set<std::string>{"a", "b"}));
}

}  // namespace
