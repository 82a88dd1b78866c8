// The B-tree page: random operations against a model, walks, the bytes, and pages whose bytes lie.

#include "kalbtree/btree_view.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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

bool refuseMemory = false;
bool refuseEnumerators = false;
KALEnumeratorCallbacks callbacks{};  // of the enumerator made last
void* userData = nullptr;

}  // namespace

// These two stand before the support library's.
extern "C" void* kalMemAllocate(uint32_t size, const char*, uint32_t)
{
    return refuseMemory ? nullptr : std::malloc(size);
}

extern "C" uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* table, void* data, KALEnumerator** enumerator)
{
    if (refuseEnumerators)
        return KALDB_TOO_MANY_FILES;
    callbacks = *table;
    userData = data;
    return reinterpret_cast<decltype(&kalEnumeratorCreate)>(dlsym(RTLD_NEXT, "kalEnumeratorCreate"))(table, data,
                                                                                                     enumerator);
}

namespace {

/// Keys in units of one, or in runs: what a partial key compares.
template <Key unit>
int32_t compareKeys(const void* probe, const void* stored)
{
    const Key a = readField<Key>(probe) / unit;
    const Key b = readField<Key>(stored) / unit;
    return a < b ? -1 : a > b ? 1 : 0;
}
constexpr KALBTreeCompare byKey = compareKeys<1>;
constexpr KALBTreeCompare byTens = compareKeys<10>;

/// Evenly spread numbers below a limit, the same in every run.
class Random {
public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t operator()(std::size_t limit) { return static_cast<uint32_t>(engine_() % limit); }

private:
    std::mt19937 engine_;
};

/// A page in a block that ends where its items end, so that the sanitizer sees a step too far.
class BTreePage {
public:
    BTreePage(uint32_t itemSize, uint32_t items) : size_(32 + items * (itemSize + 10)), itemSize_(itemSize)
    {
        bytes.resize(32 + items * (itemSize + 8), std::byte{0xEE});
        EXPECT_EQ(kalBTreeFormat(page(), size_, itemSize), KALDB_SUCCESS);
    }
    KALBTreePage* page() { return static_cast<KALBTreePage*>(static_cast<void*>(bytes.data())); }
    BTreeView view() { return BTreeView{page()}; }
    KALBTreeSlot& slot(SlotIndex index) { return btreeSlots(page())[index]; }
    Bytes item(Key key, uint8_t version = 0) const
    {
        Bytes item(itemSize_, std::byte(key + version));
        writeField(item.data(), 0, key);
        return item;
    }
    uint32_t insert(Key key, SlotIndex& index) { return kalBTreeInsertItem(page(), item(key).data(), byKey, &index); }
    void insertAll(std::initializer_list<Key> keys)
    {
        SlotIndex index = 0;
        for (Key key : keys)
            ASSERT_EQ(insert(key, index), KALDB_SUCCESS);
    }

