// The page manager: images of files, the cache against a model, backups, damage, and what every build traces.

#include "common/trace.h"
#include "kalpagemanager/page_index.h"
#include "kalpagemanager/slot_set.h"
#include "support/page_store.h"

#include <kaldb/diagnostics.h>

#include <array>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace {

using test::fileHeader;
using test::formattedPage;
using test::page;
using test::readFile;
using test::same;
using test::withoutTimes;
using test::writeFile;

class PageManager : public test::PageStore {};

TEST_F(PageManager, FilesAreWrittenByteForByte)
{
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(created, 1u);
    EXPECT_TRUE(same(file(), fileHeader(0, 0xFFFFFFFF, 1)));
    ASSERT_EQ(close(), 0u);
    EXPECT_TRUE(same(file(), fileHeader(0)));

    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(created, 0u);
    ASSERT_EQ(create("zero"), 0u);
    EXPECT_TRUE(same(file(), fileHeader(1, 0xFFFFFFFF, 1))) << "counted at once, written later";
    EXPECT_EQ(visit(1), 15u) << "beyond the end";
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 0, &body), 0u);
    ASSERT_EQ(kalPageManagerFlushPage(manager, body), 0u);
    EXPECT_EQ(kalPageManagerFlushPage(manager, body), 6u);
    EXPECT_TRUE(same(withoutTimes(file()), fileHeader(1, 0xFFFFFFFF, 1) + page(0, 1, 0, 0, "zero")));
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
    for (const std::size_t offset : {0u, 3u, 68u, 72u, 84u}) {
        std::string bad = good;
        bad[offset] = static_cast<char>(bad[offset] + 1);
        writeFile(dir / "db", bad);
        uint32_t dirty = 7;
        EXPECT_EQ(open(), 1u) << "offset " << offset;
        EXPECT_EQ(manager, nullptr);
        EXPECT_EQ(created, 0u) << "known as soon as the file is open";
        EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 1u);
        EXPECT_EQ(dirty, 7u);
        EXPECT_TRUE(same(file(), bad));
    }
    for (const std::size_t length : {1u, 88u, 91u}) {
        writeFile(dir / "db", good.substr(0, length));
        EXPECT_EQ(open(), 1u) << "length " << length;
        EXPECT_TRUE(same(file(), good.substr(0, length)));
    }
}

TEST_F(PageManager, CacheSizesWrapAround)
{
    const std::map<uint32_t, uint32_t> slotsOf{{0, 4},          {2047, 4},       {2048, 5},       {1 << 20, 516},
                                               {4294959104, 0}, {4294961152, 0}, {4294961153, 1}, {4294967295, 3}};
    for (const auto& [bytes, slots] : slotsOf) {
        ASSERT_EQ(open(bytes), 0u);
        uint32_t held = 0, number = 0;
        void* body = nullptr;
        while (kalPageManagerCreatePage(manager, test::write, &number, &body) == 0) {
            ++held;
            ASSERT_EQ(manager->releaseLock(number), kaldb::Status::success);
        }
        EXPECT_EQ(held, slots) << bytes << " bytes";
        EXPECT_EQ(kalPageManagerLoadPage(manager, test::read, number + 1, &body), 7u);
        ASSERT_EQ(close(), 0u);
    }
}

// ---- the cache against a model -------------------------------------------------------------------------------------

struct ModelSlot {
    uint32_t page = 0xFFFFFFFF;
    uint32_t references = 0;
    bool dirty = false;
};

/// What the cache must do, written down as plainly as it goes.
class ModelCache {
public:
    explicit ModelCache(uint32_t slotCount) : slots(slotCount) {}

