// One lock and one reference on a page, or the reference alone, released when the hold goes.
#pragma once

#include "common/page_number.h"
#include "common/status.h"
#include "common/trace.h"
#include "kalpagemanager/page_manager.h"

#include <cstddef>
#include <utility>

namespace kaldb {

/// What to trace when a page cannot be unloaded; the text may show the page's number.
struct UnloadText {
    consteval UnloadText(const char16_t* text)
    {
        if (showsNumber(text))
            numbered = TraceText<PageNumber>(text);
        else
            plain = TraceText<>(text);
    }

    TraceText<PageNumber> numbered;
    TraceText<> plain;

private:
    static consteval bool showsNumber(const char16_t* text)
    {
        while (*text != u'\0')
            if (*text++ == u'%')
                return true;
        return false;
    }
};

/// Holds at most one loaded page. A failure to unload it in passing is traced with the text given at birth; `release()`
/// unloads it now and yields the status.
class PageHold {
public:
    /// `source` must outlive the hold.
    PageHold(const TraceSource& source, UnloadText unloadFailure) : source_(&source), unloadFailure_(unloadFailure) {}
    PageHold(PageHold&& other) noexcept
        : source_(other.source_), unloadFailure_(other.unloadFailure_),
          manager_(std::exchange(other.manager_, nullptr)), body_(std::exchange(other.body_, nullptr)),
          page_(std::exchange(other.page_, noPage)), locked_(other.locked_)
    {
    }
    /// Takes over the other hold's page; the page held so far is unloaded. The texts stay each hold's own.
    PageHold& operator=(PageHold&& other) noexcept
    {
        if (this != &other) {
            unload();
            manager_ = std::exchange(other.manager_, nullptr);
            body_ = std::exchange(other.body_, nullptr);
            page_ = std::exchange(other.page_, noPage);
            locked_ = other.locked_;
        }
        return *this;
    }
    ~PageHold() { unload(); }

    Status load(KALPageManager& manager, LockType lock, PageNumber page)
    {
        unload();
        std::byte* body = nullptr;
        if (Status s = manager.load(lock, page, body); failed(s))
            return s;
        adopt(manager, body, page);
        return Status::success;
    }

    /// The reference alone, without a lock.
    Status reference(KALPageManager& manager, PageNumber page)
    {
        unload();
        std::byte* body = nullptr;
        if (Status s = manager.reference(page, body); failed(s))
            return s;
        adopt(manager, body, page);
        locked_ = false;
        return Status::success;
    }

    /// The same for a page that is known to be in the cache, with this body.
    void referenceAgain(KALPageManager& manager, PageNumber page, std::byte* body)
    {
        manager.referenceAgain(body);
        adopt(manager, body, page);
        locked_ = false;
    }

    Status create(KALPageManager& manager, LockType lock)
    {
        unload();
        PageNumber page = noPage;
        std::byte* body = nullptr;
        if (Status s = manager.create(lock, page, body); failed(s))
            return s;
        adopt(manager, body, page);
        return Status::success;
    }

    /// Takes over a page that is loaded already.
    void adopt(KALPageManager& manager, std::byte* body, PageNumber page)
    {
        unload();
        manager_ = &manager;
        body_ = body;
        page_ = page;
        locked_ = true;
    }

    /// Gives the page up without unloading it: its lock or its reference outlives the scope.
    void detach()
    {
        manager_ = nullptr;
        body_ = nullptr;
        page_ = noPage;
    }

    Status release()
    {
        if (body_ == nullptr)
            return Status::success;
        KALPageManager* manager = std::exchange(manager_, nullptr);
        page_ = noPage;
        std::byte* body = std::exchange(body_, nullptr);
        return locked_ ? manager->unload(body) : manager->unreference(body);
    }

    explicit operator bool() const { return body_ != nullptr; }
    std::byte* body() const { return body_; }
    PageNumber number() const { return page_; }
    Status markDirty() const { return manager_->setDirty(body_); }

private:
    void unload()
    {
        [[maybe_unused]] const PageNumber page = page_;
        if (Status s = release(); failed(s))
            traceUnloadFailure(s, page);
    }
    void traceUnloadFailure([[maybe_unused]] Status status, [[maybe_unused]] PageNumber page) const
    {
        if constexpr (tracing) {
            if (unloadFailure_.plain.text != nullptr)
                ignore(source_->note(status, unloadFailure_.plain));
            else
                ignore(source_->note(status, unloadFailure_.numbered, page));
        }
    }

    const TraceSource* source_;
    UnloadText unloadFailure_;
    KALPageManager* manager_ = nullptr;
    std::byte* body_ = nullptr;
    PageNumber page_ = noPage;
    bool locked_ = true;
};

}  // namespace kaldb
