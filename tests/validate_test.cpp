// The validator: one file for every kind of damage, with the exact number of problems that it counts.

#include "kaldbvalidate/validate.h"
#include "support/faults.h"
#include "support/file_image.h"
#include "support/log_lines.h"
#include "support/temp_dir.h"

#include <kaldb/validate.h>

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace {

using namespace kaldb;
using namespace kaldb::test;
using Found = std::pair<std::uint32_t, std::uint32_t>;  // what the check returns, and the problems that it counts

class ValidateTest : public testing::Test {
protected:
    Found run(std::uint32_t (*check)(const char16_t*, std::uint32_t, std::uint32_t*)) const
    {
        std::uint32_t errors = 77;
        const std::uint32_t result = check(path.u16string().c_str(), 0, &errors);
        return {result, errors};
    }
    Found header() const { return run(kaldbValidateFile); }
    Found pages()
    {
        testing::internal::CaptureStdout();
        const Found found = run(kaldbValidatePages);
        listing = testing::internal::GetCapturedStdout();
        return found;
    }
    void put(const std::string& bytes) const { ::test::writeFile(path, bytes); }
    Found pagesOf(const std::string& bytes) { return put(bytes), pages(); }
    Found headerOf(const std::string& bytes) const { return put(bytes), header(); }
    ValidateResult result() const { return validateHeader(path.u16string().c_str()); }

    /// Page 0 with three records and the children 1 (before) and 2 (after), and a binary page 3.
    static FileImage soundFile()
    {
        FileImage image;
        image.addPage(noPage, 1, 2);
        image.addPage(0);
        image.addPage(0);
        image.addPage();
        image.formatTree(0, 100, {"d", "e", "f"});
        image.formatTree(1, 100, {"a"});
        image.formatTree(2, 100, {});
        image.formatBinary(3, 64, {"some text", "more"});
        return image;
    }

    ::test::TempDir directory;
    std::filesystem::path path = directory / "db";
    std::string listing;
    ::test::LogLines log;
};

TEST_F(ValidateTest, FilesThatCannotBeReadAsADatabase)
{
    EXPECT_EQ(header(), Found(0, 1));
    EXPECT_EQ(pages(), Found(0, 1));
    EXPECT_TRUE(result().absent);
    for (const std::size_t length : {0U, 50U, 91U}) {
        EXPECT_EQ(headerOf(std::string(length, 'x')), Found(1, 1)) << length;
        EXPECT_EQ(pages(), Found(1, 1)) << length;
        EXPECT_TRUE(result().tooShort && result().spoiled() && ok(result().status));
    }
    const ValidateResult folder = validateHeader(u"/tmp");
    EXPECT_TRUE(!folder.read && folder.errors == 1 && folder.status == Status::notAFile && !folder.spoiled());
    EXPECT_EQ(validateHeader(nullptr).status, Status::invalidArgument);
    EXPECT_EQ(log.of(KAL_LOG_ERROR), "");
}

TEST_F(ValidateTest, HeaderIsHeldAgainstTheFile)
{
    FileImage image = soundFile();
    EXPECT_EQ(headerOf(FileImage{}.bytes()), Found(1, 0)) << "a file of a header alone";
    EXPECT_EQ(headerOf(image.bytes()), Found(1, 0));
    EXPECT_TRUE(result().sound() && log.of(KAL_LOG_ERROR).empty());
    image.header.pagesInFile = 5;
    image.header.flags = fileDirty;
    EXPECT_EQ(headerOf(image.bytes()), Found(1, 2));
    const ValidateResult found = result();
    EXPECT_TRUE(found.dirty && found.sizeMismatch && !found.absent && !found.tooShort && !found.sound());
    image = soundFile();
    image.header.pageSize = 0;
    EXPECT_EQ(headerOf(image.bytes()), Found(1, 1));
    EXPECT_TRUE(result().sizeMismatch);
}

TEST_F(ValidateTest, SoundPagesAreListed)
{
    FileImage image = soundFile();
    image.header.flags = fileDirty;
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0)) << "the dirty mark is not looked at";
    std::string expected;
    for (const auto& [number, links] : {std::pair{"0", "-1\nPrevious = 1\nNext = 2"},
                                        {"1", "0\nPrevious = -1\nNext = -1"},
                                        {"2", "0\nPrevious = -1\nNext = -1"},
                                        {"3", "-1\nPrevious = -1\nNext = -1"}})
        expected += std::string{"\nValidating page "} + number + "\n========================\nPage = " + number +
                    "\nParent = " + links + "\n";
    EXPECT_EQ(listing, expected);
}

