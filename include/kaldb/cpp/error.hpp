// Failures: every status of the library as a std::error_code, and the exception that carries one.
//
// Every operation comes twice, as in std::filesystem: one form throws kaldb::error, its twin takes a std::error_code&
// and sets or clears it. Running out of memory throws std::bad_alloc in both.
#pragma once

#include <kaldb/status.h>

#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace kaldb {

/// The library's statuses. Two names share the value 17: what exists already depends on what was asked for.
enum class errc : std::uint32_t {
    failure = KALDB_FAILURE,
    backup_failed = KALDB_BACKUP_FAILED,
    not_open = KALDB_NOT_OPEN,
    invalid_argument = KALDB_INVALID_ARGUMENT,
    access_denied = KALDB_ACCESS_DENIED,
    not_applicable = KALDB_NOT_APPLICABLE,
    out_of_memory = KALDB_OUT_OF_MEMORY,
    short_read = KALDB_SHORT_READ,
    io_error = KALDB_IO_ERROR,
    no_space = KALDB_NO_SPACE,
    empty_page = KALDB_EMPTY_PAGE,
    full = KALDB_FULL,
    file_not_found = KALDB_FILE_NOT_FOUND,
    end_of_enumeration = KALDB_END_OF_ENUMERATION,
    end_of_file = KALDB_END_OF_FILE,
    not_found = KALDB_NOT_FOUND,
    already_exists = KALDB_ALREADY_EXISTS,
    already_open = KALDB_ALREADY_EXISTS,
    lock_conflict = KALDB_LOCK_CONFLICT,
    buffer_too_small = KALDB_BUFFER_TOO_SMALL,
    not_supported = KALDB_NOT_SUPPORTED,
    file_in_use = KALDB_FILE_IN_USE,
    name_too_long = KALDB_NAME_TOO_LONG,
    not_a_file = KALDB_NOT_A_FILE,
    conversion_failed = KALDB_CONVERSION_FAILED,
    too_many_files = KALDB_TOO_MANY_FILES,
    damaged = KALDB_DAMAGED,
    no_free_slot = KALDB_NO_FREE_SLOT
};

namespace detail {

constexpr std::string_view status_name(std::uint32_t status)
{
    constexpr std::string_view names[] = {
        "KALDB_SUCCESS",
        "KALDB_FAILURE",
        "KALDB_BACKUP_FAILED",
        "KALDB_NOT_OPEN",
        "KALDB_INVALID_ARGUMENT",
        "KALDB_ACCESS_DENIED",
        "KALDB_NOT_APPLICABLE",
        "KALDB_OUT_OF_MEMORY",
        "KALDB_SHORT_READ",
        "KALDB_IO_ERROR",
        "KALDB_NO_SPACE",
        "KALDB_EMPTY_PAGE",
        "KALDB_FULL",
        "KALDB_FILE_NOT_FOUND",
        "KALDB_END_OF_ENUMERATION",
        "KALDB_END_OF_FILE",
        "KALDB_NOT_FOUND",
        "KALDB_ALREADY_EXISTS",
        "KALDB_LOCK_CONFLICT",
        "KALDB_BUFFER_TOO_SMALL",
        "KALDB_NOT_SUPPORTED",
        "KALDB_FILE_IN_USE",
        "KALDB_NAME_TOO_LONG",
        "KALDB_NOT_A_FILE",
        "KALDB_CONVERSION_FAILED",
        "KALDB_TOO_MANY_FILES",
        "KALDB_DAMAGED",
        "KALDB_NO_FREE_SLOT",
    };
    return status < std::size(names) ? names[status] : std::string_view{};
}

/// The library's text for a status; all of them are ASCII.
inline std::string status_text(std::uint32_t status)
{
    std::string text;
    for (const char16_t* unit = kalErrorGetString(status); *unit != u'\0'; ++unit)
        text.push_back(static_cast<char>(*unit));
    return text;
}

/// " (17, KALDB_ALREADY_EXISTS)".
inline std::string status_tail(std::uint32_t status)
{
    std::string tail = " (";
    tail += std::to_string(status);
    if (const std::string_view name = status_name(status); !name.empty())
        tail.append(", ").append(name);
    return tail + ")";
}

class status_category final : public std::error_category {
public:
    const char* name() const noexcept override { return "kaldb"; }
    std::string message(int value) const override
    {
        const auto status = static_cast<std::uint32_t>(value);
        return status_text(status) + status_tail(status);
    }
    /// Statuses that mean what a generic condition means compare equal to it: `code == std::errc::no_space_on_device`.
    std::error_condition default_error_condition(int value) const noexcept override
    {
        switch (value) {
        case KALDB_INVALID_ARGUMENT: return std::errc::invalid_argument;
        case KALDB_ACCESS_DENIED: return std::errc::permission_denied;
        case KALDB_OUT_OF_MEMORY: return std::errc::not_enough_memory;
        case KALDB_IO_ERROR: return std::errc::io_error;
        case KALDB_NO_SPACE: return std::errc::no_space_on_device;
        case KALDB_FILE_NOT_FOUND: return std::errc::no_such_file_or_directory;
        case KALDB_NOT_SUPPORTED: return std::errc::not_supported;
        case KALDB_FILE_IN_USE: return std::errc::device_or_resource_busy;
        case KALDB_NAME_TOO_LONG: return std::errc::filename_too_long;
        case KALDB_CONVERSION_FAILED: return std::errc::illegal_byte_sequence;
        case KALDB_TOO_MANY_FILES: return std::errc::too_many_files_open;
        default: return {value, *this};
        }
    }
};

}  // namespace detail

