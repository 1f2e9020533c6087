// Receives one sender over the board's Ethernet, RTP and RTCP on one port:
//
//     live_image OUTPUT PORT SSRC PAYLOAD_TYPE CODEC
//
// writes the frames to the host's file OUTPUT, sends its RTCP back, and ends when the sender has said BYE and nothing is
// waited for any more, with the counts on the console. CODEC is h264 or h265. Ends with 0; 1 when no frame came out; 2
// wrong usage; 3 cannot write, or no network.
#include <algorithm>
#include <cstdio>

#include "api/log.h"
#include "board_clock.h"
#include "live_client.h"
#include "network.h"

namespace
{

// The service's time at the clock's 0, milliseconds. Not 0, which stands for "never" here and there.
constexpr zeb_ts_t kStart = 10'000;

zeb_ts_t now()
{
    return kStart + board_clock_now();
}

void take_datagram(void *context, const uint8_t *datagram, size_t size)
{
    const live_client *self = static_cast<live_client *>(context);
    const zeb_ts_t at = now();
    if (live_is_rtcp(datagram, size)) {
        rtc_channel_receive_rtcp(self->channel, datagram, size, &at);
    } else {
        rtc_channel_receive_rtp(self->channel, datagram, size, false, &at);
    }
}

void take_rtcp(void * /*context*/, const uint8_t *datagram, size_t size)
{
    udp_port_answer(datagram, size);
}

// The service loop, until the sender has left.
void live(const live_client &self)
{
    zeb_ts_t next_tick = now();
    zeb_ts_t left_at = 0; // 0: it has not
    while (left_at == 0 || now() - left_at < kLiveSettled) {
        network_poll();
        const zeb_ts_t at = now();
        if (at >= std::min(next_tick, rtc_service_next_at(self.service))) {
            next_tick = rtc_service_tick(self.service, &at);
            const stream_report *report = live_client_report(self);
            left_at = left_at == 0 && report != nullptr && report->byes > 0 ? at : left_at;
        }
    }
}

int run(const live_options &what)
{
    live_client self = {};
    if (!live_client_open(&self, what)) {
        std::fprintf(stderr, "live_image: cannot write %s\n", what.output);
        return 3;
    }
    board_clock_start();
    if (!live_client_start(&self, what, take_rtcp) || !network_start(what.port, take_datagram, &self)) {
        std::fputs("live_image: no network, or no memory\n", stderr);
        return 3;
    }
    std::puts("listening");
    live(self);
    return live_client_finish(&self);
}

} // namespace

int main(int argc, char **argv)
{
    live_options what = {};
    if (!live_options_read(argc, argv, &what)) {
        std::fputs("usage: live_image OUTPUT PORT SSRC PAYLOAD_TYPE h264|h265\n", stderr);
        return 2;
    }
    rtc_log_set_level(RTC_LOG_DEFAULT);
    return run(what);
}
