// What senders were seen to do: a browser behind a gateway that forwards its RTP, and GStreamer.
#include "real_senders.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using live_scene::outcome;
using namespace real_senders;

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
            number_anew(scene, begins_with_key_frame);
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
            begin_within_key_frame(scene, n_missing);
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
    begin_within_key_frame(scene, 3);
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

class RealSenderOpenEnd : public testing::TestWithParam<OpenEnd>
{
};

TEST_P(RealSenderOpenEnd, FreezesNoTwoSecondsAndTearsNothing)
{
    const OpenEnd &row = GetParam();
    Scene scene;
    scene.play(1000);
    scene.look();
    send_open_end(scene, row);
    scene.play(2000);
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_LE(seen.longest_gap, row.longest_gap);
    EXPECT_GE(seen.n_whole, 50 - row.longest_gap / kFrameInterval);
    EXPECT_LE(scene.report().nacks_sent, 1u); // for what would have been the frame's end
}

INSTANTIATE_TEST_SUITE_P(With, RealSenderOpenEnd, testing::ValuesIn(kOpenEnds),
                         [](const testing::TestParamInfo<OpenEnd> &row) { return std::string(row.param.what); });

// ---- Late repairs ----

TEST(RealSender, RepairsLateAndLosesRequestsToo)
{
    for (unsigned seed = 1; seed <= 5; seed++) {
        SCOPED_TRACE(seed);
        Scene scene;
        LatePath path(scene, 0.05, seed);
        path.play(20000);
        path.play(1000); // what is under way still comes
        const outcome seen = scene.look();
        expect_sound(seen);
        EXPECT_GE(seen.n_whole, 525u - 10u); // the latest may wait for two repairs that are under way
        EXPECT_LE(seen.longest_gap, 600u);
        EXPECT_GE(path.farthest_behind, 43u);
        EXPECT_LE(scene.report().plis_sent, 2u);
        EXPECT_GT(scene.report().packets_repaired, 100u);
        EXPECT_EQ(scene.client.frame_drops(), "");
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

TEST(RealSender, ChangesTheResolutionAtAKeyFrameThatNobodyAskedFor)
{
    Scene scene;
    scene.wants_key_frame = false;
    scene.send(sized_key_frame(scene, 10, 1));
    scene.play(1000);
    scene.send(sized_key_frame(scene, 14, 2));
    scene.play(1000);
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_EQ(seen.n_whole, 52u);
    EXPECT_LE(seen.longest_gap, kFrameInterval);
    EXPECT_EQ(scene.report().plis_sent, 0u);
    EXPECT_EQ(scene.restarts(), "");

    const bytes slice = nal_unit(5, 400, 3);
    scene.client.receive(scene.sender.raw_frame({slice}, true));
    ASSERT_EQ(scene.client.frames.size(), 53u);
    EXPECT_EQ(scene.client.frames.back().data, joined({sps(14, 2), pps(7, 2), slice}))
        << "the sets of the new size go in front";
}

// ---- Header extensions ----

TEST(RealSender, PutsHeaderExtensionsOnEveryPacket)
{
    Scene scene;
    for (int i = 0; i < 50; i++) {
        send_extended(scene, i);
    }
    const outcome seen = scene.look();
    expect_sound(seen);
    EXPECT_EQ(seen.n_whole, 50u);
    EXPECT_EQ(scene.report().packets_lost, 0u);
    EXPECT_EQ(scene.client.refused(PACKET_DROP_BAD_EXTENSION), 0u);
}

} // namespace
