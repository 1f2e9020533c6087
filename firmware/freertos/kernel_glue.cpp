// What the kernel wants of the board.
#include <cstdio>
#include <cstdlib>

#include <FreeRTOS.h>

#include "kernel_assertion.h"
#include "kernel_heap.h"

// Of the board's heap; the C library keeps the rest.
constexpr size_t kKernelHeapSize = size_t{14} << 20; // bytes

void kernel_heap_start()
{
    auto *heap = static_cast<uint8_t *>(malloc(kKernelHeapSize));
    if (heap == nullptr) {
        kernel_assertion_failed("no memory for the kernel's heap", 0);
    }
    const HeapRegion_t regions[] = {{heap, kKernelHeapSize}, {nullptr, 0}};
    vPortDefineHeapRegions(regions);
}

void kernel_assertion_failed(const char *file, int line)
{
    (void)fprintf(stderr, "kernel: assertion failed: %s, line %d\n", file, line);
    exit(EXIT_FAILURE);
}
