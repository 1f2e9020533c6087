#include "wire/rtp.h"

#include "wire/byte_order.h"

namespace
{

constexpr size_t kExtensionHeaderSize = 4;    // profile word and length
constexpr size_t kPacketSizeMax = UINT16_MAX; // a payload's `count` has 16 bits

bool extension_bit(const uint8_t *packet)
{
    return (packet[0] & 0x10) != 0;
}

bool padding_bit(const uint8_t *packet)
{
    return (packet[0] & 0x20) != 0;
}

// Adds the header extension behind `*header_size` to it. False when it does not fit, or when the two readings of
// its length differ: the module would then look for the payload at another place than the sender put it.
bool extension_skip(const uint8_t *packet, size_t size, size_t *header_size)
{
    if (size - *header_size < kExtensionHeaderSize) {
        return false;
    }
    const uint8_t *length = packet + *header_size + 2;
    const size_t by_rfc = size_t{4} * be16_read(length);
    const size_t by_module = (static_cast<size_t>(length[0]) << 8) | (static_cast<size_t>(length[1]) << 2);
    if (by_rfc != by_module || by_rfc > size - *header_size - kExtensionHeaderSize) {
        return false;
    }
    *header_size += kExtensionHeaderSize + by_rfc;
    return true;
}

void fields_read(const uint8_t *packet, rtp_view *view)
{
    view->marker = (packet[1] & 0x80) != 0;
    view->payload_type = packet[1] & 0x7F;
    view->seq = be16_read(packet + 2);
    view->timestamp = be32_read(packet + 4);
    view->ssrc = be32_read(packet + 8);
}

} // namespace

packet_drop_e rtp_parse(const uint8_t *packet, size_t size, rtp_view *view)
{
    if (size > kPacketSizeMax) {
        return PACKET_DROP_TOO_LARGE;
    }
    if (size < kRtpHeaderSize) {
        return PACKET_DROP_BAD_HEADER;
    }
    if (packet[0] >> 6 != 2) {
        return PACKET_DROP_BAD_VERSION;
    }
    size_t header_size = kRtpHeaderSize + size_t{4} * (packet[0] & 0x0F);
    if (header_size > size) {
        return PACKET_DROP_BAD_HEADER;
    }
    if (extension_bit(packet) && !extension_skip(packet, size, &header_size)) {
        return PACKET_DROP_BAD_EXTENSION;
    }
    const size_t behind_header = size - header_size;
    size_t padding_size = 0;
    if (padding_bit(packet)) {
        // Without a byte behind the header there is no count: the last byte belongs to the header.
        padding_size = behind_header > 0 ? packet[size - 1] : 0;
        if (padding_size == 0 || padding_size > behind_header) {
            return PACKET_DROP_BAD_PADDING;
        }
    }
    fields_read(packet, view);
    view->header_size = header_size;
    view->payload_size = behind_header - padding_size;
    view->padding_size = padding_size;
    return PACKET_DROP_REASONS;
}
