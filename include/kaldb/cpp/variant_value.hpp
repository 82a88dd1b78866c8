// Values of a type that is known at run time only, inside records of a fixed size.
#pragma once

#include <kaldb/cpp/error.hpp>
#include <kaldb/cpp/id.hpp>
#include <kaldb/cpp/stored_text.hpp>
#include <kaldb/cpp/text.hpp>
#include <kaldb/variant.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace kaldb {

namespace detail {

inline constexpr std::uint32_t variant_bytes = 21;  // the type code of bytes that can be stored out of line

/// A C variant, which owns the memory that the library gives it.
class live_variant {
public:
    live_variant() { kaldbVariantInitialize(sizeof variant_.inlineData, &variant_); }
    explicit live_variant(const KALDBVariant& stored) : variant_(stored) {}
    ~live_variant() { kaldbVariantEmpty(&variant_); }
    live_variant(const live_variant&) = delete;
    live_variant& operator=(const live_variant&) = delete;

    KALDBVariant* get() { return &variant_; }

private:
    KALDBVariant variant_;
};

}  // namespace detail

/// A member of a record, 64 bytes: nothing, an identifier, a text, bytes, or a value of a fixed size with a type code
/// of KALDBVariant. Plain data as stored_text: texts and bytes of 8 bytes and more are in the database as soon as a
/// store function returns, and an earlier one stays there until it is erased. `store` takes what `load` functions give
/// back.
///
/// Loading what the value does not hold is errc::invalid_argument; a damaged value is errc::failure.
class variant_value {
public:
    void store(std::string_view text) { detail::check(putText(text), "store variant"); }
    void store(std::string_view text, std::error_code& error) { detail::report(putText(text), error); }
    /// No bytes make a null value.
    void store(std::span<const std::byte> bytes) { detail::check(putBytes(bytes), "store variant"); }
    void store(std::span<const std::byte> bytes, std::error_code& error) { detail::report(putBytes(bytes), error); }
    void store(const id& identifier) { putFixed(KALDB_VT_ID, &identifier); }
    /// `type` is one of the codes 2 to 14, whose size must be T's.
    template <class T>
    requires std::is_trivially_copyable_v<T>
    void store(std::uint32_t type, const T& value)
    {
        detail::check(putFixed(type, &value, sizeof value), "store variant");
    }
    template <class T>
    requires std::is_trivially_copyable_v<T>
    void store(std::uint32_t type, const T& value, std::error_code& error)
    {
        detail::report(putFixed(type, &value, sizeof value), error);
    }

    std::string load_text() const
    {
        std::string text;
        detail::check(getText(text), "load variant");
        return text;
    }
    std::string load_text(std::error_code& error) const
    {
        std::string text;
        detail::report(getText(text), error);
        return text;
    }
    /// The bytes of any value but nothing, as they are kept.
    std::vector<std::byte> load_bytes() const
    {
        std::vector<std::byte> bytes;
        detail::check(getBytes(bytes), "load variant");
        return bytes;
    }
    std::vector<std::byte> load_bytes(std::error_code& error) const
    {
        std::vector<std::byte> bytes;
        detail::report(getBytes(bytes), error);
        return bytes;
    }
    /// A value of a fixed size, an identifier included.
    template <class T>
    requires std::is_trivially_copyable_v<T> T load()
    const
    {
        T value{};
        detail::check(getFixed(&value, sizeof value), "load variant");
        return value;
    }
    template <class T>
    requires std::is_trivially_copyable_v<T> T load(std::error_code& error)
    const
    {
        T value{};
        detail::report(getFixed(&value, sizeof value), error);
        return value;
    }

    /// Deletes the stored part, if there is one, and makes it nothing.
    void erase() { detail::check(remove(), "erase variant"); }
    void erase(std::error_code& error) { detail::report(remove(), error); }

    std::uint32_t type() const noexcept { return variant_.type; }
    bool is_null() const noexcept { return variant_.isNull != 0; }
    /// Bytes of the value; a text counts its terminator.
    std::uint32_t size() const noexcept { return variant_.size; }

private:
    static bool fixedType(std::uint32_t type) { return type >= KALDB_VT_ID && type <= 14; }
    bool fixed() const { return fixedType(variant_.type); }
    bool text() const { return variant_.type >= KALDB_VT_STRING && variant_.type <= KALDB_VT_WSTRING_RAW; }
    bool sound() const { return variant_.inlineSize == sizeof variant_.inlineData; }
    bool isLong() const { return !fixed() && variant_.size >= variant_.inlineSize; }

