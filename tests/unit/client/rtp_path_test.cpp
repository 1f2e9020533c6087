// What comes out of RTP packets, whole, damaged, reordered and renumbered.
#include <gtest/gtest.h>

#include <numeric>
#include <utility>

#include "client_bench.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::nal_unit;
using rtp_builder::Sender;

namespace
{

void expect_frame(const taken_frame &taken, const frame &sent)
{
    EXPECT_EQ(taken.data, sent.annexb);
    EXPECT_EQ(taken.is_key, sent.is_key);
    EXPECT_EQ(taken.rtp_timestamp, sent.timestamp);
    EXPECT_EQ(taken.first_seq, sent.first_seq);
    EXPECT_EQ(taken.last_seq, sent.last_seq);
    EXPECT_EQ(taken.codec, VIDEO_TYPE_H264);
    EXPECT_EQ(taken.uid, 0x11223344u);
    EXPECT_EQ(taken.stream_id, 0);
}

void expect_frames(Client &client, const std::vector<frame> &sent)
{
    ASSERT_EQ(client.frames.size(), sent.size()) << client.frame_drops();
    for (size_t i = 0; i < sent.size(); i++) {
        expect_frame(client.frames[i], sent[i]);
    }
}

// ---- Whole streams ----

struct start {
    uint16_t seq;
    uint32_t timestamp;
};

class RtpPathNumbers : public testing::TestWithParam<start>
{
};

INSTANTIATE_TEST_SUITE_P(AroundTheWrap, RtpPathNumbers,
                         testing::Values(start{1000, 90000}, start{0, 0}, start{65535, 0xFFFFFFFF},
                                         start{65530, 0xFFFFFFFF - 6000}, start{65520, 0x7FFFFFFF}));

TEST_P(RtpPathNumbers, HandOutEveryFrameOfAWholeStreamByteForByte)
{
    Client client;
    Sender sender;
    sender.seq = GetParam().seq;
    sender.timestamp = GetParam().timestamp;
    std::vector<frame> sent;
    for (size_t i = 0; i < 20; i++) {
        sent.push_back(i % 7 == 0 ? sender.key_frame(3 + i) : sender.delta_frame(1 + i % 4));
        client.receive(sent.back());
        client.pass(33);
    }
    expect_frames(client, sent);
    EXPECT_EQ(client.packet_drops(), "");
    EXPECT_EQ(client.frame_drops(), "");
    EXPECT_EQ(client.report().frames, 20u);
    EXPECT_EQ(client.report().key_frames, 3u);
    EXPECT_EQ(client.report().key_frame_requests, 0u);
}

TEST_P(RtpPathNumbers, HandOutFramesWhosePacketsComeInReverse)
{
    Client client;
    Sender sender;
    sender.seq = GetParam().seq;
    sender.timestamp = GetParam().timestamp;
    std::vector<frame> sent;
    for (size_t i = 0; i < 6; i++) {
        sent.push_back(i == 0 ? sender.key_frame(5) : sender.delta_frame(4));
        for (size_t k = sent.back().packets.size(); k > 0; k--) {
            client.receive(sent.back().packets[k - 1]);
        }
        client.pass(33);
    }
    expect_frames(client, sent);
    EXPECT_EQ(client.frame_drops(), "");
}

TEST_P(RtpPathNumbers, HandOutALargeKeyFrameWhereverItBegins)
{
    Client client;
    Sender sender;
    sender.seq = static_cast<uint16_t>(GetParam().seq - 300);
    sender.timestamp = GetParam().timestamp;
    sender.nal_size = 200000;
    const frame key = sender.key_frame(1280);
    client.receive(key);
    expect_frames(client, {key});
}

TEST(RtpPath, HandsOutAFrameOfSeveralSlicesAndParameterSets)
{
    Client client;
    Sender sender;
    const frame key = sender.raw_frame(
        {nal_unit(9, 1), nal_unit(7, 9), nal_unit(8, 4), nal_unit(6, 30), nal_unit(5, 500), nal_unit(5, 400)}, true);
    client.receive(key);
    expect_frames(client, {key});
    EXPECT_EQ(client.packet_drops(), "") << "the delimiter in front belongs to the key frame";
}

TEST(RtpPath, TakesH265)
{
    Client client;
    rtc_channel_set_payload_type(client.channel, 96, VIDEO_TYPE_H265);
    Sender sender;
    const std::vector<bytes> nals = {{0x40, 1, 2, 3}, {0x42, 1, 4, 5}, {0x44, 1, 6, 7}, {0x26, 1, 8, 9}};
    const frame key = sender.raw_frame(nals, true);
    client.receive(key);
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].codec, VIDEO_TYPE_H265);
    EXPECT_EQ(client.frames[0].data, key.annexb);
    EXPECT_TRUE(client.frames[0].is_key);
}

