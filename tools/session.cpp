#include "session.h"

#include "text.h"

#include <fmt/format.h>

#include <cstdio>

namespace kaldb::tool {

void refuseDirty(const PageFile& file, bool allowed)
{
    if (file.dirty() && !allowed)
        throw Failure{Exit::refused, "dirty", file.path().string(),
                      "is open in a process or was not closed cleanly (dirty flag set), so that rows may be torn",
                      "--dirty shows what is there all the same"};
}

const Chain& requireTable(const OpenFile& open, const std::string& name)
{
    if (const Chain* table = open.catalogue.table(name))
        return *table;
    if (!open.catalogue.damages.empty())
        failDamaged(open.file, open.catalogue.damages.front());
    throw Failure{Exit::no, "no-table", open.file.path().string(), fmt::format("has no table '{}'", printable(name)),
                  fmt::format("kaldb tables {} lists those that there are", open.file.path().string())};
}

void failDamaged(const PageFile& file, const Damage& damage)
{
    throw Failure{Exit::no, "damaged", file.path().string(), "is damaged: " + describe(damage),
                  fmt::format("kaldb check {} lists the damage", file.path().string())};
}

std::string describe(const Damage& damage)
{
    std::string where;
    if (damage.page != noPage)
        where = fmt::format("page {}", damage.page);
    if (damage.slot != noSlot)
        where += fmt::format(" slot {}", damage.slot);
    return where.empty() ? damage.text : where + ": " + damage.text;
}

void note(const std::string& text) { std::fputs(("kaldb: " + text + "\n").c_str(), stderr); }

}  // namespace kaldb::tool