    uint32_t load(uint32_t type, uint32_t number, std::size_t& at)
    {
        if (uint32_t status = bring(number, at); status != 0)
            return status;
        if (uint32_t status = lock(type, number); status != 0)
            return status;
        if (type != 0)
            ++slots[at].references;
        else if (slots[at].references > 0)
            --slots[at].references;
        return 0;
    }
    uint32_t create(uint32_t type, std::size_t& at)
    {
        if (!choose(at))
            return 7;
        slots[at] = {};
        if (uint32_t status = lock(type, count); status != 0)
            return status;
        slots[at] = {count++, 1, true};
        return 0;
    }
    void flush(ModelSlot& slot)
    {
        if (slot.dirty)
            inFile.insert(slot.page);
        slot.dirty = false;
    }

    std::vector<ModelSlot> slots;
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> locks;  // type and count
    std::set<uint32_t> inFile;
    uint32_t count = 0;

private:
    uint32_t bring(uint32_t number, std::size_t& at)
    {
        for (at = 0; at < slots.size(); ++at)
            if (slots[at].page == number)
                return 0;
        if (!choose(at))
            return 7;
        slots[at] = {};
        if (inFile.count(number) == 0)
            return inFile.empty() || number > *inFile.rbegin() ? 15 : 1;  // past the end, or a hole of zeros
        slots[at].page = number;
        return 0;
    }
    bool choose(std::size_t& at)
    {
        for (at = 0; at < slots.size(); ++at)
            if (slots[at].page == 0xFFFFFFFF)
                return true;
        for (at = 0; at < slots.size() && slots[at].references > 0;)
            ++at;
        if (at < slots.size())
            flush(slots[at]);
        return at < slots.size();
    }
    uint32_t lock(uint32_t type, uint32_t number)
    {
        const auto found = locks.find(number);
        if (type == 0) {
            if (found != locks.end() && --found->second.second == 0)
                locks.erase(found);
            return 0;
        }
        if (found == locks.end() && locks.size() == 20)
            return 12;
        if (found == locks.end())
            locks[number] = {type, 1};
        else if (found->second.first != type)
            return 18;
        else
            ++found->second.second;
        return 0;
    }
};

class CacheModel : public PageManager, public testing::WithParamInterface<uint32_t> {
protected:
    /// Slot headers and bodies, read from memory: the body of page 0, created first, lies in slot 0.
    void expectSlots(const ModelCache& model, const std::map<uint32_t, uint32_t>& stamps)
    {
        static const std::string free = formattedPage();
        for (std::size_t at = 0; at < model.slots.size() && at <= highest; ++at) {
            const ModelSlot& slot = model.slots[at];
            const char* image = firstSlot + at * 2048;
            const bool isFree = slot.page == 0xFFFFFFFF;
            uint32_t header[5], stamp = 0;
            std::memcpy(header, image, sizeof header);
            std::memcpy(&stamp, image + 28 + 2016, sizeof stamp);
            ASSERT_EQ(header[2], slot.page) << "slot " << at;
            ASSERT_EQ(header[3], slot.references) << "slot " << at;
            ASSERT_EQ(header[4], isFree ? 4u : slot.dirty ? 1u : 0u) << "slot " << at;
            if (isFree)
                ASSERT_EQ(std::memcmp(image, free.data(), free.size()), 0) << "slot " << at;
            else
                ASSERT_EQ(stamp, stamps.at(slot.page)) << "slot " << at;
        }
    }
    void* bodyOf(std::size_t at)
    {
        highest = std::max(highest, at);
        return firstSlot + at * 2048 + 28;
    }

    char* firstSlot = nullptr;
    std::size_t highest = 0;
};

