// RTP packets on the wire (RFC 3550, 5.1): checking one and reading its fields.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/stream_report.h"
#include "rtc_seq.h"

constexpr size_t kRtpHeaderSize = 12; // bytes, without what may follow

// The fields of a well-formed packet, in host order.
struct rtp_view {
    bool marker;
    uint8_t payload_type;
    seq_t seq;
    uint32_t timestamp;
    uint32_t ssrc;
    size_t header_size;  // fixed header, CSRC list and header extension, bytes
    size_t payload_size; // behind the header, without padding, bytes; may be 0
    size_t padding_size; // bytes at the end, the count byte included; 0 without padding
};

// Checks a packet and fills `view`. Returns PACKET_DROP_REASONS when it is well formed; else the reason, and
// `view` is not to be used. A header extension is refused when its length by RFC 3550 and the length that
// the module's own rule reads from the same bytes differ, or do not fit.
packet_drop_e rtp_parse(const uint8_t *packet, size_t size, rtp_view *view);
