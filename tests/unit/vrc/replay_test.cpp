#include "commands/replay.h"

#include <gtest/gtest.h>

#include <functional>

#include "capture_builder.h"
#include "failure.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

constexpr uint64_t kSecond = 1'000'000;
constexpr uint64_t kFrameTime = 40'000; // microseconds, 25 Hz

struct delivered {
    uint32_t timestamp;
    bool is_key;
    size_t size;
    uint16_t first_seq;
    uint16_t last_seq;
};

struct outcome {
    replay_result result;
    std::vector<delivered> frames;
};

rtp_stream stream_of_test()
{
    rtp_stream stream;
    stream.identity.path.source = {{false, {192, 0, 2, 1}}, kSourcePort};
    stream.identity.path.destination = {{false, {192, 0, 2, 2}}, kDestinationPort};
    stream.identity.ssrc = 0x11223344;
    stream.identity.payload_type = 96;
    stream.codec = VIDEO_TYPE_H264;
    return stream;
}

outcome replay(const pcap_builder &capture, size_t frames_wanted = SIZE_MAX, const replay_setup &setup = {})
{
    const temporary_file stored(capture.file());
    const capture_file file(stored.path());
    outcome seen;
    const auto take = [&](const channel_frame &frame) {
        seen.frames.push_back({frame.rtp_timestamp, frame.is_key, frame.size, frame.first_seq, frame.last_seq});
        return seen.frames.size() < frames_wanted;
    };
    seen.result = stream_replay(file, stream_of_test(), take, {}, setup);
    return seen;
}

// Pictures of two packets each, 25 a second, numbered from 0; picture 0 and every one for which `is_key` holds is a
// key frame.
class sender
{
  public:
    explicit sender(uint16_t first_seq = 65500) : seq_(first_seq)
    {
    }

    void send(unsigned picture, bool is_key, bool lose_last_packet = false)
    {
        const uint64_t now = start_ + picture * kFrameTime;
        const uint32_t timestamp = 4'294'960'000u + picture * 3600u;
        const bytes unit = is_key ? h264_idr_slice(500) : h264_inter_slice(300);
        if (is_key) {
            capture_.add_rtp(now, {seq_++, timestamp}, h264_parameter_sets());
        }
        const std::vector<bytes> fragments = h264_fragments(unit, 2);
        capture_.add_rtp(now, {seq_++, timestamp}, fragments[0]);
        if (!lose_last_packet) {
            capture_.add_rtp(now + 1000, {seq_, timestamp, true}, fragments[1]);
        }
        ++seq_;
    }

    void pause(uint64_t time_us)
    {
        start_ += time_us;
    }

    pcap_builder &capture()
    {
        return capture_;
    }

  private:
    pcap_builder capture_;
    uint16_t seq_;
    uint64_t start_ = 1000 * kSecond;
};

} // namespace

