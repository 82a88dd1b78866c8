// A chain's tree of pages as a text, read page by page from the open database: one comparison checks every link.
#pragma once

#include "kalbtree/layout.h"
#include "kaldbchain/layout.h"
#include "kaldbroot/catalogue.h"
#include "support/database.h"

#include <algorithm>
#include <sstream>

namespace test {

class ChainShape {
public:
    explicit ChainShape(const Table& table) : recordSize_(table.recordSize())
    {
        kaldb::KALDBRootObject root{};
        EXPECT_EQ(kaldb::kaldbGetRootObject(kaldb::KALDB_OBJECT_TABLE, table.name().c_str(), root),
                  kaldb::Status::success);
        text_ << "top " << root.topPage << " first " << root.firstPage << "\n";
        show(root.topPage, kaldb::noPage);
    }
    std::string text() const { return text_.str(); }

private:
    /// Pages in key order, a line each: number, parent, children, then the keys.
    void show(std::uint32_t page, std::uint32_t parent)
    {
        if (page == kaldb::noPage)
            return;
        void* body = nullptr;
        KALPageManager* manager = kaldb::kaldbChainGetPageManager();
        ASSERT_EQ(kalPageManagerLoadPage(manager, KALDB_LOCK_READ, page, &body), 0U);
        const std::vector<char> copy(static_cast<char*>(body), static_cast<char*>(body) + kaldb::usablePageSize);
        ASSERT_EQ(kalPageManagerUnloadPage(manager, body), 0U);
        const auto links = fieldOf<kaldb::KALDBPageLinks>(copy.data(), 0);
        EXPECT_EQ(links.page, page);
        EXPECT_EQ(links.parent, parent) << "of page " << page;
        show(links.prev, page);
        text_ << page << " (" << static_cast<int>(links.prev) << " " << static_cast<int>(links.next) << "):";
        showKeys(copy.data() + sizeof links);
        text_ << "\n";
        show(links.next, page);
    }

    void showKeys(const char* tree)
    {
        const auto header = fieldOf<KALBTreePage>(tree, 0);
        std::vector<std::int64_t> keys;
        for (std::uint32_t i = 0; i < header.maxCount; ++i) {
            const auto slot = fieldOf<kaldb::KALBTreeSlot>(tree, sizeof header + i * sizeof(kaldb::KALBTreeSlot));
            const std::size_t item = sizeof header + header.maxCount * sizeof slot + std::size_t{i} * recordSize_;
            if (slot.flags == 0)
                keys.push_back(keyOf(tree + item));
        }
        EXPECT_EQ(keys.size(), header.count);
        std::sort(keys.begin(), keys.end());
        for (const std::int64_t key : keys)
            text_ << " " << key;
    }

    std::uint32_t recordSize_;
    std::ostringstream text_;
};

inline std::string shape(const Table& table) { return ChainShape{table}.text(); }

}  // namespace test
