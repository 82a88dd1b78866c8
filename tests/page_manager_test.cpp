// The page manager and the page tracker: images of files, the cache against a model, and what every build traces.

#include "common/trace.h"
#include "kalpagemanager/page_index.h"
#include "kalpagemanager/slot_set.h"
#include "support/page_store.h"

#include <kaldb/diagnostics.h>
#include <kaldb/page_tracker.h>

#include <map>
#include <random>
#include <set>
#include <vector>

namespace {

using test::fileHeader;
using test::page;
using test::same;
using test::withoutTimes;

constexpr uint32_t none = 0xFFFFFFFF;

using PageManager = test::PageStore;

TEST_F(PageManager, FilesAreWrittenByteForByte)
{
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(created, 1u);
    EXPECT_TRUE(same(file(), fileHeader(0, none, 1)));
    ASSERT_EQ(close(), 0u);
    EXPECT_TRUE(same(file(), fileHeader(0)));

    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(created, 0u);
    ASSERT_EQ(create("zero"), 0u);
    ASSERT_EQ(kalPageManagerSetStartPage(manager, 0), 0u);
    EXPECT_TRUE(same(file(), fileHeader(1, 0, 1))) << "counted and noted at once, written later";
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 0, &body), 0u);
    ASSERT_EQ(kalPageManagerFlushPage(manager, body), 0u);
    EXPECT_TRUE(same(withoutTimes(file()), fileHeader(1, 0, 1) + page(0, 1, 0, 0, "zero")));
    ASSERT_EQ(kalPageManagerSetStartPage(manager, 3), 0u);
    ASSERT_EQ(kalPageManagerSetPageDirty(manager, body), 0u);
    ASSERT_EQ(create("one"), 0u);
    ASSERT_EQ(close(), 0u) << "the page still held is no obstacle";

    EXPECT_TRUE(same(withoutTimes(file()), fileHeader(2, 3) + page(0, 0, 0, 0, "zero") + page(1, 0, 0, 0, "one")));
    EXPECT_LE(static_cast<uint32_t>(time(nullptr)) - test::u32At(file(), 92 + 20), 100u);
    EXPECT_TRUE(same(file(), backup()));
}

TEST_F(PageManager, HeadersThatCannotBeOursAreRefusedAndLeftAlone)
{
    const std::string good = fileHeader(0);
    std::vector<std::string> images{good.substr(0, 1), good.substr(0, 88), good.substr(0, 91)};
    for (const std::size_t offset : {0u, 3u, 68u, 72u, 84u})
        ++images.emplace_back(good)[offset];
    test::LogLines log;
    for (const std::string& bad : images) {
        test::writeFile(dir / "db", bad);
        uint32_t dirty = 7;
        EXPECT_EQ(open(), 1u);
        EXPECT_EQ(manager, nullptr);
        EXPECT_EQ(created, 0u) << "known as soon as the file is open";
        EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 1u);
        EXPECT_EQ(dirty, 7u);
        EXPECT_TRUE(same(file(), bad));
    }
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "InitFromFile() header name mismatch\n"), kaldb::tracing ? 6 : 0);
}

TEST_F(PageManager, CacheSizesWrapAround)
{
    const std::map<uint32_t, uint32_t> slotsOf{{0, 4},          {2047, 4},       {2048, 5},       {1 << 20, 516},
                                               {4294959104, 0}, {4294961152, 0}, {4294961153, 1}, {4294967295, 3}};
    for (const auto& [bytes, slots] : slotsOf) {
        ASSERT_EQ(open(bytes), 0u);
        uint32_t held = 0, number = 0;
        void* body = nullptr;
        for (; kalPageManagerCreatePage(manager, test::write, &number, &body) == 0; ++held)
            ASSERT_EQ(manager->releaseLock(number), kaldb::Status::success);
        EXPECT_EQ(held, slots) << bytes << " bytes";
        EXPECT_EQ(kalPageManagerLoadPage(manager, test::read, number + 1, &body), 7u);
        ASSERT_EQ(close(), 0u);
    }
}

