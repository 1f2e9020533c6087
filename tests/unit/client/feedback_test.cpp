#include "session/feedback.h"

#include <gtest/gtest.h>

#include "repair/loss_policy.h"
#include "sent_feedback.h"

namespace
{

using client_bench::bytes;
using client_bench::Client;
using client_bench::sent_texts;
using rtp_builder::frame;
using rtp_builder::Sender;
using Texts = std::vector<std::string>;

channel_feedback agreed()
{
    channel_feedback feedback = {};
    feedback.nack = true;
    feedback.pli = true;
    feedback.reduced_size = true;
    return feedback;
}

// A stream that runs, a frame each 30 ms.
class Feedback : public testing::Test
{
  protected:
    explicit Feedback(const channel_feedback &feedback = agreed()) : client(false, feedback)
    {
    }

    void start()
    {
        client.receive(sender.key_frame());
        client.pass(30);
        client.receive(sender.delta_frame());
        client.sent.clear();
        began = client.now;
    }

    Texts texts() const
    {
        return sent_texts(client, began);
    }

    Client client;
    Sender sender;
    zeb_ts_t began = 0;
};

TEST_F(Feedback, SaysNothingWhileNothingIsMissing)
{
    start();
    for (int i = 0; i < 100; i++) {
        client.receive(sender.delta_frame(3));
        client.pass(30);
    }
    EXPECT_EQ(texts(), Texts());
}

TEST_F(Feedback, AsksForWhatIsMissingAfterAShortHold)
{
    start();
    const frame lossy = sender.delta_frame(4); // 1004 to 1007
    client.receive_without(lossy, {1, 2});
    client.pass(10);
    EXPECT_EQ(texts(), (Texts{"10: nack 1005 1006"}));
}

TEST_F(Feedback, AsksAgainUntilThePacketCame)
{
    start();
    const frame lossy = sender.delta_frame(4);
    client.receive_without(lossy, {1, 2});
    client.pass(60);
    client.receive(lossy.packets[1], true);
    client.pass(200);
    // 60 - 10 ms there and back is now known, so the next one comes 53 ms after the first, in the next tick.
    EXPECT_EQ(texts(),
              (Texts{"10: nack 1005 1006", "70: nack 1006", "130: nack 1006", "190: nack 1006", "250: nack 1006"}));
    client.receive(lossy.packets[2], true);
    client.pass(500);
    EXPECT_EQ(texts().size(), 5u);
    EXPECT_EQ(client.frames.back().data, lossy.annexb);
    EXPECT_EQ(client.report().nacks_sent, 5u);
    EXPECT_EQ(client.report().packets_asked_for, 6u);
}

TEST_F(Feedback, AsksAcrossTheEndOfTheNumbers)
{
    sender.seq = 65530;
    start(); // up to 65533
    const frame lossy = sender.delta_frame(6);
    client.receive_without(lossy, {1, 2, 3});
    client.pass(10);
    EXPECT_EQ(texts(), (Texts{"10: nack 65535 0 1"}));
}

TEST_F(Feedback, AsksForTheBeginningOfAStreamThatBeganWithALoss)
{
    const frame key = sender.key_frame(4);
    began = client.now;
    client.receive_without(key, {0, 1}); // SPS and PPS
    client.pass(10);
    EXPECT_EQ(texts(), (Texts{"10: nack 1001"}));
    client.receive(key.packets[1], true);
    client.pass(10);
    EXPECT_EQ(texts().back(), "20: nack 1000");
    client.receive(key.packets[0], true);
    client.pass(10);
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].data, key.annexb);
}

TEST_F(Feedback, StopsAskingWhenTheCacheGaveUp)
{
    start();
    client.receive_without(sender.delta_frame(4), {1});
    client.pass(2100);
    client.sent.clear();
    client.pass(500);
    for (const std::string &text : texts()) {
        EXPECT_EQ(text.find("nack"), std::string::npos) << text;
    }
}

