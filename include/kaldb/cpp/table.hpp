// Tables of one record type.
#pragma once

#include <kaldb/cpp/key.hpp>
#include <kaldb/cpp/raw_table.hpp>
#include <kaldb/cpp/walk.hpp>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

namespace kaldb {

namespace detail {

inline constexpr std::size_t longest_record = 1964;  // bytes; one fills a page

/// How many records of a size a page takes; 0 when not even one.
constexpr std::size_t records_per_page(std::size_t record_size)
{
    // A page has room for 2004 bytes, of which 32 are its header, and gives every record 8 bytes of links. The count
    // reckons with 2 bytes more for each, and with 16 more in all where that still fits.
    for (const std::size_t reckoned : {std::size_t{2020}, std::size_t{2004}})
        if (const std::size_t count = (reckoned - 32) / (record_size + 10);
            count > 0 && 32 + count * (record_size + 8) <= 2004)
            return count;
    return 0;
}
static_assert(records_per_page(longest_record) == 1 && records_per_page(longest_record + 1) == 0);

// The comparisons that walks and deletions need. An order is made of functions alone, so each is one function.

/// The order of a whole key.
template <class Order>
struct whole_key {
    static std::int32_t compare(const void* probe, const void* stored) { return Order::compare(probe, stored); }
};
/// The order of the first members.
template <class Order, std::size_t N>
struct first_members {
    static std::int32_t compare(const void* probe, const void* stored)
    {
        return Order::template compare_first<N>(probe, stored);
    }
};
/// Whether an order of members looks for them at their places in the record: it knows only those in the class that
/// declares them.
template <class Record, class Order>
inline constexpr bool finds_members = true;
template <class Record, auto... Members>
inline constexpr bool finds_members<Record, key<Members...>> =
    std::same_as<typename key<Members...>::record, Record> || std::is_standard_layout_v<Record>;
/// Everything that is not below the probe counts as equal to it.
template <class Part>
std::int32_t not_below(const void* probe, const void* stored)
{
    const std::int32_t order = Part::compare(probe, stored);
    return order < 0 ? 0 : order;
}

}  // namespace detail

/// Owns an open table of `Record`s, in the order that `Order` gives (kaldb::key).
///
///     struct Package { kaldb::id id; char name[48]; std::uint32_t size; };
///     using Packages = kaldb::table<Package, kaldb::key<&Package::name>>;
///
///     Packages t = Packages::open_or_create(db, "Packages");
///     Package p{};
///     kaldb::assign(p.name, "bash");
///     if (!t.insert(p)) std::puts("there already");
///     for (const Package& q : t.from("ba")) std::puts(q.name);
///
/// Keys are given as a record whose key members are set, or as values of the first key members: `t.find("bash")`. A
/// value that its member cannot hold throws: errc::buffer_too_small for a text without room for its terminator,
/// errc::invalid_argument for a number. The forms with an error code take a record; probe() makes one.
///
/// A record that begins with a kaldb::id has a table with identifiers: insert() stamps it, find_id() finds by it.
/// Records are written as they lie in memory, padding included: begin with `Record r{}`. Up to 187 bytes, a page of
/// 2 KiB takes 10 or more; above 487 fewer than 4, and records outside the range of every page then start pages of
/// their own.
///
/// Walks copy records out, and hold a lock on one page at a time. While one is under way the table does not change, or
/// by updates only: see kaldb::walk_for. About 20 pages can be locked at a time by all walks together.
template <class Record, class Order>
class table {
    static_assert(std::is_trivially_copyable_v<Record>, "records are kept byte by byte");
    static_assert(std::is_default_constructible_v<Record>, "walks need room for a record");
    static_assert(sizeof(Record) <= detail::longest_record, "a record does not fit a page");
    static_assert(detail::finds_members<Record, Order>, "a key member belongs to a base that may not begin the record");

public:
    using record_type = Record;
    using order_type = Order;
    using walk_type = record_walk<Record>;
    using iterator = typename walk_type::iterator;

    static constexpr bool identifiers = begins_with_id<Record>;
    static constexpr std::size_t records_per_page = detail::records_per_page(sizeof(Record));

    table() noexcept = default;

    /// As raw_table's: errc::not_found when there is no such table, errc::invalid_argument when the file's records are
    /// not of this size and kind.
    static table open(database& db, std::string_view name) { return table{raw_table::open(db, name, shape())}; }
    static table open(database& db, std::string_view name, std::error_code& error)
    {
        return table{raw_table::open(db, name, shape(), error)};
    }
    /// errc::already_exists when there is such a table.
    static table create(database& db, std::string_view name) { return table{raw_table::create(db, name, shape())}; }
    static table create(database& db, std::string_view name, std::error_code& error)
    {
        return table{raw_table::create(db, name, shape(), error)};
    }
    static table open_or_create(database& db, std::string_view name)
    {
        return table{raw_table::open_or_create(db, name, shape())};
    }
    static table open_or_create(database& db, std::string_view name, std::error_code& error)
    {
        return table{raw_table::open_or_create(db, name, shape(), error)};
    }

    /// A record with its first key members set, to look for.
    template <class... Values>
    requires(Order::template takes<Values...>()) static Record probe(const Values&... values)
    {
        Record record{};
        detail::check(Order::set(record, values...), "make a key");
        return record;
    }

    // ---- single records ----

    /// False when a record of this key is there. With identifiers, a record that goes in gets its own.
    bool insert(Record& record) { return raw_.insert(&record); }
    bool insert(Record& record, std::error_code& error) { return raw_.insert(&record, error); }
    bool insert(const Record& record)
    {
        Record copy = record;
        return raw_.insert(&copy);
    }
    bool insert(const Record& record, std::error_code& error)
    {
        Record copy = record;
        return raw_.insert(&copy, error);
    }

