// A client with one channel, whose frames are counted.
#pragma once

#include "api/channel.h"
#include "api/service.h"
#include "bench_stream.h"

namespace bench
{

class BenchClient
{
  public:
    zeb_ts_t now = 1000000;
    unsigned n_frames = 0;
    rtc_service *service = rtc_service_create();
    rtc_channel *channel = nullptr;

    explicit BenchClient(const channel_feedback &feedback = {})
    {
        channel_config config = {};

        config.name = "bench";
        config.feedback = feedback;
        config.on_rtcp = drop_rtcp;
        config.cname = "bench";
        config.on_frame = count_frame;
        config.on_frame_context = this;
        channel = rtc_channel_create(service, &config);
        rtc_channel_set_payload_type(channel, kPayloadType, VIDEO_TYPE_H264);
    }

    ~BenchClient()
    {
        rtc_service_destroy(service);
    }

    BenchClient(const BenchClient &) = delete;
    BenchClient &operator=(const BenchClient &) = delete;

  private:
    static void drop_rtcp(void * /*context*/, const uint8_t * /*datagram*/, size_t /*size*/)
    {
    }

    static void count_frame(void *context, const channel_frame * /*frame*/)
    {
        static_cast<BenchClient *>(context)->n_frames++;
    }
};

// The first packet is a parameter set, which says that a picture begins there.
inline void write_packet(uint8_t *packet, uint32_t frame, uint16_t i)
{
    write_rtp(packet, packet_of_stream(frame, i));
    if (frame == 0 && i == 0) {
        packet[kRtpHeaderSize] = 0x67;
    }
}

} // namespace bench