TEST_F(Feedback, AsksForAKeyFrameWhenItComesInTheMiddle)
{
    began = client.now;
    client.receive(sender.delta_frame());
    EXPECT_EQ(texts(), (Texts{"0: pli"}));
}

TEST_F(Feedback, RepeatsTheRequestForAKeyFrameWhileTheStreamWaits)
{
    began = client.now;
    for (int i = 0; i < 60; i++) {
        client.receive(sender.delta_frame());
        client.pass(10);
    }
    // Two assumed round trips.
    EXPECT_EQ(texts(), (Texts{"0: pli", "200: pli", "400: pli", "600: pli"}));
    client.receive(sender.key_frame());
    client.sent.clear();
    client.pass(3000);
    EXPECT_EQ(texts(), Texts());
}

channel_feedback agreed_on_pli_alone()
{
    channel_feedback feedback = {};
    feedback.pli = true;
    feedback.reduced_size = true;
    feedback.give_up_early = true;
    return feedback;
}

class KeyFrameFeedback : public Feedback
{
  protected:
    KeyFrameFeedback() : Feedback(agreed_on_pli_alone())
    {
    }

    // A loss that nothing but a key frame mends.
    void lose()
    {
        began = client.now;
        client.receive_without(sender.delta_frame(3), {1});
        client.pass(20);
    }

    // A loss, and a key frame so long after it was asked for.
    void lose_and_get(zeb_ts_t answer)
    {
        lose();
        client.pass(answer - 10);
        client.receive(sender.key_frame());
        client.pass(1000);
        client.sent.clear();
    }
};

// What is sooner than two round trips after a request is ignored by some.
TEST_F(KeyFrameFeedback, RepeatsARequestAfterTwiceTheTimeOfTheSoonestAnswer)
{
    struct {
        std::vector<zeb_ts_t> answers;
        Texts asked_next;
    } const rows[] = {
        {{140}, {"10: pli", "290: pli"}},
        {{70}, {"10: pli", "150: pli"}},
        {{70, 130}, {"10: pli", "160: pli"}},                // the slow one says little
        {{70, 190}, {"10: pli", "170: pli"}},                // the slow one may answer either of two requests: 9 / 8
        {{70, 190, 190, 190, 190}, {"10: pli", "210: pli"}}, // until there is but one again
        {{20}, {"10: pli", "110: pli"}},                     // never more often than this
        {{20, 130}, {"10: pli", "130: pli"}}, // a key frame that came by itself is no answer, as the next shows
    };
    start();
    for (const auto &row : rows) {
        for (const zeb_ts_t answer : row.answers) {
            lose_and_get(answer);
        }
        lose();
        client.pass(400);
        const Texts asked = texts();
        EXPECT_EQ(Texts(asked.begin(), asked.begin() + 2), row.asked_next);
        client.receive(sender.key_frame());
        client.pass(1000);
        client.sent.clear();
    }
}

TEST_F(KeyFrameFeedback, AsksAgainForAKeyFrameThatCameDamagedAsSoonAsItIsHeard)
{
    start();
    lose_and_get(70);
    lose();
    client.pass(60);
    client.receive_without(sender.key_frame(5), {2});
    client.pass(100);
    EXPECT_EQ(texts(), (Texts{"10: pli", "150: pli"}));
}

TEST_F(KeyFrameFeedback, SaysWhenALossIsToBeGivenUp)
{
    start();
    const zeb_ts_t lost_at = client.now;
    EXPECT_EQ(rtc_service_next_at(client.service), kServiceNever);
    client.receive_without(sender.delta_frame(3), {1});
    EXPECT_EQ(rtc_service_next_at(client.service), lost_at + kLossPatienceMin);
    client.now += kLossPatienceMin;
    EXPECT_EQ(rtc_service_tick(client.service, &client.now), client.now + kServiceTickInterval);
    began = lost_at;
    EXPECT_EQ(texts(), (Texts{"5: pli"}));
    EXPECT_EQ(rtc_service_next_at(client.service), kServiceNever);
}

