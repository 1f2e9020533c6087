#include "live_client.h"

#include <cstdlib>
#include <cstring>

#include "replay_counts.h"

namespace
{

constexpr size_t kFileBufferSize = 65536; // bytes; each call of the host takes as long as thousands of instructions

void take_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<live_client *>(context);
    self->cannot_write = self->cannot_write || std::fwrite(frame->data, 1, frame->size, self->output) != frame->size;
}

} // namespace

bool live_options_read(int argc, char **argv, live_options *read)
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

bool live_is_rtcp(const uint8_t *datagram, size_t size)
{
    return size >= 2 && datagram[1] >= 192 && datagram[1] <= 223;
}

bool live_client_open(live_client *self, const live_options &what)
{
    static char buffer[kFileBufferSize];
    self->output = std::fopen(what.output, "wb");
    if (self->output == nullptr) {
        return false;
    }
    std::setvbuf(self->output, buffer, _IOFBF, sizeof(buffer));
    return true;
}

bool live_client_start(live_client *self, const live_options &what, channel_rtcp_callback on_rtcp)
{
    channel_config config = {"live", false, take_frame, self};
    config.feedback.reports = true;
    config.feedback.nack = true;
    config.feedback.pli = true;
    config.feedback.reduced_size = true;
    config.on_rtcp = on_rtcp;
    config.local_ssrc = 0x0B0A4D00;
    config.cname = "board";
    self->ssrc = what.ssrc;
    self->service = rtc_service_create();
    self->channel = self->service != nullptr ? rtc_channel_create(self->service, &config) : nullptr;
    if (self->channel == nullptr) {
        return false;
    }
    rtc_channel_set_payload_type(self->channel, what.payload_type, what.codec);
    return true;
}

const stream_report *live_client_report(const live_client &self)
{
    const user_video_stream *stream = rtc_channel_find_stream(self.channel, self.ssrc, 0);
    return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
}

int live_client_finish(live_client *self)
{
    if (std::fclose(self->output) != 0 || self->cannot_write) {
        std::fputs("cannot write the frames\n", stderr);
        return 3;
    }
    const stream_report *report = live_client_report(*self);
    const vrc::replay_counts counts = {report, rtc_channel_packets_refused(self->channel), 0};
    vrc::replay_counts_write(
        counts, [](void * /*context*/, const char *line) { std::fputs(line, stdout); }, nullptr);
    const bool has_frames = report->frames > 0;
    rtc_service_destroy(self->service);
    return has_frames ? 0 : 1;
}
