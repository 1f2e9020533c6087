#include "live/live_receiver.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "capture_builder.h"
#include "video_stream.h"
#include "wire/rtcp.h"

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
                            [this](uint32_t ssrc, byte_view datagram) { take_rtcp(ssrc, datagram); }})
    {
    }

    void receive(const bytes &packet)
    {
        receiver.receive_rtp({{}, {packet.data(), packet.size()}}, now);
    }

    void receive_rtcp(const bytes &datagram)
    {
        receiver.receive_rtcp({datagram.data(), datagram.size()}, now);
    }

    void take_rtcp(uint32_t ssrc, byte_view datagram)
    {
        EXPECT_TRUE(rtcp_validate(datagram.data(), datagram.size()));
        rtcp_subjects.push_back(ssrc);
        rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
        for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
            if (item.kind == RTCP_ITEM_RECEIVER_REPORT && item.receiver_report.blocks.count > 0) {
                last_block = rtcp_block_at(&item.receiver_report.blocks, 0);
            }
        }
    }

    uint64_t packets_of(uint32_t ssrc) const
    {
        return receiver.describe(ssrc).received.report.packets;
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
    std::vector<uint32_t> rtcp_subjects;
    rtcp_report_block last_block{};
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
    EXPECT_EQ(scene.receiver.senders(), std::vector<uint32_t>{7});
    const live_stream stream = scene.receiver.describe(7);
    const replay_result &result = stream.received;
    EXPECT_EQ(result.stream.identity.payload_type, 100);
    EXPECT_EQ(result.stream.identity.ssrc, 7u);
    EXPECT_EQ(result.stream.codec, VIDEO_TYPE_H264);
    EXPECT_EQ(result.report.packets, 31u);
    EXPECT_EQ(stream.header_bytes, 31u * 12);
    EXPECT_FALSE(scene.rtcp_subjects.empty());
}

// Somebody else's packets look like video first.
TEST(LiveReceiver, LosesNothingOfASenderWhenForgedPacketsLookedLikeVideoBefore)
{
    live_scene scene(config_of(std::nullopt));
    scene.send_pictures({1, 0, false, 66, 97}, 10);
    EXPECT_EQ(scene.receiver.describe(66).received.stream.identity.payload_type, 97);
    scene.frame_senders.clear();
    scene.send_pictures({1, 0, false, 7, 100}, 30);
    EXPECT_EQ(scene.frame_senders, std::vector<uint32_t>(30, 7));
    EXPECT_EQ(scene.packets_of(7), 31u);
    EXPECT_EQ(scene.receiver.refused()[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE], 0u);
}

TEST(LiveReceiver, CountsWhatIsOfNoKnownTypeOnce)
{
    live_scene scene(config_of(std::nullopt));
    scene.send_pictures({1, 0, false, 7, 100}, 10);
    for (uint32_t i = 0; i < 2000; ++i) {
        scene.receive(rtp({1, 0, false, 1000 + i, 98}, {0xFF}));
        scene.receive(rtp({1, 0, false, 1000 + i, 8}, {0xFF}));
    }
    EXPECT_EQ(scene.receiver.refused()[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE], 4000u);
    EXPECT_EQ(scene.receiver.senders(), std::vector<uint32_t>{7});
}

TEST(LiveReceiver, TakesNoStaticPayloadTypeForVideo)
{
    live_scene scene(config_of(std::nullopt));
    scene.send_pictures({1, 0, false, 7, 10}, 30);
    EXPECT_TRUE(scene.frame_senders.empty());
    EXPECT_NE(scene.receiver.no_video_reason(), "");
}

TEST(LiveReceiver, SaysWhatItSeesInsteadOfVideo)
{
    live_scene encrypted(config_of(std::nullopt));
    uint32_t state = 1;
    for (uint16_t seq = 0; seq < 100; ++seq) {
        bytes payload(200);
        for (uint8_t &byte : payload) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<uint8_t>(state >> 24);
        }
        encrypted.receive(rtp({seq, seq * 900u, true, 7, 96}, payload));
    }
    EXPECT_EQ(encrypted.receiver.no_video_reason(),
              "payload type 96 looks encrypted (SRTP): its key can be given with --srtp");
    live_config config = config_of(std::nullopt);
    config.codec = VIDEO_TYPE_H265;
    live_scene other_codec(config);
    other_codec.send_pictures({1, 0, false, 7, 96}, 30);
    EXPECT_EQ(other_codec.receiver.no_video_reason(), "payload type 96 looks like h264");
}

TEST(LiveReceiver, TakesGivenPayloadTypeAlone)
{
    live_scene scene(config_of(10));
    scene.send_pictures({1, 0, false, 8, 100}, 5);
    EXPECT_TRUE(scene.receiver.senders().empty());
    scene.send_pictures({1, 0, false, 7, 10}, 5);
    EXPECT_EQ(scene.frame_senders, std::vector<uint32_t>(5, 7));
    EXPECT_EQ(scene.receiver.refused()[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE], 6u);
}

TEST(LiveReceiver, TellsSendersApart)
{
    live_scene scene(config_of(96));
    scene.receive(rtp({1, 0, true, 5, 96}, h264_inter_slice(100))); // never gets a key frame
    scene.send_pictures({1, 0, false, 7, 96}, 5);
    scene.send_pictures({1, 0, false, 9, 96}, 60);
    EXPECT_EQ(scene.receiver.senders(), (std::vector<uint32_t>{5, 7, 9}));
    EXPECT_EQ(scene.packets_of(5), 1u);
    EXPECT_EQ(scene.packets_of(7), 6u);
    EXPECT_EQ(scene.packets_of(9), 61u);
    EXPECT_EQ(scene.receiver.describe(9).header_bytes, 61u * 12);
    for (const uint32_t ssrc : {5U, 7U, 9U}) {
        EXPECT_EQ(std::count(scene.rtcp_subjects.begin(), scene.rtcp_subjects.end(), ssrc) > 0, true) << ssrc;
    }
    EXPECT_EQ(std::count(scene.rtcp_subjects.begin(), scene.rtcp_subjects.end(), 0), 0);
}