TEST_F(Feedback, SaysWhenALostPacketIsToBeAskedFor)
{
    start();
    const zeb_ts_t lost_at = client.now;
    client.receive_without(sender.delta_frame(3), {1});
    EXPECT_EQ(rtc_service_next_at(client.service), lost_at + kNackHoldMin);
    EXPECT_EQ(rtc_service_next_at(nullptr), kServiceNever);
}

TEST_F(Feedback, AsksNobodyWhoHasBeenSilentForFiveSeconds)
{
    client.receive(sender.delta_frame());
    client.pass(5000);
    client.sent.clear();
    client.pass(5000);
    EXPECT_EQ(texts(), Texts());
    began = client.now;
    client.receive(sender.delta_frame());
    EXPECT_EQ(texts(), (Texts{"0: pli"}));
}

TEST_F(Feedback, AsksNobodyWhoSaidBye)
{
    client.receive(sender.delta_frame());
    const bytes bye = {0x81, 203, 0, 1, 0x11, 0x22, 0x33, 0x44};
    EXPECT_EQ(rtc_channel_receive_rtcp(client.channel, bye.data(), bye.size(), &client.now), 0);
    client.sent.clear();
    client.pass(2000);
    EXPECT_EQ(texts(), Texts());
    EXPECT_EQ(client.report().byes, 1u);
    EXPECT_TRUE(client.report().has_left);
    client.receive(sender.delta_frame());
    EXPECT_FALSE(client.report().has_left) << "it goes on";
    client.pass(10);
    EXPECT_EQ(texts().size(), 1u);
}

// Anybody can say it in the sender's name.
TEST_F(Feedback, AsksOnForWhatIsMissingWhenThePacketsGoOnAfterBye)
{
    start();
    client.receive_without(sender.delta_frame(4), {1}); // 1005
    const bytes bye = {0x81, 203, 0, 1, 0x11, 0x22, 0x33, 0x44};
    EXPECT_EQ(rtc_channel_receive_rtcp(client.channel, bye.data(), bye.size(), &client.now), 0);
    EXPECT_EQ(rtc_service_next_at(client.service), kServiceNever) << "there is nothing to ask for now";
    client.pass(30);
    EXPECT_EQ(texts(), Texts());
    client.receive(sender.delta_frame());
    client.pass(10);
    EXPECT_EQ(texts(), (Texts{"30: nack 1005"})) << "it is overdue";
}

TEST_F(Feedback, RefusesMalformedRtcpWhole)
{
    client.receive(sender.delta_frame());
    // A sound BYE, and behind it a packet that is longer than the datagram.
    const bytes datagram = {0x81, 203, 0, 1, 0x11, 0x22, 0x33, 0x44, 0x80, 201, 0, 9};
    EXPECT_EQ(rtc_channel_receive_rtcp(client.channel, datagram.data(), datagram.size(), &client.now), -1);
    EXPECT_EQ(client.report().byes, 0u);
    EXPECT_EQ(rtc_channel_rtcp_malformed(client.channel), 1u);
}

class SilentFeedback : public Feedback
{
  protected:
    SilentFeedback() : Feedback({})
    {
    }
};

TEST_F(SilentFeedback, IsNeverSentUnlessAgreed)
{
    client.receive(sender.delta_frame());
    start();
    client.receive_without(sender.delta_frame(4), {1});
    client.pass(5000);
    EXPECT_TRUE(client.sent.empty());
    EXPECT_EQ(client.stream()->video_cache_q.n_retrans_req_recent, 0u);
    EXPECT_GT(client.report().retransmission_requests, 0u);
}

class FirFeedback : public Feedback
{
  protected:
    static channel_feedback with_fir()
    {
        channel_feedback feedback = agreed();
        feedback.fir = true;
        return feedback;
    }