// Each change makes exactly one page malformed, by exactly one problem.
TEST_F(ValidateTest, MalformedPagesCountOnceEach)
{
    const auto tree = [](PageNumber page, auto change) {
        return [=](FileImage& image) { image[page].edit<KALBTreePage>(PageImage::typed, change); };
    };
    const auto slot = [](PageNumber page, std::size_t index, auto change) {
        return [=](FileImage& image) { image[page].edit<KALBTreeSlot>(PageImage::slot(index), change); };
    };
    const auto binary = [](auto change) {
        return [=](FileImage& image) { image[3].edit<KALDBBinaryPage>(PageImage::typed, change); };
    };
    const auto piece = [](std::size_t index, auto change) {
        return [=](FileImage& image) { image[3].edit<KALDBBinarySlot>(image.binarySlot(3, index), change); };
    };
    const std::pair<const char*, std::function<void(FileImage&)>> damages[] = {
        {"no type", tree(0, [](auto& h) { h.typeName[0] = 'X'; })},
        {"type without its NUL", tree(0, [](auto& h) { h.typeName[3] = 'X'; })},
        {"header length of the other type", tree(0, [](auto& h) { h.headerLength = 28; })},
        {"zeros", [](FileImage& image) { image[1].edit<KALBTreePage>(PageImage::typed, [](auto& h) { h = {}; }); }},
        {"more items than places", tree(0, [](auto& h) { h.count = h.maxCount + 1; })},
        {"count too low", tree(0, [](auto& h) { h.count = 2; })},
        {"count 0 with items", tree(0, [](auto& h) { h.count = 0; })},
        {"places beyond the page", tree(2, [](auto& h) { h.maxCount = 19; })},
        {"as many places as a number can say", tree(2, [](auto& h) { h.maxCount = 0xFFFFFFFF; })},
        {"no root", tree(0, [](auto& h) { h.root = noSlot; })},
        {"root beyond the slots", tree(0, [](auto& h) { h.root = 18; })},
        {"root below another", tree(0, [](auto& h) { h.root = 1; })},
        {"no smallest", tree(0, [](auto& h) { h.smallest = noSlot; })},
        {"largest with a greater child", tree(0, [](auto& h) { h.largest = 1; })},
        {"largest beyond the slots", tree(0, [](auto& h) { h.largest = 0xFFFE; })},
        {"root in an empty page", tree(2, [](auto& h) { h.root = 0; })},
        {"used slot in an empty page", slot(2, 17, [](auto& s) { s.flags = 0; })},
        {"linked slot in an empty page", slot(2, 17, [](auto& s) { s.parent = 0; })},
        {"linked free slot", slot(0, 9, [](auto& s) { s.next = 0; })},
        {"child beyond the slots", slot(0, 2, [](auto& s) { s.prev = 200; })},
        {"child that names another parent", slot(0, 2, [](auto& s) { s.parent = 0; })},
        {"prev child that names another parent", slot(0, 0, [](auto& s) { s.prev = 2; })},
        {"binary page of size 0", binary([](auto& h) { h.size = 0; })},
        {"binary page smaller than its header", binary([](auto& h) { h.size = 27; })},
        {"binary slots that do not fit their size", binary([](auto& h) { h.maxCount = 22; })},
        {"binary slots beyond the page", binary([](auto& h) {
             h.size = 0xFFFFFFFF;
             h.maxCount = (0xFFFFFFFF - 28) / 84;
         })},
        {"a slot size that wraps", binary([](auto& h) { h.slotDataSize = 0xFFFFFFFF; })},
        {"piece without length", piece(0, [](auto& s) { s.length = 0; })},
        {"piece without total size", piece(1, [](auto& s) { s.totalSize = 0; })},
        {"free piece with a length", piece(5, [](auto& s) { s.length = 1; })},
        {"free piece with a successor", piece(5, [](auto& s) { s.nextPage = 0; })},
        {"free piece with a successor's slot", piece(22, [](auto& s) { s.nextIndex = 0; })},
    };
    for (const auto& [name, damage] : damages) {
        FileImage image = soundFile();
        damage(image);
        EXPECT_EQ(pagesOf(image.bytes()), Found(1, 1)) << name;
        EXPECT_EQ(header(), Found(1, 0)) << name;
    }
    FileImage image = soundFile();
    image[2].edit<KALBTreeSlot>(PageImage::slot(17), [](auto& s) { s.flags = 2; });
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0)) << "a slot of an empty page may carry flag 2";
    tree(0, [](auto& h) { h.itemSize = 0xFFFFFFF8; })(image);
    image.formatBinary(3, 976, {"some text", "more"});
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0)) << "slots are held against the page, not what they hold";
}

