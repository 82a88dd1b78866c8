// The order of a table's records, made from their members.
#pragma once

#include <kaldb/cpp/id.hpp>
#include <kaldb/cpp/text.hpp>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace kaldb {

/// A number kept so that its bytes have its order: what the `kaldb` command expects of numbers in keys.
class ordered_int64 {
public:
    ordered_int64(std::int64_t value = 0) noexcept
    {
        const std::uint64_t turned = static_cast<std::uint64_t>(value) ^ std::uint64_t{1} << 63;
        for (std::size_t i = 0; i < bytes_.size(); ++i)
            bytes_[i] = static_cast<std::uint8_t>(turned >> (56 - 8 * i));
    }
    operator std::int64_t() const noexcept
    {
        std::uint64_t turned = 0;
        for (const std::uint8_t byte : bytes_)
            turned = turned << 8 | byte;
        return static_cast<std::int64_t>(turned ^ std::uint64_t{1} << 63);
    }

private:
    std::array<std::uint8_t, 8> bytes_;
};

namespace detail {

template <auto Member>
struct member_of;
template <class Record, class Field, Field Record::*Member>
struct member_of<Member> {
    using record = Record;
    using field = Field;
};

/// Where the member lies in its record; a constant once optimised.
template <auto Member>
std::size_t offset_of() noexcept
{
    using Record = typename member_of<Member>::record;
    alignas(Record) static const unsigned char place[sizeof(Record)] = {};
    const auto* record = static_cast<const Record*>(static_cast<const void*>(place));
    const auto* field = static_cast<const void*>(&(record->*Member));
    return static_cast<std::size_t>(static_cast<const unsigned char*>(field) - place);
}

// Characters end at the first NUL; bytes have no end but the array's.
template <class T>
inline constexpr bool is_character = std::same_as<T, char> || std::same_as<T, char8_t> || std::same_as<T, char16_t>;
template <class T>
inline constexpr bool is_byte = std::same_as<T, unsigned char> || std::same_as<T, std::byte>;

template <class Field>
inline constexpr bool is_text_array = std::is_bounded_array_v<Field>&& is_character<std::remove_extent_t<Field>>;
template <class Field>
inline constexpr bool is_byte_array = std::is_bounded_array_v<Field>&& is_byte<std::remove_extent_t<Field>>;
template <class T, std::size_t N>
inline constexpr bool is_byte_array<std::array<T, N>> = is_byte<T>;

/// Floating point is left out: NaN has no place in an order.
template <class Field>
concept key_field = is_text_array<Field> || is_byte_array<Field> || std::integral<Field> || std::is_enum_v<Field> ||
    std::same_as<Field, id>;

template <class T>
T read_at(const void* bytes) noexcept
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class T>
std::int32_t order_of(const T& first, const T& second) noexcept
{
    return first < second ? -1 : second < first ? 1 : 0;
}

/// Neither side need be aligned: records lie in pages without it.
template <key_field Field>
std::int32_t compare_fields(const char* probe, const char* stored) noexcept
{
    if constexpr (std::same_as<Field, char[sizeof(Field)]> || std::same_as<Field, char8_t[sizeof(Field)]>) {
        return std::strncmp(probe, stored, sizeof(Field));
    } else if constexpr (is_text_array<Field>) {
        for (std::size_t at = 0; at < sizeof(Field); at += sizeof(char16_t)) {
            const char16_t first = read_at<char16_t>(probe + at);
            const char16_t second = read_at<char16_t>(stored + at);
            if (first != second || first == u'\0')
                return order_of(first, second);
        }
        return 0;
    } else if constexpr (is_byte_array<Field> || std::same_as<Field, ordered_int64>) {
        return std::memcmp(probe, stored, sizeof(Field));
    } else {
        return order_of(read_at<Field>(probe), read_at<Field>(stored));
    }
}

template <class Field, class Value>
concept settable = (std::same_as<Field, char[sizeof(Field)]> && std::convertible_to<Value, std::string_view>) ||
                   (std::integral<Field> && std::integral<Value>) ||
                   (!std::is_array_v<Field> && !std::integral<Field> && std::convertible_to<Value, Field>);

/// A value that the field cannot hold is refused: it would find something else.
template <class Field, class Value>
std::uint32_t set_field(Field& field, const Value& value)
{
    if constexpr (std::is_array_v<Field>) {
        return assign_chars(field, sizeof field, value);
    } else if constexpr (std::integral<Field>) {
        field = static_cast<Field>(value);
        const bool same = static_cast<Value>(field) == value && (field < Field{}) == (value < Value{});
        return same ? KALDB_SUCCESS : KALDB_INVALID_ARGUMENT;
    } else {
        field = value;
        return KALDB_SUCCESS;
    }
}

}  // namespace detail

