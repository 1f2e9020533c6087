#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fake_layers.h"
#include "log_gate.h"
#include "packets.h"
#include "payload_frame.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

constexpr char kParseTag[] = "video_frame_parse_payload";

// Bits of the reserved word that name the FEC method; the others must not matter.
uint32_t reserved_word(uint8_t fec_method)
{
    return 0xFFFFFFC7u | static_cast<uint32_t>(fec_method) << 3;
}

// The parsed copy of a frame. Its views are released at the end.
class ParsedFrame
{
  public:
    explicit ParsedFrame(const video_frame &source)
    {
        memset(static_cast<void *>(&frame), 0xA5, sizeof(frame)); // whatever the caller had there
        result = video_frame_parse_payload(&source, &frame);
    }

    ~ParsedFrame()
    {
        zeb_free_impl(frame.pkts);
    }

    ParsedFrame(const ParsedFrame &) = delete;
    ParsedFrame &operator=(const ParsedFrame &) = delete;

    video_frame frame;
    int result;
};

// The size that was taken off the front of a packet, seen by the view's pointer.
size_t header_size(const video_frame &source, const video_frame &parsed, size_t index)
{
    return static_cast<size_t>(static_cast<const uint8_t *>(parsed.pkts[index].values) -
                               static_cast<const uint8_t *>(source.pkts[index].values));
}

void expect_view(const video_frame &source, const video_frame &parsed, size_t index, size_t size)
{
    EXPECT_EQ(size, header_size(source, parsed, index)) << "packet " << index;
    EXPECT_EQ(source.pkts[index].count - size, parsed.pkts[index].count) << "packet " << index;
    EXPECT_EQ(parsed.pkts[index].count, parsed.pkts[index].allocated) << "packet " << index;
}

// -- Generic frames --

TEST(FrameIsGeneric, BelowVersionTenWhateverTheCodec)
{
    for (uint16_t version = 0; version < 10; version++) {
        for (int codec = 0; codec < 256; codec++) {
            video_frame frame = {};
            frame.protocol_version = version;
            frame.codec = static_cast<uint8_t>(codec);
            EXPECT_EQ(1, video_frame_is_generic(&frame)) << version << ", codec " << codec;
        }
    }
}

TEST(FrameIsGeneric, ByCodecFromVersionTenOn)
{
    for (const uint16_t version : std::initializer_list<uint16_t>{10, 11, 255, 256, 261, 65535}) {
        for (int codec = 0; codec < 256; codec++) {
            video_frame frame = {};
            frame.protocol_version = version;
            frame.codec = static_cast<uint8_t>(codec);
            const bool is_generic = codec == 6 || codec == 7 || codec == 20;
            EXPECT_EQ(is_generic ? 1 : 0, video_frame_is_generic(&frame)) << version << ", codec " << codec;
        }
    }
}

// -- Header sizes --

// A packet header up to the payload.
struct header_case {
    const char *name;
    uint8_t csrc_count;
    bool has_extension;
    uint8_t length_high;
    uint8_t length_low;
    size_t size; // bytes in front of the encapsulation header
};

const header_case kHeaders[] = {
    {"Plain", 0, false, 0, 0, 12},
    {"OneSource", 1, false, 0, 0, 16},
    {"TwoSources", 2, false, 0, 0, 20},
    {"FifteenSources", 15, false, 0, 0, 72},
    {"EmptyExtension", 0, true, 0x00, 0x00, 16},
    {"ExtensionOfOneWord", 0, true, 0x00, 0x01, 20},
    {"ExtensionOfThreeWords", 0, true, 0x00, 0x03, 28},
    {"ExtensionOf255Words", 0, true, 0x00, 0xFF, 12 + 4 + 1020},
    // From 256 words on the size is not four times the word count: the two bytes are shifted and joined by OR.
    {"Extension0100", 0, true, 0x01, 0x00, 12 + 4 + 256},
    {"Extension0101", 0, true, 0x01, 0x01, 12 + 4 + 260},
    {"Extension0140BitsFallTogether", 0, true, 0x01, 0x40, 12 + 4 + 256},
    {"Extension02FFBitsFallTogether", 0, true, 0x02, 0xFF, 12 + 4 + 1020},
    {"Extension03FFBitsFallTogether", 0, true, 0x03, 0xFF, 12 + 4 + 1020},
    {"Extension04FF", 0, true, 0x04, 0xFF, 12 + 4 + 2044},
    {"ExtensionF000", 0, true, 0xF0, 0x00, 12 + 4 + 61440},
    {"SourceAndExtension0100", 1, true, 0x01, 0x00, 16 + 4 + 256},
    {"FifteenSourcesAndThreeWords", 15, true, 0x00, 0x03, 72 + 4 + 12},
};

