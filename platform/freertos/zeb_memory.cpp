// Memory from the kernel's heap.
#include "zeb_platform.h"

#include <cstddef>

#include <FreeRTOS.h>

static_assert(portBYTE_ALIGNMENT >= alignof(max_align_t), "a block is aligned for any object");

void *zeb_malloc_impl_dbg(size_t size, const char * /*tag*/, int /*line*/)
{
    return pvPortMalloc(size);
}

void zeb_free_impl(void *ptr)
{
    vPortFree(ptr);
}
