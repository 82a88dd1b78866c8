// The B-tree page and the binary page: random operations against models, the bytes, and pages whose bytes lie.

#include "kalbtree/btree_view.h"
#include "kaldbbinarypage/binary_view.h"
#include "kaldbbinarypage/layout.h"
#include "kaldbvalidate/internal.h"
#include "support/log_lines.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace {

using namespace kaldb;
using namespace std::literals;
using Key = std::uint32_t;
using Bytes = std::vector<std::byte>;

// Of the enumerator made last.
KALEnumeratorCallbacks callbacks{};
void* userData = nullptr;
bool refuseEnumerators = false;

}  // namespace

// This one stands before the support library's.
extern "C" uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* table, void* data, KALEnumerator** enumerator)
{
    if (refuseEnumerators)
        return KALDB_TOO_MANY_FILES;
    callbacks = *table;
    userData = data;
    void* const next = dlsym(RTLD_NEXT, "kalEnumeratorCreate");
    return reinterpret_cast<decltype(&kalEnumeratorCreate)>(next)(table, data, enumerator);
}

namespace {

/// Evenly spread numbers below a limit, the same in every run.
struct Random {
    uint32_t operator()(std::size_t limit) { return static_cast<uint32_t>(engine() % limit); }
    std::mt19937 engine;
};

std::string_view text(const Bytes& bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

// ---- the B-tree page

/// Keys in units of one, or in runs: what a partial key compares.
template <Key unit>
int32_t compareKeys(const void* probe, const void* stored)
{
    const Key a = readField<Key>(probe) / unit, b = readField<Key>(stored) / unit;
    return a < b ? -1 : a > b ? 1 : 0;
}
constexpr KALBTreeCompare byKey = compareKeys<1>, byTens = compareKeys<10>;

/// A page in a block that ends where its items end, so that the sanitizer sees a step too far.
struct Tree {
    Tree(uint32_t size, uint32_t items, std::initializer_list<Key> keys = {})
        : bytes(32 + items * (size + 8), std::byte{0xEE}), itemSize(size)
    {
        SlotIndex index = 0;
        EXPECT_EQ(kalBTreeFormat(page(), 32 + items * (itemSize + 10), itemSize), KALDB_SUCCESS);
        for (const Key key : keys)
            EXPECT_EQ(insert(key, index), KALDB_SUCCESS);
    }
    KALBTreePage* page() { return static_cast<KALBTreePage*>(static_cast<void*>(bytes.data())); }
    BTreeView view() { return BTreeView{page()}; }
    KALBTreeSlot& slot(SlotIndex index) { return btreeSlots(page())[index]; }
    Bytes item(Key key, std::size_t version = 0) const
    {
        Bytes item(itemSize, static_cast<std::byte>(key + version));
        writeField(item.data(), 0, key);
        return item;
    }
    uint32_t insert(Key key, SlotIndex& index) { return kalBTreeInsertItem(page(), item(key).data(), byKey, &index); }

    Bytes bytes;
    uint32_t itemSize;
};

using Enumerator = std::unique_ptr<KALEnumerator, decltype(&kalEnumeratorFree)>;

/// A page, and what it must hold: each key with its slot and the version of its item.
class TreeModel {
public:
    TreeModel(uint32_t itemSize, uint32_t items) : tree(itemSize, items), slots(items), random{std::mt19937{itemSize}}
    {
    }

    void step(std::size_t number)
    {
        const Key key = random(keys), filling = number % 500 < 350 ? 6 : 2;
        if (const unsigned choice = random(10); choice < filling)
            insert(key);
        else if (choice < 8)
            remove(key, choice % 2 == 0);
        else
            update(key, number);
        Bytes whole = tree.bytes;
        whole.resize(typedPageSize);
        ASSERT_TRUE(dbValidateBTreePage(TypedPage{whole})) << "links, flags and count";
        ASSERT_NO_FATAL_FAILURE(walk(false));
        ASSERT_NO_FATAL_FAILURE(walk(true));
        look(random(keys));
    }

private:
    void insert(Key key)
    {
        const bool full = model.size() == slots, fits = !full && !model.contains(key);
        SlotIndex lowestFree = 0, index = 0;
        while (!full && tree.view().slotInUse(lowestFree))
            ++lowestFree;
        ASSERT_EQ(tree.insert(key, index), fits ? KALDB_SUCCESS : full ? KALDB_FULL : KALDB_ALREADY_EXISTS);
        ASSERT_EQ(index, fits ? lowestFree : noSlot);
        if (fits)
            model[key] = {index, 0};
    }
    void remove(Key key, bool bySlot)
    {
        const bool there = model.contains(key);
        const SlotIndex expected = there ? model[key].first : 7;
        SlotIndex index = 7;
        if (bySlot && there)
            ASSERT_EQ(kalBTreeDeleteIndex(tree.page(), index = expected, byKey), KALDB_SUCCESS);
        else
            ASSERT_EQ(kalBTreeDeleteItem(tree.page(), tree.item(key).data(), byKey, &index),
                      there ? KALDB_SUCCESS : KALDB_NOT_FOUND);
        ASSERT_EQ(index, expected);
        model.erase(key);
    }
    void update(Key key, std::size_t version)
    {
        const bool there = model.contains(key);
        ASSERT_EQ(kalBTreeUpdateItem(tree.page(), tree.item(key, version).data(), byKey),
                  there ? KALDB_SUCCESS : KALDB_NOT_FOUND);
        if (there)
            model[key].second = version;
    }
    /// Over one run of tens, or over all: each item as it must be, and in its slot still.
    void walk(bool partial)
    {
        const Key probe = random(keys), first = partial ? probe / 10 * 10 : 0;
        KALEnumerator* made = nullptr;
        const uint32_t status =
            partial ? kalBTreeSearchPartialKey(tree.page(), tree.item(probe).data(), byTens, &reference, &made)
                    : kalBTreeEnumerate(tree.page(), &reference, &made);
        auto next = model.lower_bound(first);
        const auto end = partial ? model.lower_bound(first + 10) : model.end();
        ASSERT_EQ(status, next == end ? KALDB_NOT_FOUND : KALDB_SUCCESS);
        const Enumerator freed{made, kalEnumeratorFree};
        while (next != end) {
            Bytes item(tree.itemSize);
            void* place = nullptr;
            ASSERT_EQ(kalEnumeratorGetItem(made, item.data(), tree.itemSize), KALDB_SUCCESS);
            ASSERT_EQ(item, tree.item(next->first, next->second.second));
            ASSERT_EQ(kalBTreeGetByEnumerator(tree.page(), made, &place), KALDB_SUCCESS);
            ASSERT_EQ(place, tree.view().item(next->second.first));
            ASSERT_EQ(kalEnumeratorMoveNext(made), ++next == end ? KALDB_END_OF_ENUMERATION : KALDB_SUCCESS);
        }
    }
    void look(Key key)
    {
        const Bytes probe = tree.item(key);
        const auto found = model.find(key);
        const bool there = found != model.end(), empty = model.empty();
        const int32_t side = empty ? 0 : key < model.begin()->first ? -1 : key > model.rbegin()->first ? 1 : 0;
        const auto compared = side == 0 && !there ? KALDB_NOT_FOUND : KALDB_SUCCESS;
        void* item = nullptr;
        int32_t position = 9;
        uint32_t crowded = 7;
        ASSERT_EQ(kalBTreeSearchPrimaryKey(tree.page(), probe.data(), byKey, &item),
                  there ? KALDB_SUCCESS : KALDB_NOT_FOUND);
        ASSERT_EQ(item, there ? tree.view().item(found->second.first) : nullptr);
        ASSERT_EQ(kalBTreeCanBeHere(tree.page(), probe.data(), byKey, &position), KALDB_SUCCESS);
        ASSERT_EQ(position, side);
        ASSERT_EQ(kalBTreeCompareItem(tree.page(), probe.data(), byKey, &position),
                  empty ? KALDB_EMPTY_PAGE : compared);
        ASSERT_EQ(position, side);
        ASSERT_EQ(kalBTreeShouldSplit(tree.page(), &crowded), KALDB_SUCCESS);
        ASSERT_EQ(crowded, model.size() >= 3 * (slots / 4)) << "three whole quarters";
        ASSERT_EQ(tree.page()->smallest, empty ? noSlot : model.begin()->second.first);
        ASSERT_EQ(tree.page()->largest, empty ? noSlot : model.rbegin()->second.first);
    }

    Tree tree;
    std::map<Key, std::pair<SlotIndex, std::size_t>> model;
    uint32_t slots;
    Random random;
    Key keys = slots * 2 + 1;
    KALBTreePage* reference = tree.page();
};

TEST(BTreePage, RandomOperationsAndWalksAgreeWithAModel)
{
    for (const auto& [itemSize, items] : {std::pair{4u, 1u}, {5u, 140u}, {24u, 58u}, {121u, 15u}, {970u, 2u}}) {
        TreeModel model{itemSize, items};
        for (std::size_t step = 0; step < 1000 && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "items of " << itemSize << " bytes, step " << step);
            model.step(step);
        }
    }
}

TEST(BTreePage, WalksMoveOddlyAndMeetSwappedPages)
{
    Tree tree{8, 8, {5, 8, 9, 3}}, shorter{8, 1};
    KALBTreePage* reference = tree.page();
    KALEnumerator* made = nullptr;
    Bytes item(8);
    uint32_t position = 0;
    const test::LogLines log;
    ASSERT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_SUCCESS);
    const Enumerator walk{made, kalEnumeratorFree};
    refuseEnumerators = true;  // the leak sanitizer looks for the record
    EXPECT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_TOO_MANY_FILES);
    refuseEnumerators = false;
    reference = shorter.page();  // has no slot 3, where the walk is
    EXPECT_EQ(kalEnumeratorGetItem(made, item.data(), 8), KALDB_FAILURE);
    EXPECT_EQ(kalEnumeratorMoveNext(made), KALDB_FAILURE);
    reference = tree.page();
    EXPECT_EQ(callbacks.getItem(made, userData, 1, item.data(), 8), KALDB_FAILURE) << "another position";
    const auto move = [&](uint32_t kind) { return callbacks.move(made, userData, kind, &position); };
    EXPECT_EQ(move(KAL_MOVE_LAST), KALDB_NOT_SUPPORTED);
    EXPECT_EQ(callbacks.unsupported(made, userData), KALDB_NOT_SUPPORTED);
    EXPECT_EQ(move(4), KALDB_FAILURE);
    EXPECT_EQ(move(KAL_MOVE_PREVIOUS), KALDB_SUCCESS);
    EXPECT_EQ(callbacks.getItem(made, userData, 0, item.data(), 8), KALDB_FAILURE) << "on no item";
    EXPECT_EQ(move(KAL_MOVE_NEXT), KALDB_END_OF_ENUMERATION);
    EXPECT_EQ(kalEnumeratorMoveFirst(made), KALDB_SUCCESS);
    EXPECT_EQ(kalEnumeratorGetItem(made, item.data(), 8), KALDB_SUCCESS);
    EXPECT_EQ(item, tree.item(3));
    EXPECT_EQ(kalBTreeDeleteIndex(tree.page(), 3, byKey), KALDB_SUCCESS);
    EXPECT_EQ(kalEnumeratorMoveNext(made), KALDB_END_OF_ENUMERATION) << "the current item went: its slot leads nowhere";
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kalbtree: btreeEnumMoveSequential() locating item\n"), tracing ? 7 : 0);
}

