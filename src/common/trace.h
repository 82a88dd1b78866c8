// Traces and log lines. Every text of an operation starts with its module and name and, for a failed call, ends with
// the status tail " [0x%02X - %s]"; both are added here, so that they exist once.
//
// A build without KALDB_TRACE evaluates no argument of a trace, but still checks every text against them.
#pragma once

#include "common/status.h"

#include <kallib/kallib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace kaldb {

#if defined(KALDB_TRACE)
inline constexpr bool tracing = true;
#else
inline constexpr bool tracing = false;
#endif

/// A handle as the 32 bits that the texts show.
inline std::uint32_t traceAddress(const void* address)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

namespace detail {

enum class Conversion : unsigned char { number, text };

template <class Argument>
consteval Conversion conversionOf()
{
    using Plain = std::remove_cvref_t<Argument>;
    if constexpr (std::is_convertible_v<Plain, const char16_t*> || std::is_convertible_v<Plain, const char*>)
        return Conversion::text;
    else {
        static_assert(std::is_integral_v<Plain> && sizeof(Plain) <= 4, "texts show 32-bit integers and strings");
        return Conversion::number;
    }
}

/// One conversion of a text as the formatter understands it; `end` is null for anything else.
struct ParsedConversion {
    const char16_t* end = nullptr;
    Conversion kind = Conversion::number;
};

constexpr ParsedConversion parseConversion(const char16_t* at)
{
    if (at[0] == u's')
        return {at + 1, Conversion::text};
    if (at[0] == u'0' && at[1] >= u'1' && at[1] <= u'9' && at[2] == u'X')
        return {at + 3, Conversion::number};
    if (at[0] == u'l')
        ++at;
    if (at[0] == u'd' || at[0] == u'u')
        return {at + 1, Conversion::number};
    return {};
}

/// What cannot be thrown at compile time: reached only by a text that does not fit its arguments.
inline void textDoesNotFitItsArguments() {}

/// Runs at compile time only, by whom it is called; as `consteval` it would be missed by clang 14, which emits calls.
template <class... Arguments>
constexpr void checkText(const char16_t* text)
{
    constexpr std::size_t count = sizeof...(Arguments);
    constexpr std::array<Conversion, count + 1> expected{conversionOf<Arguments>()..., Conversion::number};
    std::size_t used = 0;
    while (*text != u'\0') {
        if (*text++ != u'%')
            continue;
        const ParsedConversion conversion = parseConversion(text);
        if (conversion.end == nullptr)
            continue;
        if (used == count || expected[used] != conversion.kind)
            textDoesNotFitItsArguments();
        ++used;
        text = conversion.end;
    }
    if (used != count)
        textDoesNotFitItsArguments();
}

/// A narrow text widened for "%s"; the texts are ASCII.
struct Widened {
    std::array<char16_t, 128> text{};
    explicit Widened(const char* narrow)
    {
        for (std::size_t i = 0; narrow[i] != '\0' && i + 1 < text.size(); ++i)
            text[i] = static_cast<unsigned char>(narrow[i]);
    }
};

inline Widened hold(const char* narrow) { return Widened{narrow}; }
inline const char16_t* hold(const char16_t* wide) { return wide; }
template <class Number>
requires std::is_integral_v<Number> std::uint32_t hold(Number number) { return static_cast<std::uint32_t>(number); }

inline const char16_t* pass(const Widened& widened) { return widened.text.data(); }
inline const char16_t* pass(const char16_t* wide) { return wide; }
inline std::uint32_t pass(std::uint32_t number) { return number; }

using LogFunction = std::uint32_t (*)(const char16_t* format, ...);

/// Prefix, "operation() ", text and tail in one format.
class LogFormat {
public:
    void add(const char16_t* part)
    {
        const std::size_t length = std::char_traits<char16_t>::length(part);
        const std::size_t fits = std::min(length, text_.size() - 1 - used_);
        std::memcpy(text_.data() + used_, part, fits * sizeof *part);
        used_ += fits;
        text_[used_] = u'\0';
    }
    const char16_t* text() const { return text_.data(); }

private:
    std::array<char16_t, 512> text_;  // ended by `add`
    std::size_t used_ = 0;
};

}  // namespace detail

