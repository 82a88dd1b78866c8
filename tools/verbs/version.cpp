// kaldb version: what this command is and what it reads.

#include "json.h"
#include "session.h"

#include "kalpagemanager/layout.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

Exit version(Session& session)
{
    if (session.json)
        session.out.json({{"kaldb", 1}, {"version", KALDB_VERSION}, {"fileVersion", fileVersion}});
    else
        session.out.line(fmt::format("kaldb {}, for database files of version {}", KALDB_VERSION, fileVersion));
    return Exit::done;
}

}  // namespace

void addVersion(CommandLine& line, Session& session)
{
    Verb verb = line.verb("version", "What this command is and what it reads");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session] { session.run = [&session] { return version(session); }; });
}

}  // namespace kaldb::tool