TEST(BTreePage, CapacityAndBytes)
{
    for (const auto& [itemSize, items] :
         {std::pair{24u, 58u}, {120u, 15u}, {16u, 76u}, {238u, 8u}, {1978u, 1u}, {0u, 198u}})
        EXPECT_EQ(btreeCapacity(2020, itemSize), items);
    Tree tree{4, 3, {0x20, 0x10, 0x30}};
    ASSERT_EQ(kalBTreeDeleteIndex(tree.page(), 0, byKey), KALDB_SUCCESS);
    for (const auto& [size, itemSize] : {std::pair{2020u, 1979u}, {41u, 0u}, {31u, 1u}, {0u, 0u}, {2020u, 0xFFFFFFF8u}})
        EXPECT_EQ(kalBTreeFormat(tree.page(), size, itemSize), KALDB_BUFFER_TOO_SMALL) << "and leaves the page alone";
    constexpr auto expected = " \0\0\0BTR\0\x4A\0\0\0\x04\0\0\0"            // header length, type, size, item size
                              "\x03\0\0\0\x02\0\0\0\x01\0\x01\0\x02\0\0\0"  // slots, count, root, smallest, largest
                              "\xFF\xFF\xFF\xFF\xFF\xFF\x01\xEE"            // slot 0: free
                              "\xFF\xFF\x02\0\xFF\xFF\0\xEE"                // slot 1: the root, with the greater slot 2
                              "\xFF\xFF\xFF\xFF\x01\0\0\xEE"                // slot 2
                              "\x20\0\0\0\x10\0\0\0\x30\0\0\0"sv;           // items, the deleted one's bytes too
    EXPECT_EQ(text(tree.bytes), expected);
}