    FirFeedback() : Feedback(with_fir())
    {
    }
};

TEST_F(FirFeedback, TakesThePlaceOfPli)
{
    began = client.now;
    client.receive(sender.delta_frame());
    EXPECT_EQ(texts(), (Texts{"0: fir 1"}));
    EXPECT_EQ(client.report().firs_sent, 1u);
    EXPECT_EQ(client.report().plis_sent, 0u);
}

class Reports : public Feedback
{
  protected:
    static channel_feedback with_reports()
    {
        channel_feedback feedback = {};
        feedback.reports = true;
        feedback.pli = true;
        return feedback;
    }

    Reports() : Feedback(with_reports())
    {
    }

    rtcp_report_block last_block() const
    {
        rtcp_report_block block = {};
        for (const client_bench::sent_datagram &datagram : client.sent) {
            rtcp_cursor cursor = rtcp_cursor_begin(datagram.data.data(), datagram.data.size());
            rtcp_item item;
            while (rtcp_next(&cursor, &item)) {
                if (item.kind == RTCP_ITEM_RECEIVER_REPORT && item.receiver_report.blocks.count == 1) {
                    block = rtcp_block_at(&item.receiver_report.blocks, 0);
                }
            }
        }
        return block;
    }
};

TEST_F(Reports, ComeOnceASecondWithLossAndHighestNumber)
{
    sender.seq = 65534;
    client.receive(sender.key_frame(4));                // 65534 to 1
    client.receive_without(sender.delta_frame(4), {1}); // 2, 4, 5
    client.pass(3000);
    EXPECT_EQ(client.report().reports_sent, 3u);
    const rtcp_report_block block = last_block();
    EXPECT_EQ(block.ssrc, 0x11223344u);
    EXPECT_EQ(block.cumulative_lost, 1);
    EXPECT_EQ(block.highest_seq, 0x10005u);
    EXPECT_EQ(block.last_sr, 0u);
}

TEST_F(Reports, TellTheDelaySinceTheSenderReport)
{
    client.receive(sender.key_frame());
    client.pass(1000);
    const bytes report = {0x80, 200,  0, 6, 0x11, 0x22, 0x33, 0x44, 0xAA, 0xBB, 0xCC, 0xDD, 0x12, 0x34,
                          0x56, 0x78, 0, 0, 0,    0,    0,    0,    0,    0,    0,    0,    0,    0};
    EXPECT_EQ(rtc_channel_receive_rtcp(client.channel, report.data(), report.size(), &client.now), 0);
    client.sent.clear();
    client.pass(1500); // the reports come each second from the first tick on, so 1010 ms after the sender's
    const rtcp_report_block block = last_block();
    EXPECT_EQ(block.last_sr, 0xCCDD1234u);
    EXPECT_EQ(block.delay_since_sr, 1010u * 65536 / 1000);
    EXPECT_EQ(client.report().sender_reports, 1u);
}

TEST_F(Reports, StandInFrontOfFeedbackThatMayNotStandAlone)
{
    client.receive(sender.delta_frame());
    ASSERT_EQ(client.sent.size(), 1u);
    const bytes &datagram = client.sent[0].data;
    EXPECT_EQ(datagram[1], 201);                        // receiver report
    EXPECT_EQ(datagram[8 + 1], 202);                    // source description
    EXPECT_EQ(datagram[datagram.size() - 12 + 1], 206); // PLI
    EXPECT_TRUE(rtcp_validate(datagram.data(), datagram.size()));
}

