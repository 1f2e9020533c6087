// Retransmission payload format (RFC 4588): from the packet that repeats another one to that packet.
#pragma once

#include <cstddef>
#include <cstdint>

enum rtx_result : uint8_t {
    RTX_RESTORED,
    RTX_PADDING_ONLY, // no payload but padding: sent to probe the path, repeats nothing
    RTX_TOO_SHORT,    // fewer than the two payload bytes that hold the original sequence number
    RTX_NOT_RTP,      // rtp_parse refuses the packet
    RTX_NO_ROOM       // the original packet does not fit into the buffer
};

// Writes the original packet into `buffer` and its size in bytes, always less than `size`, to `*restored_size`, which
// is 0 unless the result is RTX_RESTORED. Sequence number (from the payload's first two bytes), `payload_type` (0
// to 127) and `ssrc` become those of the original; marker, timestamp, sources and header extension are the same in
// both. Padding of the retransmission is dropped, as a sender drops the original's (RFC 4588, 4).
//
// `buffer` may be `packet` itself; it may not overlap it otherwise. When nothing is restored it stays as it was.
rtx_result rtx_restore(const uint8_t *packet, size_t size, uint8_t payload_type, uint32_t ssrc, uint8_t *buffer,
                       size_t capacity, size_t *restored_size);
