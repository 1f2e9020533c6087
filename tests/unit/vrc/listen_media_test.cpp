#include "live/listen_media.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <srtp2/srtp.h>

#include <cstring>

#include "capture_builder.h"
#include "srtp/srtp_key.h"
#include "video_stream.h"
#include "wire/rtcp.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

constexpr uint32_t kSender = 7;
constexpr uint16_t kRtpPort = 4000; // of the sender
constexpr uint16_t kRtcpPort = 4711;

sdp_crypto key_of(uint8_t letter)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string hex = "AES_CM_128_HMAC_SHA1_80:";
    for (int i = 0; i < 30; ++i) {
        hex += {digits[letter >> 4], digits[letter & 15]};
    }
    return srtp_key_parse_hex(hex);
}

// What a sender does to its packets.
class encryption
{
  public:
    explicit encryption(const sdp_crypto &key) : context_(srtp_context_outgoing(key)), rtcp_(key)
    {
    }

    bytes protect(bytes packet)
    {
        int size = static_cast<int>(packet.size());
        packet.resize(packet.size() + SRTP_MAX_TRAILER_LEN);
        EXPECT_EQ(srtp_protect(context_.srtp.get(), packet.data(), &size), srtp_err_status_ok);
        packet.resize(static_cast<size_t>(size));
        return packet;
    }

    bytes protect_rtcp(const bytes &datagram)
    {
        const byte_view view = rtcp_.protect({datagram.data(), datagram.size()});
        return {view.data(), view.data() + view.size()};
    }

  private:
    srtp_context context_;
    srtp_protector rtcp_;
};

struct sent_datagram {
    uint16_t to_port;
    bytes datagram;
};

class media_scene
{
  public:
    explicit media_scene(const std::vector<sdp_crypto> &keys, const std::optional<sdp_crypto> &sending_key = {})
        : media_(section_of(keys), sending_key, std::nullopt,
                 {[this](const channel_frame &frame) {
                      frames.push_back({frame.data, frame.data + frame.size});
                  },
                  [this](const udp_datagram &datagram) {
                      recorded.push_back({datagram.payload.data(), datagram.payload.data() + datagram.payload.size()});
                  },
                  [this](const feedback_peer &to, byte_view datagram) {
                      sent.push_back({port_of(to), {datagram.data(), datagram.data() + datagram.size()}});
                      return true;
                  }})
    {
    }

    // `host` is the last number of the address that it comes from.
    void take(udp_role role, uint16_t from_port, const bytes &datagram, uint8_t host = 1)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + host);
        address.sin_port = htons(from_port);
        udp_arrival arrival{role, {{}, {datagram.data(), datagram.size()}}, {}};
        std::memcpy(&arrival.from.address, &address, sizeof address);
        media_.take(arrival, now);
    }

    void take_rtp(const bytes &packet)
    {
        take(udp_role::rtp, kRtpPort, packet);
    }

    void pass(zeb_ts_t time)
    {
        for (const zeb_ts_t end = now + time; now < end;) {
            now += 10;
            media_.tick(now);
        }
    }

    const listen_media &media() const
    {
        return media_;
    }

    zeb_ts_t now = 10'000;
    std::vector<bytes> frames;
    std::vector<bytes> recorded;
    std::vector<sent_datagram> sent;

  private:
    static listen_section section_of(const std::vector<sdp_crypto> &keys)
    {
        listen_section section;
        section.config.codec = VIDEO_TYPE_H264;
        section.config.payload_type = 96;
        section.config.rtx = {{97, 96}};
        section.config.feedback.nack = true;
        section.config.feedback.pli = true;
        section.config.feedback.reports = true;
        section.keys = keys;
        section.rtp_port = 5004;
        section.rtcp_port = 5005;
        return section;
    }

    static uint16_t port_of(const feedback_peer &peer)
    {
        sockaddr_in address{};
        std::memcpy(&address, &peer.address, sizeof address);
        return ntohs(address.sin_port);
    }

    listen_media media_;
};

bytes picture(uint16_t seq, bool is_key = false)
{
    return rtp({seq, seq * 1800u, true, kSender}, is_key ? h264_idr_slice(200) : h264_inter_slice(100));
}

bytes parameter_sets(uint16_t seq)
{
    return rtp({seq, (seq + 1u) * 1800u, false, kSender}, h264_parameter_sets());
}

bytes sender_report()
{
    return bytes{0x80, 200} + be16(6) + be32(kSender) + be32(1) + be32(2) + be32(3) + be32(4) + be32(5);
}

