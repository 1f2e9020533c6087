// What the channel refuses, whom it lets in, and what it keeps of them.
#include "api/channel.h"

#include <gtest/gtest.h>

#include <cstring>

#include "api/log.h"
#include "client_bench.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::rtp_fields;
using rtp_builder::Sender;

namespace
{

bytes packet_of(uint32_t ssrc, uint16_t seq)
{
    rtp_fields fields;
    fields.ssrc = ssrc;
    fields.seq = seq;
    return rtp_packet(fields);
}

// ---- The door of the RTP path ----

struct door_row {
    const char *what;
    bytes packet;
    packet_drop_e reason;
};

bytes damaged(const rtp_fields &fields, const std::function<void(bytes &)> &damage)
{
    bytes packet = rtp_packet(fields);
    damage(packet);
    return packet;
}

rtp_fields with_extension(int words)
{
    rtp_fields fields;
    fields.extension_words = words;
    return fields;
}

rtp_fields with_padding(uint8_t padding)
{
    rtp_fields fields;
    fields.padding = padding;
    return fields;
}

class ChannelRtpDoor : public testing::TestWithParam<door_row>
{
};

TEST_P(ChannelRtpDoor, RefusesAndCountsByReason)
{
    Client client;
    const bytes &packet = GetParam().packet;
    EXPECT_EQ(client.receive(packet), -1) << GetParam().what;
    for (int i = 0; i < PACKET_DROP_REASONS; i++) {
        const auto reason = static_cast<packet_drop_e>(i);
        EXPECT_EQ(client.refused(reason), reason == GetParam().reason ? 1u : 0u)
            << GetParam().what << ": " << packet_drop_name(reason);
    }
    EXPECT_EQ(client.stream(), nullptr) << "a stranger's packet makes no user";
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChannelRtpDoor,
    testing::Values(
        door_row{"nothing", {}, PACKET_DROP_BAD_HEADER},
        door_row{"cut header", damaged({}, [](bytes &p) { p.resize(11); }), PACKET_DROP_BAD_HEADER},
        door_row{"version 1", damaged({}, [](bytes &p) { p[0] = 0x40; }), PACKET_DROP_BAD_VERSION},
        door_row{"version 3", damaged({}, [](bytes &p) { p[0] = 0xC0; }), PACKET_DROP_BAD_VERSION},
        door_row{"more CSRCs than bytes", damaged({}, [](bytes &p) { p[0] |= 15; }), PACKET_DROP_BAD_HEADER},
        door_row{"cut extension", damaged(with_extension(3), [](bytes &p) { p.resize(20); }),
                 PACKET_DROP_BAD_EXTENSION},
        door_row{"extension of two lengths", rtp_packet(with_extension(256)), PACKET_DROP_BAD_EXTENSION},
        door_row{"padding of length 0", damaged(with_padding(2), [](bytes &p) { p.back() = 0; }),
                 PACKET_DROP_BAD_PADDING},
        door_row{"padding longer than the payload", damaged(with_padding(2), [](bytes &p) { p.back() = 200; }),
                 PACKET_DROP_BAD_PADDING},
        door_row{"65,536 bytes", damaged({}, [](bytes &p) { p.resize(65536); }), PACKET_DROP_TOO_LARGE},
        door_row{"payload type 97", damaged({}, [](bytes &p) { p[1] = 97; }), PACKET_DROP_UNKNOWN_PAYLOAD_TYPE}));

TEST(ChannelRtp, RefusesANullPacket)
{
    Client client;
    EXPECT_EQ(rtc_channel_receive_rtp(client.channel, nullptr, 100, false, &client.now), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_BAD_HEADER), 1u);
}

TEST(ChannelRtp, TakesTheLargestPacket)
{
    Client client;
    EXPECT_EQ(client.receive(damaged({}, [](bytes &p) { p.resize(65535, 1); })), 0);
}

