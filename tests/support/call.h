// Calls of the C interface as rows of tables, and calls with wrong pointers for whole families of operations.
#pragma once

#include <kaldb/kaldb.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <type_traits>

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
        : expected_(expected), call_([=] { return static_cast<std::uint64_t>(operation(arguments...)); })
    {
    }
    void make() const
    {
        ++made;
        EXPECT_EQ(call_(), expected_.result) << "line " << expected_.line;
    }
    static inline int made = 0;

private:
    Expected expected_;
    std::function<std::uint64_t()> call_;
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

enum class Wrong { null, closed, never, nothing };

template <class Type>
Type argument(Wrong wrong)
{
    if constexpr (std::is_pointer_v<Type>) {
        using Object = std::remove_const_t<std::remove_pointer_t<Type>>;
        const std::array<Type, 4> pointers{nullptr, closed<Object>, neverOpened<Object>, valid<Object>};
        return pointers[static_cast<std::size_t>(wrong)];
    } else {
        return static_cast<Type>(validNumber);
    }
}
template <class Type>
bool mayBe(Wrong wrong)  // databases may be null everywhere
{
    if constexpr (std::is_pointer_v<Type> && !std::is_same_v<Type, KALDBDatabase*>)
        return wrong == Wrong::null || closed<std::remove_const_t<std::remove_pointer_t<Type>>> != nullptr;
    else
        return false;
}

/// Calls each operation with valid arguments.
template <class... Operations>
void callsGive(Expected expected, Operations... operations)
{
    const auto makeOne = [&]<class Result, class... Types>(Result (*operation)(Types...)) {
        Call{expected, operation, argument<Types>(Wrong::nothing)...}.make();
    };
    (makeOne(operations), ...);
}

/// Calls each operation once for each of its pointers with null in the place of that one, for handles also with one
/// that is closed and one that never was. Parameter `mayBeNull`, counted from 0, is left out.
template <std::size_t mayBeNull = 99, class... Operations>
void wrongPointersGive(Expected expected, Operations... operations)
{
    int number = 0;
    const auto makeEach = [&]<class Result, class... Types>(Result (*operation)(Types...)) {
        SCOPED_TRACE("operation " + std::to_string(++number));
        for (const Wrong wrong : {Wrong::null, Wrong::closed, Wrong::never})
            for (std::size_t i = 0; i < sizeof...(Types); ++i) {
                auto turn = [&, at = std::size_t{0}]() mutable { return at++ == i ? wrong : Wrong::nothing; };
                if (i != mayBeNull && std::array{mayBe<Types>(wrong)...}[i])
                    Call{expected, operation, argument<Types>(turn())...}.make();
            }
    };
    (makeEach(operations), ...);
}

}  // namespace test
