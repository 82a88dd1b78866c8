// The one formatter behind the logs and the trace.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace kallib {

/// Formats into `room` units at `line` (at least one), NUL included: what does not fit is left out at the end.
/// Returns the length of the whole text without its NUL, so that a caller can come back with more room.
///
///     %s                a char16_t text; null shows as (null)
///     %d  %ld           int32_t
///     %u  %lu           uint32_t
///     %0NX              uint32_t in upper-case hexadecimal, at least N digits, N from 1 to 9
///
/// A percent sign before anything else stands for itself and takes no argument; there is no escape, none is needed:
/// "100%" and "%%" come out as they are.
std::size_t formatText(char16_t* line, std::size_t room, const char16_t* format, std::va_list arguments);

}  // namespace kallib