TEST(ChannelPayloadTypes, AreAllRefusedAtFirstAndAfterTheyWereTakenBack)
{
    Client client;
    const bytes packet = packet_of(1, 1);
    rtc_channel_set_payload_type(client.channel, 96, VIDEO_TYPE_UNKNOWN);
    EXPECT_EQ(client.receive(packet), -1);
    rtc_channel_set_payload_type(client.channel, 96 | 0x80, VIDEO_TYPE_H264);
    EXPECT_EQ(client.receive(packet), 0) << "only seven bits count";
    rtc_channel_set_payload_type(client.channel, 96, VIDEO_TYPE_VP8);
    EXPECT_EQ(client.receive(packet_of(1, 2)), -1) << "nobody can unpack it";
    EXPECT_EQ(client.refused(PACKET_DROP_UNKNOWN_PAYLOAD_TYPE), 2u);
}

// ---- The door of the native path ----

struct native_row {
    const char *what;
    Video4Header header;
    bytes payload;
    packet_drop_e reason; // PACKET_DROP_REASONS: let in
};

Video4Header header_of(uint16_t n_pkts, uint16_t subseq, uint8_t codec = VIDEO_TYPE_H264, uint8_t version = 10,
                       uint32_t fec_count = 0, uint32_t fec_method = 0)
{
    Video4Header header = {};
    header.frame_seq = 1;
    header.n_pkts = n_pkts;
    header.subseq = subseq;
    header.codec = codec;
    header.protocol_version = version;
    header.reserved = fec_count << 8 | fec_method << 3;
    return header;
}

// An RTP packet of that payload type with that payload.
bytes rtp_of(const bytes &payload, uint8_t payload_type = 96)
{
    rtp_fields fields;
    fields.payload = payload;
    fields.payload_type = payload_type;
    return rtp_packet(fields);
}

PVideoData4 native_packet(const Video4Header &header, const bytes &payload, uint32_t uid = 5, seq_t seq = 0)
{
    PVideoData4 video = {};
    video.common.uid = uid;
    video.common.seq = seq;
    video.header = header;
    video.payload.values = zeb_malloc_impl_dbg(payload.size(), __func__, __LINE__);
    video.payload.count = video.payload.allocated = static_cast<uint16_t>(payload.size());
    if (!payload.empty()) {
        memcpy(video.payload.values, payload.data(), payload.size());
    }
    video.extension.contents.values = zeb_malloc_impl_dbg(8, __func__, __LINE__);
    video.extension.contents.count = video.extension.contents.allocated = 2;
    return video;
}

class ChannelNativeDoor : public testing::TestWithParam<native_row>
{
};

TEST_P(ChannelNativeDoor, RefusesWhatWouldReachBeyondThePacket)
{
    const native_row &row = GetParam();
    Client client;
    PVideoData4 video = native_packet(row.header, row.payload);
    const bool is_let_in = row.reason == PACKET_DROP_REASONS;
    EXPECT_EQ(rtc_channel_receive_native(client.channel, &video, 0, false, &client.now), is_let_in ? 0 : -1)
        << row.what;
    EXPECT_EQ(video.payload.values, nullptr) << "taken over whatever became of it";
    EXPECT_EQ(video.extension.contents.values, nullptr);
    for (int i = 0; i < PACKET_DROP_REASONS; i++) {
        EXPECT_EQ(client.refused(static_cast<packet_drop_e>(i)), i == row.reason ? 1u : 0u)
            << row.what << ": " << packet_drop_name(static_cast<packet_drop_e>(i));
    }
    EXPECT_EQ(client.stream(5) != nullptr, is_let_in);
}

constexpr auto LetIn = PACKET_DROP_REASONS;
constexpr uint8_t Generic = VIDEO_TYPE_GENERIC;
constexpr uint8_t H264 = VIDEO_TYPE_H264;

