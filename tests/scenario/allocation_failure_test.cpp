// A stream of each kind again and again with the 1st, 2nd, 3rd ... allocation failing, once and for good. Other scenes are in
// allocation_sweep_test.cpp.
#include <gtest/gtest.h>

#include "allocation_sweep.h"

using client_bench::Client;
using failing_memory::failing;
using live_scene::kFrameInterval;
using live_scene::Scene;
using rtp_builder::frame;
using rtp_builder::Sender;

namespace
{

// A stream with everything that allocates: a start in the middle, reordering, a loss, a new numbering.
void everything(Scene &scene)
{
    scene.client.receive(scene.sender.delta_frame());
    const frame key = scene.sender.key_frame(4);
    scene.note(key);
    for (size_t i = 4; i > 0; i--) {
        scene.deliver(key, i - 1);
    }
    scene.wants_key_frame = false;
    scene.play(kFrameInterval);
    scene.loses = [](size_t index) { return index == 1; };
    scene.play(kFrameInterval);
    scene.loses = nullptr;
    scene.play(3 * kFrameInterval);
    scene.sender.seq = static_cast<uint16_t>(scene.sender.seq + 20000);
    scene.wants_key_frame = true;
    scene.play(2 * kFrameInterval);
}

void native(Scene &scene)
{
    scene.is_native = true;
    scene.play(4 * kFrameInterval);
    scene.wants_key_frame = true;
    scene.play(2 * kFrameInterval);
}

class AllocationFailure : public testing::TestWithParam<failing>
{
  protected:
    void SetUp() override
    {
        n_in_use = failing_memory::in_use();
    }
    void TearDown() override
    {
        failing_memory::fail(0, failing::once);
        EXPECT_EQ(failing_memory::in_use(), n_in_use) << "leaked";
    }

    long n_in_use = 0;
};

INSTANTIATE_TEST_SUITE_P(Sweep, AllocationFailure, testing::Values(failing::once, failing::forever),
                         [](const auto &param) { return param.param == failing::once ? "Once" : "ForGood"; });

TEST_P(AllocationFailure, OfAnyBlockOfAnRtpStreamLosesFramesAndNothingElse)
{
    EXPECT_GT(allocation_sweep::sweep({"rtp", everything}, GetParam()), 30u);
}

TEST_P(AllocationFailure, OfAnyBlockOfANativeStreamLosesFramesAndNothingElse)
{
    EXPECT_GT(allocation_sweep::sweep({"native", native}, GetParam()), 30u);
}

TEST_P(AllocationFailure, OfAServiceOrAChannelGivesNull)
{
    failing_memory::fail(1, GetParam());
    EXPECT_EQ(rtc_service_create(), nullptr);
    failing_memory::fail(0, GetParam());
    rtc_service *service = rtc_service_create();
    const channel_config config = {};
    failing_memory::fail(1, GetParam());
    EXPECT_EQ(rtc_channel_create(service, &config), nullptr);
    rtc_service_destroy(service);
}

// The oldest packet of the cache has no frame, so nothing behind it can come out.
TEST(AllocationFailureOfAFrameNode, AtTheHeadIsHealedByTheWatchdog)
{
    bool is_found = false;
    for (size_t nth = 1; nth < 40 && !is_found; nth++) {
        Client client;
        Sender sender;
        client.receive(sender.key_frame());
        const frame delta = sender.delta_frame(2);
        failing_memory::fail(nth, failing::once);
        client.receive(delta);
        failing_memory::fail(0, failing::once);
        client.pass(10);
        is_found = client.watchdogs() == "head_without_frame=1";
        if (is_found) {
            EXPECT_EQ(client.report().packets_dropped[PACKET_DROP_NO_MEMORY], 1u);
            const frame key = sender.key_frame();
            client.receive(key);
            client.pass(300);
            EXPECT_EQ(client.frames.back().data, key.annexb);
        }
    }
    EXPECT_TRUE(is_found);
}

} // namespace