/// Every operation on copies of a page whose links may lie. What counts is that each comes to an end inside the page.
void expectEverythingEnds(const Tree& damaged)
{
    SlotIndex index = 0;
    const auto changing = [&](auto&& operation) {
        Tree copy = damaged;
        const bool same = operation(copy) == KALDB_SUCCESS ||
                          std::equal(copy.bytes.begin(), copy.bytes.begin() + 32 + 8 * 8, damaged.bytes.begin());
        ASSERT_TRUE(same) << "half changed";
    };
    for (SlotIndex i = 0; i <= 8; ++i)
        changing([&](Tree& copy) { return kalBTreeDeleteIndex(copy.page(), i, byKey); });
    Tree copy = damaged;
    for (const Key key : {0u, 10u, 35u, 40u, 70u, 99u}) {
        const Bytes probe = damaged.item(key);
        void* item = nullptr;
        int32_t position = 0;
        changing([&](Tree& tree) { return tree.insert(key, index); });
        changing([&](Tree& tree) { return kalBTreeUpdateItem(tree.page(), probe.data(), byKey); });
        changing([&](Tree& tree) { return kalBTreeDeleteItem(tree.page(), probe.data(), byKey, &index); });
        kalBTreeSearchPrimaryKey(copy.page(), probe.data(), byKey, &item);
        kalBTreeCanBeHere(copy.page(), probe.data(), byKey, &position);
        kalBTreeCompareItem(copy.page(), probe.data(), byKey, &position);
        kalBTreeGetSmallest(copy.page(), &item, &index);
    }
    KALBTreePage* reference = copy.page();
    for (const KALBTreeCompare compare : {static_cast<KALBTreeCompare>(nullptr), byTens}) {
        KALEnumerator* made = nullptr;
        if (kalBTreeSearchPartialKey(copy.page(), copy.item(30).data(), compare, &reference, &made) != KALDB_SUCCESS)
            continue;
        const Enumerator walk{made, kalEnumeratorFree};
        for (unsigned moves = 0; kalEnumeratorMoveNext(made) == KALDB_SUCCESS; ++moves)
            ASSERT_LT(moves, 20u) << "the walk goes round";
    }
    ASSERT_EQ(copy.bytes, damaged.bytes) << "a look changed the page";
    for (const uint32_t fromSmallest : {1u, 0u})
        kalBTreeSplit(copy.page(), Tree{8, 8}.page(), fromSmallest, byKey);
}

