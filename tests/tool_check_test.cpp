// The check: sound files have no finding, and every planted fault is found on its page. Hostile files end in an exit
// code.

#include "support/command.h"
#include "support/file_image.h"
#include "support/people.h"

#include "catalogue.h"
#include "json.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace {

using namespace kaldb;
using kaldb::test::FileImage;
using kaldb::test::PageImage;
using json = kaldb::tool::Json;

/// A sound file taken apart, with the places that faults are planted in.
struct Sample {
    FileImage image;
    std::map<std::string, tool::Chain> chains;  // by name

    PageImage& top(const std::string& chain) { return image[chains.at(chain).object.topPage]; }
    PageNumber topPage(const std::string& chain) const { return chains.at(chain).object.topPage; }
    KALBTreePage tree(const std::string& chain) { return top(chain).get<KALBTreePage>(PageImage::typed); }
    /// Where an item of a chain's top page lies.
    std::size_t item(const std::string& chain, std::size_t slot)
    {
        const KALBTreePage header = tree(chain);
        return PageImage::slot(header.maxCount) + slot * header.itemSize;
    }
    void editTree(const std::string& chain, const std::function<void(KALBTreePage&)>& change)
    {
        top(chain).edit<KALBTreePage>(PageImage::typed, change);
    }
    void editSlot(const std::string& chain, std::size_t slot, const std::function<void(KALBTreeSlot&)>& change)
    {
        top(chain).edit<KALBTreeSlot>(PageImage::slot(slot), change);
    }
    void editLinks(const std::string& chain, const std::function<void(KALDBPageLinks&)>& change)
    {
        top(chain).edit<KALDBPageLinks>(PageImage::links, change);
    }
    void editRoot(const std::string& chain, const std::function<void(KALDBRootObject&)>& change)
    {
        const tool::Chain& entry = chains.at(chain);
        PageImage& page = image[entry.page];
        const auto header = page.get<KALBTreePage>(PageImage::typed);
        page.edit<KALDBRootObject>(PageImage::slot(header.maxCount) + entry.slot * header.itemSize, change);
    }
    /// The first piece of the text table.
    void editPiece(const std::function<void(KALDBBinarySlot&)>& change)
    {
        const PageNumber page = chains.at("SysVarString").object.firstPage;
        image[page].edit<KALDBBinarySlot>(image.binarySlot(page, 0), change);
    }
    /// Puts a piece that belongs to nobody into a free slot of the table of texts.
    void leakPiece()
    {
        for (PageNumber page = 0; page < image.pages.size(); ++page) {
            auto header = image[page].get<KALDBBinaryPage>(PageImage::typed);
            if (std::string{header.typeName} != "BPG" || header.slotDataSize != 128)
                continue;
            for (std::size_t slot = 0; slot < header.maxCount; ++slot) {
                const std::size_t at = image.binarySlot(page, slot);
                if (image[page].get<KALDBBinarySlot>(at).inUse != 0)
                    continue;
                image[page].put(at, KALDBBinarySlot{1, 5, 5, noPage, noSlot, 0});
                ++header.count;
                image[page].put(PageImage::typed, header);
                return;
            }
        }
        FAIL() << "no free slot";
    }
    PageNumber textPage() const { return chains.at("SysVarString").object.firstPage; }
};

class CheckTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static const ::test::TempDir folder;
        path = folder / "people.kaldb";
        ::test::PeopleFile{path};
        sound.image = FileImage::parse(::test::readFile(path));
        for (const tool::Chain& chain : tool::readCatalogue(tool::PageFile{path}).chains)
            sound.chains.emplace(chain.name, chain);
    }

    static json check(const std::string& options = "")
    {
        return json::parse(::test::kaldb("check --json " + path + options).out);
    }

    static inline std::string path;
    static inline Sample sound;
};

struct Fault {
    const char* code;
    std::function<void(Sample&)> plant;
    std::function<PageNumber(const Sample&)> page;  // null for what concerns the whole file
};

const auto at = [](const char* chain) { return [=](const Sample& s) { return s.topPage(chain); }; };
const auto inRoot = [](const Sample& s) { return s.chains.at("People").page; };
const auto inTexts = [](const Sample& s) { return s.textPage(); };

