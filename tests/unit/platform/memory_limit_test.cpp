#include "zeb_memory_limit.h"

#include <gtest/gtest.h>

#include <vector>

#include "zeb_platform.h"

namespace
{

constexpr size_t kLimit = 100'000;

class MemoryLimit : public testing::Test
{
  protected:
    MemoryLimit()
    {
        zeb_memory_set_limit(kLimit);
    }
    ~MemoryLimit() override
    {
        EXPECT_EQ(zeb_memory_in_use(), 0u);
        zeb_memory_set_limit(0);
    }

    static void *allocate(size_t size)
    {
        return zeb_malloc_impl_dbg(size, "test", 0);
    }
};

TEST_F(MemoryLimit, RefusesWhatGoesBeyondAndGivesAgainWhatCameBack)
{
    std::vector<void *> blocks;
    for (void *block = allocate(1000); block != nullptr; block = allocate(1000)) {
        blocks.push_back(block);
        ASSERT_LE(zeb_memory_in_use(), kLimit);
    }
    EXPECT_GE(blocks.size(), 90u);
    EXPECT_LE(blocks.size(), 100u);
    EXPECT_EQ(allocate(kLimit), nullptr);
    EXPECT_EQ(allocate(SIZE_MAX), nullptr);
    zeb_free_impl(blocks.back());
    blocks.back() = allocate(1000);
    EXPECT_NE(blocks.back(), nullptr);
    for (void *block : blocks) {
        zeb_free_impl(block);
    }
    zeb_free_impl(nullptr);
}

TEST_F(MemoryLimit, IsNoneByDefault)
{
    zeb_memory_set_limit(0);
    void *block = allocate(10 * kLimit);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(zeb_memory_in_use(), 0u);
    zeb_free_impl(block);
}

} // namespace
