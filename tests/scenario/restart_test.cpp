// Senders that break off and go on in another way. Each stream heals, and is counted by name.
#include "live_scene.h"
#include "packet_hold.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using live_scene::kFrameInterval;
using live_scene::kRoundTrip;
using live_scene::outcome;
using live_scene::Scene;

constexpr zeb_ts_t kMinute = 60000;
constexpr uint32_t kHour = 3600u * 90000; // timestamp units

void h265(Scene &scene)
{
    scene.codec = VIDEO_TYPE_H265;
    scene.sender.payload_type = 97;
}

struct Row {
    const char *what;
    void (*restart)(Scene &scene);
    bool begins_with_key_frame;
    zeb_ts_t first_within; // ms from the restart to the first frame that comes out; a key frame, unless at once
    const char *counted;
};

// A key frame comes a round trip after it was asked for, at the next picture; what was asked for late, later.
constexpr zeb_ts_t kAtOnce = 0;
// What may still come in front of a key frame behind a loss is waited for.
constexpr zeb_ts_t kHeld = kPacketHoldPatience;
constexpr zeb_ts_t kAsked = kRoundTrip + 2 * kFrameInterval;

const Row kRows[] = {
    {"NewSsrc", [](Scene &scene) { scene.sender.ssrc = 0xABCD0001; }, true, kAtOnce, "new_ssrc=1"},
    {"NewSsrcInMidstream", [](Scene &scene) { scene.sender.ssrc = 0xABCD0001; }, false, kAsked, "new_ssrc=1"},
    {"NumbersFarAhead", [](Scene &scene) { scene.sender.seq += 5000; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersHalfACircleOff", [](Scene &scene) { scene.sender.seq += 32768; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersFarBack", [](Scene &scene) { scene.sender.seq -= 5000; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersInMidstream", [](Scene &scene) { scene.sender.seq -= 5000; }, false, kAsked, "sequence_jump=1"},
    {"LongLoss", [](Scene &scene) { scene.sender.seq += 500; }, true, kHeld, "long_loss=1"},
    {"LongLossInMidstream", [](Scene &scene) { scene.sender.seq += 500; }, false, kAsked, "long_loss=1"},
    {"TimestampAhead", [](Scene &scene) { scene.sender.timestamp += kHour; }, true, kAtOnce, "timestamp_jump=1"},
    {"TimestampBack", [](Scene &scene) { scene.sender.timestamp -= kHour; }, true, kAtOnce, "timestamp_jump=1"},
    {"TimestampAheadInMidstream", [](Scene &scene) { scene.sender.timestamp += kHour; }, false, kAtOnce,
     "timestamp_jump=1"},
    {"TimestampBackInMidstream", [](Scene &scene) { scene.sender.timestamp -= kHour; }, false, kAtOnce,
     "timestamp_jump=1"},
    {"TimestampAtZero", [](Scene &scene) { scene.sender.timestamp = 0; }, false, kAtOnce, ""},
    {"PauseOfMinutes",
     [](Scene &scene) {
         scene.rest(3 * kMinute);
         scene.sender.timestamp += 3 * 60 * 90000;
     },
     false, kAtOnce, "pause=1"},
    {"PauseOfAStandingClock", [](Scene &scene) { scene.rest(3 * kMinute); }, false, kAtOnce, "pause=1"},
    {"PauseOfHours",
     [](Scene &scene) {
         scene.client.now += 10 * 60 * kMinute; // a device that slept
         scene.sender.timestamp += 10 * kHour;
     },
     false, kAtOnce, "pause=1"},
    {"PauseAndNewNumbers",
     [](Scene &scene) {
         scene.rest(2 * kMinute);
         scene.sender.seq += 20000;
         scene.sender.timestamp += 7 * kHour;
     },
     true, kAtOnce, "sequence_jump=1 timestamp_jump=1 pause=1"},
    {"Codec", h265, true, kAtOnce, "codec_change=1"},
    {"CodecInMidstream", h265, false, kAsked, "codec_change=1"},
    {"CodecAndNumbers",
     [](Scene &scene) {
         h265(scene);
         scene.sender.seq += 7000;
         scene.sender.timestamp = 0x89ABCDEF;
     },
     true, kAtOnce, "sequence_jump=1 timestamp_jump=1 codec_change=1"},
    {"AllAnew",
     [](Scene &scene) {
         h265(scene);
         scene.sender.ssrc = 0xABCD0002;
         scene.sender.seq = 1;
         scene.sender.timestamp = 0;
     },
     true, kAtOnce, "new_ssrc=1"},
};

class Restart : public testing::TestWithParam<Row>
{
};

void run(const Row &row, uint16_t first_seq)
{
    SCOPED_TRACE("numbers from " + std::to_string(first_seq));
    Scene scene;
    scene.sender.seq = first_seq;
    scene.play(1000);
    EXPECT_EQ(scene.look().n_whole, 25u);
    row.restart(scene);
    scene.wants_key_frame = row.begins_with_key_frame;
    scene.look();
    scene.play(2000);
    const outcome after = scene.look();
    EXPECT_EQ(after.n_wrong, 0u);
    EXPECT_EQ(after.n_broken, 0u);
    EXPECT_LE(after.first_at, row.first_within);
    EXPECT_TRUE(after.begins_with_key || row.first_within == kAtOnce);
    EXPECT_GE(after.n_whole, 50 - row.first_within / kFrameInterval);
    EXPECT_EQ(scene.restarts(), row.counted);
    EXPECT_EQ(scene.client.watchdogs(scene.sender.ssrc), "");
}

TEST_P(Restart, Heals)
{
    for (const int first_seq : {1000, 65400, 65460, 65535, 1}) {
        run(GetParam(), static_cast<uint16_t>(first_seq));
    }
}

INSTANTIATE_TEST_SUITE_P(By, Restart, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row> &row) { return std::string(row.param.what); });

// Numbers that came before: what the sender sends now looks like copies and latecomers.
TEST(RestartBehind, ByFewerNumbersThanALatePacketMayBe)
{
    for (const int back : {1, 20, 60, 77}) {
        SCOPED_TRACE(back);
        Scene scene;
        scene.play(1000);
        scene.look();
        scene.sender.seq = static_cast<uint16_t>(scene.sender.seq - back);
        scene.sender.timestamp = 0;
        scene.wants_key_frame = true;
        scene.play(2000);
        const outcome after = scene.look();
        EXPECT_EQ(after.n_wrong, 0u);
        EXPECT_EQ(after.n_broken, 0u);
        EXPECT_GE(after.n_whole, 45u);
        EXPECT_EQ(scene.restarts(), "sequence_jump=1");
    }
}

TEST(RestartByCodec, AndBackAgainGivesEveryFrame)
{
    Scene scene;
    for (int i = 0; i < 4; i++) {
        scene.codec = i % 2 == 0 ? VIDEO_TYPE_H264 : VIDEO_TYPE_H265;
        scene.sender.payload_type = i % 2 == 0 ? 96 : 97;
        scene.wants_key_frame = true;
        const size_t before = scene.client.frames.size();
        scene.play(400);
        for (size_t k = before; k < scene.client.frames.size(); k++) {
            EXPECT_EQ(scene.client.frames[k].codec, scene.codec);
        }
    }
    const outcome all = scene.look();
    EXPECT_EQ(all.n_whole, 40u);
    EXPECT_EQ(all.n_wrong + all.n_broken, 0u);
    EXPECT_EQ(scene.report().restarts[RESTART_CODEC_CHANGE], 3u);
}

TEST(RestartByBye, IsSilentUntilTheSenderSpeaksAgain)
{
    Scene scene;
    scene.play(1000);
    scene.loses = [](size_t) { return true; };
    scene.play(kFrameInterval); // what is said last never comes
    scene.loses = nullptr;
    const rtp_builder::frame head = scene.make_delta();
    scene.note(head);
    scene.client.receive(head.packets[0]);
    const client_bench::bytes bye = {0x81, 203, 0, 1, 0x11, 0x22, 0x33, 0x44};
    rtc_channel_receive_rtcp(scene.client.channel, bye.data(), bye.size(), &scene.client.now);
    scene.client.sent.clear();
    scene.rest(kMinute);
    EXPECT_TRUE(scene.client.sent.empty());
    EXPECT_EQ(scene.report().byes, 1u);
}

TEST(RestartByBye, GoesOnUnderANewSsrcAndUnderTheOldOne)
{
    for (const bool is_new : {false, true}) {
        Scene scene;
        scene.play(1000);
        const client_bench::bytes bye = {0x81, 203, 0, 1, 0x11, 0x22, 0x33, 0x44};
        rtc_channel_receive_rtcp(scene.client.channel, bye.data(), bye.size(), &scene.client.now);
        EXPECT_EQ(scene.report().byes, 1u);
        scene.rest(1000);
        scene.look();
        scene.sender.ssrc += is_new ? 1 : 0;
        scene.sender.seq = 40000;
        scene.play(2000); // in midstream: asked for
        const outcome after = scene.look();
        EXPECT_EQ(after.n_wrong + after.n_broken, 0u);
        EXPECT_LE(after.first_at, kAsked);
        EXPECT_EQ(scene.restarts(), is_new ? "new_ssrc=1" : "sequence_jump=1");
    }
}

// A sender that moves on and on: the channel keeps a few of them and puts out the silent ones.
TEST(RestartByNewSsrc, AgainAndAgainFindsAPlaceEachTime)
{
    Scene scene;
    for (uint32_t i = 0; i < 20; i++) {
        scene.sender.ssrc += 1;
        scene.wants_key_frame = true;
        scene.play(1000);
        EXPECT_EQ(scene.look().n_whole, 25u) << i;
    }
}

} // namespace
