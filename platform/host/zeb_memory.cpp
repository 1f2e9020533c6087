// Memory from the C library of the host.
#include "zeb_platform.h"

#include <stdlib.h>

void *zeb_malloc_impl_dbg(size_t size, const char * /*tag*/, int /*line*/)
{
    return malloc(size);
}

void zeb_free_impl(void *ptr)
{
    free(ptr);
}
