#include "api/service.h"

#include <gtest/gtest.h>

#include "client_bench.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::Sender;

namespace
{

TEST(ServiceTick, SaysWhenToCallAgain)
{
    Client client;
    EXPECT_EQ(rtc_service_tick(client.service, &client.now), client.now + kServiceTickInterval);
    EXPECT_EQ(rtc_service_tick(nullptr, &client.now), client.now + kServiceTickInterval);
}

TEST(ServiceTick, DeliversAFrameThatCompletedBehindAnIncompleteOne)
{
    Client client;
    Sender sender;
    client.receive(sender.key_frame());
    const frame first = sender.delta_frame(2);
    const frame second = sender.delta_frame(2);
    client.receive(first.packets[0]);
    client.receive(second);
    client.receive(first.packets[1]);
    client.pass(10);
    EXPECT_EQ(client.frames.size(), 3u);
}

TEST(ServiceTick, ReportsPicturesThatWaitInTheQueue)
{
    Client client(true);
    Sender sender;
    client.receive(sender.key_frame());
    const uint64_t reported = client.stream()->bcm_stat->n_pictures;
    client.pass(2000);
    EXPECT_EQ(client.stream()->bcm_stat->n_pictures, reported) << "handed out frames are reported once";
}

// What the application does with the service from inside its callback must not reach the streams at work.
TEST(ServiceReentrance, IsRefusedFromInsideTheFrameCallback)
{
    Client client;
    Sender sender;
    const frame key = sender.key_frame();
    const frame delta = sender.delta_frame();
    std::vector<int> results;
    client.during_frame = [&] {
        results.push_back(client.receive(delta.packets[0]));
        PVideoData4 video = {};
        results.push_back(rtc_channel_receive_native(client.channel, &video, 0, false, &client.now));
        rtc_service_tick(client.service, &client.now);
        rtc_channel_destroy(client.channel);
        rtc_service_destroy(client.service);
    };
    client.receive(key);
    EXPECT_EQ(results, (std::vector<int>{-1, -1}));
    EXPECT_EQ(client.report().packets, 3u);
    client.during_frame = nullptr;
    client.receive(delta);
    ASSERT_EQ(client.frames.size(), 2u);
    EXPECT_EQ(client.frames[1].data, delta.annexb);
}

TEST(ServiceReentrance, IsRefusedWhileATickDelivers)
{
    Client client;
    Sender sender;
    client.receive(sender.key_frame());
    client.receive_without(sender.delta_frame(2), {1});
    client.receive(sender.key_frame());
    bool is_inside = false;
    client.during_frame = [&] {
        is_inside = true;
        rtc_service_tick(client.service, &client.now);
        rtc_service_destroy(client.service);
    };
    client.pass(2500);
    EXPECT_TRUE(is_inside);
    EXPECT_EQ(client.frames.size(), 2u);
}

TEST(ServiceLife, NullIsHarmless)
{
    rtc_service bare = {};
    rtc_service_destroy(nullptr);
    rtc_service_destroy(&bare);
}

} // namespace