TEST(BTreePageDamage, EveryOperationEnds)
{
    const Tree sound{8, 8, {40, 20, 60, 10, 30, 50, 70}};
    // From the count on, field by field; what lies before it decides the page's size.
    constexpr std::size_t fields = 6 + 8 * 4;
    const auto damage = [&](Tree& tree, std::size_t field, uint16_t value) {
        const std::size_t offset = 20 + field * 2;
        const bool flags = offset >= 32 && offset % 8 == 6;
        std::memcpy(tree.bytes.data() + offset, &value, flags ? 1 : 2);
    };
    constexpr uint16_t hostile[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x100, 0xFFFE, 0xFFFF};
    Random random{std::mt19937{5}};
    for (int round = 0; round < 5000; ++round) {
        SCOPED_TRACE(round);
        Tree tree = sound;
        for (unsigned faults = round < 2000 ? 1 : 2 + random(6); faults > 0; --faults)
            damage(tree, random(fields), hostile[random(std::size(hostile))]);
        ASSERT_NO_FATAL_FAILURE(expectEverythingEnds(tree));
    }
}

TEST(BTreePageDamage, LinksThatDisagreeAreFailures)
{
    const Tree sound{8, 8, {40, 20, 60}};
    SlotIndex index = 0;
    Tree tree = sound;
    tree.page()->root = 8;
    EXPECT_EQ(tree.insert(50, index), KALDB_FAILURE);
    tree = sound;
    tree.slot(1).parent = 2;  // 60 does not know 20
    EXPECT_EQ(kalBTreeDeleteIndex(tree.page(), 1, byKey), KALDB_FAILURE);
    tree = sound;
    for (const uint32_t count : {0u, 1u}) {
        tree.page()->count = count;
        EXPECT_EQ(kalBTreeDeleteIndex(tree.page(), 1, byKey), KALDB_FAILURE);
    }
    for (SlotIndex i = 0; i < 8; ++i)
        tree.slot(i).flags = 0;
    EXPECT_EQ(tree.insert(50, index), KALDB_NO_FREE_SLOT);
}

