// What the kernel wants of the board.
#include <cstdio>
#include <cstdlib>

#include <FreeRTOS.h>

#include "kernel_assertion.h"
#include "kernel_heap.h"

// Of the board's heap; the C library keeps the rest. Enough for one stream of up to 4 Mbit/s, and the tasks.
constexpr size_t kKernelHeapSize = size_t{1280} << 10; // bytes

void kernel_heap_start()
{
    auto *heap = static_cast<uint8_t *>(malloc(kKernelHeapSize));
    if (heap == nullptr) {
        kernel_assertion_failed("no memory for the kernel's heap", 0);
    }
    const HeapRegion_t regions[] = {{heap, kKernelHeapSize}, {nullptr, 0}};
    vPortDefineHeapRegions(regions);
}

extern "C" void vApplicationIdleHook()
{
#ifdef __arm__
    __asm__ volatile("wfi");
#endif
}

void kernel_assertion_failed(const char *file, int line)
{
    (void)fprintf(stderr, "kernel: assertion failed: %s, line %d\n", file, line);
    exit(EXIT_FAILURE);
}
