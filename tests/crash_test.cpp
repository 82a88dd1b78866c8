// The promise of the backup: kills and power cuts at every system call of a history of closes and running backups, and
// of the recoveries from them. Whatever is left opens and shows one of the states that it may show, whole.
//
// KALDB_TORTURE=n in the environment makes n times as many cases.

#include "support/database.h"
#include "support/page_file_image.h"
#include "support/process.h"
#include "support/quiet.h"
#include "support/system_calls.h"

#include <kaldb/kaldb.h>

#include <cstdlib>
#include <random>
#include <sys/mman.h>
#include <unordered_set>

namespace {

namespace fs = std::filesystem;
using calls::Disk;
using calls::Image;

unsigned torture()
{
    const char* const times = std::getenv("KALDB_TORTURE");
    return times == nullptr ? 1 : static_cast<unsigned>(std::max(1, std::atoi(times)));
}

/// The states that an open may show, as their numbers: the last one that is certain, and one that a close or backup in
/// progress may have completed.
struct Allowed {
    std::uint32_t certain = 0, later = 0;
    std::uint32_t tag() const { return certain << 16 | later; }
    static Allowed of(std::uint32_t tag) { return {tag >> 16, tag & 0xFFFF}; }
};

struct Row {
    KALDBID id{};
    std::int64_t key = 0;
    std::int64_t value = 0;
    KALDBVarString text{};
    char area[8]{};
    char filling[150]{};
};
static_assert(offsetof(Row, key) == offsetof(test::Record, key));

/// A database of one table, with texts out of line, in a directory; the process works in another one.
class Store {
public:
    Store()
    {
        fs::create_directory(data_);
        fs::create_directory(work_);
        fs::current_path(work_);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store() { fs::current_path("/"); }

    std::string file() const { return data_ / "db"; }
    Image files() const
    {
        Image image;
        for (const fs::path& directory : {data_, work_})
            for (const auto& entry : fs::directory_iterator{directory})
                image[entry.path()] = test::readFile(entry.path());
        return image;
    }
    void put(const Image& image) const
    {
        for (const fs::path& directory : {data_, work_})
            for (const auto& entry : fs::directory_iterator{directory})
                if (image.count(entry.path()) == 0)
                    fs::remove(entry.path());
        for (const auto& [name, bytes] : image) {
            fs::remove(name);  // a new file, as nobody holds it
            test::writeFile(name, bytes);
        }
    }

    std::uint32_t open(std::uint32_t cacheBytes)
    {
        std::uint32_t isNew = 0;
        if (const std::uint32_t s =
                kaldbInitialize(fs::path{file()}.u16string().c_str(), cacheBytes, &database_, &isNew);
            s != 0)
            return s;
        KALDBTableInfo info{u"History", sizeof(Row), KALDB_CHAIN_GUID, 0, 0};
        KALDBChainCallbacks callbacks{};
        callbacks.compare = test::byKey;
        const std::uint32_t s = kaldbTableCreate(database_, &info);
        return s != 0 && s != test::alreadyExists ? s : kaldbTableOpen(database_, u"History", &callbacks, &table_);
    }
    std::uint32_t close()
    {
        const std::uint32_t s = kaldbTableClose(std::exchange(table_, nullptr));
        const std::uint32_t closed = kaldbDeinitialize(std::exchange(database_, nullptr));
        return s != 0 ? s : closed;
    }
    std::uint32_t backup() const { return kaldbBackupDatabaseWhileRunning(database_); }

    /// Step `step` of the history: two insertions, an update, a deletion, and so on. The model gets the row's text.
    std::uint32_t change(int step, std::map<std::int64_t, std::string>& model) const
    {
        Row row;
        row.key = step % 4 < 2 ? step * 37 % 1009 : std::next(model.begin(), step % 2)->first;
        row.value = step;
        if (step % 4 == 3) {
            const std::uint32_t s = kaldbTableDeleteRecord(table_, &row, 0, nullptr);
            model.erase(row.key);
            return s;
        }
        if (step % 4 == 2)
            if (const std::uint32_t s = kaldbTableQueryPK(table_, &row, &row, sizeof row); s != 0)
                return s;
        row.value = step;
        const std::string text = textOf(step);
        kaldbVarStringCreate(sizeof row.area, &row.text, std::u16string(text.begin(), text.end()).c_str());
        const std::uint32_t stored = kaldbVarStringInsertRecord(&row.text);
        const std::uint32_t s = stored != 0     ? stored
                                : step % 4 == 2 ? kaldbTableUpdateRecord(table_, &row)
                                                : kaldbTableInsertRecord(table_, &row, 0, &row.id);
        kaldbVarStringDelete(&row.text);
        model[row.key] = line(row, text);
        return s;
    }

    /// Every row of the table as text: by a walk, and each again by its key and by its identifier.
    std::string contents() const
    {
        std::vector<Row> rows;
        const std::uint32_t s = kaldbTableEnumWithCallback(table_, &rows, [](void* context, const void* record) {
            Row row;
            std::memcpy(&row, record, sizeof row);
            static_cast<std::vector<Row>*>(context)->push_back(row);
            return 0U;
        });
        std::string all = s == 0 || s == test::notFound ? "" : "walk: status " + std::to_string(s);
        for (Row& row : rows) {
            Row byKey, byID;
            byKey.key = row.key;
            const std::uint32_t k = kaldbTableQueryPK(table_, &byKey, &byKey, sizeof byKey);
            const std::uint32_t i = kaldbTableQueryID(table_, &row.id, &byID, sizeof byID);
            const bool same = std::memcmp(&byKey, &row, sizeof row) == 0 && std::memcmp(&byID, &row, sizeof row) == 0;
            if (k != 0 || i != 0 || !same)
                all += "key: status " + std::to_string(k) + ", identifier: status " + std::to_string(i);
            const std::uint32_t t = kaldbVarStringGetRecord(&row.text);
            const char* const text = kaldbVarStringGetPSZ(&row.text);
            all += line(row, t == 0 && text != nullptr ? text : "status " + std::to_string(t));
            kaldbVarStringDelete(&row.text);
        }
        return all;
    }

private:
    static std::string textOf(int step)
    {
        return std::string(static_cast<std::size_t>(9 + step * 29 % 300), static_cast<char>('a' + step % 26));
    }
    static std::string line(const Row& row, const std::string& text)
    {
        return std::to_string(row.key) + " " + std::to_string(row.value) + " " + std::to_string(row.id.sequence) + " " +
               text + "\n";
    }

    test::TempDir directory_;
    fs::path data_ = directory_ / "data", work_ = directory_ / "work";
    KALDBDatabase* database_ = nullptr;
    KALDBTable* table_ = nullptr;
};

struct Recording {
    Image before;
    std::vector<calls::Call> log;
    Allowed end;
};

class Crash : public testing::Test {
protected:
    Crash()
    {
        EXPECT_EQ(store.open(0), 0U);
        for (; step < firstSteps; ++step)
            EXPECT_EQ(store.change(step, model), 0U);
        firstModel = model;
        states.push_back(modelText());
        EXPECT_EQ(store.close(), 0U);
        first = store.files();
    }

