// What is told, counted and released of packets as they came: bandwidth samples, padding, header extensions, packets that
// there was no memory for.
#include <gtest/gtest.h>

#include <cstring>

#include "client_bench.h"
#include "failing_memory.h"

using client_bench::bytes;
using client_bench::Client;
using failing_memory::failing;
using rtp_builder::rtp_fields;
using rtp_builder::Sender;

namespace
{

constexpr uint32_t kUid = 0x11223344;
constexpr uint8_t kRtxType = 98;
constexpr uint32_t kRtxSsrc = 0x99AABBCC;

struct sample {
    uint16_t seq;
    uint32_t timestamp;
    uint16_t size;
    zeb_ts_t now;
    uint8_t retrans_flag;

    bool operator==(const sample &other) const
    {
        return seq == other.seq && timestamp == other.timestamp && size == other.size && now == other.now &&
               retrans_flag == other.retrans_flag;
    }
};

std::ostream &operator<<(std::ostream &out, const sample &one)
{
    return out << "seq " << one.seq << " timestamp " << one.timestamp << " size " << one.size << " at " << one.now
               << (one.retrans_flag != 0 ? " again" : "");
}

std::vector<sample> samples; // since the test began

} // namespace

extern "C" {

void __real_KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t seq, uint32_t timestamp, uint16_t size,
                                       zeb_ts_t now, uint8_t retrans_flag);

void __wrap_KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t seq, uint32_t timestamp, uint16_t size,
                                       zeb_ts_t now, uint8_t retrans_flag)
{
    samples.push_back({seq, timestamp, size, now, retrans_flag});
    __real_KelvraBcmStat_OnRecvPacket(stat, seq, timestamp, size, now, retrans_flag);
}
}

namespace
{

// ---- Native packets ----

struct native_packet {
    uint32_t frame_seq = 10;
    uint16_t seq = 100;
    uint16_t n_pkts = 1;
    uint16_t subseq = 0;
    bool is_key = true;
    uint8_t codec = VIDEO_TYPE_H264;
    uint8_t version = 10;
    uint16_t sent_ts = 0;
};

bytes rtp_of(const native_packet &packet, const bytes &payload = rtp_builder::nal_unit(5, 20))
{
    rtp_fields fields;
    fields.seq = packet.seq;
    fields.timestamp = packet.frame_seq * 3000;
    fields.payload = payload;
    return rtp_packet(fields);
}

bytes with_padding_bit(bytes packet)
{
    packet[0] |= 0x20;
    return packet;
}

template <typename Array> void allocate(Array *array, size_t count, size_t element_size)
{
    failing_memory::spare(true);
    array->values = zeb_malloc_impl_dbg(count * element_size, __func__, __LINE__);
    failing_memory::spare(false);
    array->count = array->allocated = static_cast<uint16_t>(count);
    memset(array->values, 0, count * element_size);
}

// Every packet carries words in its extension.
int receive(Client &client, const native_packet &packet, const bytes &rtp, bool is_retrans = false)
{
    PVideoData4 video = {};
    video.common.uid = kUid;
    video.common.seq = packet.seq;
    video.common.sent_ts = packet.sent_ts;
    video.header.frame_seq = packet.frame_seq;
    video.header.n_pkts = packet.n_pkts;
    video.header.subseq = packet.subseq;
    video.header.video_type = packet.is_key ? 0x00 : 0x10;
    video.header.codec = packet.codec;
    video.header.protocol_version = packet.version;
    allocate(&video.payload, rtp.size(), 1);
    memcpy(video.payload.values, rtp.data(), rtp.size());
    allocate(&video.extension.contents, 5, sizeof(uint32_t));
    const int result = rtc_channel_receive_native(client.channel, &video, 0, is_retrans, &client.now);
    EXPECT_EQ(video.payload.values, nullptr);
    EXPECT_EQ(video.extension.contents.values, nullptr);
    return result;
}

int receive(Client &client, const native_packet &packet, bool is_retrans = false)
{
    return receive(client, packet, rtp_of(packet), is_retrans);
}

native_packet native(uint32_t frame_seq, uint16_t seq, bool is_key = true)
{
    native_packet packet;
    packet.frame_seq = frame_seq;
    packet.seq = seq;
    packet.is_key = is_key;
    return packet;
}

// What comes behind a key frame; the client is gone afterwards.
struct extension_case {
    const char *what;
    void (*run)(Client &client);
};

const extension_case kExtensionCases[] = {
    {"nothing", [](Client &) {}},
    {"a stray packet that is still held", [](Client &client) { receive(client, native(11, 20000)); }},
    {"a stray packet in place of another",
     [](Client &client) {
         receive(client, native(11, 20000));
         receive(client, native(11, 40000));
     }},
    {"a stray packet that is forgotten",
     [](Client &client) {
         receive(client, native(11, 20000));
         receive(client, native(11, 101, false));
     }},
    {"a stray packet that begins a new numbering",
     [](Client &client) {
         receive(client, native(0, 20000));
         receive(client, native(1, 20001));
     }},
    {"a stray packet behind a long loss",
     [](Client &client) {
         receive(client, native(600, 700));
         receive(client, native(601, 701));
     }},
    {"a stray retransmission", [](Client &client) { receive(client, native(11, 20000), true); }},
    {"a stray packet that cannot be held",
     [](Client &client) {
         failing_memory::fail(1, failing::forever);
         receive(client, native(11, 20000));
     }},
    {"a duplicate", [](Client &client) { receive(client, native(10, 100)); }},
    {"a packet of an older frame", [](Client &client) { receive(client, native(9, 99)); }},
    {"a packet that is refused at the door",
     [](Client &client) {
         receive(client, native(11, 101), {0x00, 0x60});
     }},
    {"a frame that cannot be stored",
     [](Client &client) {
         failing_memory::fail(1, failing::forever);
         receive(client, native(11, 101));
     }},
};

TEST(NativeExtension, IsReleasedWithItsPacketWhateverBecomesOfIt)
{
    for (const extension_case &one : kExtensionCases) {
        const long in_use = failing_memory::in_use();
        {
            Client client;
            receive(client, native(10, 100));
            one.run(client);
            failing_memory::fail(0, failing::once);
        }
        EXPECT_EQ(failing_memory::in_use(), in_use) << one.what;
    }
}

TEST(NativeExtension, DoesNotGrowTheHeapWithEachStrayPacket)
{
    Client client;
    receive(client, native(10, 100));
    receive(client, native(11, 20000));
    const long in_use = failing_memory::in_use();
    for (uint16_t i = 0; i < 100; i++) {
        receive(client, native(11, i % 2 == 0 ? 40000 : 20000));
    }
    EXPECT_EQ(failing_memory::in_use(), in_use);
}

// A generic payload's padding is the frame queue's to cut: all of its bytes have the count. The padding bit does not
// change that, nor what the last payload byte is.
TEST(NativePadding, OfAGenericPayloadIsLeftToTheFrameQueue)
{
    const struct {
        uint8_t codec, version;
        bool has_padding_bit;
    } rows[] = {
        {VIDEO_TYPE_GENERIC, 10, false},
        {VIDEO_TYPE_GENERIC, 10, true},
        {VIDEO_TYPE_H264, 9, false},
        {VIDEO_TYPE_H264, 9, true},
    };
    for (const auto &row : rows) {
        Client client;
        native_packet packet;
        packet.n_pkts = 2;
        packet.codec = row.codec;
        packet.version = row.version;
        receive(client, packet, rtp_of(packet, {0xEE, 1, 2, 3}));
        packet.seq++;
        packet.subseq = 1;
        const bytes last = rtp_of(packet, {0xEE, 4, 5, 3, 3, 3});
        receive(client, packet, row.has_padding_bit ? with_padding_bit(last) : last);
        ASSERT_EQ(client.frames.size(), 1u) << client.frame_drops();
        EXPECT_EQ(client.frames[0].data, (bytes{1, 2, 3, 4, 5}));
    }
}

TEST(NativePadding, OfAnH264PayloadIsCutWhateverItsBytes)
{
    Client client;
    const native_packet packet;
    bytes rtp = rtp_of(packet, rtp_builder::nal_unit(5, 20));
    rtp.insert(rtp.end(), {0, 0, 7, 4});
    receive(client, packet, with_padding_bit(rtp));
    ASSERT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frames[0].data.size(), 4u + 21);
}

