// The binary page: random operations against a model, the bytes, and pages whose bytes lie.

#include "kaldbbinarypage/binary_view.h"
#include "kaldbbinarypage/layout.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace kaldb;
using namespace std::literals;

/// Evenly spread numbers below a limit, the same in every run.
class Random {
public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t operator()(std::size_t limit) { return static_cast<uint32_t>(engine_() % limit); }

private:
    std::mt19937 engine_;
};

/// A page in a block that ends where its slots end, so that the sanitizer sees a step too far.
class BinaryPage {
public:
    BinaryPage(uint32_t slotDataSize, uint32_t slots)
        : bytes(28 + slots * (slotDataSize + 20), std::byte{0xEE}), size_(static_cast<uint32_t>(bytes.size()))
    {
        EXPECT_EQ(kaldbBinaryPageFormat(page(), size_, slotDataSize), KALDB_SUCCESS);
    }
    KALDBBinaryPage* page() { return static_cast<KALDBBinaryPage*>(static_cast<void*>(bytes.data())); }

    std::vector<std::byte> bytes;

private:
    uint32_t size_;
};

KALDBBinaryRecord piece(std::string& data, uint32_t totalSize, uint32_t nextPage, uint16_t nextIndex)
{
    return {data.data(), totalSize, static_cast<uint32_t>(data.size()), nextPage, nextIndex};
}

/// The pieces by slot. Each says that it goes on at page 5 times its slot, slot 9.
using Model = std::map<SlotIndex, std::string>;

void expectMatches(BinaryPage& page, const Model& model, uint32_t slots)
{
    uint32_t count = 0;
    uint32_t full = 7;
    ASSERT_EQ(kaldbBinaryPageGetCount(page.page(), &count), KALDB_SUCCESS);
    ASSERT_EQ(kaldbBinaryPageIsFull(page.page(), &full), KALDB_SUCCESS);
    ASSERT_EQ(count, model.size());
    ASSERT_EQ(full, model.size() == slots);
    for (SlotIndex i = 0; i < slots; ++i) {
        const auto found = model.find(i);
        const bool used = found != model.end();
        KALDBBinaryRecord record{};
        ASSERT_EQ(kaldbBinaryPageGetItem(page.page(), i, &record), KALDB_SUCCESS);
        ASSERT_EQ(BinaryView{page.page()}.slotInUse(i), used);
        ASSERT_EQ(std::string(static_cast<char*>(record.data), record.length), used ? found->second : "");
        ASSERT_EQ(record.totalSize, used ? 1000 + record.length : 0);
        ASSERT_EQ(record.nextPage, used ? i * 5u : noPage);
        ASSERT_EQ(record.nextIndex, used ? 9 : noSlot);
    }
}

TEST(BinaryPageModel, RandomOperations)
{
    for (const auto& [slotDataSize, slots] : {std::pair{64u, 23u}, {13u, 7u}, {0u, 2u}, {16u, 0u}}) {
        SCOPED_TRACE(slotDataSize);
        Random random{slotDataSize};
        BinaryPage page{slotDataSize, slots};
        Model model;
        for (uint32_t step = 0; step < 1000; ++step) {
            SCOPED_TRACE(step);
            std::string data(random(slotDataSize + 2), static_cast<char>('a' + step % 26));
            const bool tooLong = data.size() > slotDataSize;
            const unsigned choice = random(3);
            auto index = static_cast<SlotIndex>(choice == 0 ? 0 : random(slots + 1));
            while (choice == 0 && model.contains(index))
                ++index;  // the lowest free slot
            const SlotIndex slot = index;
            const uint32_t none = choice == 0 ? KALDB_NO_FREE_SLOT : KALDB_NOT_FOUND;
            KALDBBinaryRecord record = piece(data, 1000 + static_cast<uint32_t>(data.size()), slot * 5u, 9);
            if (choice == 2 || (choice == 1 && index < slots && !model.contains(index))) {
                ASSERT_EQ(kaldbBinaryPageDeleteItem(page.page(), index),
                          model.erase(index) != 0 ? KALDB_SUCCESS : KALDB_NOT_FOUND);
            } else {
                const uint32_t status = choice == 0 ? kaldbBinaryPageInsertItem(page.page(), &record, &index)
                                                    : kaldbBinaryPageUpdateItem(page.page(), index, &record);
                if (tooLong || slot == slots) {
                    ASSERT_TRUE((tooLong && status == KALDB_BUFFER_TOO_SMALL) || (slot == slots && status == none));
                } else {
                    ASSERT_EQ(status, KALDB_SUCCESS);
                    ASSERT_EQ(index, slot);
                    model[slot] = data;
                }
            }
            ASSERT_NO_FATAL_FAILURE(expectMatches(page, model, slots));
        }
    }
}

