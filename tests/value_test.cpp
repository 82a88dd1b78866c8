// Variants and variable strings in memory: where a value goes, text in and out, and who may read and free what. Also
// identifiers and the texts of field codes.
#include "support/faults.h"
#include "support/values.h"

#include <cstring>
#include <map>
#include <random>
#include <tuple>
#include <vector>

namespace {

using test::image;
using test::Text;
using test::Value;

std::string bytesOf(std::u16string_view text) { return {reinterpret_cast<const char*>(text.data()), 2 * text.size()}; }

TEST(Variant, TextComesBackInTheFormOfItsType)
{
    struct Case {
        uint32_t type;
        const void* string;
        uint32_t size;  // as it is kept: type 17 in multibyte form
        std::string bytes;
    };
    const auto wide = [](std::u16string_view text) { return bytesOf({text.data(), text.size() + 1}); };
    for (const Case& c : std::initializer_list<Case>{{16, "abc", 4, {"abc", 4}},
                                                     {18, u"abc", 8, wide(u"abc")},
                                                     {20, u"abc", 8, wide(u"abc")},
                                                     {17, u"", 1, wide(u"")},
                                                     {17, u"seven..", 8, wide(u"seven..")},
                                                     {17, u"é", 3, wide(u"é")},
                                                     {17, u"a€b", 6, wide(u"a€b")},
                                                     {17, u"\U0001F600", 5, wide(u"\U0001F600")},
                                                     {17, u"\U0010FFFF, \uFFFD", 10, wide(u"\U0010FFFF, \uFFFD")},
                                                     {19, "abc", 0, ""},  // these take no string
                                                     {5, "abc", 0, ""},
                                                     {17, nullptr, 0, ""}})
        for (const uint32_t inlineSize : {0u, 5u, 6u, 8u, 32u}) {
            Value value{inlineSize};
            EXPECT_EQ(kaldbVariantSetString(&value.v, c.type, c.string), 0u);
            EXPECT_TRUE(value.v.type == c.type && value.v.size == c.size && value.v.isNull == (c.size == 0)) << c.type;
            EXPECT_EQ(value.isInline(), c.size > 0 && c.size < inlineSize);
            const auto room = static_cast<uint32_t>(c.bytes.size());
            EXPECT_EQ(value.get(room), c.bytes) << "a buffer of exactly what the value needs";
            EXPECT_TRUE(room == 0 || value.get(room - 1) == "[19]");
            for (uint32_t given : {0u, room})
                EXPECT_EQ(kaldbVariantGetData(&value.v, nullptr, &given), room == 0 ? 0u : given == 0 ? 19u : 4u);
        }
    for (const char16_t* broken : {u"\xD83D", u"long enough for a block \xD83D!", u"\xDE00\xD83D"}) {
        Value value{"a value in a block"};
        EXPECT_EQ(kaldbVariantSet(&value.v, KALDB_VT_WSTRING, broken, 0), 24u);
        EXPECT_TRUE(value.v.isNull == 1 && value.v.size == 0 && value.pointer() == nullptr);
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }
    EXPECT_EQ(Value("\xC3", KALDB_VT_WSTRING).get(), "[24]");
}

TEST(Variant, FixedSizesAndRefusals)
{
    constexpr uint32_t sizes[] = {0, 16, 4, 1, 2, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    const std::string bytes = "0123456789abcdef";
    for (uint32_t type = 0; type < std::size(sizes); ++type) {
        Value value{"a value in a block"};
        EXPECT_EQ(kaldbVariantSet(&value.v, type, bytes.data(), 999), 0u);
        EXPECT_EQ(faults::liveBlocks(), 0u);
        EXPECT_EQ(value.get(), bytes.substr(0, sizes[type]));
        EXPECT_EQ(value.pointer(), value.v.value);
        EXPECT_EQ(kaldbVariantAllocate(&value.v), 6u);
        EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, type, nullptr), 0u);
        EXPECT_TRUE(value.v.type == type && value.v.isNull == 1 && value.v.size == 0);
    }
    Value value{"a value in a block"};
    const KALDBID id{0xFFFF, 1, 2, 77};
    KALDBID back{};
    EXPECT_EQ(kaldbVariantSetID(&value.v, &id), 0u);
    EXPECT_EQ(kaldbVariantGetID(&value.v, &back), 0u);
    EXPECT_TRUE(back.tag == 0xFFFF && back.sequence == 77 && value.v.size == 16 && faults::liveBlocks() == 0);

    value.set("another value in a block");
    const std::string before = image(value);
    for (const uint32_t type : {0u, 14u, 22u, UINT32_MAX})
        EXPECT_EQ(value.set(bytes, type), 20u) << "of no type, or fixed";
    for (uint32_t type = 15; type <= 22; ++type)
        EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, type, bytes.data()), 20u);
    EXPECT_EQ(image(value), before);
    const char* own = static_cast<const char*>(value.v.data);
    EXPECT_EQ(kaldbVariantSetBinary(&value.v, 21, own + 3, 18), 0u) << "new bytes may come from the variant itself";
    EXPECT_EQ(value.get(), "ther value in a bl");
    EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, 2, value.v.data), 0u);
    EXPECT_EQ(value.get(), "ther");
}

