// LMDB: keys to identifiers and payloads, identifiers to keys. The map is written in place and never synced, one
// transaction a phase, a cursor for scans. It has no cache of its own: its pages are the system's.
#include "store.h"

#include <cstring>
#include <lmdb.h>

namespace bench {
namespace {

/// Whether it was done; any answer but these two is a failure.
bool done(int error, int no = 0)
{
    if (error != 0 && error != no)
        throw std::runtime_error(mdb_strerror(error));
    return error == 0;
}

MDB_val bytes(const char* data, std::size_t size) { return {size, const_cast<char*>(data)}; }
MDB_val keyOf(const char* key) { return bytes(key, sizeof(Record::key)); }
MDB_val idOf(const char* id) { return bytes(id, sizeof(Record::id)); }

class LmdbStore final : public Store {
public:
    using Store::Store;

    void open() override
    {
        done(mdb_env_create(&environment_));
        done(mdb_env_set_maxdbs(environment_, 2));
        done(mdb_env_set_mapsize(environment_, std::size_t{8} << 30));
        const unsigned flags = MDB_NOSUBDIR | MDB_NOLOCK | MDB_NOSYNC | MDB_WRITEMAP;
        done(mdb_env_open(environment_, path("records.mdb").c_str(), flags, 0644));
        begin(true);
        done(mdb_dbi_open(transaction_, "records", MDB_CREATE, &records_));
        done(mdb_dbi_open(transaction_, "ids", MDB_CREATE, &ids_));
        end();
    }
    void close() override { mdb_env_close(environment_); }
    void begin(bool writing) override
    {
        done(mdb_txn_begin(environment_, nullptr, writing ? 0 : MDB_RDONLY, &transaction_));
    }
    void end() override { done(mdb_txn_commit(transaction_)); }

    bool insert(Record& record) override
    {
        MDB_val key = keyOf(record.key);
        if (!putRest(key, record, MDB_NOOVERWRITE))
            return false;
        MDB_val id = idOf(record.id);
        return done(mdb_put(transaction_, ids_, &id, &key, MDB_NOOVERWRITE), MDB_KEYEXIST);
    }
    bool find(const char* key, View& found) override { return get(keyOf(key), found); }
    bool findId(const char* id, View& found) override
    {
        MDB_val wanted = idOf(id);
        MDB_val key;
        return done(mdb_get(transaction_, ids_, &wanted, &key), MDB_NOTFOUND) && get(key, found);
    }
    void scan(Sink& sink) override { walk({}, MDB_FIRST, sink); }
    void scanPrefix(std::string_view prefix, Sink& sink) override { walk(prefix, MDB_SET_RANGE, sink); }
    bool update(const Record& record) override { return putRest(keyOf(record.key), record, 0); }
    bool erase(const char* key) override
    {
        View found;
        if (!get(keyOf(key), found))
            return false;
        char id[sizeof(Record::id)];  // the page moves when it is changed
        std::memcpy(id, found.id, sizeof id);
        MDB_val wanted = keyOf(key);
        done(mdb_del(transaction_, records_, &wanted, nullptr));
        wanted = idOf(id);
        done(mdb_del(transaction_, ids_, &wanted, nullptr));
        return true;
    }

private:
    bool get(MDB_val key, View& found)
    {
        MDB_val rest;
        if (!done(mdb_get(transaction_, records_, &key, &rest), MDB_NOTFOUND))
            return false;
        found = View::of(key.mv_data, rest.mv_data);
        return true;
    }
    bool putRest(MDB_val key, const Record& record, unsigned flags)
    {
        MDB_val rest{restSize, nullptr};
        if (!done(mdb_put(transaction_, records_, &key, &rest, flags | MDB_RESERVE), MDB_KEYEXIST))
            return false;
        std::memcpy(rest.mv_data, record.id, sizeof record.id);
        std::memcpy(static_cast<char*>(rest.mv_data) + sizeof record.id, record.payload, sizeof record.payload);
        return true;
    }
    void walk(std::string_view prefix, MDB_cursor_op first, Sink& sink)
    {
        MDB_cursor* cursor = nullptr;
        done(mdb_cursor_open(transaction_, records_, &cursor));
        MDB_val key = bytes(prefix.data(), prefix.size());
        MDB_val rest;
        for (MDB_cursor_op move = first; done(mdb_cursor_get(cursor, &key, &rest, move), MDB_NOTFOUND);
             move = MDB_NEXT) {
            if (std::memcmp(key.mv_data, prefix.data(), prefix.size()) != 0)
                break;
            sink.take(View::of(key.mv_data, rest.mv_data));
        }
        mdb_cursor_close(cursor);
    }

    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    MDB_dbi records_ = 0;
    MDB_dbi ids_ = 0;
};

const Known<LmdbStore> known{"LMDB", std::to_string(MDB_VERSION_MAJOR) + "." + std::to_string(MDB_VERSION_MINOR) + "." +
                                         std::to_string(MDB_VERSION_PATCH)};

}  // namespace
}  // namespace bench
