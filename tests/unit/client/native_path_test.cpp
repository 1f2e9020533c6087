// What comes out of the native path's packets.
#include <gtest/gtest.h>

#include <cstring>

#include "client_bench.h"
#include "path/native_delivery.h"

using namespace client_bench;
using rtp_builder::rtp_fields;

namespace
{

constexpr uint32_t kUid = 9;

struct native_frame {
    uint32_t seq;
    uint16_t first_pkt;
    uint16_t n_pkts = 1;
    bool is_key = false;
    uint16_t n_fec = 0;
    uint8_t codec = VIDEO_TYPE_H264;
    uint8_t version = 10;
};

// The NAL unit in packet `index` of a frame.
bytes nal_of(const native_frame &frame, uint16_t index)
{
    return rtp_builder::nal_unit(frame.is_key ? 5 : 1, 40, frame.seq * 31 + index);
}

bytes annexb_of(const native_frame &frame)
{
    bytes all;
    for (uint16_t i = 0; i < frame.n_pkts - frame.n_fec; i++) {
        const bytes nal = nal_of(frame, i);
        all.insert(all.end(), {0, 0, 0, 1});
        all.insert(all.end(), nal.begin(), nal.end());
    }
    return all;
}

class NativePath : public testing::Test
{
  protected:
    Client client;

    int receive_payload(const native_frame &frame, uint16_t index, const bytes &payload, bool is_retrans = false)
    {
        rtp_fields fields;
        fields.seq = static_cast<uint16_t>(5000 + frame.first_pkt + index);
        fields.timestamp = 777;
        fields.payload = payload;
        const bytes packet = rtp_packet(fields);
        PVideoData4 video = {};
        video.common.uid = kUid;
        video.common.seq = static_cast<uint16_t>(frame.first_pkt + index);
        video.header.frame_seq = frame.seq;
        video.header.n_pkts = frame.n_pkts;
        video.header.subseq = index;
        video.header.video_type = frame.is_key ? 0x00 : 0x10;
        video.header.codec = frame.codec;
        video.header.protocol_version = frame.version;
        video.header.reserved = uint32_t{frame.n_fec} << 8;
        video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
        video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
        memcpy(video.payload.values, packet.data(), packet.size());
        return rtc_channel_receive_native(client.channel, &video, 0, is_retrans, &client.now);
    }

    int receive(const native_frame &frame, uint16_t index, bool is_retrans = false)
    {
        return receive_payload(frame, index, nal_of(frame, index), is_retrans);
    }

    void receive(const native_frame &frame)
    {
        for (uint16_t i = 0; i < frame.n_pkts; i++) {
            receive(frame, i);
        }
    }

