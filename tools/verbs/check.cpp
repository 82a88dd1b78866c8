// kaldb check FILE: looks for damage everywhere.

#include "check/checker.h"
#include "json.h"
#include "text.h"

#include <fmt/format.h>

#include <chrono>

namespace kaldb::tool {

namespace {

struct CheckOptions {
    std::string path;
    bool backup = false;
    bool strict = false;
};

const char* name(Severity severity)
{
    switch (severity) {
    case Severity::error: return "error";
    case Severity::warning: return "warning";
    default: return "note";
    }
}

std::string textOf(const Finding& finding)
{
    std::string where;
    if (finding.page != noPage)
        where = fmt::format("page {}", finding.page);
    if (!finding.table.empty())
        where += (where.empty() ? "" : "  ") + printable(finding.table);
    if (finding.slot != noSlot)
        where += fmt::format("  slot {}", finding.slot);
    std::string line = where.empty() ? finding.text : where + ": " + finding.text;
    if (finding.severity != Severity::error)
        line = fmt::format("{:<80} {}", line, name(finding.severity));
    return line;
}

Json jsonOf(const Finding& finding)
{
    Json json{{"severity", name(finding.severity)}, {"code", finding.code}};
    if (finding.page != noPage)
        json.set("page", finding.page);
    if (!finding.table.empty())
        json.set("table", finding.table);
    if (finding.slot != noSlot)
        json.set("slot", finding.slot);
    json.set("text", finding.text);
    return json;
}

std::string plural(std::size_t count, const char* what)
{
    return fmt::format("{} {}{}", grouped(count), what, count == 1 ? "" : "s");
}

/// Checks one file and reports it; false when it is not sound.
bool checkFile(const std::string& path, bool strict, Session& session)
{
    const auto started = std::chrono::steady_clock::now();
    const OpenFile open{path};
    Checker checker{open};
    const Findings& findings = checker.run();
    const std::optional<std::uint32_t> library = countLibraryErrors(path);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    const std::size_t errors = findings.count(Severity::error);
    const std::size_t warnings = findings.count(Severity::warning);
    const std::size_t notes = findings.count(Severity::note);

    if (session.json) {
        Json list = Json::array();
        for (const Finding& finding : findings.list())
            list.push(jsonOf(finding));
        session.out.json({{"kaldb", 1},
                          {"file", path},
                          {"pages", open.file.pages()},
                          {"errors", errors},
                          {"warnings", warnings},
                          {"notes", notes},
                          {"libraryErrors", library ? Json(*library) : Json()},
                          {"findings", std::move(list)}});
    } else {
        for (const Finding& finding : findings.list())
            session.out.line(textOf(finding));
        std::string counts = errors == 0 ? "sound" : plural(errors, "error");
        if (warnings != 0)
            counts += ", " + plural(warnings, "warning");
        if (notes != 0)
            counts += ", " + plural(notes, "note");
        session.out.line(fmt::format("{}: {}, {} in {:.1f} s; the library's page check counts {}", path, counts,
                                     plural(open.file.pages(), "page"), took.count(),
                                     library ? plural(*library, "error") : "nothing"));
    }
    return errors == 0 && (!strict || warnings == 0);
}

Exit check(const CheckOptions& options, Session& session)
{
    bool sound = checkFile(options.path, options.strict, session);
    if (options.backup)
        sound &= checkFile(options.path + ".backup", options.strict, session);
    return sound ? Exit::done : Exit::no;
}

}  // namespace

void addCheck(CommandLine& line, Session& session)
{
    Verb verb = line.verb("check", "Looks for damage everywhere");
    const auto options = std::make_shared<CheckOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.flag("--backup", options->backup, "Check FILE.backup too");
    verb.flag("--strict", options->strict, "Warnings count as damage");
    verb.flag("--json", session.json, "One JSON object a file");
    verb.chosen([&session, options] { session.run = [&session, options] { return check(*options, session); }; });
}

}  // namespace kaldb::tool