    Bytes bytes;

private:
    uint32_t size_;
    uint32_t itemSize_;
};

struct EnumeratorDeleter {
    void operator()(KALEnumerator* enumerator) const { EXPECT_EQ(kalEnumeratorFree(enumerator), KALDB_SUCCESS); }
};
using Enumerator = std::unique_ptr<KALEnumerator, EnumeratorDeleter>;

/// What the page must hold: each key with its slot and the version of its item.
struct Place {
    SlotIndex slot;
    uint8_t version;
};
using Model = std::map<Key, Place>;

/// The subtree's slots in key order; every link is checked on the way.
void collect(BTreePage& tree, SlotIndex index, SlotIndex parent, std::vector<SlotIndex>& slots)
{
    if (index == noSlot)
        return;
    ASSERT_LT(index, tree.view().maxCount());
    ASSERT_EQ(tree.slot(index).parent, parent);
    ASSERT_EQ(tree.slot(index).flags, 0);
    ASSERT_LT(slots.size(), tree.view().maxCount());
    collect(tree, tree.slot(index).prev, index, slots);
    slots.push_back(index);
    collect(tree, tree.slot(index).next, index, slots);
}

void expectMatches(BTreePage& tree, const Model& model)
{
    std::vector<SlotIndex> slots;
    ASSERT_NO_FATAL_FAILURE(collect(tree, tree.page()->root, noSlot, slots));
    ASSERT_EQ(slots.size(), model.size());
    ASSERT_EQ(tree.page()->count, model.size());
    auto slot = slots.begin();
    for (const auto& [key, place] : model) {
        ASSERT_EQ(*slot, place.slot) << "an item moved";
        const Bytes expected = tree.item(key, place.version);
        ASSERT_EQ(std::memcmp(tree.view().item(*slot++), expected.data(), expected.size()), 0);
    }
    ASSERT_EQ(tree.page()->smallest, slots.empty() ? noSlot : slots.front());
    ASSERT_EQ(tree.page()->largest, slots.empty() ? noSlot : slots.back());
    std::size_t free = 0;
    for (SlotIndex i = 0; i < tree.view().maxCount(); ++i)
        if (const KALBTreeSlot& s = tree.slot(i); s.flags != 0) {
            ++free;
            ASSERT_TRUE(s.flags == 1 && s.prev == noSlot && s.next == noSlot && s.parent == noSlot);
        }
    ASSERT_EQ(free + model.size(), tree.view().maxCount());
    BTreeView opened;
    ASSERT_EQ(BTreeView::open(tree.bytes, tree.page()->itemSize, opened), Status::success);
}

void insertOne(BTreePage& tree, Model& model, Key key)
{
    const bool full = model.size() == tree.view().maxCount();
    SlotIndex lowestFree = 0;
    while (!full && tree.view().slotInUse(lowestFree))
        ++lowestFree;
    const bool fits = !full && !model.contains(key);
    SlotIndex index = 0;
    ASSERT_EQ(tree.insert(key, index), fits ? KALDB_SUCCESS : full ? KALDB_FULL : KALDB_ALREADY_EXISTS);
    ASSERT_EQ(index, fits ? lowestFree : noSlot);
    if (fits)
        model[key] = {index, 0};
}

void removeOne(BTreePage& tree, Model& model, Key key, bool bySlot = false)
{
    const auto found = model.find(key);
    const SlotIndex expected = found == model.end() ? 7 : found->second.slot;
    if (bySlot && found != model.end()) {
        ASSERT_EQ(kalBTreeDeleteIndex(tree.page(), expected, byKey), KALDB_SUCCESS);
        ASSERT_EQ(kalBTreeDeleteIndex(tree.page(), expected, byKey), KALDB_NOT_APPLICABLE);
    } else {
        SlotIndex index = 7;
        ASSERT_EQ(kalBTreeDeleteItem(tree.page(), tree.item(key).data(), byKey, &index),
                  found == model.end() ? KALDB_NOT_FOUND : KALDB_SUCCESS);
        ASSERT_EQ(index, expected);
    }
    model.erase(key);
}

void updateOne(BTreePage& tree, Model& model, Key key, uint8_t version)
{
    const bool there = model.contains(key);
    ASSERT_EQ(kalBTreeUpdateItem(tree.page(), tree.item(key, version).data(), byKey),
              there ? KALDB_SUCCESS : KALDB_NOT_FOUND);
    if (there)
        model[key].version = version;
}

void expectLookups(BTreePage& tree, const Model& model, Key key)
{
    const Bytes probe = tree.item(key);
    const auto found = model.find(key);
    void* item = nullptr;
    ASSERT_EQ(kalBTreeSearchPrimaryKey(tree.page(), probe.data(), byKey, &item),
              found == model.end() ? KALDB_NOT_FOUND : KALDB_SUCCESS);
    ASSERT_EQ(item, found == model.end() ? nullptr : tree.view().item(found->second.slot));

    const bool below = !model.empty() && key < model.begin()->first;
    const bool above = !model.empty() && key > model.rbegin()->first;
    const int32_t side = above - below;
    int32_t position = 9;
    ASSERT_EQ(kalBTreeCanBeHere(tree.page(), probe.data(), byKey, &position), KALDB_SUCCESS);
    ASSERT_EQ(position, side);
    const bool between = side == 0 && found == model.end();
    ASSERT_EQ(kalBTreeCompareItem(tree.page(), probe.data(), byKey, &position), model.empty() ? KALDB_EMPTY_PAGE
                                                                                : between     ? KALDB_NOT_FOUND
                                                                                              : KALDB_SUCCESS);
    ASSERT_EQ(position, side);
    SlotIndex smallest = 7;
    ASSERT_EQ(kalBTreeGetSmallest(tree.page(), &item, &smallest), model.empty() ? KALDB_EMPTY_PAGE : KALDB_SUCCESS);
    ASSERT_EQ(smallest, model.empty() ? 7 : model.begin()->second.slot);
}

TEST(BTreePageModel, RandomOperationsKeepEveryInvariant)
{
    for (const auto& [itemSize, items] : {std::pair{4u, 1u}, {5u, 198u}, {24u, 58u}, {121u, 15u}, {999u, 2u}}) {
        SCOPED_TRACE(itemSize);
        Random random{itemSize};
        BTreePage tree{itemSize, items};
        Model model;
        for (int step = 0; step < 1500; ++step) {
            SCOPED_TRACE(step);
            const Key key = random(items * 2 + 1);
            const bool filling = step % 500 < 350;
            if (const unsigned choice = random(10); choice < (filling ? 6u : 2u))
                ASSERT_NO_FATAL_FAILURE(insertOne(tree, model, key));
            else if (choice < 8)
                ASSERT_NO_FATAL_FAILURE(removeOne(tree, model, key, choice % 2 == 0));
            else
                ASSERT_NO_FATAL_FAILURE(updateOne(tree, model, key, static_cast<uint8_t>(step)));
            ASSERT_NO_FATAL_FAILURE(expectMatches(tree, model));
            ASSERT_NO_FATAL_FAILURE(expectLookups(tree, model, random(items * 2 + 1)));
        }
    }
}

TEST(BTreePageModel, WalksFollowTheModelWhileItemsComeAndGo)
{
    Random random{11};
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        BTreePage tree{24, 58};
        Model model;
        for (int i = 0; i < 45; ++i)
            insertOne(tree, model, random(100));
        // A partial key's walk is over one run of tens; without a compare function it is over all.
        const bool partial = round % 2 == 0;
        const Key probe = random(100);
        const auto low = partial ? model.lower_bound(probe / 10 * 10) : model.begin();
        const Key end = partial ? probe / 10 * 10 + 10 : 1000;
        KALBTreePage* reference = tree.page();
        KALEnumerator* made = nullptr;
        const uint32_t status =
            partial ? kalBTreeSearchPartialKey(tree.page(), tree.item(probe).data(), byTens, &reference, &made)
                    : kalBTreeEnumerate(tree.page(), &reference, &made);
        ASSERT_EQ(status, low == model.end() || low->first >= end ? KALDB_NOT_FOUND : KALDB_SUCCESS);
        if (failed(asStatus(status)))
            continue;
        const Enumerator walk{made};
        Key current = low->first;
        while (true) {
            Bytes item(24);
            ASSERT_EQ(kalEnumeratorGetItem(walk.get(), item.data(), 24), KALDB_SUCCESS);
            ASSERT_EQ(readField<Key>(item.data()), current);
            void* place = nullptr;
            ASSERT_EQ(kalBTreeGetByEnumerator(tree.page(), walk.get(), &place), KALDB_SUCCESS);
            ASSERT_EQ(place, tree.view().item(model.at(current).slot));
            for (Key changes = random(4); changes > 0; --changes)
                if (const Key key = random(100); random(2) == 0)
                    insertOne(tree, model, key);
                else if (key != current)
                    removeOne(tree, model, key);
            const auto next = model.upper_bound(current);
            const bool more = next != model.end() && next->first < end;
            ASSERT_EQ(kalEnumeratorMoveNext(walk.get()), more ? KALDB_SUCCESS : KALDB_END_OF_ENUMERATION);
            if (!more) {
                EXPECT_EQ(kalEnumeratorGetItem(walk.get(), item.data(), 24), KALDB_SUCCESS) << "off its last item";
                break;
            }
            current = next->first;
        }
    }
}

