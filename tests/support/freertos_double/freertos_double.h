// The test's side of the kernel that tests put in place of FreeRTOS. It has no threads: the one task runs when the test
// lets it, and while it waits for its queue the time goes on to whatever comes next, which may be what another task
// does.
#pragma once

#include <functional>
#include <string>

#include <FreeRTOS.h>

namespace freertos_double
{

struct created_task {
    TaskFunction_t code;
    void *parameter;
    std::string name;
    uint32_t stack_depth;
    UBaseType_t priority;
    bool is_deleted;
};

// Forgets everything; the count of ticks is `tick`.
void start(TickType_t tick = 0);

TickType_t now();

// Lets time pass in which no other task does anything: what a call takes.
void spend(TickType_t ticks);

// What another task does at that many ticks from now. Runs in the order of time, then of these calls.
void after(TickType_t ticks, std::function<void()> action);

// The task that was created last; null when there is none.
const created_task *task();

// Runs that task until it has deleted itself.
void run_task();

// Blocks of the kernel's heap in use, queues and tasks included.
long blocks_in_use();

// Lets the nth request for memory from now on fail; 0: none.
void fail_request(int nth);

} // namespace freertos_double
