// The layers around the module, from the bytes of the network to the application's frame.
#include <cstdint>

#include "channel.h"
#include "scenes.h"
#include "service.h"

using namespace bench;
using meter::metered;

namespace
{

constexpr uint32_t kFrames = 100;

class BenchClient
{
  public:
    zeb_ts_t now = 1000000;
    unsigned n_frames = 0;
    rtc_service *service = rtc_service_create();
    rtc_channel *channel = nullptr;

    BenchClient()
    {
        channel_config config = {};

        config.name = "bench";
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
    static void count_frame(void *context, const channel_frame * /*frame*/)
    {
        static_cast<BenchClient *>(context)->n_frames++;
    }
};

// The first packet is a parameter set, which says that a picture begins there.
void write_packet(uint8_t *packet, uint32_t frame, uint16_t i)
{
    write_rtp(packet, packet_of_stream(frame, i));
    if (frame == 0 && i == 0) {
        packet[kRtpHeaderSize] = 0x67;
    }
}

unsigned receive_rtp()
{
    BenchClient client;
    uint8_t packet[kPacketSize];

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            write_packet(packet, frame, i);
            metered([&] { rtc_channel_receive_rtp(client.channel, packet, sizeof packet, false, &client.now); });
        }
        client.now += 33;
        rtc_service_tick(client.service, &client.now);
    }
    require(client.n_frames == kFrames, "all frames come out");
    return kFrames * kPacketsPerFrame;
}

unsigned receive_native()
{
    BenchClient client;

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            PVideoData4 video = make_packet(frame, i);
            metered([&] { rtc_channel_receive_native(client.channel, &video, 0, false, &client.now); });
        }
        client.now += 33;
        rtc_service_tick(client.service, &client.now);
    }
    require(client.n_frames == kFrames, "all frames come out");
    return kFrames * kPacketsPerFrame;
}

unsigned tick()
{
    BenchClient client;
    uint8_t packet[kPacketSize];

    for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
        write_packet(packet, 0, i);
        rtc_channel_receive_rtp(client.channel, packet, sizeof packet, false, &client.now);
    }
    client.now += kServiceTickInterval;
    metered([&] { rtc_service_tick(client.service, &client.now); });
    require(client.n_frames == 1, "nothing is waited for");
    return 1;
}

} // namespace

std::vector<scene> client_calls()
{
    return {
        {"`rtc_channel_receive_rtp`, through the frame callback, a packet", receive_rtp},
        {"`rtc_channel_receive_native`, through the frame callback, a packet", receive_native},
        {"`rtc_service_tick`, one stream, nothing due", tick},
    };
}
