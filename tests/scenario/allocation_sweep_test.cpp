// Every kind of scene again and again with the 1st, 2nd, 3rd ... allocation failing, once and for good.
#include "allocation_sweep.h"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "damaged_link.h"
#include "lossy_link.h"
#include "real_senders.h"
#include "restarts.h"
#include "session/user.h"

namespace
{

using allocation_sweep::scene_row;
using failing_memory::failing;
using live_scene::kFrameInterval;
using live_scene::Scene;

constexpr zeb_ts_t kBefore = 2 * kFrameInterval;
constexpr zeb_ts_t kAfter = 5 * kFrameInterval; // a round trip and a key frame

// ---- Restarts, and what real senders do ----

void restart(Scene &scene, const restarts::restart &how)
{
    scene.play(kBefore);
    restarts::begin_anew(scene, how);
    scene.play(kAfter);
}

void open_end(Scene &scene, const real_senders::OpenEnd &row)
{
    scene.play(kBefore);
    real_senders::send_open_end(scene, row);
    scene.play(kAfter);
}

void number_anew(Scene &scene)
{
    scene.sender.timestamp = 0x12345678;
    scene.play(kBefore);
    real_senders::number_anew(scene, false);
    scene.play(kAfter);
}

void begin_within_key_frame(Scene &scene)
{
    scene.packets = 4;
    real_senders::begin_within_key_frame(scene, 2);
    scene.play(kAfter + kBefore);
}

void begin_within_key_frame_for_good(Scene &scene)
{
    scene.answers_nack = false;
    begin_within_key_frame(scene);
}

void late_path(Scene &scene)
{
    real_senders::LatePath(scene, 0.1, 1).play(800);
    scene.packets = 3;
}

void another_size(Scene &scene)
{
    scene.wants_key_frame = false;
    for (const uint32_t size : {10u, 14u}) {
        scene.send(real_senders::sized_key_frame(scene, size, size));
        scene.play(kBefore);
    }
}

// Key frames come without their parameter sets, and the client puts them in front. They are those of the key frames that
// the scene heals with.
void described_sets(Scene &scene)
{
    client_bench::bytes sets;
    for (const client_bench::bytes &unit : {rtp_builder::nal_unit(7, 10), rtp_builder::nal_unit(8, 4)}) {
        rtc_channel_set_parameter_set(scene.client.channel, VIDEO_TYPE_H264, unit.data(), unit.size());
        sets.insert(sets.end(), {0, 0, 0, 1});
        sets.insert(sets.end(), unit.begin(), unit.end());
    }
    scene.answers_key_requests = scene.wants_key_frame = false;
    for (int i = 0; i < 3; i++) {
        rtp_builder::frame bare = scene.sender.raw_frame({rtp_builder::nal_unit(5, 400, 3)}, true);
        bare.annexb.insert(bare.annexb.begin(), sets.begin(), sets.end());
        scene.send(bare);
        scene.play(2 * kFrameInterval);
    }
}

void header_extensions(Scene &scene)
{
    for (int i = 0; i < 12; i++) {
        real_senders::send_extended(scene, i);
    }
}

// ---- Links ----

void lossy(Scene &scene, const lossy_link::settings &given)
{
    lossy_link::Link link(scene.client, given);
    link.run();
    scene.sender = link.sender();
    for (const auto &sent : link.sent()) {
        scene.note(sent.frame);
    }
}

lossy_link::settings short_link()
{
    lossy_link::settings given;
    given.n_frames = 10;
    given.key_packets = 6;
    return given;
}

void loss_and_retransmissions(Scene &scene)
{
    lossy_link::settings given = short_link();
    given.loss = 0.1;
    lossy(scene, given);
}

void bursts_and_reordering(Scene &scene)
{
    lossy_link::settings given = short_link();
    given.loss = 0.05;
    given.burst = 4;
    given.reorder_by = 25;
    given.seed = 2;
    lossy(scene, given);
}

void padding_probes(Scene &scene)
{
    lossy_link::settings given = short_link();
    given.probe_every = 2;
    given.loss = 0.05;
    given.reorder_by = 25;
    given.seed = 3;
    lossy(scene, given);
}

void damaged(Scene &scene, const damaged_link::settings &preset)
{
    damaged_link::Random random(7);
    damaged_link::Link link(preset, 7);
    for (const rtp_builder::frame &sent : damaged_link::run(scene.client, scene.sender, link, random, 20)) {
        scene.note(sent);
    }
    scene.client.pass(kFrameInterval);
}

void link_with_everything(Scene &scene)
{
    damaged(scene, {"everything", 30, 30, 100, 150, 700, 0});
}

void link_that_damages(Scene &scene)
{
    damaged(scene, {"damage", 10, 50, 100, 50, 500, 30});
}

// Loses every fifth packet, and sends it again.
void lose_some(Scene &scene, zeb_ts_t milliseconds)
{
    size_t n = 0;
    scene.loses = [&n](size_t) { return ++n % 5 == 0; };
    scene.play(milliseconds);
    scene.loses = nullptr;
    scene.play(2 * kFrameInterval);
}

void rtx(Scene &scene)
{
    scene.sends_rtx = true;
    lose_some(scene, 6 * kFrameInterval);
    rtc_channel_pair_ssrc(scene.client.channel, scene.sender.ssrc, live_scene::kRtxSsrc);
    lose_some(scene, 4 * kFrameInterval);
}

// ---- Senders and codecs ----

void codecs_in_turns(Scene &scene)
{
    for (int turn = 0; turn < 4; turn++) {
        restarts::change_codec(scene, turn, 2 * kFrameInterval);
    }
}

// More than a channel has room for: the silent ones make room.
void senders_come_and_go(Scene &scene)
{
    for (size_t i = 0; i <= kChannelSendersDefault; i++) {
        restarts::move_on(scene, kFrameInterval);
        if (i % 3 == 1) {
            restarts::bye(scene);
        }
        if (i + 1 == kChannelSendersDefault) {
            scene.rest(kUserSilence);
        }
    }
}

void two_senders_at_a_time(Scene &scene)
{
    rtp_builder::Sender other = scene.sender;
    other.ssrc += 1;
    for (int i = 0; i < 10; i++) {
        scene.wants_key_frame = i < 2;
        scene.play(kFrameInterval);
        std::swap(scene.sender, other);
    }
}

// ---- The native path ----

void native(Scene &scene)
{
    scene.is_native = true;
    scene.play(kBefore);
    scene.loses = [](size_t index) { return index == 1; };
    scene.play(kFrameInterval);
    scene.loses = nullptr;
    scene.wants_key_frame = true;
    scene.play(kBefore);
    scene.frame_seq = 4; // anew
    scene.wants_key_frame = true;
    scene.play(kBefore);
}

std::vector<scene_row> rows()
{
    std::vector<scene_row> all = {
        {"NumbersAnewAtOne", number_anew},
        {"BeginningWithinAKeyFrame", begin_within_key_frame},
        {"BeginningWithinAKeyFrameForGood", begin_within_key_frame_for_good},
        {"LateRepairs", late_path},
        {"PictureOfAnotherSize", another_size},
        {"DescribedParameterSets", described_sets},
        {"HeaderExtensions", header_extensions},
        {"LossAndRetransmissions", loss_and_retransmissions},
        {"BurstsAndReordering", bursts_and_reordering},
        {"PaddingProbes", padding_probes},
        {"RtxByNumberAndByPair", rtx},
        {"StatisticsAndBandwidthEstimation", loss_and_retransmissions, true},
        {"LinkWithEverything", link_with_everything},
        {"LinkThatDamages", link_that_damages, false, true, true},
        {"CodecsInTurns", codecs_in_turns},
        {"SendersComeAndGo", senders_come_and_go, false, false, true},
        {"TwoSendersAtATime", two_senders_at_a_time},
        {"Native", native},
        {"NativeWithBandwidthEstimation", native, true},
    };
    for (const restarts::restart &how : restarts::kRestarts) {
        if (!how.rests) { // the pause of hours is as long for the client, with fewer ticks
            all.push_back({std::string("RestartBy") + how.what, [&how](Scene &scene) { restart(scene, how); }});
        }
    }
    for (const real_senders::OpenEnd &row : real_senders::kOpenEnds) {
        all.push_back({std::string("OpenEnd") + row.what, [&row](Scene &scene) { open_end(scene, row); }});
    }
    return all;
}

class AllocationSweep : public testing::TestWithParam<std::tuple<scene_row, failing>>
{
};

TEST_P(AllocationSweep, LosesPicturesAndNothingElse)
{
    const auto &[row, how] = GetParam();
    std::printf("%zu runs\n", allocation_sweep::sweep(row, how));
}

INSTANTIATE_TEST_SUITE_P(Of, AllocationSweep,
                         testing::Combine(testing::ValuesIn(rows()), testing::Values(failing::once, failing::forever)),
                         [](const auto &row) {
                             return std::get<0>(row.param).what +
                                    (std::get<1>(row.param) == failing::once ? "_Once" : "_ForGood");
                         });

} // namespace
