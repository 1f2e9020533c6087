// Memory from the C library of the host.
#include "zeb_memory_limit.h"

#include <malloc.h>
#include <stdlib.h>

#include "zeb_platform.h"

namespace
{

size_t limit = 0; // bytes; 0: none
size_t in_use = 0;

} // namespace

void zeb_memory_set_limit(size_t bytes)
{
    limit = bytes;
    in_use = 0;
}

size_t zeb_memory_in_use()
{
    return in_use;
}

void *zeb_malloc_impl_dbg(size_t size, const char * /*tag*/, int /*line*/)
{
    if (limit == 0) {
        return malloc(size);
    }
    void *block = size <= limit ? malloc(size) : nullptr;
    const size_t usable = block != nullptr ? malloc_usable_size(block) : 0;
    if (usable > limit - in_use) {
        free(block);
        return nullptr;
    }
    in_use += usable;
    return block;
}

void zeb_free_impl(void *ptr)
{
    if (limit != 0) {
        in_use -= ptr != nullptr ? malloc_usable_size(ptr) : 0;
    }
    free(ptr);
}
