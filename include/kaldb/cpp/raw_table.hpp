// Tables of records whose layout is known at run time only, and the list of tables. kaldb::table stands on it.
#pragma once

#include <kaldb/cpp/database.hpp>
#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/id.hpp>
#include <kaldb/cpp/text.hpp>
#include <kaldb/cpp/walk.hpp>
#include <kaldb/table.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kaldb {

/// A line in the list of tables.
struct table_info {
    std::string name;
    std::uint32_t record_size = 0;  ///< bytes; of one piece in a table of pieces
    std::uint32_t flags = 0;        ///< KALDB_CHAIN_...

    bool identifiers() const noexcept { return (flags & KALDB_CHAIN_GUID) != 0; }
    bool pieces() const noexcept { return (flags & KALDB_CHAIN_BINARY) != 0; }
};

namespace detail {

/// Calls `visit` with every table's KALDBTableInfo until it answers false.
template <class Visit>
std::uint32_t visit_tables(KALDBDatabase* database, Visit&& visit)
{
    if (database == nullptr)  // to the library, whatever database is open
        return KALDB_NOT_OPEN;
    KALEnumerator* made = nullptr;
    std::uint32_t status = kaldbTableEnumerate(database, &made);
    const enumerator tables{made};
    while (status == KALDB_SUCCESS) {
        KALDBTableInfo info{};
        status = kalEnumeratorGetItem(tables.get(), &info, sizeof info);
        if (status == KALDB_SUCCESS && !visit(static_cast<const KALDBTableInfo&>(info)))
            return KALDB_SUCCESS;
        if (status == KALDB_SUCCESS)
            status = kalEnumeratorMoveNext(tables.get());
    }
    return status == KALDB_END_OF_ENUMERATION || status == KALDB_NOT_FOUND ? std::uint32_t{KALDB_SUCCESS} : status;
}

inline std::uint32_t list_tables(KALDBDatabase* database, std::vector<table_info>& list)
{
    return visit_tables(database, [&](const KALDBTableInfo& info) {
        list.push_back({to_utf8(info.name), info.recordSize, info.flags});
        return true;
    });
}

}  // namespace detail

/// The tables of the database in the order of their names, the library's own among them.
inline std::vector<table_info> tables(const database& db)
{
    std::vector<table_info> list;
    detail::check(detail::list_tables(db.native_handle(), list), "list tables of", db.path().string());
    return list;
}
inline std::vector<table_info> tables(const database& db, std::error_code& error)
{
    std::vector<table_info> list;
    detail::report(detail::list_tables(db.native_handle(), list), error);
    return list;
}

/// What a program expects of a table's records.
struct record_shape {
    std::uint32_t size = 0;
    bool identifiers = false;           ///< every record begins with a kaldb::id
    KALBTreeCompare compare = nullptr;  ///< the order; see kaldb::key
};

/// Owns an open table. Records are `size` bytes at any address; a key is a record whose key fields are set.
///
/// Names are UTF-8, 1 to 31 UTF-16 units, 26 with identifiers. When the database or the table is closed under them,
/// operations and walks fail with errc::not_open or errc::invalid_argument.
class raw_table {
public:
    raw_table() noexcept = default;
    raw_table(raw_table&&) noexcept = default;
    raw_table& operator=(raw_table&& other) noexcept
    {
        if (this != &other) {
            close();
            table_ = std::move(other.table_);
        }
        return *this;
    }
    ~raw_table() { close(); }

    /// Opens a table; errc::not_found when there is none, errc::invalid_argument when its records are of another size
    /// or kind than `shape` says.
    static raw_table open(database& db, std::string_view name, const record_shape& shape)
    {
        raw_table table;
        std::string phrase;
        const std::uint32_t status = table.start(db, name, shape, phrase);
        detail::check(status, "open table", name, phrase);
        return table;
    }
    static raw_table open(database& db, std::string_view name, const record_shape& shape, std::error_code& error)
    {
        raw_table table;
        std::string phrase;
        detail::report(table.start(db, name, shape, phrase), error);
        return table;
    }

