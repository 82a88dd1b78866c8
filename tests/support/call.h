// Calls of the C interface as rows of tables, and calls with wrong pointers for whole families of operations.
#pragma once

#include <kaldb/kaldb.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <type_traits>
#include <utility>

namespace test {

/// A result, and the line that expects it.
struct Expected {
    std::uint64_t result;
    int line;
    Expected(std::uint64_t expected, int at = __builtin_LINE()) : result(expected), line(at) {}
};

/// What must come of a call, the operation, its arguments: {KALDB_NOT_FOUND, kaldbTableQueryID, table, &id, &record,
/// 48}
class Call {
public:
    template <class Result, class... Parameters>
    Call(Expected expected, Result (*operation)(Parameters...), std::type_identity_t<Parameters>... arguments)
        : expected_(expected), operation_(reinterpret_cast<Operation>(operation)),
          invoke_(&invoke<Result, Parameters...>), arguments_{pack(arguments)...}
    {
    }

    void make() const
    {
        ++made;
        EXPECT_EQ(invoke_(operation_, arguments_), expected_.result) << "line " << expected_.line;
    }
    Call with(std::size_t argument, const void* pointer) const
    {
        Call changed = *this;
        changed.arguments_[argument] = pack(pointer);
        return changed;
    }

    static inline int made = 0;

private:
    using Operation = void (*)();
    using Arguments = std::array<std::uint64_t, 5>;

    template <class Type>
    static std::uint64_t pack(Type value)
    {
        if constexpr (std::is_pointer_v<Type>)
            return reinterpret_cast<std::uintptr_t>(value);
        else
            return value;
    }
    template <class Type>
    static Type unpack(std::uint64_t value)
    {
        if constexpr (std::is_pointer_v<Type>)
            return reinterpret_cast<Type>(static_cast<std::uintptr_t>(value));
        else
            return static_cast<Type>(value);
    }
    template <class Result, class... Parameters>
    static std::uint64_t invoke(Operation operation, const Arguments& arguments)
    {
        const auto call = [&]<std::size_t... at>(std::index_sequence<at...>)
        {
            return reinterpret_cast<Result (*)(Parameters...)>(operation)(unpack<Parameters>(arguments[at])...);
        };
        return call(std::index_sequence_for<Parameters...>{});
    }

    Expected expected_;
    Operation operation_;
    std::uint64_t (*invoke_)(Operation, const Arguments&);
    Arguments arguments_;
};

inline void make(std::initializer_list<Call> calls)
{
    for (const Call& call : calls)
        call.make();
}

/// A block that was never a handle of anything, and has room for any result.
alignas(std::max_align_t) inline std::array<char, 4096> anyBlock{};
template <class Object>
Object* neverOpened = reinterpret_cast<Object*>(anyBlock.data());

/// What a pointer of a type is when it is not wrong, and a handle of the type that was closed.
template <class Object>
Object* valid = neverOpened<Object>;
template <class Handle>
Handle* closed = nullptr;
inline std::uint64_t validNumber = 1;

template <class Parameter>
Parameter validArgument()
{
    if constexpr (std::is_pointer_v<Parameter>)
        return valid<std::remove_const_t<std::remove_pointer_t<Parameter>>>;
    else
        return static_cast<Parameter>(validNumber);
}

template <class Parameter>
void makeWithWrong(std::size_t at, const Call& call)
{
    using Object = std::remove_pointer_t<Parameter>;
    if (!std::is_pointer_v<Parameter> || std::is_same_v<Object, KALDBDatabase>)  // databases may be null everywhere
        return;
    call.with(at, nullptr).make();
    if (closed<Object> == nullptr)
        return;
    call.with(at, reinterpret_cast<const void*>(closed<Object>)).make();
    call.with(at, anyBlock.data()).make();
}

/// Calls each operation once for each of its pointers with null in the place of that one, for handles also with one
/// that is closed and one that never was. Parameter `mayBeNull`, counted from 0, is left out.
template <std::size_t mayBeNull = 99, class... Operations>
void wrongPointersGive(Expected expected, Operations... operations)
{
    int number = 0;
    const auto makeEach = [&]<class Result, class... Parameters>(Result (*operation)(Parameters...)) {
        SCOPED_TRACE("operation " + std::to_string(++number));
        const Call call{expected, operation, validArgument<Parameters>()...};
        std::size_t at = 0;
        ((at == mayBeNull ? void() : makeWithWrong<Parameters>(at, call), ++at), ...);
    };
    (makeEach(operations), ...);
}

}  // namespace test
