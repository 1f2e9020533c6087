// The stream record's statistics, second by second in virtual time.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "client_bench.h"
#include "stats/receive_quality.h"

namespace
{

using client_bench::bytes;
using client_bench::Client;
using rtp_builder::frame;
using rtp_builder::Sender;

channel_feedback agreed()
{
    channel_feedback feedback = {};
    feedback.nack = true;
    feedback.pli = true;
    feedback.reduced_size = true;
    return feedback;
}

class StreamSeconds : public testing::Test
{
  protected:
    Client client{false, agreed()};
    Sender sender;

    user_video_stream *record()
    {
        return client.stream();
    }

    // A frame of `n` packets, of which those at `missing` do not come, and 40 ms.
    frame frame_without(size_t n, const std::vector<size_t> &missing)
    {
        frame sent = sender.delta_frame(n);
        client.receive_without(sent, missing);
        client.pass(40);
        return sent;
    }

    void whole_frames(int count, size_t n)
    {
        for (int i = 0; i < count; i++) {
            frame_without(n, {});
        }
    }
};

size_t size_of(const frame &sent)
{
    size_t size = 0;
    for (const bytes &packet : sent.packets) {
        size += packet.size();
    }
    return size;
}

TEST_F(StreamSeconds, CountInTheRunningSecondAndAreKeptWhenItIsFull)
{
    const frame key = sender.key_frame(3);
    client.receive(key);
    client.pass(990);
    EXPECT_EQ(record()->n_xfer_bytes_recent, size_of(key));
    EXPECT_EQ(record()->n_xfer_origin_med_bytes_recent, size_of(key));
    EXPECT_EQ(record()->n_key_recent, 1u);
    EXPECT_EQ(record()->n_frames_to_user_recent, 1u);
    EXPECT_EQ(record()->n_bytes_to_user_recent, key.annexb.size());
    EXPECT_EQ(client.report().last_second.bytes, 0u);

    client.pass(10);
    EXPECT_EQ(record()->n_xfer_bytes_recent, 0u);
    EXPECT_EQ(record()->n_xfer_origin_bytes_recent, 0u);
    EXPECT_EQ(record()->n_xfer_origin_med_bytes_recent, 0u);
    EXPECT_EQ(record()->n_key_recent, 0u);
    EXPECT_EQ(record()->n_frames_to_user_recent, 0u);
    EXPECT_EQ(record()->n_bytes_to_user_recent, 0u);
    EXPECT_EQ(client.report().last_second.bytes, size_of(key));
    EXPECT_EQ(client.report().last_second.bytes_original, size_of(key));
    EXPECT_EQ(client.report().last_second.frames, 1u);
    EXPECT_EQ(client.report().last_second.frame_bytes, key.annexb.size());

    client.pass(1000);
    EXPECT_EQ(client.report().last_second.bytes, 0u);
    EXPECT_EQ(client.report().last_second.frames, 0u);
}

TEST_F(StreamSeconds, KeepTheTotals)
{
    const frame key = sender.key_frame(3);
    client.receive(key);
    client.pass(5000);
    EXPECT_EQ(record()->n_xfer_bytes, size_of(key));
    EXPECT_EQ(record()->n_xfer_packets, 3u);
    EXPECT_EQ(record()->n_xfer_frames, 1u);
    EXPECT_EQ(record()->n_k_frames_to_user, 1u);
    EXPECT_EQ(record()->frame_pkt_num_max, 3u);
}

TEST_F(StreamSeconds, BeginWithTheFirstPacketAndStayInStepBehindALateTick)
{
    client.pass(730);
    client.receive(sender.key_frame(3));
    client.now += 2500;
    rtc_service_tick(client.service, &client.now); // half a second into the third
    EXPECT_EQ(client.report().last_second.frames, 1u);
    client.receive(sender.delta_frame());
    client.pass(490);
    EXPECT_EQ(record()->n_frames_to_user_recent, 1u);
    client.pass(10);
    EXPECT_EQ(record()->n_frames_to_user_recent, 0u);
}

TEST_F(StreamSeconds, CountRequestsAndWhatTheyBring)
{
    client.receive(sender.key_frame(3));
    const frame torn = frame_without(4, {2});
    EXPECT_EQ(record()->n_retrans_req_recent, 1u);
    EXPECT_EQ(record()->video_cache_q.n_retrans_req_recent, 1u);
    EXPECT_EQ(record()->next_retrans_req_should_at, record()->video_cache_q.next_retrans_req_should_at);
    EXPECT_GT(record()->next_retrans_req_should_at, client.now);
    client.receive(torn.packets[2], true);
    EXPECT_EQ(record()->n_retrans_recent, 1u);
    EXPECT_EQ(record()->n_rexfer_bytes_recent, torn.packets[2].size());
    EXPECT_EQ(client.report().packets_repaired, 1u);
    EXPECT_EQ(client.report().packets_lost, 0u);

    client.pass(960);
    EXPECT_EQ(record()->n_retrans_req_recent, 0u);
    EXPECT_EQ(record()->video_cache_q.n_retrans_req_recent, 0u);
    EXPECT_EQ(record()->n_retrans_recent, 0u);
    EXPECT_EQ(record()->n_rexfer_bytes_recent, 0u);
    EXPECT_EQ(client.report().last_second.retransmissions, 1u);
    EXPECT_EQ(client.report().last_second.retransmission_requests, 1u);
    EXPECT_EQ(client.report().last_second.bytes_retransmitted, torn.packets[2].size());
}

TEST_F(StreamSeconds, CountRequestsForKeyFrames)
{
    client.receive(sender.delta_frame());
    EXPECT_EQ(record()->n_key_req_sent_recent, 1u);
    EXPECT_EQ(record()->next_idr_should_at, record()->video_cache_q.next_intra_req_should_at);
    EXPECT_GT(record()->next_idr_should_at, client.now);
    client.pass(1000);
    EXPECT_EQ(record()->n_key_req_sent_recent, 0u);
    EXPECT_EQ(record()->video_cache_q.n_intra_req_sent_recent, 0u);
    EXPECT_EQ(client.report().last_second.key_frame_requests, client.report().plis_sent);
}

struct LossRow {
    const char *what;
    int lost;     // of 100 packets expected in the second
    int repaired; // of those
    int raw;      // per cent
    int after_arq;
};

const LossRow kLossRows[] = {
    {"Nothing", 0, 0, 0, 0},
    {"Unrepaired", 4, 0, 4, 4},
    {"HalfRepaired", 10, 5, 10, 5},
    {"AllRepaired", 7, 7, 7, 0},
};

class StreamSecondsLoss : public StreamSeconds, public testing::WithParamInterface<LossRow>
{
};

// 25 frames of four packets; the frames that lose one are repaired 30 ms later, or not at all.
TEST_P(StreamSecondsLoss, IsTheShareOfTheExpectedPackets)
{
    const LossRow &row = GetParam();
    client.receive(sender.key_frame(4));
    client.pass(40);
    for (int i = 0; i < 24; i++) {
        const frame sent = sender.delta_frame(4);
        const bool is_losing = i < row.lost;
        client.receive_without(sent, is_losing ? std::vector<size_t>{1} : std::vector<size_t>{});
        client.pass(30);
        if (i < row.repaired) {
            client.receive(sent.packets[1], true);
        }
        client.pass(10);
    }
    EXPECT_EQ(record()->percent_loss_raw, row.raw);
    EXPECT_EQ(record()->percent_lost_after_arq, row.after_arq);
    EXPECT_EQ(record()->percent_lost_after_fec, row.after_arq);
    EXPECT_EQ(client.report().last_second.percent_loss_raw, row.raw);
    EXPECT_EQ(client.report().last_second.percent_lost_after_arq, row.after_arq);
    client.pass(1000);
    EXPECT_EQ(record()->percent_loss_raw, 0);
    EXPECT_EQ(record()->percent_lost_after_arq, 0);
}

INSTANTIATE_TEST_SUITE_P(With, StreamSecondsLoss, testing::ValuesIn(kLossRows),
                         [](const testing::TestParamInfo<LossRow> &row) { return std::string(row.param.what); });

TEST_F(StreamSeconds, KnowALossBetweenTwoOfThem)
{
    client.receive(sender.key_frame(4));
    client.pass(1000);
    sender.seq = static_cast<uint16_t>(sender.seq + 5);
    client.receive(sender.delta_frame(5));
    client.pass(1000);
    EXPECT_EQ(record()->percent_loss_raw, 50);
}

TEST_F(StreamSeconds, LoseNothingToAStrayNumberOrANewNumbering)
{
    client.receive(sender.key_frame(4));
    client.pass(500);
    sender.seq = static_cast<uint16_t>(sender.seq + 30000);
    client.receive(sender.key_frame(6));
    client.pass(500);
    EXPECT_EQ(record()->percent_loss_raw, 0);
    EXPECT_EQ(client.report().packets_unique, 10u);
    EXPECT_EQ(client.report().restarts[RESTART_SEQUENCE_JUMP], 1u);
}

TEST_F(StreamSeconds, KeepTheFreezesOfTheTimeBefore)
{
    client.receive(sender.key_frame(3));
    client.pass(700);
    client.receive(sender.delta_frame());
    client.pass(290);
    EXPECT_EQ(record()->freeze_count_600ms, 1u);
    EXPECT_EQ(record()->freeze_count_600ms_last, 0u);
    client.pass(10);
    EXPECT_EQ(record()->freeze_count_600ms_last, 1u);
    EXPECT_EQ(record()->freeze_time_600ms_last, 700u);
    client.receive(sender.delta_frame());
    client.pass(1000);
    EXPECT_EQ(record()->freeze_count_600ms_last, 1u);
    EXPECT_EQ(record()->freeze_count_500ms_last, 1u);
    EXPECT_EQ(record()->freeze_time_500ms_last, 700u);
    EXPECT_EQ(record()->freeze_count_200ms_last, 2u);
    EXPECT_EQ(record()->freeze_time_200ms_last, 1000u);
}

struct PaceRow {
    const char *what;
    uint32_t timestamp_step; // for each 40 ms here
    uint32_t ratio;
};

const PaceRow kPaceRows[] = {
    {"Equal", 3600, 1000}, {"SlowSender", 1800, 2000}, {"FastSender", 4000, 900}, {"StandingClock", 0, 0}};

class StreamSecondsPace : public StreamSeconds, public testing::WithParamInterface<PaceRow>
{
};

TEST_P(StreamSecondsPace, IsTheTimeHereForATimeThere)
{
    sender.timestamp_step = GetParam().timestamp_step;
    client.receive(sender.key_frame(3));
    client.pass(40);
    whole_frames(50, 1);
    EXPECT_EQ(record()->latest_local_remote_ts_ratio, GetParam().ratio);
}

INSTANTIATE_TEST_SUITE_P(With, StreamSecondsPace, testing::ValuesIn(kPaceRows),
                         [](const testing::TestParamInfo<PaceRow> &row) { return std::string(row.param.what); });

TEST_F(StreamSeconds, AddUpTheTimeThatFramesTook)
{
    client.receive(sender.key_frame(3));
    const frame slow = sender.delta_frame(3);
    client.receive(slow.packets[0]);
    client.receive(slow.packets[2]);
    client.pass(120);
    client.receive(slow.packets[1], true);
    EXPECT_EQ(record()->downlink_frame_total, 2u);
    EXPECT_EQ(record()->downlink_process_total_cost_ms, 120u);
    EXPECT_EQ(client.report().frame_delay, 120u);
}

// ---- The native path ----

// A packet of the one frame of user 9: two packets of media and one of forward error correction.
size_t receive_native(Client &client, uint16_t index)
{
    rtp_builder::rtp_fields fields;
    fields.seq = index;
    fields.payload = rtp_builder::nal_unit(5, 40);
    const bytes packet = rtp_builder::rtp_packet(fields);
    PVideoData4 video = {};
    video.common.uid = 9;
    video.common.seq = index;
    video.header.n_pkts = 3;
    video.header.subseq = index;
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    video.header.reserved = 1u << 8;
    video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
    video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
    std::copy(packet.begin(), packet.end(), static_cast<uint8_t *>(video.payload.values));
    rtc_channel_receive_native(client.channel, &video, 0, false, &client.now);
    return packet.size();
}

TEST(StreamSecondsOfTheNativePath, CountMediaAndErrorCorrectionApart)
{
    Client client;
    size_t media = receive_native(client, 0);
    client.pass(30);
    media += receive_native(client, 1);
    const size_t correction = receive_native(client, 2);
    const user_video_stream *record = client.stream(9);
    EXPECT_EQ(record->n_xfer_origin_med_bytes_recent, media);
    EXPECT_EQ(record->n_xfer_origin_fec_bytes_recent, correction);
    EXPECT_EQ(record->n_xfer_bytes_recent, media + correction);
    EXPECT_EQ(record->downlink_frame_total, 1u);
    EXPECT_EQ(record->downlink_process_total_cost_ms, 30u);
    client.pass(970);
    EXPECT_EQ(record->n_xfer_origin_med_bytes_recent, 0u);
    EXPECT_EQ(record->n_xfer_origin_fec_bytes_recent, 0u);
    EXPECT_EQ(client.report(9).last_second.bytes, media + correction);
    EXPECT_EQ(client.report(9).last_second.frames, 1u);
}

// ---- Loss and jitter ----

TEST_F(StreamSeconds, CountLossForTheSenderWithoutWhatRetransmissionsBring)
{
    client.receive(sender.key_frame(3));
    const frame torn = frame_without(4, {2});
    client.receive(torn.packets[2], true);
    EXPECT_EQ(net_rcv_analyzer_lost(record()->current_net_rcv_quality), 1);
    EXPECT_EQ(seq_lost_calculator_lost(&record()->lost_calculator), 1u);
    EXPECT_EQ(client.report().packets_lost, 0u);
    client.pass(960);
    EXPECT_EQ(seq_lost_calculator_lost(&record()->lost_calculator), 0u);
}

TEST_F(StreamSeconds, TakeNoJitterFromRetransmissions)
{
    client.receive(sender.key_frame(3));
    client.pass(40);
    sender.timestamp_step = 3600;
    sender.timestamp += 600;
    whole_frames(10, 1);
    const frame torn = frame_without(3, {1});
    const uint32_t jitter = net_rcv_analyzer_jitter(record()->current_net_rcv_quality);
    client.pass(500);
    client.receive(torn.packets[1], true);
    EXPECT_EQ(net_rcv_analyzer_jitter(record()->current_net_rcv_quality), jitter);
    EXPECT_EQ(jitter_calculator_jitter(&record()->jitter_calculator), 0u);
}

TEST_F(StreamSeconds, DoNotBelieveAStrayNumber)
{
    client.receive(sender.key_frame(3));
    rtp_builder::rtp_fields stray;
    stray.seq = static_cast<uint16_t>(sender.seq + 20000);
    client.receive(rtp_builder::rtp_packet(stray));
    client.receive(sender.delta_frame());
    EXPECT_EQ(net_rcv_analyzer_lost(record()->current_net_rcv_quality), 0);
    EXPECT_EQ(client.report().packets_unique, 4u);
}

TEST_F(StreamSeconds, JudgeANewNumberingByItself)
{
    client.receive(sender.key_frame(3));
    frame_without(5, {1, 2});
    const net_rcv_analyzer_t *first = record()->current_net_rcv_quality;
    EXPECT_EQ(net_rcv_analyzer_lost(first), 2);
    for (const int seq : {30000, 1}) {
        sender.seq = static_cast<uint16_t>(seq);
        client.receive(sender.key_frame(6));
        EXPECT_EQ(net_rcv_analyzer_lost(record()->current_net_rcv_quality), 0);
        EXPECT_EQ(net_rcv_analyzer_expected(record()->current_net_rcv_quality), 5u); // from the second packet on
        EXPECT_NE(record()->old_net_rcv_quality, nullptr);
    }
    EXPECT_EQ(record()->current_net_rcv_quality, first); // two of them take turns
}

} // namespace
