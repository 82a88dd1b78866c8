// Bytes that will be needed soon, asked for before the ones that lead to them are here.
#pragma once

#include <cstddef>

namespace kaldb {

inline constexpr std::size_t cacheLine = 64;

inline void prefetch([[maybe_unused]] const std::byte* bytes, [[maybe_unused]] std::size_t size)
{
#if defined(__GNUC__)
    for (std::size_t at = 0; at < size; at += cacheLine)
        __builtin_prefetch(bytes + at);
#endif
}

}  // namespace kaldb
