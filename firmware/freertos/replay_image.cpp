// Replays one stream of a capture under the kernel. The network's task has the capture and posts each packet when its
// time comes; the service's task owns the service and writes the frames; the application's task starts both and sees
// them off.
//
//     freertos_replay_image CAPTURE OUTPUT SSRC PAYLOAD_TYPE CODEC
//
// The frames are those of `vrc replay CAPTURE -o OUTPUT`. Says how many there were and what they took of stacks and heap
// (footprint.h). Ends with 0; 1 when no frame came out or a packet was dropped on its way to the task; 2 wrong usage; 3
// cannot read or write, or no memory.
#include <cstdio>
#include <cstdlib>

#include <FreeRTOS.h>
#include <task.h>

#include "api/log.h"
#include "capture_clock.h"
#include "footprint.h"
#include "freertos_log.h"
#include "kernel_heap.h"
#include "pcap_reader.h"
#include "replay_options.h"
#include "service_task.h"

namespace
{

constexpr size_t kFileBufferSize = 65536; // bytes
constexpr TickType_t kSettled = 10000;    // after the last packet, milliseconds: longer than any patience
constexpr UBaseType_t kQueueLength = 64;  // datagrams
constexpr uint32_t kApplicationStackWords = 512;
constexpr uint32_t kNetworkStackWords = 512;
constexpr uint32_t kServiceStackWords = 1600;
constexpr UBaseType_t kApplicationPriority = 1;
constexpr UBaseType_t kNetworkPriority = 2;
constexpr UBaseType_t kServicePriority = 3; // takes a datagram as soon as it is posted

struct replay {
    replay_options options;
    pcap_reader capture;
    std::FILE *output;
    TaskHandle_t application;
    rtc_service *service;
    service_task *task;
    uint32_t n_frames;
    bool cannot_write;
    bool has_dropped;
};

void take_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<replay *>(context);
    self->n_frames++;
    if (std::fwrite(frame->data, 1, frame->size, self->output) != frame->size) {
        self->cannot_write = true;
    }
}

// Nobody is there to be asked.
void drop_request(void * /*context*/, const uint8_t * /*datagram*/, size_t /*size*/)
{
}

void write_log(const char *text, size_t size)
{
    (void)std::fwrite(text, 1, size, stderr);
}

// In the service task, as the last thing it does.
void service_stopped(void *context)
{
    footprint_take_stack(nullptr, "service", kServiceStackWords);
    xTaskNotifyGive(static_cast<replay *>(context)->application);
}

void wait_until(TickType_t due)
{
    const auto ahead = static_cast<TickType_t>(due - xTaskGetTickCount());
    if (ahead != 0 && ahead <= portMAX_DELAY / 2) {
        vTaskDelay(ahead);
    }
}

void run_network(void *parameter)
{
    auto *self = static_cast<replay *>(parameter);
    const TickType_t start = xTaskGetTickCount();
    vrc::capture_clock clock;
    captured_packet packet = {};
    while (self->capture.next(&packet)) {
        const uint64_t elapsed_us = clock.advance(packet.stamp_us);
        if (packet.payload == nullptr) {
            continue;
        }
        const bool is_rtp = replay_options_match(self->options, packet);
        if (!is_rtp && !vrc::rtcp_concerns(packet.payload, packet.size, self->options.stream.ssrc)) {
            continue;
        }
        wait_until(start + static_cast<TickType_t>(elapsed_us * configTICK_RATE_HZ / 1000000));
        service_task_post(self->task, is_rtp ? SERVICE_TASK_RTP : SERVICE_TASK_RTCP, packet.payload, packet.size,
                          portMAX_DELAY);
    }
    vTaskDelay(kSettled * configTICK_RATE_HZ / 1000);
    self->has_dropped = service_task_dropped(self->task) != 0;
    service_task_stop(self->task);
    footprint_take_stack(nullptr, "network", kNetworkStackWords);
    vTaskDelete(nullptr);
}

rtc_channel *make_channel(replay *self)
{
    channel_config config = {};
    config.name = "replay";
    config.on_frame = take_frame;
    config.on_frame_context = self;
    config.feedback.nack = true;
    config.feedback.pli = true;
    config.feedback.reduced_size = true;
    config.on_rtcp = drop_request;
    self->service = rtc_service_create();
    rtc_channel *channel = self->service != nullptr ? rtc_channel_create(self->service, &config) : nullptr;
    if (channel != nullptr) {
        rtc_channel_set_payload_type(channel, self->options.stream.payload_type, self->options.codec);
    }
    return channel;
}

bool start_tasks(replay *self)
{
    rtc_channel *channel = make_channel(self);
    if (channel == nullptr) {
        return false;
    }
    const service_task_config config = {self->service,    channel,         kQueueLength, kServiceStackWords,
                                        kServicePriority, service_stopped, self};
    self->task = service_task_create(&config);
    return self->task != nullptr &&
           xTaskCreate(run_network, "network", kNetworkStackWords, self, kNetworkPriority, nullptr) == pdPASS;
}

int finish(replay *self)
{
    rtc_service_destroy(self->service);
    if (std::fclose(self->output) != 0 || self->cannot_write) {
        std::fputs("freertos_replay_image: cannot write the frames\n", stderr);
        return 3;
    }
    (void)std::printf("frames %lu\n", static_cast<unsigned long>(self->n_frames));
    footprint_write("application", kApplicationStackWords);
    return self->n_frames > 0 && !self->has_dropped ? 0 : 1;
}

void run_application(void *parameter)
{
    auto *self = static_cast<replay *>(parameter);
    self->application = xTaskGetCurrentTaskHandle();
    footprint_begin();
    if (!start_tasks(self)) {
        std::fputs("freertos_replay_image: no memory\n", stderr);
        std::exit(3);
    }
    (void)ulTaskNotifyTake(pdTRUE, portMAX_DELAY); // until the service has stopped
    std::exit(finish(self));
}

} // namespace

int main(int argc, char **argv)
{
    static replay self; // too large for the stack
    static char output_buffer[kFileBufferSize];
    if (!replay_options_read(argc, argv, &self.options)) {
        std::fputs("usage: freertos_replay_image CAPTURE OUTPUT SSRC PAYLOAD_TYPE h264|h265\n", stderr);
        return 2;
    }
    self.output = std::fopen(self.options.output, "wb");
    if (self.output == nullptr || !self.capture.open(self.options.capture)) {
        std::fputs("freertos_replay_image: cannot read the capture, or write the frames\n", stderr);
        return 3;
    }
    std::setvbuf(self.output, output_buffer, _IOFBF, sizeof(output_buffer));
    kernel_heap_start();
    freertos_log_start(write_log);
    rtc_log_set_level(RTC_LOG_DEFAULT);
    if (xTaskCreate(run_application, "application", kApplicationStackWords, &self, kApplicationPriority, nullptr) ==
        pdPASS) {
        vTaskStartScheduler();
    }
    std::fputs("freertos_replay_image: no memory\n", stderr);
    return 3;
}
