// The tree of pages: every child names its parent.

#include "kaldbvalidate/internal.h"

namespace kaldb {

namespace {

constexpr TraceSource here = validateSource(u"dbCheckLinks");

enum class Child { none, sound, outside, ofAnother };

Child examineChild(PageNumber page, PageNumber child, PageNumber pagesInFile, std::span<const CheckedLinks> links)
{
    if (child == noPage)
        return Child::none;
    if (child >= pagesInFile)
        return Child::outside;
    // A page that the header counts and the file does not hold has been counted already.
    if (child >= links.size() || links[child].read == 0)
        return Child::sound;
    return links[child].parent == page ? Child::sound : Child::ofAnother;
}

}  // namespace

void dbCheckLinks(KALDBValidateContext& context, std::span<const CheckedLinks> links)
{
    const PageNumber pages = context.header.pagesInFile;
    for (PageNumber page = 0; page < links.size(); ++page) {
        if (links[page].read == 0)
            continue;
        const Child prev = examineChild(page, links[page].prev, pages, links);
        const Child next = examineChild(page, links[page].next, pages, links);
        if (prev == Child::outside)
            KAL_TRACE(here, u"Page %d contains invalid previous page", page);
        else if (prev == Child::ofAnother)
            KAL_TRACE(here, u"Page %d previous/parent mismatch", page);
        if (next == Child::outside)
            KAL_TRACE(here, u"Page %d contains invalid next page", page);
        else if (next == Child::ofAnother)
            KAL_TRACE(here, u"Page %d previous/next mismatch", page);
        context.addErrors((prev > Child::sound ? 1U : 0U) + (next > Child::sound ? 1U : 0U));
    }
}

}  // namespace kaldb
