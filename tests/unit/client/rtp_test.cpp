#include "wire/rtp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "hex_bytes.h"

namespace
{

// Version 2, payload type 96, number 0x1234, timestamp 0x01020304, SSRC 0xA0B0C0D0.
const char kFields[] = "60 12 34 01 02 03 04 A0 B0 C0 D0";

// `first` is the byte in front of the fields, `rest` what comes behind them.
bytes packet_of(const std::string &first, const std::string &rest)
{
    return hex(first + " " + kFields + " " + rest);
}

// From memory that ends where the packet does.
packet_drop_e parse(const bytes &packet, rtp_view *view)
{
    const auto copy = std::make_unique<uint8_t[]>(packet.size());
    if (!packet.empty()) {
        memcpy(copy.get(), packet.data(), packet.size());
    }
    return rtp_parse(copy.get(), packet.size(), view);
}

TEST(RtpParse, ReadsTheFieldsInHostOrder)
{
    rtp_view view = {};
    ASSERT_EQ(PACKET_DROP_REASONS, parse(packet_of("80", "AA BB CC"), &view));
    EXPECT_FALSE(view.marker);
    EXPECT_EQ(96, view.payload_type);
    EXPECT_EQ(0x1234, view.seq);
    EXPECT_EQ(0x01020304u, view.timestamp);
    EXPECT_EQ(0xA0B0C0D0u, view.ssrc);
    EXPECT_EQ(12u, view.header_size);
    EXPECT_EQ(3u, view.payload_size);
    EXPECT_EQ(0u, view.padding_size);
}

TEST(RtpParse, TellsTheMarkerFromThePayloadType)
{
    rtp_view view = {};
    ASSERT_EQ(PACKET_DROP_REASONS, parse(hex("80 FF FF FF FF FF FF FF FF FF FF FF"), &view));
    EXPECT_TRUE(view.marker);
    EXPECT_EQ(127, view.payload_type);
    EXPECT_EQ(0xFFFF, view.seq);
    EXPECT_EQ(0xFFFFFFFFu, view.timestamp);
    EXPECT_EQ(0xFFFFFFFFu, view.ssrc);
    EXPECT_EQ(0u, view.payload_size);
}

struct size_case {
    const char *name;
    const char *first;
    const char *rest;
    size_t header_size;
    size_t payload_size;
    size_t padding_size;
};

const size_case kSizes[] = {
    {"Plain", "80", "AA", 12, 1, 0},
    {"NoPayload", "80", "", 12, 0, 0},
    {"OneSource", "81", "01 01 01 01 AA", 16, 1, 0},
    {"SourcesAndNothingElse", "82", "01 01 01 01 02 02 02 02", 20, 0, 0},
    {"EmptyExtension", "90", "BE DE 00 00 AA", 16, 1, 0},
    {"ExtensionOfThreeWords", "90", "BE DE 00 03 01 01 01 01 02 02 02 02 03 03 03 03 AA BB", 28, 2, 0},
    {"ExtensionToTheEnd", "90", "BE DE 00 01 01 01 01 01", 20, 0, 0},
    {"ExtensionBehindSource", "91", "01 01 01 01 BE DE 00 01 01 01 01 01 AA", 24, 1, 0},
    {"PaddingOfOne", "A0", "AA 01", 12, 1, 1},
    {"PaddingOfThree", "A0", "AA BB 00 00 03", 12, 2, 3},
    {"PaddingAlone", "A0", "00 00 03", 12, 0, 3},
    {"PaddingBehindExtension", "B0", "BE DE 00 01 01 01 01 01 AA 00 02", 20, 1, 2},
};

TEST(RtpParse, FindsThePayloadBetweenHeaderAndPadding)
{
    for (const size_case &row : kSizes) {
        SCOPED_TRACE(row.name);
        rtp_view view = {};
        ASSERT_EQ(PACKET_DROP_REASONS, parse(packet_of(row.first, row.rest), &view));
        EXPECT_EQ(row.header_size, view.header_size);
        EXPECT_EQ(row.payload_size, view.payload_size);
        EXPECT_EQ(row.padding_size, view.padding_size);
    }
}

struct refusal_case {
    const char *name;
    packet_drop_e reason;
    const char *first;
    const char *rest;
};

const refusal_case kRefusals[] = {
    {"Version0", PACKET_DROP_BAD_VERSION, "00", "AA"},
    {"Version1", PACKET_DROP_BAD_VERSION, "40", "AA"},
    {"Version3", PACKET_DROP_BAD_VERSION, "C0", "AA"},
    {"SourceMissing", PACKET_DROP_BAD_HEADER, "81", ""},
    {"SourceCut", PACKET_DROP_BAD_HEADER, "81", "01 01 01"},
    {"FifteenSourcesCut", PACKET_DROP_BAD_HEADER, "8F", "01 01 01 01"},
    {"ExtensionMissing", PACKET_DROP_BAD_EXTENSION, "90", ""},
    {"ExtensionHeaderCut", PACKET_DROP_BAD_EXTENSION, "90", "BE DE 00"},
    {"ExtensionCut", PACKET_DROP_BAD_EXTENSION, "90", "BE DE 00 01 01 01 01"},
    {"ExtensionLongerThanPacket", PACKET_DROP_BAD_EXTENSION, "90", "BE DE 00 FF 01 01 01 01"},
    {"NothingBehindHeaderToCountPadding", PACKET_DROP_BAD_PADDING, "A0", ""},
    {"PaddingOfNone", PACKET_DROP_BAD_PADDING, "A0", "AA 00"},
    {"PaddingIntoHeader", PACKET_DROP_BAD_PADDING, "A0", "AA 03"},
    {"PaddingIntoExtension", PACKET_DROP_BAD_PADDING, "B0", "BE DE 00 01 01 01 01 01 02"},
    {"ExtensionEndTakenForPadding", PACKET_DROP_BAD_PADDING, "B0", "BE DE 00 01 01 01 01 01"},
};

TEST(RtpParse, SaysWhyAPacketIsRefused)
{
    for (const refusal_case &row : kRefusals) {
        SCOPED_TRACE(row.name);
        rtp_view view = {};
        EXPECT_EQ(row.reason, parse(packet_of(row.first, row.rest), &view));
    }
}

TEST(RtpParse, RefusesLessThanAFixedHeaderWhateverItsVersion)
{
    for (const char *first : {"80", "00"}) {
        const bytes whole = packet_of(first, "");
        for (size_t size = 0; size < whole.size(); size++) {
            const bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            rtp_view view = {};
            EXPECT_EQ(PACKET_DROP_BAD_HEADER, parse(cut, &view)) << first << " cut to " << size;
        }
    }
}

// From 256 words on the module would look for the payload elsewhere.
TEST(RtpParse, RefusesAnExtensionWhoseLengthIsReadInTwoWays)
{
    const struct {
        size_t words;
        packet_drop_e reason;
    } rows[] = {{255, PACKET_DROP_REASONS}, {256, PACKET_DROP_BAD_EXTENSION}, {257, PACKET_DROP_BAD_EXTENSION}};
    for (const auto &row : rows) {
        bytes packet = packet_of("90", "BE DE");
        packet.push_back(static_cast<uint8_t>(row.words >> 8));
        packet.push_back(static_cast<uint8_t>(row.words));
        packet.resize(packet.size() + 4 * row.words + 1);
        rtp_view view = {};
        EXPECT_EQ(row.reason, parse(packet, &view)) << row.words << " words";
    }
}

TEST(RtpParse, RefusesMoreThanAPayloadCanHold)
{
    bytes packet = packet_of("80", "");
    rtp_view view = {};
    packet.resize(65535);
    EXPECT_EQ(PACKET_DROP_REASONS, parse(packet, &view));
    EXPECT_EQ(65523u, view.payload_size);
    packet.resize(65536);
    EXPECT_EQ(PACKET_DROP_TOO_LARGE, parse(packet, &view));
}

TEST(RtpParse, AccountsForEveryByteOfWhatItAccepts)
{
    std::mt19937 random(3550);
    std::uniform_int_distribution<int> byte(0, 255);
    int accepted = 0;
    for (int round = 0; round < 100000; round++) {
        bytes packet(static_cast<size_t>(byte(random)) / 4);
        for (uint8_t &each : packet) {
            each = static_cast<uint8_t>(byte(random) < 128 ? byte(random) & 7 : byte(random));
        }
        if (!packet.empty() && round % 8 != 0) {
            packet[0] = static_cast<uint8_t>(0x80 | (packet[0] & 0x33));
        }
        rtp_view view = {};
        if (parse(packet, &view) == PACKET_DROP_REASONS) {
            accepted++;
            ASSERT_EQ(packet.size(), view.header_size + view.payload_size + view.padding_size);
            ASSERT_GE(view.header_size, 12u);
        }
    }
    EXPECT_GT(accepted, 1000);
}

} // namespace
