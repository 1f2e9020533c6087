#include "live_receiver.h"

#include <gtest/gtest.h>

#include "capture_builder.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

// A receiver and a sender of pictures, 20 ms apart: a key frame first, then one packet each.
class live_scene
{
  public:
    explicit live_scene(const live_config &config)
        : receiver(config, {[this](const channel_frame &frame) { frame_senders.push_back(frame.uid); },
                            [this](byte_view datagram) { rtcp_bytes += datagram.size(); }})
    {
    }

    void receive(const bytes &packet)
    {
        receiver.receive_rtp({{}, {packet.data(), packet.size()}}, now);
    }

    void send_pictures(rtp_fields fields, unsigned count)
    {
        receive(rtp(fields, h264_parameter_sets()));
        ++fields.seq;
        fields.marker = true;
        receive(rtp(fields, h264_idr_slice(500)));
        for (unsigned i = 1; i < count; ++i) {
            now += 20;
            receiver.tick(now);
            ++fields.seq;
            fields.timestamp += 1800;
            receive(rtp(fields, h264_inter_slice(200)));
        }
    }

    zeb_ts_t now = 10'000;
    std::vector<uint32_t> frame_senders;
    size_t rtcp_bytes = 0;
    live_receiver receiver;
};

live_config config_of(std::optional<uint8_t> payload_type)
{
    live_config config;
    config.codec = VIDEO_TYPE_H264;
    config.payload_type = payload_type;
    config.feedback.reports = true;
    return config;
}

} // namespace

TEST(LiveReceiver, FindsPayloadTypeAndLosesNothingMeanwhile)
{
    live_scene scene(config_of(std::nullopt));
    EXPECT_EQ(scene.receiver.no_video_reason(), "no RTP came");
    scene.send_pictures({1, 0, false, 7, 100}, 30);
    EXPECT_EQ(scene.frame_senders.size(), 30u);
    EXPECT_EQ(scene.receiver.no_video_reason(), "");
    const replay_result result = scene.receiver.describe();
    EXPECT_EQ(result.stream.identity.payload_type, 100);
    EXPECT_EQ(result.stream.identity.ssrc, 7u);
    EXPECT_EQ(result.stream.codec, VIDEO_TYPE_H264);
    EXPECT_EQ(result.report.packets, 31u);
    EXPECT_EQ(scene.receiver.header_bytes(), 31u * 12);
    EXPECT_GT(scene.rtcp_bytes, 0u);
}

TEST(LiveReceiver, TakesNoStaticPayloadTypeForVideo)
{
    live_scene scene(config_of(std::nullopt));
    scene.send_pictures({1, 0, false, 7, 10}, 30);
    EXPECT_TRUE(scene.frame_senders.empty());
    EXPECT_NE(scene.receiver.no_video_reason(), "");
}

TEST(LiveReceiver, TakesGivenPayloadTypeAlone)
{
    live_scene scene(config_of(10));
    scene.send_pictures({1, 0, false, 8, 100}, 5);
    EXPECT_FALSE(scene.receiver.has_stream());
    scene.send_pictures({1, 0, false, 7, 10}, 5);
    EXPECT_EQ(scene.frame_senders, std::vector<uint32_t>(5, 7));
    EXPECT_EQ(scene.receiver.describe().refused[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE], 6u);
}

TEST(LiveReceiver, WritesFirstSenderWithFrameAndCountsOthers)
{
    live_scene scene(config_of(96));
    scene.receive(rtp({1, 0, true, 5, 96}, h264_inter_slice(100))); // never gets a key frame
    EXPECT_EQ(scene.receiver.describe().stream.identity.ssrc, 5u);
    scene.send_pictures({1, 0, false, 7, 96}, 5);
    scene.send_pictures({1, 0, false, 9, 96}, 5);
    EXPECT_EQ(scene.frame_senders, std::vector<uint32_t>(5, 7));
    EXPECT_EQ(scene.receiver.describe().stream.identity.ssrc, 7u);
    EXPECT_EQ(scene.receiver.other_senders(), 2u);
}
