#include "pcap_reader.h"

#include "wire/byte_order.h"

namespace
{

constexpr uint32_t kMagic = 0xA1B2C3D4; // microseconds
constexpr uint32_t kLinkTypeEthernet = 1;
constexpr size_t kFileHeaderSize = 24;
constexpr size_t kRecordHeaderSize = 16;

constexpr size_t kEthernetHeaderSize = 14;
constexpr uint16_t kEtherTypeIpv4 = 0x0800;
constexpr size_t kIpv4HeaderSize = 20;
constexpr uint16_t kMoreFragmentsAndOffset = 0x3FFF;
constexpr uint8_t kProtocolUdp = 17;
constexpr size_t kUdpHeaderSize = 8;

uint32_t le32_read(const uint8_t *bytes)
{
    return __builtin_bswap32(be32_read(bytes));
}

struct span {
    const uint8_t *data; // null: there is none
    size_t size;
};

span udp_payload(span segment)
{
    if (segment.size < kUdpHeaderSize) {
        return {nullptr, 0};
    }
    const size_t length = be16_read(segment.data + 4);
    if (length < kUdpHeaderSize || length > segment.size) {
        return {nullptr, 0};
    }
    return {segment.data + kUdpHeaderSize, length - kUdpHeaderSize};
}

span ipv4_udp_payload(span packet)
{
    if (packet.size < kIpv4HeaderSize) {
        return {nullptr, 0};
    }
    const size_t header_size = (packet.data[0] & 0x0Fu) * 4u;
    const size_t total = be16_read(packet.data + 2);
    const bool is_whole = packet.data[0] >> 4 == 4 && header_size >= kIpv4HeaderSize && total >= header_size &&
                          total <= packet.size && (be16_read(packet.data + 6) & kMoreFragmentsAndOffset) == 0;
    if (!is_whole || packet.data[9] != kProtocolUdp) {
        return {nullptr, 0};
    }
    return udp_payload({packet.data + header_size, total - header_size});
}

span ethernet_udp_payload(span frame)
{
    if (frame.size < kEthernetHeaderSize || be16_read(frame.data + 12) != kEtherTypeIpv4) {
        return {nullptr, 0};
    }
    return ipv4_udp_payload({frame.data + kEthernetHeaderSize, frame.size - kEthernetHeaderSize});
}

} // namespace

pcap_reader::~pcap_reader()
{
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

bool pcap_reader::open(const char *path)
{
    uint8_t header[kFileHeaderSize];
    file_ = std::fopen(path, "rb");
    if (file_ == nullptr || std::fread(header, sizeof(header), 1, file_) != 1) {
        return false;
    }
    return le32_read(header) == kMagic && le32_read(header + 20) == kLinkTypeEthernet;
}

bool pcap_reader::next(captured_packet *packet)
{
    uint8_t header[kRecordHeaderSize];
    if (std::fread(header, sizeof(header), 1, file_) != 1) {
        return false;
    }
    const size_t size = le32_read(header + 8);
    if (size > sizeof(frame_) || std::fread(frame_, 1, size, file_) != size) {
        return false;
    }
    const span payload = ethernet_udp_payload({frame_, size});
    packet->stamp_us = static_cast<int64_t>(le32_read(header)) * 1'000'000 + le32_read(header + 4);
    packet->payload = payload.data;
    packet->size = payload.size;
    return true;
}
