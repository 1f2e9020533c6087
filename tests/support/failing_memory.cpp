#include "failing_memory.h"

#include <malloc.h>

#include <algorithm>

#include "zeb_platform.h"

namespace
{

size_t n_asked = 0;
size_t failing_nth = 0;
failing_memory::failing failing_how = failing_memory::failing::once;
const char *first_failed = nullptr;
bool is_spared = false;
long n_in_use = 0;
size_t n_bytes = 0;
size_t n_bytes_most = 0;

bool is_to_fail()
{
    if (failing_nth == 0) {
        return false;
    }
    return failing_how == failing_memory::failing::once ? n_asked == failing_nth : n_asked >= failing_nth;
}

} // namespace

namespace failing_memory
{

void fail(size_t nth, failing how)
{
    n_asked = 0;
    failing_nth = nth;
    failing_how = how;
    first_failed = nullptr;
    n_bytes_most = n_bytes;
}

size_t asked()
{
    return n_asked;
}

const char *failed_tag()
{
    return first_failed;
}

void spare(bool is_to_be_spared)
{
    is_spared = is_to_be_spared;
}

long in_use()
{
    return n_in_use;
}

size_t bytes_in_use()
{
    return n_bytes;
}

size_t most_bytes_in_use()
{
    return n_bytes_most;
}

} // namespace failing_memory

extern "C" {

void *__real_zeb_malloc_impl_dbg(size_t size, const char *tag, int line);
void __real_zeb_free_impl(void *ptr);

void *__wrap_zeb_malloc_impl_dbg(size_t size, const char *tag, int line)
{
    n_asked += is_spared ? 0 : 1;
    if (!is_spared && is_to_fail()) {
        first_failed = first_failed == nullptr ? tag : first_failed;
        return nullptr;
    }
    void *block = __real_zeb_malloc_impl_dbg(size, tag, line);
    n_in_use += block != nullptr ? 1 : 0;
    n_bytes += malloc_usable_size(block);
    n_bytes_most = std::max(n_bytes_most, n_bytes);
    return block;
}

void __wrap_zeb_free_impl(void *ptr)
{
    n_in_use -= ptr != nullptr ? 1 : 0;
    n_bytes -= malloc_usable_size(ptr);
    __real_zeb_free_impl(ptr);
}
}