TEST(NativeMemory, APacketThatCannotBeStoredIsALossThatARetransmissionRepairs)
{
    Client client;
    receive(client, native(10, 100));
    EXPECT_EQ(client.report().packets_lost, 0u);
    failing_memory::fail(1, failing::forever);
    EXPECT_EQ(receive(client, native(11, 101, false)), -1);
    failing_memory::fail(0, failing::once);
    EXPECT_EQ(client.packet_drops(), "no_memory=1");
    EXPECT_EQ(client.report().packets_lost, 1u);
    EXPECT_EQ(receive(client, native(11, 101, false), true), 0);
    EXPECT_EQ(client.report().packets_lost, 0u);
    EXPECT_EQ(client.packet_drops(), "no_memory=1");
    EXPECT_EQ(client.frames.size(), 2u);
}

// Its number is new and within the frame's, its place is taken: another packet of the sender was not what it said.
TEST(NativeMemory, APacketWhosePlaceIsTakenIsADuplicateAndNoLoss)
{
    Client client;
    native_packet packet = native(10, 100);
    packet.n_pkts = 3;
    receive(client, packet);
    packet.seq = 102;
    packet.subseq = 2;
    receive(client, packet);
    packet.seq = 101;
    EXPECT_EQ(receive(client, packet), -1);
    EXPECT_EQ(client.packet_drops(), "duplicate=1");
    EXPECT_EQ(client.report().packets_lost, 0u);
}

// ---- Bandwidth samples ----

class BandwidthSample : public testing::Test
{
  protected:
    Client client{true};

    BandwidthSample()
    {
        rtc_channel_set_rtx(client.channel, kRtxType, 96);
        rtc_channel_pair_ssrc(client.channel, kUid, kRtxSsrc);
        samples.clear();
    }

