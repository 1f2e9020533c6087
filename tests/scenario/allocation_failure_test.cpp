// Runs whole streams again and again with the 1st, 2nd, 3rd ... allocation failing, once and for good.
#include <gtest/gtest.h>

#include <cstring>

#include "client_bench.h"
#include "failing_memory.h"

using namespace client_bench;
using failing_memory::failing;
using rtp_builder::frame;
using rtp_builder::Sender;

namespace
{

// What may be missing is frames; what is there is right.
void expect_some_of(const std::vector<taken_frame> &taken, const std::vector<frame> &sent)
{
    size_t next = 0;
    for (const taken_frame &frame : taken) {
        while (next < sent.size() && sent[next].timestamp != frame.rtp_timestamp) {
            next++;
        }
        ASSERT_LT(next, sent.size()) << "out of order or never sent";
        ASSERT_EQ(frame.data, sent[next].annexb);
        next++;
    }
}

// A stream with everything that allocates: a start in the middle, reordering, a loss, a new numbering, a second sender.
void run_rtp(Client &client, std::vector<frame> &sent)
{
    Sender sender;
    client.receive(sender.delta_frame());
    sent.push_back(sender.key_frame(4));
    for (size_t i = 4; i > 0; i--) {
        client.receive(sent.back().packets[i - 1]);
    }
    sent.push_back(sender.delta_frame(3));
    client.receive(sent.back());
    sent.push_back(sender.delta_frame(3));
    client.receive_without(sent.back(), {1});
    sent.push_back(sender.key_frame(3));
    client.receive(sent.back());
    client.pass(2200);
    sender.seq = static_cast<uint16_t>(sender.seq + 20000);
    sent.push_back(sender.key_frame(3));
    client.receive(sent.back());
    client.pass(100);
}

// The stream recovers once there is memory again.
void expect_recovery(Client &client)
{
    Sender sender;
    sender.seq = static_cast<uint16_t>(1000 + 20000 + 100);
    sender.timestamp = 10000000;
    client.receive(sender.delta_frame());
    client.pass(6000);
    const frame key = sender.key_frame(4);
    client.receive(key);
    client.pass(300);
    ASSERT_FALSE(client.frames.empty());
    ASSERT_EQ(client.frames.back().data, key.annexb);
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
    size_t n_runs = 0;
    bool has_failed = true;
    for (size_t nth = 1; has_failed; nth++) {
        Client client;
        std::vector<frame> sent;
        failing_memory::fail(nth, GetParam());
        run_rtp(client, sent);
        has_failed = failing_memory::asked() >= nth;
        failing_memory::fail(0, failing::once);
        ASSERT_NO_FATAL_FAILURE(expect_some_of(client.frames, sent)) << "allocation " << nth;
        if (has_failed) {
            EXPECT_LT(client.frames.size() + client.refused(PACKET_DROP_NO_MEMORY), sent.size() + 100);
        } else {
            EXPECT_EQ(client.frames.size(), sent.size() - 1) << "all but the damaged one";
        }
        ASSERT_NO_FATAL_FAILURE(expect_recovery(client)) << "allocation " << nth;
        n_runs++;
    }
    EXPECT_GT(n_runs, 30u);
}

PVideoData4 native_packet(uint32_t frame_seq, uint16_t seq, uint16_t n_pkts, uint16_t subseq, bool is_key)
{
    rtp_builder::rtp_fields fields;
    fields.seq = seq;
    fields.payload = rtp_builder::nal_unit(is_key ? 5 : 1, 30);
    const bytes packet = rtp_packet(fields);
    PVideoData4 video = {};
    video.common.uid = 3;
    video.common.seq = seq;
    video.header.frame_seq = frame_seq;
    video.header.n_pkts = n_pkts;
    video.header.subseq = subseq;
    video.header.video_type = is_key ? 0x00 : 0x10;
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
    if (video.payload.values != nullptr) {
        video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
        memcpy(video.payload.values, packet.data(), packet.size());
    }
    return video;
}

void run_native(Client &client)
{
    uint16_t seq = 100;
    for (uint32_t i = 0; i < 6; i++) {
        for (uint16_t k = 0; k < 3; k++) {
            PVideoData4 video = native_packet(10 + i, seq++, 3, k, i % 3 == 0);
            rtc_channel_receive_native(client.channel, &video, 0, false, &client.now);
        }
        client.pass(500);
    }
}

TEST_P(AllocationFailure, OfAnyBlockOfANativeStreamLosesFramesAndNothingElse)
{
    bool has_failed = true;
    for (size_t nth = 1; has_failed; nth++) {
        Client client;
        failing_memory::fail(nth, GetParam());
        run_native(client);
        has_failed = failing_memory::asked() >= nth;
        failing_memory::fail(0, failing::once);
        EXPECT_LE(client.frames.size(), 6u);
        for (size_t i = 1; i < client.frames.size(); i++) {
            EXPECT_GT(client.frames[i].frame_seq, client.frames[i - 1].frame_seq);
        }
        for (const taken_frame &frame : client.frames) {
            EXPECT_EQ(frame.data.size(), 3u * 35);
        }
    }
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
