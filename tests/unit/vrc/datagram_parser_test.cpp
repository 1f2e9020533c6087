#include "capture/datagram_parser.h"

#include <gtest/gtest.h>
#include <pcap/dlt.h>

#include <cstring>
#include <memory>
#include <ostream>

#include "capture_builder.h"

using namespace vrc;
using namespace vrc_test;

namespace vrc
{

void PrintTo(frame_kind kind, std::ostream *out)
{
    static const char *const names[] = {"udp", "not_ip", "not_udp", "fragment", "truncated", "damaged"};
    *out << names[static_cast<int>(kind)];
}

} // namespace vrc

namespace
{

const bytes kPayload = {'h', 'e', 'l', 'l', 'o'};
const bytes kV4 = ipv4(udp(kPayload));
const bytes kV6 = ipv6(kUdp, udp(kPayload));

struct parsed {
    frame_kind kind;
    udp_datagram datagram;
    bytes payload;
};

// Parses a copy on the heap of exactly the frame's size, so that reading beyond it is seen by the sanitizer.
parsed parse(int link_type, const bytes &frame)
{
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[frame.size()]);
    if (!frame.empty()) {
        std::memcpy(copy.get(), frame.data(), frame.size());
    }
    parsed result{};
    result.kind = datagram_parse(link_type, byte_view(copy.get(), frame.size()), &result.datagram);
    if (result.kind == frame_kind::udp) {
        const byte_view payload = result.datagram.payload;
        result.payload.assign(payload.data(), payload.data() + payload.size());
    }
    return result;
}

// An IPv6 extension header of `units` times eight bytes.
bytes extension(uint8_t next_header, size_t units, const bytes &behind)
{
    return bytes{next_header, static_cast<uint8_t>(units - 1)} + bytes(units * 8 - 2, 0) + behind;
}

bytes fragment_header(uint8_t next_header, unsigned offset_and_more, const bytes &behind)
{
    return bytes{next_header, 0} + be16(offset_and_more) + be32(7) + behind;
}

struct road {
    const char *name;
    int link_type;
    bytes frame;
};

// Every way to a UDP datagram.
std::vector<road> all_roads()
{
    const bytes tagged = vlan_tag(kTypeIpv4, kV4);
    const bytes authentication = bytes{kUdp, 4} + bytes(22, 0) + udp(kPayload); // (4 + 2) * 4 bytes
    return {
        {"Ethernet, IPv4", DLT_EN10MB, ethernet(kTypeIpv4, kV4)},
        {"Ethernet, IPv6", DLT_EN10MB, ethernet(kTypeIpv6, kV6)},
        {"Ethernet with padding", DLT_EN10MB, ethernet(kTypeIpv4, kV4) + bytes(13, 0xEE)},
        {"802.1Q", DLT_EN10MB, ethernet(0x8100, tagged)},
        {"802.1Q, IPv6", DLT_EN10MB, ethernet(0x8100, vlan_tag(kTypeIpv6, kV6))},
        {"802.1ad with 802.1Q", DLT_EN10MB, ethernet(0x88A8, vlan_tag(0x8100, tagged))},
        {"old QinQ", DLT_EN10MB, ethernet(0x9100, vlan_tag(0x8100, tagged))},
        {"Linux cooked v1, IPv4", DLT_LINUX_SLL, linux_cooked_v1(kTypeIpv4, kV4)},
        {"Linux cooked v1, IPv6", DLT_LINUX_SLL, linux_cooked_v1(kTypeIpv6, kV6)},
        {"Linux cooked v1, 802.1Q", DLT_LINUX_SLL, linux_cooked_v1(0x8100, tagged)},
        {"Linux cooked v2, IPv4", DLT_LINUX_SLL2, linux_cooked_v2(kTypeIpv4, kV4)},
        {"Linux cooked v2, IPv6", DLT_LINUX_SLL2, linux_cooked_v2(kTypeIpv6, kV6)},
        {"raw, IPv4", DLT_RAW, kV4},
        {"raw, IPv6", DLT_RAW, kV6},
        {"raw IPv4", DLT_IPV4, kV4},
        {"raw IPv6", DLT_IPV6, kV6},
        {"loopback, little-endian", DLT_NULL, le32(2) + kV4},
        {"loopback, big-endian", DLT_NULL, be32(2) + kV4},
        {"loopback, IPv6 of Linux", DLT_NULL, le32(10) + kV6},
        {"loopback, IPv6 of one BSD", DLT_NULL, le32(24) + kV6},
        {"loopback, IPv6 of another BSD", DLT_NULL, le32(28) + kV6},
        {"loopback, IPv6 of a third", DLT_NULL, le32(30) + kV6},
        {"OpenBSD loopback", DLT_LOOP, be32(2) + kV4},
        {"OpenBSD loopback, IPv6", DLT_LOOP, be32(24) + kV6},
        {"IPv4 options", DLT_RAW, ipv4(udp(kPayload), {bytes(40, 1)})},
        {"don't fragment", DLT_RAW, ipv4(udp(kPayload), {{}, 0x4000})},
        {"hop-by-hop options", DLT_RAW, ipv6(0, extension(kUdp, 1, udp(kPayload)))},
        {"routing", DLT_RAW, ipv6(43, extension(kUdp, 3, udp(kPayload)))},
        {"destination options", DLT_RAW, ipv6(60, extension(kUdp, 2, udp(kPayload)))},
        {"mobility", DLT_RAW, ipv6(135, extension(kUdp, 1, udp(kPayload)))},
        {"authentication", DLT_RAW, ipv6(51, authentication)},
        {"atomic fragment", DLT_RAW, ipv6(44, fragment_header(kUdp, 0, udp(kPayload)))},
        {"several extensions", DLT_RAW,
         ipv6(0, extension(43, 2, extension(60, 1, fragment_header(kUdp, 0, udp(kPayload)))))},
    };
}

} // namespace

