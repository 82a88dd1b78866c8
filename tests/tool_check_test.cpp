// The check: sound files have no finding, and every planted fault is found on its page. Hostile files end in an exit
// code.

#include "support/command.h"
#include "support/file_image.h"
#include "support/people.h"

#include "catalogue.h"
#include "json.h"

#include <functional>
#include <random>

namespace {

using namespace kaldb;
using kaldb::test::FileImage;
using kaldb::test::PageImage;
using json = kaldb::tool::Json;

/// A sound file taken apart.
struct Sample {
    FileImage image;
    std::map<std::string, tool::Chain> chains;  // by name

    PageImage& top(const std::string& chain) { return image[chains.at(chain).object.topPage]; }
    /// Where an item of a page of records lies.
    static std::size_t item(const PageImage& page, std::size_t slot)
    {
        const auto header = page.get<KALBTreePage>(PageImage::typed);
        return PageImage::slot(header.maxCount) + slot * header.itemSize;
    }
};

// What damages a chain: fields of its top page, of its entry in the catalogue, and of the first piece in its first
// page.
using Plant = std::function<void(Sample&, const std::string& chain)>;
template <class Value>
Plant byte(std::size_t offset, Value value)
{
    return [=](Sample& s, const std::string& chain) { s.top(chain).put(offset, value); };
}
template <class Structure, class Field>
Plant field(std::size_t offset, Field Structure::*field, std::uint64_t value)
{
    return [=](Sample& s, const std::string& chain) {
        s.top(chain).edit<Structure>(offset, [&](Structure& x) { x.*field = static_cast<Field>(value); });
    };
}
template <class Field>
Plant tree(Field KALBTreePage::*member, std::uint64_t value)
{
    return field(PageImage::typed, member, value);
}
template <class Field>
Plant slot(std::size_t index, Field KALBTreeSlot::*member, std::uint64_t value)
{
    return field(PageImage::slot(index), member, value);
}
template <class Field>
Plant link(Field KALDBPageLinks::*member, std::uint64_t value)
{
    return field(PageImage::links, member, value);
}
template <class Value>
Plant item(std::size_t index, std::size_t offset, Value value)
{
    return [=](Sample& s, const std::string& chain) {
        s.top(chain).put(Sample::item(s.top(chain), index) + offset, value);
    };
}
Plant root(const std::function<void(KALDBRootObject&)>& change)
{
    return [=](Sample& s, const std::string& chain) {
        PageImage& page = s.image[s.chains.at(chain).page];
        page.edit<KALDBRootObject>(Sample::item(page, s.chains.at(chain).slot), change);
    };
}
Plant piece(const std::function<void(KALDBBinarySlot&)>& change)
{
    return [=](Sample& s, const std::string& chain) {
        const PageNumber page = s.chains.at(chain).object.firstPage;
        s.image[page].edit<KALDBBinarySlot>(s.image.binarySlot(page, 0), change);
    };
}
/// Puts a piece that belongs to nobody into a free slot.
void leakPiece(Sample& s, const std::string&)
{
    for (PageNumber page = 0; page < s.image.pages.size(); ++page) {
        auto header = s.image[page].get<KALDBBinaryPage>(PageImage::typed);
        if (std::string{header.typeName} != "BPG" || header.slotDataSize != 128 || header.count == header.maxCount)
            continue;
        s.image[page].put(s.image.binarySlot(page, header.count++), KALDBBinarySlot{1, 5, 5, noPage, noSlot, 0});
        return s.image[page].put(PageImage::typed, header);
    }
    FAIL() << "no free slot";
}

struct Fault {
    enum Where { top, entry, first, anywhere };

