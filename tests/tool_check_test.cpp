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

using Tree = KALBTreePage;
using Slot = KALBTreeSlot;
using Links = KALDBPageLinks;
using Entry = KALDBRootObject;
using Piece = KALDBBinarySlot;

/// Structures of a chain: in its top page, its entry in the catalogue, and the first piece in its first page.
enum class In { page, links, tree, slot, item, entry, piece };

/// A sound file taken apart.
struct Sample {
    FileImage image;
    std::map<std::string, tool::Chain> chains;  // by name

    std::size_t item(PageNumber page, std::size_t index)
    {
        const auto header = image[page].get<Tree>(PageImage::typed);
        return PageImage::slot(header.maxCount) + index * header.itemSize;
    }
    template <class Value>
    void put(const char* name, In place, std::size_t offset, Value value, std::size_t index)
    {
        const tool::Chain& chain = chains.at(name);
        const PageNumber top = chain.object.topPage, first = chain.object.firstPage;
        switch (place) {
        case In::page: return image[top].put(offset, value);
        case In::links: return image[top].put(PageImage::links + offset, value);
        case In::tree: return image[top].put(PageImage::typed + offset, value);
        case In::slot: return image[top].put(PageImage::slot(index) + offset, value);
        case In::item: return image[top].put(item(top, index) + offset, value);
        case In::entry: return image[chain.page].put(item(chain.page, chain.slot) + offset, value);
        case In::piece: return image[first].put(image.binarySlot(first, 0) + offset, value);
        }
    }
    /// Puts a piece that belongs to nobody into a free slot.
    void leakPiece()
    {
        for (PageNumber page = 0; page < image.pages.size(); ++page) {
            auto header = image[page].get<KALDBBinaryPage>(PageImage::typed);
            if (std::string{header.typeName} != "BPG" || header.slotDataSize != 128 || header.count == header.maxCount)
                continue;
            image[page].put(image.binarySlot(page, header.count++), Piece{1, 5, 5, noPage, noSlot, 0});
            return image[page].put(PageImage::typed, header);
        }
        FAIL() << "no free slot";
    }
};