TEST_P(CacheModel, EveryStepOfALongRandomRunAgrees)
{
    const uint32_t slotCount = GetParam();
    std::mt19937 random(slotCount);
    ModelCache model(slotCount);
    std::map<uint32_t, uint32_t> stamps;
    uint32_t stamp = 0;
    ASSERT_EQ(open((slotCount - 4) * 2048), 0u);

    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE(step);
        const uint32_t number = static_cast<uint32_t>(random() % (model.count + 2));
        const std::size_t any = random() % slotCount;
        const bool holdsPage = model.slots[any].page != 0xFFFFFFFF;
        std::size_t at = 0;
        uint32_t expected = 0, found = 0, newPage = 0;
        void* body = nullptr;
        switch (step == 0 ? 0 : random() % 12) {
        case 0:
            expected = model.create(test::write, at);
            found = kalPageManagerCreatePage(manager, test::write, &newPage, &body);
            if (step == 0)
                firstSlot = static_cast<char*>(body) - 28;
            if (expected == 0) {
                EXPECT_EQ(newPage, model.count - 1);
                std::memset(body, 0, 2020);
                std::memcpy(static_cast<char*>(body) + 2016, &++stamp, 4);
                stamps[newPage] = stamp;
            }
            break;
        case 1:
        case 2:
        case 3: {
            const uint32_t type = static_cast<uint32_t>(random() % 3);
            expected = model.load(type, number, at);
            found = kalPageManagerLoadPage(manager, type, number, &body);
            break;
        }
        case 4:
            expected = model.load(0, number, at);
            found = kalPageManagerUnlockPage(manager, number);
            break;
        case 5:
            expected = model.locks.count(number) == 0 ? 16 : 0;
            found = code(manager->releaseLock(number));
            if (expected == 0 && --model.locks[number].second == 0)
                model.locks.erase(number);
            break;
        case 6:
            expected = found = 0;
            for (ModelSlot& slot : model.slots)
                model.flush(slot);
            ASSERT_EQ(kalPageManagerFlushAllPages(manager), 0u);
            break;
        default:
            if (!holdsPage)
                break;
            body = bodyOf(any);
            if (random() % 2 == 0) {
                std::memcpy(static_cast<char*>(body) + 2016, &++stamp, 4);
                stamps[model.slots[any].page] = stamp;
                model.slots[any].dirty = true;
                found = kalPageManagerSetPageDirty(manager, body);
            } else if (random() % 3 == 0) {
                expected = model.slots[any].dirty ? 0 : 6;
                model.flush(model.slots[any]);
                found = kalPageManagerFlushPage(manager, body);
            } else if (random() % 4 == 0) {
                model.slots[any].references -= model.slots[any].references > 0 ? 1u : 0u;
                found = kalPageManagerUnreferencePage(manager, body);
            } else {
                expected = model.load(0, model.slots[any].page, at);
                found = kalPageManagerUnloadPage(manager, body);
            }
            body = nullptr;
        }
        ASSERT_EQ(found, expected);
        ASSERT_TRUE(found != 0 || body == nullptr || body == bodyOf(at)) << "another slot";
        ASSERT_NO_FATAL_FAILURE(expectSlots(model, stamps));
        const bool locked = std::any_of(model.slots.begin(), model.slots.end(),
                                        [&](const ModelSlot& slot) { return model.locks.count(slot.page) > 0; });
        ASSERT_EQ(pmAreMemPagesLocked(manager), locked ? 1u : 0u);
    }
    ASSERT_EQ(close(), 0u);
    const std::string image = file();
    EXPECT_TRUE(test::isComplete(image) && !test::isDirty(image));
    for (const auto& [number, value] : stamps)
        ASSERT_EQ(test::u32At(image, 92 + number * 2048 + 28 + 2016), value) << "page " << number;
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
            if (random() % 2 == 0) {
                set.insert(slot);
                model.insert(slot);
            } else {
                const uint32_t victim = model.empty() ? slot : *model.rbegin();
                set.erase(victim);
                model.erase(victim);
            }
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
        ASSERT_TRUE(index.reserve(1, "tests"));
        for (uint32_t step = 0; step < 200000; ++step) {
            const uint32_t number = static_cast<uint32_t>(random() % (slots * 2)) * (step % 2 == 0 ? 1u : 0x01000193u);
            if (model.count(number) > 0) {
                index.erase(number);
                model.erase(number);
            } else if (model.size() < slots) {
                ASSERT_TRUE(index.reserve(static_cast<uint32_t>(model.size() + 1), "tests"));
                index.insert(number, step);
                model[number] = step;
            }
            const uint32_t probe = static_cast<uint32_t>(random() % (slots * 2));
            ASSERT_EQ(index.find(probe), model.count(probe) > 0 ? model[probe] : kaldb::PageIndex::none);
        }
    }
}