TEST(RtpPath, CutsPaddingAndSkipsCsrcsAndExtension)
{
    Client client;
    rtp_builder::rtp_fields fields;
    fields.seq = 7;
    fields.timestamp = 3000;
    fields.csrcs = 2;
    fields.extension_words = 3;
    fields.padding = 5;
    fields.payload = nal_unit(7, 10);
    client.receive(rtp_packet(fields));
    fields.seq = 8;
    fields.marker = true;
    fields.payload = nal_unit(5, 50);
    client.receive(rtp_packet(fields));
    bytes expected = {0, 0, 0, 1};
    for (const bytes &nal : {nal_unit(7, 10), bytes{0, 0, 0, 1}, nal_unit(5, 50)}) {
        expected.insert(expected.end(), nal.begin(), nal.end());
    }
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].data, expected);
}

// ---- Beginnings ----

TEST(RtpPathStart, WaitsForAKeyFrameAndAsksForIt)
{
    Client client;
    Sender sender;
    client.receive(sender.delta_frame());
    EXPECT_EQ(client.report().key_frame_requests, 1u) << "at once";
    client.pass(500);
    EXPECT_EQ(client.packet_drops(), "waiting_for_key_frame=1");
    const frame key = sender.key_frame();
    client.receive(key);
    expect_frames(client, {key});
}

TEST(RtpPathStart, DropsAKeyFrameWithoutItsFirstPacket)
{
    Client client;
    Sender sender;
    client.receive_without(sender.key_frame(6), {0});
    client.pass(1000);
    EXPECT_TRUE(client.frames.empty());
    EXPECT_EQ(client.frame_drops(), "torn=1");
    EXPECT_EQ(client.report().key_frame_requests, 1u);
    client.receive(sender.delta_frame());
    client.pass(1000);
    EXPECT_TRUE(client.frames.empty()) << "what it refers to is not there";
    const frame key = sender.key_frame();
    client.receive(key);
    client.pass(100);
    expect_frames(client, {key});
}

TEST(RtpPathStart, TakesAKeyFrameWithoutParameterSetsBehindAnotherFrame)
{
    Client client;
    Sender sender;
    client.receive(sender.delta_frame());
    const frame key = sender.raw_frame({nal_unit(5, 100)}, true);
    client.receive(key);
    expect_frames(client, {key});
}

TEST(RtpPathStart, TakesAnIdrSliceOrWhatLeadsItForAStreamsBeginningWhenItsParameterSetsWereDescribed)
{
    const bytes sps = nal_unit(7, 10);
    const bytes pps = nal_unit(8, 4);
    bytes sets = {0, 0, 0, 1};
    sets.insert(sets.end(), sps.begin(), sps.end());
    sets.insert(sets.end(), {0, 0, 0, 1});
    sets.insert(sets.end(), pps.begin(), pps.end());
    const std::vector<bytes> slices = {nal_unit(5, 100), nal_unit(5, 90)};
    const std::vector<bytes> behind_information = {nal_unit(6, 20), nal_unit(5, 100), nal_unit(5, 90)};
    for (const std::vector<bytes> &units : {slices, behind_information}) {
        for (const bool is_described : {true, false}) {
            Client client;
            Sender sender;
            if (is_described) {
                rtc_channel_set_parameter_set(client.channel, VIDEO_TYPE_H264, sps.data(), sps.size());
                rtc_channel_set_parameter_set(client.channel, VIDEO_TYPE_H264, pps.data(), pps.size());
            }
            frame key = sender.raw_frame(units, true);
            client.receive(key);
            client.pass(300);
            key.annexb.insert(key.annexb.begin(), sets.begin(), sets.end());
            EXPECT_EQ(client.frames.size(), is_described ? 1u : 0u);
            if (!client.frames.empty()) {
                EXPECT_EQ(client.frames[0].data, key.annexb);
            }
        }
    }
}

