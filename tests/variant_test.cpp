// Variants: where a value goes, text in and out, and who may free what.
#include "support/faults.h"
#include "support/values.h"

#include <map>
#include <random>
#include <vector>

namespace {

using test::image;
using test::Value;

std::string bytesOf(std::u16string_view text) { return {reinterpret_cast<const char*>(text.data()), 2 * text.size()}; }

TEST(Variant, PlacementRuleForAllVariableTypesAndSizes)
{
    for (uint32_t type = 15; type <= 21; ++type)
        for (uint32_t inlineSize = 0; inlineSize <= 64; inlineSize += type == 21 ? 1 : 8)
            for (uint32_t size = 0; size <= 300; ++size) {
                SCOPED_TRACE(testing::Message() << type << ": " << size << " in " << inlineSize);
                Value value{inlineSize};
                const std::string bytes = test::pattern(size);
                ASSERT_EQ(value.set(bytes, type), 0u);
                ASSERT_EQ(value.v.isNull, size == 0 ? 1u : 0u);
                ASSERT_EQ(value.v.size, size);
                ASSERT_EQ(faults::liveBlocks(), size > 0 && size >= inlineSize ? 1u : 0u);
                ASSERT_EQ(value.isInline(), size > 0 && size < inlineSize);
                ASSERT_EQ(value.get(), type == 17 ? bytesOf(test::widened(bytes)) : bytes);
                if (size > 0) {
                    ASSERT_EQ(value.get(size - 1), "[19]");
                }
                ASSERT_EQ(kaldbVariantEmpty(&value.v), 0u);
                ASSERT_TRUE(value.v.isNull == 1 && value.v.size == 0 && value.pointer() == nullptr);
                ASSERT_EQ(faults::liveBlocks(), 0u);
            }
}

TEST(Variant, StringsTakeTheSizeOfTheirForm)
{
    struct Case {
        uint32_t type;
        const void* string;
        uint32_t size;
        std::string bytes;
    };
    for (const Case& c : {Case{16, "abc", 4, {"abc", 4}}, Case{17, u"abc", 4, bytesOf({u"abc", 4})},
                          Case{18, u"abc", 8, bytesOf({u"abc", 4})}, Case{20, u"abc", 8, bytesOf({u"abc", 4})},
                          Case{19, "abc", 0, ""}, Case{5, "abc", 0, ""}, Case{17, nullptr, 0, ""}}) {
        Value value{8};
        EXPECT_EQ(kaldbVariantSetString(&value.v, c.type, c.string), 0u);
        EXPECT_EQ(value.v.type, c.type);
        EXPECT_EQ(value.v.size, c.size);
        EXPECT_EQ(value.v.isNull, c.size == 0 ? 1u : 0u);
        EXPECT_EQ(value.get(), c.bytes) << c.type;
    }
}

TEST(Variant, WideTextIsKeptAsMultibyteWithoutLoss)
{
    struct Case {
        std::u16string text;
        uint32_t size;
    };
    for (const Case& c : {Case{u"", 1}, Case{u"seven..", 8}, Case{u"é", 3}, Case{u"€uro", 7}, Case{u"a€b", 6},
                          Case{u"\U0001F600", 5}, Case{u"\U0010FFFF and \uFFFD", 13}})
        for (uint32_t inlineSize : {0u, 5u, 6u, 8u, 32u}) {
            Value value{inlineSize};
            EXPECT_EQ(kaldbVariantSet(&value.v, KALDB_VT_WSTRING, c.text.c_str(), 0), 0u);
            EXPECT_EQ(value.v.size, c.size);
            EXPECT_EQ(value.isInline(), c.size < inlineSize);
            const std::string wide = bytesOf({c.text.c_str(), c.text.size() + 1});
            const auto needed = static_cast<uint32_t>(wide.size());
            EXPECT_EQ(value.get(needed), wide) << "a buffer of exactly what the text needs";
            EXPECT_EQ(value.get(needed - 1), "[19]");
        }
    for (const char16_t* broken : {u"\xD83D", u"long enough for a block \xD83D!", u"\xDE00\xD83D"}) {
        Value value{"a value in a block"};
        EXPECT_EQ(kaldbVariantSetString(&value.v, KALDB_VT_WSTRING, broken), 24u);
        EXPECT_TRUE(value.v.isNull == 1 && value.v.size == 0 && value.pointer() == nullptr);
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }
    Value value{8};
    EXPECT_EQ(value.set("\xC3", KALDB_VT_WSTRING), 0u);
    EXPECT_EQ(value.get(), "[24]");
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
    EXPECT_EQ(faults::liveBlocks(), 0u);
    EXPECT_EQ(kaldbVariantGetID(&value.v, &back), 0u);
    EXPECT_TRUE(back.tag == 0xFFFF && back.sequence == 77 && value.v.size == 16);

    value.set("another value in a block");
    const std::string before = image(value);
    for (uint32_t type : {22u, 23u, UINT32_MAX}) {
        EXPECT_EQ(kaldbVariantSet(&value.v, type, bytes.data(), 4), 20u);
        EXPECT_EQ(kaldbVariantSetString(&value.v, type, bytes.data()), 20u);
        EXPECT_EQ(kaldbVariantSetBinary(&value.v, type, bytes.data(), 4), 20u);
        EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, type, bytes.data()), 20u);
    }
    for (uint32_t type = 15; type <= 21; ++type)
        EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, type, bytes.data()), 20u);
    EXPECT_EQ(kaldbVariantSetBinary(&value.v, 2, bytes.data(), 4), 20u) << "a fixed value cannot hold caller's bytes";
    EXPECT_EQ(kaldbVariantSetBinary(&value.v, 21, nullptr, 4), 4u);
    EXPECT_EQ(image(value), before);
}

