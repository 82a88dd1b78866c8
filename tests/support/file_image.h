// Database files built byte by byte, for the tests that need one that the library would not write.
#pragma once

#include "kalbtree/layout.h"
#include "kaldbbinarypage/layout.h"
#include "kaldbchain/layout.h"
#include "kalpagemanager/layout.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace kaldb::test {

/// The bytes of one page, with its fields by the offset of the structure that they belong to.
struct PageImage {
    static constexpr std::size_t links = pageHeaderLength;
    static constexpr std::size_t typed = links + sizeof(KALDBPageLinks);
    static constexpr std::size_t slot(std::size_t index)
    {
        return typed + sizeof(KALBTreePage) + index * sizeof(KALBTreeSlot);
    }

    std::array<std::byte, pageSize> bytes{};

    template <class Field>
    Field get(std::size_t offset) const
    {
        return readField<Field>(bytes.data(), offset);
    }
    template <class Field>
    void put(std::size_t offset, const Field& field)
    {
        writeField(bytes.data(), offset, field);
    }
    /// Changes a structure in place: `page.edit<KALBTreePage>(PageImage::typed, [](auto& h) { h.count = 9; })`.
    template <class Structure, class Change>
    void edit(std::size_t offset, Change&& change)
    {
        auto structure = get<Structure>(offset);
        change(structure);
        put(offset, structure);
    }
};

/// A file: header and pages. A new one is sound, clean and empty.
struct FileImage {
    KALPageFileHeader header{{'P', 'M', 'R'}, {}, fileHeaderLength, pageSize, 0, noPage, fileVersion, 0};
    std::vector<PageImage> pages;

    PageImage& operator[](PageNumber page) { return pages[page]; }

    /// A page with its common header and links, and nothing behind them. Counted in the header.
    PageNumber addPage(PageNumber parent = noPage, PageNumber prev = noPage, PageNumber next = noPage)
    {
        const PageNumber number = header.pagesInFile++;
        PageImage& page = pages.emplace_back();
        page.put(0, KALPageHeader{pageHeaderLength, {'P', 'G', 'E'}, number, 0, 0, 1'000'000'000, 0});
        page.put(PageImage::links, KALDBPageLinks{number, parent, prev, next});
        return number;
    }

    /// Makes the page a B-tree page whose slots 0, 1, 2 ... hold `items` in key order: each is the next child of the
    /// one before it. Items shorter than `itemSize` end in zeros.
    void formatTree(PageNumber number, std::uint32_t itemSize, const std::vector<std::string>& items)
    {
        PageImage& page = pages[number];
        const auto count = static_cast<SlotIndex>(items.size());
        const auto maxCount = static_cast<SlotIndex>((usablePageSize - sizeof(KALBTreePage)) / (itemSize + 10));
        const SlotIndex first = items.empty() ? noSlot : SlotIndex{0};
        const auto last = static_cast<SlotIndex>(count - 1);  // none of none
        const KALBTreePage tree{32, {'B', 'T', 'R'}, usablePageSize, itemSize, maxCount, count, first, first, last, 0};
        page.put(PageImage::typed, tree);
        for (SlotIndex i = 0; i < maxCount; ++i) {
            const auto before = static_cast<SlotIndex>(i - 1), after = static_cast<SlotIndex>(i + 1);
            page.put(PageImage::slot(i), KALBTreeSlot{noSlot, noSlot, noSlot, 1, 0});
            if (i >= count)
                continue;
            page.put(PageImage::slot(i), KALBTreeSlot{noSlot, after < count ? after : noSlot, before, 0, 0});
            std::memcpy(&page.bytes[PageImage::slot(maxCount) + i * itemSize], items[i].data(), items[i].size());
        }
    }

    /// Makes the page a binary page whose first slots hold `pieces`, each a value of its own.
    void formatBinary(PageNumber number, std::uint32_t slotDataSize, const std::vector<std::string>& pieces)
    {
        PageImage& page = pages[number];
        const std::size_t stride = sizeof(KALDBBinarySlot) + slotDataSize;
        const auto maxCount = static_cast<std::uint32_t>((usablePageSize - sizeof(KALDBBinaryPage)) / stride);
        const auto count = static_cast<std::uint32_t>(pieces.size());
        page.put(PageImage::typed,
                 KALDBBinaryPage{28, {'B', 'P', 'G'}, usablePageSize, slotDataSize, maxCount, count, 0xFFFF, 0});
        for (std::size_t i = 0; i < maxCount; ++i) {
            const std::string piece = i < count ? pieces[i] : "";
            const auto length = static_cast<std::uint32_t>(piece.size());
            const std::size_t at = binarySlot(number, i);
            page.put(at, KALDBBinarySlot{i < count ? 1U : 0U, length, length, noPage, noSlot, 0});
            std::memcpy(&page.bytes[at + sizeof(KALDBBinarySlot)], piece.data(), length);
        }
    }
    std::size_t binarySlot(PageNumber number, std::size_t index) const
    {
        const auto binary = pages[number].get<KALDBBinaryPage>(PageImage::typed);
        return PageImage::typed + sizeof binary + index * (sizeof(KALDBBinarySlot) + binary.slotDataSize);
    }

    /// Takes a file apart again; bytes behind the last whole page are dropped.
    static FileImage parse(const std::string& bytes)
    {
        FileImage image;
        std::memcpy(&image.header, bytes.data(), sizeof image.header);
        for (std::size_t at = sizeof image.header; at + pageSize <= bytes.size(); at += pageSize)
            std::memcpy(image.pages.emplace_back().bytes.data(), &bytes[at], pageSize);
        return image;
    }
    std::string bytes() const
    {
        std::string all{reinterpret_cast<const char*>(&header), sizeof header};
        for (const PageImage& page : pages)
            all.append(reinterpret_cast<const char*>(page.bytes.data()), page.bytes.size());
        return all;
    }
    void write(const std::filesystem::path& path) const { std::ofstream{path, std::ios::binary} << bytes(); }
};

}  // namespace kaldb::test