TEST(RtpPathStart, AsksForNoKeyFrameWhenWhatComesFirstMayBelongToOne)
{
    Client client;
    Sender sender;
    const frame key =
        sender.raw_frame({nal_unit(9, 1), nal_unit(6, 20), nal_unit(7, 9), nal_unit(8, 4), nal_unit(5, 99)}, true);
    client.receive(key);
    EXPECT_EQ(client.report().key_frame_requests, 0u);
    expect_frames(client, {key});

    Client other;
    other.receive(sender.raw_frame({nal_unit(9, 1), nal_unit(6, 20), nal_unit(1, 99)}, false));
    EXPECT_EQ(other.report().key_frame_requests, 1u) << "none, after all";
}

// The first packet to come need not be the first one of the frame. A frame can do without its delimiter, so nobody waits
// for one that comes behind the parameter set.
TEST(RtpPathStart, PutsAFirstKeyFrameInOrderHoweverItWasReordered)
{
    const std::vector<bytes> nals = {nal_unit(9, 1), nal_unit(7, 9), nal_unit(8, 4), nal_unit(6, 30), nal_unit(5, 500)};
    std::vector<size_t> order(nals.size());
    std::iota(order.begin(), order.end(), size_t{0});
    do {
        Client client;
        Sender sender;
        const frame key = sender.raw_frame(nals, true);
        for (const size_t i : order) {
            client.receive(key.packets[i]);
            client.pass(10);
        }
        const auto place_of = [&order](size_t i) { return std::find(order.begin(), order.end(), i); };
        const bool has_delimiter = place_of(0) < place_of(1);
        ASSERT_EQ(client.frames.size(), 1u);
        const bytes without_delimiter(key.annexb.begin() + 4 + 2, key.annexb.end());
        ASSERT_EQ(client.frames[0].data, has_delimiter ? key.annexb : without_delimiter);
        ASSERT_EQ(client.packet_drops(), has_delimiter ? "" : "late=1");
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(RtpPathStart, GivesUpHoldingAfterItsPatience)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame(6);
    client.receive_without(key, {0});
    client.pass(190);
    EXPECT_EQ(client.stream()->video_cache_q.pkt_cur_cnt, 0u);
    EXPECT_EQ(client.frame_drops(), "");
    client.pass(20);
    EXPECT_EQ(client.frame_drops(), "torn=1");
}

// ---- Losses ----

TEST(RtpPathLoss, GoesOnWithTheNextKeyFrameAfterTwoSeconds)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    client.receive(first);
    client.receive_without(sender.delta_frame(4), {2});
    client.receive(sender.delta_frame());
    client.pass(33);
    const frame second = sender.key_frame();
    client.receive(second);
    client.pass(1900);
    expect_frames(client, {first});
    client.pass(200);
    expect_frames(client, {first, second});
    EXPECT_EQ(client.frame_drops(), "incomplete=1 after_gap=1");
    EXPECT_EQ(client.report().packets_lost, 1u);
    EXPECT_GT(client.report().retransmission_requests, 0u);
    EXPECT_EQ(client.report().freezes_200ms, 1u);
}

TEST(RtpPathLoss, IsRepairedByARetransmission)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame();
    const frame delta = sender.delta_frame(4);
    const frame next = sender.delta_frame();
    client.receive(key);
    client.receive_without(delta, {2});
    client.receive(next);
    client.pass(500);
    expect_frames(client, {key});
    EXPECT_EQ(client.receive(delta.packets[2], true), 0);
    client.pass(20);
    expect_frames(client, {key, delta, next});
    EXPECT_EQ(client.report().packets_retransmitted, 1u);
    EXPECT_EQ(client.report().packets_lost, 0u);
    EXPECT_EQ(client.report().packets_reordered, 0u);
}

TEST(RtpPathLoss, OfWholeFramesKeepsDeltaFramesBackUntilAKeyFrame)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    client.receive(first);
    sender.delta_frame(); // lost
    client.receive(sender.delta_frame(2));
    client.receive(sender.delta_frame());
    client.pass(5000);
    expect_frames(client, {first});
    client.receive(sender.delta_frame());
    client.pass(500);
    const frame second = sender.key_frame();
    client.receive(second);
    const frame third = sender.delta_frame();
    client.receive(third);
    client.pass(5000);
    expect_frames(client, {first, second, third});
}

