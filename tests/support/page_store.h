// A page manager on a file in a directory of its own.
#pragma once

#include "kalpagemanager/page_manager.h"
#include "support/log_lines.h"
#include "support/page_file_image.h"
#include "support/temp_dir.h"

#include <cstring>

namespace test {

inline constexpr uint32_t read = 1, write = 2;

class PageStore : public testing::Test {
protected:
    ~PageStore() override
    {
        if (manager != nullptr)
            kalPageManagerDeinitialize(manager);
        std::filesystem::current_path("/");
    }

    uint32_t open(uint32_t cacheBytes = 0)
    {
        return kalPageManagerInitialize(path.c_str(), cacheBytes, &manager, &created);
    }
    uint32_t close()
    {
        const uint32_t status = kalPageManagerDeinitialize(manager);
        manager = status == 0 ? nullptr : manager;
        return status;
    }
    /// Creates a page with this text in its body and gives it back.
    uint32_t create(std::string text, uint32_t* number = nullptr)
    {
        uint32_t page = 0;
        void* body = nullptr;
        const uint32_t status = kalPageManagerCreatePage(manager, write, number != nullptr ? number : &page, &body);
        text.resize(2020);
        return status != 0 ? status : fill(body, text);
    }
    uint32_t change(uint32_t page, const std::string& text)
    {
        void* body = nullptr;
        const uint32_t status = kalPageManagerLoadPage(manager, write, page, &body);
        return status != 0 ? status : fill(body, text);
    }
    uint32_t visit(uint32_t page)
    {
        void* body = nullptr;
        const uint32_t status = kalPageManagerLoadPage(manager, read, page, &body);
        return status != 0 ? status : kalPageManagerUnloadPage(manager, body);
    }
    uint32_t fill(void* body, const std::string& text)
    {
        std::memcpy(body, text.data(), text.size());
        const uint32_t status = kalPageManagerSetPageDirty(manager, body);
        return status != 0 ? status : kalPageManagerUnloadPage(manager, body);
    }

    std::string file() const { return readFile(dir / "db"); }
    std::string backup() const { return readFile(dir / "db.backup"); }

    TempDir dir;
    std::u16string path = (dir / "db").u16string();
    KALPageManager* manager = nullptr;
    uint32_t created = 7;
};

}  // namespace test