TEST(LiveReceiver, KeepsCountsOfSenderThatIsForgotten)
{
    live_scene scene(config_of(96));
    for (uint32_t ssrc = 1; ssrc <= 12; ++ssrc) { // more than are received at once
        scene.send_pictures({1, 0, false, ssrc, 96}, 5);
        for (int i = 0; i < 60; ++i) {
            scene.now += 100;
            scene.receiver.tick(scene.now);
        }
    }
    ASSERT_EQ(scene.receiver.senders().size(), 12u);
    for (uint32_t ssrc = 1; ssrc <= 12; ++ssrc) {
        EXPECT_EQ(scene.packets_of(ssrc), 6u) << ssrc;
        EXPECT_EQ(scene.receiver.describe(ssrc).received.report.frames, 5u) << ssrc;
    }
    EXPECT_EQ(scene.receiver.report(1), nullptr);
}

TEST(LiveReceiver, KeepsCountingSendersHoweverManyCameBefore)
{
    live_scene scene(config_of(96));
    const auto pause = [&scene](zeb_ts_t duration) {
        scene.now += duration;
        scene.receiver.tick(scene.now);
    };
    scene.send_pictures({1, 0, false, 7, 96}, 20);
    pause(6000); // then others have its place
    constexpr uint32_t made_up = 1000;
    constexpr uint32_t first = 100'000;
    for (uint32_t i = 0; i < made_up; ++i) {
        scene.send_pictures({1, 0, false, first + i, 96}, 1);
        pause(700); // eight of them make six seconds
    }
    pause(6000);
    scene.send_pictures({1, 0, false, 8, 96}, 20);

    EXPECT_EQ(scene.receiver.senders().size(), kSendersMax);
    EXPECT_EQ(scene.packets_of(8), 21u) << "one that came last";
    EXPECT_EQ(scene.packets_of(7), 21u) << "one that sent more than those who pushed";
    EXPECT_EQ(scene.receiver.senders().front(), 7u);
    EXPECT_EQ(scene.receiver.senders().back(), 8u);
    const silent_senders &others = scene.receiver.others();
    EXPECT_EQ(others.senders, made_up + 2 - kSendersMax);
    EXPECT_EQ(others.packets, others.senders * 2);
    uint64_t packets = others.packets;
    for (const uint32_t ssrc : scene.receiver.senders()) {
        packets += scene.packets_of(ssrc);
    }
    EXPECT_EQ(packets, 21u + 21u + made_up * 2u) << "none is lost from the sum";
}

TEST(LiveReceiver, TakesRetransmissionsByOption)
{
    live_config config = config_of(96);
    config.rtx = {{97, 96}};
    config.feedback.nack = true;
    live_scene scene(config);
    scene.send_pictures({1, 0, false, 7, 96}, 5);
    const rtp_fields lost = {7, 5 * 1800, true, 7, 96};
    const rtp_fields next = {8, 6 * 1800, true, 7, 96};
    scene.receive(rtp(next, h264_inter_slice(200)));
    for (int i = 0; i < 5; ++i) {
        scene.now += 10;
        scene.receiver.tick(scene.now);
    }
    scene.receive(rtp({1, lost.timestamp, true, 70, 97}, be16(lost.seq) + h264_inter_slice(200)));
    EXPECT_EQ(scene.frame_senders, std::vector<uint32_t>(7, 7));
    EXPECT_EQ(scene.receiver.describe(7).received.report.packets_retransmitted, 1u);
    EXPECT_EQ(scene.receiver.describe(7).header_bytes, 8u * 12);
    EXPECT_EQ(scene.receiver.senders(), std::vector<uint32_t>{7});
}

namespace
{

// NTP time 0x0000AAAABBBB0000, of which a receiver repeats 0xAAAABBBB.
bytes sender_report(uint32_t ssrc)
{
    return bytes{0x80, 200} + be16(6) + be32(ssrc) + be32(0x0000AAAA) + be32(0xBBBB0000) + be32(0) + be32(1) + be32(2);
}

} // namespace

TEST(LiveReceiver, KeepsSenderReportThatComesBeforeItsSender)
{
    for (const bool is_type_known : {false, true}) {
        live_scene scene(config_of(is_type_known ? std::optional<uint8_t>(100) : std::nullopt));
        scene.receive_rtcp(sender_report(7));
        scene.receive_rtcp(sender_report(8)); // who never comes
        scene.now += 500;
        scene.send_pictures({1, 0, false, 7, 100}, 40);
        EXPECT_EQ(scene.receiver.describe(7).received.report.sender_reports, 1u) << is_type_known;
        EXPECT_EQ(scene.last_block.ssrc, 7u);
        EXPECT_EQ(scene.last_block.last_sr, 0xAAAABBBBu);
        EXPECT_GE(scene.last_block.delay_since_sr, 65536u / 2) << "counted from its arrival";
        EXPECT_EQ(scene.receiver.rtcp_malformed(), 0u);
    }
}

TEST(LiveReceiver, CountsMalformedRtcpWheneverItComes)
{
    live_scene scene(config_of(std::nullopt));
    scene.receive_rtcp(bytes(12, 0x80));
    scene.send_pictures({1, 0, false, 7, 100}, 10);
    scene.receive_rtcp(bytes(12, 0x80));
    EXPECT_EQ(scene.receiver.rtcp_malformed(), 2u);
}
