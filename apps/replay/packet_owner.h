// Whose a packet of a capture is.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrc
{

struct packet_owner {
    uint32_t ssrc;
    uint8_t payload_type;
};

// Reads whose packet this is by its RTP header, well formed or not. Returns false when it is no RTP; packets of the
// types 64 to 95 are RTCP (RFC 5761, 4).
bool packet_owner_read(const uint8_t *packet, size_t size, packet_owner *owner);

// Whether it is RTCP in which the sender `ssrc` reports or leaves.
bool rtcp_concerns(const uint8_t *datagram, size_t size, uint32_t ssrc);

} // namespace vrc
