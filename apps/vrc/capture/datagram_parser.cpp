#include "capture/datagram_parser.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <pcap/dlt.h>

#include <optional>

namespace vrc
{
namespace
{

constexpr uint16_t kEtherTypeIpv4 = 0x0800;
constexpr uint16_t kEtherTypeIpv6 = 0x86DD;
constexpr uint16_t kEtherTypeVlan = 0x8100;        // 802.1Q
constexpr uint16_t kEtherTypeServiceVlan = 0x88A8; // 802.1ad
constexpr uint16_t kEtherTypeOldQinq = 0x9100;     // QinQ from before 802.1ad

constexpr uint8_t kProtocolUdp = 17;
constexpr size_t kIpv4HeaderSize = 20;
constexpr size_t kIpv6HeaderSize = 40;
constexpr size_t kUdpHeaderSize = 8;

frame_kind udp_parse(byte_view segment, flow path, udp_datagram *datagram)
{
    if (segment.size() < kUdpHeaderSize) {
        return frame_kind::damaged;
    }
    const size_t length = segment.be16(4);
    if (length < kUdpHeaderSize || length > segment.size()) {
        return frame_kind::damaged;
    }
    path.source.port = segment.be16(0);
    path.destination.port = segment.be16(2);
    *datagram = {path, segment.first(length).skip(kUdpHeaderSize)};
    return frame_kind::udp;
}

ip_address address_read(byte_view bytes)
{
    ip_address address;
    address.is_v6 = bytes.size() == address.bytes.size();
    std::copy_n(bytes.data(), bytes.size(), address.bytes.begin());
    return address;
}

frame_kind ipv4_parse(byte_view packet, udp_datagram *datagram)
{
    if (packet.size() < kIpv4HeaderSize) {
        return frame_kind::truncated;
    }
    const size_t header_size = (packet[0] & 0x0Fu) * 4u;
    const size_t total = packet.be16(2);
    if (packet[0] >> 4 != 4 || header_size < kIpv4HeaderSize || total < header_size) {
        return frame_kind::damaged;
    }
    const uint16_t more_and_offset = packet.be16(6) & 0x3FFFu;
    if (more_and_offset != 0) {
        return frame_kind::fragment;
    }
    if (packet[9] != kProtocolUdp) {
        return frame_kind::not_udp;
    }
    if (total > packet.size()) {
        return frame_kind::truncated;
    }
    flow path;
    path.source.address = address_read(packet.skip(12).first(4));
    path.destination.address = address_read(packet.skip(16).first(4));
    return udp_parse(packet.first(total).skip(header_size), path, datagram);
}

// The headers of RFC 8200 and RFC 7045 that may stand between IPv6 and UDP.
enum : uint8_t {
    kHopByHop = 0,
    kRouting = 43,
    kFragment = 44,
    kAuthentication = 51,
    kDestinationOptions = 60,
    kMobility = 135,
    kHostIdentity = 139,
    kShim6 = 140,
};

// Size of an extension header, at least eight bytes; none when `type` is no extension header. `length` is the
// header's second byte.
std::optional<size_t> extension_size(uint8_t type, uint8_t length)
{
    switch (type) {
    case kHopByHop:
    case kRouting:
    case kDestinationOptions:
    case kMobility:
    case kHostIdentity:
    case kShim6:
        return (length + 1u) * 8u;
    case kAuthentication: // counts in words, RFC 4302
        return (length + 2u) * 4u;
    case kFragment:
        return 8;
    default:
        return std::nullopt;
    }
}

bool is_part_of_fragmented(byte_view fragment_header)
{
    return (fragment_header.be16(2) & 0xFFF9u) != 0;
}

// Walks to the UDP header. Each step takes at least eight bytes off `rest`.
frame_kind ipv6_payload_parse(uint8_t type, byte_view rest, const flow &path, udp_datagram *datagram)
{
    while (type != kProtocolUdp) {
        const std::optional<size_t> size = extension_size(type, rest.size() > 1 ? rest[1] : uint8_t{0});
        if (!size) {
            return frame_kind::not_udp;
        }
        if (*size > rest.size()) {
            return frame_kind::damaged;
        }
        if (type == kFragment && is_part_of_fragmented(rest)) {
            return frame_kind::fragment;
        }
        type = rest[0];
        rest = rest.skip(*size);
    }
    return udp_parse(rest, path, datagram);
}

frame_kind ipv6_parse(byte_view packet, udp_datagram *datagram)
{
    if (packet.size() < kIpv6HeaderSize) {
        return frame_kind::truncated;
    }
    if (packet[0] >> 4 != 6) {
        return frame_kind::damaged;
    }
    const size_t payload_size = packet.be16(4);
    if (kIpv6HeaderSize + payload_size > packet.size()) {
        return frame_kind::truncated;
    }
    flow path;
    path.source.address = address_read(packet.skip(8).first(16));
    path.destination.address = address_read(packet.skip(24).first(16));
    return ipv6_payload_parse(packet[6], packet.skip(kIpv6HeaderSize).first(payload_size), path, datagram);
}

// For links that carry IP and do not say which version.
frame_kind ip_parse(byte_view packet, udp_datagram *datagram)
{
    if (packet.empty()) {
        return frame_kind::truncated;
    }
    switch (packet[0] >> 4) {
    case 4:
        return ipv4_parse(packet, datagram);
    case 6:
        return ipv6_parse(packet, datagram);
    default:
        return frame_kind::damaged;
    }
}

bool is_vlan(uint16_t ether_type)
{
    return ether_type == kEtherTypeVlan || ether_type == kEtherTypeServiceVlan || ether_type == kEtherTypeOldQinq;
}

// `rest` begins behind the type field. Each tag takes four bytes off it.
frame_kind ether_payload_parse(uint16_t ether_type, byte_view rest, udp_datagram *datagram)
{
    while (is_vlan(ether_type)) {
        if (rest.size() < 4) {
            return frame_kind::truncated;
        }
        ether_type = rest.be16(2);
        rest = rest.skip(4);
    }
    switch (ether_type) {
    case kEtherTypeIpv4:
        return ipv4_parse(rest, datagram);
    case kEtherTypeIpv6:
        return ipv6_parse(rest, datagram);
    default:
        return frame_kind::not_ip;
    }
}

// A link header of a fixed size with an EtherType in it.
frame_kind typed_link_parse(byte_view frame, size_t type_offset, size_t header_size, udp_datagram *datagram)
{
    if (frame.size() < header_size) {
        return frame_kind::truncated;
    }
    return ether_payload_parse(frame.be16(type_offset), frame.skip(header_size), datagram);
}

// An address family in four bytes, in the byte order of whoever captured. AF_INET is 2 everywhere; AF_INET6 is
// 10 on Linux, 24, 28 and 30 on the BSDs and what descends from them.
frame_kind loopback_parse(byte_view frame, udp_datagram *datagram)
{
    if (frame.size() < 4) {
        return frame_kind::truncated;
    }
    const uint32_t big = frame.be32(0);
    const uint32_t family = big > 0xFFFF ? __builtin_bswap32(big) : big;
    switch (family) {
    case 2:
        return ipv4_parse(frame.skip(4), datagram);
    case 10:
    case 24:
    case 28:
    case 30:
        return ipv6_parse(frame.skip(4), datagram);
    default:
        return frame_kind::not_ip;
    }
}

} // namespace

bool link_type_is_known(int link_type)
{
    switch (link_type) {
    case DLT_EN10MB:
    case DLT_LINUX_SLL:
    case DLT_LINUX_SLL2:
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
    case DLT_NULL:
    case DLT_LOOP:
        return true;
    default:
        return false;
    }
}

frame_kind datagram_parse(int link_type, byte_view frame, udp_datagram *datagram)
{
    switch (link_type) {
    case DLT_EN10MB:
        return typed_link_parse(frame, 12, 14, datagram);
    case DLT_LINUX_SLL:
        return typed_link_parse(frame, 14, 16, datagram);
    case DLT_LINUX_SLL2:
        return typed_link_parse(frame, 0, 20, datagram);
    case DLT_RAW:
        return ip_parse(frame, datagram);
    case DLT_IPV4:
        return ipv4_parse(frame, datagram);
    case DLT_IPV6:
        return ipv6_parse(frame, datagram);
    case DLT_NULL:
    case DLT_LOOP:
        return loopback_parse(frame, datagram);
    default:
        return frame_kind::not_ip;
    }
}

std::string endpoint_name(const endpoint &where)
{
    char text[INET6_ADDRSTRLEN] = "";
    const bool is_v6 = where.address.is_v6;
    inet_ntop(is_v6 ? AF_INET6 : AF_INET, where.address.bytes.data(), text, sizeof(text));
    return is_v6 ? fmt::format("[{}]:{}", text, where.port) : fmt::format("{}:{}", text, where.port);
}

} // namespace vrc
