// Makes and releases the receive statistics with each of their allocations failing.
#include <gtest/gtest.h>

#include "failing_memory.h"
#include "kelvra_bcm_stat.h"

namespace
{

using failing_memory::failing;

TEST(StatisticsMemory, IsGivenBackWholeWhenAnyPartOfItIsMissing)
{
    const KelvraBcmStatisticsConfig config = {nullptr};
    const long before = failing_memory::in_use();
    failing_memory::fail(0, failing::once);
    KelvraBcmStatistics *whole = KelvraBcmStat_Create(&config);
    const size_t n_allocations = failing_memory::asked();
    ASSERT_NE(nullptr, whole);
    KelvraBcmStat_Destroy(whole);
    EXPECT_EQ(before, failing_memory::in_use());

    for (const failing how : {failing::once, failing::forever}) {
        for (size_t nth = 1; nth <= n_allocations; nth++) {
            failing_memory::fail(nth, how);
            EXPECT_EQ(nullptr, KelvraBcmStat_Create(&config)) << "without allocation " << nth;
            EXPECT_EQ(before, failing_memory::in_use()) << "without allocation " << nth;
        }
    }
    failing_memory::fail(0, failing::once);
}

} // namespace
