#include "output/packet_recorder.h"

#include <algorithm>

namespace vrc
{
namespace
{

constexpr uint32_t kMagic = 0xA1B2C3D4; // classic format, microseconds
constexpr uint32_t kVersion = 0x00040002;
constexpr uint32_t kSnapLength = 262144;
constexpr uint32_t kLinkRawIp = 101;

constexpr uint8_t kProtocolUdp = 17;
constexpr uint8_t kHopLimit = 64;
constexpr size_t kUdpHeaderSize = 8;
constexpr size_t kIpv4HeaderSize = 20;
constexpr size_t kIpPayloadMax = 65535; // what the length field of IPv6 and of UDP can say
constexpr size_t kUdpPayloadMaxIpv4 = kIpPayloadMax - kIpv4HeaderSize - kUdpHeaderSize;
constexpr size_t kUdpPayloadMaxIpv6 = kIpPayloadMax - kUdpHeaderSize;

using bytes = std::vector<uint8_t>;

void append_be16(bytes *out, size_t value)
{
    out->push_back(static_cast<uint8_t>(value >> 8));
    out->push_back(static_cast<uint8_t>(value));
}

void append_le32(bytes *out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        out->push_back(static_cast<uint8_t>(value >> shift));
    }
}

void append(bytes *out, byte_view more)
{
    out->insert(out->end(), more.data(), more.data() + more.size());
}

byte_view address_bytes(const ip_address &address)
{
    return {address.bytes.data(), address.is_v6 ? size_t{16} : size_t{4}};
}

// Sum of 16-bit words (RFC 1071); bytes that are left over count as the upper half of one.
uint64_t words_sum(byte_view data)
{
    uint64_t sum = 0;
    for (size_t i = 0; i < data.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<uint64_t>(data[i]) << 8 : data[i];
    }
    return sum;
}

uint16_t checksum(uint64_t sum)
{
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

void put_be16(bytes *out, size_t offset, uint16_t value)
{
    (*out)[offset] = static_cast<uint8_t>(value >> 8);
    (*out)[offset + 1] = static_cast<uint8_t>(value);
}

bytes udp_make(const flow &path, byte_view payload)
{
    constexpr size_t checksum_offset = 6;
    bytes out;
    append_be16(&out, path.source.port);
    append_be16(&out, path.destination.port);
    append_be16(&out, kUdpHeaderSize + payload.size());
    append_be16(&out, 0);
    append(&out, payload);
    const uint64_t pseudo_header = words_sum(address_bytes(path.source.address)) +
                                   words_sum(address_bytes(path.destination.address)) + kProtocolUdp + out.size();
    const uint16_t value = checksum(pseudo_header + words_sum({out.data(), out.size()}));
    put_be16(&out, checksum_offset, value == 0 ? 0xFFFF : value); // 0 says that there is none (RFC 768)
    return out;
}

bytes ipv4_header_make(size_t payload_size)
{
    bytes out = {0x45, 0};
    append_be16(&out, kIpv4HeaderSize + payload_size);
    append_be16(&out, 0);
    append_be16(&out, 0x4000); // not to be fragmented
    out.push_back(kHopLimit);
    out.push_back(kProtocolUdp);
    append_be16(&out, 0);
    return out;
}

bytes ipv6_header_make(size_t payload_size)
{
    bytes out = {0x60, 0, 0, 0};
    append_be16(&out, payload_size);
    out.push_back(kProtocolUdp);
    out.push_back(kHopLimit);
    return out;
}

} // namespace

std::vector<uint8_t> ip_packet_make(const udp_datagram &datagram)
{
    constexpr size_t ipv4_checksum_offset = 10;
    const flow &path = datagram.path;
    const bool is_v6 = path.source.address.is_v6;
    const bytes udp = udp_make(path, datagram.payload.first(is_v6 ? kUdpPayloadMaxIpv6 : kUdpPayloadMaxIpv4));
    bytes packet = is_v6 ? ipv6_header_make(udp.size()) : ipv4_header_make(udp.size());
    append(&packet, address_bytes(path.source.address));
    append(&packet, address_bytes(path.destination.address));
    if (!is_v6) {
        put_be16(&packet, ipv4_checksum_offset, checksum(words_sum({packet.data(), packet.size()})));
    }
    append(&packet, {udp.data(), udp.size()});
    return packet;
}

packet_recorder::packet_recorder(const std::string &path) : file_(path, file_privacy::owner_only)
{
    bytes header;
    for (const uint32_t field : {kMagic, kVersion, 0U, 0U, kSnapLength, kLinkRawIp}) {
        append_le32(&header, field);
    }
    file_.write(header.data(), header.size());
}

bool packet_recorder::write(uint64_t stamp_us, const udp_datagram &datagram)
{
    constexpr uint64_t us_per_s = 1'000'000;
    const bytes packet = ip_packet_make(datagram);
    const auto size = static_cast<uint32_t>(packet.size());
    bytes record;
    for (const uint32_t field :
         {static_cast<uint32_t>(stamp_us / us_per_s), static_cast<uint32_t>(stamp_us % us_per_s), size, size}) {
        append_le32(&record, field);
    }
    append(&record, {packet.data(), packet.size()});
    return file_.write(record.data(), record.size());
}

} // namespace vrc