using Plant = std::function<void(Sample&, const char* chain)>;
template <class Value>
Plant put(In place, std::size_t offset, Value value, std::size_t index = 0)
{
    return [=](Sample& s, const char* chain) { s.put(chain, place, offset, value, index); };
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

const auto unended = [] {
    std::array<char16_t, 32> name;
    name.fill(u'x');
    return name;
}();

const std::vector<Fault> faults{
    {"header.pages", people, [](Sample& s, auto) { ++s.image.header.pagesInFile; }, Fault::anywhere},
    {"header.start", people, [](Sample& s, auto) { s.image.header.startPage = 5000; }, Fault::anywhere},
    {"root.missing", people, [](Sample& s, auto) { s.image.header.startPage = s.chains.at(people).object.topPage; }},
    {"page.header", people, put(In::page, 4, 'X')},
    {"page.number", people, put(In::page, 8, 3U)},
    {"page.type", people, put(In::tree, offsetof(Tree, typeName), 'X')},
    {"btree.size", people, put(In::tree, offsetof(Tree, size), 400U)},
    {"btree.count", people, put(In::tree, offsetof(Tree, count), 1U)},
    {"btree.smallest", people, put(In::tree, offsetof(Tree, smallest), SlotIndex{900})},
    {"btree.largest", people, put(In::tree, offsetof(Tree, largest), SlotIndex{900})},
    {"btree.free", schema, put(In::slot, offsetof(Slot, next), SlotIndex{1}, 10)},
    {"btree.parent", schema, put(In::slot, offsetof(Slot, parent), SlotIndex{9}, 2)},
    {"btree.child", schema, put(In::slot, offsetof(Slot, next), SlotIndex{4000}, 2)},
    {"btree.tree", schema,
     [](Sample& s, const char* chain) {  // slot 4 hangs below itself
         s.put(chain, In::slot, offsetof(Slot, next), noSlot, 3);
         s.put(chain, In::slot, offsetof(Slot, next), SlotIndex{4}, 4);
         s.put(chain, In::slot, offsetof(Slot, parent), SlotIndex{4}, 4);
     }},
    {"link.self", people, put(In::links, offsetof(Links, page), 1U)},
    {"link.parent", people, put(In::links, offsetof(Links, parent), 1U)},
    {"link.outside", people, put(In::links, offsetof(Links, prev), 7000U)},
    {"page.shared", schema,
     [](Sample& s, const char* chain) {
         s.put(chain, In::links, offsetof(Links, next), s.chains.at(chain).object.topPage, 0);
     }},
    {"page.shared", schema, put(In::entry, offsetof(Entry, topPage), 0U), Fault::entry},
    {"order.records", people, put(In::item, 16, 'z')},
    {"order.records", index, put(In::item, 15, '\x7f')},
    {"root.size", people, put(In::entry, offsetof(Entry, recordSize), 3000U), Fault::entry},
    {"root.flags", people, put(In::entry, offsetof(Entry, flags), KALDB_CHAIN_GUID | 0x10U), Fault::entry},
    {"root.kind", people, put(In::entry, offsetof(Entry, kind), 5), Fault::entry},
    {"root.name", people, put(In::entry, offsetof(Entry, name), unended), Fault::entry},
    {"root.page", people, put(In::entry, offsetof(Entry, firstPage), 0U), Fault::entry},
    {"id.counter", people, put(In::entry, offsetof(Entry, nextID.sequence), std::uint64_t{0})},
    {"index.missing", index, put(In::entry, offsetof(Entry, name), u'Q'), Fault::entry},
    {"index.lacks", people, put(In::item, 8, std::uint64_t{7000})},
    {"index.stray", index, put(In::item, 8, std::uint64_t{7000})},
    {"index.wrong", index, put(In::item, 16, 3U), Fault::anywhere},
    {"binary.count", texts, put(In::tree, offsetof(KALDBBinaryPage, count), 1U), Fault::first},
    {"binary.length", texts, put(In::piece, offsetof(Piece, length), 129U), Fault::first},
    {"binary.next", texts, put(In::piece, offsetof(Piece, nextPage), 7000U), Fault::first},
    {"binary.free", texts, put(In::piece, offsetof(Piece, inUse), 0U), Fault::first},
    {"text.free", texts, put(In::piece, offsetof(Piece, inUse), 0U), Fault::anywhere},
    {"text.size", texts, put(In::piece, offsetof(Piece, totalSize), 999U), Fault::anywhere},
    {"text.capacity", people, put(In::item, 48, 9U)},
    {"schema.row", schema, put(In::item, 66, '\x09', 2)},
    {"schema.fault", schema, put(In::item, 68, 103U, 2)},
};
const std::vector<Fault> doubts{
    {"header.dirty", people, [](Sample& s, auto) { s.image.header.flags = fileDirty; }},
    {"header.flags", people, [](Sample& s, auto) { s.image.header.flags = 2; }},
    {"header.name", people, [](Sample& s, auto) { s.image.header.name[9] = 'x'; }},
    {"page.flags", people, put(In::page, 16, 1U)},
    {"page.checksum", people, put(In::page, 24, 1U)},
    {"text.leaked", texts, [](Sample& s, auto) { s.leakPiece(); }},
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
    FileImage cut = sound.image;  // two pages that are named by nobody, one of them never formatted
    const PageNumber lost = cut.addPage(), blank = cut.addPage();
    cut.formatTree(lost, 104, {});
    cut[blank].put(PageImage::links, noPage);
    cut.write(folder_ / "p");
    const json report = json::parse(done("check --json --strict p"));
    EXPECT_EQ(report["notes"], 2);
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
