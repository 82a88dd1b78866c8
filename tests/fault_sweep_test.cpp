// One session that calls every operation, with each call of the support library failing in turn: once, together with
// all later ones of its kind, or with all later ones. Whatever fails, what was stored stays as it was, nothing stays
// held, open or allocated, and the file that is left is one that opens.
//
// KALDB_TORTURE=n in the environment: n sessions, each with other records.

#include "kaldbchain/chain.h"
#include "kaldbindex/pending_changes.h"
#include "support/contents.h"
#include "support/database.h"
#include "support/memory_disk.h"
#include "support/plain_calls.h"
#include "support/quiet.h"

#include <map>
#include <memory>
#include <random>
#include <set>

namespace {

using disk::Fault;
using test::byHundred;
using test::byKey;
using test::Contents;
using test::done;
using test::nothing;
using test::Possible;
using test::Record;

const char16_t* const path = u"/db";

struct Person : Record {
    char filling[600]{};  // three to a page
};

/// A long value or text that was stored, as a record holds it.
struct Stored {
    test::Value value;
    test::Text text{8};
    std::string bytes;
};

class Session {
public:
    Session(std::uint32_t cacheBytes, unsigned seed)
        : cacheBytes_(cacheBytes), keys_(seed % 2 == 0 ? 40 : 90), random_(seed)
    {
    }

    void run()
    {
        using Step = void (Session::*)();
        const std::array<Step, 18> steps{&Session::open,         &Session::createTables, &Session::changePeople,
                                         &Session::keepValues,   &Session::lookAround,   &Session::backUp,
                                         &Session::changePeople, &Session::usePieces,    &Session::dropValues,
                                         &Session::useWalks,     &Session::close,        &Session::open,
                                         &Session::openTables,   &Session::changePeople, &Session::keepValues,
                                         &Session::close,        &Session::usePageFile,  &Session::useTheRest};
        for (const Step step : steps) {
            (this->*step)();
            EXPECT_TRUE(db_ == nullptr || test::Database::holdsNothing()) << "after step " << &step - steps.data();
        }
    }
    /// After the faults: what is open shows what it must; so does what the next session opens.
    void check()
    {
        if (db_ != nullptr && !closing_) {
            closeTables();
            openTables();
            checkContents(now_);
        }
        close();
        if (db_ != nullptr) {
            EXPECT_TRUE(lostPages()) << "a close that fails for ever";
            abandon();
        }
        auto& files = disk::state().files;
        if (!finished_ && files.count(path) != 0 && files[path]->size() < 92)
            files.erase(path);  // the first header of all was cut off, and could not be deleted
        open();
        ASSERT_NE(db_, nullptr);
        openTables();
        checkContents(onDisk_);
        close();
        ASSERT_EQ(db_, nullptr);
        if (unclosed_ != nullptr && kalPageManagerDeinitialize(unclosed_) == 0)
            unclosed_ = nullptr;
        std::uint32_t errors = 0;
        EXPECT_EQ(kaldbValidateFile(path, 0, &errors) + errors, 1U);
    }

    /// Whether the page file lost pages, which keeps it open for ever.
    bool pageFileIsLost() const { return unclosed_ != nullptr && lostPages(); }
    /// A wait for the disk failed, and pages that are in no cache any more went before it.
    bool lostPages() const { return disk::state().fault.waitFailed && cacheBytes_ == 0; }

private:
    unsigned draw(unsigned below) { return static_cast<unsigned>(random_() % below); }

    void open()
    {
        std::uint32_t isNew = 0;
        closing_ = closing_ && db_ != nullptr;
        for (int tries = 0; tries < 2 && db_ == nullptr; ++tries)
            if (!done(kaldbInitialize(path, cacheBytes_, &db_, &isNew)))
                db_ = nullptr;
    }
    void close()
    {
        closeTables();
        closing_ = db_ != nullptr;  // and cannot be used any more, even if that fails
        for (int tries = 0; tries < 2 && db_ != nullptr; ++tries)
            if (done(kaldbDeinitialize(db_)) || kaldb::kaldbChainGetPageManager() == nullptr) {
                db_ = nullptr;  // with an error, too: then only the new backup is missing
                keep();
            } else {
                onDisk_.orElse(now_);
            }
    }
    /// As if the process had died: the files stay as they are.
    void abandon()
    {
        const std::string file = *disk::state().files[path];
        kaldb::abandonStorage(path);
        disk::state().files[path] = std::make_shared<std::string>(file);
        kaldb::dropAllPendingChanges();
        db_ = nullptr;
        now_ = onDisk_;
    }
    void keep()
    {
        onDisk_ = now_;
        finished_ = true;
    }
    void createTables()
    {
        const KALDBTableInfo people{u"People", sizeof(Person), KALDB_CHAIN_GUID, 0, 0};
        const KALDBTableInfo raw{u"Raw", 40, KALDB_CHAIN_BINARY, 0, 0};
        indexed_ = done(kaldbTableCreate(db_, &people));  // a table stays when only its index cannot be made
        done(kaldbTableCreate(db_, &raw));
        openTables();
    }
    void openTables()
    {
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byKey;
        if (people_ == nullptr && !done(kaldbTableOpen(db_, u"People", &callbacks, &people_)))
            people_ = nullptr;
        if (raw_ == nullptr && !done(kaldbTableOpen(db_, u"Raw", nullptr, &raw_)))
            raw_ = nullptr;
        kaldbInitBinaryTable(db_);
        kaldbInitVarStringTable(db_);
    }
    void closeTables()
    {
        for (KALDBTable** table : {&people_, &raw_})
            if (*table != nullptr)
                done(kaldbTableClose(std::exchange(*table, nullptr)));
    }
    void backUp()
    {
        if (done(kaldbBackupDatabaseWhileRunning(db_)))
            keep();
        else
            onDisk_.orElse(now_);  // only the dirty mark could not be brought back, perhaps
    }