/// Who holds what: 20 pages at most.
struct ModelLocks {
    struct Lock {
        uint32_t type = 0, count = 0;
    };
    uint32_t request(uint32_t page, uint32_t type)
    {
        constexpr uint32_t refused = 9;
        // request for reading, writing, both; type before -> type after, or refused
        constexpr uint32_t table[4][4] = {{}, {1, 1, refused, 3}, {2, refused, 2, 3}, {3, refused, refused, 3}};
        if (held.count(page) == 0 && held.size() == 20)
            return 12;
        if (type > 3)
            return 27;
        if (type == 0)
            return release(page), 0;
        const auto [before, count] = of(page);
        if (table[type][before] == refused)
            return 18;
        held[page] = {table[type][before], count + 1};
        return 0;
    }
    uint32_t release(uint32_t page)
    {
        if (held.count(page) == 0)
            return 16;
        if (--held[page].count == 0)
            held.erase(page);
        return 0;
    }
    Lock of(uint32_t page) const { return held.count(page) == 0 ? Lock{} : held.at(page); }

    std::map<uint32_t, Lock> held;
};

TEST(PageTracker, FollowsItsTableOfRequests)
{
    std::mt19937 random(20);
    ModelLocks model;
    KALPageTracker* tracker = nullptr;
    ASSERT_EQ(kalPageTrackerInitialize(20, 0, &tracker), 0u);
    for (int step = 0; step < 50'000; ++step) {
        SCOPED_TRACE(step);
        const uint32_t page = static_cast<uint32_t>(random() % 25), type = static_cast<uint32_t>(random() % 5);
        // Phases of taking, in which the records run out, and of giving back.
        if (step % 200 >= 150)
            ASSERT_EQ(kalPageTrackerUnlockPage(tracker, page), model.release(page));
        else
            ASSERT_EQ(kalPageTrackerLockPage(tracker, page, type), model.request(page, type));
        const auto [held, times] = model.of(page);
        uint32_t lock = 0, count = 0, locked = 7;
        ASSERT_EQ(kalPageTrackerGetPageLockType(tracker, page, &lock), times == 0 ? 1u : 0u);
        ASSERT_EQ(kalPageTrackerGetPageLockCount(tracker, page, &count), times == 0 ? 1u : 0u);
        ASSERT_EQ(kalPageTrackerIsPageLocked(tracker, page, &locked), 0u);
        ASSERT_EQ(std::tuple(lock, count, locked), std::tuple(held, times, times != 0));
    }
    EXPECT_EQ(kalPageTrackerDeinitialize(tracker), 0u);
}

/// What the cache must do, written down as plainly as it goes.
struct ModelCache {
    struct Slot {
        uint32_t page = none, references = 0, stamp = 0;
        bool dirty = false;
    };
    uint32_t load(uint32_t type, uint32_t number, std::size_t& at)
    {
        for (at = 0; at < slots.size() && slots[at].page != number;)
            ++at;
        if (at == slots.size()) {
            if (!choose(at))
                return 7;
            if (inFile.count(number) == 0)
                return inFile.empty() || number > inFile.rbegin()->first ? 15 : 1;  // past the end, or a hole of zeros
            slots[at] = {number, 0, inFile[number], false};
        }
        const uint32_t status = locks.request(number, type);
        if (status == 0 && type != 0)
            ++slots[at].references;
        else if (status == 0)
            dereference(slots[at]);
        return status;
    }
    uint32_t create(uint32_t type, std::size_t& at)
    {
        if (!choose(at))
            return 7;
        const uint32_t status = locks.request(count, type);
        if (status == 0)
            slots[at] = {count++, 1, 0, true};
        return status;
    }
    void flush(Slot& slot)
    {
        if (slot.dirty)
            inFile[slot.page] = slot.stamp;
        slot.dirty = false;
    }
    static void dereference(Slot& slot) { slot.references -= slot.references > 0 ? 1 : 0; }
    /// The lowest free slot, else the lowest without holders, emptied.
    bool choose(std::size_t& at)
    {
        for (at = 0; at < slots.size() && slots[at].page != none;)
            ++at;
        if (at == slots.size())
            for (at = 0; at < slots.size() && slots[at].references > 0;)
                ++at;
        if (at == slots.size())
            return false;
        flush(slots[at]);
        slots[at] = {};
        return true;
    }

    std::vector<Slot> slots;
    ModelLocks locks;
    std::map<uint32_t, uint32_t> inFile;  // the stamps of the pages that were written
    uint32_t count = 0;
};

