// SQLite: a table without row numbers, in the order of the keys, and a unique index of the identifiers. No journal, no
// waiting, the file locked once; statements prepared once; one transaction a phase.
#include "store.h"

#include <cstring>
#include <sqlite3.h>

namespace bench {
namespace {

class SqliteStore final : public Store {
public:
    using Store::Store;

    void open() override
    {
        done(sqlite3_open(path("records.sqlite").c_str(), &database_));
        const std::string cache = std::to_string(options_.cacheBytes / 1024);
        run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA locking_mode=EXCLUSIVE;"
            "PRAGMA mmap_size=0; PRAGMA temp_store=MEMORY; PRAGMA cache_size=-" +
            cache +
            "; CREATE TABLE IF NOT EXISTS records (key BLOB PRIMARY KEY, id BLOB NOT NULL UNIQUE, payload BLOB NOT "
            "NULL)"
            " WITHOUT ROWID");
        const char* texts[] = {"INSERT INTO records VALUES (?1, ?2, ?3)",
                               "SELECT key, id, payload FROM records WHERE key = ?1",
                               "SELECT key, id, payload FROM records WHERE id = ?1",
                               "SELECT key, id, payload FROM records ORDER BY key",
                               "SELECT key, id, payload FROM records WHERE key >= ?1 AND key < ?2 ORDER BY key",
                               "UPDATE records SET payload = ?2 WHERE key = ?1",
                               "DELETE FROM records WHERE key = ?1"};
        for (int i = 0; i < statementCount; ++i)
            done(sqlite3_prepare_v3(database_, texts[i], -1, SQLITE_PREPARE_PERSISTENT, &statements_[i], nullptr));
    }
    void close() override
    {
        for (sqlite3_stmt* statement : statements_)
            done(sqlite3_finalize(statement));
        last_ = nullptr;
        done(sqlite3_close(database_));
    }
    void begin(bool) override { run("BEGIN"); }
    void end() override
    {
        reset();
        run("COMMIT");
    }

    bool insert(Record& record) override
    {
        sqlite3_stmt* statement = use(insertion);
        bind(statement, 1, record.key, sizeof record.key);
        bind(statement, 2, record.id, sizeof record.id);
        bind(statement, 3, record.payload, sizeof record.payload);
        return change(statement);
    }
    bool find(const char* key, View& found) override { return query(byKey, key, sizeof(Record::key), found); }
    bool findId(const char* id, View& found) override { return query(byId, id, sizeof(Record::id), found); }
    void scan(Sink& sink) override { deliver(use(all), sink); }
    void scanPrefix(std::string_view prefix, Sink& sink) override
    {
        std::string after{prefix};  // the least text that is greater than all that begin so
        while (static_cast<unsigned char>(after.back()) == 0xFF)
            after.pop_back();
        ++after.back();
        sqlite3_stmt* statement = use(range);
        bind(statement, 1, prefix.data(), prefix.size());
        bind(statement, 2, after.data(), after.size());
        deliver(statement, sink);
        reset();  // before the texts go
    }
    bool update(const Record& record) override
    {
        sqlite3_stmt* statement = use(updating);
        bind(statement, 1, record.key, sizeof record.key);
        bind(statement, 2, record.payload, sizeof record.payload);
        return change(statement);
    }
    bool erase(const char* key) override
    {
        sqlite3_stmt* statement = use(deletion);
        bind(statement, 1, key, sizeof(Record::key));
        return change(statement);
    }

private:
    enum Which { insertion, byKey, byId, all, range, updating, deletion, statementCount };

    void done(int code) const { check(code == SQLITE_OK, sqlite3_errmsg(database_)); }
    void run(const std::string& text) { done(sqlite3_exec(database_, text.c_str(), nullptr, nullptr, nullptr)); }
    void reset()
    {
        if (last_ != nullptr)
            sqlite3_reset(last_);
    }
    /// What the last statement found is valid until here.
    sqlite3_stmt* use(Which which)
    {
        reset();
        return last_ = statements_[which];
    }
    void bind(sqlite3_stmt* statement, int place, const char* data, std::size_t size)
    {
        done(sqlite3_bind_blob(statement, place, data, static_cast<int>(size), SQLITE_STATIC));
    }
    bool change(sqlite3_stmt* statement)
    {
        const int code = sqlite3_step(statement);
        check(code == SQLITE_DONE || code == SQLITE_CONSTRAINT, sqlite3_errmsg(database_));
        return code == SQLITE_DONE && sqlite3_changes(database_) == 1;
    }
    bool next(sqlite3_stmt* statement, View& found)
    {
        const int code = sqlite3_step(statement);
        check(code == SQLITE_ROW || code == SQLITE_DONE, sqlite3_errmsg(database_));
        if (code == SQLITE_DONE)
            return false;
        const auto column = [&](int i) { return static_cast<const char*>(sqlite3_column_blob(statement, i)); };
        found = {column(1), column(0), column(2)};
        return true;
    }
    bool query(Which which, const char* data, std::size_t size, View& found)
    {
        sqlite3_stmt* statement = use(which);
        bind(statement, 1, data, size);
        return next(statement, found);
    }
    void deliver(sqlite3_stmt* statement, Sink& sink)
    {
        for (View found; next(statement, found);)
            sink.take(found);
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* statements_[statementCount] = {};
    sqlite3_stmt* last_ = nullptr;
};

const Known<SqliteStore> known{"SQLite", sqlite3_libversion()};

}  // namespace
}  // namespace bench