TEST(RtpPathLoss, OfAKeyFramesFirstPacketBehindAGapTearsIt)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    client.receive(first);
    // Without its parameter sets nothing says that the key frame begins here.
    client.receive_without(sender.key_frame(6), {0, 1});
    client.receive(sender.delta_frame());
    client.pass(6000);
    expect_frames(client, {first});
    EXPECT_EQ(client.report().frames_dropped[FRAME_DROP_TORN], 1u);
    EXPECT_GT(client.report().key_frame_requests, 0u);
}

TEST(RtpPathLoss, OfAFragmentsEndUnderAnEarlyMarkerTearsTheFrame)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame();
    client.receive(key);
    frame cut = sender.delta_frame(3);
    cut.packets.pop_back();
    cut.packets.back()[1] |= 0x80;
    client.receive(cut);
    expect_frames(client, {key});
    EXPECT_EQ(client.frame_drops(), "torn=1");
    sender.seq--;
    client.receive(sender.delta_frame());
    client.pass(100);
    EXPECT_EQ(client.frame_drops(), "after_gap=1 torn=1");
}

TEST(RtpPathLoss, FrameOfMorePacketsThanTheQueueIndexesIsDropped)
{
    Client client;
    Sender sender;
    sender.nal_size = 5000;
    client.receive(sender.key_frame(1281));
    client.pass(100);
    EXPECT_TRUE(client.frames.empty());
    EXPECT_EQ(client.frame_drops(), "not_assembled=1");
    const frame key = sender.key_frame();
    client.receive(key);
    expect_frames(client, {key});
}

TEST(RtpPathLoss, FrameWithoutBitstreamIsDropped)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame();
    client.receive(key);
    // Type 30 of H.264 is no NAL unit and none of the kinds that are taken.
    client.receive(sender.raw_frame({{0x1E, 1, 2, 3}}, false));
    expect_frames(client, {key});
    EXPECT_EQ(client.frame_drops(), "malformed=1");
}

// ---- Copies and latecomers ----

TEST(RtpPathPackets, CountsDuplicatesAndKeepsTheFirstCopy)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame(4);
    std::vector<frame> sent = {key, sender.delta_frame(2)};
    for (const frame &frame : sent) {
        for (const bytes &packet : frame.packets) {
            EXPECT_EQ(client.receive(packet), 0);
            bytes copy = packet;
            copy.back() ^= 0xFF;
            EXPECT_EQ(client.receive(copy), -1);
        }
    }
    expect_frames(client, sent);
    EXPECT_EQ(client.packet_drops(), "duplicate=6");
    EXPECT_EQ(client.report().packets, 12u);
}

TEST(RtpPathPackets, CountsAPacketOfAGivenUpFrameAsLate)
{
    Client client;
    Sender sender;
    client.receive(sender.key_frame());
    const frame lossy = sender.delta_frame(4);
    client.receive_without(lossy, {1});
    client.pass(2100);
    EXPECT_EQ(client.receive(lossy.packets[1], true), -1);
    EXPECT_EQ(client.packet_drops(), "late=1");
}

TEST(RtpPathPackets, DropsAStrayNumberWithoutLosingTheStream)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    client.receive(first);
    rtp_builder::rtp_fields stray;
    stray.seq = static_cast<uint16_t>(sender.seq + 20000);
    stray.timestamp = sender.timestamp;
    client.receive(rtp_packet(stray));
    const frame second = sender.delta_frame();
    client.receive(second);
    expect_frames(client, {first, second});
    EXPECT_EQ(client.packet_drops(), "late=1");
}

TEST(RtpPathPackets, WithoutPayloadBetweenFramesHoldNothingUp)
{
    Client client;
    Sender sender;
    std::vector<frame> sent = {sender.key_frame()};
    client.receive(sent[0]);
    for (int i = 0; i < 5; i++) {
        client.receive(sender.filler());
        client.receive(sender.filler());
        sent.push_back(sender.delta_frame(2));
        client.receive(sent.back());
        client.pass(33);
    }
    expect_frames(client, sent);
    EXPECT_EQ(client.frame_drops(), "");
}

