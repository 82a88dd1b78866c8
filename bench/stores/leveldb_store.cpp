// LevelDB: keys and identifiers in one key space, told apart by a first letter. Batches of 1000 changes, no
// compression, Bloom filters of 10 bits a key, half the cache's size once more for what was written last. Insertion and
// update do not look whether a key is there, which would cost it a query each.
#include "store.h"

#include <cstring>
#include <leveldb/cache.h>
#include <leveldb/db.h>
#include <leveldb/filter_policy.h>
#include <leveldb/write_batch.h>

namespace bench {
namespace {

using leveldb::Slice;

/// Whether it was found; anything else but that is a failure.
bool done(const leveldb::Status& status)
{
    if (!status.ok() && !status.IsNotFound())
        throw std::runtime_error(status.ToString());
    return status.ok();
}

template <char letter, std::size_t size>
struct Name {
    char text[1 + size] = {letter};

    explicit Name(const char* data) { std::memcpy(text + 1, data, size); }
    operator Slice() const { return {text, sizeof text}; }
};
using Key = Name<'k', sizeof(Record::key)>;
using Id = Name<'i', sizeof(Record::id)>;

class LevelStore final : public Store {
public:
    using Store::Store;

    void open() override
    {
        cache_.reset(leveldb::NewLRUCache(options_.cacheBytes));
        filter_.reset(leveldb::NewBloomFilterPolicy(10));
        leveldb::Options options;
        options.create_if_missing = true;
        options.block_cache = cache_.get();
        options.filter_policy = filter_.get();
        options.write_buffer_size = options_.cacheBytes / 2;
        options.compression = leveldb::kNoCompression;
        leveldb::DB* database = nullptr;
        check(done(leveldb::DB::Open(options, path("records.leveldb"), &database)), "open");
        database_.reset(database);
    }
    void close() override
    {
        database_.reset();
        filter_.reset();
        cache_.reset();
    }
    void end() override { write(); }

    bool insert(Record& record) override
    {
        put(record);
        batch_.Put(Id{record.id}, {record.key, sizeof record.key});
        changed();
        return true;
    }
    bool find(const char* key, View& found) override
    {
        if (!done(database_->Get({}, Key{key}, &rest_)))
            return false;
        found = View::of(key, rest_.data());
        return true;
    }
    bool findId(const char* id, View& found) override
    {
        return done(database_->Get({}, Id{id}, &key_)) && find(key_.data(), found);
    }
    void scan(Sink& sink) override { scanPrefix({}, sink); }
    void scanPrefix(std::string_view prefix, Sink& sink) override
    {
        std::string wanted{"k"};
        wanted += prefix;
        const std::unique_ptr<leveldb::Iterator> walk{database_->NewIterator({})};
        for (walk->Seek(wanted); walk->Valid() && walk->key().starts_with(wanted); walk->Next())
            sink.take(View::of(walk->key().data() + 1, walk->value().data()));
        done(walk->status());
    }
    bool update(const Record& record) override
    {
        put(record);
        changed();
        return true;
    }
    bool erase(const char* key) override
    {
        View found;
        if (!find(key, found))
            return false;
        batch_.Delete(Id{found.id});
        batch_.Delete(Key{key});
        changed();
        return true;
    }

private:
    void put(const Record& record)
    {
        char rest[restSize];
        std::memcpy(rest, record.id, sizeof record.id);
        std::memcpy(rest + sizeof record.id, record.payload, sizeof record.payload);
        batch_.Put(Key{record.key}, {rest, sizeof rest});
    }
    void changed()
    {
        if (++changes_ == 1000)
            write();
    }
    void write()
    {
        check(done(database_->Write({}, &batch_)), "write");
        batch_.Clear();
        changes_ = 0;
    }

    std::unique_ptr<leveldb::Cache> cache_;
    std::unique_ptr<const leveldb::FilterPolicy> filter_;
    std::unique_ptr<leveldb::DB> database_;
    leveldb::WriteBatch batch_;
    int changes_ = 0;
    std::string key_;
    std::string rest_;
};

const Known<LevelStore> known{"LevelDB",
                              std::to_string(leveldb::kMajorVersion) + "." + std::to_string(leveldb::kMinorVersion)};

}  // namespace
}  // namespace bench