INSTANTIATE_TEST_SUITE_P(
    Table, ChannelNativeDoor,
    testing::Values(
        native_row{"a plain packet", header_of(1, 0), rtp_of({1}), LetIn},
        native_row{"no packets in the frame", header_of(0, 0), rtp_of({1}), PACKET_DROP_BAD_FRAME_HEADER},
        native_row{"1280 packets", header_of(1280, 1279), rtp_of({1}), LetIn},
        native_row{"1281 packets", header_of(1281, 0), rtp_of({1}), PACKET_DROP_BAD_FRAME_HEADER},
        native_row{"index beyond the frame", header_of(4, 4), rtp_of({1}), PACKET_DROP_BAD_FRAME_HEADER},
        native_row{"as many FEC packets as packets", header_of(4, 0, H264, 10, 4), rtp_of({1}), LetIn},
        native_row{"more FEC packets than packets", header_of(4, 0, H264, 10, 5), rtp_of({1}),
                   PACKET_DROP_BAD_FRAME_HEADER},
        native_row{"empty payload", header_of(1, 0), {}, PACKET_DROP_BAD_HEADER},
        native_row{"payload shorter than the RTP header", header_of(1, 0), bytes(11, 0x80), PACKET_DROP_BAD_HEADER},
        native_row{"CSRCs beyond the packet", header_of(1, 0), bytes(12, 0x8F), PACKET_DROP_BAD_HEADER},
        native_row{"no payload, nothing needed", header_of(1, 0), rtp_of({}), LetIn},
        native_row{"no payload, generic byte needed", header_of(1, 0, Generic), rtp_of({}),
                   PACKET_DROP_BAD_ENCAPSULATION},
        native_row{"no payload, old protocol is generic", header_of(1, 0, H264, 9), rtp_of({}),
                   PACKET_DROP_BAD_ENCAPSULATION},
        native_row{"generic byte alone", header_of(1, 0, Generic), rtp_of({0}), LetIn},
        native_row{"method 1, two bytes needed, one there", header_of(1, 0, H264, 10, 0, 1), rtp_of({127}, 116),
                   PACKET_DROP_BAD_ENCAPSULATION},
        native_row{"method 1, two bytes", header_of(1, 0, H264, 10, 0, 1), rtp_of({127, 0}, 116), LetIn},
        native_row{"method 1, one byte", header_of(1, 0, H264, 10, 0, 1), rtp_of({107}, 116), LetIn},
        native_row{"method 1, another payload type", header_of(1, 0, Generic, 10, 0, 1), rtp_of({127}, 117), LetIn},
        native_row{"method 1, nothing there", header_of(1, 0, H264, 10, 0, 1), rtp_of({}, 116), LetIn},
        native_row{"method 2, generic FEC packet of one byte", header_of(4, 3, Generic, 10, 1, 2), rtp_of({0}),
                   PACKET_DROP_BAD_ENCAPSULATION},
        native_row{"method 2, generic FEC packet of two bytes", header_of(4, 3, Generic, 10, 1, 2), rtp_of({0, 0}),
                   LetIn},
        native_row{"method 2, generic media packet of one byte", header_of(4, 2, Generic, 10, 1, 2), rtp_of({0}),
                   LetIn},
        native_row{"method 2, not generic", header_of(4, 3, H264, 10, 1, 2), rtp_of({}), LetIn}));

TEST(ChannelNative, WithoutAChannelStillTakesThePacket)
{
    const zeb_ts_t now = 1;
    PVideoData4 video = native_packet(header_of(1, 0), rtp_of({1}));
    EXPECT_EQ(rtc_channel_receive_native(nullptr, &video, 0, false, &now), -1);
    EXPECT_EQ(video.payload.values, nullptr);
    EXPECT_EQ(rtc_channel_receive_native(nullptr, nullptr, 0, false, &now), -1);
}

TEST(ChannelNative, TakesFourStreamsOfAUser)
{
    Client client;
    for (uint8_t id = 0; id < 5; id++) {
        PVideoData4 video = native_packet(header_of(1, 0), rtp_of({1}));
        EXPECT_EQ(rtc_channel_receive_native(client.channel, &video, id, false, &client.now), id < 4 ? 0 : -1);
    }
    EXPECT_EQ(client.refused(PACKET_DROP_TOO_MANY_SENDERS), 1u);
    EXPECT_EQ(client.stream(5, 3)->stream_id, 3);
    EXPECT_EQ(client.stream(5, 4), nullptr);
}

TEST(ChannelPaths, AreNotMixedInOneStream)
{
    Client client;
    client.receive(packet_of(5, 1));
    PVideoData4 video = native_packet(header_of(1, 0), rtp_of({1}), 5);
    EXPECT_EQ(rtc_channel_receive_native(client.channel, &video, 0, false, &client.now), -1);
    video = native_packet(header_of(1, 0), rtp_of({1}), 6);
    EXPECT_EQ(rtc_channel_receive_native(client.channel, &video, 0, false, &client.now), 0);
    EXPECT_EQ(client.receive(packet_of(6, 1)), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_WRONG_PATH), 2u);
}

