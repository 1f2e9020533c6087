// Whether the payloads of a frame, one behind the other, hold nothing but whole NAL units. What does not (RFC 6184 in
// packetization mode 1, RFC 7798 without DONL) makes a frame that a decoder must not get.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/stream_report.h"

// All zero: no payload was noted.
struct unit_chain {
    bool is_open; // the payload before left a fragmented NAL unit unfinished
    uint8_t type; // of that unit
};

// Notes the next payload of the frame, behind all headers. `codec` is a VIDEO_PACKET_TYPE; what is neither H.264 nor H.265,
// and what has no bytes, has no fault. Returns PAYLOAD_FAULTS, or what is wrong; then the frame is lost, and the chain is
// not to be used any more.
payload_fault_e unit_chain_note(unit_chain *self, uint8_t codec, const uint8_t *payload, size_t size);

// Whether the frame may end here. Returns PAYLOAD_FAULTS, or what is wrong.
payload_fault_e unit_chain_end(const unit_chain *self);
