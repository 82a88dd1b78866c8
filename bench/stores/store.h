// What the comparison asks of a store: records of 128 bytes in the order of their keys, found by key and by identifier.
//
// Every store keeps both indexes and is used as its own documentation advises for one process, many operations at a
// time and no waiting for the disk. A file for each store says how.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench {

struct Record {
    char id[16];
    char key[24];
    char payload[88];
};
static_assert(sizeof(Record) == 128 && alignof(Record) == 1);
constexpr std::size_t restSize = sizeof(Record::id) + sizeof(Record::payload);  // all but the key

/// A record where the store has it: valid until the next call.
struct View {
    const char* id;
    const char* key;
    const char* payload;

    static View of(const void* record)
    {
        const Record& r = *static_cast<const Record*>(record);
        return {r.id, r.key, r.payload};
    }
    /// Of a store that keeps the identifier and the payload together under the key.
    static View of(const void* key, const void* rest)
    {
        const char* id = static_cast<const char*>(rest);
        return {id, static_cast<const char*>(key), id + sizeof(Record::id)};
    }
};

/// Takes the records of a scan, one by one.
class Sink {
public:
    virtual void take(const View& record) = 0;

protected:
    ~Sink() = default;
};

struct Options {
    std::filesystem::path directory;  // empty at first, the store's own
    std::uint32_t cacheBytes;
};

/// Failures throw; what is not there, or is there already, is false.
class Store {
public:
    explicit Store(Options options) : options_(std::move(options)) {}
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    virtual void open() = 0;
    virtual void close() = 0;
    /// Around every phase: one transaction where the store has them.
    virtual void begin(bool) {}
    virtual void end() {}

    /// The identifier of the record that was inserted after `sequence` others. Here: bytes in the order of the numbers.
    virtual void identify(std::uint64_t sequence, char* id) const
    {
        for (std::size_t i = sizeof(Record::id); i-- > 0; sequence >>= 8)
            id[i] = static_cast<char>(sequence & 0xFF);
    }
    /// The record brings its identifier, but for a store that makes them itself.
    virtual bool insert(Record& record) = 0;
    virtual bool find(const char* key, View& found) = 0;
    virtual bool findId(const char* id, View& found) = 0;
    virtual void scan(Sink& sink) = 0;
    virtual void scanPrefix(std::string_view prefix, Sink& sink) = 0;
    /// Replaces the payload.
    virtual bool update(const Record& record) = 0;
    virtual bool erase(const char* key) = 0;

    /// Seconds of the last close that a copy of the file took.
    virtual double backupSeconds() const { return 0; }

protected:
    std::string path(const char* name) const { return (options_.directory / name).string(); }
    const Options options_;
};

inline void check(bool good, const std::string& what)
{
    if (!good)
        throw std::runtime_error(what);
}

/// The stores that this program was built with.
struct Kind {
    std::string version;
    std::unique_ptr<Store> (*make)(Options options);
};
inline std::map<std::string, Kind>& kinds()
{
    static std::map<std::string, Kind> all;
    return all;
}

/// One of these in the file of a store makes it known.
template <class S>
struct Known {
    Known(const char* name, std::string version)
    {
        kinds()[name] = {std::move(version),
                         [](Options options) -> std::unique_ptr<Store> { return std::make_unique<S>(options); }};
    }
};

}  // namespace bench
