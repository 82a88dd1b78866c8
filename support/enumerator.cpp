// Enumerators: a position, and four callbacks that know what it stands for.
#include "live_list.h"
#include "status.h"

#include <memory>

using kallib::guarded;
using kallib::Status;

struct KALEnumerator {
    KALEnumeratorCallbacks callbacks;
    void* userData;
    uint32_t position = 0;
    uint32_t running = 0;  // calls in progress: one that is freed in a callback stays to their end
    bool freed = false;
    KALEnumerator* next = nullptr;
};

namespace {

kallib::LiveList<KALEnumerator> enumerators;

uint32_t release(KALEnumerator* enumerator)
{
    ++enumerator->running;
    const uint32_t status = guarded([&] { return enumerator->callbacks.free(enumerator, enumerator->userData); });
    enumerators.remove(enumerator);
    return status;
}

/// Calls a callback of a live enumerator.
template <class Callback>
uint32_t call(KALEnumerator* enumerator, Callback&& callback)
{
    ++enumerator->running;
    const uint32_t status = guarded(callback);
    if (--enumerator->running == 0 && enumerator->freed)
        release(enumerator);
    return status;
}

uint32_t move(KALEnumerator* enumerator, uint32_t kind)
{
    return call(enumerator, [=] {
        return enumerator->callbacks.move(enumerator, enumerator->userData, kind, &enumerator->position);
    });
}

}  // namespace

// `unsupported` is never called, so it alone may be null.
extern "C" uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData,
                                        KALEnumerator** enumerator)
{
    return guarded([&] {
        if (enumerator == nullptr)
            return Status::invalidArgument;
        *enumerator = nullptr;
        if (callbacks == nullptr || callbacks->move == nullptr || callbacks->getItem == nullptr ||
            callbacks->free == nullptr)
            return Status::invalidArgument;
        auto created = std::make_unique<KALEnumerator>(KALEnumerator{*callbacks, userData});
        *enumerator = enumerators.add(std::move(created));
        return Status::success;
    });
}

extern "C" uint32_t kalEnumeratorMoveFirst(KALEnumerator* enumerator)
{
    if (!enumerators.contains(enumerator))
        return KAL_INVALID_ARGUMENT;
    enumerator->position = 0;
    return move(enumerator, KAL_MOVE_FIRST);
}

// The callback finds the position already advanced, and puts it back itself when there is no further item.
extern "C" uint32_t kalEnumeratorMoveNext(KALEnumerator* enumerator)
{
    if (!enumerators.contains(enumerator))
        return KAL_INVALID_ARGUMENT;
    ++enumerator->position;
    return move(enumerator, KAL_MOVE_NEXT);
}

extern "C" uint32_t kalEnumeratorGetItem(KALEnumerator* enumerator, void* buffer, uint32_t size)
{
    if (buffer == nullptr || !enumerators.contains(enumerator))
        return KAL_INVALID_ARGUMENT;
    return call(enumerator, [=] {
        return enumerator->callbacks.getItem(enumerator, enumerator->userData, enumerator->position, buffer, size);
    });
}

extern "C" uint32_t kalEnumeratorGetUserData(KALEnumerator* enumerator, void** userData)
{
    if (userData == nullptr || !enumerators.contains(enumerator))
        return KAL_INVALID_ARGUMENT;
    *userData = enumerator->userData;
    return KAL_SUCCESS;
}

extern "C" uint32_t kalEnumeratorFree(KALEnumerator* enumerator)
{
    if (!enumerators.contains(enumerator) || enumerator->freed)
        return KAL_INVALID_ARGUMENT;
    enumerator->freed = true;
    if (enumerator->running > 0)
        return KAL_SUCCESS;
    return release(enumerator);
}
