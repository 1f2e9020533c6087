// Senders that break off and go on in another way. Each stream heals, and is counted by name.
#include "restarts.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using live_scene::outcome;
using namespace restarts;

class Restart : public testing::TestWithParam<restart>
{
};

void run(const restart &row, uint16_t first_seq)
{
    SCOPED_TRACE("numbers from " + std::to_string(first_seq));
    Scene scene;
    scene.sender.seq = first_seq;
    scene.play(1000);
    EXPECT_EQ(scene.look().n_whole, 25u);
    begin_anew(scene, row);
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

INSTANTIATE_TEST_SUITE_P(By, Restart, testing::ValuesIn(kRestarts),
                         [](const testing::TestParamInfo<restart> &row) { return std::string(row.param.what); });

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
        const size_t before = scene.client.frames.size();
        change_codec(scene, i, 400);
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
    bye(scene);
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
        bye(scene);
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
        move_on(scene, 1000);
        EXPECT_EQ(scene.look().n_whole, 25u) << i;
    }
}

} // namespace
