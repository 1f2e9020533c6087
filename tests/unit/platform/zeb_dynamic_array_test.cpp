// Dynamic arrays and typed objects.
#include "zeb_platform.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace
{
int live_allocations = 0;
bool memory_is_exhausted = false;
} // namespace

// The linker sends the containers' calls of the platform's memory here, and leaves it reachable under
// the names with __real_.
extern "C" {
void *__real_zeb_malloc_impl_dbg(size_t size, const char *tag, int line);
void __real_zeb_free_impl(void *ptr);
void *__wrap_zeb_malloc_impl_dbg(size_t size, const char *tag, int line);
void __wrap_zeb_free_impl(void *ptr);

void *__wrap_zeb_malloc_impl_dbg(size_t size, const char *tag, int line)
{
    void *bytes = memory_is_exhausted ? nullptr : __real_zeb_malloc_impl_dbg(size, tag, line);

    live_allocations += bytes != nullptr ? 1 : 0;
    return bytes;
}

void __wrap_zeb_free_impl(void *ptr)
{
    live_allocations -= ptr != nullptr ? 1 : 0;
    __real_zeb_free_impl(ptr);
}
}

namespace
{

class DynamicArray : public testing::Test
{
  protected:
    void SetUp() override
    {
        live_allocations = 0;
        memory_is_exhausted = false;
    }

    void TearDown() override
    {
        memory_is_exhausted = false;
        EXPECT_EQ(live_allocations, 0) << "leaked or freed twice";
    }
};

using TypedObject = DynamicArray;

rtn_bytes_t bytes_of(const std::string &text)
{
    rtn_bytes_t bytes = {};

    bytes.values = zeb_malloc_impl_dbg(text.size(), __func__, __LINE__);
    if (bytes.values != nullptr) {
        std::memcpy(bytes.values, text.data(), text.size());
        bytes.count = static_cast<uint16_t>(text.size());
        bytes.allocated = bytes.count;
    }
    return bytes;
}

std::string text_of(const rtn_bytes_t &bytes)
{
    return bytes.count == 0 ? std::string() : std::string(static_cast<const char *>(bytes.values), bytes.count);
}

void release(rtn_bytes_t *bytes)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, bytes);
}

void expect_holds_nothing(const zeb_dynamic_array_t &array)
{
    EXPECT_EQ(array.count, 0);
    EXPECT_EQ(array.allocated, 0);
    EXPECT_EQ(array.values, nullptr);
}

TEST_F(DynamicArray, InitialisationForgetsWhateverTheRecordHeld)
{
    int stranger = 0;
    zeb_dynamic_array_t array = {3, 4, &stranger};

    zeb_dynamic_array_init(&array);

    expect_holds_nothing(array);
}

TEST_F(DynamicArray, IsEmptyByItsCountAlone)
{
    int element = 0;
    const zeb_dynamic_array_t room_without_elements = {0, 4, &element};
    const zeb_dynamic_array_t one_element = {1, 0, nullptr};

    EXPECT_TRUE(zeb_dynamic_array_is_empty(&room_without_elements));
    EXPECT_FALSE(zeb_dynamic_array_is_empty(&one_element));
}

TEST_F(DynamicArray, TakeMovesTheBufferAndEmptiesTheSource)
{
    rtn_bytes_t src = bytes_of("packet");
    rtn_bytes_t dst = {};
    const void *buffer = src.values;

    zeb_dynamic_array_take(&dst, &src);

    EXPECT_EQ(dst.values, buffer);
    EXPECT_EQ(text_of(dst), "packet");
    EXPECT_EQ(dst.allocated, 6);
    expect_holds_nothing(src);
    release(&dst);
}

TEST_F(DynamicArray, TakeFreesWhatTheDestinationHeld)
{
    rtn_bytes_t src = bytes_of("new");
    rtn_bytes_t dst = bytes_of("old");

    zeb_dynamic_array_take(&dst, &src);

    EXPECT_EQ(text_of(dst), "new");
    EXPECT_EQ(live_allocations, 1);
    release(&dst);
}

TEST_F(DynamicArray, TakeFromAnEmptySourceEmptiesTheDestination)
{
    rtn_bytes_t src = {};
    rtn_bytes_t dst = bytes_of("old");

    zeb_dynamic_array_take(&dst, &src);

    expect_holds_nothing(dst);
}

