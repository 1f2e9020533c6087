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

// Who asked for the first one of them that failed; null when none did.
const char *failed_tag();

// While it is set, allocations neither count nor fail.
void spare(bool is_spared);

// Blocks that were given out and not given back, since the program began.
long in_use();

// Bytes of those, and the most there were at a time since the last call of fail(). The C library may round each block
// up; under the address sanitizer they are exact.
size_t bytes_in_use();
size_t most_bytes_in_use();

} // namespace failing_memory