    /// Makes a table and opens it; errc::already_exists when there is one, errc::buffer_too_small for a name or a
    /// record that is too long, errc::invalid_argument for an empty name.
    static raw_table create(database& db, std::string_view name, const record_shape& shape)
    {
        const std::uint32_t status = make(db, name, shape);
        detail::check(status, "create table", name, status == KALDB_ALREADY_EXISTS ? "table exists already" : "");
        return open(db, name, shape);
    }
    static raw_table create(database& db, std::string_view name, const record_shape& shape, std::error_code& error)
    {
        detail::report(make(db, name, shape), error);
        return error ? raw_table{} : open(db, name, shape, error);
    }

    static raw_table open_or_create(database& db, std::string_view name, const record_shape& shape)
    {
        raw_table table;
        std::string phrase;
        const std::uint32_t status = table.start(db, name, shape, phrase);
        if (status == KALDB_NOT_FOUND)
            return create(db, name, shape);
        detail::check(status, "open table", name, phrase);
        return table;
    }
    static raw_table open_or_create(database& db, std::string_view name, const record_shape& shape,
                                    std::error_code& error)
    {
        raw_table table = open(db, name, shape, error);
        return error == errc::not_found ? create(db, name, shape, error) : std::move(table);
    }

    /// Inserts a record; false when there is one of this key. With identifiers, the record gets its own.
    bool insert(void* record) { return detail::answer(insertion(record), KALDB_ALREADY_EXISTS, "insert into", name()); }
    bool insert(void* record, std::error_code& error)
    {
        return detail::answer(insertion(record), KALDB_ALREADY_EXISTS, error);
    }

    /// Overwrites the record of this key; false when there is none. With identifiers, a record whose identifier is none
    /// gets the stored one; any other must have the stored one.
    bool update(void* record) { return detail::answer(overwriting(record), KALDB_NOT_FOUND, "update in", name()); }
    bool update(void* record, std::error_code& error)
    {
        return detail::answer(overwriting(record), KALDB_NOT_FOUND, error);
    }

    /// Deletes the record of this key; false when there is none.
    bool erase(const void* key) { return detail::answer(removal(key), KALDB_NOT_FOUND, "erase from", name()); }
    bool erase(const void* key, std::error_code& error) { return detail::answer(removal(key), KALDB_NOT_FOUND, error); }
    bool erase_id(const id& wanted)
    {
        return detail::answer(removalByID(wanted), KALDB_NOT_FOUND, "erase from", name());
    }
    bool erase_id(const id& wanted, std::error_code& error)
    {
        return detail::answer(removalByID(wanted), KALDB_NOT_FOUND, error);
    }
    /// Deletes all records for which `compare` answers 0.
    void erase_all(const void* key, KALBTreeCompare compare)
    {
        detail::check(removalOfAll(key, compare), "erase from", name());
    }
    void erase_all(const void* key, KALBTreeCompare compare, std::error_code& error)
    {
        detail::report(removalOfAll(key, compare), error);
    }

    /// Copies the record of this key; false when there is none. `record` may be `key`.
    bool find(const void* key, void* record) const
    {
        return detail::answer(query(key, record), KALDB_NOT_FOUND, "find in", name());
    }
    bool find(const void* key, void* record, std::error_code& error) const
    {
        return detail::answer(query(key, record), KALDB_NOT_FOUND, error);
    }
    bool find_id(const id& wanted, void* record) const
    {
        return detail::answer(queryByID(wanted, record), KALDB_NOT_FOUND, "find in", name());
    }
    bool find_id(const id& wanted, void* record, std::error_code& error) const
    {
        return detail::answer(queryByID(wanted, record), KALDB_NOT_FOUND, error);
    }

