#include "write/progress.h"

#include "failure.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace kaldb::tool {

namespace {

using namespace std::chrono_literals;

bool wanted(const std::string& when)
{
    if (when != "auto" && when != "always" && when != "never")
        throw wrongUse(fmt::format("'{}' is no answer to when to show progress", printable(when)),
                       "--progress=always, never or auto");
    return when == "always" || (when == "auto" && ::isatty(STDERR_FILENO) != 0);
}

}  // namespace

Progress::Progress(const std::string& when, bool quiet) : shown_(wanted(when) && !quiet) {}

void Progress::begin(std::string what, std::size_t total)
{
    clear();
    what_ = std::move(what);
    done_ = 0;
    total_ = total;
    began_ = Clock::now();
    next_ = began_ + 1s;
}

void Progress::show()
{
    const Clock::time_point now = Clock::now();
    if (now < next_)
        return;
    next_ = now + 100ms;
    const double seconds = std::chrono::duration<double>(now - began_).count();
    const double rate = static_cast<double>(done_) / seconds;
    const auto rest = static_cast<std::int64_t>(static_cast<double>(total_ - done_) / rate + 0.5);
    const std::string line = fmt::format("{}: {} of {} rows, {} a second, {} left", what_, grouped(done_),
                                         grouped(total_), grouped(static_cast<std::uint64_t>(rate)), duration(rest));
    std::fprintf(stderr, "\r%s%*s", line.c_str(), static_cast<int>(width_ - std::min(width_, line.size())), "");
    std::fflush(stderr);
    width_ = line.size();
}

void Progress::clear()
{
    if (width_ != 0)
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(width_), "");
    width_ = 0;
}

}  // namespace kaldb::tool
