// kaldb restore FILE: puts the backup in the file's place, once the backup is known to be sound.

#include "json.h"
#include "session.h"
#include "text.h"
#include "write/change.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct RestoreOptions {
    std::string path, from;
    bool force = false, quiet = false;
};

/// Gives the old file a second name, so that there is no moment without any file.
void keepReplaced(const std::string& path, const std::string& kept, bool force)
{
    std::error_code error;
    if (force)
        std::filesystem::remove(kept, error);
    std::filesystem::create_hard_link(path, kept, error);
    if (error)
        renameFile(path, kept);
}

Exit restore(const RestoreOptions& options, Session& session)
{
    const std::string backup = options.from.empty() ? options.path + ".backup" : options.from;
    const std::string kept = options.path + ".damaged";
    std::error_code error;
    const bool replaces = std::filesystem::exists(options.path, error);
    Claim claim;
    if (replaces)
        claim = Claim{options.path, options.path};
    if (PageFile{backup}.dirty())
        throw Failure{Exit::refused, "dirty", backup, "was not closed cleanly (dirty flag set), not restored", {}};
    if (replaces && !options.force && std::filesystem::exists(kept, error))
        throw Failure{Exit::refused, "exists", kept, "is there already: what an earlier restore replaced",
                      "move it away, or --force to lose it"};
    const WorkFile work{options.path, options.path};
    work.copyFrom(backup);
    work.requireSound(backup);
    if (replaces)
        keepReplaced(options.path, kept, options.force);
    work.moveToTarget();
    if (session.json)
        session.out.json({{"kaldb", 1},
                          {"file", options.path},
                          {"from", backup},
                          {"bytes", PageFile{options.path}.bytes()},
                          {"replaced", replaces ? Json(kept) : Json()}});
    else if (!options.quiet)
        session.out.line(fmt::format("{}: {} from {}, checked{}", options.path,
                                     byteSize(PageFile{options.path}.bytes()), backup,
                                     replaces ? fmt::format("; the replaced file is {}", kept) : ""));
    if (!options.from.empty() && !options.quiet)
        note(fmt::format("{}.backup is still what it was; kaldb backup {} renews it", options.path, options.path));
    return Exit::done;
}

}  // namespace

void addRestore(CommandLine& line, Session& session)
{
    Verb verb = line.verb("restore", "Puts a sound backup in the file's place and keeps the file as FILE.damaged");
    const auto options = std::make_shared<RestoreOptions>();
    verb.argument("FILE", options->path, "Database file; it may be missing");
    verb.option("--from", options->from, "The backup; else FILE.backup");
    verb.flag("--force", options->force, "Replace FILE.damaged when it is there");
    verb.flag("-q,--quiet", options->quiet, "Print no report");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] { session.run = [&session, options] { return restore(*options, session); }; });
}

}  // namespace kaldb::tool