TEST(RtpPathPackets, WithoutPayloadBehindAGapHideNothing)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame();
    client.receive(key);
    sender.delta_frame(); // lost
    client.receive(sender.filler());
    client.receive(sender.delta_frame());
    client.pass(6000);
    expect_frames(client, {key});
}

// ---- Numberings that start over ----

TEST(RtpPathLoss, OfHundredsOfPacketsIsOvercome)
{
    for (const uint16_t lost : {uint16_t{98}, uint16_t{99}, uint16_t{100}, uint16_t{1000}, uint16_t{2998}}) {
        Client client;
        Sender sender;
        const frame first = sender.key_frame();
        client.receive(first);
        sender.seq = static_cast<uint16_t>(sender.seq + lost);
        const frame second = sender.key_frame();
        const frame third = sender.delta_frame(2);
        client.receive(second);
        client.receive(third);
        client.pass(300);
        expect_frames(client, {first, second, third});
        EXPECT_EQ(client.report().packets_lost, lost);
        EXPECT_EQ(client.packet_drops(), "");
    }
}

TEST(RtpPathRestart, FollowsASenderThatNumbersAnew)
{
    for (const int jump : {-30000, -3000, 5000, 30000}) {
        Client client;
        Sender sender;
        std::vector<frame> sent = {sender.key_frame(), sender.delta_frame()};
        client.receive(sent[0]);
        client.receive(sent[1]);
        sender.seq = static_cast<uint16_t>(sender.seq + jump);
        sender.timestamp = 5;
        sent.push_back(sender.key_frame());
        sent.push_back(sender.delta_frame());
        client.receive(sent[2]);
        client.receive(sent[3]);
        client.pass(100);
        expect_frames(client, sent);
        EXPECT_EQ(client.packet_drops(), "") << jump;
    }
}

// Numbers of before that are a little ahead of the new ones are not a long loss, nor another new numbering.
TEST(RtpPathRestart, IsNotUndoneByPacketsThatComeLate)
{
    for (const uint16_t old_seq : {uint16_t{115}, uint16_t{1600}, uint16_t{40000}}) {
        Client client;
        Sender sender;
        sender.seq = old_seq;
        std::vector<frame> sent = {sender.key_frame(), sender.delta_frame()};
        client.receive(sent[0]);
        client.receive(sent[1]);
        const std::vector<frame> late = {sender.delta_frame(), sender.delta_frame(), sender.delta_frame(),
                                         sender.delta_frame()};
        client.receive(sender.delta_frame()); // the newest
        sender.seq = 100;
        sender.timestamp += 0x50000000;
        for (size_t i = 0; i < 30; i++) {
            sent.push_back(i == 0 ? sender.key_frame() : sender.delta_frame());
            client.receive(sent.back());
            if (i == 3 || i == 7) { // two in a row, which confirm each other
                client.receive(late[i / 2 - 1]);
                client.receive(late[i / 2]);
            }
        }
        client.pass(300);
        expect_frames(client, sent);
    }
}

// Its parameter sets may be others, so a key frame without its own does not come out with those of before.
TEST(RtpPathRestart, ForgetsTheParameterSetsOfTheSenderBefore)
{
    Client client;
    Sender sender;
    std::vector<frame> sent = {sender.key_frame(), sender.delta_frame()};
    client.receive(sent[0]);
    client.receive(sent[1]);
    sender.seq = static_cast<uint16_t>(sender.seq + 30000);
    client.receive_without(sender.key_frame(4), {0, 1});
    client.receive(sender.delta_frame());
    client.pass(2100);
    expect_frames(client, sent);
    sent.push_back(sender.key_frame());
    client.receive(sent[2]);
    client.pass(300);
    expect_frames(client, sent);
}

// Its beginning is waited for, in vain, before the cache gets it.
TEST(RtpPathPatience, CountsTheWaitForAKeyFramesBeginning)
{
    channel_feedback feedback = {};
    feedback.nack = true;
    feedback.pli = true;
    Client client(false, feedback);
    Sender sender;
    client.receive(sender.key_frame());
    client.receive_without(sender.key_frame(8), {0, 5}); // nobody sends them again
    client.pass(10);
    const frame whole = sender.key_frame();
    client.receive(whole);
    client.pass(2020);
    ASSERT_EQ(client.frames.size(), 2u);
    EXPECT_EQ(client.frames[1].data, whole.annexb);
}