// Whether a datagram asks for that packet.
bool asks_for(byte_view datagram, uint16_t wanted)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
        rtcp_nack_cursor numbers = rtcp_nack_begin(&item.nack);
        for (seq_t seq = 0; item.kind == RTCP_ITEM_NACK && rtcp_nack_next(&numbers, &seq);) {
            if (seq == wanted) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

TEST(ListenMedia, RepairsEncryptedStreamByEncryptedRequest)
{
    for (const bool has_own_key : {false, true}) {
        const sdp_crypto own_key = key_of('b');
        media_scene scene({key_of('x'), key_of('a')}, has_own_key ? std::optional<sdp_crypto>(own_key) : std::nullopt);
        encryption sender(key_of('a'));
        scene.take_rtp(sender.protect(parameter_sets(1)));
        scene.take_rtp(sender.protect(picture(2, true)));
        scene.take_rtp(sender.protect(picture(4)));
        scene.pass(30);
        srtp_session peer({has_own_key ? own_key : key_of('a')});
        bool is_asked = false;
        for (const sent_datagram &one : scene.sent) {
            byte_view view(one.datagram.data(), one.datagram.size());
            ASSERT_TRUE(peer.unprotect({}, &view, scene.now));
            is_asked = is_asked || asks_for(view, 3);
            EXPECT_EQ(one.to_port, kRtpPort);
        }
        EXPECT_TRUE(is_asked);
        const bytes lost = picture(3);
        const bytes repeated = rtp({1, 3 * 1800, true, 70, 97}, be16(3) + bytes(lost.begin() + 12, lost.end()));
        scene.take_rtp(sender.protect(repeated));
        EXPECT_EQ(scene.frames.size(), 3u);
        EXPECT_EQ(scene.media().receiver().report(kSender)->packets_retransmitted, 1u);
        EXPECT_EQ(scene.media().decryption().decrypted, 4u);
        EXPECT_EQ(scene.recorded.back(), repeated) << "what is recorded is not encrypted";
    }
}

TEST(ListenMedia, DropsAndCountsWhatIsNotAuthentic)
{
    media_scene scene({key_of('a')});
    encryption stranger(key_of('b'));
    scene.take_rtp(stranger.protect(parameter_sets(1)));
    scene.take_rtp(stranger.protect(picture(2, true)));
    scene.take_rtp(picture(3, true)); // not encrypted at all
    scene.take(udp_role::rtcp, kRtcpPort, stranger.protect_rtcp(sender_report()));
    scene.take(udp_role::rtcp, kRtcpPort, sender_report());
    scene.pass(100);
    EXPECT_TRUE(scene.frames.empty());
    EXPECT_TRUE(scene.recorded.empty());
    EXPECT_TRUE(scene.media().receiver().senders().empty());
    EXPECT_EQ(scene.media().decryption().not_authentic + scene.media().decryption().malformed, 5u);
    EXPECT_EQ(scene.media().counts().rtp_datagrams, 3u);
    EXPECT_EQ(scene.media().counts().rtcp_datagrams, 2u);
    EXPECT_NE(scene.media().wrong_key_reason().find("check suite and key"), std::string::npos);
    EXPECT_EQ(scene.media().no_video_reason(), scene.media().wrong_key_reason());
}

TEST(ListenMedia, SaysWhenNothingCame)
{
    media_scene scene({key_of('a')});
    scene.take(udp_role::rtcp, kRtcpPort, sender_report());
    EXPECT_EQ(scene.media().no_video_reason(), "no RTP came");
}

TEST(ListenMedia, TakesEncryptedReportsAndAnswersWhereTheyCameFrom)
{
    media_scene scene({key_of('a')});
    encryption sender(key_of('a'));
    encryption stranger(key_of('b'));
    scene.take(udp_role::rtcp, kRtcpPort, sender.protect_rtcp(sender_report()));
    scene.take_rtp(sender.protect(parameter_sets(1)));
    scene.take_rtp(sender.protect(picture(2, true)));
    scene.take(udp_role::rtcp, 666, stranger.protect_rtcp(sender_report()));
    scene.pass(1500);
    EXPECT_EQ(scene.media().receiver().report(kSender)->sender_reports, 1u);
    ASSERT_FALSE(scene.sent.empty());
    for (const sent_datagram &one : scene.sent) {
        EXPECT_EQ(one.to_port, kRtcpPort);
    }
    EXPECT_EQ(scene.media().wrong_key_reason(), "");
}

TEST(ListenMedia, AnswersWhoeverShowsASocketForRtcp)
{
    struct {
        const char *what;
        bytes datagram; // to the RTCP port, before the first packet; empty: none
        uint16_t answer_port;
    } const rows[] = {
        {"nothing: where RTP comes from", {}, kRtpPort},
        {"a gateway's only word, no RTCP", bytes{0x80} + bytes(11, 0), kRtcpPort},
        {"a report", sender_report(), kRtcpPort},
    };
    for (const auto &row : rows) {
        media_scene scene({});
        if (!row.datagram.empty()) {
            scene.take(udp_role::rtcp, kRtcpPort, row.datagram);
        }
        scene.take_rtp(picture(5)); // in the middle of something: a key frame is asked for
        scene.pass(50);
        ASSERT_FALSE(scene.sent.empty()) << row.what;
        EXPECT_EQ(scene.sent.back().to_port, row.answer_port) << row.what;
        EXPECT_EQ(scene.media().receiver().rtcp_malformed(), row.datagram.size() == 12 ? 1u : 0u) << row.what;
    }
}

TEST(ListenMedia, FindsRtcpSocketOfSenderThatWasThereBefore)
{
    media_scene scene({});
    scene.take_rtp(picture(5));
    scene.pass(50);
    ASSERT_FALSE(scene.sent.empty());
    EXPECT_EQ(scene.sent.back().to_port, kRtpPort);
    scene.take(udp_role::rtcp, kRtcpPort, sender_report()); // the gateway's word was missed, the report comes later
    scene.sent.clear();
    scene.take_rtp(picture(6));
    scene.pass(1000);
    ASSERT_FALSE(scene.sent.empty());
    EXPECT_EQ(scene.sent.back().to_port, kRtcpPort);
}

TEST(ListenMedia, TakesRtcpThatComesToThePortOfRtp)
{
    media_scene scene({});
    scene.take_rtp(parameter_sets(1));
    scene.take_rtp(picture(2, true));
    scene.take_rtp(sender_report());
    EXPECT_EQ(scene.media().counts().rtp_datagrams, 2u);
    EXPECT_EQ(scene.media().counts().rtcp_datagrams, 1u);
    EXPECT_EQ(scene.media().receiver().report(kSender)->sender_reports, 1u);
}

TEST(ListenMedia, LetsNobodyElseMoveItsFeedback)
{
    encryption stranger(key_of('b'));
    struct {
        const char *what;
        udp_role role;
        bytes datagram;
    } const rows[] = {
        {"a byte", udp_role::rtcp, {0}},
        {"a byte of RTP's version", udp_role::rtcp, {0x80}},
        {"zeros", udp_role::rtcp, bytes(40, 0)},
        {"RTCP that is cut off", udp_role::rtcp, bytes{0x80, 200, 0, 6} + be32(kSender)},
        {"a report in the sender's name", udp_role::rtcp, sender_report()},
        {"a report in the name of nobody", udp_role::rtcp, bytes{0x80, 201, 0, 1} + be32(99)},
        {"an empty RTP packet", udp_role::rtcp, bytes{0x80} + bytes(11, 0)},
        {"a report under another key", udp_role::rtcp, stranger.protect_rtcp(sender_report())},
        {"a copy of a packet", udp_role::rtp, parameter_sets(1)},
        {"a packet", udp_role::rtp, picture(1000)},
        {"a report to the port of RTP", udp_role::rtp, sender_report()},
    };
    for (const auto &row : rows) {
        for (const bool is_encrypted : {false, true}) {
            for (const bool is_before : {false, true}) {
                media_scene scene(is_encrypted ? std::vector<sdp_crypto>{key_of('a')} : std::vector<sdp_crypto>{});
                encryption sender(key_of('a'));
                for (uint16_t seq = 1; seq < 150; ++seq) {
                    if (seq == (is_before ? 1 : 12)) {
                        scene.take(row.role, 666, row.datagram, 66);
                    }
                    const bytes packet = picture(seq);
                    scene.take_rtp(is_encrypted ? sender.protect(packet) : packet);
                    scene.pass(10);
                }
                EXPECT_FALSE(scene.sent.empty());
                size_t to_stranger = 0;
                for (const sent_datagram &one : scene.sent) {
                    to_stranger += one.to_port == 666 ? 1 : 0;
                }
                // Only somebody who comes first in the sender's own name is answered, until the sender has proven itself.
                const bool is_first = !is_encrypted && is_before && row.role == udp_role::rtp;
                EXPECT_LE(to_stranger, is_first ? 2u : 0u) << row.what << (is_encrypted ? ", encrypted" : "");
                EXPECT_EQ(scene.sent.back().to_port, kRtpPort) << row.what;
            }
        }
    }
}

// With keys the host alone proves nothing.
TEST(ListenMedia, LearnsNoAddressFromWhatIsNotAuthentic)
{
    encryption stranger(key_of('b'));
    for (const bytes &datagram : {bytes{0}, bytes(12, 0x80), bytes{0x80} + bytes(11, 0), sender_report(),
                                  stranger.protect_rtcp(sender_report())}) {
        media_scene scene({key_of('a')});
        encryption sender(key_of('a'));
        scene.take(udp_role::rtcp, 666, datagram);
        scene.take_rtp(sender.protect(picture(5)));
        scene.take(udp_role::rtcp, 666, datagram);
        scene.pass(1500);
        ASSERT_FALSE(scene.sent.empty());
        for (const sent_datagram &one : scene.sent) {
            EXPECT_EQ(one.to_port, kRtpPort);
        }
    }
}
