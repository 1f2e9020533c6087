// Replays one stream of a capture on the board, by the capture's own time:
//
//     replay_image CAPTURE OUTPUT SSRC PAYLOAD_TYPE CODEC
//
// writes the frames to the host's file OUTPUT and the counts to the console, as `vrc replay CAPTURE -o OUTPUT --counts`
// does for that stream. CODEC is h264 or h265. Ends with 0; 1 when no frame came out; 2 wrong usage; 3 cannot read or
// write.
#include <cstdio>

#include "api/log.h"
#include "capture_clock.h"
#include "pcap_reader.h"
#include "replay_counts.h"
#include "replay_options.h"
#include "replay_player.h"

namespace
{

constexpr size_t kFileBufferSize = 65536; // bytes; each call of the host takes as long as thousands of instructions

bool frame_write(void *context, const channel_frame *frame)
{
    return std::fwrite(frame->data, 1, frame->size, static_cast<std::FILE *>(context)) == frame->size;
}

void replay(pcap_reader *capture, const replay_options &what, vrc::replay_player *player)
{
    vrc::capture_clock clock;
    captured_packet packet = {};
    while (!player->is_stopped() && capture->next(&packet)) {
        const uint64_t elapsed_us = clock.advance(packet.stamp_us);
        if (packet.payload == nullptr) {
            continue;
        }
        if (replay_options_match(what, packet)) {
            player->advance(elapsed_us);
            player->receive_rtp(packet.payload, packet.size);
        } else if (vrc::rtcp_concerns(packet.payload, packet.size, what.stream.ssrc)) {
            player->advance(elapsed_us);
            player->receive_rtcp(packet.payload, packet.size);
        }
    }
    player->settle();
}

// Returns how many frames came out.
uint64_t counts_print(const vrc::replay_player &player)
{
    static const stream_report nothing = {};
    const stream_report *report = player.report();
    const vrc::replay_counts counts = {report != nullptr ? report : &nothing, player.packets_refused(),
                                       player.silence_skipped()};
    vrc::replay_counts_write(
        counts, [](void * /*context*/, const char *line) { std::fputs(line, stdout); }, nullptr);
    return counts.report->frames;
}

int run(const replay_options &what)
{
    static pcap_reader capture; // too large for the stack
    static char output_buffer[kFileBufferSize];
    std::FILE *output = std::fopen(what.output, "wb");
    if (output == nullptr || !capture.open(what.capture)) {
        std::fprintf(stderr, "replay_image: cannot read %s as a capture, or write %s\n", what.capture, what.output);
        return 3;
    }
    std::setvbuf(output, output_buffer, _IOFBF, sizeof(output_buffer));
    vrc::replay_player player(what.stream.ssrc, false, frame_write, output);
    if (player.channel() == nullptr) {
        std::fputs("replay_image: no memory\n", stderr);
        return 3;
    }
    rtc_channel_set_payload_type(player.channel(), what.stream.payload_type, what.codec);
    replay(&capture, what, &player);
    if (std::fclose(output) != 0 || player.is_stopped()) {
        std::fprintf(stderr, "replay_image: cannot write %s\n", what.output);
        return 3;
    }
    return counts_print(player) > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    replay_options what = {};
    if (!replay_options_read(argc, argv, &what)) {
        std::fputs("usage: replay_image CAPTURE OUTPUT SSRC PAYLOAD_TYPE h264|h265\n", stderr);
        return 2;
    }
    rtc_log_set_level(RTC_LOG_DEFAULT);
    return run(what);
}