// ---- Senders ----

TEST(ChannelSenders, AreToldApartBySsrc)
{
    Client client;
    Sender first;
    Sender second;
    second.ssrc = 77;
    const frame of_first = first.key_frame();
    const frame of_second = second.key_frame(5);
    for (size_t i = 0; i < 5; i++) {
        client.receive(of_second.packets[i]);
        if (i < 3) {
            client.receive(of_first.packets[i]);
        }
    }
    ASSERT_EQ(client.frames.size(), 2u);
    EXPECT_EQ(client.frames[0].uid, first.ssrc);
    EXPECT_EQ(client.frames[0].data, of_first.annexb);
    EXPECT_EQ(client.frames[1].uid, 77u);
    EXPECT_EQ(client.frames[1].data, of_second.annexb);
}

TEST(ChannelSenders, AreAtMostEightWhileAllSpeak)
{
    Client client;
    for (uint32_t ssrc = 1; ssrc <= 8; ssrc++) {
        EXPECT_EQ(client.receive(packet_of(ssrc, 1)), 0);
    }
    client.now += 4999;
    EXPECT_EQ(client.receive(packet_of(9, 1)), -1);
    EXPECT_EQ(client.refused(PACKET_DROP_TOO_MANY_SENDERS), 1u);
    EXPECT_EQ(client.receive(packet_of(1, 2)), 0) << "those who are in stay in";
}

TEST(ChannelSenders, AreAsManyAsTheConfigurationSays)
{
    for (const uint16_t max_senders : {uint16_t{1}, uint16_t{3}, uint16_t{12}}) {
        rtc_service *service = rtc_service_create();
        channel_config config = {};
        config.max_senders = max_senders;
        rtc_channel *channel = rtc_channel_create(service, &config);
        rtc_channel_set_payload_type(channel, 96, VIDEO_TYPE_H264);
        zeb_ts_t now = 1000;
        for (uint32_t ssrc = 1; ssrc <= max_senders + 1u; ssrc++) {
            const bytes packet = packet_of(ssrc, 1);
            const int result = rtc_channel_receive_rtp(channel, packet.data(), packet.size(), false, &now);
            EXPECT_EQ(result, ssrc <= max_senders ? 0 : -1) << ssrc << " of " << max_senders;
        }
        EXPECT_EQ(rtc_channel_packets_refused(channel)[PACKET_DROP_TOO_MANY_SENDERS], 1u);
        rtc_service_destroy(service);
    }
}

TEST(ChannelSenders, OneSilentForFiveSecondsMakesRoom)
{
    Client client;
    for (uint32_t ssrc = 1; ssrc <= 8; ssrc++) {
        client.receive(packet_of(ssrc, 1));
        client.now += 10;
    }
    client.receive(packet_of(1, 2));
    client.now += 4990;
    EXPECT_EQ(client.receive(packet_of(9, 1)), 0);
    EXPECT_EQ(client.stream(2), nullptr) << "silent for the longest time";
    EXPECT_NE(client.stream(1), nullptr);
    EXPECT_NE(client.stream(9), nullptr);
    EXPECT_EQ(client.service->free_user_video_streams.count, 0u) << "its record was used again";
}

// ---- Looking ----

TEST(ChannelLookup, KnowsNothingOfStrangers)
{
    Client client;
    user_video_stream bare = {};
    EXPECT_EQ(client.stream(1), nullptr);
    EXPECT_EQ(rtc_channel_stream_report(nullptr), nullptr);
    EXPECT_EQ(rtc_channel_stream_report(&bare), nullptr);
    EXPECT_EQ(rtc_channel_packets_refused(nullptr), nullptr);
    EXPECT_EQ(rtc_channel_find_stream(nullptr, 1, 0), nullptr);
}

// ---- Life ----

