// Texts of any length inside records of a fixed size.
//
//   0          4        8          32          32 + N
//   | capacity | length | location | area      |        short: the text and zeros; long: unused, zeros
//
// Unlike the C structure, which these bytes are too, a text here never owns memory: a long one is in the database as
// soon as store() returns and comes back with load(). So it is plain data that may be copied, compared and dropped.
#pragma once

#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/text.hpp>
#include <kaldb/varstring.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace kaldb {

namespace detail {

inline constexpr KALDBIndexRecord nowhere = {
    {0xFFFF, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF}, 0xFFFFFFFF, 0xFFFF, 0xFFFF};

/// A C string for a long text, which owns the memory that the library gives it.
class long_text {
public:
    explicit long_text(const KALDBVarString& stored) : string_{stored, {}}
    {
        string_.head.capacity = sizeof string_.area;
    }
    long_text() : long_text(KALDBVarString{0, 0, nowhere}) {}
    ~long_text() { kaldbVarStringDelete(&string_.head); }
    long_text(const long_text&) = delete;
    long_text& operator=(const long_text&) = delete;

    KALDBVarString* get() { return &string_.head; }

private:
    struct {
        KALDBVarString head;
        char area[4];  // the least that a long text needs; no text below comes with fewer bytes
    } string_;
};

}  // namespace detail

/// A text at any address inside a record whose layout is known at run time: 32 bytes and, right behind them, an area of
/// `capacity` bytes, at least 4. Refers to those bytes and owns nothing; stored_text is the same with an area of its
/// own. Texts are UTF-8 without NULs.
///
/// Operations return or report: errc::conversion_failed for ill-formed UTF-8, errc::invalid_argument for a NUL,
/// errc::failure for bytes that are no text or a text that is damaged, errc::not_open without an open database.
class text_field {
public:
    text_field(void* place, std::uint32_t capacity) noexcept
        : place_(static_cast<std::byte*>(place)), capacity_(capacity)
    {
    }

    /// Makes it an empty text, whatever was there before.
    void clear() noexcept
    {
        const KALDBVarString empty{capacity_, 0, detail::nowhere};
        std::memcpy(place_, &empty, sizeof empty);
        std::memset(place_ + sizeof empty, 0, capacity_);
    }

    /// Sets the text. Fewer than `capacity` bytes lie in the record, more go to the database. What was there before is
    /// not looked at, so the stored part of an earlier long text stays in the database: another copy of the record may
    /// refer to it. Erase that one when the record that refers to it is gone:
    ///
    ///     kaldb::stored_text<56> old = p.summary;
    ///     p.summary.store("another text");
    ///     t.update(p);
    ///     old.erase();
    void store(std::string_view text) { detail::check(put(text), "store text"); }
    void store(std::string_view text, std::error_code& error) { detail::report(put(text), error); }

    std::string load() const
    {
        std::string text;
        detail::check(get(text), "load text");
        return text;
    }
    std::string load(std::error_code& error) const
    {
        std::string text;
        detail::report(get(text), error);
        return text;
    }

    /// Deletes the stored part, if there is one, and empties the text.
    void erase() { detail::check(remove(), "erase text"); }
    void erase(std::error_code& error) { detail::report(remove(), error); }

    /// In bytes.
    std::uint32_t size() const noexcept { return head().length; }
    bool is_long() const noexcept { return head().length >= capacity_; }

private:
    KALDBVarString head() const noexcept
    {
        KALDBVarString head;
        std::memcpy(&head, place_, sizeof head);
        return head;
    }

    std::uint32_t put(std::string_view text)
    {
        std::u16string wide;
        if (const std::uint32_t status = detail::to_utf16(text, wide); status != KALDB_SUCCESS)
            return status;
        if (text.size() < capacity_) {
            clear();
            const KALDBVarString head{capacity_, static_cast<std::uint32_t>(text.size()), detail::nowhere};
            std::memcpy(place_, &head, sizeof head);
            if (!text.empty())
                std::memcpy(place_ + sizeof head, text.data(), text.size());
            return KALDB_SUCCESS;
        }
        detail::long_text string;
        std::uint32_t status = kaldbVarStringSet(string.get(), wide.c_str());
        if (status == KALDB_SUCCESS)
            status = kaldbVarStringInsertRecord(string.get());
        if (status != KALDB_SUCCESS)
            return status;
        const KALDBVarString head{capacity_, string.get()->length, string.get()->location};
        clear();
        std::memcpy(place_, &head, sizeof head);
        return KALDB_SUCCESS;
    }

    std::uint32_t get(std::string& text) const
    {
        const KALDBVarString stored = head();
        if (stored.capacity != capacity_ || capacity_ < sizeof(std::uint32_t))
            return KALDB_FAILURE;
        if (stored.length < capacity_) {
            text.assign(reinterpret_cast<const char*>(place_ + sizeof stored), stored.length);
            return KALDB_SUCCESS;
        }
        detail::long_text string{stored};
        if (const std::uint32_t status = kaldbVarStringGetRecord(string.get()); status != KALDB_SUCCESS)
            return status;
        text.assign(kaldbVarStringGetPSZ(string.get()), stored.length);
        return KALDB_SUCCESS;
    }

    std::uint32_t remove()
    {
        const KALDBVarString stored = head();
        if (stored.capacity != capacity_)
            return KALDB_FAILURE;
        if (stored.length >= capacity_) {
            detail::long_text string{stored};
            if (const std::uint32_t status = kaldbVarStringDeleteRecord(string.get()); status != KALDB_SUCCESS)
                return status;
        }
        clear();
        return KALDB_SUCCESS;
    }

    std::byte* place_;
    std::uint32_t capacity_;
};

/// A text as a member of a record: 32 + N bytes, of which N lie ready for a short text. Empty at first. The operations
/// are those of text_field.
///
///     struct Package { char name[48]; kaldb::stored_text<56> summary; };
///     p.summary.store("GNU Bourne Again SHell");
///     std::string summary = p.summary.load();
template <std::uint32_t N>
class stored_text {
    static_assert(N >= 4 && N % 8 == 0, "the area is a multiple of 8 bytes");

public:
    static constexpr std::uint32_t capacity = N;

    void store(std::string_view text) { field().store(text); }
    void store(std::string_view text, std::error_code& error) { field().store(text, error); }
    std::string load() const { return field().load(); }
    std::string load(std::error_code& error) const { return field().load(error); }
    void erase() { field().erase(); }
    void erase(std::error_code& error) { field().erase(error); }
    std::uint32_t size() const noexcept { return head_.length; }
    bool is_long() const noexcept { return head_.length >= N; }

private:
    /// A field may change its bytes; const operations call only those of its operations that do not.
    text_field field() const noexcept { return {const_cast<stored_text*>(this), N}; }

    KALDBVarString head_{N, 0, detail::nowhere};
    char area_[N] = {};
};
static_assert(sizeof(stored_text<56>) == 32 + 56 && std::is_trivially_copyable_v<stored_text<56>>);

}  // namespace kaldb