TEST(DatagramParser, FindsUdpOnEveryRoad)
{
    for (const road &way : all_roads()) {
        SCOPED_TRACE(way.name);
        const parsed result = parse(way.link_type, way.frame);
        ASSERT_EQ(result.kind, frame_kind::udp);
        EXPECT_EQ(result.payload, kPayload);
        EXPECT_EQ(result.datagram.path.source.port, kSourcePort);
        EXPECT_EQ(result.datagram.path.destination.port, kDestinationPort);
    }
}

TEST(DatagramParser, ReadsAddresses)
{
    const flow v4 = parse(DLT_RAW, kV4).datagram.path;
    EXPECT_EQ(endpoint_name(v4.source), "192.0.2.1:4000");
    EXPECT_EQ(endpoint_name(v4.destination), "192.0.2.2:5004");
    const flow v6 = parse(DLT_RAW, kV6).datagram.path;
    EXPECT_EQ(endpoint_name(v6.source), "[2001:db8::1]:4000");
    EXPECT_EQ(endpoint_name(v6.destination), "[2001:db8::2]:5004");
}

TEST(DatagramParser, NeverFindsUdpInFrameCutAnywhere)
{
    for (const road &way : all_roads()) {
        const bool is_padded = std::string(way.name) == "Ethernet with padding";
        const size_t whole = way.frame.size() - (is_padded ? 13 : 0);
        for (size_t size = 0; size < whole; ++size) {
            const bytes start(way.frame.begin(), way.frame.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_NE(parse(way.link_type, start).kind, frame_kind::udp) << way.name << " cut to " << size;
        }
    }
}

TEST(DatagramParser, ReadsNoByteBeyondFrameWhateverOneByteSays)
{
    for (const road &way : all_roads()) {
        for (size_t position = 0; position < way.frame.size(); ++position) {
            for (const int value : {0x00, 0x01, 0x2C, 0x33, 0x7F, 0x80, 0xFF}) {
                bytes frame = way.frame;
                frame[position] = static_cast<uint8_t>(value);
                const parsed result = parse(way.link_type, frame);
                EXPECT_LE(result.payload.size(), frame.size()) << way.name;
            }
        }
    }
}

TEST(DatagramParser, TellsWhatElseFramesHold)
{
    struct {
        const char *name;
        int link_type;
        frame_kind kind;
        bytes frame;
    } const rows[] = {
        {"ARP", DLT_EN10MB, frame_kind::not_ip, ethernet(0x0806, bytes(28, 0))},
        {"802.3 length", DLT_EN10MB, frame_kind::not_ip, ethernet(38, bytes(38, 0))},
        {"TCP", DLT_RAW, frame_kind::not_udp, ipv4(bytes(20, 0), {{}, 0, 6})},
        {"ICMPv6", DLT_RAW, frame_kind::not_udp, ipv6(58, bytes(4, 0))},
        {"no next header", DLT_RAW, frame_kind::not_udp, ipv6(59, {})},
        {"ESP", DLT_RAW, frame_kind::not_udp, ipv6(50, bytes(40, 0))},
        {"first fragment", DLT_RAW, frame_kind::fragment, ipv4(udp(kPayload), {{}, 0x2000})},
        {"later fragment", DLT_RAW, frame_kind::fragment, ipv4(udp(kPayload), {{}, 0x0010})},
        {"first IPv6 fragment", DLT_RAW, frame_kind::fragment, ipv6(44, fragment_header(kUdp, 1, udp(kPayload)))},
        {"later IPv6 fragment", DLT_RAW, frame_kind::fragment, ipv6(44, fragment_header(kUdp, 0x10, kPayload))},
        {"less than the IP length", DLT_RAW, frame_kind::truncated, ipv4(udp(kPayload), {{}, 0, kUdp, 100})},
        {"empty", DLT_EN10MB, frame_kind::truncated, {}},
        {"empty, raw", DLT_RAW, frame_kind::truncated, {}},
        {"IP version 5", DLT_RAW, frame_kind::damaged, bytes(40, 0x50)},
        {"IPv6 as IPv4", DLT_EN10MB, frame_kind::damaged, ethernet(kTypeIpv4, kV6)},
        {"IPv4 as IPv6", DLT_EN10MB, frame_kind::damaged, ethernet(kTypeIpv6, kV4 + bytes(20, 0))},
        {"IPv4 header of 16 bytes", DLT_RAW, frame_kind::damaged, bytes{0x44} + bytes(39, 0)},
        {"UDP longer than IP", DLT_RAW, frame_kind::damaged, ipv4(udp(kPayload, 14))},
        {"UDP shorter than its header", DLT_RAW, frame_kind::damaged, ipv4(udp(kPayload, 7))},
        {"no room for UDP", DLT_RAW, frame_kind::damaged, ipv4(bytes(7, 0))},
        {"extension beyond the end", DLT_RAW, frame_kind::damaged, ipv6(0, bytes{kUdp, 200} + bytes(30, 0))},
        {"extension without a length", DLT_RAW, frame_kind::damaged, ipv6(0, bytes{kUdp})},
        {"another family", DLT_NULL, frame_kind::not_ip, le32(7) + kV4},
        {"unknown link", 147, frame_kind::not_ip, kV4},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(parse(row.link_type, row.frame).kind, row.kind) << row.name;
    }
}

TEST(DatagramParser, TakesEmptyDatagram)
{
    const parsed result = parse(DLT_RAW, ipv4(udp({})));
    EXPECT_EQ(result.kind, frame_kind::udp);
    EXPECT_TRUE(result.payload.empty());
}

TEST(DatagramParser, EndsPayloadWhereUdpSaysNotWhereIpDoes)
{
    EXPECT_EQ(parse(DLT_RAW, ipv4(udp(kPayload, 10))).payload, (bytes{'h', 'e'}));
}

TEST(DatagramParser, KnowsTheLinkTypesThatItReads)
{
    for (const road &way : all_roads()) {
        EXPECT_TRUE(link_type_is_known(way.link_type)) << way.name;
    }
    EXPECT_FALSE(link_type_is_known(DLT_IEEE802_11));
    EXPECT_FALSE(link_type_is_known(-1));
}
