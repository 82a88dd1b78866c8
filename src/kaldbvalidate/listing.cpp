// What the page check shows: each page's links on standard output, its common header in the trace.

#include "kaldbvalidate/internal.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kaldb {

// Bytes, not wide characters: a stream that a host uses for narrow output loses wide text.
void printPageLinks(const KALDBPageLinks& links)
{
    std::array<char, 192> text{};
    const auto shown = [](PageNumber page) { return static_cast<std::int32_t>(page); };
    const int length =
        std::snprintf(text.data(), text.size(),
                      "\nValidating page %d\n========================\nPage = %d\nParent = %d\nPrevious = %d\n"
                      "Next = %d\n",
                      shown(links.page), shown(links.page), shown(links.parent), shown(links.prev), shown(links.next));
    if (length > 0)
        std::fwrite(text.data(), 1, static_cast<std::size_t>(length), stdout);
}

void dbTracePageHeader([[maybe_unused]] const KALPageHeader& header)
{
    // The name is not terminated in a damaged page.
    std::array<char, sizeof header.typeName + 1> name{};
    std::copy(std::begin(header.typeName), std::end(header.typeName), name.begin());

    KAL_TRACE(verbatim, u"Page %ld header\n", header.page);
    KAL_TRACE(verbatim, u"Type Name = %s\n", name.data());
    KAL_TRACE(verbatim, u"Length = %ld\n", header.headerLength);
    KAL_TRACE(verbatim, u"Page = %ld\n", header.page);
    KAL_TRACE(verbatim, u"Reference Count = %ld\n", header.references);
    KAL_TRACE(verbatim, u"Last Used = %ld\n", header.lastUsed);
    KAL_TRACE(verbatim, u"Flags = 0x%08X (%s%s%s)\n", header.flags,
              (header.flags & KALPAGEMAN_PAGE_DIRTY) != 0 ? u"KALPAGEMAN_PAGE_DIRTY" : u"",
              (header.flags & KALPAGEMAN_PAGE_EMPTY) != 0 ? u"KALPAGEMAN_PAGE_EMPTY" : u"",
              (header.flags & KALPAGEMAN_PAGE_UNUSED) != 0 ? u"KALPAGEMAN_PAGE_UNUSED" : u"");
}

}  // namespace kaldb
