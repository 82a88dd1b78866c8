// File names of any length, in memory of their own.
#include "kalpagemanager/internal.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string_view>

using namespace kaldb;

Memory kaldb::joinNames(const char16_t* first, const char16_t* second)
{
    const std::u16string_view head{first};
    const std::u16string_view tail{second};
    const std::size_t bytes = (head.size() + tail.size() + 1) * sizeof(char16_t);
    if (bytes > std::numeric_limits<std::uint32_t>::max())
        return {};
    Memory joined = allocateMemory(static_cast<std::uint32_t>(bytes), sourceFile);
    if (joined) {
        char16_t* end = std::ranges::copy(head, reinterpret_cast<char16_t*>(joined.get())).out;
        *std::ranges::copy(tail, end).out = u'\0';
    }
    return joined;
}

// Where the directory is unknown, and for a name that is no text, the name as given must do.
Memory kaldb::absoluteName(const char16_t* path)
{
    try {
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(path, error);
        if (!error)
            return joinNames(absolute.u16string().c_str(), u"");
    } catch (...) {
    }
    return joinNames(path, u"");
}
