// Memory and handle blocks: the process's heap, nothing kept inside or beside a block.
#include <kallib/kallib.h>

#include <cstdlib>

namespace {

// A block of size 0 is a block too: null means "no memory" and nothing else.
void* allocate(uint32_t size) { return std::malloc(size == 0 ? 1 : size); }

}  // namespace

extern "C" void* kalMemAllocate(uint32_t size, const char*, uint32_t) { return allocate(size); }

extern "C" void kalMemFree(void* block) { std::free(block); }

extern "C" void* kalHandleAllocate(uint32_t size, const char*, uint32_t) { return allocate(size); }

extern "C" void kalHandleFree(void* handle) { std::free(handle); }
