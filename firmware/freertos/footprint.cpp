#include "footprint.h"

#include <cstddef>
#include <cstdio>

namespace
{

constexpr size_t kTasksMax = 8;
constexpr int kTurnsOfIdle = 100;
constexpr TickType_t kTurn = configTICK_RATE_HZ / 100;

struct task_stack {
    const char *name;
    uint32_t words;
    uint32_t never_used; // words
};

task_stack stacks[kTasksMax];
size_t n_stacks = 0;
size_t free_at_begin = 0; // bytes

} // namespace

void footprint_begin()
{
    free_at_begin = xPortGetFreeHeapSize();
}

void footprint_take_stack(TaskHandle_t task, const char *name, uint32_t words)
{
    if (n_stacks < kTasksMax) {
        stacks[n_stacks++] = {name, words, static_cast<uint32_t>(uxTaskGetStackHighWaterMark(task))};
    }
}

void footprint_write(const char *name, uint32_t words)
{
    for (int turn = 0; turn < kTurnsOfIdle && xPortGetFreeHeapSize() != free_at_begin; ++turn) {
        vTaskDelay(kTurn); // the idle task frees them
    }
    (void)std::printf("heap lowest %lu\n", static_cast<unsigned long>(xPortGetMinimumEverFreeHeapSize()));
    (void)std::printf("heap left %ld\n", static_cast<long>(free_at_begin) - static_cast<long>(xPortGetFreeHeapSize()));
    footprint_take_stack(nullptr, name, words);
    footprint_take_stack(xTaskGetIdleTaskHandle(), "idle", configMINIMAL_STACK_SIZE);
    for (size_t i = 0; i < n_stacks; ++i) {
        (void)std::printf("stack %s %lu %lu\n", stacks[i].name, static_cast<unsigned long>(stacks[i].words),
                          static_cast<unsigned long>(stacks[i].never_used));
    }
}