const std::vector<Fault> faults{
    {"header.pages", [](Sample& s) { ++s.image.header.pagesInFile; }, {}},
    {"header.start", [](Sample& s) { s.image.header.startPage = 5000; }, {}},
    {"root.missing", [](Sample& s) { s.image.header.startPage = s.topPage("People"); }, at("People")},
    {"page.header", [](Sample& s) { s.top("People").put(4, 'X'); }, at("People")},
    {"page.number", [](Sample& s) { s.top("People").put(8, 3U); }, at("People")},
    {"page.type", [](Sample& s) { s.top("People").put(PageImage::typed + 4, 'X'); }, at("People")},
    {"btree.size", [](Sample& s) { s.editTree("People", [](auto& h) { h.size = 400; }); }, at("People")},
    {"btree.count", [](Sample& s) { s.editTree("People", [](auto& h) { --h.count; }); }, at("People")},
    {"btree.smallest", [](Sample& s) { s.editTree("People", [](auto& h) { h.smallest = h.largest; }); }, at("People")},
    {"btree.largest", [](Sample& s) { s.editTree("People", [](auto& h) { h.largest = 900; }); }, at("People")},
    {"btree.free", [](Sample& s) { s.editSlot("KaldbSchema", 10, [](auto& x) { x.next = 1; }); }, at("KaldbSchema")},
    {"btree.parent", [](Sample& s) { s.editSlot("KaldbSchema", 2, [](auto& x) { x.parent = 9; }); }, at("KaldbSchema")},
    {"btree.child", [](Sample& s) { s.editSlot("KaldbSchema", 2, [](auto& x) { x.next = 4000; }); }, at("KaldbSchema")},
    {"btree.tree",
     [](Sample& s) {
         s.editSlot("KaldbSchema", 3, [](auto& x) { x.next = noSlot; });
         s.editSlot("KaldbSchema", 4, [](auto& x) { x.parent = 4, x.next = 4; });
     },
     at("KaldbSchema")},
    {"link.self", [](Sample& s) { s.editLinks("People", [](auto& l) { l.page = 1; }); }, at("People")},
    {"link.parent", [](Sample& s) { s.editLinks("People", [](auto& l) { l.parent = 1; }); }, at("People")},
    {"link.outside", [](Sample& s) { s.editLinks("People", [](auto& l) { l.prev = 7000; }); }, at("People")},
    {"page.shared", [](Sample& s) { s.editLinks("KaldbSchema", [&](auto& l) { l.next = l.page; }); },
     at("KaldbSchema")},
    {"page.shared", [](Sample& s) { s.editRoot("KaldbSchema", [](auto& r) { r.topPage = 0; }); },
     [](const Sample&) { return PageNumber{0}; }},
    {"order.records", [](Sample& s) { s.top("People").put(s.item("People", 0) + 16, 'z'); }, at("People")},
    {"order.records", [](Sample& s) { s.top("PeopleIndex").put(s.item("PeopleIndex", 0) + 15, '\x7f'); },
     at("PeopleIndex")},
    {"root.size", [](Sample& s) { s.editRoot("People", [](auto& r) { r.recordSize = 3000; }); }, inRoot},
    {"root.flags", [](Sample& s) { s.editRoot("People", [](auto& r) { r.flags |= 0x10; }); }, inRoot},
    {"root.kind", [](Sample& s) { s.editRoot("People", [](auto& r) { r.kind = 5; }); }, inRoot},
    {"root.name", [](Sample& s) { s.editRoot("People", [](auto& r) { std::fill_n(r.name, 32, u'x'); }); }, inRoot},
    {"root.page", [](Sample& s) { s.editRoot("People", [](auto& r) { r.firstPage = 0; }); }, inRoot},
    {"id.counter", [](Sample& s) { s.editRoot("People", [](auto& r) { r.nextID.sequence = 0; }); }, at("People")},
    {"index.missing", [](Sample& s) { s.editRoot("PeopleIndex", [](auto& r) { r.name[0] = u'Q'; }); }, inRoot},
    {"index.lacks", [](Sample& s) { s.top("People").put(s.item("People", 0) + 8, std::uint64_t{7000}); }, at("People")},
    {"index.stray", [](Sample& s) { s.top("PeopleIndex").put(s.item("PeopleIndex", 0) + 8, std::uint64_t{7000}); },
     at("PeopleIndex")},
    {"index.wrong",
     [](Sample& s) {
         s.editTree("People", [](auto&) {}), s.image[s.topPage("PeopleIndex")].put(s.item("PeopleIndex", 0) + 16, 3U);
     },
     {}},
    {"binary.count",
     [](Sample& s) { s.image[s.textPage()].edit<KALDBBinaryPage>(PageImage::typed, [](auto& h) { ++h.count; }); },
     inTexts},
    {"binary.length", [](Sample& s) { s.editPiece([](auto& p) { p.length = 129; }); }, inTexts},
    {"binary.next", [](Sample& s) { s.editPiece([](auto& p) { p.nextPage = 7000; }); }, inTexts},
    {"binary.free", [](Sample& s) { s.editPiece([](auto& p) { p.inUse = 0; }); }, inTexts},
    {"text.free", [](Sample& s) { s.editPiece([](auto& p) { p.inUse = 0; }); }, {}},
    {"text.size", [](Sample& s) { s.editPiece([](auto& p) { ++p.totalSize; }); }, {}},
    {"text.capacity", [](Sample& s) { s.top("People").put(s.item("People", 0) + 48, 9U); }, at("People")},
    {"schema.row", [](Sample& s) { s.top("KaldbSchema").put(s.item("KaldbSchema", 2) + 66, '\x09'); },
     at("KaldbSchema")},
    {"schema.fault", [](Sample& s) { s.top("KaldbSchema").put(s.item("KaldbSchema", 2) + 68, 103U); },
     at("KaldbSchema")},
};