    /// Brings what was set into the database if it is long, and keeps what then means something in every process.
    std::uint32_t keep(detail::live_variant& live)
    {
        const std::uint32_t status = kaldbVariantInsertRecord(live.get());
        if (status != KALDB_SUCCESS && status != KALDB_NOT_APPLICABLE)
            return status;
        std::memcpy(&variant_, live.get(), sizeof variant_);
        std::memset(variant_.value, 0, sizeof variant_.value);
        if (isLong())
            std::memset(variant_.inlineData, 0, sizeof variant_.inlineData);
        return KALDB_SUCCESS;
    }

    std::uint32_t putText(std::string_view text)
    {
        std::u16string wide;
        if (const std::uint32_t status = detail::to_utf16(text, wide); status != KALDB_SUCCESS)
            return status;
        detail::live_variant live;
        const std::uint32_t status = kaldbVariantSetString(live.get(), KALDB_VT_WSTRING, wide.c_str());
        return status == KALDB_SUCCESS ? keep(live) : status;
    }

    std::uint32_t putBytes(std::span<const std::byte> bytes)
    {
        if (bytes.size() > UINT32_MAX)
            return KALDB_INVALID_ARGUMENT;
        detail::live_variant live;
        const auto size = static_cast<std::uint32_t>(bytes.size());
        const std::uint32_t status = kaldbVariantSetBinary(live.get(), detail::variant_bytes, bytes.data(), size);
        return status == KALDB_SUCCESS ? keep(live) : status;
    }

    std::uint32_t putFixed(std::uint32_t type, const void* value, std::size_t size = sizeof(id))
    {
        detail::live_variant live;
        const std::uint32_t status =
            fixedType(type) ? kaldbVariantSetPrimitive(live.get(), type, value) : std::uint32_t{KALDB_INVALID_ARGUMENT};
        if (status != KALDB_SUCCESS)
            return status;
        if (live.get()->size != size)
            return KALDB_INVALID_ARGUMENT;
        std::memcpy(&variant_, live.get(), sizeof variant_);
        return KALDB_SUCCESS;
    }

    std::uint32_t getFixed(void* value, std::size_t size) const
    {
        if (!fixed() || is_null() || variant_.size != size)
            return KALDB_INVALID_ARGUMENT;
        std::memcpy(value, variant_.value, size);
        return KALDB_SUCCESS;
    }

    /// Calls `take` with the value's bytes.
    template <class Take>
    std::uint32_t get(Take&& take) const
    {
        if (is_null())
            return KALDB_INVALID_ARGUMENT;
        if (!sound() || (fixed() && variant_.size > sizeof variant_.value))
            return KALDB_FAILURE;
        detail::live_variant live{variant_};
        if (isLong())
            if (const std::uint32_t status = kaldbVariantGetRecord(live.get()); status != KALDB_SUCCESS)
                return status;
        const void* data = nullptr;
        if (const std::uint32_t status = kaldbVariantGetDataPointer(live.get(), &data); status != KALDB_SUCCESS)
            return status;
        if (data == nullptr)
            return KALDB_FAILURE;
        return take(std::span{static_cast<const std::byte*>(data), variant_.size});
    }

    std::uint32_t getBytes(std::vector<std::byte>& bytes) const
    {
        return get([&](std::span<const std::byte> value) {
            bytes.assign(value.begin(), value.end());
            return std::uint32_t{KALDB_SUCCESS};
        });
    }

    std::uint32_t getText(std::string& text) const
    {
        if (!this->text())
            return KALDB_INVALID_ARGUMENT;
        return get([&](std::span<const std::byte> value) {
            if (variant_.type != KALDB_VT_WSTRING_RAW) {
                text.assign(reinterpret_cast<const char*>(value.data()), value.size());
            } else {
                std::u16string wide(value.size() / sizeof(char16_t), u'\0');
                std::memcpy(wide.data(), value.data(), wide.size() * sizeof(char16_t));
                text = detail::to_utf8(wide);
            }
            if (text.empty() || text.back() != '\0')
                return std::uint32_t{KALDB_FAILURE};
            text.pop_back();
            return std::uint32_t{KALDB_SUCCESS};
        });
    }

    std::uint32_t remove()
    {
        if (!sound())
            return KALDB_FAILURE;
        if (isLong()) {
            detail::live_variant live{variant_};
            if (const std::uint32_t status = kaldbVariantDeleteRecord(live.get()); status != KALDB_SUCCESS)
                return status;
        }
        *this = {};
        return KALDB_SUCCESS;
    }

    KALDBVariant variant_{KALDB_VT_EMPTY, 1, sizeof(KALDBVariant::inlineData), 0, detail::nowhere, {}, {}};
};
static_assert(sizeof(variant_value) == 64 && std::is_trivially_copyable_v<variant_value>);

}  // namespace kaldb