TEST_F(DynamicArray, TakeFromItselfChangesNothing)
{
    rtn_bytes_t bytes = bytes_of("same");

    zeb_dynamic_array_take(&bytes, &bytes);

    EXPECT_EQ(text_of(bytes), "same");
    release(&bytes);
}

TEST_F(DynamicArray, CopyReplacesTheBytesAndSharesNone)
{
    rtn_bytes_t src = bytes_of("longer than before");
    rtn_bytes_t dst = bytes_of("old");

    EXPECT_EQ(zeb_dynamic_bytes_copy(&dst, &src), 0);

    EXPECT_NE(dst.values, src.values);
    EXPECT_EQ(text_of(dst), "longer than before");
    EXPECT_GE(dst.allocated, dst.count);
    EXPECT_EQ(text_of(src), "longer than before");
    release(&src);
    release(&dst);
}

TEST_F(DynamicArray, CopyTakesTheCountAndNotTheRoomOfTheSource)
{
    rtn_bytes_t src = bytes_of("cut here");
    rtn_bytes_t dst = {};

    src.count = 3;
    EXPECT_EQ(zeb_dynamic_bytes_copy(&dst, &src), 0);

    EXPECT_EQ(text_of(dst), "cut");
    release(&src);
    release(&dst);
}

TEST_F(DynamicArray, CopyHoldsTheLargestCount)
{
    const std::string text(65535, 'x');
    rtn_bytes_t src = bytes_of(text);
    rtn_bytes_t dst = {};

    EXPECT_EQ(zeb_dynamic_bytes_copy(&dst, &src), 0);

    EXPECT_EQ(text_of(dst), text);
    release(&src);
    release(&dst);
}

TEST_F(DynamicArray, CopyOfAnEmptySourceEmptiesTheDestinationWithoutMemory)
{
    const rtn_bytes_t src = {};
    rtn_bytes_t dst = bytes_of("old");

    memory_is_exhausted = true;
    EXPECT_EQ(zeb_dynamic_bytes_copy(&dst, &src), 0);

    expect_holds_nothing(dst);
}

TEST_F(DynamicArray, CopyOfItselfChangesNothing)
{
    rtn_bytes_t bytes = bytes_of("same");

    EXPECT_EQ(zeb_dynamic_bytes_copy(&bytes, &bytes), 0);

    EXPECT_EQ(text_of(bytes), "same");
    release(&bytes);
}

TEST_F(DynamicArray, CopyWithoutMemoryLeavesBothSidesAsTheyWere)
{
    rtn_bytes_t src = bytes_of("longer than before");
    rtn_bytes_t dst = bytes_of("old");
    const void *buffer = dst.values;

    memory_is_exhausted = true;
    EXPECT_EQ(zeb_dynamic_bytes_copy(&dst, &src), -1);

    EXPECT_EQ(dst.values, buffer);
    EXPECT_EQ(text_of(dst), "old");
    EXPECT_EQ(text_of(src), "longer than before");
    release(&src);
    release(&dst);
}

TEST_F(TypedObject, ReleasesAnArrayAndLeavesItEmpty)
{
    rtn_bytes_t bytes = bytes_of("packet");

    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &bytes);

    EXPECT_EQ(live_allocations, 0);
    expect_holds_nothing(bytes);
}

TEST_F(TypedObject, ReleasesAnArrayTwiceWithoutHarm)
{
    rtn_bytes_t bytes = bytes_of("packet");

    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &bytes);
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &bytes);

    expect_holds_nothing(bytes);
}

TEST_F(TypedObject, ReleasesRoomThatNoElementUses)
{
    rtn_bytes_t bytes = bytes_of("packet");

    bytes.count = 0;
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &bytes);

    EXPECT_EQ(live_allocations, 0);
}

TEST_F(TypedObject, ReleasesArraysOfAnyElementThatOwnsNothing)
{
    uint32_vector_t words = {};

    words.values = zeb_malloc_impl_dbg(2 * sizeof(uint32_t), __func__, __LINE__);
    words.count = 2;
    words.allocated = 2;
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &words);

    expect_holds_nothing(words);
}

} // namespace
