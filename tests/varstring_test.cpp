// Variable strings: where a text goes, and what is never taken for one.
#include "support/faults.h"
#include "support/values.h"

#include <cstring>

namespace {

using test::image;
using test::Text;

TEST(VarString, PlacementRuleForAllCapacitiesAndLengths)
{
    for (uint32_t capacity = 0; capacity <= 40; ++capacity)
        for (uint32_t length = 0; length <= 60; ++length) {
            SCOPED_TRACE(testing::Message() << length << " in " << capacity);
            Text text{capacity};
            const std::string before = image(text);
            const std::u16string wide(length, u'x');
            if (capacity <= length && capacity < 4) {
                ASSERT_EQ(text.set(wide), 19u) << "no room for a handle";
                ASSERT_EQ(kaldbVarStringCreate(capacity, &text.s, wide.c_str()), 19u);
                ASSERT_EQ(image(text), before);
                continue;
            }
            ASSERT_EQ(text.set(wide), 0u);
            ASSERT_EQ(text.s.length, length);
            ASSERT_EQ(text.isInline(), length < capacity);
            ASSERT_EQ(std::strlen(text.pointer()), length);
            ASSERT_EQ(text.get(length), u"[19]");
            ASSERT_EQ(text.get(length + 1), wide);
            ASSERT_EQ(faults::liveBlocks(), length < capacity ? 0u : 1u);

            Text copy{length % 2 == 0 ? 8u : 32u, u"a text that is replaced"};
            ASSERT_EQ(kaldbVarStringDup(&copy.s, &text.s), 0u);
            ASSERT_EQ(kaldbVarStringDup(&copy.s, &copy.s), 0u);
            ASSERT_EQ(copy.get(), wide);
            ASSERT_EQ(kaldbVarStringDelete(&text.s), 0u);
            ASSERT_TRUE(text.s.capacity == 0 && text.s.length == 0 && text.area == decltype(text.area){});
        }
    EXPECT_EQ(faults::liveBlocks(), 0u);
}

TEST(VarString, LengthCountsMultibyteBytesAndBuffersWideCharacters)
{
    struct Case {
        std::u16string text;
        uint32_t length;
    };
    for (const Case& c : {Case{u"é", 2}, Case{u"€uro", 6}, Case{u"\U0001F600!", 5}, Case{u"\U0010FFFF\uFFFD", 7}})
        for (uint32_t capacity : {4u, 6u, 7u, 8u}) {
            Text text{capacity, c.text};
            EXPECT_EQ(text.s.length, c.length);
            EXPECT_EQ(text.isInline(), c.length < capacity);
            EXPECT_EQ(text.get(static_cast<uint32_t>(c.text.size())), u"[19]");
            EXPECT_EQ(text.get(static_cast<uint32_t>(c.text.size()) + 1), c.text);
        }
    Text text{8, u"a text in a block"};
    for (const char16_t* broken : {u"\xD83D", u"\xDE00 is no text, however long"})
        EXPECT_EQ(text.set(broken), 24u);
    EXPECT_EQ(text.get(), u"a text in a block");
}

TEST(VarString, OnlyTextIsEverTakenForText)
{
    Text text{16};
    EXPECT_EQ(std::string(text.area.data(), 16), std::string(16, '\xDD'));
    EXPECT_EQ(text.area[16], '\0') << "behind the area";
    EXPECT_EQ(text.get(), u"") << "allocated, not set";
    text.set(u"short");
    EXPECT_EQ(kaldbVarStringSet(&text.s, nullptr), 0u);
    EXPECT_EQ(text.get(), u"");
    EXPECT_STREQ(text.pointer(), "short") << "nothing but the length changes";

    text.set(u"a text in a block");
    EXPECT_EQ(kaldbVarStringSet(&text.s, nullptr), 0u);
    EXPECT_STREQ(text.pointer(), "") << "a handle is no text";
    EXPECT_EQ(faults::liveBlocks(), 0u);

    text.area.fill('y');  // inline text without a terminator
    text.s.length = 15;
    EXPECT_EQ(text.get(), std::u16string(15, u'y'));
    Text other{16, std::u16string(15, u'y')};
    int32_t result = 1;
    EXPECT_EQ(kaldbVarStringCompare(&text.s, &other.s, &result), 0u);
    EXPECT_EQ(result, 0);
    text.s.length = 16;  // now it claims a block, of a handle 'yyyy'
    EXPECT_EQ(text.get(), u"[3]");
    EXPECT_EQ(text.pointer(), nullptr);
    EXPECT_EQ(kaldbVarStringDup(&other.s, &text.s), 3u);
    EXPECT_EQ(kaldbVarStringCompare(&other.s, &text.s, &result), 3u);
    text.s.length = UINT32_MAX;
    EXPECT_EQ(text.get(), u"[3]");
}

TEST(VarString, OnlyTheStringThatAllocatedABlockFreesIt)
{
    Text stale{8};
    {
        Text original{8, u"a text in a block"};
        Text copy = original;
        stale = original;
        EXPECT_EQ(copy.get(), u"a text in a block");
        EXPECT_EQ(copy.set(u"a copy gets a block of its own"), 0u);
        EXPECT_EQ(original.get(), u"a text in a block");
        copy = original;
        copy.s.length += 1;
        EXPECT_EQ(copy.get(), u"[3]") << "longer than the block";
        copy = original;
        EXPECT_EQ(faults::liveBlocks(), 2u) << "what `copy` owned was written over, and stays";
    }
    EXPECT_EQ(stale.get(), u"[3]");
    EXPECT_EQ(stale.set(u"short"), 0u);
    EXPECT_EQ(stale.get(), u"short");
    EXPECT_EQ(stale.set(u"a text in a block"), 0u);
    EXPECT_EQ(stale.set(u"another text in a block"), 0u);
    EXPECT_EQ(faults::liveBlocks(), 2u);
}

// Handles are counted: the bytes of an old record may name the very block that is allocated next.
TEST(VarString, AStaleHandleIsNotTakenForTheNewBlock)
{
    Text stale{8};
    {
        const Text latest{8, u"a text in a block"};
        stale = latest;
    }
    std::uint32_t handle = 0;
    std::memcpy(&handle, stale.area.data(), sizeof handle);
    ++handle;
    std::memcpy(stale.area.data(), &handle, sizeof handle);
    EXPECT_EQ(stale.set(u"the text of that block"), 0u);
    EXPECT_EQ(stale.get(), u"the text of that block");
}

TEST(VarString, Comparisons)
{
    struct Case {
        const char16_t* first;
        const char16_t* second;
        int order;
        int orderIgnoringCase;
    };
    for (const Case& c : {Case{u"abc", u"abc", 0, 0}, Case{u"abc", u"abd", -1, -1}, Case{u"abc", u"ab", 1, 1},
                          Case{u"ABC", u"abd", -1, -1}, Case{u"Zoë the longer", u"zoË THE LONGER", -1, 0},
                          Case{u"", u"", 0, 0}, Case{u"\U0001F600", u"\uFFFD", 1, 1}}) {
        const Text first{8, c.first}, second{8, c.second};
        int32_t result = 99;
        const auto sign = [&] { return (result > 0) - (result < 0); };
        EXPECT_EQ(kaldbVarStringCompare(&first.s, &second.s, &result), 0u);
        EXPECT_EQ(sign(), c.order);
        EXPECT_EQ(kaldbVarStringICompare(&first.s, &second.s, &result), 0u);
        EXPECT_EQ(sign(), c.orderIgnoringCase);
        EXPECT_EQ(kaldbVarStringIComparePSZ(&first.s, c.second, &result), 0u);
        EXPECT_EQ(sign(), c.orderIgnoringCase);
        EXPECT_EQ(kaldbVarStringIComparePSZ(&first.s, u"\xD83D", &result), 24u);
    }
}

TEST(VarString, OutOfMemoryLeavesTheOldText)
{
    Text text{8, u"a text in a block"}, other{8, u"another text in a block"};
    const std::string before = image(text);
    int32_t result = 0;
    const size_t blocks = faults::liveBlocks();
    faults::failAt("kalMemAllocate", 1, 1, true);
    EXPECT_EQ(text.set(u"a new text in a block"), 7u);
    EXPECT_EQ(kaldbVarStringDup(&text.s, &other.s), 7u);
    EXPECT_EQ(kaldbVarStringIComparePSZ(&text.s, u"text", &result), 7u);
    EXPECT_EQ(image(text), before);
    faults::reset();
    EXPECT_EQ(text.get(), u"a text in a block");
    EXPECT_EQ(faults::liveBlocks(), blocks);
}

}  // namespace
