#include "service_task.h"

#include <cstring>

#include <queue.h>
#include <task.h>

#include "freertos_clock.h"

namespace
{

// A tick that is late by more than this is not made up for one by one, milliseconds.
constexpr zeb_ts_t kLateTicksMax = 1000;
constexpr size_t kDatagramMax = 65535; // bytes
constexpr uint8_t kCall = 0xFE;
constexpr uint8_t kStop = 0xFF;

struct posting {
    uint8_t kind; // service_task_kind, kCall or kStop
    TickType_t posted_at;
    uint8_t *bytes; // of a datagram, owned by whoever holds the record
    size_t size;
    service_task_work work; // of kCall
    void *context;
};

} // namespace

struct service_task {
    service_task_config config;
    QueueHandle_t queue; // of posting
    freertos_clock clock;
    zeb_ts_t now;     // never goes back
    zeb_ts_t next_at; // of the service tick
    uint32_t dropped; // the poster's
};

namespace
{

void service_tick_at(service_task *self, zeb_ts_t time)
{
    self->now = time;
    const zeb_ts_t next_at = rtc_service_tick(self->config.service, &self->now);
    self->next_at = next_at > time ? next_at : time + 1;
}

// Lives up to `time`, with the ticks that fall into it, each at its own time: what comes out does not depend on how
// promptly the task runs.
void time_advance(service_task *self, zeb_ts_t time)
{
    if (time > self->next_at + kLateTicksMax) {
        service_tick_at(self, time);
    }
    while (self->next_at <= time) {
        service_tick_at(self, self->next_at);
    }
    self->now = time > self->now ? time : self->now;
}

void datagram_take(service_task *self, const posting *taken)
{
    rtc_channel *channel = self->config.channel;
    switch (taken->kind) {
    case SERVICE_TASK_RTP:
        rtc_channel_receive_rtp(channel, taken->bytes, taken->size, false, &self->now);
        break;
    case SERVICE_TASK_RTCP:
        rtc_channel_receive_rtcp(channel, taken->bytes, taken->size, &self->now);
        break;
    default:
        taken->work(taken->context);
        break;
    }
    zeb_free_impl(taken->bytes);
}

// A time that is past is now: no tick goes back behind what has been taken in.
void tick_sooner(service_task *self, zeb_ts_t time)
{
    const zeb_ts_t soonest = time > self->now ? time : self->now;
    self->next_at = soonest < self->next_at ? soonest : self->next_at;
}

// Waits for what is posted or the next tick. Returns false when the task is to end.
bool task_step(service_task *self)
{
    posting taken = {};
    if (xQueueReceive(self->queue, &taken, freertos_clock_until(&self->clock, self->next_at)) != pdTRUE) {
        time_advance(self, freertos_clock_at(&self->clock, xTaskGetTickCount()));
        return true;
    }
    time_advance(self, freertos_clock_at(&self->clock, taken.posted_at));
    if (taken.kind == kStop) {
        return false;
    }
    datagram_take(self, &taken);
    tick_sooner(self, rtc_service_next_at(self->config.service));
    return true;
}

void task_release(service_task *self)
{
    if (self->queue != nullptr) {
        vQueueDelete(self->queue);
    }
    zeb_free_impl(self);
}

void task_run(void *parameter)
{
    auto *self = static_cast<service_task *>(parameter);
    time_advance(self, freertos_clock_at(&self->clock, xTaskGetTickCount()));
    while (task_step(self)) {
    }
    const service_task_config config = self->config;
    task_release(self);
    if (config.on_stopped != nullptr) {
        config.on_stopped(config.context);
    }
    vTaskDelete(nullptr);
}

} // namespace

service_task *service_task_create(const service_task_config *config)
{
    auto *self = static_cast<service_task *>(zeb_malloc_impl_dbg(sizeof(service_task), __func__, __LINE__));
    if (self == nullptr) {
        return nullptr;
    }
    memset(self, 0, sizeof *self);
    self->config = *config;
    self->clock.ticks = xTaskGetTickCount();
    self->queue = xQueueCreate(config->queue_length, sizeof(posting));
    if (self->queue == nullptr ||
        xTaskCreate(task_run, "service", config->stack_depth, self, config->priority, nullptr) != pdPASS) {
        task_release(self);
        return nullptr;
    }
    return self;
}

namespace
{

bool datagram_post(service_task *self, const posting *sent, TickType_t patience)
{
    return xQueueSend(self->queue, sent, patience) == pdTRUE;
}

bool post_copy(service_task *self, uint8_t kind, const uint8_t *bytes, size_t size, TickType_t patience)
{
    posting sent = {kind, xTaskGetTickCount(), nullptr, size, nullptr, nullptr};
    sent.bytes = static_cast<uint8_t *>(zeb_malloc_impl_dbg(size, __func__, __LINE__));
    if (sent.bytes == nullptr) {
        return false;
    }
    memcpy(sent.bytes, bytes, size);
    if (!datagram_post(self, &sent, patience)) {
        zeb_free_impl(sent.bytes);
        return false;
    }
    return true;
}

} // namespace

int service_task_post(service_task *self, service_task_kind kind, const uint8_t *datagram, size_t size,
                      TickType_t patience)
{
    const bool is_sized = size != 0 && size <= kDatagramMax;
    if (!is_sized || !post_copy(self, static_cast<uint8_t>(kind), datagram, size, patience)) {
        self->dropped++;
        return -1;
    }
    return 0;
}

int service_task_call(service_task *self, service_task_work work, void *context, TickType_t patience)
{
    const posting sent = {kCall, xTaskGetTickCount(), nullptr, 0, work, context};
    return datagram_post(self, &sent, patience) ? 0 : -1;
}

void service_task_stop(service_task *self)
{
    const posting sent = {kStop, xTaskGetTickCount(), nullptr, 0, nullptr, nullptr};
    while (!datagram_post(self, &sent, portMAX_DELAY)) {
    }
}

uint32_t service_task_dropped(const service_task *self)
{
    return self->dropped;
}