// The reorder cache numbers its frames from 1000 again after a drop to a key frame, without saying so. Frames that
// were numbered before must not be taken for the new ones.
TEST(RtpPathRestart, OfTheFrameNumbersAfterADropMixesNothingUp)
{
    Client client;
    Sender sender;
    std::vector<frame> expected;
    for (int round = 0; round < 3; round++) {
        const frame key = sender.key_frame(4);
        const frame delta = sender.delta_frame(2);
        client.receive(key);
        client.receive(delta);
        expected.push_back(key);
        expected.push_back(delta);
        client.receive_without(sender.delta_frame(3), {1});
        client.pass(2100);
    }
    expect_frames(client, expected);
    EXPECT_EQ(client.frames[0].frame_seq, 1000u);
    EXPECT_EQ(client.frames[2].frame_seq, 1000u);
    EXPECT_EQ(client.frame_drops(), "incomplete=3");
}

// A key frame that completes with a gap in front is delivered at once, and the numbering starts over in the middle
// of the delivery.
TEST(RtpPathRestart, InTheMiddleOfADeliveryLeavesTheReorderCacheAlone)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    client.receive(first);
    sender.seq++; // one packet lost: nothing is known about it
    const frame second = sender.key_frame();
    const frame third = sender.delta_frame(3);
    const frame fourth = sender.delta_frame(2);
    client.receive_without(second, {2});
    client.receive(third);
    client.receive(fourth);
    client.pass(300);
    client.receive(second.packets[2]);
    expect_frames(client, {first, second, third, fourth});
    ASSERT_EQ(client.frames.size(), 4u);
    EXPECT_EQ(client.frames[1].frame_seq, 1000u);
    EXPECT_EQ(client.frames[3].frame_seq, 1002u);
}

// ---- Reordering in the middle of a stream ----

// A fixed linear congruential generator: the same runs everywhere.
class Random
{
  public:
    explicit Random(uint32_t seed) : state_(seed)
    {
    }
    uint32_t below(uint32_t n)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return (state_ >> 8) % n;
    }

  private:
    uint32_t state_;
};

class RtpPathShuffled : public testing::TestWithParam<uint32_t>
{
};

INSTANTIATE_TEST_SUITE_P(Seeds, RtpPathShuffled, testing::Range<uint32_t>(1, 41));

TEST(RtpPathReorder, OfALargeFrameFromItsEndToItsBeginningMakesOneWholeFrame)
{
    Client client;
    Sender sender;
    sender.nal_size = 50000;
    const frame key = sender.key_frame();
    const frame delta = sender.delta_frame(300);
    client.receive(key);
    for (size_t k = delta.packets.size(); k > 0; k--) {
        client.receive(delta.packets[k - 1]);
    }
    expect_frames(client, {key, delta});
}

