#include "capture/rtp_finder.h"

#include <gtest/gtest.h>

#include <random>

#include "capture_builder.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

// Datagrams that come straight from a test, in the order of calls.
class traffic
{
  public:
    void send(uint64_t now_us, const bytes &packet, uint16_t port = kDestinationPort)
    {
        captured_datagram datagram;
        datagram.elapsed_us = now_us;
        datagram.udp.path.source.port = kSourcePort;
        datagram.udp.path.destination.port = port;
        datagram.udp.payload = {packet.data(), packet.size()};
        finder_.observe(datagram);
    }

    std::vector<rtp_stream> streams() const
    {
        return finder_.streams();
    }

  private:
    rtp_finder finder_;
};

// One second of video with one packet a picture.
void send_video(traffic *net, rtp_fields fields, uint16_t port = kDestinationPort, unsigned packets = 30)
{
    fields.marker = true;
    for (unsigned i = 0; i < packets; ++i) {
        net->send(i * 33'333u, rtp(fields, i == 0 ? h264_idr_slice(300) : h264_inter_slice(100)), port);
        ++fields.seq;
        fields.timestamp += 3000;
    }
}

void send_audio(traffic *net, rtp_fields fields)
{
    for (unsigned i = 0; i < 50; ++i) {
        net->send(i * 20'000u, rtp(fields, bytes(160, 0xD5)));
        ++fields.seq;
        fields.timestamp += 160;
    }
}

} // namespace

TEST(RtpFinder, DescribesVideoStream)
{
    traffic net;
    send_video(&net, {65520, 0xFFFFFF00});
    const std::vector<rtp_stream> found = net.streams();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].identity.ssrc, 0x11223344u);
    EXPECT_EQ(found[0].identity.payload_type, 96);
    EXPECT_EQ(found[0].codec, VIDEO_TYPE_H264);
    EXPECT_TRUE(found[0].is_video());
    EXPECT_EQ(found[0].packets, 30u);
    EXPECT_EQ(found[0].lost, 0u);
    EXPECT_EQ(found[0].bytes, 312u + 29 * 112);
    EXPECT_EQ(found[0].last_us - found[0].first_us, 29u * 33'333);
    EXPECT_NEAR(stream_bit_rate(found[0]), (312 + 29 * 112) * 8 / 0.966657, 1);
}

TEST(RtpFinder, KeepsStreamsApartBySsrcPayloadTypeAndFlow)
{
    traffic net;
    send_video(&net, {1, 1, false, 1, 96});
    send_video(&net, {1, 1, false, 2, 96});
    send_video(&net, {1, 1, false, 1, 97});
    send_video(&net, {1, 1, false, 1, 96}, 6000);
    const std::vector<rtp_stream> found = net.streams();
    ASSERT_EQ(found.size(), 4u);
    for (const rtp_stream &stream : found) {
        EXPECT_EQ(stream.packets, 30u);
        EXPECT_TRUE(stream.is_video());
    }
}

TEST(RtpFinder, ListsVideoFirstThenTheLargest)
{
    traffic net;
    send_audio(&net, {1, 1, false, 10, 8});
    send_video(&net, {1, 1, false, 11, 96}, kDestinationPort, 20);
    send_video(&net, {1, 1, false, 12, 96}, kDestinationPort, 30);
    const std::vector<rtp_stream> found = net.streams();
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].identity.ssrc, 12u);
    EXPECT_EQ(found[1].identity.ssrc, 11u);
    EXPECT_EQ(found[2].identity.ssrc, 10u);
    EXPECT_FALSE(found[2].is_video());
    EXPECT_TRUE(found[2].is_rtp());
    EXPECT_EQ(found[2].codec, VIDEO_TYPE_UNKNOWN);
}

TEST(RtpFinder, PassesOverWhatIsNoRtp)
{
    traffic net;
    net.send(0, {});
    net.send(0, bytes(11, 0x80));
    net.send(0, bytes(100, 0x00));             // version 0
    net.send(0, bytes(100, 0xC0));             // version 3
    net.send(0, bytes{0x80, 200} + bytes(50)); // RTCP sender report
    net.send(0, bytes{0x80, 192} + bytes(50)); // the first of its types
    net.send(0, bytes{0x80, 223} + bytes(50)); // the last
    net.send(0, bytes{0x8F, 96} + bytes(50));  // fifteen contributing sources, and no room for them
    net.send(0, bytes{0xA0, 96} + bytes(50));  // padding of no bytes
    EXPECT_TRUE(net.streams().empty());
}

