// The three logs and the trace: every line is formatted once and handed to the sink.
#include "format.h"
#include "os.h"
#include "status.h"
#include "utf.h"

#include <cstdarg>
#include <iterator>
#include <memory>
#include <new>
#include <string>

namespace {

using kallib::CodePoint;
using kallib::guarded;
using kallib::Status;

struct Sink {
    KALLogSink function = nullptr;  // null: the default
    void* context = nullptr;
};
Sink current;

// Set while the caller's sink runs. What it logs itself goes to the default sink, which logs nothing.
thread_local bool insideSink = false;

bool isForOperators(uint32_t level) { return level <= KAL_LOG_WARNING; }

// The line as UTF-8 with a newline at its end, in `room` bytes or as much of it as fits. Halves of a surrogate pair
// become the replacement character: a line must not get lost for them.
std::size_t toLine(const char16_t* text, const char16_t* end, char* line, std::size_t room)
{
    std::size_t used = 0;
    while (text != end && room - used > 4) {
        const CodePoint point = kallib::decode(text, end);
        used += kallib::encode(point.length == 0 ? U'\xFFFD' : point.value, line + used);
        text += point.length == 0 ? 1 : point.length;
    }
    if (used == 0 || line[used - 1] != '\n')
        line[used++] = '\n';
    return used;
}

// Errors and warnings go to standard error, each in one piece, so that lines of several processes do not mingle.
void writeToStandardError(uint32_t level, const char16_t* text)
{
    if (!isForOperators(level))
        return;
    const std::size_t length = std::char_traits<char16_t>::length(text);
    char small[1024];
    std::size_t room = length * 3 + 5;
    std::unique_ptr<char[]> large;
    if (room > sizeof small)
        large.reset(new (std::nothrow) char[room]);
    if (large == nullptr && room > sizeof small)
        room = sizeof small;
    char* const line = large == nullptr ? small : large.get();
    kallib::os::writeStandardError(line, toLine(text, text + length, line, room));
}

void deliver(uint32_t level, const char16_t* text)
{
    if (current.function == nullptr || insideSink)
        return writeToStandardError(level, text);
    struct Inside {
        Inside() { insideSink = true; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;
        ~Inside() { insideSink = false; }
    } inside;
    current.function(level, text, current.context);
}

// Short lines need no memory; a long one for which there is none is cut rather than lost.
uint32_t writeLine(uint32_t level, const char16_t* format, std::va_list arguments)
{
    if (format == nullptr)
        return KAL_INVALID_ARGUMENT;
    if ((current.function == nullptr || insideSink) && !isForOperators(level))
        return KAL_SUCCESS;
    char16_t small[512];
    std::va_list again;
    va_copy(again, arguments);
    const std::size_t length = kallib::formatText(small, std::size(small), format, arguments);
    std::unique_ptr<char16_t[]> large;
    if (length >= std::size(small))
        large.reset(new (std::nothrow) char16_t[length + 1]);
    if (large != nullptr)
        kallib::formatText(large.get(), length + 1, format, again);
    va_end(again);
    return guarded([&] {
        deliver(level, large == nullptr ? small : large.get());
        return Status::success;
    });
}

}  // namespace

extern "C" void kalLogSetSink(KALLogSink sink, void* context) { current = {sink, context}; }

extern "C" uint32_t kalError(const char16_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const uint32_t status = writeLine(KAL_LOG_ERROR, format, arguments);
    va_end(arguments);
    return status;
}

extern "C" uint32_t kalWarning(const char16_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const uint32_t status = writeLine(KAL_LOG_WARNING, format, arguments);
    va_end(arguments);
    return status;
}

extern "C" uint32_t kalDebug(const char16_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const uint32_t status = writeLine(KAL_LOG_DEBUG, format, arguments);
    va_end(arguments);
    return status;
}

extern "C" uint32_t kalTrace(const char16_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const uint32_t status = writeLine(KAL_LOG_TRACE, format, arguments);
    va_end(arguments);
    return status;
}
