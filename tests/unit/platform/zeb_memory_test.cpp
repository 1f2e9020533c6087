// Memory from the host.
#include "zeb_platform.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

TEST(HostMemory, GivesWritableBytesAlignedForAnyObject)
{
    for (size_t size : {size_t{1}, size_t{7}, size_t{4096}, size_t{1} << 20}) {
        void *bytes = zeb_malloc_impl_dbg(size, __func__, __LINE__);

        ASSERT_NE(bytes, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % alignof(std::max_align_t), 0U) << size;
        std::memset(bytes, 0xA5, size);
        zeb_free_impl(bytes);
    }
}

TEST(HostMemory, FreesWhatAnAllocationOfNothingGave)
{
    zeb_free_impl(zeb_malloc_impl_dbg(0, __func__, __LINE__));
}

TEST(HostMemory, IgnoresFreeingNull)
{
    zeb_free_impl(nullptr);
}

TEST(HostMemory, TakesTheCallersNameAsOptional)
{
    void *bytes = zeb_malloc_impl_dbg(16, nullptr, 0);

    EXPECT_NE(bytes, nullptr);
    zeb_free_impl(bytes);
}