/// A text checked at compile time against the arguments that it is given.
template <class... Arguments>
struct TraceText {
    constexpr TraceText() = default;
    consteval TraceText(const char16_t* checked) : text(checked) { detail::checkText<Arguments...>(checked); }
    const char16_t* text = nullptr;
};

/// What a trace of a failure yields: the status, to be returned or to be left alone.
struct TracedStatus {
    Status status;
    constexpr operator Status() const { return status; }
};

/// Where texts come from: the module's prefix with its colon and blank, and the operation that they name.
/// Without an operation a text goes out whole: nothing is put before it, no tail and no newline behind it.
struct TraceSource {
    const char16_t* prefix = nullptr;
    const char16_t* operation = nullptr;

    template <class... Arguments>
    void note(TraceText<std::type_identity_t<Arguments>...> text, const Arguments&... arguments) const
    {
        write(kalTrace, text.text, nullptr, detail::hold(arguments)...);
    }
    template <class... Arguments>
    TracedStatus note(Status status, TraceText<std::type_identity_t<Arguments>...> text,
                      const Arguments&... arguments) const
    {
        return fail(kalTrace, status, text.text, arguments...);
    }

    // The real logs of the support library.
    template <class... Arguments>
    void error(TraceText<std::type_identity_t<Arguments>...> text, const Arguments&... arguments) const
    {
        write(kalError, text.text, nullptr, detail::hold(arguments)...);
    }
    template <class... Arguments>
    TracedStatus error(Status status, TraceText<std::type_identity_t<Arguments>...> text,
                       const Arguments&... arguments) const
    {
        return fail(kalError, status, text.text, arguments...);
    }
    template <class... Arguments>
    void warning(TraceText<std::type_identity_t<Arguments>...> text, const Arguments&... arguments) const
    {
        write(kalWarning, text.text, nullptr, detail::hold(arguments)...);
    }
    template <class... Arguments>
    void debug(TraceText<std::type_identity_t<Arguments>...> text, const Arguments&... arguments) const
    {
        write(kalDebug, text.text, nullptr, detail::hold(arguments)...);
    }

private:
    template <class... Arguments>
    TracedStatus fail(detail::LogFunction log, Status status, const char16_t* text, const Arguments&... arguments) const
    {
        if (operation == nullptr)
            write(log, text, nullptr, detail::hold(arguments)...);
        else
            write(log, text, u" [0x%02X - %s]", detail::hold(arguments)..., code(status),
                  kalErrorGetString(code(status)));
        return {status};
    }

    template <class... Held>
    void write(detail::LogFunction log, const char16_t* text, const char16_t* tail, const Held&... held) const
    {
        detail::LogFormat format;
        if (prefix != nullptr)
            format.add(prefix);
        if (operation != nullptr) {
            format.add(operation);
            format.add(u"() ");
        }
        format.add(text);
        if (tail != nullptr)
            format.add(tail);
        if (operation != nullptr)
            format.add(u"\n");
        log(format.text(), detail::pass(held)...);
    }
};

/// For texts off the pattern.
inline constexpr TraceSource verbatim{};

/// What a trace comes to in a build without traces: the status when there is one, else nothing.
constexpr TracedStatus untraced(Status status) { return {status}; }
constexpr void untraced(const char16_t*) {}

}  // namespace kaldb

// KAL_TRACE(source, u"text", arguments...) notes a step; KAL_TRACE(source, status, u"text", arguments...) notes a
// failed call and yields its status. The first operand of the conditional is all that a build without traces evaluates.
#define KAL_TRACE_FIRST(first, ...) first
#define KAL_TRACE(source, ...)                                                                                         \
    (!::kaldb::tracing ? ::kaldb::untraced(KAL_TRACE_FIRST(__VA_ARGS__, )) : (source).note(__VA_ARGS__))