class CacheModel : public PageManager, public testing::WithParamInterface<uint32_t> {
protected:
    uint32_t below(std::size_t limit) { return static_cast<uint32_t>(random() % limit); }
    char* bodyOf(std::size_t at)
    {
        highest = std::max(highest, at);
        return firstSlot + at * 2048 + 28;
    }
    void stampPage(ModelCache::Slot& slot, char* body)
    {
        slot.stamp = ++lastStamp;
        std::memcpy(body + 2016, &slot.stamp, 4);
    }
    void stepOnce()
    {
        constexpr uint32_t types[] = {0, 1, 1, 1, 2, 2, 2, 3, 4};
        const uint32_t choice = firstSlot == nullptr ? 0 : below(24), number = below(model.count + 2);
        const uint32_t type = firstSlot == nullptr ? test::write : types[below(std::size(types))];
        std::size_t at = below(model.slots.size());
        ModelCache::Slot& slot = model.slots[at];
        uint32_t expected = 0, found = 0, newPage = none;
        void* body = nullptr;
        if (choice < 2) {
            expected = model.create(type, at);
            found = kalPageManagerCreatePage(manager, type, &newPage, &body);
            firstSlot = firstSlot == nullptr ? static_cast<char*>(body) - 28 : firstSlot;
            ASSERT_EQ(newPage, expected == 0 ? model.count - 1 : none);
            if (expected == 0)
                stampPage(model.slots[at], static_cast<char*>(body));
        } else if (choice < 8) {
            expected = model.load(type, number, at);
            found = kalPageManagerLoadPage(manager, type, number, &body);
        } else if (choice < 10) {
            expected = model.load(0, number, at);
            found = kalPageManagerUnlockPage(manager, number);
        } else if (choice < 12) {
            expected = model.locks.release(number);
            found = code(manager->releaseLock(number));
        } else if (choice < 13) {
            for (ModelCache::Slot& each : model.slots)
                model.flush(each);
            found = kalPageManagerFlushAllPages(manager);
        } else if (slot.page != none && choice < 18) {
            slot.dirty = true;
            stampPage(slot, bodyOf(at));
            found = kalPageManagerSetPageDirty(manager, bodyOf(at));
        } else if (slot.page != none && choice < 20) {
            expected = slot.dirty ? 0 : 6;
            model.flush(slot);
            found = kalPageManagerFlushPage(manager, bodyOf(at));
        } else if (slot.page != none && choice < 21) {
            model.dereference(slot);
            found = kalPageManagerUnreferencePage(manager, bodyOf(at));
        } else if (slot.page != none) {
            expected = model.load(0, slot.page, at);
            found = kalPageManagerUnloadPage(manager, bodyOf(at));
        }
        ASSERT_EQ(found, expected);
        ASSERT_TRUE(found != 0 || body == nullptr || body == bodyOf(at)) << "another slot";
    }
    /// Slot headers and bodies, read from memory: the body of page 0, created first, lies in slot 0.
    void expectSlots() const
    {
        static const std::string free = test::formattedPage();
        bool locked = false;
        for (std::size_t at = 0; at < model.slots.size() && at <= highest; ++at) {
            const ModelCache::Slot& slot = model.slots[at];
            const std::string image(firstSlot + at * 2048, 2048);
            const bool isFree = slot.page == none;
            ASSERT_EQ(test::u32At(image, 8), slot.page) << "slot " << at;
            ASSERT_EQ(test::u32At(image, 12), slot.references) << "slot " << at;
            ASSERT_EQ(test::u32At(image, 16), isFree ? 4u : slot.dirty ? 1u : 0u) << "slot " << at;
            ASSERT_TRUE(isFree ? image == free : test::u32At(image, 28 + 2016) == slot.stamp) << "slot " << at;
            locked = locked || model.locks.held.count(slot.page) > 0;
        }
        ASSERT_EQ(pmAreMemPagesLocked(manager), locked ? 1u : 0u);
    }

    std::mt19937 random{GetParam()};
    ModelCache model{std::vector<ModelCache::Slot>(GetParam()), {}, {}};
    uint32_t lastStamp = 0;
    char* firstSlot = nullptr;
    std::size_t highest = 0;
};

TEST_P(CacheModel, EveryStepOfALongRandomRunAgrees)
{
    ASSERT_EQ(open((GetParam() - 4) * 2048), 0u);
    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE(step);
        ASSERT_NO_FATAL_FAILURE(stepOnce());
        ASSERT_NO_FATAL_FAILURE(expectSlots());
    }
    ASSERT_EQ(close(), 0u);
    for (ModelCache::Slot& slot : model.slots)
        model.flush(slot);
    const std::string image = file();
    EXPECT_TRUE(test::isComplete(image) && !test::isDirty(image));
    for (const auto& [number, stamp] : model.inFile)
        ASSERT_EQ(test::u32At(image, 92 + number * 2048 + 28 + 2016), stamp) << "page " << number;
}
INSTANTIATE_TEST_SUITE_P(Sizes, CacheModel, testing::Values(4, 5, 16, 70));