    /// Overwrites the record of this key; false when there is none. A record with an identifier must have the stored
    /// one, or none and gets it.
    bool update(Record& record) { return raw_.update(&record); }
    bool update(Record& record, std::error_code& error) { return raw_.update(&record, error); }
    bool update(const Record& record)
    {
        Record copy = record;
        return raw_.update(&copy);
    }
    bool update(const Record& record, std::error_code& error)
    {
        Record copy = record;
        return raw_.update(&copy, error);
    }

    std::optional<Record> find(const Record& key) const
    {
        std::optional<Record> found{std::in_place};
        if (!raw_.find(&key, &*found))
            found.reset();
        return found;
    }
    std::optional<Record> find(const Record& key, std::error_code& error) const
    {
        std::optional<Record> found{std::in_place};
        if (!raw_.find(&key, &*found, error))
            found.reset();
        return found;
    }
    template <class... Values>
    requires(Order::template takes<Values...>() &&
             sizeof...(Values) == Order::size) std::optional<Record> find(const Values&... values)
    const { return find(probe(values...)); }

    std::optional<Record> find_id(const id& wanted) const requires(identifiers)
    {
        std::optional<Record> found{std::in_place};
        if (!raw_.find_id(wanted, &*found))
            found.reset();
        return found;
    }
    std::optional<Record> find_id(const id& wanted, std::error_code& error) const requires(identifiers)
    {
        std::optional<Record> found{std::in_place};
        if (!raw_.find_id(wanted, &*found, error))
            found.reset();
        return found;
    }

    /// Deletes the record of this key; false when there is none.
    bool erase(const Record& key) { return raw_.erase(&key); }
    bool erase(const Record& key, std::error_code& error) { return raw_.erase(&key, error); }
    template <class... Values>
    requires(Order::template takes<Values...>() && sizeof...(Values) == Order::size) bool erase(const Values&... values)
    {
        return erase(probe(values...));
    }
    bool erase_id(const id& wanted) requires(identifiers) { return raw_.erase_id(wanted); }
    bool erase_id(const id& wanted, std::error_code& error) requires(identifiers)
    {
        return raw_.erase_id(wanted, error);
    }
    /// Deletes every record whose first N key members equal the probe's.
    template <std::size_t N>
    void erase_equal(const Record& key)
    {
        raw_.erase_all(&key, detail::first_members<Order, N>::compare);
    }
    template <std::size_t N>
    void erase_equal(const Record& key, std::error_code& error)
    {
        raw_.erase_all(&key, detail::first_members<Order, N>::compare, error);
    }

    // ---- walks ----

    /// Every record.
    iterator begin() const { return all().begin(); }
    std::default_sentinel_t end() const noexcept { return std::default_sentinel; }
    walk_type all(walk_for purpose = walk_for::read) const { return over({}, raw_table::every, purpose); }
    walk_type all(std::error_code& error, walk_for purpose = walk_for::read) const
    {
        return over({}, raw_table::every, purpose, &error);
    }
    /// Every record's identifier, in the order of the keys.
    id_walk<Record> ids() const requires(identifiers)
    {
        return {raw_.state(), raw_table::every, {}, walk_for::read, nullptr};
    }
    id_walk<Record> ids(std::error_code& error) const requires(identifiers)
    {
        return {raw_.state(), raw_table::every, {}, walk_for::read, &error};
    }

    /// The records whose first N key members equal the probe's.
    template <std::size_t N>
    walk_type equal(const Record& key, walk_for purpose = walk_for::read) const
    {
        return over(key, detail::first_members<Order, N>::compare, purpose);
    }
    template <std::size_t N>
    walk_type equal(const Record& key, std::error_code& error, walk_for purpose = walk_for::read) const
    {
        return over(key, detail::first_members<Order, N>::compare, purpose, &error);
    }
    template <class... Values>
    requires(Order::template takes<Values...>()) walk_type equal(const Values&... values)
    const { return equal<sizeof...(Values)>(probe(values...)); }

    /// The records from the probe's key to the end.
    walk_type from(const Record& key, walk_for purpose = walk_for::read) const
    {
        return over(key, detail::not_below<detail::whole_key<Order>>, purpose);
    }
    walk_type from(const Record& key, std::error_code& error, walk_for purpose = walk_for::read) const
    {
        return over(key, detail::not_below<detail::whole_key<Order>>, purpose, &error);
    }
    template <class... Values>
    requires(Order::template takes<Values...>()) walk_type from(const Values&... values)
    const
    {
        return over(probe(values...), detail::not_below<detail::first_members<Order, sizeof...(Values)>>,
                    walk_for::read);
    }

    /// The records whose key begins like this: all values but the last are equal, the last is how a text begins.
    template <class... Values>
    requires(Order::template takes<Values...>()) walk_type beginning(const Values&... values)
    const { return over(probe(values...), Order::template compare_beginning<sizeof...(Values)>, walk_for::read); }

    void close() noexcept { raw_.close(); }
    explicit operator bool() const noexcept { return static_cast<bool>(raw_); }
    std::string_view name() const noexcept { return raw_.name(); }
    KALDBTable* native_handle() const noexcept { return raw_.native_handle(); }

private:
    explicit table(raw_table raw) noexcept : raw_(std::move(raw)) {}

    static record_shape shape()
    {
        return {static_cast<std::uint32_t>(sizeof(Record)), identifiers, detail::whole_key<Order>::compare};
    }

    walk_type over(const Record& key, KALBTreeCompare compare, walk_for purpose, std::error_code* error = nullptr) const
    {
        return {raw_.state(), compare, {key}, purpose, error};
    }

    raw_table raw_;
};

}  // namespace kaldb
