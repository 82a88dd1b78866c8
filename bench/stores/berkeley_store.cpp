// Berkeley DB: a B-tree of keys to identifiers and payloads and one of identifiers to keys, in a private environment
// with a cache and nothing else. Scans read many records a call.
#include "store.h"

#include <cstring>
#include <db.h>
#include <vector>

namespace bench {
namespace {

/// Whether it was done; any answer but these two is a failure.
bool done(int error, int no = 0)
{
    if (error != 0 && error != no)
        throw std::runtime_error(db_strerror(error));
    return error == 0;
}

DBT bytes(const void* data, std::size_t size)
{
    DBT result{};
    result.data = const_cast<void*>(data);
    result.size = static_cast<std::uint32_t>(size);
    return result;
}

class BerkeleyStore final : public Store {
public:
    using Store::Store;

    void open() override
    {
        done(db_env_create(&environment_, 0));
        done(environment_->set_cachesize(environment_, 0, options_.cacheBytes, 1));
        done(environment_->open(environment_, options_.directory.c_str(), DB_CREATE | DB_INIT_MPOOL | DB_PRIVATE, 0));
        for (const auto& [database, name] : {std::pair{&records_, "records.db"}, {&ids_, "ids.db"}}) {
            done(db_create(database, environment_, 0));
            done((*database)->open(*database, nullptr, name, nullptr, DB_BTREE, DB_CREATE, 0));
        }
    }
    void close() override
    {
        for (DB* database : {records_, ids_})
            done(database->close(database, 0));  // writes what the cache holds
        done(environment_->close(environment_, 0));
    }

    bool insert(Record& record) override
    {
        DBT id = bytes(record.id, sizeof record.id);
        DBT key = bytes(record.key, sizeof record.key);
        return put(record, DB_NOOVERWRITE) && done(ids_->put(ids_, nullptr, &id, &key, DB_NOOVERWRITE), DB_KEYEXIST);
    }
    bool find(const char* key, View& found) override
    {
        DBT wanted = bytes(key, sizeof(Record::key));
        DBT rest{};
        if (!done(records_->get(records_, nullptr, &wanted, &rest, 0), DB_NOTFOUND))
            return false;
        found = View::of(key, rest.data);
        return true;
    }
    bool findId(const char* id, View& found) override
    {
        DBT wanted = bytes(id, sizeof(Record::id));
        DBT key{};
        return done(ids_->get(ids_, nullptr, &wanted, &key, 0), DB_NOTFOUND) &&
               find(static_cast<const char*>(key.data), found);
    }
    void scan(Sink& sink) override { walk({}, DB_FIRST, 256 * 1024, sink); }
    void scanPrefix(std::string_view prefix, Sink& sink) override { walk(prefix, DB_SET_RANGE, 16 * 1024, sink); }
    bool update(const Record& record) override { return put(record, 0); }
    bool erase(const char* key) override
    {
        DBC* cursor = nullptr;
        done(records_->cursor(records_, nullptr, &cursor, 0));
        DBT wanted = bytes(key, sizeof(Record::key));
        DBT rest{};
        const bool found = done(cursor->get(cursor, &wanted, &rest, DB_SET), DB_NOTFOUND);
        if (found) {
            DBT id = bytes(rest.data, sizeof(Record::id));
            done(ids_->del(ids_, nullptr, &id, 0));
            done(cursor->del(cursor, 0));
        }
        done(cursor->close(cursor));
        return found;
    }

private:
    bool put(const Record& record, std::uint32_t flags)
    {
        char rest[restSize];
        std::memcpy(rest, record.id, sizeof record.id);
        std::memcpy(rest + sizeof record.id, record.payload, sizeof record.payload);
        DBT key = bytes(record.key, sizeof record.key);
        DBT data = bytes(rest, sizeof rest);
        return done(records_->put(records_, nullptr, &key, &data, flags), DB_KEYEXIST);
    }
    void walk(std::string_view prefix, std::uint32_t first, std::uint32_t atOnce, Sink& sink)
    {
        buffer_.resize(atOnce);
        DBC* cursor = nullptr;
        done(records_->cursor(records_, nullptr, &cursor, 0));
        DBT key = bytes(prefix.data(), prefix.size());
        DBT data = bytes(buffer_.data(), 0);
        data.flags = DB_DBT_USERMEM;
        data.ulen = atOnce;
        for (std::uint32_t move = first; done(cursor->get(cursor, &key, &data, move | DB_MULTIPLE_KEY), DB_NOTFOUND);
             move = DB_NEXT)
            if (!deliver(data, prefix, sink))
                break;
        done(cursor->close(cursor));
    }
    /// False where the prefix ends.
    static bool deliver(DBT& data, std::string_view prefix, Sink& sink)
    {
        void* place = nullptr;
        unsigned char* key = nullptr;
        unsigned char* rest = nullptr;
        [[maybe_unused]] std::size_t keySize = 0, size = 0;
        DB_MULTIPLE_INIT(place, &data);
        for (;;) {
            DB_MULTIPLE_KEY_NEXT(place, &data, key, keySize, rest, size);
            if (place == nullptr)
                return true;
            if (std::memcmp(key, prefix.data(), prefix.size()) != 0)
                return false;
            sink.take(View::of(key, rest));
        }
    }

    DB_ENV* environment_ = nullptr;
    DB* records_ = nullptr;
    DB* ids_ = nullptr;
    std::vector<char> buffer_;
};

const Known<BerkeleyStore> known{"BerkeleyDB", std::to_string(DB_VERSION_MAJOR) + "." +
                                                   std::to_string(DB_VERSION_MINOR) + "." +
                                                   std::to_string(DB_VERSION_PATCH)};

}  // namespace
}  // namespace bench