TEST(SlotSet, AgreesWithAnOrderedSet)
{
    for (const uint32_t slots : {1u, 63u, 64u, 65u, 4097u, 300'000u}) {
        kaldb::SlotSet set;
        std::set<uint32_t> model;
        std::mt19937 random(slots);
        ASSERT_TRUE(set.allocate(slots, "tests"));
        for (int step = 0; step < 20000; ++step) {
            const uint32_t slot = static_cast<uint32_t>(random() % slots);
            if (random() % 2 == 0 || model.empty())
                set.insert(*model.insert(slot).first);
            else
                set.erase(model.extract(std::prev(model.end())).value());
            const uint32_t from = static_cast<uint32_t>(random() % slots);
            const auto next = model.lower_bound(from);
            ASSERT_EQ(set.next(from), next == model.end() ? kaldb::SlotSet::none : *next);
            ASSERT_EQ(set.contains(slot), model.count(slot) > 0);
        }
    }
}

TEST(PageIndex, AgreesWithAMap)
{
    for (const uint32_t slots : {1u, 3u, 64u, 3000u}) {
        kaldb::PageIndex index;
        std::map<uint32_t, uint32_t> model;
        std::mt19937 random(slots);
        const auto any = [&] { return static_cast<uint32_t>(random() % (slots * 2)); };
        for (uint32_t step = 0; step < 100'000; ++step) {
            const uint32_t number = any() * (step % 2 == 0 ? 1u : 0x01000193u), probe = any();
            ASSERT_TRUE(index.reserve(static_cast<uint32_t>(model.size() + 1), "tests"));
            if (model.erase(number) > 0)
                index.erase(number);
            else if (model.size() < slots)
                index.insert(number, model[number] = step);
            ASSERT_EQ(index.find(probe), model.count(probe) > 0 ? model[probe] : kaldb::PageIndex::none);
        }
    }
}

TEST(Trace, ABuildWithoutThemEvaluatesNoArgumentAndStillYieldsTheStatus)
{
    constexpr kaldb::TraceSource here{u"kaldbchain: ", u"dbchainRelink"};
    int evaluated = 0;
    const auto page = [&] { return static_cast<uint32_t>(++evaluated); };
    KAL_TRACE(here, u"looking at page %ld", page());
    const kaldb::Status status = KAL_TRACE(here, kaldb::Status::lockConflict, u"could not load page %ld", page());
    EXPECT_EQ(status, kaldb::Status::lockConflict);
    EXPECT_EQ(evaluated, kaldb::tracing ? 2 : 0);
}

TEST_F(PageManager, TracesShowTheManagerItsSlotsAndItsPages)
{
    test::LogLines log;
    void* body = nullptr;
    ASSERT_EQ(open(), 0u);
    pmTraceCachePages(manager);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "Page -1\n"), kaldb::tracing ? 4 : 0);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "Flags = 0x00000004\n"), kaldb::tracing ? 4 : 0);
    ASSERT_EQ(create("page"), 0u);
    pmTracePageManager(manager);
    pmTraceFilePages(manager);
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::write, 0, &body), 0u);
    EXPECT_EQ(pmIsPageLocked(manager, body), 1u);
    pmTraceFilePages(manager);
    ASSERT_EQ(close(), 0u);
    const std::string traced = log.of(KAL_LOG_TRACE);
    for (const std::string text :
         {"Type Name = PMR\nName = \nFile Header Length = 92\nPage Size = 2048\nUsable Page Size = 2020\n"
          "Pages In File = 1\nStart Page = -1\nVersion = 1\nData File Handle = ",
          "Lock Type = none\nRead Lock Count = 0\nMax Cached Pages = 4\n", "Flags = 0x00000001\n",
          "kalpagemanager: kalpageManagerUnloadPage() unloaded page 0\n",
          "kalpagemanager: pmTraceFilePages() could not load page 0 [0x12 - ",
          "kalpagemanager: kalPageManagerDeinitialize() resetting non-zero reference (1) count for page 0\n",
          "kalpagemanager: kalPageManagerFlush() flushing clean page -1\n"})
        EXPECT_EQ(traced.find(text) != std::string::npos, kaldb::tracing) << text << traced;
}

}  // namespace