    const char* code;
    const char* chain;
    Plant plant;
    Where where = top;  // in which page of the chain it is found
};
const char *const people = "People", *const schema = "KaldbSchema", *const index = "PeopleIndex",
                  *const texts = "SysVarString";
using Header = KALBTreePage;
using Slot = KALBTreeSlot;
using Links = KALDBPageLinks;
using Entry = KALDBRootObject;
using Piece = KALDBBinarySlot;

const std::vector<Fault> faults{
    {"header.pages", people, [](Sample& s, auto&) { ++s.image.header.pagesInFile; }, Fault::anywhere},
    {"header.start", people, [](Sample& s, auto&) { s.image.header.startPage = 5000; }, Fault::anywhere},
    {"root.missing", people, [](Sample& s, auto&) { s.image.header.startPage = s.chains.at(people).object.topPage; }},
    {"page.header", people, byte(4, 'X')},
    {"page.number", people, byte(8, 3U)},
    {"page.type", people, byte(PageImage::typed + 4, 'X')},
    {"btree.size", people, tree(&Header::size, 400)},
    {"btree.count", people, tree(&Header::count, 1)},
    {"btree.smallest", people, tree(&Header::smallest, 900)},
    {"btree.largest", people, tree(&Header::largest, 900)},
    {"btree.free", schema, slot(10, &Slot::next, 1)},
    {"btree.parent", schema, slot(2, &Slot::parent, 9)},
    {"btree.child", schema, slot(2, &Slot::next, 4000)},
    {"btree.tree", schema,
     [](Sample& s, const std::string& chain) {
         slot(3, &Slot::next, noSlot)(s, chain);
         slot(4, &Slot::parent, 4)(s, chain), slot(4, &Slot::next, 4)(s, chain);
     }},
    {"link.self", people, link(&Links::page, 1)},
    {"link.parent", people, link(&Links::parent, 1)},
    {"link.outside", people, link(&Links::prev, 7000)},
    {"page.shared", schema,
     [](Sample& s, auto& chain) { link(&Links::next, s.chains.at(chain).object.topPage)(s, chain); }},
    {"page.shared", schema, root([](Entry& x) { x.topPage = 0; }), Fault::entry},
    {"order.records", people, item(0, 16, 'z')},
    {"order.records", index, item(0, 15, '\x7f')},
    {"root.size", people, root([](Entry& x) { x.recordSize = 3000; }), Fault::entry},
    {"root.flags", people, root([](Entry& x) { x.flags |= 0x10; }), Fault::entry},
    {"root.kind", people, root([](Entry& x) { x.kind = 5; }), Fault::entry},
    {"root.name", people, root([](Entry& x) { std::fill_n(x.name, 32, u'x'); }), Fault::entry},
    {"root.page", people, root([](Entry& x) { x.firstPage = 0; }), Fault::entry},
    {"id.counter", people, root([](Entry& x) { x.nextID.sequence = 0; })},
    {"index.missing", index, root([](Entry& x) { x.name[0] = u'Q'; }), Fault::entry},
    {"index.lacks", people, item(0, 8, std::uint64_t{7000})},
    {"index.stray", index, item(0, 8, std::uint64_t{7000})},
    {"index.wrong", index, item(0, 16, 3U), Fault::anywhere},
    {"binary.count", texts, byte(PageImage::typed + offsetof(KALDBBinaryPage, count), 1U), Fault::first},
    {"binary.length", texts, piece([](Piece& x) { x.length = 129; }), Fault::first},
    {"binary.next", texts, piece([](Piece& x) { x.nextPage = 7000; }), Fault::first},
    {"binary.free", texts, piece([](Piece& x) { x.inUse = 0; }), Fault::first},
    {"text.free", texts, piece([](Piece& x) { x.inUse = 0; }), Fault::anywhere},
    {"text.size", texts, piece([](Piece& x) { ++x.totalSize; }), Fault::anywhere},
    {"text.capacity", people, item(0, 48, 9U)},
    {"schema.row", schema, item(2, 66, '\x09')},
    {"schema.fault", schema, item(2, 68, 103U)},
};
const std::vector<Fault> doubts{
    {"header.dirty", people, [](Sample& s, auto&) { s.image.header.flags = fileDirty; }},
    {"header.flags", people, [](Sample& s, auto&) { s.image.header.flags = 2; }},
    {"header.name", people, [](Sample& s, auto&) { s.image.header.name[9] = 'x'; }},
    {"page.flags", people, byte(16, 1U)},
    {"page.checksum", people, byte(24, 1U)},
    {"text.leaked", texts, leakPiece},
};

class CheckTest : public ::test::CommandTest {
protected:
    CheckTest()
    {
        ::test::PeopleFile{folder_ / "p"};
        sound.image = FileImage::parse(bytes("p"));
        for (const tool::Chain& chain : tool::readCatalogue(tool::PageFile{folder_ / "p"}).chains)
            sound.chains.emplace(chain.name, chain);
    }

