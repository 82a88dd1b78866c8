// Where the library's log lines go.
#pragma once

#include <kallib/kallib.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kaldb {

enum class log_level : std::uint32_t {
    error = KAL_LOG_ERROR,
    warning = KAL_LOG_WARNING,
    debug = KAL_LOG_DEBUG,
    trace = KAL_LOG_TRACE
};

/// Takes a line: its level and its UTF-8 text without a newline at the end, valid during the call.
using log_receiver = std::function<void(log_level, std::string_view)>;

namespace detail {

/// Never fails: half a surrogate pair becomes the replacement character.
inline std::string to_utf8(std::u16string_view wide)
{
    std::string text;
    text.reserve(wide.size());
    const auto put = [&text](std::uint32_t value) { text.push_back(static_cast<char>(value)); };
    for (std::size_t i = 0; i < wide.size(); ++i) {
        std::uint32_t point = wide[i];
        const bool high = point >= 0xD800 && point < 0xDC00;
        if (high && i + 1 < wide.size() && wide[i + 1] >= 0xDC00 && wide[i + 1] < 0xE000)
            point = 0x10000 + ((point - 0xD800) << 10) + (std::uint32_t{wide[++i]} - 0xDC00);
        else if (point >= 0xD800 && point < 0xE000)
            point = 0xFFFD;
        if (point < 0x80) {
            put(point);
            continue;
        }
        const unsigned more = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;  // bytes that follow the first
        put((0xF00U >> more & 0xFFU) | point >> 6 * more);
        for (unsigned byte = more; byte-- > 0;)
            put(0x80U | (point >> 6 * byte & 0x3FU));
    }
    return text;
}

struct log_state {
    std::shared_ptr<const log_receiver> receiver;  // null: the library's default
    bool creating = false;                         // a file is being made that was not there before
};

/// Never destroyed: a database that is static may be closed, and log, after everything else.
inline log_state& logging()
{
    static log_state& state = *new log_state;
    return state;
}

/// Every open looks for a backup to restore when the file is missing, and says so. For a file that is only being made
/// this is no news.
inline bool speaks_of_missing_file(std::u16string_view line)
{
    return line.find(u"dbchainValidateFile() detected corrupt database") != std::u16string_view::npos ||
           line.find(u"dbchainValidateFile() could not restore backup database") != std::u16string_view::npos;
}

inline void take_line(std::uint32_t level, const char16_t* text, void*)
{
    const std::u16string_view line{text};
    if (logging().creating && speaks_of_missing_file(line))
        return;
    // Kept for the length of the call: the receiver may set another one.
    if (const std::shared_ptr<const log_receiver> receiver = logging().receiver) {
        const std::size_t end = line.find_last_not_of(u'\n');
        (*receiver)(static_cast<log_level>(level), to_utf8(line.substr(0, end + 1)));
    } else if (level == KAL_LOG_ERROR) {
        kalError(u"%s", text);  // from inside a sink it goes to the default one
    } else if (level == KAL_LOG_WARNING) {
        kalWarning(u"%s", text);
    }
}

/// While it lives, the two lines are held back.
class quiet_creation {
public:
    explicit quiet_creation(bool quiet) : quiet_(quiet)
    {
        if (!quiet_)
            return;
        logging().creating = true;
        kalLogSetSink(take_line, nullptr);
    }
    ~quiet_creation()
    {
        if (!quiet_)
            return;
        logging().creating = false;
        if (!logging().receiver)
            kalLogSetSink(nullptr, nullptr);
    }
    quiet_creation(const quiet_creation&) = delete;
    quiet_creation& operator=(const quiet_creation&) = delete;

private:
    bool quiet_;
};

}  // namespace detail

/// Sends every log line to `receiver`, which is kept; an empty one brings the default back: errors and warnings to
/// standard error. What the receiver logs itself goes to the default; an exception that it throws is dropped with its
/// line.
///
/// A program that uses this header sets its sink here and not with kalLogSetSink: creating a database through
/// kaldb::database borrows the sink and puts back what was set here.
///
///     kaldb::log_to([](kaldb::log_level level, std::string_view line) { std::clog << line << '\n'; });
inline void log_to(log_receiver receiver)
{
    if (receiver) {
        detail::logging().receiver = std::make_shared<const log_receiver>(std::move(receiver));
        kalLogSetSink(detail::take_line, nullptr);
    } else {
        detail::logging().receiver.reset();
        kalLogSetSink(nullptr, nullptr);
    }
}

}  // namespace kaldb
