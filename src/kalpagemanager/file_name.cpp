// File names of any length, in memory of their own.
#include "kalpagemanager/internal.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string_view>

using namespace kaldb;

Memory kaldb::copyName(const char16_t* name)
{
    const std::u16string_view text{name};
    const std::size_t bytes = (text.size() + 1) * sizeof(char16_t);
    if (bytes > std::numeric_limits<std::uint32_t>::max())
        return {};
    Memory copy = allocateMemory(static_cast<std::uint32_t>(bytes), sourceFile);
    if (copy)
        *std::ranges::copy(text, reinterpret_cast<char16_t*>(copy.get())).out = u'\0';
    return copy;
}

// Where the directory is unknown, and for a name that is no text, the name as given must do.
Memory kaldb::absoluteName(const char16_t* path)
{
    try {
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(path, error);
        if (!error)
            return copyName(absolute.u16string().c_str());
    } catch (...) {
    }
    return copyName(path);
}
