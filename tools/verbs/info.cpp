// kaldb info FILE: what the file is and in what state.

#include "json.h"
#include "session.h"
#include "statistics.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace kaldb::tool {

namespace {

struct Backup {
    bool present = false;
    std::string path;
    std::int64_t age = 0;  // seconds
    std::string state;     // "clean", "dirty" or why it cannot be used
};

Backup lookAtBackup(const std::filesystem::path& path)
{
    Backup backup;
    backup.path = path.string() + ".backup";
    std::error_code error;
    const auto written = std::filesystem::last_write_time(backup.path, error);
    backup.present = !error;
    if (!backup.present)
        return backup;
    const auto age = std::filesystem::file_time_type::clock::now() - written;
    backup.age = std::max<std::int64_t>(0, std::chrono::duration_cast<std::chrono::seconds>(age).count());
    try {
        backup.state = PageFile{backup.path}.dirty() ? "dirty" : "clean";
    } catch (const Failure& failure) {
        backup.state = failure.what;
    }
    return backup;
}

struct Counted {
    std::uint64_t kinds[3] = {};  // by PageKind
    std::uint64_t lost = 0;       // pages that no chain reaches
    std::uint64_t damages = 0;
};

Counted countPages(const OpenFile& open)
{
    Counted counted;
    std::vector<bool> met(open.file.pages());
    for (const Chain& chain : open.catalogue.chains)
        counted.damages += gatherStatistics(open.file, chain, &met).damages;
    counted.damages += open.catalogue.damages.size();
    counted.lost = static_cast<std::uint64_t>(std::count(met.begin(), met.end(), false));
    Page page;
    for (PageNumber number = 0; number < open.file.pages(); ++number)
        if (open.file.read(number, page))
            ++counted.kinds[static_cast<std::size_t>(pageKind(page))];
    return counted;
}

std::size_t countTables(const Catalogue& catalogue, bool system)
{
    return static_cast<std::size_t>(
        std::count_if(catalogue.chains.begin(), catalogue.chains.end(),
                      [&](const Chain& chain) { return chain.table() && chain.system() == system; }));
}

void printJson(const OpenFile& open, const Counted& counted, const Backup& backup, Output& out)
{
    const PageFile& file = open.file;
    Json json{{"kaldb", 1},
              {"file", file.path().string()},
              {"bytes", file.bytes()},
              {"version", file.header().version},
              {"dirty", file.dirty()},
              {"pages", file.header().pagesInFile},
              {"pagesHeld", file.heldPages()},
              {"startPage", file.header().startPage},
              {"recordPages", counted.kinds[1]},
              {"binaryPages", counted.kinds[2]},
              {"otherPages", counted.kinds[0]},
              {"lostPages", counted.lost},
              {"lostBytes", counted.lost * pageSize},
              {"tables", countTables(open.catalogue, false)},
              {"systemTables", countTables(open.catalogue, true)},
              {"damages", counted.damages}};
    if (backup.present)
        json.set("backup", {{"file", backup.path}, {"ageSeconds", backup.age}, {"state", backup.state}});
    else
        json.set("backup", Json());
    out.json(json);
}

void printText(const OpenFile& open, const Counted& counted, const Backup& backup, Output& out)
{
    const PageFile& file = open.file;
    const auto line = [&](const char* label, const std::string& text) {
        out.line(fmt::format("{:<11}{}", label, text));
    };
    line("file", file.path().string());
    line("size", byteSize(file.bytes()));
    line("state", file.dirty() ? "dirty: open in a process, or not closed cleanly" : "clean");
    std::string pages = grouped(file.header().pagesInFile);
    if (file.heldPages() != file.header().pagesInFile)
        pages += fmt::format(", but the file holds {}", grouped(file.heldPages()));
    line("pages", pages);
    line("of these", fmt::format("{} with records, {} with binary pieces, {} other", grouped(counted.kinds[1]),
                                 grouped(counted.kinds[2]), grouped(counted.kinds[0])));
    line("lost", fmt::format("{} removed pages, {}", grouped(counted.lost), byteSize(counted.lost * pageSize)));
    line("tables",
         fmt::format("{} and {} of the system", countTables(open.catalogue, false), countTables(open.catalogue, true)));
    line("backup",
         backup.present ? fmt::format("{}, {} old, {}", backup.path, duration(backup.age), backup.state) : "none");
    if (counted.damages != 0)
        line("damage", fmt::format("met {} times; kaldb check {} tells more", counted.damages, file.path().string()));
}

Exit info(const std::string& path, Session& session)
{
    const OpenFile open{path};
    const Counted counted = countPages(open);
    const Backup backup = lookAtBackup(path);
    (session.json ? printJson : printText)(open, counted, backup, session.out);
    return Exit::done;
}

}  // namespace

void addInfo(CommandLine& line, Session& session)
{
    Verb verb = line.verb("info", "What the file is and in what state");
    const auto path = std::make_shared<std::string>();
    verb.argument("FILE", *path, "Database file");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, path] { session.run = [&session, path] { return info(*path, session); }; });
}

}  // namespace kaldb::tool
