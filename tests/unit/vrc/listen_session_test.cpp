#include "listen_session.h"

#include <gtest/gtest.h>

#include "capture_builder.h"
#include "listen_command.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

// A description of H.264 and H.265 on port 6000, with `profile` and further lines.
temporary_file description(const std::string &profile, const std::string &lines)
{
    const std::string text = "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video 6000 " +
                             profile + " 96 98\r\na=rtpmap:96 H264/90000\r\na=rtpmap:98 H265/90000\r\n" + lines;
    return temporary_file(bytes(text.begin(), text.end()));
}

exit_code failure_of(const listen_options &options)
{
    try {
        listen_session_make(options);
    } catch (const failure &error) {
        return error.code();
    }
    return exit_code::success;
}

} // namespace

TEST(ListenSession, NeedsCodecOrDescription)
{
    listen_options options;
    EXPECT_EQ(failure_of(options), exit_code::wrong_usage);
    options.codec = VIDEO_TYPE_H264;
    const listen_session session = listen_session_make(options);
    EXPECT_EQ(session.rtp_port, 5004);
    EXPECT_EQ(session.rtcp_port, 5005);
    EXPECT_TRUE(session.config.feedback.nack && session.config.feedback.pli && session.config.feedback.reports);
    EXPECT_FALSE(session.config.feedback.fir || session.config.feedback.remb || session.config.feedback.reduced_size);
    EXPECT_TRUE(session.config.feedback.give_up_early);
}

TEST(ListenSession, TakesPortsFromDescription)
{
    struct {
        const char *lines;
        std::optional<uint16_t> port;
        bool is_rtcp_muxed;
        uint16_t rtp_port;
        uint16_t rtcp_port;
    } const rows[] = {
        {"", {}, false, 6000, 6001},
        {"a=rtcp:7001\r\n", {}, false, 6000, 7001},
        {"a=rtcp-mux\r\n", {}, false, 6000, 6000},
        {"", {}, true, 6000, 6000},
        {"a=rtcp:7001\r\n", 8000, false, 8000, 8001},
        {"a=rtcp-mux\r\n", 8000, false, 8000, 8000},
    };
    for (const auto &row : rows) {
        const temporary_file file = description("RTP/AVPF", row.lines);
        listen_options options;
        options.sdp = file.path();
        options.port = row.port;
        options.is_rtcp_muxed = row.is_rtcp_muxed;
        const listen_session session = listen_session_make(options);
        EXPECT_EQ(session.rtp_port, row.rtp_port) << row.lines;
        EXPECT_EQ(session.rtcp_port, row.rtcp_port) << row.lines;
    }
}

TEST(ListenSession, SendsWhatDescriptionAllowsForWantedFormats)
{
    const temporary_file file = description(
        "RTP/AVPF", "a=rtcp-fb:* nack\r\na=rtcp-fb:96 nack pli\r\na=rtcp-fb:98 ccm fir\r\na=rtcp-rsize\r\n");
    listen_options options;
    options.sdp = file.path();
    const channel_feedback both = listen_session_make(options).config.feedback;
    EXPECT_TRUE(both.nack && both.reports && both.reduced_size);
    EXPECT_FALSE(both.pli || both.fir || both.remb);
    options.codec = VIDEO_TYPE_H264;
    EXPECT_TRUE(listen_session_make(options).config.feedback.pli);
    options.codec = VIDEO_TYPE_H265;
    EXPECT_TRUE(listen_session_make(options).config.feedback.fir);
    options.feedback = feedback_parse("remb");
    options.waits = true;
    const channel_feedback named = listen_session_make(options).config.feedback;
    EXPECT_TRUE(named.remb);
    EXPECT_FALSE(named.nack || named.fir || named.reports || named.reduced_size || named.give_up_early);
}

TEST(ListenSession, RefusesWhatCannotBeReceived)
{
    listen_options options;
    const temporary_file encrypted = description("RTP/SAVPF", "");
    options.sdp = encrypted.path();
    EXPECT_EQ(failure_of(options), exit_code::nothing_usable);
    const temporary_file plain = description("RTP/AVP", "");
    options.sdp = plain.path();
    EXPECT_EQ(failure_of(options), exit_code::success);
    options.payload_type = 97;
    EXPECT_EQ(failure_of(options), exit_code::nothing_usable);
}
