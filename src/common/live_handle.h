// Objects that callers hold by handle, so that a handle that is gone is refused instead of being followed.
#pragma once

namespace kaldb {

/// Base of such an object: keeps it in the list of those of its kind while it exists. The one that was asked for last
/// is found at once.
template <class Object>
class LiveHandle {
public:
    LiveHandle() noexcept : next_(first_)
    {
        if (first_ != nullptr)
            first_->previous_ = this;
        first_ = this;
    }
    LiveHandle(const LiveHandle&) = delete;
    LiveHandle& operator=(const LiveHandle&) = delete;
    ~LiveHandle()
    {
        (previous_ != nullptr ? previous_->next_ : first_) = next_;
        if (next_ != nullptr)
            next_->previous_ = previous_;
        if (found_ == this)
            found_ = nullptr;
    }

    static bool isLive(const void* handle)
    {
        if (handle == nullptr)
            return false;
        const LiveHandle* live = found_;
        if (live == nullptr || static_cast<const Object*>(live) != handle)
            for (live = first_; live != nullptr && static_cast<const Object*>(live) != handle;)
                live = live->next_;
        if (live != nullptr)
            found_ = live;
        return live != nullptr;
    }

    /// Takes an object whose memory is about to go off the list, and ends nothing else of it.
    static void forget(void* handle)
    {
        if (isLive(handle))
            static_cast<LiveHandle*>(static_cast<Object*>(handle))->~LiveHandle();
    }

private:
    static inline LiveHandle* first_ = nullptr;
    static inline const LiveHandle* found_ = nullptr;

    LiveHandle* previous_ = nullptr;
    LiveHandle* next_;
};

}  // namespace kaldb
