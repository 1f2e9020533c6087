// One task that owns a service. The network hands datagrams over through a queue; everything else, the callbacks of the
// application among it, happens in the task, so that nothing of the client needs a lock.
#pragma once

#include "api/channel.h"
#include "api/service.h"

#include <FreeRTOS.h>

struct service_task;

struct service_task_config {
    rtc_service *service;               // stays the caller's, who must not touch it again before `on_stopped`
    rtc_channel *channel;               // one of the service's: takes all datagrams
    UBaseType_t queue_length;           // datagrams that may wait
    configSTACK_DEPTH_TYPE stack_depth; // words; docs/porting.md says how many
    UBaseType_t priority;
    void (*on_stopped)(void *context); // in the task, as the last thing it does; may be null
    void *context;
};

enum service_task_kind {
    SERVICE_TASK_RTP,
    SERVICE_TASK_RTCP
};

// What service_task_call has run, in the task.
using service_task_work = void (*)(void *context);

// Creates the queue and the task, which starts at once when the scheduler runs. Null without memory.
service_task *service_task_create(const service_task_config *config);

// Hands a datagram over, of which a copy is made; its time of arrival is now. To be called by one task, the one that
// has the network, and by no interrupt. Waits up to `patience` ticks for a place in the queue. Returns
//   0   it waits for the service task
//   -1  dropped and counted: the queue is full, there is no memory, or `size` is 0 or above 65,535.
int service_task_post(service_task *self, service_task_kind kind, const uint8_t *datagram, size_t size,
                      TickType_t patience);

// Has `work` run in the task, behind all that was posted before: this is how other tasks look at the service, or change
// it. To be called by any task, and by no interrupt. Waits up to `patience` ticks for a place in the queue. Returns
//   0   it waits for the service task
//   -1  it will not run: the queue is full.
int service_task_call(service_task *self, service_task_work work, void *context, TickType_t patience);

// Ends the task after all that was posted before, and releases the queue and the record. Nobody posts or calls any more
// when this is called. By a task, and no interrupt; waits for as long as it takes.
void service_task_stop(service_task *self);

// Datagrams that service_task_post dropped.
uint32_t service_task_dropped(const service_task *self);
