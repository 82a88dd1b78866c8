// The kaldb command: reads the command line, runs one verb, and turns its end into an exit code.

#include "json.h"
#include "session.h"
#include "text.h"

#include <kaldb/cpp/error.hpp>

#include <fmt/format.h>

#include <cstdio>
#include <exception>

namespace kaldb::tool {
namespace {

int report(const Failure& failure, bool json)
{
    const int exit = static_cast<int>(failure.exit);
    if (json) {
        Json error{{"exit", exit}, {"kind", failure.kind}};
        if (!failure.file.empty())
            error.set("file", failure.file);
        error.set("what", failure.what);
        if (!failure.hint.empty())
            error.set("hint", failure.hint);
        std::fputs((Json{{"error", error}}.dump() + "\n").c_str(), stderr);
        return exit;
    }
    const std::string file = failure.file.empty() ? "" : failure.file + ": ";
    std::fputs(fmt::format("kaldb: {}{}\n", file, failure.what).c_str(), stderr);
    if (!failure.hint.empty())
        std::fputs(fmt::format("hint: {}\n", failure.hint).c_str(), stderr);
    return exit;
}

int run(int count, char** arguments)
{
    Session session;
    CommandLine line;
    addInfo(line, session);
    addTables(line, session);
    addSchema(line, session);
    addCheck(line, session);
    addPages(line, session);
    addGet(line, session);
    addDump(line, session);
    addLoad(line, session);
    addPut(line, session);
    addDel(line, session);
    addBackup(line, session);
    addRestore(line, session);
    addVersion(line, session);
    try {
        const std::optional<int> answered = line.parse(count, arguments, session.out);
        const int exit = answered ? *answered : static_cast<int>(session.run());
        session.out.finish();
        return exit;
    } catch (const Failure& failure) {
        return report(failure, session.json);
    } catch (const kaldb::error& error) {
        Failure failure = libraryFailure(error.status(), session.file, {});
        failure.what = error.what();
        return report(failure, session.json);
    } catch (const std::exception& error) {
        return report({Exit::internal, "fault", {}, fmt::format("a fault of this program: {}", error.what()), {}},
                      session.json);
    }
}

}  // namespace
}  // namespace kaldb::tool

int main(int count, char** arguments) { return kaldb::tool::run(count, arguments); }