// Sources read EE, the extension DD and the payload CC but for its first byte. Bit 7 of the type byte is the marker.
bytes packet_of(const header_case &header, uint8_t type_byte, uint8_t first, size_t payload_size)
{
    bytes packet(header.size, 0xDD);

    packet[0] = static_cast<uint8_t>(0x80 | (header.has_extension ? 0x10 : 0) | header.csrc_count);
    packet[1] = type_byte;
    std::fill_n(packet.begin() + 2, 10 + 4 * header.csrc_count, uint8_t{0xEE});
    if (header.has_extension) {
        const size_t behind_sources = 12u + 4u * header.csrc_count;
        packet[behind_sources] = 0xBE;
        packet[behind_sources + 1] = 0xDE;
        packet[behind_sources + 2] = header.length_high;
        packet[behind_sources + 3] = header.length_low;
    }
    packet.insert(packet.end(), payload_size, uint8_t{0xCC});
    packet[header.size] = first;
    return packet;
}

// What stands between the RTP header and the payload of a media packet and of a FEC packet.
struct encapsulation_case {
    uint8_t fec_method;
    bool is_generic;
    uint8_t type_byte; // payload type, and the marker in bit 7
    uint8_t first;     // byte behind the RTP header
    size_t media_bytes;
    size_t fec_bytes;
    size_t n_lines; // logged for the two packets
};

const encapsulation_case kEncapsulations[] = {
    // Method 0: by the payload being generic alone.
    {0, false, 96, 0x00, 0, 0, 0},
    {0, false, 116, 127, 0, 0, 0},
    {0, false, 116, 107, 0, 0, 0},
    {0, true, 96, 0x00, 1, 1, 0},
    {0, true, 116, 127, 1, 1, 0},
    {0, true, 116, 107, 1, 1, 0},
    // Method 1: by the payload type and the first byte alone.
    {1, false, 116, 127, 2, 2, 0},
    {1, true, 116, 127, 2, 2, 0},
    {1, false, 116 | 0x80, 127, 2, 2, 0},
    {1, false, 116, 107, 1, 1, 0},
    {1, true, 116, 107, 1, 1, 0},
    {1, true, 116 | 0x80, 107, 1, 1, 0},
    {1, false, 116, 0, 0, 0, 0},
    {1, true, 116, 126, 0, 0, 0},
    {1, true, 116, 128, 0, 0, 0},
    {1, true, 116, 106, 0, 0, 0},
    {1, true, 116, 108, 0, 0, 0},
    {1, true, 116, 255, 0, 0, 0},
    {1, true, 117, 127, 0, 0, 0},
    {1, true, 117, 107, 0, 0, 0},
    {1, false, 115, 127, 0, 0, 0},
    {1, false, 115, 107, 0, 0, 0},
    {1, true, 0, 127, 0, 0, 0},
    // Method 2: generic payloads only, FEC packets have a byte more.
    {2, false, 96, 0x00, 0, 0, 0},
    {2, false, 116, 127, 0, 0, 0},
    {2, true, 96, 0x00, 1, 2, 0},
    {2, true, 116, 127, 1, 2, 0},
    {2, true, 116, 107, 1, 2, 0},
    // Unknown methods.
    {3, false, 96, 0x00, 0, 0, 2},
    {3, true, 116, 127, 0, 0, 2},
    {4, true, 116, 107, 0, 0, 2},
    {5, false, 116, 127, 0, 0, 2},
    {6, true, 96, 0x00, 0, 0, 2},
    {7, true, 116, 127, 0, 0, 2},
    {7, false, 96, 0x00, 0, 0, 2},
};