TEST(BTreePageWalk, OddMovesAndSwappedPages)
{
    BTreePage tree{8, 8};
    tree.insertAll({5, 8, 9, 3});
    KALBTreePage* reference = tree.page();
    KALEnumerator* made = nullptr;
    ASSERT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_SUCCESS);
    const Enumerator walk{made};
    const auto next = [&] { return kalEnumeratorMoveNext(walk.get()); };
    const auto get = [&](Key expected) {
        Bytes item(8);
        const uint32_t status = kalEnumeratorGetItem(walk.get(), item.data(), 8);
        EXPECT_TRUE(status != KALDB_SUCCESS || readField<Key>(item.data()) == expected);
        return status;
    };
    EXPECT_EQ(next(), KALDB_SUCCESS);
    EXPECT_EQ(kalEnumeratorMoveFirst(walk.get()), KALDB_SUCCESS);
    EXPECT_EQ(get(3), KALDB_SUCCESS);
    EXPECT_EQ(callbacks.getItem(made, userData, 1, &made, 8), KALDB_FAILURE) << "another position";

    // Pages on which the walk's key, or its current slot 3, would not fit.
    BTreePage wider{16, 4};
    BTreePage shorter{8, 1};
    for (KALBTreePage* unfit : {wider.page(), shorter.page(), static_cast<KALBTreePage*>(nullptr)}) {
        reference = unfit;
        EXPECT_EQ(get(3), KALDB_FAILURE);
        EXPECT_EQ(next(), KALDB_FAILURE);
    }
    reference = tree.page();

    uint32_t position = 0;
    const auto move = [&](uint32_t kind) { return callbacks.move(made, userData, kind, &position); };
    EXPECT_EQ(move(KAL_MOVE_LAST), KALDB_NOT_SUPPORTED);
    EXPECT_EQ(move(4), KALDB_FAILURE);
    EXPECT_EQ(move(KAL_MOVE_PREVIOUS), KALDB_SUCCESS);
    EXPECT_EQ(callbacks.getItem(made, userData, position, &made, 8), KALDB_FAILURE) << "on no item";
    EXPECT_EQ(move(KAL_MOVE_NEXT), KALDB_END_OF_ENUMERATION);
    EXPECT_EQ(callbacks.unsupported(made, userData), KALDB_NOT_SUPPORTED);

    // The current item goes: its slot leads nowhere.
    SlotIndex index = 0;
    EXPECT_EQ(kalEnumeratorMoveFirst(walk.get()), KALDB_SUCCESS);
    ASSERT_EQ(kalBTreeDeleteItem(tree.page(), tree.item(3).data(), byKey, &index), KALDB_SUCCESS);
    EXPECT_EQ(next(), KALDB_END_OF_ENUMERATION);
}