    std::vector<sample> taken()
    {
        std::vector<sample> all;
        all.swap(samples);
        return all;
    }
};

bytes rtp(uint16_t seq, uint32_t timestamp, const bytes &payload, uint8_t padding = 0, int extension_words = -1)
{
    rtp_fields fields;
    fields.seq = seq;
    fields.timestamp = timestamp;
    fields.payload = payload;
    fields.padding = padding;
    fields.extension_words = extension_words;
    return rtp_packet(fields);
}

TEST_F(BandwidthSample, OfAnRtpPacketIsThePacketAsReceived)
{
    const bytes nal = rtp_builder::nal_unit(5, 87);
    const struct {
        const char *what;
        bytes packet;
        uint32_t timestamp;
        uint16_t size;
    } rows[] = {
        {"plain", rtp(1000, 90000, nal), 90000, 100},
        {"padded", rtp(1001, 93000, nal, 60), 93000, 160},
        {"with an extension", rtp(1002, 96000, nal, 4, 2), 96000, 116},
        {"a probe", rtp(1003, 96000, {}, 200), 96000, 212},
        {"a probe around the wrap of time", rtp(1004, 0xFFFFFFFF, {}, 255), 0xFFFFFFFF, 267},
        {"without payload or padding", rtp(1005, 99000, {}), 99000, 12},
    };
    for (const auto &row : rows) {
        client.now += 7;
        client.receive(row.packet);
        const auto seq = static_cast<uint16_t>(1000 + (&row - rows));
        EXPECT_EQ(taken(), (std::vector<sample>{{seq, row.timestamp, row.size, client.now, 0}})) << row.what;
    }
}

// Whatever becomes of them, they took the path.
TEST_F(BandwidthSample, IsTakenOfDuplicatesStraysAndPacketsWithoutMemory)
{
    const bytes nal = rtp_builder::nal_unit(5, 87);
    client.receive(rtp(1000, 90000, nal));
    client.receive(rtp(1000, 90000, nal));
    client.receive(rtp(30000, 93000, nal, 20));
    failing_memory::fail(1, failing::forever);
    client.receive(rtp(1001, 96000, nal));
    failing_memory::fail(0, failing::once);
    client.receive(rtp(1001, 96000, nal), true);
    EXPECT_EQ(taken(), (std::vector<sample>{{1000, 90000, 100, client.now, 0},
                                            {1000, 90000, 100, client.now, 0},
                                            {30000, 93000, 120, client.now, 0},
                                            {1001, 96000, 100, client.now, 0},
                                            {1001, 96000, 100, client.now, 1}}));
}

// The size is what took the path. Number and timestamp are the original's: those of the retransmissions are counted on
// their own.
TEST_F(BandwidthSample, OfARetransmissionHasItsOwnSizeAndTheOriginalsNumberAndTimestamp)
{
    Sender sender;
    client.receive(sender.key_frame());
    taken();
    sender.seq++;
    client.receive(sender.delta_frame());
    taken();
    const bytes original = rtp(1003, 96000, rtp_builder::nal_unit(1, 87));
    bytes again = rtp_builder::rtx_packet(original, {kRtxType, 7, kRtxSsrc});
    client.receive(again);
    EXPECT_EQ(taken(), (std::vector<sample>{{1003, 96000, 102, client.now, 1}}));
    again = rtp_builder::rtx_packet(original, {kRtxType, 8, kRtxSsrc});
    again.insert(again.end(), 49, 0);
    again.push_back(50);
    client.receive(with_padding_bit(again));
    EXPECT_EQ(taken(), (std::vector<sample>{{1003, 96000, 152, client.now, 1}}));
}

TEST_F(BandwidthSample, HasTheSendersTimeWhereThatIsAgreed)
{
    client.receive(rtp(1000, 90000, rtp_builder::nal_unit(5, 87)));
    client.stream()->bcm_stat->use_sent_ts_enable_ = true;
    taken();
    client.receive(rtp(1001, 90000 * 70, {}, 200));
    EXPECT_EQ(taken(), (std::vector<sample>{{1001, 70000 - 65536, 212, client.now, 0}}));
}

TEST_F(BandwidthSample, OfANativePacketIsThePacketAsReceived)
{
    for (const uint8_t codec : {uint8_t{VIDEO_TYPE_H264}, uint8_t{VIDEO_TYPE_GENERIC}}) {
        native_packet packet;
        packet.frame_seq = codec;
        packet.seq = static_cast<uint16_t>(100 + codec);
        packet.codec = codec;
        bytes rtp = rtp_of(packet, {0x65, 1, 2, 3});
        rtp.insert(rtp.end(), 6, 6);
        receive(client, packet, with_padding_bit(rtp));
        EXPECT_EQ(taken(), (std::vector<sample>{{packet.seq, codec * 3000U, 22, client.now, 0}})) << int{codec};
        receive(client, packet, with_padding_bit(rtp), true);
        EXPECT_EQ(taken(), (std::vector<sample>{{packet.seq, codec * 3000U, 22, client.now, 1}})) << int{codec};
    }
}

} // namespace
