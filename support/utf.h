// UTF-8 and UTF-16, one code point at a time, strictly: no overlong form, no surrogate in UTF-8, none alone in UTF-16,
// nothing above U+10FFFF. No function reads past the end that it is given.
#pragma once

#include <cstdint>
#include <string>

namespace kallib {

/// A code point and the units that it took; `length` 0: ill-formed, or cut off by the end.
struct CodePoint {
    char32_t value = 0;
    unsigned length = 0;
};

/// `at` lies before `end`.
CodePoint decode(const char* at, const char* end);
CodePoint decode(const char16_t* at, const char16_t* end);

/// Writes a code point that `decode` accepts into room for four units, and returns how many it took.
unsigned encode(char32_t point, char* units);
unsigned encode(char32_t point, char16_t* units);

/// The text in UTF-8; false when it is ill-formed.
bool toUtf8(const char16_t* text, std::string& utf8);

}  // namespace kallib