// ---- damage --------------------------------------------------------------------------------------------------------

TEST_F(PageManager, PagesThatAreNotTheirOwnAreRefusedAndKeepTheLastGoodBackup)
{
    const std::string good = fileHeader(2) + page(0, 0, 0, 1, "good") + page(1, 0, 0, 2, "old");
    writeFile(dir / "db.backup", good);
    const std::string damaged[] = {
        fileHeader(2) + page(1, 0, 0, 1, "wrong number") + page(1, 0, 0, 2, "old"),
        fileHeader(2) + std::string(2048, '\0') + page(1, 0, 0, 2, "old"),
        fileHeader(1) + page(0, 0, 0, 1, "cut").substr(0, 2047),
    };
    for (const std::string& bytes : damaged) {
        test::LogLines log;
        writeFile(dir / "db", bytes);
        ASSERT_EQ(open(), 0u);
        EXPECT_EQ(visit(0), bytes.size() % 2048 == 91 ? 8u : 1u);
        EXPECT_EQ(visit(0), bytes.size() % 2048 == 91 ? 8u : 1u) << "nothing of it stays in the cache";
        EXPECT_EQ(kalPageManagerBackupWhileRunning(manager), 26u);
        EXPECT_EQ(close(), 0u);
        EXPECT_EQ(log.count(KAL_LOG_ERROR, "kalPageManagerBackup() could not backup database '"), 2);
        EXPECT_TRUE(same(backup(), good));
        EXPECT_FALSE(test::isDirty(file()));
    }
}

TEST_F(PageManager, WhatAFileSaysOfReferencesAndFlagsIsNotBelieved)
{
    writeFile(dir / "db", fileHeader(1) + page(0, 77, 5, 9, "body"));
    ASSERT_EQ(open(), 0u);
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::read, 0, &body), 0u);
    EXPECT_EQ(kalPageManagerFlushPage(manager, body), 6u);
    ASSERT_EQ(kalPageManagerSetPageDirty(manager, body), 0u);
    ASSERT_EQ(kalPageManagerFlushPage(manager, body), 0u);
    EXPECT_TRUE(same(file(), fileHeader(1, 0xFFFFFFFF, 1) + page(0, 1, 0, 9, "body")));
}

TEST_F(PageManager, GapsThatACrashLeftAreFilledAndLiesAreNot)
{
    // The header counts two pages that the file never got, and half of the one before is missing.
    writeFile(dir / "db", fileHeader(4, 0, 1) + page(0, 0, 0, 1, "a") + page(1, 0, 0, 2, "b").substr(0, 1000));
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(visit(2), 15u);
    ASSERT_EQ(create("new"), 0u);
    ASSERT_EQ(kalPageManagerFlushAllPages(manager), 0u);
    EXPECT_EQ(visit(1), 8u) << "the zeros before the new page do not make it whole";
    EXPECT_EQ(visit(3), 15u);
    ASSERT_EQ(close(), 0u);
    EXPECT_TRUE(same(withoutTimes(file()), fileHeader(5, 0) + page(0, 0, 0, 0, "a") + formattedPage() +
                                               formattedPage() + formattedPage() + page(4, 0, 0, 0, "new")));

    // More pages than the header counts: new ones come after them.
    writeFile(dir / "db", fileHeader(1) + page(0, 0, 0, 0, "a") + page(1, 0, 0, 0, "b") + "tail");
    uint32_t number = 0;
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("c", &number), 0u);
    EXPECT_EQ(number, 3u);
    ASSERT_EQ(close(), 0u);

    for (const uint32_t count : {1u + (1u << 14) + 1, 1u << 21, 0xFFFFFFFFu}) {
        writeFile(dir / "db", fileHeader(count) + page(0, 0, 0, 0, "a"));
        ASSERT_EQ(open(), 0u);
        EXPECT_TRUE(count != 0xFFFFFFFF || create("none left") == 12);
        ASSERT_EQ(close(), 0u);
        EXPECT_TRUE(same(file(), fileHeader(count) + page(0, 0, 0, 0, "a")));
        EXPECT_NE(test::u32At(backup(), 76), count) << "a file that lies is no backup";
    }
}