TEST(PayloadParse, FindsThePayloadBehindEveryHeaderAndEncapsulation)
{
    const log_line no_handler = {RTC_LOG_CRIT, "[CRIT] No handler\n"};

    for (const header_case &header : kHeaders) {
        for (const encapsulation_case &row : kEncapsulations) {
            SCOPED_TRACE(::testing::Message()
                         << header.name << ", method " << int{row.fec_method} << (row.is_generic ? ", generic" : "")
                         << ", type " << int{row.type_byte} << ", first byte " << int{row.first});
            World world;
            const bytes packet = packet_of(header, row.type_byte, row.first, 9);
            PacketFrame source({packet, packet});
            source.frame.n_pkts_media = 1;
            source.frame.reserved = reserved_word(row.fec_method);
            source.frame.protocol_version = row.is_generic ? 9 : 10;

            const ParsedFrame parsed(source.frame);
            expect_view(source.frame, parsed.frame, 0, header.size + row.media_bytes);
            expect_view(source.frame, parsed.frame, 1, header.size + row.fec_bytes);
            EXPECT_EQ(std::vector<log_line>(row.n_lines, no_handler), world.log);
        }
    }
}

TEST(PayloadParse, SkipsFourBytesForEachSource)
{
    for (uint8_t n_sources = 0; n_sources < 16; n_sources++) {
        SCOPED_TRACE(int{n_sources});
        World world;
        const size_t plain = 12u + 4u * n_sources;
        PacketFrame source({packet_of({"", n_sources, false, 0, 0, plain}, 96, 0x41, 5),
                            packet_of({"", n_sources, true, 0, 2, plain + 12}, 96, 0x41, 5)});

        const ParsedFrame parsed(source.frame);
        expect_view(source.frame, parsed.frame, 0, plain);
        expect_view(source.frame, parsed.frame, 1, plain + 12);
        EXPECT_EQ(0x41, *static_cast<uint8_t *>(parsed.frame.pkts[0].values));
        EXPECT_EQ(0x41, *static_cast<uint8_t *>(parsed.frame.pkts[1].values));
    }
}

// Version and padding bit say nothing about the payload.
TEST(PayloadParse, IgnoresVersionAndPaddingBit)
{
    for (const uint8_t bits : bytes{0x00, 0x20, 0x40, 0x60, 0x80, 0xA0, 0xC0, 0xE0}) {
        World world;
        bytes packet = packet_of(kHeaders[2], 96, 0x41, 5);
        packet[0] = static_cast<uint8_t>(bits | 2);
        PacketFrame source({packet});

        const ParsedFrame parsed(source.frame);
        expect_view(source.frame, parsed.frame, 0, 20);
    }
}

TEST(PayloadParse, TakesEveryGenericCodecForGeneric)
{
    for (const uint8_t codec : bytes{6, 7, 20}) {
        World world;
        PacketFrame source({packet_of(kHeaders[2], 96, 0x41, 5)});
        source.frame.codec = codec;

        const ParsedFrame parsed(source.frame);
        expect_view(source.frame, parsed.frame, 0, 21);
    }
}

// -- Packets that end before their headers do --

struct cut_case {
    size_t from; // bytes that are there, at least
    size_t size; // header size that comes out, the absent bytes being 0
};