/// An order by members, the first one first: `kaldb::key<&Release::product, &Release::version>`. Members are integers,
/// enumerations, identifiers, arrays of characters (compared up to the first NUL) and arrays of bytes (compared whole).
///
/// Any other type can order a table that has a static function
/// `std::int32_t compare(const void* probe, const void* stored)`: negative, 0 or positive as the probe sorts before,
/// with or after the stored record. Neither pointer is aligned.
template <auto... Members>
struct key {
    static_assert(sizeof...(Members) > 0, "a key needs at least one member");
    using record = typename detail::member_of<std::get<0>(std::tuple{Members...})>::record;
    static_assert((std::same_as<record, typename detail::member_of<Members>::record> && ...),
                  "all members of a key belong to one record type");
    static_assert((detail::key_field<typename detail::member_of<Members>::field> && ...),
                  "a key member is an integer, an enumeration, an identifier or an array of characters or bytes");

    static constexpr std::size_t size = sizeof...(Members);

    static std::int32_t compare(const void* probe, const void* stored) noexcept
    {
        return compare_first<size>(probe, stored);
    }

    /// The order by the first N members alone.
    template <std::size_t N>
    static std::int32_t compare_first(const void* probe, const void* stored) noexcept
    {
        static_assert(N <= size, "the key has fewer members");
        const char* const first = static_cast<const char*>(probe);
        const char* const second = static_cast<const char*>(stored);
        return [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            std::int32_t order = 0;
            static_cast<void>(((order = compare_member<I>(first, second), order == 0) && ...));
            return order;
        }
        (std::make_index_sequence<N>{});
    }

    /// The order of the stored text at member N - 1 against the probe's as a beginning: 0 for all that begin so.
    template <std::size_t N>
    static std::int32_t compare_beginning(const void* probe, const void* stored) noexcept
    {
        using Field = field<N - 1>;
        static_assert(std::same_as<Field, char[sizeof(Field)]>, "only a text has a beginning");
        if (const std::int32_t order = compare_first<N - 1>(probe, stored); order != 0)
            return order;
        const char* const text = static_cast<const char*>(probe) + offset<N - 1>();
        const char* const other = static_cast<const char*>(stored) + offset<N - 1>();
        return std::strncmp(text, other, std::char_traits<char>::length(text));
    }

    /// Sets the first members of a probe.
    template <class... Values>
    static std::uint32_t set(record& probe, const Values&... values)
    {
        return [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            std::uint32_t status = KALDB_SUCCESS;
            static_cast<void>(
                ((status = detail::set_field(probe.*member<I>(), values), status == KALDB_SUCCESS) && ...));
            return status;
        }
        (std::index_sequence_for<Values...>{});
    }

    template <class... Values>
    static constexpr bool takes()
    {
        if constexpr (sizeof...(Values) == 0 || sizeof...(Values) > size)
            return false;
        else
            return []<std::size_t... I>(std::index_sequence<I...>)
            {
                return (detail::settable<field<I>, Values> && ...);
            }
        (std::index_sequence_for<Values...>{});
    }

    /// Where the members lie in the record.
    static std::array<std::size_t, size> offsets() noexcept { return {detail::offset_of<Members>()...}; }

private:
    template <std::size_t I>
    static constexpr auto member()
    {
        return std::get<I>(std::tuple{Members...});
    }
    template <std::size_t I>
    using field = typename detail::member_of<member<I>()>::field;
    template <std::size_t I>
    static std::size_t offset() noexcept
    {
        return detail::offset_of<member<I>()>();
    }
    template <std::size_t I>
    static std::int32_t compare_member(const char* probe, const char* stored) noexcept
    {
        return detail::compare_fields<field<I>>(probe + offset<I>(), stored + offset<I>());
    }
};

}  // namespace kaldb