    /// All records, in key order.
    raw_walk all(walk_for purpose = walk_for::read) const { return walkOf({}, every, purpose, nullptr); }
    raw_walk all(std::error_code& error, walk_for purpose = walk_for::read) const
    {
        return walkOf({}, every, purpose, &error);
    }
    /// The records for which `compare` answers 0; they must be neighbours in the table's order.
    raw_walk matching(const void* key, KALBTreeCompare compare, walk_for purpose = walk_for::read) const
    {
        return walkOf(key, compare, purpose, nullptr);
    }
    raw_walk matching(const void* key, KALBTreeCompare compare, std::error_code& error,
                      walk_for purpose = walk_for::read) const
    {
        return walkOf(key, compare, purpose, &error);
    }

    /// Walks that are still under way fail from now on.
    void close() noexcept
    {
        if (table_)
            table_->close();
        table_.reset();
    }
    explicit operator bool() const noexcept { return table_ != nullptr; }
    std::string_view name() const noexcept { return table_ ? std::string_view{table_->name} : std::string_view{}; }
    std::uint32_t record_size() const noexcept { return table_ ? table_->record_size : 0; }
    bool identifiers() const noexcept { return table_ && table_->identifiers; }
    /// For calls of the C interface; null when nothing is open.
    KALDBTable* native_handle() const noexcept { return handle(); }
    /// What walks are made from; of an object that owns nothing, a table that is not open.
    const std::shared_ptr<detail::open_table>& state() const
    {
        static const auto none = std::make_shared<detail::open_table>();
        return table_ ? table_ : none;
    }

    /// Finds every record equal: the comparison of a walk through the whole table.
    static std::int32_t every(const void*, const void*) noexcept { return 0; }

private:
    /// Whether a walk is under way: records must then stay where they are.
    bool walked() const noexcept { return table_ && table_->reading + table_->updating > 0; }
    KALDBTable* handle() const noexcept { return table_ ? table_->handle : nullptr; }

    /// The name as the library takes it, for a database that is open: to the library, no handle means any that is.
    static std::uint32_t nameOf(const database& db, std::string_view name, detail::table_name& wide)
    {
        return db.native_handle() == nullptr ? std::uint32_t{KALDB_NOT_OPEN} : detail::to_table_name(name, wide);
    }

    static std::uint32_t make(database& db, std::string_view name, const record_shape& shape)
    {
        detail::table_name wide;
        if (const std::uint32_t status = nameOf(db, name, wide); status != KALDB_SUCCESS)
            return status;
        if (name.empty())
            return KALDB_INVALID_ARGUMENT;
        KALDBTableInfo info{};
        std::memcpy(info.name, wide.units, sizeof info.name);
        info.recordSize = shape.size;
        info.flags = shape.identifiers ? KALDB_CHAIN_GUID : 0;
        return kaldbTableCreate(db.native_handle(), &info);
    }

    std::uint32_t start(database& db, std::string_view name, const record_shape& shape, std::string& phrase)
    {
        detail::table_name wide;
        if (const std::uint32_t status = nameOf(db, name, wide); status != KALDB_SUCCESS)
            return status;
        const auto opened = std::make_shared<detail::open_table>(shape.size, shape.identifiers, name);
        KALDBChainCallbacks callbacks{};
        callbacks.compare = shape.compare;
        std::uint32_t status = kaldbTableOpen(db.native_handle(), wide.units, &callbacks, &opened->handle);
        if (status == KALDB_SUCCESS)
            status = compareShapes(db, wide, shape, phrase);
        if (status == KALDB_SUCCESS)
            table_ = opened;
        return status;
    }