// A frame that lost its end would wait for the next one to show it.
TEST_F(Feedback, AsksForTheEndOfAFrameBeforeTheNextFrameShowsTheLoss)
{
    start();
    for (int i = 0; i < 20; i++) {
        client.receive(sender.delta_frame(3));
        client.pass(30);
    }
    client.sent.clear();
    began = client.now;
    const frame torn = sender.delta_frame(4);
    client.receive_without(torn, {2, 3});
    const std::string first = std::to_string(static_cast<uint16_t>(torn.first_seq + 2));
    const std::string second = std::to_string(static_cast<uint16_t>(torn.first_seq + 3));
    EXPECT_EQ(rtc_service_next_at(client.service), began + kFrameEndPlay + kNackHoldMin);
    client.pass(20);
    EXPECT_EQ(texts(), Texts{"10: nack " + first});
    client.receive(sender.delta_frame(3));
    client.pass(10);
    EXPECT_EQ(texts(), (Texts{"10: nack " + first, "30: nack " + second}));
    const size_t whole = client.frames.size();
    client.pass(40);
    client.receive(torn.packets[2]);
    client.receive(torn.packets[3]);
    EXPECT_EQ(client.frames.size(), whole + 2);
    client.sent.clear();
    client.pass(2000);
    EXPECT_EQ(texts(), Texts());
}

TEST_F(Feedback, AsksForTheEndOfAStreamsLastFrame)
{
    start();
    for (int i = 0; i < 20; i++) {
        client.receive(sender.delta_frame(3));
        client.pass(30);
    }
    const frame last = sender.delta_frame(3);
    client.receive_without(last, {2});
    client.pass(70);
    const size_t whole = client.frames.size();
    client.receive(last.packets[2], true);
    client.pass(10);
    EXPECT_EQ(client.frames.size(), whole + 1);
}

// 300 numbers in four gaps, each too short to be a jump.
TEST_F(Feedback, SendsOneRequestAtATimeForMoreThanFitsADatagram)
{
    start();
    for (int gap = 0; gap < 4; gap++) {
        sender.seq = static_cast<uint16_t>(sender.seq + 75);
        client.receive(sender.delta_frame());
    }
    client.now += kNackHoldMin;
    began = client.now;
    client.receive(sender.delta_frame());
    client.receive(sender.delta_frame());
    EXPECT_EQ(client.report().nacks_sent, 1u);
    EXPECT_EQ(client.report().packets_asked_for, 250u);
    EXPECT_LE(rtc_service_next_at(client.service), client.now);
    client.now++;
    rtc_service_tick(client.service, &client.now);
    EXPECT_EQ(client.report().nacks_sent, 2u);
    EXPECT_EQ(client.report().packets_asked_for, 300u);
}

// ---- What somebody is sent who may not be where the packets say ----

bytes small_packet(uint16_t seq, size_t size, bool has_marker)
{
    rtp_builder::rtp_fields fields;
    fields.seq = seq;
    fields.timestamp = seq * 3000u;
    fields.marker = has_marker;
    fields.payload = size > 12 ? rtp_builder::nal_unit(1, size - 13, seq) : bytes();
    return rtp_builder::rtp_packet(fields);
}

struct stranger {
    size_t packet_size; // bytes
    int n_packets;
    bool has_markers;
    uint16_t step; // from one number to the next; above 1 some are missing
    channel_feedback feedback;
};

std::vector<channel_feedback> feedback_kinds()
{
    channel_feedback all = {};
    all.nack = all.pli = all.remb = all.reports = true;
    channel_feedback reduced = all;
    reduced.reduced_size = true;
    channel_feedback fir = reduced;
    fir.fir = true;
    return {all, reduced, fir};
}

std::vector<stranger> strangers()
{
    std::vector<stranger> rows;
    for (const channel_feedback &kind : feedback_kinds()) {
        for (const size_t size : {12u, 13u, 14u, 20u, 21u, 34u, 36u, 40u, 60u, 100u, 400u, 1400u}) {
            for (const int n_packets : {1, 2, 3, 5, 10, 20}) {
                for (const uint16_t step : {uint16_t{1}, uint16_t{2}, uint16_t{60}}) {
                    rows.push_back({size, n_packets, step % 2 == 0, step, kind});
                }
            }
        }
    }
    return rows;
}