/// The category of all of the library's statuses: an error code's value is the status.
inline const std::error_category& category() noexcept
{
    static const detail::status_category instance;
    return instance;
}

inline std::error_code make_error_code(errc status) noexcept { return {static_cast<int>(status), category()}; }

/// What an operation of this header throws: "update in Packages: lock conflict (18, KALDB_LOCK_CONFLICT)".
class error : public std::system_error {
public:
    /// `phrase` takes the place of the status's own text where a closer one is known.
    error(std::uint32_t status, std::string_view operation, std::string_view phrase = {})
        : std::system_error(static_cast<int>(status), category()), text_(compose(status, operation, phrase))
    {
    }

    const char* what() const noexcept override { return text_.what(); }
    std::uint32_t status() const noexcept { return static_cast<std::uint32_t>(code().value()); }

private:
    static std::string compose(std::uint32_t status, std::string_view operation, std::string_view phrase)
    {
        std::string text{operation};
        text.append(": ").append(phrase.empty() ? detail::status_text(status) : phrase);
        return text + detail::status_tail(status);
    }

    std::runtime_error text_;  // copies without throwing
};

namespace detail {

inline void report(std::uint32_t status, std::error_code& error) noexcept
{
    error = status == KALDB_SUCCESS ? std::error_code{} : std::error_code{static_cast<int>(status), category()};
}

[[noreturn]] inline void raise(std::uint32_t status, std::string_view operation, std::string_view object = {},
                               std::string_view phrase = {})
{
    std::string subject{operation};
    if (!object.empty())
        subject.append(" ").append(object);
    throw error(status, subject, phrase);
}

inline void check(std::uint32_t status, std::string_view operation, std::string_view object = {},
                  std::string_view phrase = {})
{
    if (status != KALDB_SUCCESS) [[unlikely]]
        raise(status, operation, object, phrase);
}

/// Success is true and `no` is an answer, false; anything else is a failure.
inline bool answer(std::uint32_t status, std::uint32_t no, std::string_view operation, std::string_view object)
{
    if (status != KALDB_SUCCESS && status != no) [[unlikely]]
        raise(status, operation, object);
    return status == KALDB_SUCCESS;
}
inline bool answer(std::uint32_t status, std::uint32_t no, std::error_code& error) noexcept
{
    report(status == no ? std::uint32_t{KALDB_SUCCESS} : status, error);
    return status == KALDB_SUCCESS;
}

}  // namespace detail

}  // namespace kaldb

template <>
struct std::is_error_code_enum<kaldb::errc> : std::true_type {
};