    void expect_frames(const std::vector<native_frame> &sent)
    {
        std::vector<uint32_t> taken_seqs(client.frames.size());
        std::vector<uint32_t> sent_seqs(sent.size());
        std::transform(client.frames.begin(), client.frames.end(), taken_seqs.begin(),
                       [](const taken_frame &frame) { return frame.frame_seq; });
        std::transform(sent.begin(), sent.end(), sent_seqs.begin(),
                       [](const native_frame &frame) { return frame.seq; });
        ASSERT_EQ(taken_seqs, sent_seqs);
        for (size_t i = 0; i < sent.size(); i++) {
            EXPECT_EQ(client.frames[i].data, annexb_of(sent[i])) << sent[i].seq;
            EXPECT_EQ(client.frames[i].is_key, sent[i].is_key);
            EXPECT_EQ(client.frames[i].uid, kUid);
            EXPECT_EQ(client.frames[i].rtp_timestamp, 0u);
            EXPECT_EQ(client.frames[i].first_seq, static_cast<uint16_t>(5000 + sent[i].first_pkt));
            EXPECT_EQ(client.frames[i].last_seq, static_cast<uint16_t>(5000 + sent[i].first_pkt + sent[i].n_pkts - 1));
        }
    }
};

TEST_F(NativePath, HandsOutWholeFramesByteForByteAcrossTheWraps)
{
    std::vector<native_frame> sent;
    uint16_t pkt = 65520;
    for (uint32_t i = 0; i < 100; i++) {
        const auto n_pkts = static_cast<uint16_t>(1 + i % 5);
        sent.push_back({0xFFFFFFF0u + i, pkt, n_pkts, i % 20 == 0});
        pkt = static_cast<uint16_t>(pkt + n_pkts);
        receive(sent.back());
        client.pass(30);
    }
    expect_frames(sent);
    EXPECT_EQ(client.frame_drops(kUid), "");
    EXPECT_EQ(client.packet_drops(kUid), "");
}

TEST_F(NativePath, PutsFramesInOrder)
{
    const native_frame key = {10, 100, 2, true};
    const native_frame a = {11, 102, 3};
    const native_frame b = {12, 105, 1};
    receive(key);
    receive(b);
    receive(a, 2);
    receive(a, 0);
    expect_frames({key});
    receive(a, 1);
    expect_frames({key, a, b});
}

TEST_F(NativePath, BeginsWithAKeyFrame)
{
    const native_frame delta = {10, 100, 1};
    const native_frame key = {11, 101, 2, true};
    const native_frame next = {12, 103, 1};
    receive(delta);
    EXPECT_EQ(client.report(kUid).key_frame_requests, 1u);
    receive(next);
    expect_frames({});
    receive(key);
    expect_frames({key, next});
    EXPECT_EQ(client.frame_drops(kUid), "after_gap=1");
}

TEST_F(NativePath, GivesUpAnIncompleteFrameAfterItsPatience)
{
    const native_frame key = {10, 100, 1, true};
    const native_frame cut = {11, 101, 3};
    const native_frame after = {12, 104, 1};
    const native_frame second = {13, 105, 2, true};
    receive(key);
    receive(cut, 0);
    receive(after);
    receive(second);
    client.pass(kNativePatience - 10);
    expect_frames({key});
    client.pass(20);
    expect_frames({key, second});
    EXPECT_EQ(client.frame_drops(kUid), "incomplete=1 after_gap=1");
    EXPECT_EQ(client.report(kUid).key_frame_requests, 0u) << "there was one in the queue";
}

TEST_F(NativePath, AsksForAKeyFrameWhenNoneIsLeft)
{
    const native_frame key = {10, 100, 1, true};
    receive(key);
    receive({12, 102, 1});
    client.pass(kNativePatience + 10);
    expect_frames({key});
    EXPECT_EQ(client.frame_drops(kUid), "after_gap=1");
    EXPECT_EQ(client.report(kUid).key_frame_requests, 1u);
    const native_frame second = {14, 104, 1, true};
    receive({13, 103, 1});
    receive(second);
    expect_frames({key, second});
}

// At 30 frames a second the queue's 40 slots are full before any of its frames has waited for the patience.
TEST_F(NativePath, GivesUpALossWhenTheQueueIsFullBeforeThePatienceIsOver)
{
    const native_frame key = {10, 100, 1, true};
    receive(key);
    for (uint16_t i = 0; i < 39; i++) { // frame 11 is lost
        receive({12u + i, static_cast<uint16_t>(102 + i), 1});
        client.pass(33);
    }
    EXPECT_EQ(client.report(kUid).key_frame_requests, 0u) << "it may still come";
    receive({51, 141, 1});
    EXPECT_GE(client.report(kUid).key_frame_requests, 1u) << "its slot is taken";
    EXPECT_EQ(client.frame_drops(kUid), "after_gap=40");
    const native_frame second = {52, 142, 1, true};
    receive(second);
    expect_frames({key, second});
}

TEST_F(NativePath, WaitsForAKeyFrameThatIsStillComing)
{
    const native_frame key = {10, 100, 1, true};
    const native_frame second = {12, 102, 2, true};
    receive(key);
    receive({11, 101, 2}, 0);
    client.pass(kNativePatience - 50);
    receive(second, 0);
    client.pass(100);
    expect_frames({key});
    receive(second, 1);
    expect_frames({key, second});
}

TEST_F(NativePath, CountsDuplicatesAndLatecomers)
{
    const native_frame key = {10, 100, 2, true};
    const native_frame next = {11, 102, 1};
    EXPECT_EQ(receive(key, 0), 0);
    EXPECT_EQ(receive(key, 0), -1);
    receive(key, 1);
    EXPECT_EQ(receive(key, 1), -1);
    receive({9, 99, 1}, 0);
    receive(next);
    expect_frames({key, next});
    EXPECT_EQ(client.packet_drops(kUid), "duplicate=2 late=1");
}

TEST_F(NativePath, HandsOutAFrameWithoutItsFecPackets)
{
    const native_frame key = {10, 100, 4, true, 2};
    const native_frame next = {11, 104, 1};
    receive(key, 0);
    receive(key, 2);
    receive(key, 3);
    expect_frames({});
    receive(key, 1);
    expect_frames({key});
    receive(next);
    expect_frames({key, next});
}

TEST_F(NativePath, IgnoresFecPacketsOfAFrameThatIsOut)
{
    const native_frame key = {10, 100, 3, true, 1};
    const native_frame next = {11, 103, 1};
    receive(key);
    receive(next);
    expect_frames({key, next});
    EXPECT_EQ(client.packet_drops(kUid), "late=1");
}

TEST_F(NativePath, JoinsGenericPayloadsWithoutPadding)
{
    const native_frame key = {10, 100, 2, true, 0, VIDEO_TYPE_GENERIC, 10};
    receive_payload(key, 0, {0xEE, 1, 2, 3});
    receive_payload(key, 1, {0xEE, 4, 5, 2, 2});
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].data, (bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(client.frames[0].codec, VIDEO_TYPE_GENERIC);
}

TEST_F(NativePath, DropsAFrameThatMakesNoBitstream)
{
    const native_frame key = {10, 100, 1, true, 0, VIDEO_TYPE_GENERIC, 10};
    receive_payload(key, 0, {0xEE, 7, 9, 3}); // three bytes of padding are not three times three
    EXPECT_EQ(client.frame_drops(kUid), "not_assembled=1");
    EXPECT_EQ(client.report(kUid).key_frame_requests, 1u);
    const native_frame unknown = {11, 101, 1, true, 0, 99, 10};
    receive(unknown);
    EXPECT_EQ(client.frame_drops(kUid), "not_assembled=2");
    EXPECT_TRUE(client.frames.empty());
}

// The packets of a frame disagree about its headers: each is well formed by its own, but the frame goes by the first one.
TEST_F(NativePath, DropsAFrameWhoseViewsWouldReachBeyondItsPackets)
{
    const native_frame generic = {10, 100, 2, true, 0, VIDEO_TYPE_GENERIC, 10};
    const native_frame plain = {10, 100, 2, true, 0, VIDEO_TYPE_H264, 10};
    EXPECT_EQ(receive_payload(generic, 0, {0xEE, 1}), 0);
    EXPECT_EQ(receive_payload(plain, 1, {}), 0);
    EXPECT_TRUE(client.frames.empty());
    EXPECT_EQ(client.frame_drops(kUid), "not_assembled=1");
}

TEST_F(NativePath, FollowsASenderThatNumbersItsPacketsAnew)
{
    const native_frame key = {10, 100, 1, true};
    const native_frame again = {0, 40000, 3, true};
    const native_frame next = {1, 40003, 1};
    receive(key);
    receive(again);
    receive(next);
    expect_frames({key, again, next});
    EXPECT_EQ(client.packet_drops(kUid), "");
}

TEST_F(NativePath, FollowsASenderThatNumbersItsFramesAnew)
{
    const native_frame key = {1000, 100, 1, true};
    const native_frame again = {0, 101, 2, true};
    const native_frame next = {1, 103, 1};
    receive(key);
    receive(again);
    receive(next);
    expect_frames({key, again, next});
}

// The frames of before still wait for one that was lost.
TEST_F(NativePath, FollowsASenderThatNumbersItsFramesAnewFromWhereItJustBegan)
{
    const native_frame key = {900, 99, 1, true};
    const native_frame before = {1001, 101, 1};
    const native_frame again = {1000, 102, 2, true};
    const native_frame next = {1001, 104, 1};
    receive(key);
    receive(native_frame{1000, 100, 1, true});
    receive(before);
    expect_frames({key});
    receive(again);
    receive(next);
    expect_frames({key, again, next});
}

// Of the frame whose number is used again nothing came, so only the frames behind it tell.
TEST_F(NativePath, FollowsASenderThatNumbersItsFramesAnewBelowFramesThatWait)
{
    const native_frame key = {1000, 102, 2, true};
    const native_frame next = {1001, 104, 1};
    receive({1002, 100, 1});
    receive({1003, 101, 1});
    receive(key);
    receive(next);
    expect_frames({key, next});
}

// One frame from far ahead takes its slot and the place of the newest one, but not for longer than the patience.
TEST_F(NativePath, GetsOverAFrameFromFarAhead)
{
    const native_frame key = {10, 100, 1, true};
    receive(key);
    receive({0x70000001, 101, 2}, 0);
    std::vector<native_frame> sent = {key};
    for (uint16_t i = 0; i < 50; i++) {
        receive({11u + i, static_cast<uint16_t>(102 + i), 1});
        client.pass(50);
    }
    const native_frame second = {61, 152, 1, true};
    receive(second);
    client.pass(kNativePatience);
    ASSERT_FALSE(client.frames.empty());
    EXPECT_EQ(client.frames.back().frame_seq, 61u);
}

TEST_F(NativePath, CutsRtpPadding)
{
    rtp_fields fields;
    fields.payload = rtp_builder::nal_unit(5, 10);
    fields.padding = 6;
    const bytes packet = rtp_packet(fields);
    PVideoData4 video = {};
    video.common.uid = kUid;
    video.header.n_pkts = 1;
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
    video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
    memcpy(video.payload.values, packet.data(), packet.size());
    EXPECT_EQ(rtc_channel_receive_native(client.channel, &video, 0, false, &client.now), 0);
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].data.size(), 4u + 11);
}

} // namespace
