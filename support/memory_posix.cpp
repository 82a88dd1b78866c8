// Memory pages, for systems that have large ones on request.

#include "os.h"

#include <sys/mman.h>

namespace kallib::os {

void adviseLargePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) noexcept
{
#if defined(MADV_HUGEPAGE)
    constexpr std::uintptr_t largePage = 2u << 20;
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(block) + largePage - 1) / largePage * largePage;
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(block) + size) / largePage * largePage;
    if (begin < end)
        static_cast<void>(madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE));
#endif
}

}  // namespace kallib::os