// A packet cut to each of its lengths; `cuts` says where the size changes.
void expect_sizes_of_cuts(const bytes &packet, const std::vector<cut_case> &cuts, uint8_t fec_method)
{
    for (size_t n = 0; n <= packet.size(); n++) {
        SCOPED_TRACE(::testing::Message() << n << " bytes");
        World world;
        PacketFrame source({bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(n))});
        source.frame.reserved = reserved_word(fec_method);
        const auto cut = std::find_if(cuts.rbegin(), cuts.rend(), [n](const cut_case &row) { return row.from <= n; });

        const ParsedFrame parsed(source.frame);
        EXPECT_EQ(cut->size, header_size(source.frame, parsed.frame, 0));
        EXPECT_EQ((n - cut->size) & 0xFFFF, parsed.frame.pkts[0].count);
        EXPECT_EQ(parsed.frame.pkts[0].count, parsed.frame.pkts[0].allocated);
    }
}

// The sources and the extension bit are in byte 0, the type in byte 1, the length in bytes 22 and 23.
TEST(PayloadParse, TakesAbsentHeaderBytesForZero)
{
    const bytes three_words = packet_of({"", 2, true, 0, 3, 36}, 116, 127, 5);
    expect_sizes_of_cuts(three_words, {{0, 12}, {1, 24}, {24, 36}, {37, 38}}, 1);

    const bytes long_extension = packet_of({"", 2, true, 1, 3, 24 + 268}, 116, 107, 5);
    expect_sizes_of_cuts(long_extension, {{0, 12}, {1, 24}, {23, 24 + 256}, {24, 24 + 268}, {293, 293}}, 1);
}

TEST(PayloadParse, TakesAbsentFirstByteForZero)
{
    const bytes plain = packet_of(kHeaders[0], 116, 127, 3);
    expect_sizes_of_cuts(plain, {{0, 12}, {13, 14}}, 1);
}

TEST(PayloadParse, WrapsTheCountOfAHeaderThatClaimsMoreThanThePacket)
{
    World world;
    bytes packet = packet_of(kHeaders[0], 96, 0, 18);
    packet[0] = 0x9F;  // 15 sources and an extension: 76 bytes
    bytes longest(76); // and one of the longest extension
    longest[0] = 0x9F;
    longest[74] = 0xFF;
    longest[75] = 0xFF;
    PacketFrame source({packet, longest});

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(76u, header_size(source.frame, parsed.frame, 0));
    EXPECT_EQ(65536 + 30 - 76, parsed.frame.pkts[0].count);
    EXPECT_EQ(65536 + 30 - 76, parsed.frame.pkts[0].allocated);
    EXPECT_EQ(76u + 0xFFFCu, header_size(source.frame, parsed.frame, 1));
    EXPECT_EQ(4, parsed.frame.pkts[1].count); // 76 - 76 - 65532, modulo 65536
}

// -- The parsed frame --

TEST(PayloadParse, GivesWholePayloadsOfTheLargestPacket)
{
    World world;
    PacketFrame source({packet_of(kHeaders[0], 96, 0, 65535 - 12)});

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(65523, parsed.frame.pkts[0].count);
}

