// A bound on the memory that zeb_malloc_impl_dbg gives out on the host.
#pragma once

#include <stddef.h>

// From now on at most `bytes` are in use at a time, as the C library rounds them; an allocation beyond gets null. 0, which is
// the default: no bound. To be called while nothing is in use. With a bound one thread at a time may allocate and free.
void zeb_memory_set_limit(size_t bytes);

// Bytes in use; 0 without a bound, as they are not counted then.
size_t zeb_memory_in_use();
