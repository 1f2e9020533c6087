// Receives one sender over the board's Ethernet, RTP and RTCP on one port:
//
//     live_image OUTPUT PORT SSRC PAYLOAD_TYPE CODEC
//
// writes the frames to the host's file OUTPUT, sends its RTCP back, and ends when the sender has said BYE and nothing is
// waited for any more, with the counts on the console. CODEC is h264 or h265. Ends with 0; 1 when no frame came out; 2
// wrong usage; 3 cannot write, or no network.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "board_clock.h"
#include "channel.h"
#include "log.h"
#include "network.h"
#include "replay_counts.h"
#include "service.h"

namespace
{

// The service's time at the clock's 0, milliseconds. Not 0, which stands for "never" here and there.
constexpr zeb_ts_t kStart = 10'000;

// After the BYE: longer than the receiver waits for what is missing.
constexpr zeb_ts_t kSettled = 2'100;

constexpr size_t kFileBufferSize = 65536; // bytes

struct options {
    const char *output;
    uint16_t port;
    uint32_t ssrc;
    uint8_t payload_type;
    uint8_t codec;
};

struct receiver {
    std::FILE *output;
    uint32_t ssrc;
    rtc_service *service;
    rtc_channel *channel;
    bool is_failed; // a frame could not be written
};

bool options_read(int argc, char **argv, options *read)
{
    if (argc != 6) {
        return false;
    }
    read->output = argv[1];
    read->port = static_cast<uint16_t>(std::strtoul(argv[2], nullptr, 0));
    read->ssrc = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 0));
    read->payload_type = static_cast<uint8_t>(std::strtoul(argv[4], nullptr, 0));
    read->codec = std::strcmp(argv[5], "h265") == 0 ? VIDEO_TYPE_H265 : VIDEO_TYPE_H264;
    return read->codec == VIDEO_TYPE_H265 || std::strcmp(argv[5], "h264") == 0;
}

zeb_ts_t now()
{
    return kStart + board_clock_now();
}

// RTCP on the port of RTP is told by its type (RFC 5761, 4).
bool is_rtcp(const uint8_t *datagram, size_t size)
{
    return size >= 2 && datagram[1] >= 192 && datagram[1] <= 223;
}

void take_datagram(void *context, const uint8_t *datagram, size_t size)
{
    const receiver *self = static_cast<receiver *>(context);
    const zeb_ts_t at = now();
    if (is_rtcp(datagram, size)) {
        rtc_channel_receive_rtcp(self->channel, datagram, size, &at);
    } else {
        rtc_channel_receive_rtp(self->channel, datagram, size, false, &at);
    }
}

void take_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<receiver *>(context);
    self->is_failed = self->is_failed || std::fwrite(frame->data, 1, frame->size, self->output) != frame->size;
}

void take_rtcp(void * /*context*/, const uint8_t *datagram, size_t size)
{
    network_answer(datagram, size);
}

bool receiver_start(receiver *self, const options &what)
{
    channel_config config = {"live", false, take_frame, self};
    config.feedback.reports = true;
    config.feedback.nack = true;
    config.feedback.pli = true;
    config.feedback.reduced_size = true;
    config.on_rtcp = take_rtcp;
    config.local_ssrc = 0x0B0A4D00;
    config.cname = "board";
    self->ssrc = what.ssrc;
    self->service = rtc_service_create();
    self->channel = self->service != nullptr ? rtc_channel_create(self->service, &config) : nullptr;
    if (self->channel == nullptr) {
        return false;
    }
    rtc_channel_set_payload_type(self->channel, what.payload_type, what.codec);
    return network_start(what.port, take_datagram, self);
}

const stream_report *report_of(const receiver &self)
{
    const user_video_stream *stream = rtc_channel_find_stream(self.channel, self.ssrc, 0);
    return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
}

// The service loop, until the sender has left.
void live(const receiver &self)
{
    zeb_ts_t next_tick = now();
    zeb_ts_t left_at = 0; // 0: it has not
    while (left_at == 0 || now() - left_at < kSettled) {
        network_poll();
        const zeb_ts_t at = now();
        if (at >= std::min(next_tick, rtc_service_next_at(self.service))) {
            next_tick = rtc_service_tick(self.service, &at);
            const stream_report *report = report_of(self);
            left_at = left_at == 0 && report != nullptr && report->byes > 0 ? at : left_at;
        }
    }
}

int run(const options &what)
{
    static char output_buffer[kFileBufferSize];
    receiver self = {};
    self.output = std::fopen(what.output, "wb");
    if (self.output == nullptr) {
        std::fprintf(stderr, "live_image: cannot write %s\n", what.output);
        return 3;
    }
    std::setvbuf(self.output, output_buffer, _IOFBF, sizeof(output_buffer));
    board_clock_start();
    if (!receiver_start(&self, what)) {
        std::fputs("live_image: no network, or no memory\n", stderr);
        return 3;
    }
    std::puts("listening");
    live(self);
    if (std::fclose(self.output) != 0 || self.is_failed) {
        std::fprintf(stderr, "live_image: cannot write %s\n", what.output);
        return 3;
    }
    const stream_report *report = report_of(self);
    const vrc::replay_counts counts = {report, rtc_channel_packets_refused(self.channel), 0};
    vrc::replay_counts_write(
        counts, [](void * /*context*/, const char *line) { std::fputs(line, stdout); }, nullptr);
    const bool has_frames = report->frames > 0;
    rtc_service_destroy(self.service);
    return has_frames ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    options what = {};
    if (!options_read(argc, argv, &what)) {
        std::fputs("usage: live_image OUTPUT PORT SSRC PAYLOAD_TYPE h264|h265\n", stderr);
        return 2;
    }
    rtc_log_set_level(RTC_LOG_DEFAULT);
    return run(what);
}
