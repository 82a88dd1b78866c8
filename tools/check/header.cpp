// The file's header, and the order of the passes.

#include "checker.h"

#include "text.h"

#include <fmt/format.h>

#include <algorithm>

namespace kaldb::tool {

const Findings& Checker::run()
{
    checkHeader();
    checkCatalogue();
    schemas_ = readSchemas(file_, open_.catalogue,
                           [&](Damage damage) { error(damage.page, damage.slot, damage.code.c_str(), damage.text); });
    for (std::size_t chain = 0; chain < open_.catalogue.chains.size(); ++chain)
        checkChain(chain);
    checkPages();
    checkIndexes();
    checkTexts();
    findings_.nameTables([&](PageNumber page) {
        const bool owned = page < owners_.size() && owners_[page] != noOwner;
        return owned ? open_.catalogue.chains[owners_[page]].name : std::string{};
    });
    findings_.sort();
    return findings_;
}

void Checker::add(Severity severity, PageNumber page, SlotIndex slot, const char* code, std::string text,
                  const std::string& table)
{
    findings_.add({severity, page, slot, table, code, std::move(text)});
}

DamageSink Checker::sink(const Chain& chain)
{
    return [this, &chain](Damage damage) {
        add(Severity::error, damage.page, damage.slot, damage.code.c_str(), std::move(damage.text), chain.name);
    };
}

void Checker::checkHeader()
{
    const KALPageFileHeader& header = file_.header();
    // While a file is open its last pages may not have been written yet.
    const Severity size = file_.dirty() ? Severity::warning : Severity::error;
    if (file_.dirty())
        warning(noPage, noSlot, "header.dirty", "is open in a process, or was not closed cleanly");
    if (file_.heldPages() != header.pagesInFile)
        add(size, noPage, noSlot, "header.pages",
            fmt::format("the header counts {} pages, the file holds {}", grouped(header.pagesInFile),
                        grouped(file_.heldPages())));
    if (const std::uint64_t rest = (file_.bytes() - fileHeaderLength) % pageSize; rest != 0)
        add(size, noPage, noSlot, "header.rest", fmt::format("{} bytes follow the last whole page", rest));
    if (header.startPage != noPage && header.startPage >= file_.pages())
        error(noPage, noSlot, "header.start",
              fmt::format("the catalogue begins in page {}, which the file does not have", header.startPage));
    if (header.startPage == noPage && header.pagesInFile != 0)
        error(noPage, noSlot, "header.start", "there are pages, but no catalogue");
    if ((header.flags & ~fileDirty) != 0)
        warning(noPage, noSlot, "header.flags", fmt::format("unknown flags 0x{:08X}", header.flags & ~fileDirty));
    if (std::any_of(std::begin(header.name), std::end(header.name), [](char c) { return c != 0; }))
        warning(noPage, noSlot, "header.name", "the unused name is not empty");
}

}  // namespace kaldb::tool
