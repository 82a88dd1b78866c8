// Runs the kaldb command as a user does.
#pragma once

#include "support/temp_dir.h"

#include <cstdlib>
#include <initializer_list>
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

/// Runs the command with these arguments. A sanitizer's report ends it with 99, a signal with 128 and more.
inline Answer kaldb(const std::string& arguments, const std::string& before = "")
{
    static const TempDir folder;
    const std::string out = folder / "out", error = folder / "error";
    const std::string line = before +
                             "ASAN_OPTIONS=exitcode=99 UBSAN_OPTIONS=exitcode=99 " KALDB_COMMAND " "
                             "< /dev/null " +
                             arguments + " > " + out + " 2> " + error;
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile(out), readFile(error)};
}

}  // namespace test
