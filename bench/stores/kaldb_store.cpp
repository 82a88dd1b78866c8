// kaldb through its C interface. A table with identifiers; the library makes them and keeps their index.
//
// Closing always renews the backup. The copy that it takes is timed where the database asks the support library for it,
// so that the close proper can be told from it.
#include "store.h"

#include <kaldb/kaldb.h>

#include <chrono>
#include <cstring>
#include <dlfcn.h>

namespace {

double secondsOfCopies = 0;

}  // namespace

// Takes the place of the support library's for the whole program.
extern "C" KALLIB_API uint32_t kalFileCopyW(const char16_t* source, const char16_t* destination)
{
    using Copy = uint32_t(const char16_t*, const char16_t*);
    static Copy* const copy = reinterpret_cast<Copy*>(dlsym(RTLD_NEXT, "kalFileCopyW"));
    const auto start = std::chrono::steady_clock::now();
    const uint32_t status = copy(source, destination);
    secondsOfCopies += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return status;
}

namespace bench {
namespace {

void succeed(std::uint32_t status, const char* what)
{
    if (status != KALDB_SUCCESS)
        throw std::runtime_error(std::string(what) + ": status " + std::to_string(status));
}

/// Whether it was done; any status but these two is a failure.
bool done(std::uint32_t status, std::uint32_t no, const char* what)
{
    if (status != no)
        succeed(status, what);
    return status == KALDB_SUCCESS;
}

std::int32_t byKey(const void* probe, const void* stored)
{
    constexpr std::size_t at = offsetof(Record, key);
    return std::memcmp(static_cast<const char*>(probe) + at, static_cast<const char*>(stored) + at,
                       sizeof(Record::key));
}

std::int32_t byPrefix(const void* probe, const void* stored)
{
    constexpr std::size_t at = offsetof(Record, key);
    return std::memcmp(static_cast<const char*>(probe) + at, static_cast<const char*>(stored) + at, 8);
}

class KaldbStore final : public Store {
public:
    using Store::Store;

    void open() override
    {
        kalLogSetSink([](std::uint32_t, const char16_t*, void*) {}, nullptr);
        std::uint32_t isNew = 0;
        const std::u16string file = (options_.directory / "records.kaldb").u16string();
        succeed(kaldbInitialize(file.c_str(), options_.cacheBytes, &database_, &isNew), "open");
        const KALDBTableInfo info{u"Records", sizeof(Record), KALDB_CHAIN_GUID, 0, 0};
        if (isNew != 0)
            succeed(kaldbTableCreate(database_, &info), "create table");
        KALDBChainCallbacks callbacks{};
        callbacks.compare = byKey;
        succeed(kaldbTableOpen(database_, info.name, &callbacks, &table_), "open table");
    }
    void close() override
    {
        secondsOfCopies = 0;
        succeed(kaldbTableClose(table_), "close table");
        succeed(kaldbDeinitialize(database_), "close");
        backupSeconds_ = secondsOfCopies;
        check(backupSeconds_ > 0, "closing made no backup");
    }
    double backupSeconds() const override { return backupSeconds_; }

    void identify(std::uint64_t sequence, char* id) const override
    {
        KALDBID made;
        std::memset(&made, 0xFF, sizeof made);
        made.sequence = sequence;
        std::memcpy(id, &made, sizeof made);
    }
    bool insert(Record& record) override
    {
        return done(kaldbTableInsertRecord(table_, &record, 0, nullptr), KALDB_ALREADY_EXISTS, "insert");
    }
    bool find(const char* key, View& found) override
    {
        std::memcpy(record_.key, key, sizeof record_.key);
        found = View::of(&record_);
        return done(kaldbTableQueryPK(table_, &record_, &record_, sizeof record_), KALDB_NOT_FOUND, "find");
    }
    bool findId(const char* id, View& found) override
    {
        KALDBID wanted;
        std::memcpy(&wanted, id, sizeof wanted);
        found = View::of(&record_);
        return done(kaldbTableQueryID(table_, &wanted, &record_, sizeof record_), KALDB_NOT_FOUND, "find id");
    }
    void scan(Sink& sink) override
    {
        const KALDBEnumCallback take = [](void* context, const void* record) -> std::uint32_t {
            static_cast<Sink*>(context)->take(View::of(record));
            return KALDB_SUCCESS;
        };
        done(kaldbTableEnumWithCallback(table_, &sink, take), KALDB_NOT_FOUND, "scan");
    }
    void scanPrefix(std::string_view prefix, Sink& sink) override
    {
        std::memcpy(record_.key, prefix.data(), prefix.size());
        KALEnumerator* walk = nullptr;
        if (!done(kaldbTableQueryPartialPK(table_, 1, &record_, byPrefix, &walk), KALDB_NOT_FOUND, "scan prefix"))
            return;
        do {
            succeed(kalEnumeratorGetItem(walk, &record_, sizeof record_), "get item");
            sink.take(View::of(&record_));
        } while (done(kalEnumeratorMoveNext(walk), KALDB_END_OF_ENUMERATION, "move"));
        kalEnumeratorFree(walk);
    }
    bool update(const Record& record) override
    {
        record_ = record;
        return done(kaldbTableUpdateRecord(table_, &record_), KALDB_NOT_FOUND, "update");
    }
    bool erase(const char* key) override
    {
        std::memcpy(record_.key, key, sizeof record_.key);
        return done(kaldbTableDeleteRecord(table_, &record_, 0, nullptr), KALDB_NOT_FOUND, "erase");
    }

private:
    KALDBDatabase* database_ = nullptr;
    KALDBTable* table_ = nullptr;
    Record record_{};
    double backupSeconds_ = 0;
};

const Known<KaldbStore> known{"kaldb", KALDB_VERSION};

}  // namespace
}  // namespace bench
