// A kernel of threads in place of FreeRTOS, to run a whole program with several tasks on the host. One task runs at a
// time: the one of the highest priority that is ready, until it waits or makes a higher one ready. When all wait, time
// goes on to the earliest that ends a wait. What interrupts and the real scheduler may do in between does not happen
// here.
#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <FreeRTOS.h>
#include <queue.h>
#include <task.h>

struct freertos_double_queue {
    size_t length;
    size_t item_size;
    std::deque<std::vector<uint8_t>> items;
};

struct freertos_double_task {
    TaskFunction_t code;
    void *parameter;
    UBaseType_t priority;
    size_t stack_size;                             // bytes
    uint32_t notifications = 0;                    // not taken yet
    bool awaits_notification = false;              // ready earlier when it has one
    uint64_t ready_at = 0;                         // ticks
    const freertos_double_queue *reads = nullptr;  // ready earlier when it has an item
    const freertos_double_queue *writes = nullptr; // ready earlier when it has room
    std::condition_variable turn;
};

namespace
{

// Never destroyed: tasks still wait when the program ends.
struct kernel {
    std::mutex lock; // held by the task that runs
    std::vector<freertos_double_task *> tasks;
    freertos_double_task *running = nullptr;
    uint64_t now = 0;              // ticks
    const uint8_t *heap = nullptr; // given by the program, which never takes it back; not used
    size_t heap_free = 0;          // bytes; the heap itself is the host's
    size_t heap_free_least = 0;
};

// In front of each block of the heap.
struct alignas(portBYTE_ALIGNMENT) block_header {
    size_t size; // bytes behind it
};

kernel &g_kernel = *new kernel;

bool is_ready(const freertos_double_task &task)
{
    return task.ready_at <= g_kernel.now || (task.awaits_notification && task.notifications != 0) ||
           (task.reads != nullptr && !task.reads->items.empty()) ||
           (task.writes != nullptr && task.writes->items.size() < task.writes->length);
}

freertos_double_task *highest_ready()
{
    freertos_double_task *highest = nullptr;

    for (freertos_double_task *task : g_kernel.tasks) {
        if (is_ready(*task) && (highest == nullptr || task->priority > highest->priority)) {
            highest = task;
        }
    }
    return highest;
}

// Lets time pass until a task is ready, and makes it the one that runs.
void choose_task()
{
    freertos_double_task *next = highest_ready();

    if (next == nullptr) {
        const auto earliest = std::min_element(
            g_kernel.tasks.begin(), g_kernel.tasks.end(),
            [](const freertos_double_task *a, const freertos_double_task *b) { return a->ready_at < b->ready_at; });
        if (earliest == g_kernel.tasks.end()) {
            std::abort(); // nobody is left who could end the program
        }
        g_kernel.now = (*earliest)->ready_at;
        next = highest_ready();
    }
    g_kernel.running = next;
    next->turn.notify_one();
}

void wait_for_turn(freertos_double_task *task)
{
    std::unique_lock<std::mutex> lock(g_kernel.lock, std::adopt_lock);

    task->turn.wait(lock, [task] { return g_kernel.running == task; });
    (void)lock.release();
}

// The task that runs gives way until it is ready again.
void wait(TickType_t ticks, const freertos_double_queue *reads, const freertos_double_queue *writes)
{
    freertos_double_task *self = g_kernel.running;

    self->ready_at = ticks == portMAX_DELAY ? UINT64_MAX : g_kernel.now + ticks;
    self->reads = reads;
    self->writes = writes;
    choose_task();
    wait_for_turn(self);
    self->ready_at = 0;
    self->reads = nullptr;
    self->writes = nullptr;
}

// False when it is too much.
bool heap_take(size_t size)
{
    if (size > g_kernel.heap_free) {
        return false;
    }
    g_kernel.heap_free -= size;
    g_kernel.heap_free_least = std::min(g_kernel.heap_free_least, g_kernel.heap_free);
    return true;
}

void run_task(freertos_double_task *task)
{
    g_kernel.lock.lock();
    wait_for_turn(task);
    task->code(task->parameter);
    std::abort(); // a task never returns
}

} // namespace