/// Every header field from `first` to `last` with each of the values: the page is not opened unless `opens` says so.
template <class View>
void expectRefused(Bytes bytes, uint32_t itemSize, std::size_t last, const std::function<bool(std::size_t, int)>& opens)
{
    View view;
    EXPECT_EQ(View::open(bytes, itemSize, view), Status::success);
    EXPECT_EQ(View::open(bytes, itemSize + 1, view), Status::failure);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(View::open(std::span{bytes}.first(length), itemSize, view), Status::failure) << length;
    for (std::size_t offset = 0; offset < last; offset += 2)
        for (const int value : {0x8000, 0xFFFF, 0xFFF0, 8, 0}) {
            const auto old = readField<uint16_t>(bytes.data(), offset);
            writeField(bytes.data(), offset, static_cast<uint16_t>(value));
            EXPECT_EQ(ok(View::open(bytes, itemSize, view)), old == value || opens(offset, value)) << offset;
            writeField(bytes.data(), offset, old);
        }
}

TEST(BTreePageDamage, LyingHeadersAreNotOpened)
{
    // A count or an end that is possible is found out only by looking at the slots.
    expectRefused<BTreeView>(Tree{8, 8, {40, 20}}.bytes, 8, 30, [](std::size_t offset, int value) {
        return (offset == 20 && value == 8) || (offset >= 24 && value < 8);
    });
}

// ---- the binary page

/// A page in a block that ends where its slots end.
struct Pieces {
    Pieces(uint32_t slotDataSize, uint32_t slots) : bytes(28 + slots * (slotDataSize + 20), std::byte{0xEE})
    {
        EXPECT_EQ(kaldbBinaryPageFormat(page(), static_cast<uint32_t>(bytes.size()), slotDataSize), KALDB_SUCCESS);
    }
    KALDBBinaryPage* page() { return static_cast<KALDBBinaryPage*>(static_cast<void*>(bytes.data())); }

    Bytes bytes;
};

KALDBBinaryRecord piece(std::string& data, uint32_t totalSize, uint32_t nextPage, uint16_t nextIndex)
{
    return {data.data(), totalSize, static_cast<uint32_t>(data.size()), nextPage, nextIndex};
}

/// Each piece says that it goes on at page 5 times its slot, slot 9.
void expectMatches(Pieces& page, const std::map<SlotIndex, std::string>& model, uint32_t slots)
{
    uint32_t count = 0, full = 7;
    ASSERT_EQ(kaldbBinaryPageGetCount(page.page(), &count) + kaldbBinaryPageIsFull(page.page(), &full), 0u);
    ASSERT_EQ(count, model.size());
    ASSERT_EQ(full, model.size() == slots);
    for (SlotIndex i = 0; i < slots; ++i) {
        const bool used = model.contains(i);
        KALDBBinaryRecord record{};
        ASSERT_EQ(kaldbBinaryPageGetItem(page.page(), i, &record), KALDB_SUCCESS);
        ASSERT_EQ(std::string(static_cast<char*>(record.data), record.length), used ? model.at(i) : "");
        ASSERT_EQ(std::tuple(record.totalSize, record.nextPage, record.nextIndex),
                  used ? std::tuple(1000 + record.length, i * 5u, SlotIndex{9}) : std::tuple(0u, noPage, noSlot));
    }
}

