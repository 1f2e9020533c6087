#include "sdp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "exact_copy.h"
#include "hex_bytes.h"
#include "random_damage.h"
#include "sdp_examples.h"

namespace
{

struct reading {
    bool is_good;
    sdp_error error;
    std::unique_ptr<sdp_session> session = std::make_unique<sdp_session>();

    const sdp_video &video(size_t index = 0) const
    {
        return session->videos[index];
    }

    const sdp_format &format(size_t index = 0) const
    {
        return video().formats[index];
    }

    bytes parameter_set(size_t index, size_t format_index = 0) const
    {
        const sdp_span span = format(format_index).parameter_sets[index];
        const uint8_t *begin = session->parameter_bytes + span.offset;
        return bytes(begin, begin + span.size);
    }
};

reading read(const std::string &text)
{
    const exact_copy copy(text);
    reading result;
    memset(static_cast<void *>(result.session.get()), 0xEE, sizeof(sdp_session));
    result.is_good = sdp_parse(copy.text(), copy.size(), result.session.get(), &result.error);
    return result;
}

// A description whose lines from the 7th on are `lines`, in a section of payload types 96 and 97.
const std::string kHead = "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\nm=video 5004 RTP/AVP 96 97\n";

reading read_video(const std::string &lines)
{
    return read(kHead + lines + "\n");
}

void expect_good(const reading &result)
{
    EXPECT_TRUE(result.is_good) << "line " << result.error.line << ": "
                                << (result.error.what != nullptr ? result.error.what : "");
}

// What a good description says, all but keys and parameter sets.
std::string to_text(const reading &result)
{
    std::ostringstream text;
    for (size_t v = 0; v < result.session->n_videos; v++) {
        const sdp_video &video = result.video(v);
        text << "video " << video.line << " " << video.port << " " << +video.profile << " " << +video.direction << " "
             << video.address.text << " rtcp " << sdp_rtcp_port(&video) << " " << video.rtcp_address.text << " "
             << video.rtcp_mux << video.rtcp_rsize << " keys " << video.n_cryptos << "\n";
        for (size_t f = 0; f < video.n_formats; f++) {
            const sdp_format &format = video.formats[f];
            text << "format " << +format.payload_type << " " << +format.codec << " " << format.clock_rate << " "
                 << +format.packetization_mode << " " << +format.feedback << " " << +format.apt << " sets "
                 << +format.n_parameter_sets << "\n";
        }
        for (size_t i = 0; i < video.n_sources; i++) {
            text << "source " << video.sources[i] << "\n";
        }
        for (size_t i = 0; i < video.n_source_pairs; i++) {
            text << "pair " << video.source_pairs[i].ssrc << " " << video.source_pairs[i].rtx_ssrc << "\n";
        }
    }
    return text.str();
}

// ---- As programs write them --------------------------------------------------------------------------------------

TEST(SdpExample, FfmpegWithKeyOnStandardOutput)
{
    const reading result = read(kSdpFfmpegSrtp);
    expect_good(result);
    ASSERT_EQ(1u, result.session->n_videos);
    const sdp_video &video = result.video();
    EXPECT_EQ(8u, video.line);
    EXPECT_EQ(15004, video.port);
    EXPECT_EQ(1, video.n_ports);
    EXPECT_EQ(15005, sdp_rtcp_port(&video));
    EXPECT_EQ(SDP_PROFILE_AVP, video.profile);
    EXPECT_EQ(SDP_SENDRECV, video.direction);
    EXPECT_STREQ("127.0.0.1", video.address.text);
    ASSERT_EQ(1u, video.n_formats);
    EXPECT_EQ(96, result.format().payload_type);
    EXPECT_EQ(SDP_CODEC_H264, result.format().codec);
    EXPECT_EQ(90000u, result.format().clock_rate);
    EXPECT_EQ(1, result.format().packetization_mode);
    EXPECT_EQ(kSdpPayloadTypeNone, result.format().apt);
    ASSERT_EQ(2, result.format().n_parameter_sets);
    EXPECT_EQ(hex("67F4000A919B2884D808800000030080000005078912CB"), result.parameter_set(0));
    EXPECT_EQ(hex("68EBE3C44844"), result.parameter_set(1));
    ASSERT_EQ(1u, video.n_cryptos);
    EXPECT_EQ(1u, video.cryptos[0].tag);
    EXPECT_EQ(SDP_AES_CM_128_HMAC_SHA1_80, video.cryptos[0].suite);
    EXPECT_EQ(0, memcmp("1234567890abcdef1234567890abcd", video.cryptos[0].key, 30));
}

TEST(SdpExample, FfmpegH265)
{
    const reading result = read(kSdpFfmpegH265);
    expect_good(result);
    EXPECT_EQ(SDP_CODEC_H265, result.format().codec);
    ASSERT_EQ(3, result.format().n_parameter_sets);
    EXPECT_EQ(hex("40010C01FFFF0408000003009E0800000300001E959809"), result.parameter_set(0));
    EXPECT_EQ(hex("4201010408000003009E0800000300001E90041020B2CACD24995E02DC080800100000030010000003005080"),
              result.parameter_set(1));
    EXPECT_EQ(hex("4401C172860C4224"), result.parameter_set(2));
}

TEST(SdpExample, FfmpegVp8)
{
    const reading result = read(kSdpFfmpegVp8);
    expect_good(result);
    EXPECT_EQ(SDP_CODEC_VP8, result.format().codec);
    EXPECT_EQ(0, result.format().n_parameter_sets);
}

TEST(SdpExample, GstreamerH264)
{
    const reading result = read(kSdpGstreamerH264);
    expect_good(result);
    EXPECT_EQ(5004, result.video().port);
    EXPECT_EQ(SDP_CODEC_H264, result.format().codec);
    EXPECT_EQ(1, result.format().packetization_mode);
    ASSERT_EQ(2, result.format().n_parameter_sets);
    EXPECT_EQ(hex("6742C015DA078146A10000030001000003003C8F162EA0"), result.parameter_set(0));
    EXPECT_EQ(hex("68CE0FC8"), result.parameter_set(1));
}

TEST(SdpExample, GstreamerH265WithFeedback)
{
    const reading result = read(kSdpGstreamerH265);
    expect_good(result);
    EXPECT_EQ(SDP_PROFILE_AVPF, result.video().profile);
    EXPECT_EQ(SDP_CODEC_H265, result.format().codec);
    EXPECT_EQ(SDP_FEEDBACK_NACK | SDP_FEEDBACK_NACK_PLI | SDP_FEEDBACK_CCM_FIR | SDP_FEEDBACK_TRANSPORT_CC,
              result.format().feedback);
    ASSERT_EQ(3, result.format().n_parameter_sets);
    EXPECT_EQ(hex("40010C01FFFF01600000030090000003000003001E959809"), result.parameter_set(0));
    EXPECT_EQ(hex("42010101600000030090000003000003001EA0142041FF"), result.parameter_set(1));
    EXPECT_EQ(hex("4401C172B46240"), result.parameter_set(2));
}

TEST(SdpExample, JanusOfferWithRetransmission)
{
    const reading result = read(kSdpJanusOffer);
    expect_good(result);
    ASSERT_EQ(1u, result.session->n_videos);
    const sdp_video &video = result.video();
    EXPECT_EQ(17u, video.line);
    EXPECT_EQ(SDP_PROFILE_DTLS_SAVPF, video.profile);
    EXPECT_EQ(SDP_SENDONLY, video.direction);
    EXPECT_STREQ("192.168.1.10", video.address.text);
    EXPECT_TRUE(video.rtcp_mux);
    EXPECT_FALSE(video.rtcp_rsize);
    EXPECT_EQ(9, sdp_rtcp_port(&video));
    ASSERT_EQ(2u, video.n_formats);
    EXPECT_EQ(SDP_CODEC_H264, video.formats[0].codec);
    EXPECT_EQ(SDP_FEEDBACK_NACK | SDP_FEEDBACK_NACK_PLI | SDP_FEEDBACK_CCM_FIR | SDP_FEEDBACK_GOOG_REMB,
              video.formats[0].feedback);
    EXPECT_EQ(SDP_CODEC_RTX, video.formats[1].codec);
    EXPECT_EQ(96, video.formats[1].apt);
    EXPECT_EQ(0, video.formats[1].feedback);
    EXPECT_EQ(&video.formats[1], sdp_rtx_format_find(&video, 96));
    ASSERT_EQ(2u, video.n_sources);
    EXPECT_EQ(3726484021u, video.sources[0]);
    EXPECT_EQ(1047203345u, video.sources[1]);
    ASSERT_EQ(1u, video.n_source_pairs);
    EXPECT_EQ(3726484021u, video.source_pairs[0].ssrc);
    EXPECT_EQ(1047203345u, video.source_pairs[0].rtx_ssrc);
}

TEST(SdpExample, BrowserForwardedByAGateway)
{
    const reading result = read(kSdpBrowserForwarded);
    expect_good(result);
    const sdp_video &video = result.video();
    EXPECT_EQ(SDP_PROFILE_AVPF, video.profile);
    EXPECT_EQ(SDP_RECVONLY, video.direction);
    EXPECT_TRUE(video.has_rtcp);
    EXPECT_EQ(5005, sdp_rtcp_port(&video));
    EXPECT_STREQ("127.0.0.1", video.rtcp_address.text);
    EXPECT_EQ(1, video.formats[0].packetization_mode);
    EXPECT_EQ(SDP_FEEDBACK_NACK | SDP_FEEDBACK_NACK_PLI | SDP_FEEDBACK_CCM_FIR, video.formats[0].feedback);
}

// ---- Lines -------------------------------------------------------------------------------------------------------

TEST(SdpLines, MayEndWithOrWithoutCarriageReturn)
{
    for (const char *example : kSdpExamples) {
        const reading crlf = read(example);
        std::string text(example);
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
        const reading lf = read(text);
        expect_good(crlf);
        expect_good(lf);
        EXPECT_EQ(to_text(crlf), to_text(lf));
    }
}

TEST(SdpLines, LastOneNeedsNoEnd)
{
    const reading result = read("v=0\nc=IN IP4 1.2.3.4\nm=video 5004 RTP/AVP 96\na=rtpmap:96 VP8/90000");
    expect_good(result);
    EXPECT_EQ(SDP_CODEC_VP8, result.format().codec);
}

TEST(SdpLines, BlankOnesAreCountedAndPassedOver)
{
    expect_good(read("\nv=0\n\n  \r\n" + kHead.substr(4)));
    EXPECT_EQ(5u, read("v=0\n\n\r\ns=-\nnonsense\n").error.line);
}

TEST(SdpLines, ADescriptionWithoutVideoIsFine)
{
    const reading result = read("v=0\nm=audio 5004 RTP/AVP 0\n");
    expect_good(result);
    EXPECT_EQ(0u, result.session->n_videos);
}

// ---- Sections ----------------------------------------------------------------------------------------------------

TEST(SdpSections, OfOtherMediaAreNotLookedInto)
{
    const reading result = read("v=0\nc=IN IP4 1.2.3.4\nm=audio x y\na=rtpmap:x\nc=nonsense\na=crypto:x\na=inactive\n"
                                "m=video 5004 RTP/AVP 96\na=rtpmap:96 VP8/90000\n"
                                "m=application 9 UDP/DTLS/SCTP webrtc-datachannel\na=rtpmap:96 H264/1\na=recvonly\n");
    expect_good(result);
    ASSERT_EQ(1u, result.session->n_videos);
    EXPECT_EQ(SDP_CODEC_VP8, result.format().codec);
    EXPECT_EQ(SDP_SENDRECV, result.video().direction);
    EXPECT_STREQ("1.2.3.4", result.video().address.text);
}

TEST(SdpSections, KeepToThemselves)
{
    const reading result = read("v=0\nm=video 5004 RTP/AVP 96\nc=IN IP4 1.2.3.4\na=sendonly\na=rtpmap:96 H264/90000\n"
                                "m=video 5006 RTP/SAVPF 96\nc=IN IP6 ::1\na=rtcp-mux\na=rtpmap:96 VP8/90000\n");
    expect_good(result);
    ASSERT_EQ(2u, result.session->n_videos);
    EXPECT_EQ(SDP_CODEC_H264, result.video(0).formats[0].codec);
    EXPECT_EQ(SDP_SENDONLY, result.video(0).direction);
    EXPECT_FALSE(result.video(0).rtcp_mux);
    EXPECT_STREQ("1.2.3.4", result.video(0).address.text);
    EXPECT_EQ(SDP_CODEC_VP8, result.video(1).formats[0].codec);
    EXPECT_EQ(SDP_SENDRECV, result.video(1).direction);
    EXPECT_EQ(SDP_PROFILE_SAVPF, result.video(1).profile);
    EXPECT_TRUE(result.video(1).rtcp_mux);
    EXPECT_TRUE(result.video(1).address.is_ip6);
    EXPECT_STREQ("::1", result.video(1).address.text);
}

TEST(SdpSections, TakeTheSessionsAddressAndDirectionWithoutTheirOwn)
{
    const reading result = read("v=0\nc=IN IP4 224.2.1.1/127/3\na=recvonly\nm=video 5004/2 RTP/AVP 96\n"
                                "m=video 5006 RTP/AVP 96\nc=IN IP6 FF15::101/3\na=inactive\n");
    expect_good(result);
    EXPECT_STREQ("224.2.1.1", result.video(0).address.text);
    EXPECT_EQ(2, result.video(0).n_ports);
    EXPECT_EQ(SDP_RECVONLY, result.video(0).direction);
    EXPECT_STREQ("FF15::101", result.video(1).address.text);
    EXPECT_EQ(SDP_INACTIVE, result.video(1).direction);
}

TEST(SdpSections, TellTheTransport)
{
    const struct {
        const char *name;
        sdp_profile profile;
    } rows[] = {{"RTP/AVP", SDP_PROFILE_AVP},
                {"RTP/AVPF", SDP_PROFILE_AVPF},
                {"RTP/SAVP", SDP_PROFILE_SAVP},
                {"RTP/SAVPF", SDP_PROFILE_SAVPF},
                {"UDP/TLS/RTP/SAVP", SDP_PROFILE_DTLS_SAVP},
                {"UDP/TLS/RTP/SAVPF", SDP_PROFILE_DTLS_SAVPF}};
    for (const auto &row : rows) {
        const reading result = read(std::string("v=0\nc=IN IP4 1.2.3.4\nm=video 5004 ") + row.name + " 96\n");
        expect_good(result);
        EXPECT_EQ(row.profile, result.video().profile) << row.name;
    }
}

// ---- Attributes --------------------------------------------------------------------------------------------------

TEST(SdpRtpmap, TellsTheCodecWhateverTheLetters)
{
    const struct {
        const char *encoding;
        sdp_codec codec;
    } rows[] = {{"H264", SDP_CODEC_H264}, {"h264", SDP_CODEC_H264},   {"H265", SDP_CODEC_H265},
                {"VP8", SDP_CODEC_VP8},   {"RTX", SDP_CODEC_RTX},     {"VP9", SDP_CODEC_OTHER},
                {"H26", SDP_CODEC_OTHER}, {"H2645", SDP_CODEC_OTHER}, {"red", SDP_CODEC_OTHER}};
    for (const auto &row : rows) {
        const reading result = read_video(std::string("a=rtpmap:97 ") + row.encoding + "/48000/2");
        expect_good(result);
        EXPECT_EQ(row.codec, result.format(1).codec) << row.encoding;
        EXPECT_EQ(48000u, result.format(1).clock_rate);
        EXPECT_EQ(SDP_CODEC_OTHER, result.format(0).codec);
        EXPECT_EQ(0u, result.format(0).clock_rate);
    }
}

TEST(SdpFormat, AttributesForPayloadTypesThatAreNotListedSayNothing)
{
    const reading result =
        read_video("a=rtpmap:98 H264/90000\na=fmtp:98 packetization-mode=9\na=rtcp-fb:98 nack\na=rtpmap:96 VP8/90000");
    expect_good(result);
    EXPECT_EQ(SDP_CODEC_VP8, result.format().codec);
    EXPECT_EQ(nullptr, sdp_format_find(&result.video(), 98));
    EXPECT_EQ(&result.video().formats[1], sdp_format_find(&result.video(), 97));
}

TEST(SdpFmtp, ReadsParametersInAnyOrderAndSpacing)
{
    const char *const rows[] = {
        "packetization-mode=1;sprop-parameter-sets=Z0I=,aM4=", "sprop-parameter-sets=Z0I=,aM4=; packetization-mode=1",
        " profile-level-id=42e01f ; Packetization-Mode = 1 ; sprop-parameter-sets = Z0I= , aM4= ",
        "packetization-mode=1;;sprop-parameter-sets=,Z0I,,aM4,;flag",
        "packetization-mode=1\na=fmtp:96 sprop-parameter-sets=Z0I=\na=fmtp:96 sprop-parameter-sets=aM4="};
    for (const char *row : rows) {
        const reading result = read_video(std::string("a=fmtp:96 ") + row);
        expect_good(result);
        EXPECT_EQ(1, result.format().packetization_mode) << row;
        ASSERT_EQ(2, result.format().n_parameter_sets) << row;
        EXPECT_EQ(hex("6742"), result.parameter_set(0)) << row;
        EXPECT_EQ(hex("68CE"), result.parameter_set(1)) << row;
    }
}

TEST(SdpFmtp, PutsH265ParameterSetsInTheOrderThatADecoderWants)
{
    const reading result = read_video("a=fmtp:97 sprop-pps=RAE=,RAI=;sprop-sps=QgE=;sprop-vps=QAE=");
    expect_good(result);
    ASSERT_EQ(4, result.format(1).n_parameter_sets);
    EXPECT_EQ(hex("4001"), result.parameter_set(0, 1));
    EXPECT_EQ(hex("4201"), result.parameter_set(1, 1));
    EXPECT_EQ(hex("4401"), result.parameter_set(2, 1));
    EXPECT_EQ(hex("4402"), result.parameter_set(3, 1));
}

TEST(SdpFmtp, TiesRetransmissionToItsOriginal)
{
    const reading result = read_video("a=fmtp:97 apt=96;rtx-time=3000\na=rtpmap:97 rtx/90000");
    expect_good(result);
    EXPECT_EQ(96, result.format(1).apt);
    EXPECT_EQ(3000u, result.format(1).rtx_time);
    EXPECT_EQ(&result.video().formats[1], sdp_rtx_format_find(&result.video(), 96));
    EXPECT_EQ(nullptr, sdp_rtx_format_find(&result.video(), 97));
}

TEST(SdpFmtp, AptOfAnotherCodecTiesNothing)
{
    const reading result = read_video("a=fmtp:97 apt=96\na=rtpmap:97 red/90000");
    expect_good(result);
    EXPECT_EQ(nullptr, sdp_rtx_format_find(&result.video(), 96));
}

TEST(SdpRtcpFeedback, IsGatheredByPayloadType)
{
    const struct {
        const char *lines;
        int first;
        int second;
    } rows[] = {
        {"a=rtcp-fb:96 nack", SDP_FEEDBACK_NACK, 0},
        {"a=rtcp-fb:97 nack pli", 0, SDP_FEEDBACK_NACK_PLI},
        {"a=rtcp-fb:* ccm fir", SDP_FEEDBACK_CCM_FIR, SDP_FEEDBACK_CCM_FIR},
        {"a=rtcp-fb:96 goog-remb\na=rtcp-fb:* transport-cc", SDP_FEEDBACK_GOOG_REMB | SDP_FEEDBACK_TRANSPORT_CC,
         SDP_FEEDBACK_TRANSPORT_CC},
        {"a=rtcp-fb:96 nack  pli ", SDP_FEEDBACK_NACK_PLI, 0},
        {"a=rtcp-fb:96 nack rpsi\na=rtcp-fb:96 ccm tmmbr\na=rtcp-fb:96 trr-int 100\na=rtcp-fb:96", 0, 0},
    };
    for (const auto &row : rows) {
        const reading result = read_video(row.lines);
        expect_good(result);
        EXPECT_EQ(row.first, result.format(0).feedback) << row.lines;
        EXPECT_EQ(row.second, result.format(1).feedback) << row.lines;
    }
}

TEST(SdpRtcp, GoesWhereTheDescriptionSays)
{
    const struct {
        const char *lines;
        uint16_t port;
    } rows[] = {{"a=mid:1", 5005},
                {"a=rtcp:6000", 6000},
                {"a=rtcp:6000 IN IP6 ::1", 6000},
                {"a=rtcp-mux", 5004},
                {"a=rtcp:9 IN IP4 0.0.0.0\na=rtcp-mux", 5004}};
    for (const auto &row : rows) {
        const reading result = read_video(row.lines);
        expect_good(result);
        EXPECT_EQ(row.port, sdp_rtcp_port(&result.video())) << row.lines;
    }
}

TEST(SdpRtcp, HasNoPortAboveTheHighestOrOfARefusedSection)
{
    for (const char *port : {"0", "65535"}) {
        const reading result = read(std::string("v=0\nc=IN IP4 1.2.3.4\nm=video ") + port + " RTP/AVP 96\n");
        expect_good(result);
        EXPECT_EQ(0, sdp_rtcp_port(&result.video())) << port;
    }
}

TEST(SdpRtcp, MayBeOfReducedSizeWhenTheDescriptionSaysSo)
{
    EXPECT_TRUE(read_video("a=rtcp-rsize").video().rtcp_rsize);
    EXPECT_FALSE(read_video("a=rtcp-rsiz").video().rtcp_rsize);
}

TEST(SdpSources, AreListedOnce)
{
    const reading result = read_video("a=ssrc:1 cname:a\na=ssrc:1 msid:b c\na=ssrc:4294967295\na=ssrc-group:SIM 1 2 3\n"
                                      "a=ssrc-group:FID 1 4294967295\na=ssrc-group:FID 2 3");
    expect_good(result);
    ASSERT_EQ(2u, result.video().n_sources);
    EXPECT_EQ(1u, result.video().sources[0]);
    EXPECT_EQ(4294967295u, result.video().sources[1]);
    ASSERT_EQ(2u, result.video().n_source_pairs);
    EXPECT_EQ(4294967295u, result.video().source_pairs[0].rtx_ssrc);
    EXPECT_EQ(2u, result.video().source_pairs[1].ssrc);
}

// 30, 28 and 44 bytes 0x61.
const std::string kKey30 = "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";
const std::string kKey28 = "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYQ==";
const std::string kKey44 = "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWE=";

TEST(SdpCrypto, ReadsTheKeyOfEachSuite)
{
    const struct {
        const char *name;
        std::string key;
        sdp_crypto_suite suite;
        int key_size;
        int salt_size;
    } rows[] = {{"AES_CM_128_HMAC_SHA1_80", kKey30, SDP_AES_CM_128_HMAC_SHA1_80, 16, 14},
                {"AES_CM_128_HMAC_SHA1_32", kKey30, SDP_AES_CM_128_HMAC_SHA1_32, 16, 14},
                {"AEAD_AES_128_GCM", kKey28, SDP_AEAD_AES_128_GCM, 16, 12},
                {"AEAD_AES_128_GCM", kKey28.substr(0, 38), SDP_AEAD_AES_128_GCM, 16, 12},
                {"AEAD_AES_256_GCM", kKey44, SDP_AEAD_AES_256_GCM, 32, 12}};
    for (const auto &row : rows) {
        const reading result = read_video(std::string("a=crypto:7 ") + row.name + " inline:" + row.key);
        expect_good(result);
        ASSERT_EQ(1u, result.video().n_cryptos) << row.name;
        const sdp_crypto &crypto = result.video().cryptos[0];
        EXPECT_EQ(7u, crypto.tag);
        EXPECT_EQ(row.suite, crypto.suite);
        EXPECT_EQ(row.key_size, crypto.key_size);
        EXPECT_EQ(row.salt_size, crypto.salt_size);
        const bytes key(crypto.key, crypto.key + crypto.key_size + crypto.salt_size);
        EXPECT_EQ(bytes(key.size(), 0x61), key);
        EXPECT_EQ(0u, crypto.lifetime);
        EXPECT_EQ(0, crypto.mki_size);
    }
}

TEST(SdpCrypto, ReadsLifetimeAndIdentifier)
{
    const struct {
        const char *behind;
        uint64_t lifetime;
        uint32_t mki;
        int mki_size;
    } rows[] = {{"", 0, 0, 0},
                {"|2^20", 1048576, 0, 0},
                {"|2^48", 281474976710656, 0, 0},
                {"|1000", 1000, 0, 0},
                {"|1:4", 0, 1, 4},
                {"|2^31|255:1", 2147483648, 255, 1},
                {"|2^31|4294967295:128", 2147483648, 4294967295, 128},
                {"|2^31 WSH=64", 2147483648, 0, 0},
                {" -KDR=1 wsh=64", 0, 0, 0}};
    for (const auto &row : rows) {
        const reading result = read_video("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:" + kKey30 + row.behind);
        expect_good(result);
        const sdp_crypto &crypto = result.video().cryptos[0];
        EXPECT_EQ(row.lifetime, crypto.lifetime) << row.behind;
        EXPECT_EQ(row.mki, crypto.mki) << row.behind;
        EXPECT_EQ(row.mki_size, crypto.mki_size) << row.behind;
    }
}

TEST(SdpCrypto, PassesOverSuitesThatItDoesNotKnow)
{
    const reading result = read_video("a=crypto:1 F8_128_HMAC_SHA1_80 inline:x;inline:y|1:4\n"
                                      "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:" +
                                      kKey30);
    expect_good(result);
    ASSERT_EQ(1u, result.video().n_cryptos);
    EXPECT_EQ(2u, result.video().cryptos[0].tag);
}

// ---- Faults ------------------------------------------------------------------------------------------------------

struct fault_case {
    std::string text;
    uint32_t line;
    const char *what;
};

bool is_all_zero(const sdp_session &session)
{
    const auto *begin = reinterpret_cast<const uint8_t *>(&session);
    return std::all_of(begin, begin + sizeof(session), [](uint8_t byte) { return byte == 0; });
}

void expect_faults(const std::vector<fault_case> &rows)
{
    for (const fault_case &row : rows) {
        const reading result = read(row.text);
        EXPECT_FALSE(result.is_good) << row.text;
        EXPECT_EQ(row.line, result.error.line) << row.text;
        EXPECT_STREQ(row.what, result.error.what) << row.text;
        EXPECT_TRUE(is_all_zero(*result.session)) << row.text;
    }
}

TEST(SdpFault, IsFoundInLines)
{
    const char *const no_version = "the description does not begin with v=0";
    const char *const no_line = "not a line of the form x=...";
    expect_faults({
        {"", 1, no_version},
        {"\n\n", 2, no_version},
        {"SDP:\n", 1, no_version},
        {"s=-\nv=0\n", 1, no_version},
        {"v=1\n", 1, "v= is not 0"},
        {"v=\n", 1, "v= is not 0"},
        {"v=0\nv=0\n", 2, "a second v= line"},
        {"v=0\nSDP:\n", 2, no_line},
        {"v=0\ns\n", 2, no_line},
        {"v=0\n=s\n", 2, no_line},
        {"v=0\nS=s\n", 2, no_line},
        {"<html>", 1, no_line},
        {"v=0\ns=a\rt=0 0\n", 2, "a zero or a carriage return within the line"},
        {std::string("v=0\ns=a\0b\n", 10), 2, "a zero or a carriage return within the line"},
    });
}

TEST(SdpFault, IsFoundInSections)
{
    const std::string head = "v=0\nc=IN IP4 1.2.3.4\nm=video ";
    const char *const no_address = "c= is not IN, IP4 or IP6, and an address";
    expect_faults({
        {head + "\n", 3, "m= has no port"},
        {head + "x RTP/AVP 96\n", 3, "m= has no port"},
        {head + "65536 RTP/AVP 96\n", 3, "m= has no port"},
        {head + "-1 RTP/AVP 96\n", 3, "m= has no port"},
        {head + "5004/0 RTP/AVP 96\n", 3, "m= has no port"},
        {head + "5004\n", 3, "m= has a transport that is not RTP over UDP"},
        {head + "5004 TCP/RTP/AVP 96\n", 3, "m= has a transport that is not RTP over UDP"},
        {head + "5004 RTP/AVP\n", 3, "m= lists no payload type"},
        {head + "5004 RTP/AVP x\n", 3, "m= lists something that is not a payload type"},
        {head + "5004 RTP/AVP 128\n", 3, "m= lists something that is not a payload type"},
        {head + "5004 RTP/AVP 96 97 96\n", 3, "m= lists a payload type twice"},
        {"v=0\nm=video 5004 RTP/AVP 96\na=sendonly\n", 2, "no c= line for this m="},
        {"v=0\nm=video 5004 RTP/AVP 96\nm=audio 1 RTP/AVP 0\nc=IN IP4 1.2.3.4\n", 2, "no c= line for this m="},
        {"v=0\nc=IN IP4 1.2.3.4\nc=IN IP4 1.2.3.4\n", 3, "a second c= line"},
        {"v=0\nc=\n", 2, no_address},
        {"v=0\nc=IN IP4\n", 2, no_address},
        {"v=0\nc=IN IP5 1.2.3.4\n", 2, no_address},
        {"v=0\nc=ATM IP4 1.2.3.4\n", 2, no_address},
        {"v=0\nc=IN IP4 1.2.3.4 5\n", 2, no_address},
        {"v=0\nc=IN IP4 1.2.3.4/x\n", 2, no_address},
        {"v=0\nc=IN IP4 /1\n", 2, no_address},
        {"v=0\nc=IN IP4 " + std::string(64, 'a') + "\n", 2, no_address},
    });
}

void expect_video_faults(const std::vector<fault_case> &rows)
{
    std::vector<fault_case> whole;
    whole.reserve(rows.size());
    for (const fault_case &row : rows) {
        whole.push_back({kHead + "a=mid:1\n" + row.text + "\na=mid:2\n", 7 + row.line, row.what});
    }
    expect_faults(whole);
}

TEST(SdpFault, IsFoundInAttributes)
{
    const char *const no_encoding = "a=rtpmap has no encoding name and clock rate";
    const char *const no_rtcp_address =
        "a=rtcp has something behind its port that is not IN, IP4 or IP6, and an address";
    const char *const no_ssrc = "a=ssrc does not begin with a number of 32 bits";
    const char *const no_pair = "a=ssrc-group:FID does not name two sources";
    expect_video_faults({
        {"a=rtpmap", 1, "a=rtpmap does not begin with a payload type"},
        {"a=rtpmap:H264/90000", 1, "a=rtpmap does not begin with a payload type"},
        {"a=rtpmap:96", 1, no_encoding},
        {"a=rtpmap:96 H264", 1, no_encoding},
        {"a=rtpmap:96 H264/0", 1, no_encoding},
        {"a=rtpmap:96 H264/4294967296", 1, no_encoding},
        {"a=rtpmap:96 /90000", 1, no_encoding},
        {"a=rtpmap:96 H264/90000\na=rtpmap:96 H264/90000", 2, "a second a=rtpmap for this payload type"},
        {"a=fmtp:x", 1, "a=fmtp does not begin with a payload type"},
        {"a=fmtp:96 packetization-mode=3", 1, "packetization-mode is not 0, 1 or 2"},
        {"a=fmtp:96 packetization-mode", 1, "packetization-mode is not 0, 1 or 2"},
        {"a=fmtp:96 sprop-parameter-sets=Z0!=", 1, "a parameter set is not base64"},
        {"a=fmtp:97 apt=128", 1, "apt is not a payload type"},
        {"a=fmtp:97 apt=96;rtx-time=soon", 1, "rtx-time is not a number of milliseconds"},
        {"a=rtcp-fb:nack", 1, "a=rtcp-fb begins neither with a payload type nor with *"},
        {"a=rtcp:", 1, "a=rtcp does not begin with a port"},
        {"a=rtcp:70000", 1, "a=rtcp does not begin with a port"},
        {"a=rtcp:5005 127.0.0.1", 1, no_rtcp_address},
        {"a=ssrc:x cname:y", 1, no_ssrc},
        {"a=ssrc:4294967296 cname:y", 1, no_ssrc},
        {"a=ssrc-group:FID 1", 1, no_pair},
        {"a=ssrc-group:FID 1 2 3", 1, no_pair},
        {"a=ssrc-group:FID 1 x", 1, no_pair},
    });
}

TEST(SdpFault, IsFoundInKeys)
{
    const std::string crypto = "a=crypto:1 AES_CM_128_HMAC_SHA1_80 ";
    const std::string with_key = crypto + "inline:" + kKey30;
    const char *const bad_length = "the key of a=crypto has not the length that its suite wants";
    const char *const bad_lifetime = "the lifetime in a=crypto is not a number of packets up to 2^48";
    const char *const bad_mki = "the master key identifier in a=crypto is not a number and its size in bytes";
    expect_video_faults({
        {"a=crypto:", 1, "a=crypto does not begin with a tag"},
        {"a=crypto:1000000000 AES_CM_128_HMAC_SHA1_80 inline:" + kKey30, 1, "a=crypto does not begin with a tag"},
        {crypto, 1, "a=crypto has no inline key"},
        {crypto + kKey30, 1, "a=crypto has no inline key"},
        {crypto + "inline:", 1, bad_length},
        {crypto + "inline:" + kKey28, 1, bad_length},
        {crypto + "inline:" + kKey44, 1, bad_length},
        {crypto + "inline:" + kKey44 + kKey44, 1, "the key of a=crypto is not base64"},
        {crypto + "inline:" + kKey30 + kKey30, 1, bad_length},
        {crypto + "inline:" + kKey30.substr(1) + "-", 1, "the key of a=crypto is not base64"},
        {with_key + ";inline:" + kKey30, 1, "a=crypto has more than one key"},
        {with_key + "|0", 1, bad_lifetime},
        {with_key + "|2^49", 1, bad_lifetime},
        {with_key + "|3^2", 1, bad_lifetime},
        {with_key + "|281474976710657", 1, bad_lifetime},
        {with_key + "|2^20|1", 1, bad_mki},
        {with_key + "|1:0", 1, bad_mki},
        {with_key + "|1:129", 1, bad_mki},
        {with_key + "|256:1", 1, bad_mki},
        {with_key + "|1:4|2^20", 1, "a=crypto has more behind its key than lifetime and identifier"},
        {with_key + " UNENCRYPTED_SRTP", 1, "a=crypto has a session parameter that is not supported"},
        {with_key + "\n" + with_key, 2, "a second a=crypto with this tag"},
    });
}

std::string repeated(size_t count, const std::function<std::string(size_t)> &piece)
{
    std::string text;
    for (size_t i = 0; i < count; i++) {
        text += piece(i);
    }
    return text;
}

struct limit_case {
    const char *name;
    size_t limit;
    std::string before;
    std::function<std::string(size_t)> piece; // one of what is limited
    const char *what;
};

TEST(SdpFault, IsMoreThanTheRecordsHold)
{
    const std::string head = "v=0\nc=IN IP4 1.2.3.4\n";
    const auto number = [](size_t i) { return std::to_string(i); };
    const auto line = [number](const char *begin, const char *end) {
        return [=](size_t i) { return begin + number(i + 1) + end + "\n"; };
    };
    const std::string crypto = " AES_CM_128_HMAC_SHA1_80 inline:" + kKey30;
    const std::string set_of_96 = "a=fmtp:96 sprop-sps=" + std::string(128, 'A') + "\n";
    const limit_case rows[] = {
        {"sections", kSdpVideosMax, head, line("m=video ", " RTP/AVP 96"),
         "more m=video sections than a description may have here"},
        {"payload types", kSdpFormatsMax, head + "m=video 5004 RTP/AVP", [number](size_t i) { return " " + number(i); },
         "m= lists more payload types than a section may have here"},
        {"sources", kSdpSourcesMax, kHead, line("a=ssrc:", ""), "more sources than a section may have here"},
        {"source pairs", kSdpSourcePairsMax, kHead, line("a=ssrc-group:FID 1 ", ""),
         "more a=ssrc-group:FID lines than a section may have here"},
        {"keys", kSdpCryptosMax, kHead, line("a=crypto:", crypto.c_str()),
         "more a=crypto lines than a section may have here"},
        {"parameter sets", kSdpParameterSetsMax, kHead, line("a=fmtp:96 sprop-pps=AAA", ""),
         "more parameter sets than a payload type may have here"},
        {"parameter bytes", kSdpParameterBytesMax / 96, kHead,
         [&set_of_96](size_t i) { return i < 8 ? set_of_96 : "a=fmtp:97" + set_of_96.substr(9); },
         "parameter sets that are longer than all may be here"},
    };
    for (const limit_case &row : rows) {
        SCOPED_TRACE(row.name);
        expect_good(read(row.before + repeated(row.limit, row.piece)));
        const std::string text = row.before + repeated(row.limit + 1, row.piece);
        const auto lines = static_cast<uint32_t>(std::count(text.begin(), text.end(), '\n'));
        expect_faults({{text, text.back() == '\n' ? lines : lines + 1, row.what}});
    }
}

TEST(SdpFault, DoesNotComeFromLongLinesThatDoNotMatter)
{
    expect_good(read_video("a=tool:" + std::string(100000, 'x')));
}

// ---- Damage ------------------------------------------------------------------------------------------------------

// What any description that is read keeps to.
void check_bounds(const sdp_session &session)
{
    ASSERT_LE(session.n_videos, kSdpVideosMax);
    ASSERT_LE(session.n_parameter_bytes, kSdpParameterBytesMax);
    for (size_t v = 0; v < session.n_videos; v++) {
        const sdp_video &video = session.videos[v];
        ASSERT_LE(video.n_formats, kSdpFormatsMax);
        ASSERT_GT(video.n_formats, 0u);
        ASSERT_LE(video.n_sources, kSdpSourcesMax);
        ASSERT_LE(video.n_source_pairs, kSdpSourcePairsMax);
        ASSERT_LE(video.n_cryptos, kSdpCryptosMax);
        ASSERT_GT(strnlen(video.address.text, sizeof(video.address.text)), 0u);
        ASSERT_LE(strnlen(video.address.text, sizeof(video.address.text)), kSdpAddressSizeMax);
        for (size_t f = 0; f < video.n_formats; f++) {
            const sdp_format &format = video.formats[f];
            ASSERT_LT(format.payload_type, 128);
            ASSERT_LE(format.n_parameter_sets, kSdpParameterSetsMax);
            for (size_t s = 0; s < format.n_parameter_sets; s++) {
                ASSERT_GT(format.parameter_sets[s].size, 0);
                ASSERT_LE(format.parameter_sets[s].offset + format.parameter_sets[s].size, session.n_parameter_bytes);
            }
        }
    }
}

void check_reading(const std::string &text)
{
    const reading result = read(text);
    if (result.is_good) {
        check_bounds(*result.session);
        return;
    }
    const auto n_lines = std::count(text.begin(), text.end(), '\n') + 1;
    ASSERT_NE(nullptr, result.error.what);
    ASSERT_GE(result.error.line, 1u);
    ASSERT_LE(result.error.line, n_lines);
}

TEST(SdpDamage, OfEveryCutIsUnderstoodOrReported)
{
    for (const char *example : kSdpExamples) {
        const std::string whole(example);
        for (size_t size = 0; size <= whole.size(); size++) {
            check_reading(whole.substr(0, size));
        }
    }
}

TEST(SdpDamage, OfRandomKindIsUnderstoodOrReported)
{
    std::mt19937 random(8866);
    for (int round = 0; round < 100000; round++) {
        const std::string whole(kSdpExamples[static_cast<size_t>(random()) % std::size(kSdpExamples)]);
        check_reading(random_damage(whole, &random));
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
    }
}

} // namespace