    static KALDBID idOf(const Contents& contents, std::int64_t key)
    {
        const auto found = contents.ids.find(key);
        return found == contents.ids.end() ? KALDBID{} : KALDBID{0xFFFF, 0xFFFF, 0, found->second};
    }

    // ---- records ---------------------------------------------------------------------------------------------------

    void changePeople()
    {
        for (int i = 0; i < 50; ++i) {
            const std::int64_t key = draw(keys_);
            const unsigned kind = draw(10);
            Possible& may = now_.people.try_emplace(key, Possible{nothing}).first->second;
            if (kind < 5)
                insert(key, may);
            else if (kind < 8)
                remove(key, may, kind == 5);
            else
                update(key, may);
            EXPECT_TRUE(db_ == nullptr || test::Database::holdsNothing());
        }
    }
    void insert(std::int64_t key, Possible& may)
    {
        Person person;
        person.key = key;
        person.value = ++serial_;
        KALDBID id{};
        const std::uint32_t status = kaldbTableInsertRecord(people_, &person, 0, &id);
        answered(status, may, test::alreadyExists, test::notFound);
        if (status == 0) {
            may = {serial_};
            now_.ids.erase(key);
            if (id.tag != 0 && id.sequence != UINT64_MAX)  // else its counter or the index could not be had
                now_.ids[key] = id.sequence;
        }
    }
    void update(std::int64_t key, Possible& may)
    {
        Person person;
        person.key = key;
        person.id = idOf(now_, key);
        person.value = ++serial_;
        const std::uint32_t status = kaldbTableUpdateRecord(people_, &person);
        answered(status, may, 0, test::notFound);
        if (status == 0)
            may = {serial_};
    }
    void remove(std::int64_t key, Possible& may, bool byID)
    {
        Person person;
        person.key = key;
        if (byID && now_.ids.count(key) == 0)
            return;
        const KALDBID id = idOf(now_, key);
        const std::uint32_t status =
            byID ? kaldbTableDeleteRecordByID(people_, &id) : kaldbTableDeleteRecord(people_, &person, 0, nullptr);
        answered(status, may, 0, test::notFound);
        if (status == 0)
            may = {nothing};
        else if (status != test::notFound)  // gone, perhaps, but for its entry in the index
            may.insert(nothing);
    }
    /// An answer that tells that the key is there, or that it is not, must be true.
    void answered(std::uint32_t status, Possible& may, std::uint32_t there, std::uint32_t absent) const
    {
        const bool mayBeAbsent = may.count(nothing) != 0;
        const bool mayBeThere = may.size() > (mayBeAbsent ? 1U : 0U);
        const bool insertion = there == test::alreadyExists;
        if (status == there) {
            EXPECT_TRUE(mayBeThere) << "answered " << status;
        }
        if (status == absent || (insertion && status == 0)) {
            EXPECT_TRUE(mayBeAbsent || people_ == nullptr) << "lost, and answered " << status;
        }
        if (disk::state().fault.struck == nullptr) {
            EXPECT_TRUE(status == 0 || status == there || status == absent) << status;
        }
    }