    std::string modelText() const
    {
        std::string text;
        for (const auto& [key, line] : model)
            text += line;
        return text;
    }

    /// Changes, a close, changes, a running backup, changes, another one, changes, a close, as often as asked for.
    /// `tell` is told what an open may show from here on.
    bool live(const std::function<void(Allowed)>& tell)
    {
        std::uint32_t done = 0;
        step = firstSteps;
        model = firstModel;
        const auto work = [&](int steps) {
            for (const int end = step + steps; step < end; ++step)
                if (store.change(step, model) != 0)
                    return false;
            if (states.size() == done + 1)
                states.push_back(modelText());
            tell({done, done + 1});
            return true;
        };
        const auto finished = [&](std::uint32_t status) {
            tell({++done, done});
            return status == 0;
        };
        tell({0, 0});
        bool good = true;
        for (unsigned i = 0; i < histories && good; ++i)
            good = store.open(0) == 0 && work(21) && finished(store.close()) && store.open(0) == 0 && work(11) &&
                   finished(store.backup()) && work(13) && finished(store.backup()) && work(9) &&
                   finished(store.close());
        return good;
    }

    Recording recordLife()
    {
        Recording recording{first, {}, {4 * histories, 4 * histories}};
        calls::startRecording(first);
        EXPECT_TRUE(live([](Allowed allowed) { calls::layer().tag = allowed.tag(); }));
        recording.log = calls::endRecording();
        Disk disk{recording.before};
        for (const calls::Call& call : recording.log)
            disk.play(call);
        EXPECT_TRUE(disk.afterKill() == store.files()) << "the recording misses something";
        return recording;
    }