// ---- backups -------------------------------------------------------------------------------------------------------

TEST_F(PageManager, BackupsAreMadeReplacedAndRestored)
{
    std::filesystem::create_directory(dir / "cwd");
    std::filesystem::current_path(dir / "cwd");
    test::LogLines log;
    uint32_t dirty = 7;
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("first"), 0u);
    ASSERT_EQ(kalPageManagerBackupWhileRunning(manager), 0u);
    EXPECT_TRUE(test::isComplete(backup()) && !test::isDirty(backup()));
    EXPECT_TRUE(test::isComplete(file()) && test::isDirty(file()));
    EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 0u);
    EXPECT_EQ(dirty, 1u);

    ASSERT_EQ(change(0, "second"), 0u);
    ASSERT_EQ(close(), 0u);
    EXPECT_TRUE(same(file(), backup()));
    EXPECT_EQ(log.count(KAL_LOG_DEBUG, "kalPageManagerBackup() backed-up '"), 2);
    EXPECT_EQ(log.of(KAL_LOG_ERROR) + log.of(KAL_LOG_WARNING), "");
    EXPECT_TRUE(std::filesystem::is_empty(dir / "cwd")) << "no temporary file stays";

    const std::string good = backup();
    writeFile(dir / "db", "rubbish");
    EXPECT_EQ(kalPageManagerRestore(path.c_str()), 0u);
    EXPECT_TRUE(same(file(), good));
    EXPECT_EQ(kalPageManagerFileIsDirty(path.c_str(), &dirty), 0u);
    EXPECT_EQ(dirty, 0u);
    std::filesystem::remove(dir / "db.backup");
    EXPECT_EQ(kalPageManagerRestore(path.c_str()), 13u);
    EXPECT_TRUE(same(file(), good));

    // The copy fails: the old backup comes back. The working directory is gone: it is deleted.
    writeFile(dir / "db.backup", good);
    std::filesystem::remove(dir / "db");
    EXPECT_EQ(kalPageManagerBackup(path.c_str()), 13u);
    EXPECT_TRUE(same(backup(), good));
    EXPECT_EQ(log.of(KAL_LOG_WARNING), "Backup repository will be out of date!");
    writeFile(dir / "db", "anything");
    std::filesystem::remove(dir / "cwd");
    EXPECT_EQ(kalPageManagerBackup(path.c_str()), 0u);
    EXPECT_TRUE(same(backup(), "anything"));
    EXPECT_EQ(log.count(KAL_LOG_WARNING, "Unable to get current working directory: "), 1);
    EXPECT_EQ(log.count(KAL_LOG_ERROR, "Unable to maintian existing backup, deleting."), 1);
    std::filesystem::current_path("/");
}

