#include "capture/stream_choice.h"

#include <gtest/gtest.h>

#include "failure.h"
#include "video_stream.h"

using namespace vrc;

namespace
{

rtp_stream stream(uint32_t ssrc, uint8_t payload_type, uint16_t port, double h264, double h265, uint64_t packets)
{
    rtp_stream made;
    made.identity.ssrc = ssrc;
    made.identity.payload_type = payload_type;
    made.identity.path.source.port = static_cast<uint16_t>(port + 1);
    made.identity.path.destination.port = port;
    made.h264_likelihood = h264;
    made.h265_likelihood = h265;
    made.likelihood = std::max(h264, h265);
    made.codec = !made.is_video() ? VIDEO_TYPE_UNKNOWN : h264 > h265 ? VIDEO_TYPE_H264 : VIDEO_TYPE_H265;
    made.behaves_like_rtp = true;
    made.packets = packets;
    return made;
}

search_result call()
{
    search_result found;
    found.counts.udp = 1000;
    found.streams = {stream(1, 96, 5000, 0.98, 0.0, 500), stream(2, 97, 5002, 0.0, 0.99, 300),
                     stream(3, 111, 5004, 0.1, 0.0, 900)};
    return found;
}

std::string error_of(const search_result &found, const stream_choice &choice)
{
    try {
        stream_choose(found, choice, "call.pcap");
    } catch (const failure &error) {
        EXPECT_EQ(error.code(), exit_code::nothing_usable);
        return error.what();
    }
    return "";
}

stream_choice choice(std::optional<uint32_t> ssrc, std::optional<uint8_t> payload_type, std::optional<uint16_t> port,
                     std::optional<uint8_t> codec)
{
    return {ssrc, payload_type, port, codec};
}

constexpr std::nullopt_t any = std::nullopt;

} // namespace

TEST(StreamChoice, FollowsWhatIsSaidAndFindsOutTheRest)
{
    struct {
        const char *name;
        stream_choice choice;
        uint32_t ssrc;
        uint8_t codec;
    } const rows[] = {
        {"nothing said: the larger video", choice(any, any, any, any), 1, VIDEO_TYPE_H264},
        {"by SSRC", choice(2, any, any, any), 2, VIDEO_TYPE_H265},
        {"by payload type", choice(any, 97, any, any), 2, VIDEO_TYPE_H265},
        {"by destination port", choice(any, any, 5002, any), 2, VIDEO_TYPE_H265},
        {"by source port", choice(any, any, 5003, any), 2, VIDEO_TYPE_H265},
        {"by codec", choice(any, any, any, VIDEO_TYPE_H265), 2, VIDEO_TYPE_H265},
        {"codec against the looks", choice(1, any, any, VIDEO_TYPE_H265), 1, VIDEO_TYPE_H265},
        {"codec of what looks like none", choice(3, any, any, VIDEO_TYPE_H264), 3, VIDEO_TYPE_H264},
    };
    for (const auto &row : rows) {
        const rtp_stream chosen = stream_choose(call(), row.choice, "call.pcap");
        EXPECT_EQ(chosen.identity.ssrc, row.ssrc) << row.name;
        EXPECT_EQ(chosen.codec, row.codec) << row.name;
    }
}

TEST(StreamChoice, SaysWhatIsWrongWhenNothingFits)
{
    EXPECT_EQ(error_of(call(), choice(any, 50, any, any)),
              "no stream in 'call.pcap' matches --pt 50: 'vrc info' lists those that are there");
    EXPECT_EQ(error_of(call(), choice(3, 111, 5004, any)),
              "no stream in 'call.pcap' that matches --ssrc 0x00000003 --pt 111 --port 5004 looks like video. If you "
              "know what it carries, name it by --ssrc or --pt together with --codec");
}

TEST(StreamChoice, SaysWhatIsThereWhenThereIsNoVideo)
{
    search_result found = call();
    found.streams = {stream(3, 111, 5004, 0.1, 0.0, 900)};
    const std::string advice = ". If you know what a stream carries, name it: --ssrc or --pt, and --codec";
    const std::string start = "no RTP video in 'call.pcap': ";
    EXPECT_EQ(error_of(found, {}), start + "the payload of its 1 RTP stream(s) is neither H.264 nor H.265" + advice);

    found.streams[0].looks_encrypted = true;
    EXPECT_NE(error_of(found, {}).find("SSRC 0x00000003 with payload type 111 looks encrypted"), std::string::npos);

    found.streams.clear();
    EXPECT_EQ(error_of(found, {}), start + "none of its 1000 UDP datagrams belongs to an RTP stream" + advice);

    found.counts.udp = 0;
    found.counts.frames = 7;
    EXPECT_EQ(error_of(found, {}), start + "none of its 7 frames holds a UDP datagram" + advice);
}

TEST(StreamChoice, BelievesSessionDescription)
{
    sdp_session session{};
    session.n_videos = 1;
    sdp_video &video = session.videos[0];
    video.n_formats = 2;
    video.formats[0].payload_type = 96; // looks like H.264
    video.formats[0].codec = SDP_CODEC_RTX;
    video.formats[1].payload_type = 111; // looks like nothing
    video.formats[1].codec = SDP_CODEC_H265;
    search_result found = call();
    streams_describe(session, &found);
    const rtp_stream chosen = stream_choose(found, {}, "call.pcap");
    EXPECT_EQ(chosen.identity.ssrc, 3u);
    EXPECT_EQ(chosen.codec, VIDEO_TYPE_H265);
    EXPECT_FALSE(found.streams[0].is_video());
    EXPECT_EQ(found.streams[1].codec, VIDEO_TYPE_H265); // not listed: its looks count
}