    static bool cleanAndComplete(const Image& image, const std::string& name)
    {
        const auto found = image.find(name);
        return found != image.end() && test::isComplete(found->second) && !test::isDirty(found->second);
    }

    /// Opens what is left on a disk; false after the first failure. With `recovery`, gives what the open and close did.
    bool check(const Image& image, Allowed allowed, Recording* recovery = nullptr)
    {
        const std::size_t hash = std::hash<std::string>{}([&] {
            std::string all = std::to_string(allowed.tag());
            for (const auto& [name, bytes] : image)
                all += name + "\n" + bytes;
            return all;
        }());
        if (recovery == nullptr && !seen.insert(hash).second)
            return true;
        EXPECT_TRUE(cleanAndComplete(image, store.file()) || cleanAndComplete(image, store.file() + ".backup"));
        store.put(image);
        if (recovery != nullptr)
            calls::startRecording(image);
        if (const std::uint32_t status = store.open(recovery != nullptr ? 0 : 64 << 10); status != 0) {
            ADD_FAILURE() << "does not open: status " << status;
            return false;
        }
        const std::string found = store.contents();
        const std::uint32_t shown = found == states[allowed.certain] ? allowed.certain : allowed.later;
        EXPECT_TRUE(found == states[shown])
            << "state " << allowed.certain << " or " << allowed.later << " expected, found:\n"
            << found;
        EXPECT_EQ(store.close(), 0U);
        if (recovery != nullptr) {
            // What it has shown is not committed before its close; the older state may come back until then.
            *recovery = {image, calls::endRecording(), {shown, shown}};
            for (calls::Call& call : recovery->log)
                call.tag = Allowed{allowed.certain, shown}.tag();
        }
        std::uint32_t errors = 0;
        EXPECT_EQ(kaldbValidateFile(fs::path{store.file()}.u16string().c_str(), 0, &errors), 1U);
        EXPECT_EQ(errors, 0U);
        return !HasFailure();
    }

    /// Calls `visit` with what is on the disk before each call of a recording and after the last one.
    template <class Visit>
    static void visitMoments(const Recording& recording, Visit&& visit)
    {
        Disk disk{recording.before};
        for (std::size_t i = 0; i <= recording.log.size(); ++i) {
            const calls::Call* const next = i < recording.log.size() ? &recording.log[i] : nullptr;
            if (!visit(disk, next, next != nullptr ? Allowed::of(next->tag) : recording.end))
                return;
            if (next != nullptr)
                disk.play(*next);
        }
    }

    /// Kills before each call and half-way through each write; of `recoveries`, one in so many is recorded.
    void killEverywhere(const Recording& recording, unsigned oneIn, std::vector<Recording>* recoveries)
    {
        visitMoments(recording, [&](const Disk& disk, const calls::Call* next, Allowed allowed) {
            SCOPED_TRACE("kill point " + std::to_string(killPoints));
            Recording recovery;
            const bool recorded = recoveries != nullptr && random() % oneIn == 0;
            ++killPoints;
            if (!check(disk.afterKill(), allowed, recorded ? &recovery : nullptr))
                return false;
            if (recorded)
                recoveries->push_back(std::move(recovery));
            if (next == nullptr || next->kind != calls::Kind::write)
                return true;
            calls::Call half = *next;
            half.bytes.resize(half.bytes.size() / 2);
            Disk torn = disk;
            torn.play(half);
            ++killPoints;
            return check(torn.afterKill(), allowed);
        });
    }

