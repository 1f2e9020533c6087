// A task overflows its stack. The kernel tells the core the limit of each task's stack, and the board's handler of faults
// names the overflow. Ends with 1 when nothing stops the task.
#include <cstdio>
#include <cstdlib>

#include <FreeRTOS.h>
#include <task.h>

#include "kernel_heap.h"

namespace
{

constexpr uint32_t kStackWords = 256;

__attribute__((noinline)) int recurse(int depth)
{
    volatile char space[64];
    space[0] = static_cast<char>(depth);
    const int below = depth == 0 ? 0 : recurse(depth - 1);
    return below + space[0]; // read behind the call, so that this is no loop
}

void overflow(void * /*parameter*/)
{
    (void)std::printf("depth %d\n", recurse(1000));
    std::exit(1);
}

} // namespace

int main()
{
    kernel_heap_start();
    if (xTaskCreate(overflow, "fault", kStackWords, nullptr, 1, nullptr) == pdPASS) {
        vTaskStartScheduler();
    }
    std::puts("no memory");
    return 1;
}