TEST(BTreePageWalk, FailedCreationLeavesNothingBehind)
{
    BTreePage tree{8, 8};
    KALBTreePage* reference = tree.page();
    KALEnumerator* made = nullptr;
    EXPECT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_NOT_FOUND);
    tree.insertAll({5});
    refuseMemory = true;
    EXPECT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_OUT_OF_MEMORY);
    refuseMemory = false;
    refuseEnumerators = true;  // the leak sanitizer looks for the record
    EXPECT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_TOO_MANY_FILES);
    refuseEnumerators = false;
    reference = nullptr;
    EXPECT_EQ(kalBTreeEnumerate(tree.page(), &reference, &made), KALDB_FAILURE);
    EXPECT_EQ(made, nullptr);
}

TEST(BTreePageFormat, CountsAndRefusals)
{
    for (const auto& [itemSize, items] :
         {std::pair{24u, 58u}, {120u, 15u}, {16u, 76u}, {238u, 8u}, {1978u, 1u}, {0u, 198u}})
        EXPECT_EQ(btreeCapacity(2020, itemSize), items);
    alignas(4) std::array<std::byte, 64> bytes{};
    auto* page = static_cast<KALBTreePage*>(static_cast<void*>(bytes.data()));
    for (const auto& [size, itemSize] : {std::pair{2020u, 1979u}, {41u, 0u}, {31u, 1u}, {0u, 0u}, {2020u, 0xFFFFFFF8u}})
        EXPECT_EQ(kalBTreeFormat(page, size, itemSize), KALDB_BUFFER_TOO_SMALL);
    EXPECT_EQ(bytes, (std::array<std::byte, 64>{})) << "a refused page is untouched";
}

TEST(BTreePageFormat, Bytes)
{
    BTreePage tree{4, 3};
    tree.insertAll({0x20, 0x10, 0x30});
    SlotIndex index = 0;
    ASSERT_EQ(kalBTreeDeleteItem(tree.page(), tree.item(0x20).data(), byKey, &index), KALDB_SUCCESS);
    constexpr auto expected = " \0\0\0BTR\0\x4A\0\0\0\x04\0\0\0"            // header length, type, size, item size
                              "\x03\0\0\0\x02\0\0\0\x01\0\x01\0\x02\0\0\0"  // slots, count, root, smallest, largest
                              "\xFF\xFF\xFF\xFF\xFF\xFF\x01\xEE"            // slot 0: free
                              "\xFF\xFF\x02\0\xFF\xFF\0\xEE"                // slot 1: the root, with the greater slot 2
                              "\xFF\xFF\xFF\xFF\x01\0\0\xEE"                // slot 2
                              "\x20\0\0\0\x10\0\0\0\x30\0\0\0"sv;           // items, the deleted one's bytes too
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(tree.bytes.data()), tree.bytes.size()), expected);
}

