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
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace kaldb {

namespace detail {

/// An open table. Its address stays while the table object is moved.
struct open_table {
    KALDBTable* handle = nullptr;
    std::uint32_t record_size = 0;
    bool identifiers = false;
    std::string name;
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

/// What a walk does to the pages that it stands on.
///
/// read: others may read, but a change of the table that touches the page of the walk's record fails with
/// errc::lock_conflict. Nothing is ever skipped or met twice.
///
/// update: records may be updated meanwhile, the current one and others. Insertions and deletions are not refused, but
/// move records about under the walk: it may then skip some, meet some twice, or end early. Collect the keys first and
/// change the table after the walk instead.
enum class walk_for { read, update };

/// A range of records; `Value` is what its iterators yield, `Room` what they read records into.
template <class Room, class Value>
class walk {
public:
    class iterator;

    /// Keeps `table`, and `error` if there is one: both must outlive the walk and its iterators.
    walk(const detail::open_table& table, KALBTreeCompare compare, Room probe, walk_for purpose, std::error_code* error)
        : table_(&table), compare_(compare), probe_(std::move(probe)), purpose_(purpose), error_(error)
    {
    }

    /// Begins a walk: a new one each time.
    iterator begin() const { return iterator{*this}; }
    std::default_sentinel_t end() const noexcept { return std::default_sentinel; }

private:
    const detail::open_table* table_;
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
    explicit iterator(const walk& range) : table_(range.table_), room_(range.probe_), error_(range.error_)
    {
        KALEnumerator* made = nullptr;
        const std::uint32_t status = kaldbTableQueryPartialPK(table_->handle, range.purpose_ == walk_for::read ? 1 : 0,
                                                              room_.data(), range.compare_, &made);
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
    std::uint32_t read() { return kalEnumeratorGetItem(enumerator_.get(), room_.data(), table_->record_size); }

    /// Whatever ends the walk, it lets go of its page.
    void settle(std::uint32_t status, std::uint32_t end)
    {
        if (status != KALDB_SUCCESS)
            enumerator_.reset();
        if (error_ != nullptr)
            detail::report(status == end ? std::uint32_t{KALDB_SUCCESS} : status, *error_);
        else if (status != end)
            detail::check(status, "walk through", table_->name);
    }

    const detail::open_table* table_ = nullptr;
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
