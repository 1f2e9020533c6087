// Stands between the code and zeb_malloc_impl_dbg: counts the blocks that are in use and makes allocations fail.
// A program that links this is linked with -Wl,--wrap=zeb_malloc_impl_dbg,--wrap=zeb_free_impl.
#pragma once

#include <cstddef>

namespace failing_memory
{

enum class failing {
    once,   // that allocation alone
    forever // that allocation and all later ones
};

// Starts counting from 0; the `nth` allocation from now on (the first is 1) fails, none with 0.
void fail(size_t nth, failing how);

// Allocations asked for since then.
size_t asked();

// Blocks that were given out and not given back, since the program began.
long in_use();

} // namespace failing_memory
