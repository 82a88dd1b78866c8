#include "kalpagemanager/slot_cache.h"

#include "kalpagemanager/internal.h"

#include <cstring>

using namespace kaldb;

void kaldb::pmFormatPage(std::byte* page)
{
    std::memset(page, 0, pageSize);
    const KALPageHeader formatted{.headerLength = pageHeaderLength,
                                  .typeName = {'P', 'G', 'E'},
                                  .page = noPage,
                                  .references = 0,
                                  .flags = pageUnused,
                                  .lastUsed = 0,
                                  .checksum = 0};
    std::memcpy(page, &formatted, sizeof formatted);
}

bool SlotCache::allocate(std::uint32_t slots)
{
    const std::uint32_t withSpare = slots < smallCache ? slots + spareSlots : slots;
    memory_ = allocateMemory(withSpare * pageSize, sourceFile);
    if (!memory_ || !index_.reserve(1, sourceFile) || !free_.allocate(withSpare, sourceFile) ||
        !unreferenced_.allocate(withSpare, sourceFile) || !dirty_.allocate(withSpare, sourceFile))
        return false;
    size_ = slots;
    sizeWithSpare_ = withSpare;
    return true;
}

std::uint32_t SlotCache::choose()
{
    if (size_ == 0)
        return none;
    if (const std::uint32_t slot = free_.first(); slot != none)
        return slot;
    if (touched_ == size_ || !index_.reserve(touched_ + 1, sourceFile))
        return unreferenced_.first();
    pmFormatPage(at(touched_));
    free_.insert(touched_);
    return touched_++;
}

bool SlotCache::makeRoomFor(std::uint32_t pages)
{
    while (!hasRoomFor(pages) && size_ < sizeWithSpare_)
        ++size_;
    return hasRoomFor(pages);
}

bool SlotCache::hasRoomFor(std::uint32_t pages) const
{
    if (size_ == 0)
        return false;
    std::uint32_t room = size_ - touched_;
    for (const SlotSet* slots : {&free_, &unreferenced_})
        for (std::uint32_t slot = slots->first(); slot != none && room < pages; slot = slots->next(slot + 1))
            ++room;
    return room >= pages;
}

std::uint32_t SlotCache::slotOf(const std::byte* body) const
{
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(body) - pageHeaderLength - reinterpret_cast<std::uintptr_t>(memory_.get());
    if (offset % pageSize != 0 || offset / pageSize >= touched_)
        return none;
    const std::uint32_t slot = static_cast<std::uint32_t>(offset / pageSize);
    return free_.contains(slot) ? none : slot;
}

void SlotCache::format(std::uint32_t slot)
{
    pmFormatPage(at(slot));
    free_.insert(slot);
}

void SlotCache::clear(std::uint32_t slot)
{
    ++contents_;
    if (const PageNumber page = header(slot).page; page != noPage)
        index_.erase(page);
    free_.erase(slot);
    unreferenced_.erase(slot);
    dirty_.erase(slot);
    mutableHeader(slot).page = noPage;
}

void SlotCache::holdLoaded(std::uint32_t slot, PageNumber page)
{
    KALPageHeader& loaded = mutableHeader(slot);
    loaded.references = 0;
    loaded.flags = 0;
    unreferenced_.insert(slot);
    index_.insert(page, slot);
}

void SlotCache::holdCreated(std::uint32_t slot, PageNumber page, std::uint32_t time)
{
    mutableHeader(slot) = {.headerLength = pageHeaderLength,
                           .typeName = {'P', 'G', 'E'},
                           .page = page,
                           .references = 1,
                           .flags = pageDirty,
                           .lastUsed = time,
                           .checksum = 0};
    dirty_.insert(slot);
    index_.insert(page, slot);
}

void SlotCache::reference(std::uint32_t slot)
{
    if (mutableHeader(slot).references++ == 0)
        unreferenced_.erase(slot);
}

void SlotCache::dereference(std::uint32_t slot)
{
    std::uint32_t& references = mutableHeader(slot).references;
    if (references > 0 && --references == 0)
        unreferenced_.insert(slot);
}

void SlotCache::resetReferences(std::uint32_t slot)
{
    mutableHeader(slot).references = 0;
    unreferenced_.insert(slot);
}

void SlotCache::markDirty(std::uint32_t slot)
{
    mutableHeader(slot).flags |= pageDirty;
    dirty_.insert(slot);
}
