// kaldb pages FILE [N|A-B]: one line a page, or one page in full.

#include "json.h"
#include "session.h"
#include "text.h"

#include <fmt/format.h>

#include <charconv>
#include <set>

namespace kaldb::tool {

namespace {

struct PagesOptions {
    std::string path, range, chain;
    bool hex = false;
};

struct PageRange {
    PageNumber first = 0;
    PageNumber last = noPage;
    bool one = false;
};

PageRange parseRange(const std::string& text)
{
    PageRange range;
    if (text.empty())
        return range;
    const char* const end = text.data() + text.size();
    auto at = std::from_chars(text.data(), end, range.first);
    range.last = range.first;
    range.one = at.ptr == end;
    if (at.ec == std::errc{} && at.ptr != end && *at.ptr == '-')
        at = std::from_chars(at.ptr + 1, end, range.last);
    if (at.ec != std::errc{} || at.ptr != end || range.last < range.first)
        throw wrongUse(fmt::format("'{}' is no page number and no range of them", printable(text)),
                       "such as 7 or 7-12");
    return range;
}

/// The names of the chains that reach each page.
std::vector<std::string> pageOwners(const OpenFile& open)
{
    std::vector<std::string> owners(open.file.pages());
    std::vector<bool> met(open.file.pages());
    for (const Chain& chain : open.catalogue.chains) {
        const std::vector<bool> before = met;
        walkPages(
            open.file, chain.shape(), [](const VisitedPage&) { return true; }, [](const Damage&) {}, {}, &met);
        for (std::size_t page = 0; page < met.size(); ++page)
            if (met[page] && !before[page])
                owners[page] = chain.name;
    }
    return owners;
}

std::string number(PageNumber page) { return page == noPage ? "-" : std::to_string(page); }
std::string slotNumber(SlotIndex slot) { return slot == noSlot ? "-" : std::to_string(slot); }

/// What a line shows of a page.
struct Summary {
    const char* kind = "other";
    std::uint32_t count = 0;
    std::uint32_t places = 0;
    std::uint32_t itemSize = 0;
};

Summary summarise(const Page& bytes)
{
    if (const auto page = RecordPage::open(bytes))
        return {"records", page->count(), page->maxCount(), page->header().itemSize};
    if (const auto page = PiecePage::open(bytes))
        return {"binary", page->header().count, page->maxCount(), page->header().slotDataSize};
    return {pageKind(bytes) == PageKind::other ? "other" : "damaged"};
}

Json toJson(PageNumber page, const std::string& owner, const Page& bytes)
{
    const Summary summary = summarise(bytes);
    const KALDBPageLinks links = pageLinks(bytes);
    const auto link = [](PageNumber to) { return to == noPage ? Json() : Json(to); };
    return {{"page", page},
            {"table", owner.empty() ? Json() : Json(owner)},
            {"kind", summary.kind},
            {"count", summary.count},
            {"places", summary.places},
            {"itemSize", summary.itemSize},
            {"parent", link(links.parent)},
            {"prev", link(links.prev)},
            {"next", link(links.next)}};
}

void printHex(const Page& bytes, Output& out)
{
    constexpr std::size_t width = 32;
    for (std::size_t at = 0; at < bytes.size(); at += width)
        out.line(fmt::format("{:04x}  {}", at, hex(Bytes{bytes}.subspan(at, width))));
}

Json recordSlots(const RecordPage& page, bool withHex, TextTable& text)
{
    Json list = Json::array();
    std::vector<SlotIndex> order;
    const bool whole = page.order(order);
    for (SlotIndex slot = 0; !whole && page.holds(slot); ++slot)
        if (page.inUse(slot) && std::find(order.begin(), order.end(), slot) == order.end())
            order.push_back(slot);
    for (const SlotIndex index : order) {
        const KALBTreeSlot slot = page.slot(index);
        const std::string bytes = hex(
            withHex ? page.item(index) : page.item(index).first(std::min<std::size_t>(page.item(index).size(), 24)));
        list.push(
            {{"slot", index}, {"parent", slot.parent}, {"prev", slot.prev}, {"next", slot.next}, {"bytes", bytes}});
        text.row({std::to_string(index), slotNumber(slot.parent), slotNumber(slot.prev), slotNumber(slot.next), bytes});
    }
    return list;
}

Json pieceSlots(const PiecePage& page, bool withHex, TextTable& text)
{
    Json list = Json::array();
    for (SlotIndex index = 0; page.holds(index); ++index) {
        const KALDBBinarySlot slot = page.slot(index);
        if (slot.inUse == 0)
            continue;
        const std::size_t length = std::min<std::size_t>(slot.length, page.data(index).size());
        const std::string bytes = hex(page.data(index).first(withHex ? length : std::min<std::size_t>(length, 24)));
        list.push({{"slot", index},
                   {"length", slot.length},
                   {"total", slot.totalSize},
                   {"nextPage", slot.nextPage},
                   {"nextSlot", slot.nextIndex},
                   {"bytes", bytes}});
        text.row({std::to_string(index), fmt::format("{}/{}", slot.length, slot.totalSize), number(slot.nextPage),
                  slotNumber(slot.nextIndex), bytes});
    }
    return list;
}

/// One page in full: links, slots in order, and all of its bytes if wanted.
void showPage(PageNumber page, const std::string& owner, const Page& bytes, const PagesOptions& options,
              Session& session)
{
    Json json = toJson(page, owner, bytes);
    const bool pieces = pageKind(bytes) == PageKind::pieces;
    TextTable slots{pieces ? std::vector<std::string>{">SLOT", ">LENGTH", ">PAGE", ">NEXT", "BYTES"}
                           : std::vector<std::string>{">SLOT", ">PARENT", ">PREV", ">NEXT", "BYTES"}};
    json.set("slots", Json::array());
    if (const auto records = RecordPage::open(bytes))
        json.set("slots", recordSlots(*records, options.hex, slots));
    else if (const auto piecePage = PiecePage::open(bytes))
        json.set("slots", pieceSlots(*piecePage, options.hex, slots));
    if (session.json) {
        json.set("kaldb", 1);
        session.out.json(json);
        return;
    }
    const KALPageHeader common = commonHeader(bytes);
    const KALDBPageLinks links = pageLinks(bytes);
    const Summary summary = summarise(bytes);
    session.out.line(
        fmt::format("page {}: {}, {}", page, owner.empty() ? "reached by no table" : printable(owner), summary.kind));
    session.out.line(fmt::format("header: page {}, references {}, flags 0x{:X}, created {}", number(common.page),
                                 common.references, common.flags, common.lastUsed));
    session.out.line(fmt::format("links:  page {}, parent {}, prev {}, next {}", number(links.page),
                                 number(links.parent), number(links.prev), number(links.next)));
    session.out.line(fmt::format("items:  {} of {}, {} bytes each", summary.count, summary.places, summary.itemSize));
    slots.print(session.out);
    if (options.hex)
        printHex(bytes, session.out);
}

Exit pages(const PagesOptions& options, Session& session)
{
    const PageRange range = parseRange(options.range);
    const OpenFile open{options.path};
    if (!options.chain.empty() && std::none_of(open.catalogue.chains.begin(), open.catalogue.chains.end(),
                                               [&](const Chain& chain) { return chain.name == options.chain; }))
        requireTable(open, options.chain);
    if (!options.range.empty() && range.first >= open.file.pages())
        throw Failure{Exit::no, "no-page", options.path, fmt::format("has no page {}", range.first),
                      fmt::format("it has {} pages", open.file.pages())};
    if (open.file.dirty())
        note(options.path + ": is open in a process or was not closed cleanly");

    const std::vector<std::string> owners = pageOwners(open);
    Json list = Json::array();
    TextTable text{{">PAGE", "TABLE", "KIND", ">COUNT", ">PLACES", ">SIZE", ">PARENT", ">PREV", ">NEXT"}};
    Page bytes;
    for (PageNumber page = range.first; page < open.file.pages() && page <= range.last; ++page) {
        if ((!options.chain.empty() && owners[page] != options.chain) || !open.file.read(page, bytes))
            continue;
        if (range.one) {
            showPage(page, owners[page], bytes, options, session);
            return Exit::done;
        }
        const Summary summary = summarise(bytes);
        const KALDBPageLinks links = pageLinks(bytes);
        list.push(toJson(page, owners[page], bytes));
        text.row({std::to_string(page), owners[page].empty() ? "-" : printable(owners[page]), summary.kind,
                  std::to_string(summary.count), std::to_string(summary.places), std::to_string(summary.itemSize),
                  number(links.parent), number(links.prev), number(links.next)});
    }
    if (session.json)
        session.out.json({{"kaldb", 1}, {"file", options.path}, {"pages", std::move(list)}});
    else
        text.print(session.out);
    return Exit::done;
}

}  // namespace

void addPages(CommandLine& line, Session& session)
{
    Verb verb = line.verb("pages", "One line a page, or one page in full");
    const auto options = std::make_shared<PagesOptions>();
    verb.argument("FILE", options->path, "Database file");
    verb.optionalArgument("PAGES", options->range, "A page in full, or a range: 7 or 7-12");
    verb.option("--chain", options->chain, "Only the pages of this table, index or ROOT");
    verb.flag("--hex", options->hex, "All bytes of a page");
    verb.flag("--json", session.json, "One JSON object");
    verb.chosen([&session, options] { session.run = [&session, options] { return pages(*options, session); }; });
}

}  // namespace kaldb::tool