// Every packet is up to 20 places late, in key frames as well as in others, with and without delimiters.
TEST_P(RtpPathShuffled, LosesNothingOfAStreamWhosePacketsAreShuffled)
{
    Random random(GetParam());
    Client client;
    Sender sender;
    sender.seq = static_cast<uint16_t>(random.below(65536));
    std::vector<frame> sent;
    std::vector<std::pair<size_t, bytes>> packets;
    for (int i = 0; i < 60; i++) {
        const bool is_key = i % 8 == 0;
        if (is_key && random.below(2) == 0) {
            sent.push_back(sender.raw_frame(
                {nal_unit(9, 1), nal_unit(7, 9), nal_unit(8, 4), nal_unit(5, 90), nal_unit(5, 80)}, true));
        } else {
            sent.push_back(is_key ? sender.key_frame(3 + random.below(6)) : sender.delta_frame(1 + random.below(5)));
        }
        for (const bytes &packet : sent.back().packets) {
            packets.emplace_back(packets.size() + random.below(21), packet);
        }
    }
    std::stable_sort(packets.begin(), packets.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    for (const auto &[place, packet] : packets) {
        client.receive(packet);
        client.pass(5);
    }
    client.pass(300);
    ASSERT_EQ(client.frame_drops(), "");
    ASSERT_EQ(client.frames.size(), sent.size());
    for (size_t i = 1; i < sent.size(); i++) {
        expect_frame(client.frames[i], sent[i]);
    }
    EXPECT_EQ(client.watchdogs(), "");
}

// The second of two key-frame packets comes before the first and, with the end mark, looks like a whole frame.
TEST(RtpPathReorder, OfTwoKeyFramePacketsBehindAnOpenFrameMakesOneWholeFrame)
{
    Client client;
    Sender sender;
    const frame first = sender.key_frame();
    const frame delta = sender.delta_frame(2);
    const frame second = sender.raw_frame({nal_unit(7, 9), nal_unit(5, 90)}, true);
    client.receive(first);
    client.receive(delta.packets[0]);
    client.receive(second.packets[1]);
    client.receive(second.packets[0]);
    client.receive(delta.packets[1]);
    expect_frames(client, {first, delta, second});
}

// ---- Reports ----

TEST(RtpPathReport, CountsFreezesByTheirLength)
{
    Client client;
    Sender sender;
    client.receive(sender.key_frame());
    for (const zeb_ts_t pause : {199u, 200u, 499u, 500u, 599u, 600u}) {
        client.now += pause;
        client.receive(sender.delta_frame());
    }
    const stream_report &report = client.report();
    EXPECT_EQ(report.freezes_200ms, 5u);
    EXPECT_EQ(report.freezes_500ms, 3u);
    EXPECT_EQ(report.freezes_600ms, 1u);
    EXPECT_EQ(report.frozen_200ms, 200u + 499 + 500 + 599 + 600);
    EXPECT_EQ(report.frozen_500ms, 500u + 599 + 600);
    EXPECT_EQ(report.frozen_600ms, 600u);
    EXPECT_EQ(client.stream()->freeze_count_500ms, 3u);
    EXPECT_EQ(client.stream()->freeze_time_600ms, 600u);
}

TEST(RtpPathReport, FillsTheStreamsRecord)
{
    Client client;
    Sender sender;
    sender.seq = 65534;
    const frame key = sender.key_frame();
    client.receive(key);
    const frame delta = sender.delta_frame();
    client.now += 40;
    client.receive(delta.packets[0], true);
    const user_video_stream *stream = client.stream();
    const size_t size = key.packets[0].size() + key.packets[1].size() + key.packets[2].size();
    EXPECT_EQ(stream->n_xfer_packets, 4u);
    EXPECT_EQ(stream->n_xfer_bytes, size + delta.packets[0].size());
    EXPECT_EQ(stream->n_xfer_origin_bytes_recent, size);
    EXPECT_EQ(stream->n_rexfer_bytes_recent, delta.packets[0].size());
    EXPECT_EQ(stream->n_retrans_recent, 1u);
    EXPECT_EQ(stream->n_xfer_frames, 2u);
    EXPECT_EQ(stream->ehsnr, 65537u);
    EXPECT_EQ(stream->received_seq_max, 1u);
    EXPECT_EQ(stream->last_received_at, client.now);
    EXPECT_EQ(stream->last_to_user_at, client.now);
    EXPECT_EQ(stream->n_received_pkt_bytes_max, key.packets[2].size());
    EXPECT_EQ(stream->n_k_frames_to_user, 1u);
    EXPECT_EQ(stream->n_key_recent, 1u);
    EXPECT_EQ(stream->frame_pkt_num_max, 3u);
    EXPECT_EQ(stream->is_webrtc, 1u);
    EXPECT_EQ(stream->codec, VIDEO_TYPE_H264);
}

TEST(RtpPathReport, FeedsTheDownlinkStatistics)
{
    Client client(true);
    Sender sender;
    const frame key = sender.key_frame();
    client.receive(key);
    client.receive(sender.delta_frame().packets[0], true);
    const KelvraBcmStatistics *statistics = client.stream()->bcm_stat;
    ASSERT_NE(statistics, nullptr);
    EXPECT_EQ(statistics->n_packets, 4u);
    EXPECT_EQ(statistics->n_retransmitted, 1u);
    EXPECT_EQ(statistics->n_pictures, 2u);
    EXPECT_EQ(statistics->n_pictures_good, 2u);
}

} // namespace