TEST(Replay, DeliversEveryFrameOfWholeStream)
{
    sender video;
    for (unsigned picture = 0; picture < 50; ++picture) {
        video.send(picture, picture % 25 == 0);
    }
    const outcome seen = replay(video.capture());
    ASSERT_EQ(seen.frames.size(), 50u);
    EXPECT_EQ(seen.result.report.frames, 50u);
    EXPECT_EQ(seen.result.report.key_frames, 2u);
    EXPECT_EQ(seen.result.report.packets, 102u);
    EXPECT_EQ(seen.frames[0].timestamp, 4'294'960'000u);
    EXPECT_EQ(seen.frames[0].first_seq, 65500);
    EXPECT_EQ(seen.frames[0].last_seq, 65502);
    EXPECT_EQ(seen.frames[0].size, 4u + 10 + 4 + 4 + 4 + 500);
    EXPECT_TRUE(seen.frames[0].is_key);
    EXPECT_EQ(seen.frames[49].timestamp, static_cast<uint32_t>(4'294'960'000u + 49 * 3600u));
    EXPECT_FALSE(seen.frames[49].is_key);
    EXPECT_EQ(seen.result.silence_skipped_ms, 0u);
}

TEST(Replay, TakesTimesFromTheCapture)
{
    sender video;
    for (unsigned picture = 0; picture < 26; ++picture) {
        video.send(picture, picture == 0);
    }
    const stream_report report = replay(video.capture()).result.report;
    EXPECT_GT(report.first_packet_at, 0u);
    EXPECT_EQ(report.last_packet_at - report.first_packet_at, 1001u);
    EXPECT_EQ(report.last_frame_at - report.first_frame_at, 1000u);
}

TEST(Replay, FeedsOnlyTheStreamThatIsMeant)
{
    sender video;
    for (unsigned picture = 0; picture < 10; ++picture) {
        video.send(picture, picture == 0);
        const uint64_t now = 1000 * kSecond + picture * kFrameTime + 2000;
        const bytes payload = h264_inter_slice(90);
        rtp_fields other_ssrc{1, 1, true, 0x55};
        rtp_fields other_type{1, 1, true};
        other_type.payload_type = 97;
        video.capture().add_rtp(now, other_ssrc, payload);
        video.capture().add_rtp(now, other_type, payload);
        video.capture().add(now, ethernet(kTypeIpv6, ipv6(kUdp, udp(rtp({1, 1, true}, payload)))));
    }
    const outcome seen = replay(video.capture());
    EXPECT_EQ(seen.frames.size(), 10u);
    EXPECT_EQ(seen.result.report.packets, 21u);
    EXPECT_EQ(seen.result.capture.udp, 51u);
}

TEST(Replay, GivesUpIncompleteFrameAndGoesOnWithNextKeyFrame)
{
    sender video;
    for (unsigned picture = 0; picture < 100; ++picture) {
        video.send(picture, picture % 25 == 0, picture == 30);
    }
    const outcome seen = replay(video.capture());
    EXPECT_EQ(seen.result.report.packets_lost, 1u);
    EXPECT_EQ(seen.result.report.gaps, 1u);
    EXPECT_EQ(seen.frames.size(), 80u); // all but 30 to 49
    EXPECT_GT(seen.result.report.freezes_600ms, 0u);
}

TEST(Replay, LivesOnBehindLastPacketUntilAllIsDeliveredOrGivenUp)
{
    sender video;
    for (unsigned picture = 0; picture < 30; ++picture) {
        video.send(picture, picture == 0 || picture == 20, picture == 10);
    }
    const outcome seen = replay(video.capture());
    ASSERT_EQ(seen.frames.size(), 20u);
    EXPECT_EQ(seen.frames[9].timestamp, static_cast<uint32_t>(4'294'960'000u + 9 * 3600u));
    EXPECT_EQ(seen.frames[10].timestamp, static_cast<uint32_t>(4'294'960'000u + 20 * 3600u));
}

TEST(Replay, LivesThroughSilenceAndSkipsWhatIsTooLong)
{
    struct {
        uint64_t silence_us;
        bool is_skipped;
    } const rows[] = {{5 * kSecond, false}, {9 * kSecond, false}, {3600 * kSecond, true}, {31'536'000 * kSecond, true}};
    for (const auto &row : rows) {
        sender video;
        video.send(0, true);
        video.send(1, false);
        video.pause(row.silence_us);
        video.send(2, false);
        const outcome seen = replay(video.capture());
        EXPECT_EQ(seen.frames.size(), 3u) << row.silence_us;
        EXPECT_EQ(seen.result.silence_skipped_ms > 0, row.is_skipped) << row.silence_us;
    }
}

TEST(Replay, KeepsTimeFromGoingBack)
{
    sender video;
    for (unsigned picture = 0; picture < 10; ++picture) {
        video.send(picture, picture == 0);
    }
    video.pause(static_cast<uint64_t>(-500) * kSecond); // the clock was set back
    for (unsigned picture = 10; picture < 20; ++picture) {
        video.send(picture, false);
    }
    const outcome seen = replay(video.capture());
    EXPECT_EQ(seen.frames.size(), 20u);
    EXPECT_EQ(seen.result.capture.clock_steps_back, 1u);
    EXPECT_GE(seen.result.report.last_frame_at, seen.result.report.first_frame_at);
}

TEST(Replay, EndsWhenFramesAreNoLongerTaken)
{
    sender video;
    for (unsigned picture = 0; picture < 50; ++picture) {
        video.send(picture, picture == 0);
    }
    const outcome seen = replay(video.capture(), 3);
    EXPECT_EQ(seen.frames.size(), 3u);
}

TEST(Replay, CountsPacketsRefusedBeforeThereIsStream)
{
    pcap_builder capture;
    const bytes no_room_for_sources = bytes{0x8F, 96} + be16(1) + be32(2) + be32(0x11223344);
    capture.add(kSecond, ethernet(kTypeIpv4, ipv4(udp(no_room_for_sources))));
    const outcome seen = replay(capture);
    EXPECT_EQ(seen.result.refused[PACKET_DROP_BAD_HEADER], 1u);
    EXPECT_EQ(seen.result.report.packets, 0u);
    EXPECT_TRUE(seen.frames.empty());
}

TEST(Replay, ReportsProgress)
{
    sender video;
    for (unsigned picture = 0; picture < 400; ++picture) {
        video.send(picture, picture == 0);
    }
    const temporary_file stored(video.capture().file());
    const capture_file file(stored.path());
    uint64_t last = 0;
    unsigned calls = 0;
    stream_replay(
        file, stream_of_test(), [](const channel_frame &) { return true; },
        [&](uint64_t position) {
            EXPECT_GE(position, last);
            EXPECT_LE(position, file.size());
            last = position;
            ++calls;
        });
    EXPECT_GT(calls, 0u);
}

TEST(Replay, TellsWhichRequestsWouldHaveBeenSent)
{
    sender video;
    for (unsigned picture = 0; picture < 30; ++picture) {
        video.send(picture, picture == 0 || picture == 20, picture == 10);
    }
    const stream_report report = replay(video.capture()).result.report;
    EXPECT_GE(report.nacks_sent, 1u);
    EXPECT_GE(report.packets_asked_for, report.nacks_sent);
    sender whole;
    for (unsigned picture = 0; picture < 30; ++picture) {
        whole.send(picture, picture == 0);
    }
    EXPECT_EQ(replay(whole.capture()).result.report.nacks_sent, 0u);
}

namespace
{

// Twenty pictures; the last packet of picture 10 comes 50 ms late, by retransmission under `ssrc` and type 97.
pcap_builder capture_with_retransmission(uint32_t ssrc)
{
    sender video(100);
    for (unsigned picture = 0; picture < 20; ++picture) {
        video.send(picture, picture == 0, picture == 10);
        if (picture == 11) {
            // 100 to 102 are picture 0; two packets each follow.
            const rtp_fields lost = {102 + 2 * 10, 4'294'960'000u + 10 * 3600u, true};
            const rtp_fields repeated = {1, lost.timestamp, true, ssrc, 97};
            video.capture().add_rtp(1000 * kSecond + 10 * kFrameTime + 50'000, repeated,
                                    be16(lost.seq) + h264_fragments(h264_inter_slice(300), 2)[1]);
        }
    }
    return video.capture();
}

std::shared_ptr<const sdp_session> session_with_pair(uint32_t rtx_ssrc)
{
    auto session = std::make_shared<sdp_session>();
    session->n_videos = 1;
    sdp_video &video = session->videos[0];
    video.n_formats = 2;
    video.formats[0].payload_type = 96;
    video.formats[0].codec = SDP_CODEC_H264;
    video.formats[1].payload_type = 97;
    video.formats[1].codec = SDP_CODEC_RTX;
    video.formats[1].apt = 96;
    video.n_source_pairs = 1;
    video.source_pairs[0] = {0x11223344, rtx_ssrc};
    return session;
}

} // namespace

TEST(Replay, FillsGapsFromRetransmissions)
{
    replay_setup by_option;
    by_option.rtx = {{97, 96}};
    replay_setup by_session;
    by_session.session = session_with_pair(0x55);
    replay_setup of_another;
    of_another.session = session_with_pair(0x56);
    replay_setup of_another_type;
    of_another_type.rtx = {{97, 98}};
    struct {
        const replay_setup &setup;
        size_t frames;
        uint64_t retransmitted;
    } const rows[] = {
        {by_option, 20, 1}, {by_session, 20, 1}, {of_another, 10, 0}, {of_another_type, 10, 0}, {{}, 10, 0}};
    for (const auto &row : rows) {
        const outcome seen = replay(capture_with_retransmission(0x55), SIZE_MAX, row.setup);
        EXPECT_EQ(seen.frames.size(), row.frames) << &row - rows;
        EXPECT_EQ(seen.result.report.packets_retransmitted, row.retransmitted) << &row - rows;
    }
}

TEST(Replay, TakesInWhatTheSenderReports)
{
    const auto report_of = [](uint32_t ssrc) {
        return bytes{0x80, 200} + be16(6) + be32(ssrc) + be32(0x83AA7E80) + be32(0) + be32(0) + be32(1) + be32(2);
    };
    const auto bye_of = [](uint32_t ssrc) { return bytes{0x81, 203} + be16(1) + be32(ssrc); };
    sender video;
    for (unsigned picture = 0; picture < 10; ++picture) {
        video.send(picture, picture == 0);
    }
    const uint64_t now = 1000 * kSecond + 10 * kFrameTime;
    for (const bytes &datagram :
         {report_of(0x11223344), report_of(0x55), bye_of(0x55), report_of(0x11223344) + bytes{1}, bye_of(0x11223344)}) {
        video.capture().add(now, ethernet(kTypeIpv6, ipv6(kUdp, udp(datagram)))); // from another address as well
    }
    const outcome seen = replay(video.capture());
    EXPECT_EQ(seen.frames.size(), 10u);
    EXPECT_EQ(seen.result.report.packets, 21u);
    EXPECT_EQ(seen.result.report.sender_reports, 1u);
    EXPECT_EQ(seen.result.report.byes, 1u);
}
