#include "kalpagemanager/page_manager.h"
#include "support/temp_dir.h"
#include <gtest/gtest.h>
TEST(PageManager, Smoke)
{
    test::TempDir dir;
    std::u16string path = (dir / "db").u16string();
    KALPageManager* m = nullptr;
    uint32_t created = 7;
    ASSERT_EQ(kalPageManagerInitialize(path.c_str(), 0, &m, &created), 0u);
    EXPECT_EQ(created, 1u);
    for (uint32_t i = 0; i < 10; ++i) {
        uint32_t page;
        void* body;
        ASSERT_EQ(kalPageManagerCreatePage(m, 2, &page, &body), 0u);
        EXPECT_EQ(page, i);
        memset(body, int(i), 2020);
        ASSERT_EQ(kalPageManagerUnloadPage(m, body), 0u);
    }
    for (uint32_t i = 0; i < 10; ++i) {
        void* body;
        ASSERT_EQ(kalPageManagerLoadPage(m, 1, i, &body), 0u) << i;
        EXPECT_EQ(*static_cast<uint8_t*>(body), i);
        ASSERT_EQ(kalPageManagerUnloadPage(m, body), 0u);
    }
    ASSERT_EQ(kalPageManagerDeinitialize(m), 0u);
    EXPECT_EQ(test::readFile(dir / "db").size(), 92u + 20480u);
    EXPECT_EQ(test::readFile(dir / "db"), test::readFile(dir / "db.backup"));
}