TEST(Variant, OnlyTheStructureThatAllocatedABlockFreesIt)
{
    const std::string text = "a value in a block";
    Value stale{8};
    {
        Value original{text};
        Value copy = original;
        stale = original;
        EXPECT_EQ(copy.get(), text) << "a copy reads the original's block";
        EXPECT_EQ(kaldbVariantEmpty(&copy.v), 0u);
        copy = original;
        EXPECT_EQ(copy.set("a copy gets a block of its own"), 0u);
        EXPECT_EQ(original.get(), text);
        kaldbVariantEmpty(&copy.v);

        // A pointer that names a live block, without the right to it; and one with a size that the block has not.
        Value forged{"a value in a block"};
        kaldbVariantEmpty(&forged.v);
        forged.v.size = 10;
        forged.v.data = original.v.data;
        EXPECT_EQ(forged.get(), "[3]");
        copy = original;
        copy.v.size = original.v.size + 1;
        EXPECT_EQ(copy.get(), "[3]");
        EXPECT_EQ(copy.pointer(), nullptr);
        copy = original;
        copy.v.data = &copy;
        EXPECT_EQ(copy.get(), "[3]") << "the right handle with the wrong pointer";

        Value inlineValue{"inline"};
        copy = inlineValue;
        inlineValue.set("other");
        EXPECT_EQ(copy.get(), "inline") << "found from the copy's own address, not through its pointer";
    }
    EXPECT_EQ(stale.get(), "[3]");
    EXPECT_EQ(stale.pointer(), nullptr);
    EXPECT_EQ(stale.set("new"), 0u);

    // The bytes of a record read back over the variant that wrote them: its own block again, or one long gone.
    Value value{text};
    const Value first = value;
    value = first;
    EXPECT_EQ(value.set("the second block"), 0u);
    EXPECT_EQ(faults::liveBlocks(), 1u);
    kaldbVariantEmpty(&value.v);
    value = first;
    EXPECT_EQ(value.get(), "[3]");
    EXPECT_EQ(kaldbVariantEmpty(&value.v), 0u);
}

TEST(Variant, NewBytesMayComeFromTheVariantItself)
{
    Value value{"0123456789"};
    EXPECT_EQ(kaldbVariantSetBinary(&value.v, 21, static_cast<const char*>(value.v.data) + 2, 8), 0u);
    EXPECT_EQ(value.get(), "23456789");
    EXPECT_EQ(kaldbVariantSetBinary(&value.v, 21, static_cast<const char*>(value.v.data) + 1, 5), 0u);
    EXPECT_EQ(value.get(), "34567");
    EXPECT_EQ(kaldbVariantSetPrimitive(&value.v, 2, value.v.data), 0u);
    EXPECT_EQ(value.get(), "3456");
}

TEST(Variant, OutOfMemoryLeavesANullValueOrTheOldOne)
{
    const auto each = [](auto&& operation) {
        Value value{"a value in a block"};
        faults::failAt("kalMemAllocate", 1, 1);
        EXPECT_EQ(operation(value), 7u);
        EXPECT_TRUE(faults::struck());
        return value.v.isNull == 1 ? "null" : value.get();
    };
    EXPECT_EQ(each([](Value& value) { return value.set("too long for the structure"); }), "null");
    EXPECT_EQ(each([](Value& value) { return kaldbVariantSet(&value.v, 17, u"wide text", 0); }), "null");
    EXPECT_EQ(each([](Value& value) { return kaldbVariantAllocate(&value.v); }), "a value in a block");
    EXPECT_EQ(faults::liveBlocks(), 0u);
}

// Enough live blocks to make their register grow, shrink and close gaps many times.
TEST(Variant, ManyValuesAgainstAModel)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 engine(seed);
    const auto random = [&] { return static_cast<unsigned>(engine()); };
    std::vector<Value> values(600, Value{8});
    std::map<size_t, std::string> model;
    for (unsigned step = 0, emptying = 4; step < 30000; ++step) {
        if (step % 2000 == 0)
            emptying = 1 + random() % 10;
        const size_t i = random() % values.size();
        if (random() % 10 < emptying) {
            kaldbVariantEmpty(&values[i].v);
            model.erase(i);
        } else {
            model[i] = std::string(1 + random() % 30, static_cast<char>(random()));
            ASSERT_EQ(values[i].set(model[i]), 0u);
        }
        const size_t looked = random() % values.size();
        ASSERT_EQ(values[looked].get(), model.count(looked) != 0 ? model[looked] : "");
    }
    for (Value& value : values)
        kaldbVariantEmpty(&value.v);
    EXPECT_EQ(faults::liveBlocks(), 0u);
}

}  // namespace