TEST(BinaryPage, RandomOperationsAgreeWithAModel)
{
    for (const auto& [slotDataSize, slots] : {std::pair{64u, 23u}, {13u, 7u}, {0u, 2u}, {16u, 0u}}) {
        Random random{std::mt19937{slotDataSize}};
        Pieces page{slotDataSize, slots};
        std::map<SlotIndex, std::string> model;
        for (uint32_t step = 0; step < 1000; ++step) {
            SCOPED_TRACE(testing::Message() << slotDataSize << " bytes a slot, step " << step);
            std::string data(random(slotDataSize + 2), static_cast<char>('a' + step % 26));
            auto stored = data.size() > slotDataSize ? KALDB_BUFFER_TOO_SMALL : KALDB_SUCCESS;
            const bool insertion = random(2) == 0;
            auto index = static_cast<SlotIndex>(insertion ? 0 : random(slots + 1));
            while (insertion && model.contains(index))
                ++index;  // the lowest free slot
            const SlotIndex slot = index;
            KALDBBinaryRecord record = piece(data, 1000 + static_cast<uint32_t>(data.size()), slot * 5u, 9);
            if (insertion) {
                ASSERT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index),
                          slot == slots && stored == KALDB_SUCCESS ? KALDB_NO_FREE_SLOT : stored);
                ASSERT_EQ(index, slot);
            } else if (model.contains(slot) && random(2) == 0) {
                ASSERT_EQ(kaldbBinaryPageUpdateItem(page.page(), slot, &record), stored);
            } else {
                stored = KALDB_NOT_FOUND;
                ASSERT_EQ(kaldbBinaryPageDeleteItem(page.page(), slot),
                          model.erase(slot) != 0 ? KALDB_SUCCESS : stored);
            }
            if (stored == KALDB_SUCCESS && slot < slots)
                model[slot] = data;
            ASSERT_NO_FATAL_FAILURE(expectMatches(page, model, slots));
        }
    }
}

TEST(BinaryPage, CapacityAndBytes)
{
    for (const auto& [slotDataSize, slots] : {std::pair{64u, 23u}, {120u, 14u}, {256u, 7u}, {1973u, 0u}})
        EXPECT_EQ(binaryCapacity(2020, slotDataSize), slots);
    Pieces page{3, 2};
    std::string data = "ab";
    KALDBBinaryRecord record = piece(data, 0x0102, 6, 7);
    SlotIndex index = 9;
    ASSERT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index), KALDB_SUCCESS);
    EXPECT_EQ(kaldbBinaryPageFormat(page.page(), 27, 0), KALDB_BUFFER_TOO_SMALL);
    record.data = nullptr;
    EXPECT_EQ(kaldbBinaryPageUpdateItem(page.page(), 0, &record), KALDB_INVALID_ARGUMENT);
    constexpr auto expected =
        "\x1C\0\0\0BPG\0\x4A\0\0\0\x03\0\0\0\x02\0\0\0"             // header length, type, size, slot data, slots
        "\x01\0\0\0\xFF\xFF\xEE\xEE"                                // count, reserved, unused
        "\x01\0\0\0\x02\x01\0\0\x02\0\0\0\x06\0\0\0\x07\0\xEE\xEE"  // slot 0
        "\x61\x62\xEE"                                              // its data
        "\0\0\0\0\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xEE\xEE"  // slot 1: free
        "\xEE\xEE\xEE"sv;
    EXPECT_EQ(text(page.bytes), expected);
}

TEST(BinaryPageDamage, LyingBytesAreRefused)
{
    Pieces page{16, 4};
    std::string data = "data";
    KALDBBinaryRecord record = piece(data, 4, noPage, noSlot);
    SlotIndex index = 0;
    ASSERT_EQ(kaldbBinaryPageInsertItem(page.page(), &record, &index), KALDB_SUCCESS);
    expectRefused<BinaryView>(page.bytes, 16, 24,
                              [](std::size_t offset, int value) { return offset == 20 && value == 0; });
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
