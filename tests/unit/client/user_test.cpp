// The calls that the video module makes, on streams that the client knows and on records that it does not.
#include <gtest/gtest.h>

#include "client_bench.h"
#include "session/user.h"

using namespace client_bench;
using rtp_builder::Sender;

namespace
{

constexpr zeb_ts_t kNow = 4711;

TEST(UserRequests, AreCountedEachTimeTheNeedIsSeen)
{
    Client client;
    Sender sender;
    client.receive(sender.key_frame());
    user_video_stream *stream = client.stream();
    webrtc_video_send_intra_request(&stream->video_cache_q, &kNow);
    webrtc_video_send_intra_request(&stream->video_cache_q, &kNow);
    webrtc_user_send_video_rexfer_req(&stream->video_cache_q, &kNow);
    EXPECT_EQ(client.report().key_frame_requests, 2u);
    EXPECT_EQ(client.report().retransmission_requests, 1u);
    // Nothing was agreed with the sender, so nothing was sent.
    EXPECT_TRUE(client.sent.empty());
    EXPECT_EQ(stream->video_cache_q.n_intra_req_sent_recent, 0u);
    EXPECT_EQ(stream->video_cache_q.n_retrans_req_recent, 0u);
}

TEST(UserRequests, StayAtTheLargestCount)
{
    channel_feedback feedback = {};
    feedback.pli = true;
    Client client(false, feedback);
    Sender sender;
    client.receive(sender.key_frame());
    user_video_stream *stream = client.stream();
    stream->n_key_req_sent_recent = UINT16_MAX;
    stream->video_cache_q.n_intra_req_sent_recent = UINT16_MAX;
    webrtc_video_send_intra_request(&stream->video_cache_q, &kNow);
    EXPECT_EQ(client.report().plis_sent, 1u);
    EXPECT_EQ(stream->n_key_req_sent_recent, UINT16_MAX);
    EXPECT_EQ(stream->video_cache_q.n_intra_req_sent_recent, UINT16_MAX);
}

TEST(UserBareRecords, AreLeftAlone)
{
    webrtc_video_send_intra_request(nullptr, &kNow);
    webrtc_user_send_video_rexfer_req(nullptr, &kNow);
    webrtc_video_cache_t cache = {};
    webrtc_video_send_intra_request(&cache, &kNow);
    webrtc_user_send_video_rexfer_req(&cache, &kNow);
    EXPECT_EQ(cache.n_intra_req_sent_recent, 0u);
    EXPECT_EQ(cache.n_retrans_req_recent, 0u);

    rtc_user user = {};
    rtc_channel channel = {};
    user_video_stream stream = {};
    stream.user = &user;
    stream.channel = &channel;
    PVideoData4 video = {};
    uint8_t bytes[20] = {0x80};
    video.payload = {20, 20, bytes};
    channel_on_video_stream_created(&channel, &stream);
    channel_on_video_stream_created(nullptr, nullptr);
    rtc_video_stream_reset_state(&stream, &kNow);
    rtc_video_stream_reset_state(nullptr, &kNow);
    EXPECT_EQ(rtc_video_add_packet(&stream, &video, 0, 1, &kNow), -1);
    EXPECT_EQ(rtc_video_add_packet(nullptr, &video, 0, 1, &kNow), -1);
    EXPECT_EQ(video.payload.values, bytes) << "stays the caller's";
    EXPECT_EQ(stream_state_of(&stream), nullptr);
}

} // namespace