TEST(PayloadParse, CopiesEveryFieldButThePackets)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1, 2, 3}), rtp_bytes({}, {4})});
    video_frame &frame = source.frame;
    frame.queued_ts = 0x1122334455667788;
    frame.frame_seq = 0xCAFEBABE;
    frame.n_pkts_media = 1;
    frame.n_pkts_received = 77;
    frame.n_pkts_received_media = 78;
    frame.n_pkts_received_fec = 79;
    frame.n_pkts_fec = 80;
    frame.protocol_version = 12;
    frame.is_key_frame = 1;
    frame.is_complete = 1;
    frame.codec = 3;
    frame.payload_type = 99;
    frame.rsfec_payload_type = 100;
    frame.ts = 4321;
    frame.reserved = 0xABCDEF10;
    frame.first_pkt_seq = 5;
    frame.min_seq = 6;
    frame.max_seq = 7;
    frame.min_rtp_seq = 8;
    frame.max_rtp_seq = 9;
    frame.rtp_timestamp = 10;
    frame.rexfer_cnt = 11;
    const video_frame before = frame;

    const ParsedFrame parsed(frame);
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(before.queued_ts, parsed.frame.queued_ts);
    EXPECT_EQ(before.frame_seq, parsed.frame.frame_seq);
    EXPECT_EQ(before.n_pkts_total, parsed.frame.n_pkts_total);
    EXPECT_EQ(before.n_pkts_media, parsed.frame.n_pkts_media);
    EXPECT_EQ(before.n_pkts_received, parsed.frame.n_pkts_received);
    EXPECT_EQ(before.n_pkts_received_media, parsed.frame.n_pkts_received_media);
    EXPECT_EQ(before.n_pkts_received_fec, parsed.frame.n_pkts_received_fec);
    EXPECT_EQ(before.n_pkts_fec, parsed.frame.n_pkts_fec);
    EXPECT_EQ(before.protocol_version, parsed.frame.protocol_version);
    EXPECT_EQ(before.is_key_frame, parsed.frame.is_key_frame);
    EXPECT_EQ(before.is_complete, parsed.frame.is_complete);
    EXPECT_EQ(before.codec, parsed.frame.codec);
    EXPECT_EQ(before.payload_type, parsed.frame.payload_type);
    EXPECT_EQ(before.rsfec_payload_type, parsed.frame.rsfec_payload_type);
    EXPECT_EQ(before.ts, parsed.frame.ts);
    EXPECT_EQ(before.reserved, parsed.frame.reserved);
    EXPECT_EQ(before.first_pkt_seq, parsed.frame.first_pkt_seq);
    EXPECT_EQ(before.min_seq, parsed.frame.min_seq);
    EXPECT_EQ(before.max_seq, parsed.frame.max_seq);
    EXPECT_EQ(before.min_rtp_seq, parsed.frame.min_rtp_seq);
    EXPECT_EQ(before.max_rtp_seq, parsed.frame.max_rtp_seq);
    EXPECT_EQ(before.rtp_timestamp, parsed.frame.rtp_timestamp);
    EXPECT_EQ(before.pkts_status, parsed.frame.pkts_status) << "shared, not copied";
    EXPECT_EQ(before.rexfer_cnt, parsed.frame.rexfer_cnt);
    EXPECT_NE(before.pkts, parsed.frame.pkts);
    EXPECT_EQ(before.pkts, frame.pkts);
    EXPECT_EQ(15, frame.pkts[0].count) << "the source keeps its packets whole";
}

TEST(PayloadParse, AllocatesOneArrayOfViews)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1}), rtp_bytes({}, {2}), rtp_bytes({}, {3})});

    const ParsedFrame parsed(source.frame);
    ASSERT_EQ(1u, world.allocations.size());
    EXPECT_EQ(3 * sizeof(rtn_bytes_t), world.allocations[0].size);
    EXPECT_EQ(kParseTag, world.allocations[0].tag);
    EXPECT_EQ(1u, world.live.count(parsed.frame.pkts));
}

TEST(PayloadParse, LeavesMissingPacketsEmpty)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1}), rtp_bytes({}, {2}), rtp_bytes({}, {3, 4})});
    source.lose(1);

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(0, parsed.result);
    expect_view(source.frame, parsed.frame, 0, 12);
    EXPECT_EQ(nullptr, parsed.frame.pkts[1].values);
    EXPECT_EQ(0, parsed.frame.pkts[1].count);
    EXPECT_EQ(0, parsed.frame.pkts[1].allocated);
    expect_view(source.frame, parsed.frame, 2, 12);
}

// The status decides, not the packet.
TEST(PayloadParse, LeavesPacketsThatAreNotMarkedReceivedEmpty)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1})});
    source.frame.pkts_status[0].is_received = 0;

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(nullptr, parsed.frame.pkts[0].values);
    EXPECT_EQ(0, parsed.frame.pkts[0].count);
}

TEST(PayloadParse, TakesAnyNonZeroStatusForReceived)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1})});
    source.frame.pkts_status[0].is_received = 255;

    const ParsedFrame parsed(source.frame);
    expect_view(source.frame, parsed.frame, 0, 12);
}

