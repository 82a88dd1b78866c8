// Owners of the support library's memory and handles.
#pragma once

#include <kallib/kallib.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace kaldb {

struct MemoryDeleter {
    void operator()(void* block) const { kalMemFree(block); }
};

/// A block of raw memory from the support library; empty when there was none to be had.
using Memory = std::unique_ptr<std::byte[], MemoryDeleter>;

/// Contents are not initialised. `file` is the module's path without extension, such as "./src/kalbtree".
inline Memory allocateMemory(std::uint32_t size, const char* file, std::uint32_t line = __builtin_LINE())
{
    return Memory{static_cast<std::byte*>(kalMemAllocate(size, file, line))};
}

/// Lets a standard container take its memory from the support library.
template <class Value>
struct SupportAllocator {
    using value_type = Value;

    SupportAllocator() = default;
    template <class Other>
    SupportAllocator(const SupportAllocator<Other>&)
    {
    }
    Value* allocate(std::size_t count)
    {
        void* block = nullptr;
        if (count <= std::numeric_limits<std::uint32_t>::max() / sizeof(Value))
            block = kalMemAllocate(static_cast<std::uint32_t>(count * sizeof(Value)), "./src/common", __LINE__);
        if (block == nullptr)
            throw std::bad_alloc{};
        return static_cast<Value*>(block);
    }
    void deallocate(Value* block, std::size_t) { kalMemFree(block); }
    bool operator==(const SupportAllocator&) const = default;
};

/// Throws `std::bad_alloc` when there is no memory.
template <class Value>
using Vector = std::vector<Value, SupportAllocator<Value>>;

struct HandleDeleter {
    template <class Object>
    void operator()(Object* object) const
    {
        object->~Object();
        kalHandleFree(object);
    }
};

/// An object of ours that lives in a handle block. `release()` hands it to the caller as an opaque handle.
template <class Object>
using Handle = std::unique_ptr<Object, HandleDeleter>;

/// Empty when there was no memory. The object is value-initialised.
template <class Object>
Handle<Object> makeHandle(const char* file, std::uint32_t line = __builtin_LINE())
{
    static_assert(std::is_nothrow_default_constructible_v<Object>);
    static_assert(alignof(Object) <= alignof(std::max_align_t));
    void* block = kalHandleAllocate(static_cast<std::uint32_t>(sizeof(Object)), file, line);
    return Handle<Object>{block == nullptr ? nullptr : new (block) Object{}};
}

}  // namespace kaldb