TEST_F(CheckTest, SoundFilesHaveNoFinding)
{
    sound.image.write(path);
    const ::test::Answer answer = ::test::kaldb("check --strict --backup " + path);
    EXPECT_EQ(answer.exit, 0) << answer;
    EXPECT_EQ(std::count(answer.out.begin(), answer.out.end(), '\n'), 2) << answer;
    EXPECT_EQ(check()["findings"], json::array());
    EXPECT_EQ(check()["libraryErrors"], 0);
}

TEST_F(CheckTest, EveryPlantedFaultIsFoundOnItsPage)
{
    for (const Fault& fault : faults) {
        Sample sample = sound;
        fault.plant(sample);
        sample.image.write(path);
        const ::test::Answer answer = ::test::kaldb("check --json " + path);
        EXPECT_EQ(answer.exit, 1) << fault.code << answer;
        bool found = false;
        const json report = json::parse(answer.out);
        for (const json& finding : report["findings"].elements())
            found |= finding["code"] == fault.code && finding["severity"] == "error" &&
                     (!fault.page || finding["page"] == fault.page(sound));
        EXPECT_TRUE(found) << fault.code << answer;
    }
}

TEST_F(CheckTest, WarningsAndNotesAreNoDamage)
{
    const std::vector<Fault> doubts{
        {"header.dirty", [](Sample& s) { s.image.header.flags = fileDirty; }, {}},
        {"header.flags", [](Sample& s) { s.image.header.flags = 2; }, {}},
        {"header.name", [](Sample& s) { s.image.header.name[9] = 'x'; }, {}},
        {"page.flags", [](Sample& s) { s.top("People").put(16, 1U); }, {}},
        {"page.checksum", [](Sample& s) { s.top("People").put(24, 1U); }, {}},
        {"text.leaked", [](Sample& s) { s.leakPiece(); }, {}},
    };
    for (const Fault& doubt : doubts) {
        Sample sample = sound;
        doubt.plant(sample);
        sample.image.write(path);
        const json report = check();
        EXPECT_EQ(report["errors"], 0) << report;
        EXPECT_EQ(report["warnings"], 1) << report;
        EXPECT_EQ(report["findings"][0]["code"], doubt.code);
        EXPECT_EQ(::test::kaldb("check " + path).exit, 0);
        EXPECT_EQ(::test::kaldb("check --strict " + path).exit, 1);
    }

    Sample cut = sound;  // a page that is named by nobody any more
    const PageNumber lost = cut.image.addPage();
    cut.image.formatTree(lost, 104, {});
    cut.image.write(path);
    const json report = check(" --strict");
    EXPECT_EQ(report["notes"], 1);
    EXPECT_EQ(report["findings"][0]["code"], "page.unreachable");
    EXPECT_EQ(report["findings"][0]["page"], lost);
}

TEST_F(CheckTest, HostileFilesEndInAnExitCode)
{
    const std::string whole = sound.image.bytes();
    std::mt19937 random{7};
    const auto draw = [&](std::size_t below) {
        return std::uniform_int_distribution<std::size_t>{0, below - 1}(random);
    };
    for (int round = 0; round < 12; ++round) {
        std::string bytes = whole;
        for (int i = 0; i < 40; ++i) {
            // Half of the hits go to the headers and slots, where they hurt most.
            const std::size_t offset =
                draw(2) == 0 ? draw(bytes.size())
                             : pageOffset(static_cast<PageNumber>(draw(sound.image.pages.size()))) + draw(160);
            const unsigned char hostile[] = {0, 1, 0x7F, 0xFE, 0xFF, static_cast<unsigned char>(draw(256))};
            bytes[offset] = static_cast<char>(hostile[draw(6)]);
        }
        if (round % 6 == 5)
            bytes.resize(draw(bytes.size()));
        FileImage::writeBytes(path, bytes);
        for (const char* verb : {"check ", "info ", "tables --system ", "schema ", "pages ", "dump --dirty "}) {
            const ::test::Answer answer = ::test::kaldb(verb + path);
            ASSERT_LE(answer.exit, 4) << verb << round << answer;
        }
        ASSERT_LE(::test::kaldb("get --dirty " + path + " People 'person 050' --from a --id 3").exit, 4);
        for (const std::string& change : {"put " + path + " People '{\"name\":\"z\"}' --in-place",
                                          "del " + path + " People 'person 050'", "backup " + path + " --force"}) {
            const ::test::Answer answer = ::test::kaldb(change);
            ASSERT_LE(answer.exit, 5) << change << round << answer;
        }
    }
}

}  // namespace
