// An open database in a directory of its own, and a table of simple records in it.
#pragma once

#include "kaldbchain/chain.h"
#include "kalpagemanager/page_manager.h"
#include "support/temp_dir.h"

#include <kaldb/kaldb.h>

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace test {

// The statuses that tests compare with most.
inline constexpr std::uint32_t notFound = KALDB_NOT_FOUND;
inline constexpr std::uint32_t alreadyExists = KALDB_ALREADY_EXISTS;
inline constexpr std::uint32_t lockConflict = KALDB_LOCK_CONFLICT;

/// The record that the tests keep: an identifier's room, a key, and filling up to the table's record size.
struct Record {
    KALDBID id{};
    std::int64_t key = 0;
    std::int64_t value = 0;
};

template <class Field>
Field fieldOf(const void* record, std::size_t offset)
{
    Field field;
    std::memcpy(&field, static_cast<const char*>(record) + offset, sizeof field);
    return field;
}

inline std::int64_t keyOf(const void* record) { return fieldOf<std::int64_t>(record, offsetof(Record, key)); }

inline int32_t order(std::int64_t first, std::int64_t second) { return first < second ? -1 : first > second ? 1 : 0; }
inline int32_t byKey(const void* probe, const void* stored) { return order(keyOf(probe), keyOf(stored)); }

/// Partial order: keys of the same hundred match.
inline std::int64_t hundredOf(std::int64_t key) { return key >= 0 ? key / 100 : (key - 99) / 100; }
inline int32_t byHundred(const void* probe, const void* stored)
{
    return order(hundredOf(keyOf(probe)), hundredOf(keyOf(stored)));
}

class Database {
public:
    explicit Database(std::uint32_t cacheBytes = 1 << 20)
        : path_((directory_ / "db").u16string()), cacheBytes_(cacheBytes)
    {
        open();
    }
    ~Database()
    {
        if (handle_ != nullptr) {
            EXPECT_EQ(close(), 0U);
        }
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    std::uint32_t tryOpen() { return kaldbInitialize(path_.c_str(), cacheBytes_, &handle_, &isNew_); }
    void open() { ASSERT_EQ(tryOpen(), 0U); }
    std::uint32_t close()
    {
        const std::uint32_t status = kaldbDeinitialize(handle_);
        handle_ = nullptr;
        return status;
    }

    KALDBDatabase* handle() const { return handle_; }
    std::uint32_t isNew() const { return isNew_; }
    const std::u16string& path() const { return path_; }
    std::filesystem::path file() const { return directory_ / "db"; }
    std::filesystem::path backup() const { return directory_ / "db.backup"; }
    const TempDir& directory() const { return directory_; }

    /// Whether any page is locked or referenced: after every operation only open enumerators hold one.
    static bool holdsNothing() { return pmAreMemPagesLocked(kaldb::kaldbChainGetPageManager()) == 0; }

    std::uint32_t errorsInFile() const
    {
        std::uint32_t errors = 0;
        return kaldbValidatePages(path_.c_str(), 0, &errors) == 1 ? errors : UINT32_MAX;
    }

private:
    TempDir directory_;
    std::u16string path_;
    std::uint32_t cacheBytes_, isNew_ = 7;
    KALDBDatabase* handle_ = nullptr;
};

/// A table of records with a 64-bit key.
class Table {
public:
    Table(Database& database, const char16_t* name, std::uint32_t recordSize, std::uint32_t flags = KALDB_CHAIN_GUID)
        : name_(name), recordSize_(recordSize)
    {
        callbacks.compare = byKey;
        std::uint32_t exists = 0;
        EXPECT_EQ(kaldbTableExists(name, &exists), 0U);
        if (exists == 0) {
            EXPECT_EQ(create(database, flags), 0U);
        }
        open(database);
    }
    ~Table() { close(); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    std::uint32_t create(Database& database, std::uint32_t flags) const
    {
        KALDBTableInfo info{{}, recordSize_, flags, 0, 0};
        name_.copy(info.name, name_.size());
        return kaldbTableCreate(database.handle(), &info);
    }
    void open(Database& database)
    {
        ASSERT_EQ(kaldbTableOpen(database.handle(), name_.c_str(), &callbacks, &table_), 0U);
    }
    void close()
    {
        if (table_ != nullptr) {
            EXPECT_EQ(kaldbTableClose(table_), 0U);
        }
        table_ = nullptr;
    }
    void reopen(Database& database)
    {
        close();
        EXPECT_EQ(database.close(), 0U);
        database.open();
        open(database);
    }

    std::uint32_t insert(std::int64_t key, std::int64_t value = 0, KALDBID* id = nullptr)
    {
        return kaldbTableInsertRecord(table_, make(key, value).data(), 0, id);
    }
    std::uint32_t update(std::int64_t key, std::int64_t value, const KALDBID& id = {})
    {
        return kaldbTableUpdateRecord(table_, make(key, value, id).data());
    }
    std::uint32_t remove(std::int64_t key, KALDBID* id = nullptr)
    {
        return kaldbTableDeleteRecord(table_, make(key).data(), 0, id);
    }
    std::uint32_t find(std::int64_t key, Record* found = nullptr)
    {
        std::vector<char> record = make(key);
        const std::uint32_t status = kaldbTableQueryPK(table_, record.data(), record.data(), recordSize_);
        if (found != nullptr)
            std::memcpy(found, record.data(), std::min(record.size(), sizeof *found));
        return status;
    }
    std::uint32_t findByID(const KALDBID& id, Record& found)
    {
        std::vector<char> record(recordSize_);
        const std::uint32_t status = kaldbTableQueryID(table_, &id, record.data(), recordSize_);
        std::memcpy(&found, record.data(), std::min(record.size(), sizeof found));
        return status;
    }
    std::uint32_t enumerate(std::int64_t key, KALEnumerator*& enumerator, bool readOnly = true,
                            KALBTreeCompare compare = byHundred)
    {
        return kaldbTableQueryPartialPK(table_, readOnly ? 1 : 0, make(key).data(), compare, &enumerator);
    }
    /// The key of the enumerator's current record.
    std::int64_t current(KALEnumerator* enumerator) const
    {
        std::vector<char> record(recordSize_);
        EXPECT_EQ(kalEnumeratorGetItem(enumerator, record.data(), recordSize_), 0U);
        return keyOf(record.data());
    }
    /// All keys that match, in the order of the walk.
    std::vector<std::int64_t> matches(std::int64_t key, KALBTreeCompare compare = byHundred)
    {
        std::vector<std::int64_t> keys;
        KALEnumerator* enumerator = nullptr;
        if (enumerate(key, enumerator, true, compare) != 0)
            return keys;
        do
            keys.push_back(current(enumerator));
        while (kalEnumeratorMoveNext(enumerator) == 0);
        EXPECT_EQ(kalEnumeratorFree(enumerator), 0U);
        return keys;
    }
    std::vector<std::int64_t> allKeys()
    {
        std::vector<std::int64_t> keys;
        const std::uint32_t status = kaldbTableEnumWithCallback(table_, &keys, [](void* context, const void* record) {
            static_cast<std::vector<std::int64_t>*>(context)->push_back(keyOf(record));
            return 0U;
        });
        EXPECT_TRUE(status == 0 || (status == KALDB_NOT_FOUND && keys.empty())) << status;
        return keys;
    }

    std::vector<char> make(std::int64_t key, std::int64_t value = 0, const KALDBID& id = {}) const
    {
        std::vector<char> record(recordSize_);
        const Record fields{id, key, value};
        std::memcpy(record.data(), &fields, std::min(record.size(), sizeof fields));
        return record;
    }
    KALDBTable* handle() const { return table_; }
    std::uint32_t recordSize() const { return recordSize_; }
    const std::u16string& name() const { return name_; }

    KALDBChainCallbacks callbacks{};

private:
    std::u16string name_;
    std::uint32_t recordSize_;
    KALDBTable* table_ = nullptr;
};

}  // namespace test
