// What senders were seen to do: a browser behind a gateway that forwards its RTP, and GStreamer.
#include "live_scene.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace
{

using client_bench::bytes;
using live_scene::kFrameInterval;
using live_scene::kRoundTrip;
using live_scene::outcome;
using live_scene::Scene;
using rtp_builder::frame;
using rtp_builder::nal_unit;

// A key frame comes a round trip after it was asked for, at the next picture.
constexpr zeb_ts_t kAsked = kRoundTrip + 2 * kFrameInterval;

void expect_sound(const outcome &seen)
{
    EXPECT_EQ(seen.n_wrong, 0u);
    EXPECT_EQ(seen.n_broken, 0u);
}

// ---- Beginnings ----

// Whatever numbers were used before, those near to the new ones included.
TEST(RealSender, NumbersAnewAtOneWithTimestampsAtZero)
{
    for (const int first_seq : {30000, 65500, 2500, 600, 60, 1}) {
        for (const bool begins_with_key_frame : {true, false}) {
            SCOPED_TRACE(std::to_string(first_seq) + (begins_with_key_frame ? "" : ", in midstream"));
            Scene scene;
            scene.sender.seq = static_cast<uint16_t>(first_seq);
            scene.sender.timestamp = 0x12345678;
            scene.play(1000);
            scene.look();
            scene.sender.seq = 1;
            scene.sender.timestamp = 0;
            scene.wants_key_frame = begins_with_key_frame;
            scene.play(2000);
            const outcome after = scene.look();
            expect_sound(after);
            EXPECT_LE(after.first_at, begins_with_key_frame ? 0 : kAsked);
            EXPECT_EQ(scene.restarts(), "sequence_jump=1 timestamp_jump=1");
        }
    }
}

// The packets in front are asked for one after the other. A sender that does not have them any more sends a key frame.
TEST(RealSender, BeginsInTheMiddleOfAKeyFrame)
{
    for (const bool answers_nack : {true, false}) {
        for (size_t n_missing = 1; n_missing < 10; n_missing++) {
            SCOPED_TRACE(n_missing);
            Scene scene;
            scene.answers_nack = answers_nack;
            scene.packets = 8;
            const frame key = scene.make_key();
            scene.note(key);
            for (size_t i = n_missing; i < key.packets.size(); i++) {
                scene.client.receive(key.packets[i]);
            }
            scene.play(2000);
            const outcome seen = scene.look();
            expect_sound(seen);
            EXPECT_LE(seen.first_at, answers_nack ? n_missing * (kRoundTrip + kServiceTickInterval) + 10 : 200);
            EXPECT_LE(seen.longest_gap, kFrameInterval);
        }
    }
}

TEST(RealSender, BeginsInTheMiddleOfAKeyFrameAndAnswersNoRequests)
{
    Scene scene;
    scene.answers_nack = false;
    scene.answers_key_requests = false;
    const frame key = scene.make_key();
    scene.note(key);
    for (size_t i = 3; i < key.packets.size(); i++) {
        scene.client.receive(key.packets[i]);
    }
    scene.play(3000);
    EXPECT_EQ(scene.client.frames.size(), 0u) << "nothing that a decoder could begin with has come";
    scene.wants_key_frame = true;
    scene.play(1000);
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_EQ(seen.n_whole, 25u);
}

TEST(RealSender, SendsTwelveBytesToTheRtcpPortFirst)
{
    Scene scene;
    const bytes word = {0x80, 0xC8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(rtc_channel_receive_rtcp(scene.client.channel, word.data(), word.size(), &scene.client.now), -1);
    EXPECT_EQ(rtc_channel_rtcp_malformed(scene.client.channel), 1u);
    scene.play(1000);
    EXPECT_EQ(scene.look().n_whole, 25u);
}

// ---- Frames without an end ----

struct OpenEnd {
    const char *what;
    size_t n_packets; // of the frame that breaks off
    size_t n_sent;    // of those
    bool is_key;      // the frame that breaks off
    bool next_is_key; // the frame behind it
    zeb_ts_t longest_gap;
};

// The frame is left out, and that it has no end shows at the next tick.
constexpr zeb_ts_t kNoticed = 2 * kFrameInterval + kServiceTickInterval;

const OpenEnd kOpenEnds[] = {
    {"DeltaThenKey", 4, 2, false, true, kNoticed},
    {"DeltaOfOnePacketThenKey", 4, 1, false, true, kNoticed},
    {"DeltaThenDelta", 4, 2, false, false, kAsked + 2 * kFrameInterval},
    {"KeyThenKey", 6, 4, true, true, kNoticed},
    {"KeyThenDelta", 6, 4, true, false, kAsked + 2 * kFrameInterval},
};

class RealSenderOpenEnd : public testing::TestWithParam<OpenEnd>
{
};

// The numbers go on without a hole, so nothing says that anything is missing.
TEST_P(RealSenderOpenEnd, FreezesNoTwoSecondsAndTearsNothing)
{
    const OpenEnd &row = GetParam();
    Scene scene;
    scene.play(1000);
    scene.look();
    frame open = row.is_key ? scene.sender.key_frame(row.n_packets) : scene.sender.delta_frame(row.n_packets);
    scene.sender.seq = static_cast<uint16_t>(open.first_seq + row.n_sent);
    open.packets.resize(row.n_sent);
    scene.send(open);
    scene.client.pass(kFrameInterval);
    scene.wants_key_frame = row.next_is_key;
    scene.play(2000);
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_LE(seen.longest_gap, row.longest_gap);
    EXPECT_GE(seen.n_whole, 50 - row.longest_gap / kFrameInterval);
    EXPECT_EQ(scene.report().nacks_sent, 0u);
}

INSTANTIATE_TEST_SUITE_P(With, RealSenderOpenEnd, testing::ValuesIn(kOpenEnds),
                         [](const testing::TestParamInfo<OpenEnd> &row) { return std::string(row.param.what); });

// ---- Late repairs ----

// A path that loses packets, requests and repairs alike, and brings repairs late: 75 ms in the median, up to 260 ms,
// when the newest number is 43 ahead.
class LatePath
{
  public:
    LatePath(double loss, unsigned seed) : loss_(loss), random_(seed)
    {
        scene.packets = 7;
        scene.answers_nack = false;
        scene.answers_key_requests = false;
    }

    Scene scene;
    size_t farthest_behind = 0; // packets

    void play(zeb_ts_t milliseconds)
    {
        const zeb_ts_t end = scene.client.now + milliseconds;
        while (scene.client.now < end) {
            hear();
            deliver();
            if (scene.client.now % kFrameInterval == 0) {
                send();
            }
            scene.client.pass(10);
        }
    }

  private:
    bool is_lost()
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < loss_;
    }

    void send()
    {
        const frame made = scene.wants_key_frame ? scene.make_key() : scene.make_delta();
        scene.note(made);
        for (size_t i = 0; i < made.packets.size(); i++) {
            buffer_[static_cast<uint16_t>(made.first_seq + i)] = made.packets[i];
            if (!is_lost()) {
                scene.client.receive(made.packets[i]);
            }
        }
    }

    void hear()
    {
        static const zeb_ts_t delays[] = {40, 50, 60, 70, 75, 75, 80, 100, 150, 260};
        for (; n_heard_ < scene.client.sent.size(); n_heard_++) {
            if (is_lost()) {
                continue;
            }
            const bytes datagram = scene.client.sent[n_heard_].data;
            rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
            rtcp_item item;
            while (rtcp_next(&cursor, &item)) {
                if (item.kind == RTCP_ITEM_NACK) {
                    plan(item.nack, delays[random_() % 10]);
                }
                scene.wants_key_frame = scene.wants_key_frame || item.kind == RTCP_ITEM_PLI;
            }
        }
    }

    void plan(const rtcp_nack &nack, zeb_ts_t delay)
    {
        rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
        seq_t seq = 0;
        while (rtcp_nack_next(&cursor, &seq)) {
            if (buffer_.count(seq) != 0 && !is_lost()) {
                repairs_.emplace(scene.client.now + delay, seq);
            }
        }
    }

    void deliver()
    {
        while (!repairs_.empty() && repairs_.begin()->first <= scene.client.now) {
            const uint16_t seq = repairs_.begin()->second;
            repairs_.erase(repairs_.begin());
            const auto behind = static_cast<uint16_t>(scene.sender.seq - 1 - seq);
            farthest_behind = std::max<size_t>(farthest_behind, behind);
            scene.client.receive(buffer_[seq], true);
        }
    }

    double loss_;
    std::mt19937 random_;
    std::map<uint16_t, bytes> buffer_;
    std::multimap<zeb_ts_t, uint16_t> repairs_;
    size_t n_heard_ = 0;
};

TEST(RealSender, RepairsLateAndLosesRequestsToo)
{
    for (unsigned seed = 1; seed <= 5; seed++) {
        SCOPED_TRACE(seed);
        LatePath path(0.05, seed);
        path.play(20000);
        path.play(1000); // what is under way still comes
        const outcome seen = path.scene.look();
        expect_sound(seen);
        EXPECT_GE(seen.n_whole, 520u);
        EXPECT_LE(seen.longest_gap, 600u);
        EXPECT_GE(path.farthest_behind, 43u);
        EXPECT_LE(path.scene.report().plis_sent, 2u);
        EXPECT_GT(path.scene.report().packets_repaired, 100u);
        EXPECT_EQ(path.scene.client.frame_drops(), "");
    }
}

// ---- Pictures of another size ----

bytes joined(std::initializer_list<bytes> units)
{
    bytes all;
    for (const bytes &unit : units) {
        all.insert(all.end(), {0, 0, 0, 1});
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

// Parameter sets with the identifier 0 (RFC 6184 leaves that to H.264, 7.3.2: Exp-Golomb code 1).
bytes sps(size_t size, uint32_t salt)
{
    bytes unit = nal_unit(7, size, salt);
    unit[4] |= 0x80;
    return unit;
}

bytes pps(size_t size, uint32_t salt)
{
    bytes unit = nal_unit(8, size, salt);
    unit[1] |= 0xC0;
    return unit;
}

TEST(RealSender, ChangesTheResolutionAtAKeyFrameThatNobodyAskedFor)
{
    Scene scene;
    const bytes small_sps = sps(10, 1);
    const bytes small_pps = pps(4, 1);
    const bytes large_sps = sps(14, 2);
    const bytes large_pps = pps(6, 2);
    const bytes slice = nal_unit(5, 400, 3);
    scene.wants_key_frame = false;
    scene.send(scene.sender.raw_frame({small_sps, small_pps, slice}, true));
    scene.play(1000);
    scene.send(scene.sender.raw_frame({large_sps, large_pps, slice}, true));
    scene.play(1000);
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_EQ(seen.n_whole, 52u);
    EXPECT_LE(seen.longest_gap, kFrameInterval);
    EXPECT_EQ(scene.report().plis_sent, 0u);
    EXPECT_EQ(scene.restarts(), "");

    scene.client.receive(scene.sender.raw_frame({slice}, true));
    ASSERT_EQ(scene.client.frames.size(), 53u);
    EXPECT_EQ(scene.client.frames.back().data, joined({large_sps, large_pps, slice}))
        << "the sets of the new size go in front";
}

// ---- Header extensions ----

// Puts an extension of one-byte elements (RFC 8285, 4.2) into a packet: an element of three bytes, one of two and a
// byte of padding in each eight.
bytes extended(const bytes &packet, size_t n_words)
{
    static const bytes words = {0x22, 1, 2, 3, 0x51, 4, 5, 0};
    bytes made(packet.begin(), packet.begin() + 12);
    made[0] |= 0x10;
    made.insert(made.end(), {0xBE, 0xDE, 0, static_cast<uint8_t>(n_words)});
    for (size_t i = 0; i < 4 * n_words; i++) {
        made.push_back(words[i % words.size()]);
    }
    made.insert(made.end(), packet.begin() + 12, packet.end());
    return made;
}

TEST(RealSender, PutsHeaderExtensionsOnEveryPacket)
{
    Scene scene;
    for (int i = 0; i < 50; i++) {
        frame made = i % 20 == 0 ? scene.make_key() : scene.make_delta();
        for (size_t k = 0; k < made.packets.size(); k++) {
            made.packets[k] = extended(made.packets[k], (static_cast<size_t>(i) + k) % 6);
        }
        scene.loses = [i](size_t index) { return i % 7 == 3 && index == 1; };
        scene.send(made);
        scene.loses = nullptr;
        scene.wants_key_frame = false;
        scene.client.pass(kFrameInterval);
        scene.answer();
    }
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_EQ(seen.n_whole, 50u);
    EXPECT_EQ(scene.report().packets_lost, 0u);
    EXPECT_EQ(scene.client.refused(PACKET_DROP_BAD_EXTENSION), 0u);
}

} // namespace
