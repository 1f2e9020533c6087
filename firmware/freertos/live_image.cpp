// Receives one sender over the board's Ethernet under the kernel, RTP and RTCP on one port:
//
//     freertos_live_image OUTPUT PORT SSRC PAYLOAD_TYPE CODEC
//
// lwIP's task posts datagrams to the service's task, which writes the frames to the host's file OUTPUT and sends its RTCP
// back. The application's task ends all that when the sender has said BYE and nothing is waited for any more, with the
// counts on the console and what it took of stacks and heap (footprint.h). CODEC is h264 or h265. Ends with 0; 1 when no
// frame came out or a datagram was dropped on its way to the task; 2 wrong usage; 3 cannot write, or no network.
#include <cstdio>
#include <cstdlib>

#include <FreeRTOS.h>
#include <task.h>

#include "api/log.h"
#include "footprint.h"
#include "freertos_log.h"
#include "kernel_heap.h"
#include "kernel_network.h"
#include "live_client.h"
#include "service_task.h"

namespace
{

constexpr UBaseType_t kQueueLength = 64; // datagrams
constexpr uint32_t kApplicationStackWords = 512;
constexpr uint32_t kServiceStackWords = 1600;
constexpr UBaseType_t kApplicationPriority = 1;
constexpr UBaseType_t kServicePriority = 2; // below the network's, which must not lose frames
constexpr TickType_t kLookInterval = pdMS_TO_TICKS(100);

struct receiver {
    live_options options;
    live_client client; // the service task's while that runs
    bool has_left;      // the sender; the same
    service_task *task;
    TaskHandle_t application;
};

// In lwIP's task, which does not wait.
void take_datagram(void *context, const uint8_t *datagram, size_t size)
{
    auto *self = static_cast<receiver *>(context);
    service_task_post(self->task, live_is_rtcp(datagram, size) ? SERVICE_TASK_RTCP : SERVICE_TASK_RTP, datagram, size,
                      0);
}

void take_rtcp(void * /*context*/, const uint8_t *datagram, size_t size)
{
    network_answer(datagram, size);
}

void write_log(const char *text, size_t size)
{
    (void)std::fwrite(text, 1, size, stderr);
}

// In the service task: tells the application when the sender has left.
void look_for_bye(void *context)
{
    auto *self = static_cast<receiver *>(context);
    const stream_report *report = live_client_report(self->client);
    if (!self->has_left && report != nullptr && report->byes > 0) {
        self->has_left = true;
        xTaskNotifyGive(self->application);
    }
}

// In the service task, as the last thing it does.
void service_stopped(void *context)
{
    footprint_take_stack(nullptr, "service", kServiceStackWords);
    xTaskNotifyGive(static_cast<receiver *>(context)->application);
}

bool start(receiver *self)
{
    if (!live_client_start(&self->client, self->options, take_rtcp)) {
        return false;
    }
    const service_task_config config = {
        self->client.service, self->client.channel, kQueueLength, kServiceStackWords,
        kServicePriority,     service_stopped,      self,
    };
    self->task = service_task_create(&config);
    return self->task != nullptr && network_open(self->options.port, take_datagram, self);
}

void live(receiver *self)
{
    while (ulTaskNotifyTake(pdTRUE, kLookInterval) == 0) {
        (void)service_task_call(self->task, look_for_bye, self, 0); // when there is no place, at the next look
    }
    vTaskDelay(pdMS_TO_TICKS(kLiveSettled));
}

// Returns the image's exit status.
int finish(receiver *self)
{
    network_close();
    const uint32_t n_dropped = service_task_dropped(self->task);
    service_task_stop(self->task);
    (void)ulTaskNotifyTake(pdTRUE, portMAX_DELAY);
    const int status = live_client_finish(&self->client);
    network_take_stacks();
    footprint_write("application", kApplicationStackWords);
    return status == 0 && n_dropped != 0 ? 1 : status;
}

// lwIP's tasks never end: what they have is no part of the footprint that has to be given back.
void run_application(void *parameter)
{
    auto *self = static_cast<receiver *>(parameter);
    self->application = xTaskGetCurrentTaskHandle();
    const bool is_up = network_start();
    footprint_begin();
    if (!is_up || !start(self)) {
        std::fputs("freertos_live_image: no network, or no memory\n", stderr);
        std::exit(3);
    }
    std::puts("listening");
    live(self);
    std::exit(finish(self));
}

} // namespace

int main(int argc, char **argv)
{
    static receiver self;
    if (!live_options_read(argc, argv, &self.options)) {
        std::fputs("usage: freertos_live_image OUTPUT PORT SSRC PAYLOAD_TYPE h264|h265\n", stderr);
        return 2;
    }
    if (!live_client_open(&self.client, self.options)) {
        std::fprintf(stderr, "freertos_live_image: cannot write %s\n", self.options.output);
        return 3;
    }
    kernel_heap_start();
    freertos_log_start(write_log);
    rtc_log_set_level(RTC_LOG_DEFAULT);
    if (xTaskCreate(run_application, "application", kApplicationStackWords, &self, kApplicationPriority, nullptr) ==
        pdPASS) {
        vTaskStartScheduler();
    }
    std::fputs("freertos_live_image: no memory\n", stderr);
    return 3;
}