TEST(BTreePageSplit, MovesHalfFromEitherEnd)
{
    for (const bool fromSmallest : {true, false})
        for (const auto& [items, moved] : {std::pair{7u, 3u}, {1u, 0u}, {0u, 0u}}) {
            BTreePage source{8, 8};
            BTreePage destination{8, 8};
            SlotIndex index = 0;
            for (Key key = 0; key < items; ++key)
                ASSERT_EQ(source.insert(key * 5 % 7, index), KALDB_SUCCESS);
            EXPECT_EQ(kalBTreeSplit(source.page(), destination.page(), fromSmallest, byKey), KALDB_SUCCESS);
            EXPECT_EQ(source.page()->count, items - moved);
            ASSERT_EQ(destination.page()->count, moved);
            std::byte* item = nullptr;
            for (Key key = 0; key < moved; ++key)
                EXPECT_EQ(destination.view().search(source.item(fromSmallest ? key : 6 - key).data(), byKey, item),
                          Status::success);
        }
    BTreePage full{8, 1};
    full.insertAll({9});
    BTreePage source{8, 8};
    source.insertAll({1, 2});
    EXPECT_EQ(kalBTreeSplit(source.page(), full.page(), 1, byKey), KALDB_FULL);
    EXPECT_EQ(source.page()->count, 2u);
    EXPECT_EQ(kalBTreeSplit(source.page(), BTreePage{9, 8}.page(), 1, byKey), KALDB_INVALID_ARGUMENT);
    EXPECT_EQ(kalBTreeBalance(source.page()), KALDB_FAILURE);
}

TEST(BTreePageSplit, ThresholdIsThreeWholeQuarters)
{
    for (const auto& [items, threshold] : {std::pair{15u, 9u}, {58u, 42u}, {76u, 57u}, {3u, 0u}}) {
        BTreePage tree{4, items};
        for (tree.page()->count = 0; tree.page()->count <= items; ++tree.page()->count) {
            uint32_t flag = 7;
            EXPECT_EQ(kalBTreeShouldSplit(tree.page(), &flag), KALDB_SUCCESS);
            EXPECT_EQ(flag, tree.page()->count >= threshold);
        }
    }
}

/// Header and slots of a page, which a failed operation leaves alone.
Bytes structure(BTreePage& tree) { return {tree.bytes.begin(), tree.bytes.begin() + 32 + 8 * tree.page()->maxCount}; }

/// Every operation on copies of a page whose links may lie. What counts is that each comes to an end inside the page.
void expectEverythingEnds(const BTreePage& damaged)
{
    const auto changing = [&](auto&& operation) {
        BTreePage copy = damaged;
        const Bytes before = structure(copy);
        if (operation(copy) != KALDB_SUCCESS) {
            ASSERT_EQ(structure(copy), before) << "half changed";
        }
    };
    for (const Key key : {0u, 10u, 35u, 40u, 70u, 99u}) {
        const Bytes probe = damaged.item(key);
        SlotIndex index = 0;
        void* item = nullptr;
        int32_t position = 0;
        changing([&](BTreePage& copy) { return copy.insert(key, index); });
        changing([&](BTreePage& copy) { return kalBTreeUpdateItem(copy.page(), probe.data(), byKey); });
        changing([&](BTreePage& copy) { return kalBTreeDeleteItem(copy.page(), probe.data(), byKey, &index); });
        BTreePage copy = damaged;
        kalBTreeSearchPrimaryKey(copy.page(), probe.data(), byKey, &item);
        kalBTreeCanBeHere(copy.page(), probe.data(), byKey, &position);
        kalBTreeCompareItem(copy.page(), probe.data(), byKey, &position);
        kalBTreeGetSmallest(copy.page(), &item, &index);
        ASSERT_EQ(copy.bytes, damaged.bytes) << "a look changed the page";
    }
    for (SlotIndex i = 0; i <= 8; ++i)
        changing([&](BTreePage& copy) { return kalBTreeDeleteIndex(copy.page(), i, byKey); });

    BTreePage copy = damaged;
    KALBTreePage* reference = copy.page();
    for (const KALBTreeCompare compare : {static_cast<KALBTreeCompare>(nullptr), byTens}) {
        KALEnumerator* made = nullptr;
        if (kalBTreeSearchPartialKey(copy.page(), copy.item(30).data(), compare, &reference, &made) != KALDB_SUCCESS)
            continue;
        const Enumerator walk{made};
        unsigned moves = 0;
        while (kalEnumeratorMoveNext(walk.get()) == KALDB_SUCCESS)
            ASSERT_LT(++moves, 20u) << "the walk goes round";
    }
    BTreePage destination{8, 8};
    kalBTreeSplit(copy.page(), destination.page(), 1, byKey);
    kalBTreeSplit(copy.page(), destination.page(), 0, byKey);
}

