// Walks over records in key order, as input ranges.
//
//   query --match--> on a record --move--> on the next ... --end--> done
//         --none---> done
//
// An iterator owns the library's enumerator, which holds a lock on the page of its record.
#pragma once

#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/id.hpp>
#include <kaldb/table.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace kaldb {

namespace detail {

/// An open table: the table object's and its walks'.
struct open_table {
    KALDBTable* handle = nullptr;  // null once closed
    std::uint32_t record_size = 0;
    bool identifiers = false;
    std::string name;
    unsigned reading = 0;   // walks under way that keep the table from changing
    unsigned updating = 0;  // those that let records be updated

    open_table() = default;
    open_table(std::uint32_t size, bool withIDs, std::string_view called)
        : record_size(size), identifiers(withIDs), name(called)
    {
    }
    open_table(const open_table&) = delete;
    open_table& operator=(const open_table&) = delete;
    ~open_table() { close(); }
    void close() noexcept
    {
        if (handle != nullptr)
            static_cast<void>(kaldbTableClose(std::exchange(handle, nullptr)));
    }
};

/// Room for one record of a type, and of a size that is known at run time only.
template <class Record>
struct typed_room {
    Record record{};
    void* data() noexcept { return &record; }
    const void* data() const noexcept { return &record; }
};
struct untyped_room {
    std::vector<std::byte> record;
    void* data() noexcept { return record.data(); }
    const void* data() const noexcept { return record.data(); }
};

struct enumerator_free {
    void operator()(KALEnumerator* enumerator) const noexcept { static_cast<void>(kalEnumeratorFree(enumerator)); }
};
using enumerator = std::unique_ptr<KALEnumerator, enumerator_free>;

}  // namespace detail

/// What may happen to a table while a walk over it is under way, from begin() until its end or the iterator's.
///
/// read: nothing. Every change through this table object fails with errc::lock_conflict.
/// update: records may be updated, the current one and others. Insertions and deletions, which move records about under
/// the walk, fail.
///
/// So a loop that is to insert or erase collects keys first and changes the table when it is done. Other table objects
/// on the same table, and the C interface, are stopped by the page's lock only: they must not insert or delete
/// meanwhile.
enum class walk_for { read, update };

namespace detail {

/// Counts a walk under way.
class walk_mark {
public:
    walk_mark() = default;
    walk_mark(std::shared_ptr<open_table> table, walk_for purpose)
        : table_(std::move(table)), count_(purpose == walk_for::read ? &table_->reading : &table_->updating)
    {
        ++*count_;
    }
    walk_mark(walk_mark&& other) noexcept
        : table_(std::move(other.table_)), count_(std::exchange(other.count_, nullptr))
    {
    }
    walk_mark& operator=(walk_mark&& other) noexcept
    {
        release();
        table_ = std::move(other.table_);
        count_ = std::exchange(other.count_, nullptr);
        return *this;
    }
    ~walk_mark() { release(); }

    void release() noexcept
    {
        if (count_ != nullptr)
            --*std::exchange(count_, nullptr);
    }
    /// Null for no walk.
    const open_table* table() const noexcept { return table_.get(); }

private:
    std::shared_ptr<open_table> table_;
    unsigned* count_ = nullptr;
};

}  // namespace detail

/// A range of records; `Value` is what its iterators yield, `Room` what they read records into.
template <class Room, class Value>
class walk {
public:
    class iterator;

    /// Keeps `error` if there is one: it must outlive the walk and its iterators. Once the table is closed they fail.
    walk(std::shared_ptr<detail::open_table> table, KALBTreeCompare compare, Room probe, walk_for purpose,
         std::error_code* error)
        : table_(std::move(table)), compare_(compare), probe_(std::move(probe)), purpose_(purpose), error_(error)
    {
    }

    // Moving copies: what is left behind stays a range.
    walk(const walk&) = default;
    walk& operator=(const walk&) = default;

    /// Begins a walk: a new one each time.
    iterator begin() const { return iterator{*this}; }
    std::default_sentinel_t end() const noexcept { return std::default_sentinel; }

private:
    std::shared_ptr<detail::open_table> table_;
    KALBTreeCompare compare_;
    Room probe_;
    walk_for purpose_;
    std::error_code* error_;  // null: failures are thrown
};

/// Moves only. The record that it yields is its own copy, valid until it moves.
template <class Room, class Value>
class walk<Room, Value>::iterator {
public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = std::remove_cvref_t<Value>;
    using difference_type = std::ptrdiff_t;
    using reference = Value;

    iterator() = default;
    explicit iterator(const walk& range)
        : mark_(range.table_, range.purpose_), room_(range.probe_), error_(range.error_)
    {
        KALEnumerator* made = nullptr;
        const std::uint32_t readOnly = range.purpose_ == walk_for::read ? 1 : 0;
        const std::uint32_t status =
            kaldbTableQueryPartialPK(mark_.table()->handle, readOnly, room_.data(), range.compare_, &made);
        enumerator_.reset(made);
        settle(status == KALDB_SUCCESS ? read() : status, KALDB_NOT_FOUND);
    }

    Value operator*() const noexcept
    {
        if constexpr (std::same_as<value_type, id>) {
            id identifier;
            std::memcpy(&identifier, room_.data(), sizeof identifier);
            return identifier;
        } else {
            return room_.record;
        }
    }
    const value_type* operator->() const noexcept requires std::is_reference_v<Value> { return &room_.record; }

    iterator& operator++()
    {
        if (enumerator_) {
            const std::uint32_t status = kalEnumeratorMoveNext(enumerator_.get());
            settle(status == KALDB_SUCCESS ? read() : status, KALDB_END_OF_ENUMERATION);
        }
        return *this;
    }
    void operator++(int) { ++*this; }

    friend bool operator==(const iterator& at, std::default_sentinel_t) noexcept { return !at.enumerator_; }

private:
    std::uint32_t read() { return kalEnumeratorGetItem(enumerator_.get(), room_.data(), mark_.table()->record_size); }

    /// Whatever ends the walk, it lets go of its page.
    void settle(std::uint32_t status, std::uint32_t end)
    {
        if (status != KALDB_SUCCESS) {
            enumerator_.reset();
            mark_.release();
        }
        if (error_ != nullptr)
            detail::report(status == end ? std::uint32_t{KALDB_SUCCESS} : status, *error_);
        else if (status != end)
            detail::check(status, "walk through", mark_.table()->name);
    }

    detail::walk_mark mark_;
    Room room_{};
    detail::enumerator enumerator_;
    std::error_code* error_ = nullptr;
};

/// Over records of a type.
template <class Record>
using record_walk = walk<detail::typed_room<Record>, const Record&>;
/// Over the identifiers of records of a type.
template <class Record>
using id_walk = walk<detail::typed_room<Record>, id>;
/// Over the bytes of records.
using raw_walk = walk<detail::untyped_room, std::span<const std::byte>>;

}  // namespace kaldb