TEST(VarString, OnlyTextIsEverTakenForText)
{
    Text text{16};
    EXPECT_EQ(kaldbVarStringCopy(&text.s, nullptr, 0), 19u);
    EXPECT_EQ(std::string(text.area.data(), 17), std::string(16, '\xDD') + '\0') << "nothing behind the area";
    EXPECT_EQ(text.get(), u"") << "allocated, not set";
    for (const auto& [earlier, left] : {std::pair{u"short", "short"}, {u"a text in a block", ""}}) {
        text.set(earlier);
        text.clear();
        EXPECT_EQ(text.get(), u"");
        EXPECT_STREQ(text.pointer(), left) << "but for a handle nothing changes but the length";
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }
    text.area.fill('y');  // inline text without a terminator
    text.s.length = 15;
    EXPECT_EQ(text.get(), std::u16string(15, u'y'));
    Text other{16, std::u16string(15, u'y')};
    int32_t result = 1;
    EXPECT_EQ(kaldbVarStringCompare(&text.s, &other.s, &result), 0u);
    EXPECT_EQ(result, 0);
    text.s.length = UINT32_MAX;  // now it claims a block, of a handle 'yyyy'
    EXPECT_TRUE(text.pointer() == nullptr && kaldbVarStringDup(&other.s, &text.s) == 3);
}

TEST(VarString, WhatCannotBeSetLeavesTheOldText)
{
    for (const auto& [wide, length] : {std::pair{u"\U0001F600!", 5u}, {u"a text in a block, €", 22u}})
        for (const uint32_t capacity : {3u, 4u, 8u, 40u}) {
            const Text source{8, wide};
            Text text{capacity}, taken{capacity};
            const std::string before = image(text);
            const bool fits = capacity >= 4;  // room for a handle
            EXPECT_EQ(text.set(wide), fits ? 0u : 19u);
            EXPECT_EQ(kaldbVarStringDup(&taken.s, &source.s), fits ? 0u : 19u);
            EXPECT_TRUE(fits ? text.get() == wide && taken.get() == wide : image(text) == before);
            EXPECT_EQ(text.s.length, fits ? length : 0);
            EXPECT_EQ(kaldbVarStringDup(&text.s, &text.s), 0u);
            for (const char16_t* broken : {u"\xD83D", u"\xDE00 is no text, however long"})
                EXPECT_EQ(text.set(broken), 24u);
            EXPECT_EQ(text.get(), fits ? wide : u"");
        }
}

TEST(VarString, Comparisons)
{
    const std::tuple<const char16_t*, const char16_t*, int, int> cases[] = {
        // the order, and without regard to case
        {u"abc", u"abc", 0, 0},
        {u"abc", u"abd", -1, -1},
        {u"abc", u"ab", 1, 1},
        {u"ABC", u"abd", -1, -1},
        {u"Zoë the longer", u"zoË THE LONGER", -1, 0},
        {u"", u"", 0, 0},
        {u"\U0001F600", u"\uFFFD", 1, 1}};
    for (const auto& [left, right, order, orderIgnoringCase] : cases) {
        const Text first{8, left}, second{8, right};
        int32_t result = 99;
        const auto sign = [&](uint32_t status) { return status == 0 ? (result > 0) - (result < 0) : 9; };
        EXPECT_EQ(sign(kaldbVarStringCompare(&first.s, &second.s, &result)), order);
        EXPECT_EQ(sign(kaldbVarStringICompare(&first.s, &second.s, &result)), orderIgnoringCase);
        EXPECT_EQ(sign(kaldbVarStringIComparePSZ(&first.s, right, &result)), orderIgnoringCase);
        EXPECT_EQ(kaldbVarStringIComparePSZ(&first.s, u"\xD83D", &result), 24u);
    }
}

template <class Kind>
class Owners : public testing::Test {
protected:
    static uint32_t handleOf(Kind& value)
    {
        uint32_t handle = 0;
        std::memcpy(&handle, value.handle(), sizeof handle);
        return handle;
    }
};
TYPED_TEST_SUITE(Owners, test::ValueKinds, );

