// A page manager on a file in a directory of its own.
#pragma once

#include "kalpagemanager/page_manager.h"
#include "support/log_lines.h"
#include "support/page_file_image.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace test {

inline constexpr uint32_t read = 1, write = 2;

class PageStore : public testing::Test {
protected:
    ~PageStore() override
    {
        if (manager != nullptr)
            kalPageManagerDeinitialize(manager);
    }

    uint32_t open(uint32_t cacheBytes = 0)
    {
        return kalPageManagerInitialize(path.c_str(), cacheBytes, &manager, &created);
    }
    uint32_t close()
    {
        const uint32_t status = kalPageManagerDeinitialize(manager);
        if (status == 0)
            manager = nullptr;
        return status;
    }
    /// Creates a page with this text in its body and gives it back.
    uint32_t create(const std::string& text, uint32_t* number = nullptr)
    {
        uint32_t page = 0;
        void* body = nullptr;
        if (uint32_t status = kalPageManagerCreatePage(manager, write, &page, &body); status != 0)
            return status;
        std::memset(body, 0, 2020);
        std::memcpy(body, text.data(), text.size());
        if (number != nullptr)
            *number = page;
        return kalPageManagerUnloadPage(manager, body);
    }
    uint32_t change(uint32_t page, const std::string& text)
    {
        void* body = nullptr;
        if (uint32_t status = kalPageManagerLoadPage(manager, write, page, &body); status != 0)
            return status;
        std::memcpy(body, text.data(), text.size());
        kalPageManagerSetPageDirty(manager, body);
        return kalPageManagerUnloadPage(manager, body);
    }
    uint32_t visit(uint32_t page)
    {
        void* body = nullptr;
        if (uint32_t status = kalPageManagerLoadPage(manager, read, page, &body); status != 0)
            return status;
        return kalPageManagerUnloadPage(manager, body);
    }

    std::string file() const { return readFile(dir / "db"); }
    std::string backup() const { return readFile(dir / "db.backup"); }
    bool hasBackup() const { return std::filesystem::exists(dir / "db.backup"); }

    TempDir dir;
    std::u16string path = (dir / "db").u16string();
    KALPageManager* manager = nullptr;
    uint32_t created = 7;
};

}  // namespace test
