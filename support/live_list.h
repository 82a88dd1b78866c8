// Handles that are alive, so that one that has been closed is refused instead of being followed.
//
// A process has a handful of them, so walking the list costs nothing beside a system call. Owns nothing: a host that
// closes its files while its static objects are being destroyed still finds a list.
#pragma once

#include <memory>

namespace kallib {

/// `Member` has a `Member* next`, which the list uses.
template <class Member>
class LiveList {
public:
    Member* add(std::unique_ptr<Member> member)
    {
        member->next = first_;
        return first_ = member.release();
    }

    /// Empty when there is no such member: null, closed already, or never one of ours.
    std::unique_ptr<Member> remove(Member* sought)
    {
        Member** link = &first_;
        while (*link != nullptr && *link != sought)
            link = &(*link)->next;
        if (*link == nullptr)
            return nullptr;
        *link = sought->next;
        return std::unique_ptr<Member>{sought};
    }

    template <class Predicate>
    bool any(Predicate&& predicate) const
    {
        for (const Member* member = first_; member != nullptr; member = member->next)
            if (predicate(*member))
                return true;
        return false;
    }

    bool contains(const Member* sought) const
    {
        return any([sought](const Member& member) { return &member == sought; });
    }

private:
    Member* first_ = nullptr;
};

}  // namespace kallib