    /// What the check finds after a fault was planted.
    json check(const Fault& fault) const
    {
        Sample sample = sound;
        fault.plant(sample, fault.chain);
        sample.image.write(folder_ / "p");
        return json::parse(run("check --json p").out);
    }

    Sample sound;
};

TEST_F(CheckTest, SoundFilesHaveNoFindingAndPlantedFaultsAreFoundOnTheirPage)
{
    const std::string text = done("check --strict --backup p");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
    const json none = json::parse(done("check --json p"));
    EXPECT_TRUE(none["findings"] == json::array() && none["libraryErrors"] == 0) << none;

    for (const Fault& fault : faults) {
        const tool::Chain& chain = sound.chains.at(fault.chain);
        const PageNumber pages[] = {chain.object.topPage, chain.page, chain.object.firstPage};
        const json report = check(fault);
        bool found = false;
        for (const json& finding : report["findings"].elements())
            found |= finding["code"] == fault.code && finding["severity"] == "error" &&
                     (fault.where == Fault::anywhere || finding["page"] == pages[fault.where]);
        EXPECT_TRUE(found) << fault.code << report;
        EXPECT_EQ(run("check p").exit, 1) << fault.code;
    }
}

TEST_F(CheckTest, WarningsAndNotesAreNoDamage)
{
    for (const Fault& doubt : doubts) {
        const json report = check(doubt);
        EXPECT_TRUE(report["errors"] == 0 && report["warnings"] == 1) << report;
        EXPECT_EQ(report["findings"][0]["code"], doubt.code);
        EXPECT_EQ(run("check p").exit, 0);
        EXPECT_EQ(run("check --strict p").exit, 1);
    }
    FileImage cut = sound.image;  // a page that is named by nobody any more
    const PageNumber lost = cut.addPage();
    cut.formatTree(lost, 104, {});
    cut.write(folder_ / "p");
    const json report = json::parse(done("check --json --strict p"));
    EXPECT_EQ(report["notes"], 1);
    EXPECT_TRUE(report["findings"][0]["code"] == "page.unreachable" && report["findings"][0]["page"] == lost) << report;
}

TEST_F(CheckTest, HostileFilesEndInAnExitCode)
{
    std::mt19937 random{7};
    const auto draw = [&](std::size_t below) { return random() % below; };
    for (int round = 0; round < 12; ++round) {
        std::string image = sound.image.bytes();
        for (int i = 0; i < 40; ++i) {
            // Half of the hits go to the headers and slots, where they hurt most.
            const auto page = static_cast<PageNumber>(draw(sound.image.pages.size()));
            const unsigned char hostile[] = {0, 1, 0x7F, 0xFE, 0xFF, static_cast<unsigned char>(draw(256))};
            image[draw(2) == 0 ? draw(image.size()) : pageOffset(page) + draw(160)] =
                static_cast<char>(hostile[draw(6)]);
        }
        if (round % 6 == 5)
            image.resize(draw(image.size()));
        file("p", image);
        for (const char* looking : {"check p", "info p", "tables --system p", "schema p", "pages p", "dump --dirty p",
                                    "get --dirty p People 'person 050' --from a --id 3"})
            ASSERT_LE(run(looking).exit, 4) << looking << round;
        for (const char* change :
             {"put p People '{\"name\":\"z\"}' --in-place", "del p People 'person 050'", "backup p --force"})
            ASSERT_LE(run(change).exit, 5) << change << round;
    }
}

}  // namespace
