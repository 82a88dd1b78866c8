// Simple case folding: one code point to one, the same in every locale.
#pragma once

namespace kallib {

/// The folded form; a code point without one, and anything above U+10FFFF, stays as it is.
char32_t foldCase(char32_t point);

}  // namespace kallib
