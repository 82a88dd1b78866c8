// kaldb backup FILE [DEST]: a copy that is checked before it gets its name.

#include "json.h"
#include "session.h"
#include "text.h"
#include "write/change.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct BackupOptions {
    std::string path, destination;
    bool force = false, quiet = false;
};

Exit backup(const BackupOptions& options, Session& session)
{
    const PageFile file{options.path};
    const Claim claim{options.path, options.path};
    requireClean(options.path);
    const std::string destination = options.destination.empty() ? options.path + ".backup" : options.destination;
    std::error_code error;
    if (std::filesystem::equivalent(options.path, destination, error))
        throw wrongUse(fmt::format("'{}' is the file itself", printable(destination)));
    if (!options.destination.empty() && !options.force && std::filesystem::exists(destination, error))
        throw Failure{Exit::refused, "exists", destination, "is there already", "--force replaces it"};
    const WorkFile work{destination, destination};
    work.copyFrom(options.path);
    work.requireSound(options.path);
    work.moveToTarget();
    if (session.json)
        session.out.json(
            {{"kaldb", 1}, {"file", options.path}, {"backup", destination}, {"bytes", PageFile{destination}.bytes()}});
    else if (!options.quiet)
        session.out.line(fmt::format("{}: {}, checked", destination, byteSize(PageFile{destination}.bytes())));
    return Exit::done;
}

}  // namespace

void addBackup(CommandLine& line, Session& session)
{
    Verb verb = line.verb("backup", "A copy that is checked before it gets its name");
    const auto options = std::make_shared<BackupOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.optionalArgument("DEST", options->destination, "The copy; FILE.backup when it is left out");
    verb.flag("--force", options->force, "Replace DEST when it is there");
    verb.flag("-q,--quiet", options->quiet, "Print no report");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] { session.run = [&session, options] { return backup(*options, session); }; });
}

}  // namespace kaldb::tool