constexpr size_t kHeadersMin = 28; // IPv4 and UDP, bytes

// What went out, and what is allowed for what came in, UDP payload alone and with the headers around it.
testing::AssertionResult is_below_three_times(const Client &client, size_t n_received, size_t bytes_received)
{
    size_t sent = 0;
    for (const client_bench::sent_datagram &datagram : client.sent) {
        sent += datagram.data.size();
    }
    const size_t sent_on_path = sent + client.sent.size() * kHeadersMin;
    if (client.sent.empty() ||
        (sent < 3 * bytes_received && sent_on_path < 3 * (bytes_received + n_received * kHeadersMin))) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << client.sent.size() << " datagrams of " << sent << " bytes for " << n_received
                                       << " of " << bytes_received;
}

TEST(FeedbackToAStranger, StaysBelowThreeTimesWhatHeSent)
{
    for (const stranger &row : strangers()) {
        Client client(true, row.feedback);
        uint16_t seq = 100;
        for (int i = 1; i <= row.n_packets; i++, seq = static_cast<uint16_t>(seq + row.step)) {
            client.receive(small_packet(seq, row.packet_size, row.has_markers));
            client.pass(20);
            const auto n = static_cast<size_t>(i);
            ASSERT_TRUE(is_below_three_times(client, n, n * row.packet_size));
        }
        client.pass(20000);
        const auto n = static_cast<size_t>(row.n_packets);
        ASSERT_TRUE(is_below_three_times(client, n, n * row.packet_size))
            << "packets of " << row.packet_size << " bytes, numbers " << row.step << " apart";
    }
}

// A sender's first packets are large, and what he is to be told is small beside them.
TEST(FeedbackToAStranger, IsNotHeldBackFromASenderOfPictures)
{
    for (const channel_feedback &kind : feedback_kinds()) {
        Client client(true, kind);
        client.receive(small_packet(100, 400, false));
        const zeb_ts_t began = client.now;
        ASSERT_EQ(client.sent.size(), 1u);
        EXPECT_EQ(client.sent[0].at, began) << "a key frame is asked for at once";
        client.receive(small_packet(102, 400, false));
        client.pass(10);
        EXPECT_EQ(client.report().nacks_sent, 1u);
        EXPECT_EQ(client.report().reports_sent, 1u);
    }
}

TEST(FeedbackToAStranger, WaitsUntilEnoughCame)
{
    Client client(false, agreed());
    client.receive(small_packet(100, 20, false));
    client.pass(200);
    EXPECT_TRUE(client.sent.empty());
    const zeb_ts_t began = client.now;
    client.receive(small_packet(102, 20, false));
    client.pass(10);
    EXPECT_EQ(sent_texts(client, began), (Texts{"0: pli"})) << "60 bytes with their headers, of 120 at most";
    client.receive(small_packet(103, 40, false));
    client.pass(10);
    EXPECT_EQ(sent_texts(client, began), (Texts{"0: pli", "20: nack 101"}));
}

TEST(FeedbackToAStranger, DoesNotKeepTheServiceAwakeWhileItWaits)
{
    Client client(false, agreed());
    client.receive(small_packet(100, 12, false));
    client.receive(small_packet(102, 12, false));
    client.pass(100);
    EXPECT_EQ(client.report().nacks_sent, 0u);
    EXPECT_EQ(rtc_service_tick(client.service, &client.now), client.now + kServiceTickInterval);
}

TEST_F(Reports, StopFiveSecondsAfterTheLastPacket)
{
    start();
    client.pass(60000);
    ASSERT_FALSE(client.sent.empty());
    EXPECT_LT(client.sent.back().at, began + kFeedbackSilence);
    const size_t n_before = client.sent.size();
    client.receive(sender.delta_frame());
    client.pass(10);
    EXPECT_EQ(client.sent.size(), n_before + 1) << "and begin again with the next one";
}

} // namespace