TEST(BTreePageDamage, EveryOperationEnds)
{
    BTreePage sound{8, 8};
    sound.insertAll({40, 20, 60, 10, 30, 50, 70});
    constexpr std::array<uint16_t, 7> hostile{0, 1, 7, 8, 0x100, 0xFFFE, 0xFFFF};

    // From the count on, field by field; what lies before it decides the page's size.
    const auto damage = [&](BTreePage& tree, std::size_t field, uint16_t value) {
        const std::size_t offset = 20 + field * 2;
        const bool flags = offset >= 32 && offset % 8 == 6;
        std::memcpy(tree.bytes.data() + offset, &value, flags ? 1 : 2);
    };
    constexpr std::size_t fields = 6 + 8 * 4;
    for (std::size_t field = 0; field < fields; ++field)
        for (const uint16_t value : hostile) {
            SCOPED_TRACE(testing::Message() << field << " = " << value);
            BTreePage tree = sound;
            damage(tree, field, value);
            ASSERT_NO_FATAL_FAILURE(expectEverythingEnds(tree));
        }
    Random random{5};
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(round);
        BTreePage tree = sound;
        for (unsigned faults = 2 + random(6); faults > 0; --faults)
            damage(tree, random(fields), static_cast<uint16_t>(random(9)));
        ASSERT_NO_FATAL_FAILURE(expectEverythingEnds(tree));
    }
}

TEST(BTreePageDamage, LinksThatDisagreeAreFailures)
{
    BTreePage sound{8, 8};
    sound.insertAll({40, 20, 60});
    SlotIndex index = 0;
    BTreePage tree = sound;
    tree.page()->root = 8;
    EXPECT_EQ(tree.insert(50, index), KALDB_FAILURE);
    EXPECT_EQ(kalBTreeUpdateItem(tree.page(), tree.item(40).data(), byKey), KALDB_FAILURE);
    tree = sound;
    tree.slot(1).parent = 2;  // 60 does not know 20
    EXPECT_EQ(kalBTreeDeleteIndex(tree.page(), 1, byKey), KALDB_FAILURE);
    for (const uint32_t count : {0u, 1u}) {
        tree = sound;
        tree.page()->count = count;
        EXPECT_EQ(kalBTreeDeleteIndex(tree.page(), 1, byKey), KALDB_FAILURE);
    }
    for (SlotIndex i = 0; i < 8; ++i)
        tree.slot(i).flags = 0;
    EXPECT_EQ(tree.insert(50, index), KALDB_NO_FREE_SLOT);
}

TEST(BTreePageDamage, LyingHeadersAreNotOpened)
{
    BTreePage sound{8, 8};
    sound.insertAll({40, 20});
    BTreeView view;
    ASSERT_EQ(BTreeView::open(sound.bytes, 8, view), Status::success);
    EXPECT_EQ(BTreeView::open(sound.bytes, 9, view), Status::failure);
    for (std::size_t length = 0; length < sound.bytes.size(); length += 4)
        EXPECT_EQ(BTreeView::open(std::span{sound.bytes}.first(length), 8, view), Status::failure);
    for (std::size_t offset = 0; offset < 30; offset += 2)
        for (const uint16_t value : std::to_array<uint16_t>({0x8000, 0xFFFF, 8, 0})) {
            const auto old = readField<uint16_t>(sound.bytes.data(), offset);
            const bool link = offset >= 24;
            if (old == value || (link && value < 8))
                continue;
            writeField(sound.bytes.data(), offset, value);
            // A count that names a possible number is found out only by looking at the slots.
            const bool opens = offset == 20 && value == 8;
            EXPECT_EQ(BTreeView::open(sound.bytes, 8, view), opens ? Status::success : Status::failure) << offset;
            writeField(sound.bytes.data(), offset, old);
        }
}

}  // namespace
