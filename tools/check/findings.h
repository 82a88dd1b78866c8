// What a check has found.
#pragma once

#include "common/page_number.h"

#include <cstddef>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace kaldb::tool {

enum class Severity { note, warning, error };

struct Finding {
    Severity severity;
    PageNumber page;  // noPage for what concerns the whole file
    SlotIndex slot;   // noSlot for what concerns the whole page
    std::string table;
    std::string code;
    std::string text;
};

/// Findings in the file's order. Two looks at the same fault make one finding: it is known by page, slot and code.
class Findings {
public:
    void add(Finding finding);
    /// Names the table that each page belongs to, where a finding does not say it.
    template <class NameOfPage>
    void nameTables(NameOfPage&& nameOfPage)
    {
        for (Finding& finding : list_)
            if (finding.table.empty() && finding.page != noPage)
                finding.table = nameOfPage(finding.page);
    }
    void sort();

    const std::vector<Finding>& list() const { return list_; }
    std::size_t count(Severity severity) const;

private:
    std::vector<Finding> list_;
    std::set<std::tuple<PageNumber, SlotIndex, std::string>> known_;
};

}  // namespace kaldb::tool
