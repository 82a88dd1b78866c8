// One line on standard error that says how far a long task is.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace kaldb::tool {

/// Begins to show after a second, and changes ten times a second at most. The line is gone when this goes.
class Progress {
public:
    /// `when`: "always", "never", or "auto" for a terminal only. Throws a Failure for anything else.
    Progress(const std::string& when, bool quiet);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    void begin(std::string what, std::size_t total);
    void step()
    {
        if (shown_ && (++done_ & 0x3F) == 0)
            show();
    }

private:
    using Clock = std::chrono::steady_clock;
    void show();
    void clear();

    bool shown_;
    std::string what_;
    std::size_t done_ = 0, total_ = 0;
    Clock::time_point began_, next_;
    std::size_t width_ = 0;
};

}  // namespace kaldb::tool
