// A second process for tests of what happens between processes, and of what one leaves behind when it is killed.
#pragma once

#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace test {

/// A process that reports statuses, a byte each, and lives until it is told to end.
class Process {
public:
    using Report = std::function<void(uint32_t status)>;

    explicit Process(const std::function<void(const Report& report)>& work)
    {
        int reports[2];
        int orders[2];
        if (pipe2(reports, O_CLOEXEC) != 0 || pipe2(orders, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        child_ = fork();
        if (child_ == 0) {
            ::close(reports[0]);
            ::close(orders[1]);
            work([&](uint32_t status) {
                const auto byte = static_cast<unsigned char>(status);
                if (::write(reports[1], &byte, 1) != 1)
                    _exit(1);
            });
            char order = 0;
            _exit(::read(orders[0], &order, 1) == 0 ? 0 : 1);
        }
        ::close(reports[1]);
        ::close(orders[0]);
        reports_ = reports[0];
        orders_ = orders[1];
    }
    Process(Process&& other) noexcept
        : child_(std::exchange(other.child_, -1)), reports_(std::exchange(other.reports_, -1)),
          orders_(std::exchange(other.orders_, -1))
    {
    }
    ~Process() { end(SIGKILL); }

    /// Waits for the next report; 255 when there is none.
    uint32_t report()
    {
        unsigned char byte = 255;
        return ::read(reports_, &byte, 1) == 1 ? byte : 255;
    }
    /// With a signal, or without one by being asked to.
    void end(int signal = 0)
    {
        if (child_ <= 0)
            return;
        if (signal != 0)
            kill(child_, signal);
        ::close(orders_);
        waitpid(std::exchange(child_, -1), nullptr, 0);
        ::close(reports_);
    }

private:
    pid_t child_ = -1;
    int reports_ = -1;
    int orders_ = -1;
};

}  // namespace test
