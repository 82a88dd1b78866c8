// The library's own page check, for comparison. It lists every page on standard output, which is not ours to spoil.

#include "checker.h"

#include "failure.h"
#include "write/claim.h"

#include <kaldb/validate.h>

#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace kaldb::tool {

namespace {

#if defined(_WIN32)
constexpr const char* nullDevice = "NUL";
int duplicate(int descriptor) { return _dup(descriptor); }
int redirect(int from, int to) { return _dup2(from, to); }
int openNull() { return _open(nullDevice, 1); }
void closeDescriptor(int descriptor) { _close(descriptor); }
#else
constexpr const char* nullDevice = "/dev/null";
int duplicate(int descriptor) { return dup(descriptor); }
int redirect(int from, int to) { return dup2(from, to); }
int openNull() { return open(nullDevice, O_WRONLY | O_CLOEXEC); }
void closeDescriptor(int descriptor) { close(descriptor); }
#endif

constexpr int standardOutput = 1;

/// Standard output goes nowhere for as long as this lives.
class Silence {
public:
    Silence()
    {
        std::fflush(stdout);
        const int nowhere = openNull();
        kept_ = duplicate(standardOutput);
        active_ = nowhere >= 0 && kept_ >= 0 && redirect(nowhere, standardOutput) >= 0;
        if (nowhere >= 0)
            closeDescriptor(nowhere);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence()
    {
        std::fflush(stdout);
        if (active_)
            redirect(kept_, standardOutput);
        if (kept_ >= 0)
            closeDescriptor(kept_);
    }
    bool active() const { return active_; }

private:
    int kept_ = -1;
    bool active_ = false;
};

}  // namespace

std::optional<std::uint32_t> countLibraryErrors(const std::filesystem::path& path)
{
    const Silence silence;
    std::uint32_t errors = 0;
    try {
        if (silence.active() && kaldbValidatePages(libraryName(path).c_str(), 0, &errors) != 0)
            return errors;
    } catch (const Failure&) {  // a name that the library cannot be told
    }
    return std::nullopt;
}

}  // namespace kaldb::tool
