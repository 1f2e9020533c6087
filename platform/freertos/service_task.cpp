#include "service_task.h"

#include <cstring>

#include <queue.h>
#include <task.h>

#include "freertos_clock.h"

// A tick that is late by more than this is not made up for one by one, milliseconds.
constexpr zeb_ts_t kLateTicksMax = 1000;
constexpr size_t kDatagramMax = 65535; // bytes
constexpr uint8_t kStop = 0xFF;

struct posted_datagram {
    uint8_t *bytes; // owned by whoever holds the record
    size_t size;
    TickType_t arrived_at;
    uint8_t kind; // service_task_kind or kStop
};

struct service_task {
    service_task_config config;
    QueueHandle_t queue; // of posted_datagram
    freertos_clock clock;
    zeb_ts_t now;     // never goes back
    zeb_ts_t next_at; // of the service tick
    uint32_t dropped; // the poster's
};

static void __tick(service_task *self, zeb_ts_t time)
{
    self->now = time;
    const zeb_ts_t next_at = rtc_service_tick(self->config.service, &self->now);
    self->next_at = next_at > time ? next_at : time + 1;
}

// Lives up to `time`, with the ticks that fall into it, each at its own time: what comes out does not depend on how
// promptly the task runs.
static void __advance(service_task *self, zeb_ts_t time)
{
    if (time > self->next_at + kLateTicksMax) {
        __tick(self, time);
    }
    while (self->next_at <= time) {
        __tick(self, self->next_at);
    }
    self->now = time > self->now ? time : self->now;
}

static void __take(service_task *self, const posted_datagram *datagram)
{
    rtc_channel *channel = self->config.channel;
    if (datagram->kind == SERVICE_TASK_RTCP) {
        rtc_channel_receive_rtcp(channel, datagram->bytes, datagram->size, &self->now);
    } else {
        rtc_channel_receive_rtp(channel, datagram->bytes, datagram->size, false, &self->now);
    }
}

// A time that is past is now: no tick goes back behind what has been taken in.
static void __tick_sooner(service_task *self, zeb_ts_t time)
{
    const zeb_ts_t soonest = time > self->now ? time : self->now;
    self->next_at = soonest < self->next_at ? soonest : self->next_at;
}

// Waits for a datagram or the next tick. Returns false when the task is to end.
static bool __step(service_task *self)
{
    posted_datagram datagram = {};
    if (xQueueReceive(self->queue, &datagram, freertos_clock_until(&self->clock, self->next_at)) != pdTRUE) {
        __advance(self, freertos_clock_at(&self->clock, xTaskGetTickCount()));
        return true;
    }
    __advance(self, freertos_clock_at(&self->clock, datagram.arrived_at));
    if (datagram.kind == kStop) {
        return false;
    }
    __take(self, &datagram);
    __tick_sooner(self, rtc_service_next_at(self->config.service));
    zeb_free_impl(datagram.bytes);
    return true;
}

static void __release(service_task *self)
{
    if (self->queue != nullptr) {
        vQueueDelete(self->queue);
    }
    zeb_free_impl(self);
}

static void __run(void *parameter)
{
    auto *self = static_cast<service_task *>(parameter);
    __advance(self, freertos_clock_at(&self->clock, xTaskGetTickCount()));
    while (__step(self)) {
    }
    const service_task_config config = self->config;
    __release(self);
    if (config.on_stopped != nullptr) {
        config.on_stopped(config.context);
    }
    vTaskDelete(nullptr);
}

service_task *service_task_create(const service_task_config *config)
{
    auto *self = static_cast<service_task *>(zeb_malloc_impl_dbg(sizeof(service_task), __func__, __LINE__));
    if (self == nullptr) {
        return nullptr;
    }
    memset(self, 0, sizeof *self);
    self->config = *config;
    self->clock.ticks = xTaskGetTickCount();
    self->queue = xQueueCreate(config->queue_length, sizeof(posted_datagram));
    if (self->queue == nullptr ||
        xTaskCreate(__run, "service", config->stack_depth, self, config->priority, nullptr) != pdPASS) {
        __release(self);
        return nullptr;
    }
    return self;
}

static bool __post(service_task *self, const uint8_t *bytes, size_t size, uint8_t kind, TickType_t patience)
{
    posted_datagram datagram = {nullptr, size, xTaskGetTickCount(), kind};
    if (size != 0) {
        datagram.bytes = static_cast<uint8_t *>(zeb_malloc_impl_dbg(size, __func__, __LINE__));
        if (datagram.bytes == nullptr) {
            return false;
        }
        memcpy(datagram.bytes, bytes, size);
    }
    if (xQueueSend(self->queue, &datagram, patience) != pdTRUE) {
        zeb_free_impl(datagram.bytes);
        return false;
    }
    return true;
}

int service_task_post(service_task *self, service_task_kind kind, const uint8_t *datagram, size_t size,
                      TickType_t patience)
{
    if (size == 0 || size > kDatagramMax || !__post(self, datagram, size, static_cast<uint8_t>(kind), patience)) {
        self->dropped++;
        return -1;
    }
    return 0;
}

void service_task_stop(service_task *self)
{
    while (!__post(self, nullptr, 0, kStop, portMAX_DELAY)) {
    }
}

uint32_t service_task_dropped(const service_task *self)
{
    return self->dropped;
}