    void lookAround()
    {
        std::uint32_t number = 0;
        KALDBTableInfo info{};
        Person person;
        done(kaldbTableExists(u"People", &number));
        done(kaldbTableGetInfo(people_, &info));
        done(kaldbTableDrop(db_, u"People"), KALDB_NOT_SUPPORTED);
        kaldbTableQuery(people_, &person);
        KALEnumerator* tables = nullptr;
        if (done(kaldbTableEnumerate(db_, &tables))) {
            do
                done(kalEnumeratorGetItem(tables, &info, sizeof info));
            while (kalEnumeratorMoveNext(tables) == 0);
            kalEnumeratorFree(tables);
        }
        kaldbForgetHandle(nullptr);
        kaldbGetErrorString(0);
        kaldbTracePageManager();
    }
    void useWalks()
    {
        Person person;
        for (const std::uint32_t readOnly : {1U, 0U}) {
            KALEnumerator* walk = nullptr;
            if (kaldbTableQueryPartialPK(people_, readOnly, &person, byHundred, &walk) != 0)
                continue;
            do
                if (kalEnumeratorGetItem(walk, &person, sizeof person) == 0 && readOnly == 0) {
                    const std::int64_t before = person.value;
                    person.value = ++serial_;
                    if (done(kaldbTableUpdateCurrentRecord(people_, walk, &person)))
                        now_.people[person.key] = {serial_};
                    else
                        EXPECT_TRUE(now_.people[person.key].count(before) != 0);
                }
            while (kalEnumeratorMoveNext(walk) == 0);
            kaldbTableDeleteCurrentRecord(people_, walk);
            kalEnumeratorFree(walk);
        }
        person.key = 999;
        done(kaldbTableDeletePartialPK(people_, &person, byKey));
    }
    void usePieces()
    {
        std::array<char, 40> bytes{};
        KALDBBinaryRecord piece{bytes.data(), 40, 40, KALDB_NO_PAGE, KALDB_NO_SLOT};
        std::vector<KALDBIndexRecord> places;
        for (char mark = 'a'; mark < 'e'; ++mark) {
            KALDBIndexRecord place{};
            bytes.fill(mark);
            if (done(kaldbBinaryTableInsertRecord(raw_, &piece, &place)))
                places.push_back(place);
        }
        for (const KALDBIndexRecord& place : places) {
            bytes.fill('z');
            const bool updated = done(kaldbBinaryTableUpdateRecord(raw_, &place, &piece));
            bytes.fill('?');
            if (done(kaldbBinaryTableGetRecord(raw_, &place, &piece))) {
                EXPECT_EQ(bytes[39] == 'z', updated);
            }
            done(kaldbBinaryTableDeleteRecord(raw_, &place));
        }
    }

    // ---- values ----------------------------------------------------------------------------------------------------

    void keepValues()
    {
        for (const std::size_t size : {20U, 150U}) {
            auto kept = std::make_unique<Stored>();
            kept->bytes = test::pattern(size + draw(40));
            keepValue(*kept);
            keepText(*kept);
            stored_.push_back(std::move(kept));
        }
    }
    void keepValue(Stored& kept)
    {
        KALDBVariant& v = kept.value.v;
        const auto size = static_cast<std::uint32_t>(kept.bytes.size());
        if (done(kaldbVariantSetBinary(&v, 21, kept.bytes.data(), size)) && done(kaldbVariantInsertRecord(&v)))
            now_.values[static_cast<int>(stored_.size())] = kept.bytes;
        done(kaldbVariantUpdateRecord(&v), KALDB_NOT_SUPPORTED);
    }
    void keepText(Stored& kept)
    {
        KALDBVarString& s = kept.text.s;
        if (done(kaldbVarStringSet(&s, test::widened(kept.bytes).c_str())) && done(kaldbVarStringInsertRecord(&s)))
            now_.texts[static_cast<int>(stored_.size())] = kept.bytes;
        done(kaldbVarStringUpdateRecord(&s), KALDB_NOT_SUPPORTED);
    }
    /// The first of each goes.
    void dropValues()
    {
        if (now_.values.count(0) != 0 && kaldbVariantDeleteRecord(&stored_[0]->value.v) != KALDB_NOT_OPEN)
            now_.values.erase(0);
        if (now_.texts.count(0) != 0 && kaldbVarStringDeleteRecord(&stored_[0]->text.s) != KALDB_NOT_OPEN)
            now_.texts.erase(0);
        kaldbDeinitBinaryTable(db_);
        kaldbDeinitVarStringTable(db_);
        openTables();
    }

    // ---- calls without the database -------------------------------------------------------------------------------

    void usePageFile() { unclosed_ = test::usePageFile(cacheBytes_); }
    void useTheRest()
    {
        test::useTracker();
        test::useTree();
        test::useSlots();
        test::useValues();
        std::uint32_t errors = 0;
        std::FILE* const terminal = std::exchange(stdout, nowhere_.get());  // the listing has a test of its own
        done(kaldbValidatePages(path, 0, &errors), KALDB_FAILURE);
        stdout = terminal;
    }

    // ---- what must be there ----------------------------------------------------------------------------------------

