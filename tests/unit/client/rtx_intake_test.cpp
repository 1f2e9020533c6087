#include "session/rtx_intake.h"

#include <gtest/gtest.h>

#include "client_bench.h"

namespace
{

using client_bench::bytes;
using client_bench::Client;
using rtp_builder::frame;
using rtp_builder::Sender;

constexpr uint8_t kRtxType = 97;
constexpr uint32_t kRtxSsrc = 0x99AABBCC;

bytes rtx_of(const bytes &packet, uint16_t rtx_seq)
{
    return rtp_builder::rtx_packet(packet, {kRtxType, rtx_seq, kRtxSsrc});
}

channel_feedback with_nack()
{
    channel_feedback feedback = {};
    feedback.nack = true;
    feedback.reduced_size = true;
    return feedback;
}

class Retransmission : public testing::Test
{
  protected:
    Retransmission() : client(false, with_nack())
    {
        rtc_channel_set_rtx(client.channel, kRtxType, 96);
        client.receive(sender.key_frame());
        lossy = sender.delta_frame(4);
        client.receive_without(lossy, {2});
    }

    Client client;
    Sender sender;
    frame lossy;
};

TEST_F(Retransmission, FillsTheHoleOfThePairedSender)
{
    rtc_channel_pair_ssrc(client.channel, sender.ssrc, kRtxSsrc);
    EXPECT_EQ(client.receive(rtx_of(lossy.packets[2], 1)), 0);
    ASSERT_EQ(client.frames.size(), 2u);
    EXPECT_EQ(client.frames[1].data, lossy.annexb);
    EXPECT_EQ(client.report().packets_retransmitted, 1u);
    EXPECT_EQ(client.report().packets_lost, 0u);
}

TEST_F(Retransmission, IsPairedByTheNumberThatWasAskedFor)
{
    client.pass(20);
    EXPECT_EQ(client.receive(rtx_of(lossy.packets[2], 1)), 0);
    EXPECT_EQ(client.frames.size(), 2u);
    // From then on by its SSRC.
    EXPECT_EQ(client.receive(rtx_of(lossy.packets[1], 2)), -1);
    EXPECT_EQ(client.packet_drops(), "duplicate=1");
}

TEST_F(Retransmission, ThatNobodyAskedForIsRefused)
{
    EXPECT_EQ(client.receive(rtx_of(lossy.packets[2], 1)), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_UNPAIRED_RETRANSMISSION), 1u);
    EXPECT_EQ(client.frames.size(), 1u);
}

TEST_F(Retransmission, OfPaddingAloneIsNoPacketOfTheStream)
{
    rtc_channel_pair_ssrc(client.channel, sender.ssrc, kRtxSsrc);
    rtp_builder::rtp_fields fields;
    fields.payload_type = kRtxType;
    fields.ssrc = kRtxSsrc;
    fields.payload = {};
    fields.padding = 100;
    const uint64_t packets = client.report().packets;
    EXPECT_EQ(client.receive(rtp_builder::rtp_packet(fields)), 0);
    EXPECT_EQ(client.report().packets, packets);
}

TEST_F(Retransmission, WithoutANumberIsRefused)
{
    rtc_channel_pair_ssrc(client.channel, sender.ssrc, kRtxSsrc);
    rtp_builder::rtp_fields fields;
    fields.payload_type = kRtxType;
    fields.ssrc = kRtxSsrc;
    fields.payload = {0x03};
    EXPECT_EQ(client.receive(rtp_builder::rtp_packet(fields)), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_BAD_HEADER), 1u);
}

TEST_F(Retransmission, OfAnUnknownSenderIsRefused)
{
    rtc_channel_pair_ssrc(client.channel, 0x12121212, kRtxSsrc);
    EXPECT_EQ(client.receive(rtx_of(lossy.packets[2], 1)), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_UNPAIRED_RETRANSMISSION), 1u);
}

} // namespace
