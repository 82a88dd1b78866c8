#include "write/work_file.h"

#include "check/checker.h"
#include "failure.h"

#include <fmt/format.h>
#include <kallib/kallib.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace kaldb::tool {

namespace {

constexpr std::array endingSignals{SIGINT, SIGTERM, SIGHUP};

// Paths for the signal handler, which may do hardly more than unlink them.
std::array<std::array<char, 4096>, 3> unfinished;

extern "C" void removeUnfinished(int number)
{
    for (const auto& path : unfinished)
        if (path[0] != '\0')
            ::unlink(path.data());
    std::signal(number, SIG_DFL);
    std::raise(number);
}

/// While it lives, those signals wait.
class SignalsWait {
public:
    SignalsWait()
    {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : endingSignals)
            sigaddset(&signals, number);
        sigprocmask(SIG_BLOCK, &signals, &before_);
    }
    SignalsWait(const SignalsWait&) = delete;
    SignalsWait& operator=(const SignalsWait&) = delete;
    ~SignalsWait() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

/// Those that are ignored stay so.
void onSignals(void (*handler)(int))
{
    for (const int number : endingSignals)
        if (std::signal(number, handler) == SIG_IGN)
            std::signal(number, SIG_IGN);
}

void cleanUpOnSignals(const std::array<std::string, 3>& paths)
{
    for (std::size_t i = 0; i < paths.size(); ++i)
        if (paths[i].size() < unfinished[i].size())
            std::memcpy(unfinished[i].data(), paths[i].c_str(), paths[i].size() + 1);
    onSignals(removeUnfinished);
}

void removeFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

}  // namespace

WorkFile::WorkFile(const std::filesystem::path& target, const std::string& shown)
    : target_(target), work_(target_.string() + ".kaldb-work")
{
    const SignalsWait wait;
    claim(shown);
    clean();
    cleanUpOnSignals({work_.string(), backup().string(), lockPath().string()});
}

WorkFile::~WorkFile()
{
    const SignalsWait wait;
    clean();
    removeFile(lockPath());
    onSignals(SIG_DFL);
}

void WorkFile::claim(const std::string& shown)
{
    errno = 0;
    if (!std::ofstream{lockPath(), std::ios::app}) {
        const bool denied = errno == EACCES || errno == EROFS || errno == EPERM;
        throw Failure{Exit::unusable,
                      denied ? "permission" : "folder",
                      target_.string(),
                      fmt::format("cannot be replaced: {} in its folder", std::strerror(errno)),
                      {}};
    }
    claim_ = Claim{lockPath(), shown};
}

void WorkFile::clean() const
{
    removeFile(work_);
    removeFile(backup());
}

void WorkFile::copyFrom(const std::filesystem::path& source) const
{
    const std::uint32_t status = kalFileCopyW(libraryName(source).c_str(), libraryName(work_).c_str());
    if (status != KAL_SUCCESS)
        throw libraryFailure(status, source.string(), "cannot be copied");
}

void WorkFile::requireSound(const std::string& of) const { requireSoundFile(work_, of); }

void WorkFile::moveToTarget() const { renameFile(work_, target_); }

void requireSoundFile(const std::filesystem::path& path, const std::string& of)
{
    const OpenFile open{path.string()};
    Checker checker{open};
    for (const Finding& finding : checker.run().list())
        if (finding.severity == Severity::error)
            throw Failure{Exit::no, "damaged", of,
                          "is damaged: " + describe({finding.page, finding.slot, {}, finding.text}),
                          fmt::format("kaldb check {} lists the damage", of)};
}

void renameFile(const std::filesystem::path& from, const std::filesystem::path& to)
{
    const std::uint32_t status = kalFileRename(libraryName(from).c_str(), libraryName(to).c_str());
    if (status != KAL_SUCCESS)
        throw libraryFailure(status, to.string(), "cannot be put in place");
}

}  // namespace kaldb::tool