    void checkContents(Contents& expected)
    {
        if (people_ == nullptr) {
            std::uint32_t exists = 0;
            EXPECT_EQ(kaldbTableExists(u"People", &exists), 0U);
            EXPECT_TRUE(exists == 0 && std::all_of(expected.people.begin(), expected.people.end(),
                                                   [](const auto& entry) { return entry.second.count(nothing) != 0; }));
        } else {
            checkPeople(expected);
        }
        for (const auto& [index, bytes] : expected.values) {
            test::Value copy = stored_[static_cast<std::size_t>(index)]->value;
            EXPECT_EQ(copy.fetch(), 0U);
            EXPECT_EQ(copy.content(), bytes);
        }
        for (const auto& [index, bytes] : expected.texts) {
            test::Text copy = stored_[static_cast<std::size_t>(index)]->text;
            EXPECT_EQ(copy.fetch(), 0U);
            EXPECT_EQ(copy.content(), bytes);
        }
    }
    void checkPeople(Contents& expected)
    {
        std::vector<std::int64_t> found, walked;
        for (auto& [key, may] : expected.people) {
            Person person;
            person.key = key;
            const std::uint32_t status = kaldbTableQueryPK(people_, &person, &person, sizeof person);
            EXPECT_TRUE(status == 0 || status == test::notFound) << status << " for key " << key;
            EXPECT_EQ(may.count(status == 0 ? person.value : nothing), 1U)
                << "key " << key << (status == 0 ? " has another value" : " is lost");
            if (status == 0) {
                found.push_back(key);
                if (indexed_ && expected.ids.count(key) != 0) {
                    const KALDBID id = idOf(expected, key);
                    EXPECT_EQ(kaldbTableQueryID(people_, &id, &person, sizeof person), 0U);
                    EXPECT_EQ(person.key, key);
                }
            }
        }
        kaldbTableEnumWithCallback(people_, &walked, [](void* context, const void* record) {
            static_cast<std::vector<std::int64_t>*>(context)->push_back(test::keyOf(record));
            return 0U;
        });
        EXPECT_TRUE(walked == found);
    }

    std::uint32_t cacheBytes_;
    unsigned keys_;  // among few keys pages empty, among many they split
    std::mt19937 random_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> nowhere_{std::fopen("/dev/null", "w"), std::fclose};
    KALDBDatabase* db_ = nullptr;
    KALDBTable *people_ = nullptr, *raw_ = nullptr;
    KALPageManager* unclosed_ = nullptr;
    bool indexed_ = false, closing_ = false, finished_ = false;
    std::int64_t serial_ = 0;
    std::vector<std::unique_ptr<Stored>> stored_;
    Contents now_, onDisk_;
};

// Without optimisation a session takes its time: then each call is met by one of eight seeds.
#if defined(__OPTIMIZE__)
constexpr unsigned everyCall = 1;
#else
constexpr unsigned everyCall = 8;
#endif

struct Sweep {
    std::uint32_t cacheBytes;
    Fault::Reach reach;
    unsigned step;
};

/// The number of runs whose fault came to pass.
long sweep(const Sweep& with, unsigned seed)
{
    long runs = 0;
    for (std::uint64_t call = 1 + seed % with.step;; call += with.step, ++runs) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", cache " << with.cacheBytes << ", reach " << with.reach
                                        << ", call " << call);
        disk::State& state = disk::state();
        state.files.clear();
        const std::size_t blocks = state.blocks.size(), files = state.openFiles;
        const char* struck = nullptr;
        {
            Session session{with.cacheBytes, seed};
            disk::setFault({with.reach, call});
            session.run();
            struck = state.fault.struck;
            state.fault.call = 0;
            state.fault.reach = Fault::once;
            session.check();
            if (session.pageFileIsLost())
                continue;
        }
        EXPECT_EQ(state.blocks.size(), blocks) << struck;
        EXPECT_EQ(state.openFiles, files) << struck;
        if (struck == nullptr || testing::Test::HasFailure())
            return runs;
    }
}

TEST(FaultSweep, WhateverFailsNothingIsLostOrLeftBehind)
{
    const char* const times = std::getenv("KALDB_TORTURE");
    long runs = 0;
    for (unsigned seed = 1; seed <= (times == nullptr ? 1U : static_cast<unsigned>(std::atoi(times))); ++seed)
        for (const std::uint32_t cacheBytes : {0U, 1U << 20})
            for (const Fault::Reach reach : {Fault::once, Fault::itsKind, Fault::everything}) {
                runs += sweep({cacheBytes, reach, everyCall}, seed);
                if (HasFailure())
                    return;
            }
    std::printf("%ld failed calls\n", runs);
}

}  // namespace