TEST_F(ValidateTest, LinksOfChildrenCountOnceEach)
{
    const std::tuple<const char*, KALDBPageLinks, std::uint32_t> cases[] = {
        {"no such page", {0, noPage, 4, 2}, 1},
        {"a page without a parent", {0, noPage, 3, 2}, 1},
        {"two that are not there", {0, noPage, 0xFFFFFFFE, 0xFFFFFFFE}, 2},
        {"the child names another parent", {2, 1, noPage, noPage}, 1},
        {"the page's own parent is not looked at", {0, 900, 1, 2}, 0},
        {"a child that no page names", {0, noPage, noPage, 2}, 0},
    };
    for (const auto& [name, links, errors] : cases) {
        FileImage image = soundFile();
        image[links.page].put(PageImage::links, links);
        EXPECT_EQ(pagesOf(image.bytes()), Found(1, errors)) << name;
    }
}

TEST_F(ValidateTest, PagesThatTheFileDoesNotHoldCountOnceEachAndCostNothing)
{
    FileImage image = soundFile();
    image.header.pagesInFile = 0xFFFFFFFF;
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0xFFFFFFFF - 4));
    image[0].edit<KALBTreePage>(PageImage::typed, [](auto& h) { h.count = 0; });
    image[1].edit<KALDBPageLinks>(PageImage::links, [](auto& l) { l.prev = 0xFFFFFFF0; });
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0xFFFFFFFF - 3)) << "a link to a missing page is no second problem";
    image[3].edit<KALDBPageLinks>(PageImage::links, [](auto& l) { l.prev = l.next = 0; });
    image[2].edit<KALBTreePage>(PageImage::typed, [](auto& h) { h.count = 9; });
    EXPECT_EQ(pagesOf(image.bytes()), Found(1, 0xFFFFFFFF)) << "the count ends at its greatest value";

    const std::string bytes = soundFile().bytes();
    EXPECT_EQ(pagesOf(bytes.substr(0, bytes.size() - 1)), Found(1, 1)) << "a page that cannot be read whole";
    EXPECT_EQ(pagesOf(bytes.substr(0, pageOffset(1))), Found(1, 3)) << "pages 1 and 2 take no part in the link check";
    EXPECT_EQ(pagesOf(bytes + std::string(pageSize, 'x')), Found(1, 0)) << "one that the header does not count";
    EXPECT_EQ(header(), Found(1, 1));
}

TEST_F(ValidateTest, FailedAllocationsEndTheRun)
{
    put(soundFile().bytes());
    for (const auto& [call, text] :
         {std::pair{1U, ""}, {2U, "kaldbvalidate: dbCheckPages() Could not allocate memory for links\n"}}) {
        faults::failAt("kalMemAllocate", call, KAL_OUT_OF_MEMORY);
        EXPECT_EQ(pages(), Found(1, 1));
        EXPECT_EQ(log.of(KAL_LOG_ERROR), text);
    }
    faults::reset();
}

}  // namespace