    /// The library believes every buffer to be as large as the file's records; the list of tables says how large.
    static std::uint32_t compareShapes(database& db, const detail::table_name& name, const record_shape& shape,
                                       std::string& phrase)
    {
        bool met = false;
        const std::uint32_t status = detail::visit_tables(db.native_handle(), [&](const KALDBTableInfo& info) {
            met = std::memcmp(info.name, name.units, sizeof info.name) == 0;
            if (!met)
                return true;
            const table_info found{{}, info.recordSize, info.flags};
            if (found.pieces())
                phrase = "it is a table of pieces";
            else if (found.record_size != shape.size)
                phrase.append("records have ")
                    .append(std::to_string(found.record_size))
                    .append(" bytes in the file, ")
                    .append(std::to_string(shape.size))
                    .append(" here");
            else if (found.identifiers() != shape.identifiers)
                phrase = found.identifiers() ? "records begin with identifiers in the file, not here"
                                             : "records begin with identifiers here, not in the file";
            return false;
        });
        if (status != KALDB_SUCCESS)
            return status;
        if (!met)
            return KALDB_NOT_FOUND;
        return phrase.empty() ? KALDB_SUCCESS : KALDB_INVALID_ARGUMENT;
    }

    /// The identifier of a record that is refused is used up; the caller's record must not keep it, or an update that
    /// follows would write it over the stored one.
    std::uint32_t insertion(void* record)
    {
        if (walked())
            return KALDB_LOCK_CONFLICT;
        if (!identifiers())
            return kaldbTableInsertRecord(handle(), record, 0, nullptr);
        id before;
        std::memcpy(&before, record, sizeof before);
        const std::uint32_t status = kaldbTableInsertRecord(handle(), record, 0, nullptr);
        if (status != KALDB_SUCCESS)
            std::memcpy(record, &before, sizeof before);
        return status;
    }

    std::uint32_t overwriting(void* record)
    {
        if (table_ && table_->reading > 0)
            return KALDB_LOCK_CONFLICT;
        if (identifiers()) {
            id given;
            std::memcpy(&given, record, sizeof given);
            if (given.is_none()) {
                std::vector<std::byte> stored(record_size());
                if (const std::uint32_t status = query(record, stored.data()); status != KALDB_SUCCESS)
                    return status;
                std::memcpy(record, stored.data(), sizeof given);
            }
        }
        return kaldbTableUpdateRecord(handle(), record);
    }

    // The library takes keys as if it wrote to them, for the callbacks of tables that have some; these have none.
    std::uint32_t removal(const void* key)
    {
        return walked() ? std::uint32_t{KALDB_LOCK_CONFLICT}
                        : kaldbTableDeleteRecord(handle(), const_cast<void*>(key), 0, nullptr);
    }

    std::uint32_t removalByID(const id& wanted)
    {
        const KALDBID identifier = plain(wanted);
        return walked() ? std::uint32_t{KALDB_LOCK_CONFLICT} : kaldbTableDeleteRecordByID(handle(), &identifier);
    }

    std::uint32_t removalOfAll(const void* key, KALBTreeCompare compare)
    {
        return walked() ? std::uint32_t{KALDB_LOCK_CONFLICT} : kaldbTableDeletePartialPK(handle(), key, compare);
    }

    std::uint32_t query(const void* key, void* record) const
    {
        return kaldbTableQueryPK(handle(), key, record, record_size());
    }

    std::uint32_t queryByID(const id& wanted, void* record) const
    {
        const KALDBID identifier = plain(wanted);
        return kaldbTableQueryID(handle(), &identifier, record, record_size());
    }

    static KALDBID plain(const id& wanted) { return {wanted.tag, wanted.spare, wanted.alignment, wanted.sequence}; }

    raw_walk walkOf(const void* key, KALBTreeCompare compare, walk_for purpose, std::error_code* error) const
    {
        detail::untyped_room probe{std::vector<std::byte>(record_size())};
        if (key != nullptr)
            std::memcpy(probe.data(), key, record_size());
        return {state(), compare, std::move(probe), purpose, error};
    }

    std::shared_ptr<detail::open_table> table_;
};

}  // namespace kaldb
