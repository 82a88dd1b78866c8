// kaldb tables FILE: the tables and how they fill their pages.

#include "json.h"
#include "session.h"
#include "statistics.h"
#include "text.h"

#include <fmt/format.h>

namespace kaldb::tool {

namespace {

struct TablesOptions {
    std::string path;
    bool system = false;
    bool names = false;
};

const char* kindName(const Chain& chain)
{
    switch (chain.object.kind) {
    case KALDB_OBJECT_ROOT: return "catalogue";
    case KALDB_OBJECT_INDEX: return "index";
    case KALDB_OBJECT_TABLE: return chain.binary() ? "binary" : "table";
    default: return "unknown";
    }
}

Json toJson(const Chain& chain, const ChainStatistics& statistics)
{
    Json json{{"name", chain.name},
              {"kind", kindName(chain)},
              {"records", statistics.records},
              {"recordSize", chain.object.recordSize},
              {"pages", statistics.pages},
              {"places", statistics.places},
              {"depth", statistics.depth},
              {"flags", chain.object.flags},
              {"ids", chain.withIds()}};
    if (chain.withIds())
        json.set("nextId", chain.object.nextID.sequence);
    if (statistics.damages != 0)
        json.set("damages", statistics.damages);
    return json;
}

Exit tables(const TablesOptions& options, Session& session)
{
    const OpenFile open{options.path};
    if (open.catalogue.chains.empty() && !open.catalogue.damages.empty())
        failDamaged(open.file, open.catalogue.damages.front());
    Json list = Json::array();
    TextTable text{{"TABLE", ">RECORDS", ">SIZE", ">PAGES", ">FILL", ">DEPTH", "IDS"}};
    std::uint64_t damages = open.catalogue.damages.size();
    for (const Chain& chain : open.catalogue.chains) {
        if (!options.system && (!chain.table() || chain.system()))
            continue;
        if (options.names && !session.json) {
            session.out.line(printable(chain.name));
            continue;
        }
        const ChainStatistics statistics = gatherStatistics(open.file, chain);
        damages += statistics.damages;
        list.push(toJson(chain, statistics));
        text.row({printable(chain.name), grouped(statistics.records), std::to_string(chain.object.recordSize),
                  grouped(statistics.pages), fmt::format("{:.0f} %", statistics.fill() * 100),
                  grouped(statistics.depth), chain.withIds() ? "yes" : "no"});
    }
    if (session.json)
        session.out.json({{"kaldb", 1}, {"file", options.path}, {"tables", std::move(list)}});
    else if (!options.names)
        text.print(session.out);
    if (damages != 0)
        note(fmt::format("{}: damage met {} times, figures may be too low; kaldb check {} tells more", options.path,
                         damages, options.path));
    return Exit::done;
}

}  // namespace

void addTables(CommandLine& line, Session& session)
{
    Verb verb = line.verb("tables", "The tables and how they fill their pages");
    const auto options = std::make_shared<TablesOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.flag("--system", options->system, "The library's own tables, indexes and catalogue too");
    verb.flag("--names", options->names, "Names only, one a line");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] { session.run = [&session, options] { return tables(*options, session); }; });
}

}  // namespace kaldb::tool
