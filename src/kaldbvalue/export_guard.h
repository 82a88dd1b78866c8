// What the exported operations on values have in common: their pointers must be given.
#pragma once

#include "common/guard.h"
#include "common/status.h"

#include <cstdint>

namespace kaldb {

/// Runs an operation whose pointers are all given.
template <class Operation>
std::uint32_t given(bool pointers, Operation&& operation) noexcept
{
    return pointers ? guarded(operation) : code(Status::invalidArgument);
}

/// For operations that always succeed.
template <class Operation>
std::uint32_t simply(bool pointers, Operation&& operation) noexcept
{
    return given(pointers, [&] {
        operation();
        return Status::success;
    });
}

}  // namespace kaldb
