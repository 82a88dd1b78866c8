#include "support/faults.h"

#include "kalpagemanager/page_manager.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

TEST(PageManagerFaults, Smoke)
{
    test::TempDir dir;
    std::u16string path = (dir / "db").u16string();
    for (unsigned n = 1;; ++n) {
        faults::reset();
        faults::failAt(faults::anyCall, n, KAL_IO_ERROR);
        KALPageManager* m = nullptr;
        uint32_t created = 7;
        const uint32_t s = kalPageManagerInitialize(path.c_str(), 0, &m, &created);
        if (!faults::struck()) {
            EXPECT_EQ(s, 0u);
            EXPECT_EQ(kalPageManagerDeinitialize(m), 0u);
            break;
        }
        if (s == 0)
            EXPECT_EQ(kalPageManagerDeinitialize(m), 0u);
        EXPECT_EQ(faults::openFiles(), 0u);
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }
}
