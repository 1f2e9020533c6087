// The layers around the module, from the bytes of the network to the application's frame.
#include "bench_client.h"
#include "scenes.h"

using namespace bench;
using meter::metered;

namespace
{

constexpr uint32_t kFrames = 100;

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