TEST(RtpFinder, DoubtsStreamWhoseNumbersJump)
{
    traffic net;
    std::mt19937 random(3);
    for (unsigned i = 0; i < 100; ++i) {
        const auto seq = static_cast<uint16_t>(random());
        net.send(i * 1000u, rtp({seq, i * 3000u}, h264_inter_slice(100)));
    }
    ASSERT_EQ(net.streams().size(), 1u);
    EXPECT_FALSE(net.streams()[0].is_rtp());
}

TEST(RtpFinder, DoubtsStreamWhoseTimestampsJumpOrStandStill)
{
    traffic jumping;
    traffic standing;
    std::mt19937 random(3);
    for (uint16_t seq = 0; seq < 100; ++seq) {
        jumping.send(seq * 100'000u, rtp({seq, static_cast<uint32_t>(random())}, h264_inter_slice(100)));
        standing.send(seq * 100'000u, rtp({seq, 5}, h264_inter_slice(100)));
    }
    EXPECT_FALSE(jumping.streams()[0].is_rtp());
    EXPECT_FALSE(standing.streams()[0].is_rtp());
}

TEST(RtpFinder, TakesTimestampsThatGoBackForPicturesInDecodingOrder)
{
    traffic net;
    for (uint16_t seq = 0; seq < 60; ++seq) {
        const uint32_t timestamp = 90'000 + seq * 3000u - (seq % 3 == 2 ? 6000u : 0u);
        net.send(seq * 33'333u, rtp({seq, timestamp}, h264_inter_slice(100)));
    }
    EXPECT_TRUE(net.streams()[0].is_video());
}

TEST(RtpFinder, DoubtsOnePacketAloneHoweverGoodItLooks)
{
    traffic net;
    net.send(0, rtp({1, 1}, h264_parameter_sets()));
    net.send(0, rtp({2, 1}, h264_idr_slice(100)));
    net.send(0, rtp({3, 2}, h264_inter_slice(100)));
    ASSERT_EQ(net.streams().size(), 1u);
    EXPECT_TRUE(net.streams()[0].is_video());
    net.send(0, rtp({1, 1, false, 5}, h264_parameter_sets()));
    ASSERT_EQ(net.streams().size(), 2u);
    EXPECT_FALSE(net.streams()[1].is_rtp());
}

TEST(RtpFinder, DoubtsVideoUnderPayloadTypeOfAudio)
{
    traffic net;
    send_video(&net, {1, 1, false, 1, 8});
    EXPECT_FALSE(net.streams()[0].is_video());
    EXPECT_GT(net.streams()[0].h264_likelihood, 0.2);
}

TEST(RtpFinder, SuspectsEncryptionWhereEveryByteIsAsLikely)
{
    traffic encrypted;
    std::mt19937 random(5);
    for (uint16_t seq = 0; seq < 200; ++seq) {
        bytes payload(100);
        for (uint8_t &byte : payload) {
            byte = static_cast<uint8_t>(random());
        }
        encrypted.send(seq * 10'000u, rtp({seq, seq * 900u}, payload));
    }
    EXPECT_TRUE(encrypted.streams()[0].looks_encrypted);
    EXPECT_FALSE(encrypted.streams()[0].is_video());

    traffic audio;
    send_audio(&audio, {1, 1, false, 10, 111});
    EXPECT_FALSE(audio.streams()[0].looks_encrypted);
}

TEST(RtpFinder, FindsStreamAmongAnyNumberOfStrayDatagrams)
{
    traffic net;
    rtp_fields video{1, 0, true, 0xABCD};
    for (uint32_t i = 0; i < 60'000; ++i) {
        net.send(i * 100u, rtp({0, 0, false, 0x10000 + i}, {0xFF}));
        if (i % 100 == 0) {
            net.send(i * 100u, rtp(video, h264_inter_slice(100)));
            ++video.seq;
            video.timestamp += 3000;
        }
    }
    const std::vector<rtp_stream> found = net.streams();
    EXPECT_LE(found.size(), 20'000u);
    EXPECT_EQ(found[0].identity.ssrc, 0xABCDu);
    EXPECT_EQ(found[0].packets, 600u);
}

TEST(RtpFinder, ReadsIdentityOfMalformedPacketToo)
{
    const bytes packet = bytes{0x8F, 96} + be16(1) + be32(2) + be32(0xCAFE); // contributing sources missing
    udp_datagram datagram;
    datagram.payload = {packet.data(), packet.size()};
    const std::optional<stream_identity> identity = stream_identity_read(datagram);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->ssrc, 0xCAFEu);
    EXPECT_EQ(identity->payload_type, 96);
}