TEST(BinaryPageFormat, CountsBytesAndRefusals)
{
    for (const auto& [slotDataSize, slots] : {std::pair{64u, 23u}, {120u, 14u}, {256u, 7u}, {1973u, 0u}})
        EXPECT_EQ(binaryCapacity(2020, slotDataSize), slots);
    BinaryPage page{3, 2};
    std::string data = "ab";
    KALDBBinaryRecord record = piece(data, 0x0102, 6, 7);
    SlotIndex index = 9;
    ASSERT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index), KALDB_SUCCESS);
    constexpr auto expected =
        "\x1C\0\0\0BPG\0\x4A\0\0\0\x03\0\0\0\x02\0\0\0"             // header length, type, size, slot data, slots
        "\x01\0\0\0\xFF\xFF\xEE\xEE"                                // count, reserved, unused
        "\x01\0\0\0\x02\x01\0\0\x02\0\0\0\x06\0\0\0\x07\0\xEE\xEE"  // slot 0
        "\x61\x62\xEE"                                              // its data
        "\0\0\0\0\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xEE\xEE"  // slot 1: free
        "\xEE\xEE\xEE"sv;
    const auto bytes = [&] { return std::string_view(reinterpret_cast<char*>(page.bytes.data()), page.bytes.size()); };
    EXPECT_EQ(bytes(), expected);
    EXPECT_EQ(kaldbBinaryPageFormat(page.page(), 27, 0), KALDB_BUFFER_TOO_SMALL);
    EXPECT_EQ(kaldbBinaryPageFormat(nullptr, 100, 0), KALDB_INVALID_ARGUMENT);
    record.data = nullptr;
    EXPECT_EQ(kaldbBinaryPageUpdateItem(page.page(), 0, &record), KALDB_INVALID_ARGUMENT);
    EXPECT_EQ(bytes(), expected) << "a refused operation changed the page";
}

TEST(BinaryPageDamage, LyingBytesAreRefused)
{
    BinaryPage page{16, 4};
    std::string data = "data";
    KALDBBinaryRecord record = piece(data, 4, noPage, noSlot);
    SlotIndex index = 0;
    ASSERT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index), KALDB_SUCCESS);
    BinaryView view;
    ASSERT_EQ(BinaryView::open(page.bytes, 16, view), Status::success);
    EXPECT_EQ(BinaryView::open(page.bytes, 17, view), Status::failure);
    EXPECT_EQ(BinaryView::open(std::span{page.bytes}.first(page.bytes.size() - 1), 16, view), Status::failure);
    EXPECT_EQ(BinaryView::open(std::span{page.bytes}.first(27), 16, view), Status::failure);
    for (std::size_t offset = 0; offset < 24; offset += 2) {
        const auto old = readField<uint16_t>(page.bytes.data(), offset);
        writeField(page.bytes.data(), offset, uint16_t{0xFFF0});
        EXPECT_EQ(BinaryView::open(page.bytes, 16, view), Status::failure) << offset;
        writeField(page.bytes.data(), offset, old);
    }
    // A stored length beyond the slot would take a reader out of the page.
    writeField(page.bytes.data(), 28 + offsetof(KALDBBinarySlot, length), 17u);
    EXPECT_EQ(kaldbBinaryPageGetItem(page.page(), 0, &record), KALDB_FAILURE);
    page.page()->count = 0;
    EXPECT_EQ(kaldbBinaryPageDeleteItem(page.page(), 0), KALDB_FAILURE);
    // All slots taken, whatever the count says.
    for (std::size_t i = 0; i < 4; ++i)
        writeField(page.bytes.data(), 28 + i * 36, 1u);
    record = piece(data, 4, noPage, noSlot);
    EXPECT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index), KALDB_NO_FREE_SLOT);
}

}  // namespace