TEST_F(PageManager, PathsMayBeLongOrRelativeAndTheProcessMayMove)
{
    std::filesystem::path deep = dir.path();
    while (deep.string().size() < 600)
        deep /= std::string(100, 'd');
    std::filesystem::create_directories(deep);
    path = (deep / "db").u16string();
    ASSERT_EQ(open(), 0u);
    const char16_t* location = nullptr;
    EXPECT_EQ(kalPageManagerGetLocation(manager, &location), 0u);
    EXPECT_EQ(location, path);
    ASSERT_EQ(create("deep"), 0u);
    ASSERT_EQ(close(), 0u);
    EXPECT_TRUE(same(readFile(deep / "db"), readFile(deep / "db.backup")));

    std::filesystem::current_path(dir.path());
    path = u"relative";
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("page"), 0u);
    std::filesystem::current_path("/");
    EXPECT_EQ(close(), 0u) << "the file is found again wherever the process went";
    EXPECT_TRUE(same(readFile(dir / "relative"), readFile(dir / "relative.backup")));
    EXPECT_TRUE(test::isComplete(readFile(dir / "relative")) && !test::isDirty(readFile(dir / "relative")));
}

// ---- arguments and traces ------------------------------------------------------------------------------------------

TEST_F(PageManager, ImpossibleArgumentsAreAnswered)
{
    uint32_t number = 7;
    void* body = nullptr;
    EXPECT_EQ(kalPageManagerInitialize((dir / "no" / "such").u16string().c_str(), 0, &manager, &created), 13u);
    EXPECT_EQ(created, 7u) << "written only when a file is open";
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(create("page"), 0u);
    EXPECT_EQ(kalPageManagerCreatePage(manager, 4, &number, &body), 27u);
    EXPECT_EQ(visit(0xFFFFFFFF), 15u);
    EXPECT_EQ(kalPageManagerGetPageCount(manager, &number), 0u);
    EXPECT_EQ(number, 1u) << "a refused creation uses no number up";
    EXPECT_EQ(kalPageManagerGetPageSize(nullptr, &number), 0u);
    EXPECT_EQ(number, 2048u);
    EXPECT_EQ(kalPageManagerGetUsablePageSize(nullptr, &number), 0u);
    EXPECT_EQ(number, 2020u);
}

TEST_F(PageManager, TracesShowTheManagerItsSlotsAndItsPages)
{
    test::LogLines log;
    ASSERT_EQ(open(), 0u);
    pmTraceCachePages(manager);
    pmTraceFilePages(manager);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "Page -1\n"), kaldb::tracing ? 4 : 0);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "Flags = 0x00000004\n"), kaldb::tracing ? 4 : 0);
    if (!kaldb::tracing) {
        EXPECT_EQ(log.of(KAL_LOG_TRACE), "");
        return;
    }
    ASSERT_EQ(create("page"), 0u);
    log.clear();
    pmTracePageManager(manager);
    const std::string record = log.of(KAL_LOG_TRACE);
    const std::string expected = "Type Name = PMR\nName = \nFile Header Length = 92\nPage Size = 2048\n"
                                 "Usable Page Size = 2020\nPages In File = 1\nStart Page = -1\nVersion = 1\n"
                                 "Data File Handle = ";
    EXPECT_NE(record.find(expected), std::string::npos) << record;
    EXPECT_NE(record.find("Lock Type = none\nRead Lock Count = 0\nMax Cached Pages = 4\n"), std::string::npos);
    pmTraceFilePages(manager);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "Flags = 0x00000001\n"), 1);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kalpagemanager: kalpageManagerUnloadPage() unloaded page 0\n"), 1);
    ASSERT_EQ(visit(7), 15u);
    void* body = nullptr;
    ASSERT_EQ(kalPageManagerLoadPage(manager, test::write, 0, &body), 0u);
    EXPECT_EQ(pmIsPageLocked(manager, body), 1u);
    pmTraceFilePages(manager);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kalpagemanager: pmTraceFilePages() could not load page 0 [0x12 - "), 1);
    ASSERT_EQ(close(), 0u);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kalpagemanager: kalPageManagerDeinitialize() resetting non-zero reference (1) "
                                       "count for page 0\n"),
              1);
    EXPECT_EQ(log.count(KAL_LOG_TRACE, "kalpagemanager: kalPageManagerFlush() flushing clean page -1\n"), 3);
}

}  // namespace