// Values that are set, emptied, copied as bytes, and given wrong handles and sizes, beside a map of the blocks that are
// alive: what does not fit a structure goes into one, whatever names it reads it, and none but the structure that
// allocated it frees it.
TYPED_TEST(Owners, FreeTheirBlocksAndNobodyElses)
{
    struct Block {
        size_t owner;
        std::string content;
        TypeParam bytes;  // the owner's, when it named the block
    };
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 engine(seed);
    const auto draw = [&](size_t below) { return static_cast<unsigned>(engine() % below); };
    std::map<uint32_t, Block> live;  // by handle
    std::vector<TypeParam> values;
    for (uint32_t i = 0; i < 200; ++i)
        values.emplace_back(4 + i % 60);
    std::vector<std::string> inlined(values.size());
    const auto named = [&](size_t i) {
        const auto found = values[i].takesBlock() ? live.find(this->handleOf(values[i])) : live.end();
        return found != live.end() && values[i].pointsTo(found->second.bytes) ? found : live.end();
    };
    const auto release = [&](size_t i) {
        if (const auto block = named(i); block != live.end() && block->second.owner == i)
            live.erase(block);
    };
    const auto expected = [&](size_t i) -> std::string {
        const auto block = named(i);
        const size_t size = values[i].size();
        if (!values[i].takesBlock())
            return inlined[i];
        return block != live.end() && block->second.content.size() >= size ? block->second.content.substr(0, size)
                                                                           : "[3]";
    };
    uint32_t latest = 0;
    for (unsigned step = 0, emptying = 4; step < 20000; ++step) {
        emptying = step % 2000 == 0 ? 1 + draw(10) : emptying;
        const size_t i = draw(values.size()), j = draw(values.size());
        const unsigned dice = draw(24);
        if (dice < emptying) {
            release(i);
            values[i].clear();
            inlined[i].clear();
        } else if (dice == 20) {
            values[i] = values[j];
            inlined[i] = inlined[j];
        } else if (dice == 21 && !live.empty()) {
            const Block& block = std::next(live.begin(), draw(live.size()))->second;
            values[block.owner] = block.bytes;
        } else if (dice == 22 && values[i].takesBlock()) {
            std::memcpy(values[i].handle(), values[j].handle(), sizeof latest);
        } else if (dice == 23 && values[i].takesBlock()) {
            ++values[i].size();
        } else if (dice < 20) {
            if (const uint32_t next = latest + 1; dice == 19 && values[i].takesBlock())
                std::memcpy(values[i].handle(), &next, sizeof next);  // as an old record may: the block that comes next
            release(i);
            const std::string& bytes = inlined[i] = std::string(1 + draw(70), static_cast<char>('a' + draw(26)));
            values[i].assign(bytes);
            ASSERT_TRUE(values[i].size() == bytes.size() && values[i].isInline() != values[i].takesBlock());
            ASSERT_EQ(values[i].content(static_cast<uint32_t>(bytes.size()) - 1), "[19]");
            if (values[i].takesBlock()) {
                latest = this->handleOf(values[i]);
                ASSERT_TRUE(live.emplace(latest, Block{i, inlined[i], values[i]}).second);
            }
        }
        ASSERT_LE(faults::liveBlocks() - live.size(), 1u) << "and many have a register";
        for (const size_t looked : {i, j})
            ASSERT_EQ(values[looked].content(), expected(looked));
    }
    while (!live.empty()) {  // those that nobody names any more, too
        const Block& block = live.begin()->second;
        values[block.owner] = block.bytes;
        values[block.owner].clear();
        live.erase(live.begin());
    }
    EXPECT_EQ(faults::liveBlocks(), 0u);
}

TEST(Identifiers, OrderBySequenceAndEqualByTagAndSequence)
{
    KALDBID zero;
    EXPECT_EQ(kaldbIDZero(&zero), 0U);
    KALDBID counter = zero, copy{1, 2, 3, 4};
    EXPECT_EQ(kaldbIDIncrement(&counter), 0U);
    EXPECT_EQ(counter.spare, 0xFFFF);
    EXPECT_EQ(kaldbIDCopy(&copy, &zero), 0U);
    EXPECT_EQ(std::tuple(copy.spare, copy.alignment, copy.sequence), std::tuple(2, 3U, UINT64_MAX));
    const KALDBID first{0xFFFF, 0xFFFF, 0, 0}, other{1, 0xFFFF, 0, 0};
    const std::tuple<const KALDBID&, const KALDBID&, int, unsigned> pairs[] = {
        {zero, first, 1, 0}, {first, zero, -1, 0}, {first, other, 0, 0}, {counter, first, 0, 1}};
    for (const auto& [left, right, expectedOrder, expectedSame] : pairs) {
        std::int32_t order = 7;
        std::uint32_t same = 7;
        EXPECT_EQ(kaldbIDCompare(&left, &right, &order) + kaldbIDIsEqual(&left, &right, &same), 0U);
        EXPECT_TRUE(order == expectedOrder && same == expectedSame) << order << " " << same;
    }
}

TEST(FieldErrors, HaveTextsAndNothingElseHas)
{
    for (const auto& [text, codes] :
         std::map<std::u16string, std::vector<uint32_t>>{{u"Success", {KALDB_FIELD_SUCCESS}},
                                                         {u"Invalid field value", {KALDB_FIELD_INVALID_VALUE}},
                                                         {u"Field required", {0x02FF0003}},
                                                         {u"Unknown", {0x0200000A, 0x0200FFFF, 16, 0x03000001}}})
        for (const uint32_t code : codes)
            EXPECT_EQ(kaldbGetErrorString(code), text) << code;
}

}  // namespace