extern "C" {

void vPortDefineHeapRegions(const HeapRegion_t *pxHeapRegions)
{
    g_kernel.heap = pxHeapRegions->pucStartAddress;
    for (; pxHeapRegions->xSizeInBytes != 0; pxHeapRegions++) {
        g_kernel.heap_free += pxHeapRegions->xSizeInBytes;
    }
    g_kernel.heap_free_least = g_kernel.heap_free;
}

void *pvPortMalloc(size_t xWantedSize)
{
    if (xWantedSize == 0 || !heap_take(xWantedSize)) {
        return nullptr;
    }
    auto *header = static_cast<block_header *>(std::malloc(sizeof(block_header) + xWantedSize));
    if (header == nullptr) {
        std::abort(); // the host has more than any board
    }
    header->size = xWantedSize;
    return header + 1;
}

void vPortFree(void *pv)
{
    if (pv != nullptr) {
        block_header *header = static_cast<block_header *>(pv) - 1;
        g_kernel.heap_free += header->size;
        std::free(header);
    }
}

size_t xPortGetFreeHeapSize(void)
{
    return g_kernel.heap_free;
}

size_t xPortGetMinimumEverFreeHeapSize(void)
{
    return g_kernel.heap_free_least;
}

// A task that is created while others run waits for its turn, too.
BaseType_t xTaskCreate(TaskFunction_t pxTaskCode, const char * /*pcName*/, configSTACK_DEPTH_TYPE usStackDepth,
                       void *pvParameters, UBaseType_t uxPriority, TaskHandle_t *pxCreatedTask)
{
    const size_t stack_size = usStackDepth * sizeof(StackType_t);
    if (!heap_take(stack_size)) {
        return pdFAIL;
    }
    auto *task = new freertos_double_task;

    task->code = pxTaskCode;
    task->parameter = pvParameters;
    task->priority = uxPriority;
    task->stack_size = stack_size;
    g_kernel.tasks.push_back(task);
    if (pxCreatedTask != nullptr) {
        *pxCreatedTask = task;
    }
    if (g_kernel.running != nullptr) {
        std::thread(run_task, task).detach();
        wait(0, nullptr, nullptr); // in favour of the new one, if it is higher
    }
    return pdPASS;
}

void vTaskStartScheduler(void)
{
    for (freertos_double_task *task : g_kernel.tasks) {
        std::thread(run_task, task).detach();
    }
    g_kernel.lock.lock();
    choose_task();
    g_kernel.lock.unlock();
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1)); // a task ends the program
    }
}

void vTaskDelete(TaskHandle_t /*xTaskToDelete*/)
{
    freertos_double_task *self = g_kernel.running;

    g_kernel.heap_free += self->stack_size;
    g_kernel.tasks.erase(std::find(g_kernel.tasks.begin(), g_kernel.tasks.end(), self));
    choose_task();
    wait_for_turn(self); // which never comes
}

void vTaskDelay(TickType_t xTicksToDelay)
{
    wait(xTicksToDelay, nullptr, nullptr);
}

TickType_t xTaskGetTickCount(void)
{
    return static_cast<TickType_t>(g_kernel.now);
}

TaskHandle_t xTaskGetCurrentTaskHandle(void)
{
    return g_kernel.running;
}

// No thread: when all tasks wait, time goes on.
TaskHandle_t xTaskGetIdleTaskHandle(void)
{
    static freertos_double_task idle;
    idle.stack_size = configMINIMAL_STACK_SIZE * sizeof(StackType_t);
    return &idle;
}

// The threads have stacks of their own: nothing of the one that was asked for is ever used.
UBaseType_t uxTaskGetStackHighWaterMark(TaskHandle_t xTask)
{
    const freertos_double_task *task = xTask != nullptr ? xTask : g_kernel.running;
    return task->stack_size / sizeof(StackType_t);
}

BaseType_t xTaskNotifyGive(TaskHandle_t xTaskToNotify)
{
    xTaskToNotify->notifications++;
    wait(0, nullptr, nullptr); // in favour of a higher one that was waiting
    return pdPASS;
}

uint32_t ulTaskNotifyTake(BaseType_t xClearCountOnExit, TickType_t xTicksToWait)
{
    freertos_double_task *self = g_kernel.running;

    if (self->notifications == 0) {
        self->awaits_notification = true;
        wait(xTicksToWait, nullptr, nullptr);
        self->awaits_notification = false;
    }
    const uint32_t taken = self->notifications;
    if (taken != 0) {
        self->notifications = xClearCountOnExit != pdFALSE ? 0 : taken - 1;
    }
    return taken;
}

QueueHandle_t xQueueCreate(UBaseType_t uxQueueLength, UBaseType_t uxItemSize)
{
    return heap_take(uxQueueLength * uxItemSize) ? new freertos_double_queue{uxQueueLength, uxItemSize, {}} : nullptr;
}

void vQueueDelete(QueueHandle_t xQueue)
{
    g_kernel.heap_free += xQueue->length * xQueue->item_size;
    delete xQueue;
}

BaseType_t xQueueSend(QueueHandle_t xQueue, const void *pvItemToQueue, TickType_t xTicksToWait)
{
    if (xQueue->items.size() >= xQueue->length) {
        wait(xTicksToWait, nullptr, xQueue);
    }
    if (xQueue->items.size() >= xQueue->length) {
        return pdFALSE;
    }
    const auto *item = static_cast<const uint8_t *>(pvItemToQueue);
    xQueue->items.emplace_back(item, item + xQueue->item_size);
    if (g_kernel.running != nullptr) {
        wait(0, nullptr, nullptr); // in favour of a higher one that reads
    }
    return pdTRUE;
}

BaseType_t xQueueReceive(QueueHandle_t xQueue, void *pvBuffer, TickType_t xTicksToWait)
{
    if (xQueue->items.empty()) {
        wait(xTicksToWait, xQueue, nullptr);
    }
    if (xQueue->items.empty()) {
        return pdFALSE;
    }
    memcpy(pvBuffer, xQueue->items.front().data(), xQueue->item_size);
    xQueue->items.pop_front();
    return pdTRUE;
}
}