    /// All lost, all kept, each one lost, each one kept, and random sectors.
    void cutPowerEverywhere(const Recording& recording, unsigned randomOnes)
    {
        visitMoments(recording, [&](const Disk& disk, const calls::Call*, Allowed allowed) {
            const std::size_t unsynced = disk.unsynced();
            SCOPED_TRACE("power cut with " + std::to_string(unsynced) + " unsynced");
            const auto cut = [&](const std::function<bool(std::size_t, std::size_t)>& keeps) {
                return check(disk.afterPowerCut(keeps), allowed);
            };
            bool sound = cut([](std::size_t, std::size_t) { return false; }) &&
                         cut([](std::size_t, std::size_t) { return true; });
            for (std::size_t one = 0; sound && one < unsynced; ++one)
                sound = cut([&](std::size_t each, std::size_t) { return each != one; }) &&
                        cut([&](std::size_t each, std::size_t) { return each == one; });
            for (unsigned i = 0; sound && unsynced > 0 && i < randomOnes; ++i) {
                const unsigned kept = static_cast<unsigned>(random() % 15) + 1;
                sound = cut([&](std::size_t, std::size_t) { return random() % 16 < kept; });
            }
            return sound;
        });
    }

    static constexpr int firstSteps = 12;
    unsigned histories = 1 + std::min(torture(), 60U) / 10;
    Store store;
    std::map<std::int64_t, std::string> model, firstModel;
    std::vector<std::string> states;
    int step = 0;
    Image first;
    std::mt19937 random{20};
    std::unordered_set<std::size_t> seen;
    unsigned killPoints = 0;
};

TEST_F(Crash, KillsAtEveryCallAndDuringTheRecoveryFromThem)
{
    const Recording life = recordLife();
    std::vector<Recording> recoveries;
    killEverywhere(life, torture() > 8 ? 1 : 8 / torture(), &recoveries);
    for (const Recording& recovery : recoveries)
        if (!HasFailure())
            killEverywhere(recovery, 1, nullptr);
    std::printf("%u kill points, %zu recoveries, %zu different disks\n", killPoints, recoveries.size(), seen.size());
    EXPECT_GE(killPoints, 1000U);
}

TEST_F(Crash, PowerCutsAtEveryCallAndDuringTheRecoveryFromThem)
{
    const Recording life = recordLife();
    cutPowerEverywhere(life, 28 * histories);
    Disk disk{life.before};
    for (std::size_t i = 0; i < life.log.size() && !HasFailure(); disk.play(life.log[i++])) {
        if (i % 20 != 7)
            continue;
        Recording recovery;
        if (check(disk.afterKill(), Allowed::of(life.log[i].tag), &recovery))
            cutPowerEverywhere(recovery, 28 * histories);
    }
    std::printf("%zu different disks\n", seen.size());
    EXPECT_GE(seen.size(), 5000U);
}

// What the recordings rest on: a real process that dies at a real call leaves what its recording says.
TEST_F(Crash, ProcessesThatDieAtACall)
{
    auto& allowed = *static_cast<Allowed*>(
        mmap(nullptr, sizeof(Allowed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    histories = 1;  // more deaths instead of longer lives
    const Recording life = recordLife();
    for (unsigned round = 0; round < 24 * torture() && !HasFailure(); ++round) {
        const unsigned at = static_cast<unsigned>(random() % life.log.size()) + 1;
        const auto death = static_cast<calls::Death>(random() % 3);
        SCOPED_TRACE("call " + std::to_string(at) + ", death " + std::to_string(static_cast<int>(death)));
        store.put(first);
        seen.clear();
        int ended = 0;
        const pid_t child = ::fork();
        if (child == 0) {
            calls::layer() = {};
            calls::layer().dieAt = at;
            calls::layer().death = death;
            static_cast<void>(live([&](Allowed now) { allowed = now; }));
            ::_exit(0);
        }
        ASSERT_EQ(::waitpid(child, &ended, 0), child);
        ASSERT_TRUE(WIFSIGNALED(ended) && WTERMSIG(ended) == SIGKILL);
        check(store.files(), allowed);
    }
    std::printf("%u deaths\n", 24 * torture());
    munmap(&allowed, sizeof allowed);
}

}  // namespace