TEST(ChannelLife, CutsALongName)
{
    rtc_service *service = rtc_service_create();
    const std::string name(200, 'x');
    channel_config config = {};
    config.name = name.c_str();
    config.enable_bandwidth_est_downlink = true;
    const rtc_channel *channel = rtc_channel_create(service, &config);
    EXPECT_EQ(channel->name_id, std::string(RTC_CHANNEL_NAME_SIZE - 1, 'x'));
    EXPECT_TRUE(channel->bandwidth_est_opt.enable_bandwidth_est_downlink);
    rtc_service_destroy(service);
}

TEST(ChannelLife, RunsWithoutANameAndWithoutACallback)
{
    rtc_service *service = rtc_service_create();
    const channel_config config = {};
    rtc_channel *channel = rtc_channel_create(service, &config);
    rtc_channel_set_payload_type(channel, 96, VIDEO_TYPE_H264);
    const zeb_ts_t now = 1;
    Sender sender;
    for (const bytes &packet : sender.key_frame().packets) {
        EXPECT_EQ(rtc_channel_receive_rtp(channel, packet.data(), packet.size(), false, &now), 0);
    }
    const user_video_stream *stream = rtc_channel_find_stream(channel, sender.ssrc, 0);
    EXPECT_EQ(rtc_channel_stream_report(stream)->frames, 1u);
    rtc_service_destroy(service);
}

TEST(ChannelLife, DestroyedOneLeavesTheOthers)
{
    Client client;
    const channel_config config = {};
    rtc_channel *other = rtc_channel_create(client.service, &config);
    Sender sender;
    client.receive(sender.key_frame());
    rtc_channel_destroy(other);
    rtc_channel_destroy(nullptr);
    client.receive(sender.delta_frame());
    client.pass(50);
    EXPECT_EQ(client.frames.size(), 2u);
    rtc_channel_destroy(client.channel);
    EXPECT_EQ(client.service->free_user_video_streams.count, 1u);
}

TEST(ChannelLife, NeedsAServiceAndAConfiguration)
{
    const channel_config config = {};
    rtc_service bare = {};
    EXPECT_EQ(rtc_channel_create(nullptr, &config), nullptr);
    EXPECT_EQ(rtc_channel_create(&bare, &config), nullptr);
    Client client;
    EXPECT_EQ(rtc_channel_create(client.service, nullptr), nullptr);
}

TEST(ChannelLife, BareRecordReceivesNothing)
{
    rtc_channel bare = {};
    const zeb_ts_t now = 1;
    const bytes packet = packet_of(1, 1);
    EXPECT_EQ(rtc_channel_receive_rtp(&bare, packet.data(), packet.size(), false, &now), -1);
    EXPECT_EQ(rtc_channel_receive_rtp(nullptr, packet.data(), packet.size(), false, &now), -1);
    rtc_channel_set_payload_type(&bare, 96, VIDEO_TYPE_H264);
    rtc_channel_destroy(&bare);
}

// ---- The log ----

class LogLines
{
  public:
    LogLines()
    {
        rtc_log_set_level(RTC_LOG_WARNING);
        rtc_log_set_sink(&LogLines::take, this);
    }
    ~LogLines()
    {
        rtc_log_set_sink(nullptr, nullptr);
        rtc_log_set_level(RTC_LOG_DEFAULT);
    }
    LogLines(const LogLines &) = delete;
    LogLines &operator=(const LogLines &) = delete;

    std::vector<std::string> lines;

  private:
    static void take(void *context, int, const char *format, va_list args)
    {
        char line[400];
        vsnprintf(line, sizeof line, format, args);
        static_cast<LogLines *>(context)->lines.emplace_back(line);
    }
};

TEST(ChannelLog, NamesARefusalOnceASecond)
{
    const int was_enabled = g_log_enable;
    g_log_enable = 1;
    {
        LogLines log;
        Client client;
        for (int i = 0; i < 2500; i++) {
            client.receive({1, 2, 3});
            client.now += 1;
        }
        ASSERT_EQ(log.lines.size(), 3u);
        EXPECT_NE(log.lines[0].find("[bench] packet refused: bad_header, 0 more"), std::string::npos) << log.lines[0];
        EXPECT_NE(log.lines[1].find("[bench] packet refused: bad_header, 999 more"), std::string::npos) << log.lines[1];
    }
    g_log_enable = was_enabled;
}

} // namespace
