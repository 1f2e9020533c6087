#include "live/listen_session.h"

#include <gtest/gtest.h>

#include "capture_builder.h"
#include "commands/listen_command.h"
#include "srtp/srtp_key.h"
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

listen_section only_section(const listen_options &options)
{
    const listen_session session = listen_session_make(options);
    EXPECT_EQ(session.sections.size(), 1u);
    return session.sections.front();
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
    const listen_section section = only_section(options);
    EXPECT_TRUE(section.keys.empty());
    EXPECT_EQ(section.rtp_port, 5004);
    EXPECT_EQ(section.rtcp_port, 5005);
    EXPECT_TRUE(section.config.feedback.nack && section.config.feedback.pli && section.config.feedback.reports);
    EXPECT_FALSE(section.config.feedback.fir || section.config.feedback.remb || section.config.feedback.reduced_size);
    EXPECT_TRUE(section.config.feedback.give_up_early);
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
        const listen_section section = only_section(options);
        EXPECT_EQ(section.rtp_port, row.rtp_port) << row.lines;
        EXPECT_EQ(section.rtcp_port, row.rtcp_port) << row.lines;
    }
}

TEST(ListenSession, SendsWhatDescriptionAllowsForWantedFormats)
{
    const temporary_file file = description(
        "RTP/AVPF", "a=rtcp-fb:* nack\r\na=rtcp-fb:96 nack pli\r\na=rtcp-fb:98 ccm fir\r\na=rtcp-rsize\r\n");
    listen_options options;
    options.sdp = file.path();
    const channel_feedback both = only_section(options).config.feedback;
    EXPECT_TRUE(both.nack && both.reports && both.reduced_size);
    EXPECT_FALSE(both.pli || both.fir || both.remb);
    options.codec = VIDEO_TYPE_H264;
    EXPECT_TRUE(only_section(options).config.feedback.pli);
    options.codec = VIDEO_TYPE_H265;
    EXPECT_TRUE(only_section(options).config.feedback.fir);
    options.feedback = feedback_parse("remb");
    options.waits = true;
    const channel_feedback named = only_section(options).config.feedback;
    EXPECT_TRUE(named.remb);
    EXPECT_FALSE(named.nack || named.fir || named.reports || named.reduced_size || named.give_up_early);
}

TEST(ListenSession, RefusesWhatCannotBeReceived)
{
    listen_options options;
    const temporary_file plain = description("RTP/AVP", "");
    options.sdp = plain.path();
    EXPECT_EQ(failure_of(options), exit_code::success);
    options.payload_type = 97;
    EXPECT_EQ(failure_of(options), exit_code::nothing_usable);
}

namespace
{

const char *const kCryptoLine =
    "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh\r\n";

sdp_crypto other_key()
{
    return srtp_key_parse_hex("AEAD_AES_128_GCM:000102030405060708090a0b0c0d0e0f101112131415161718191a1b");
}

} // namespace

TEST(ListenSession, TakesKeysFromDescriptionAndOptions)
{
    struct {
        const char *profile;
        const char *lines;
        bool has_option;
        size_t keys; // 0: it is refused, but for plain RTP
    } const rows[] = {
        {"RTP/AVP", "", false, 0},           {"RTP/AVP", "", true, 1},
        {"RTP/AVP", kCryptoLine, false, 1}, // as FFmpeg writes it
        {"RTP/SAVP", kCryptoLine, false, 1}, {"RTP/SAVPF", kCryptoLine, true, 2},
        {"RTP/SAVPF", "", false, 0},         {"RTP/SAVPF", "", true, 1},
        {"UDP/TLS/RTP/SAVPF", "", false, 0}, {"UDP/TLS/RTP/SAVPF", "", true, 1},
    };
    for (const auto &row : rows) {
        const temporary_file file = description(row.profile, row.lines);
        listen_options options;
        options.sdp = file.path();
        if (row.has_option) {
            options.keys = {other_key()};
        }
        const bool is_refused = row.keys == 0 && std::string(row.profile) != "RTP/AVP";
        ASSERT_EQ(failure_of(options), is_refused ? exit_code::nothing_usable : exit_code::success) << row.profile;
        if (!is_refused) {
            EXPECT_EQ(only_section(options).keys.size(), row.keys) << row.profile << " " << row.lines;
        }
    }
}

TEST(ListenSession, RefusesKeyForSendingAlone)
{
    listen_options options;
    options.codec = VIDEO_TYPE_H264;
    options.sending_key = other_key();
    EXPECT_EQ(failure_of(options), exit_code::wrong_usage);
    options.keys = {other_key()};
    EXPECT_EQ(failure_of(options), exit_code::success);
}

TEST(ListenSession, TakesEveryVideoOnlyWhenAllAreWanted)
{
    const std::string second = std::string("m=video 6002 RTP/AVP 99\r\na=rtpmap:99 H264/90000\r\n") + kCryptoLine;
    const temporary_file file = description("RTP/AVP", second);
    listen_options options;
    options.sdp = file.path();
    EXPECT_EQ(only_section(options).rtp_port, 6000);
    options.is_all = true;
    const listen_session both = listen_session_make(options);
    ASSERT_EQ(both.sections.size(), 2u);
    EXPECT_EQ(both.sections[0].rtp_port, 6000);
    EXPECT_TRUE(both.sections[0].keys.empty());
    EXPECT_EQ(both.sections[1].rtp_port, 6002);
    EXPECT_EQ(both.sections[1].rtcp_port, 6003);
    EXPECT_EQ(both.sections[1].keys.size(), 1u);
    options.port = 7000;
    EXPECT_EQ(failure_of(options), exit_code::wrong_usage);
    options.payload_type = 99;
    EXPECT_EQ(only_section(options).rtp_port, 7000);
}

TEST(ListenSession, RefusesVideosThatShareAPort)
{
    for (const char *port : {"6000", "6001", "5999"}) {
        const temporary_file file =
            description("RTP/AVP", "m=video " + std::string(port) + " RTP/AVP 99\r\na=rtpmap:99 H264/90000\r\n");
        listen_options options;
        options.sdp = file.path();
        EXPECT_EQ(failure_of(options), exit_code::success) << port;
        options.is_all = true;
        EXPECT_EQ(failure_of(options), exit_code::wrong_usage) << port;
    }
}