TEST(PayloadParse, TakesAFrameWithoutPackets)
{
    World world;
    PacketFrame source(std::vector<bytes>{});

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(0u, world.allocations[0].size);
}

// A FEC count above the packet count wraps the media count: every packet is then a media packet.
TEST(PayloadParse, TakesAllPacketsForMediaWhenTheMediaCountHasWrapped)
{
    World world;
    const bytes packet = rtp_bytes({}, {1, 2, 3});
    PacketFrame source({packet, packet});
    source.frame.n_pkts_fec = 3;
    source.frame.n_pkts_media = 65535;
    source.frame.codec = VIDEO_TYPE_GENERIC;
    source.frame.reserved = reserved_word(2);

    const ParsedFrame parsed(source.frame);
    expect_view(source.frame, parsed.frame, 0, 13);
    expect_view(source.frame, parsed.frame, 1, 13);
}

TEST(PayloadParse, GivesNoPacketsWithoutMemory)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1})});
    source.frame.frame_seq = 42;
    source.frame.reserved = reserved_word(5);
    world.refuse_tag(kParseTag);

    const ParsedFrame parsed(source.frame);
    EXPECT_EQ(0, parsed.result);
    EXPECT_EQ(nullptr, parsed.frame.pkts);
    EXPECT_EQ(42u, parsed.frame.frame_seq);
    EXPECT_EQ(1, parsed.frame.n_pkts_total);
    EXPECT_EQ(source.frame.pkts_status, parsed.frame.pkts_status);
    EXPECT_TRUE(world.log.empty());
}

TEST(PayloadParse, ReadsAFrameOfTheQueue)
{
    World world;
    TestStream t;
    const zeb_ts_t now = 1000;
    native_fields fields = {10, 2, 0, 100};
    fields.reserved = 1u << 8; // one FEC packet
    fields.body = {7, 8, 9};
    PVideoData4 video = native_packet(fields);
    video_frame *frame = video_stream_insert_video_packet(t.stream, &video, 0, &now);
    ASSERT_NE(nullptr, frame);

    const ParsedFrame parsed(*frame);
    expect_view(*frame, parsed.frame, 0, 12);
    EXPECT_EQ(0, memcmp(parsed.frame.pkts[0].values, "\x07\x08\x09", 3));
    EXPECT_EQ(nullptr, parsed.frame.pkts[1].values);
    EXPECT_EQ("", broken_invariants(*t.stream));
}

// -- The line about an unknown FEC method --

TEST(PayloadParse, LogsAnUnknownMethodOncePerReceivedPacket)
{
    World world;
    PacketFrame source({rtp_bytes({}, {1}), rtp_bytes({}, {2}), rtp_bytes({}, {3})});
    source.frame.reserved = reserved_word(5);
    source.frame.codec = VIDEO_TYPE_GENERIC;
    source.lose(1);

    const ParsedFrame parsed(source.frame);
    expect_view(source.frame, parsed.frame, 0, 12);
    expect_view(source.frame, parsed.frame, 2, 12);
    EXPECT_EQ((std::vector<log_line>{{RTC_LOG_CRIT, "[CRIT] No handler\n"}, {RTC_LOG_CRIT, "[CRIT] No handler\n"}}),
              world.log);
}

TEST(PayloadParse, LogsAnUnknownMethodUnderTheFirstModuleAlone)
{
    for (const log_gate &gate : log_gates(RTC_LOG_CRIT)) {
        SCOPED_TRACE(gate.name);
        World world;
        PacketFrame source({rtp_bytes({}, {1})});
        source.frame.reserved = reserved_word(3);
        gate.set(LM_MIN);

        const ParsedFrame parsed(source.frame);
        EXPECT_EQ(gate.is_open ? 1u : 0u, world.log.size());
        expect_view(source.frame, parsed.frame, 0, 12);
    }
}

} // namespace
