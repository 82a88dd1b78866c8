// Runs the kaldb command as a user does, in a folder of the test's own.
#pragma once

#include "support/temp_dir.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <string>
#include <sys/wait.h>

namespace test {

struct Answer {
    int exit = -1;
    std::string out;
    std::string error;

    friend std::ostream& operator<<(std::ostream& stream, const Answer& answer)
    {
        return stream << "exit " << answer.exit << "\n" << answer.out << answer.error;
    }
};

class CommandTest : public testing::Test {
protected:
    /// A sanitizer's report ends the command with 99, a signal with 128 and more.
    Answer run(const std::string& arguments, const std::string& before = "") const
    {
        static const TempDir results;
        const std::string out = results / "out", error = results / "error";
        const std::string line = "cd " + folder_.path().string() + " && " + before +
                                 "ASAN_OPTIONS=exitcode=99 UBSAN_OPTIONS=exitcode=99 " KALDB_COMMAND " < /dev/null " +
                                 arguments + " > " + out + " 2> " + error;
        const int status = std::system(line.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile(out), readFile(error)};
    }
    /// What it prints; it must succeed, silently on standard error.
    std::string done(const std::string& arguments) const
    {
        const Answer answer = run(arguments);
        EXPECT_TRUE(answer.exit == 0 && answer.error.empty()) << arguments << "\n" << answer;
        return answer.out;
    }
    void file(const std::string& name, const std::string& bytes) const { writeFile(folder_ / name, bytes); }
    std::string bytes(const std::string& name) const { return readFile(folder_ / name); }
    /// Everything in the folder.
    std::map<std::string, std::string> snapshot() const
    {
        std::map<std::string, std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
            all[entry.path().filename().string()] = entry.is_regular_file() ? readFile(entry.path()) : "";
        return all;
    }
    std::string names() const
    {
        std::string all;
        for (const auto& [name, content] : snapshot())
            all += name + " ";
        return all;
    }

    TempDir folder_;
};

}  // namespace test
