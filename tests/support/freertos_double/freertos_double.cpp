#include "freertos_double.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include <queue.h>
#include <task.h>

struct freertos_double_queue {
    size_t length;
    size_t item_size;
    std::deque<std::vector<uint8_t>> items;
};

namespace
{

using freertos_double::created_task;

uint64_t passed = 0; // ticks since the start
TickType_t first_tick = 0;
std::multimap<uint64_t, std::function<void()>> actions; // by `passed`
std::unique_ptr<created_task> the_task;
long blocks = 0;
int failing_request = 0;

// What the kernel's own assertions would stop at.
void require(bool holds, const char *what)
{
    if (!holds) {
        (void)std::fprintf(stderr, "freertos_double: not so: %s\n", what);
        std::abort();
    }
}

bool is_request_to_fail()
{
    return failing_request > 0 && --failing_request == 0;
}

// Runs the first action that is due by `limit`, and lets time pass to it. False when there is none.
bool run_next_action(uint64_t limit)
{
    const auto next = actions.begin();

    if (next == actions.end() || next->first > limit) {
        return false;
    }
    passed = std::max(passed, next->first);
    const std::function<void()> action = next->second;
    actions.erase(next);
    action();
    return true;
}

} // namespace

namespace freertos_double
{

void start(TickType_t tick)
{
    passed = 0;
    first_tick = tick;
    actions.clear();
    the_task = nullptr;
    blocks = 0;
    failing_request = 0;
}

TickType_t now()
{
    return first_tick + static_cast<TickType_t>(passed);
}

void spend(TickType_t ticks)
{
    passed += ticks;
}

void after(TickType_t ticks, std::function<void()> action)
{
    actions.emplace(passed + ticks, std::move(action));
}

const created_task *task()
{
    return the_task.get();
}

void run_task()
{
    the_task->code(the_task->parameter);
    require(the_task->is_deleted, "a task deletes itself and does not return");
}

long blocks_in_use()
{
    return blocks;
}

void fail_request(int nth)
{
    failing_request = nth;
}

} // namespace freertos_double

extern "C" {

void *pvPortMalloc(size_t xWantedSize)
{
    if (xWantedSize == 0 || is_request_to_fail()) {
        return nullptr;
    }
    blocks++;
    return std::malloc(xWantedSize);
}

void vPortFree(void *pv)
{
    blocks -= pv != nullptr ? 1 : 0;
    std::free(pv);
}

BaseType_t xTaskCreate(TaskFunction_t pxTaskCode, const char *pcName, configSTACK_DEPTH_TYPE usStackDepth,
                       void *pvParameters, UBaseType_t uxPriority, TaskHandle_t * /*pxCreatedTask*/)
{
    if (is_request_to_fail()) {
        return pdFAIL;
    }
    blocks++;
    the_task =
        std::make_unique<created_task>(created_task{pxTaskCode, pvParameters, pcName, usStackDepth, uxPriority, false});
    return pdPASS;
}

// A task only deletes itself here. The kernel's would not return.
void vTaskDelete(TaskHandle_t xTaskToDelete)
{
    require(xTaskToDelete == nullptr && the_task != nullptr, "a task deletes itself alone");
    the_task->is_deleted = true;
    blocks--;
}

TickType_t xTaskGetTickCount(void)
{
    return freertos_double::now();
}

QueueHandle_t xQueueCreate(UBaseType_t uxQueueLength, UBaseType_t uxItemSize)
{
    if (is_request_to_fail()) {
        return nullptr;
    }
    blocks++;
    return new freertos_double_queue{uxQueueLength, uxItemSize, {}};
}

void vQueueDelete(QueueHandle_t xQueue)
{
    blocks--;
    delete xQueue;
}

// Nobody takes anything out of the queue while its only reader is not running, so there is nothing to wait for.
BaseType_t xQueueSend(QueueHandle_t xQueue, const void *pvItemToQueue, TickType_t /*xTicksToWait*/)
{
    if (xQueue->items.size() >= xQueue->length) {
        return pdFALSE;
    }
    const auto *item = static_cast<const uint8_t *>(pvItemToQueue);
    xQueue->items.emplace_back(item, item + xQueue->item_size);
    return pdTRUE;
}

BaseType_t xQueueReceive(QueueHandle_t xQueue, void *pvBuffer, TickType_t xTicksToWait)
{
    const uint64_t deadline = passed + xTicksToWait;

    while (run_next_action(passed)) { // other tasks that were to run before this one waits
    }
    while (xQueue->items.empty()) {
        if (!run_next_action(deadline)) {
            passed = deadline;
            return pdFALSE;
        }
    }
    memcpy(pvBuffer, xQueue->items.front().data(), xQueue->item_size);
    xQueue->items.pop_front();
    return pdTRUE;
}
}
