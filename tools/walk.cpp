#include "walk.h"

#include <fmt/format.h>

#include <utility>

namespace kaldb::tool {

namespace {

/// One walk over a tree or a list of pages.
class PageWalk {
public:
    PageWalk(const PageFile& file, const ChainShape& chain, const PageVisitor& visit, const DamageSink& damage,
             const Before& before, std::vector<bool>* met)
        : file_(file), chain_(chain), visit_(visit), damage_(damage), before_(before),
          met_(met != nullptr ? *met : own_)
    {
        met_.resize(file.pages());
    }

    void tree()
    {
        descend(chain_.top, noPage, 1);
        while (!pending_.empty()) {
            const Pending at = pending_.back();
            pending_.pop_back();
            // The page has been read once and was whole then.
            if (at.wanted && file_.read(at.number, page_) && !visit_({at.number, at.depth, page_}))
                return;
            descend(at.next, at.number, at.depth + 1);
        }
    }

    void list()
    {
        PageNumber parent = noPage;
        PageNumber number = chain_.first;
        for (std::uint32_t depth = 1; number != noPage && enter(number, parent); ++depth) {
            if (fits(number) && !visit_({number, depth, page_}))
                return;
            parent = std::exchange(number, pageLinks(page_).next);
        }
    }

private:
    struct Pending {
        PageNumber number;
        PageNumber next;
        std::uint32_t depth;
        bool wanted;
    };

    /// Goes down by prev links; the pages met wait until what lies before them is done.
    void descend(PageNumber number, PageNumber parent, std::uint32_t depth)
    {
        while (number != noPage && enter(number, parent)) {
            const bool sound = fits(number);
            const KALDBPageLinks links = pageLinks(page_);
            const Side side = sound ? sideOfWanted() : Side::unknown;
            pending_.push_back({number, links.next, depth, sound && side != Side::after});
            if (side == Side::within || side == Side::after)
                return;
            parent = std::exchange(number, links.prev);
            ++depth;
        }
    }

    // Where the first wanted record lies, seen from the page's own records.
    enum class Side { unknown, within, after };
    Side sideOfWanted() const
    {
        if (!before_)
            return Side::unknown;
        const auto page = RecordPage::open(page_);
        const KALBTreePage& header = page->header();
        if (!page->holds(header.smallest) || !page->holds(header.largest))
            return Side::unknown;
        if (before_(page->item(header.largest)))
            return Side::after;
        return before_(page->item(header.smallest)) ? Side::within : Side::unknown;
    }

    /// Reads a page that the walk has reached; false when there is nothing to go on with.
    bool enter(PageNumber number, PageNumber parent)
    {
        if (number >= met_.size()) {
            report(parent, "link.outside", fmt::format("names page {}, which the file does not have", number));
            return false;
        }
        if (met_[number]) {
            report(number, "page.shared", fmt::format("reached a second time, from page {}", shown(parent)));
            return false;
        }
        met_[number] = true;
        if (!file_.read(number, page_)) {
            report(number, "page.unreadable", "cannot be read");
            return false;
        }
        const KALDBPageLinks links = pageLinks(page_);
        if (links.page != number)
            report(number, "link.self", fmt::format("calls itself page {}", shown(links.page)));
        if (links.parent != parent)
            report(number, "link.parent",
                   fmt::format("names page {} as its parent, but is a child of page {}", shown(links.parent),
                               shown(parent)));
        return true;
    }

    /// Whether the page holds what the chain says that its pages hold.
    bool fits(PageNumber number)
    {
        if (chain_.binary) {
            const auto page = PiecePage::open(page_);
            if (page && page->header().slotDataSize == chain_.recordSize)
                return true;
            report(number, "page.type", fmt::format("is no page of {}-byte pieces", chain_.recordSize));
            return false;
        }
        const auto page = RecordPage::open(page_);
        if (page && page->header().itemSize == chain_.recordSize)
            return true;
        report(number, "page.type", fmt::format("is no page of {}-byte records", chain_.recordSize));
        return false;
    }

    static std::string shown(PageNumber number) { return number == noPage ? "none" : std::to_string(number); }
    void report(PageNumber page, const char* code, std::string text) { damage_({page, noSlot, code, std::move(text)}); }

    const PageFile& file_;
    const ChainShape& chain_;
    const PageVisitor& visit_;
    const DamageSink& damage_;
    const Before& before_;
    std::vector<bool> own_;
    std::vector<bool>& met_;
    std::vector<Pending> pending_;
    Page page_{};
};

}  // namespace

void walkPages(const PageFile& file, const ChainShape& chain, const PageVisitor& visit, const DamageSink& damage,
               const Before& before, std::vector<bool>* met)
{
    PageWalk walk{file, chain, visit, damage, before, met};
    if (chain.binary)
        walk.list();
    else
        walk.tree();
}

void walkRecords(const PageFile& file, const ChainShape& chain, const RecordVisitor& visit, const DamageSink& damage,
                 const Before& before)
{
    std::vector<SlotIndex> order;
    const PageVisitor visitPage = [&](const VisitedPage& visited) {
        const auto page = RecordPage::open(visited.bytes);
        if (!page->order(order))
            damage({visited.number, noSlot, "btree.tree", "its records cannot all be reached"});
        for (const SlotIndex slot : order) {
            const Record record{page->item(slot), visited.number, slot};
            if ((!before || !before(record.bytes)) && !visit(record))
                return false;
        }
        return true;
    };
    walkPages(file, chain, visitPage, damage, before);
}

}  // namespace kaldb::tool
