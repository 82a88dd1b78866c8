// Enumerators: a position, and four callbacks that know what it stands for.
#include "status.h"

#include <new>

using kallib::guarded;

struct KALEnumerator {
    KALEnumeratorCallbacks callbacks;
    void* userData;
    uint32_t position;

    uint32_t move(uint32_t kind)
    {
        return guarded([&] { return callbacks.move(this, userData, kind, &position); });
    }
};

// `unsupported` is never called, so it alone may be null.
extern "C" uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData,
                                        KALEnumerator** enumerator)
{
    if (enumerator == nullptr)
        return KAL_INVALID_ARGUMENT;
    *enumerator = nullptr;
    if (callbacks == nullptr || callbacks->move == nullptr || callbacks->getItem == nullptr ||
        callbacks->free == nullptr)
        return KAL_INVALID_ARGUMENT;
    *enumerator = new (std::nothrow) KALEnumerator{*callbacks, userData, 0};
    return *enumerator == nullptr ? KAL_OUT_OF_MEMORY : KAL_SUCCESS;
}

extern "C" uint32_t kalEnumeratorMoveFirst(KALEnumerator* enumerator)
{
    if (enumerator == nullptr)
        return KAL_INVALID_ARGUMENT;
    enumerator->position = 0;
    return enumerator->move(KAL_MOVE_FIRST);
}

// The callback finds the position already advanced, and puts it back itself when there is no further item.
extern "C" uint32_t kalEnumeratorMoveNext(KALEnumerator* enumerator)
{
    if (enumerator == nullptr)
        return KAL_INVALID_ARGUMENT;
    ++enumerator->position;
    return enumerator->move(KAL_MOVE_NEXT);
}

extern "C" uint32_t kalEnumeratorGetItem(KALEnumerator* enumerator, void* buffer, uint32_t size)
{
    if (enumerator == nullptr || buffer == nullptr)
        return KAL_INVALID_ARGUMENT;
    return guarded([&] {
        return enumerator->callbacks.getItem(enumerator, enumerator->userData, enumerator->position, buffer, size);
    });
}

extern "C" uint32_t kalEnumeratorGetUserData(KALEnumerator* enumerator, void** userData)
{
    if (enumerator == nullptr || userData == nullptr)
        return KAL_INVALID_ARGUMENT;
    *userData = enumerator->userData;
    return KAL_SUCCESS;
}

// The enumerator is gone afterwards, whatever the callback answers.
extern "C" uint32_t kalEnumeratorFree(KALEnumerator* enumerator)
{
    if (enumerator == nullptr)
        return KAL_INVALID_ARGUMENT;
    const uint32_t status = guarded([&] { return enumerator->callbacks.free(enumerator, enumerator->userData); });
    delete enumerator;
    return status;
}
