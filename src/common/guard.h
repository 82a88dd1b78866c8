// The border between the C interface and the library: no exception crosses it.
#pragma once

#include "common/status.h"

#include <cstdint>
#include <new>

namespace kaldb {

/// Runs an exported operation. What a callback or a container throws becomes a status, after holds and owners on the
/// way have released what they have.
template <class Operation>
std::uint32_t guarded(Operation&& operation) noexcept
{
    try {
        return code(operation());
    } catch (const std::bad_alloc&) {
        return code(Status::outOfMemory);
    } catch (...) {
        return code(Status::failure);
    }
}

}  // namespace kaldb
