// The full check of a file: a second opinion on the library, from the bytes alone.
//
// The passes run in the order of their declaration. Each file of this folder holds one.
#pragma once

#include "findings.h"
#include "schema.h"
#include "session.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace kaldb::tool {

class Checker {
public:
    explicit Checker(const OpenFile& open) : open_(open), file_(open.file), owners_(open.file.pages(), noOwner) {}

    const Findings& run();

private:
    static constexpr std::size_t noOwner = SIZE_MAX;

    void checkHeader();
    void checkCatalogue();
    void checkChain(std::size_t chain);
    void checkRootObject(const Chain& chain);
    void checkOrder(const Chain& chain);
    void checkPages();
    void checkRecordPage(PageNumber number, const Page& page);
    void checkBinaryPage(PageNumber number, const Page& page);
    void checkIndexes();
    void checkIndex(const Chain& table, const Chain& index);
    void checkTexts();

    void add(Severity severity, PageNumber page, SlotIndex slot, const char* code, std::string text,
             const std::string& table = {});
    void error(PageNumber page, SlotIndex slot, const char* code, std::string text)
    {
        add(Severity::error, page, slot, code, std::move(text));
    }
    void warning(PageNumber page, SlotIndex slot, const char* code, std::string text)
    {
        add(Severity::warning, page, slot, code, std::move(text));
    }
    /// Where walks tell what they meet: an error of the chain.
    DamageSink sink(const Chain& chain);
    /// For walks over pages that have been walked before: the damage is known.
    static void known(const Damage&) {}

    const OpenFile& open_;
    const PageFile& file_;
    Schemas schemas_;
    std::vector<std::size_t> owners_;  // the chain that reaches each page
    Findings findings_;
};

/// The number of problems that the library's own page check counts; none when it cannot read the file.
std::optional<std::uint32_t> countLibraryErrors(const std::filesystem::path& path);

}  // namespace kaldb::tool
