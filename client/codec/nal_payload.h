// How RTP payloads carry NAL units: as one, as several behind their sizes, or as a fragment of one. What
// RFC 6184 and RFC 7798 have in common, with a record of functions for what is each format's own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/stream_report.h"

enum nal_payload_kind : uint8_t {
    NAL_PAYLOAD_OTHER,     // damaged, or of a kind that is not taken
    NAL_PAYLOAD_SINGLE,    // one NAL unit
    NAL_PAYLOAD_AGGREGATE, // NAL units, each behind its size
    NAL_PAYLOAD_FRAGMENT   // a piece of a NAL unit
};

constexpr uint8_t kNalTypeNone = 0xFF; // no NAL unit type: they have five or six bits
constexpr size_t kNalHeaderSizeMax = 2;

// Bytes within a payload, which owns them.
struct nal_bytes {
    const uint8_t *data;
    size_t size;
};

struct nal_payload {
    nal_payload_kind kind;
    // The NAL unit; the aggregate's NAL units with their sizes; the fragment's bytes, which may be none.
    nal_bytes bytes;
    payload_fault_e fault; // of NAL_PAYLOAD_OTHER alone: why it is not taken
    // Of a fragment alone: whether the NAL unit begins or ends with it, the unit's type, and its header, put together
    // again from the fragment's own headers. A unit in one fragment, which begins and ends with it, must not be sent and
    // is taken as what it is.
    bool is_start;
    bool is_end;
    uint8_t type;
    uint8_t header[kNalHeaderSizeMax];
    size_t header_size;
};

// A payload that is not taken.
nal_payload nal_payload_refused(payload_fault_e fault);

// One payload format.
struct nal_format {
    // Tells what a payload is. Every size is fine, 0 included.
    nal_payload (*payload_parse)(nal_bytes payload);
    // The type of a NAL unit; kNalTypeNone when it has no whole header or its type is kept for packets.
    uint8_t (*unit_type)(nal_bytes unit);
};

extern const nal_format nal_format_h264; // RFC 6184, single NAL unit and non-interleaved mode
extern const nal_format nal_format_h265; // RFC 7798, without DONL

// The format of a VIDEO_PACKET_TYPE; null for what is neither H.264 nor H.265.
const nal_format *nal_format_of(uint8_t codec);

// What a payload holds.
struct nal_contents {
    payload_fault_e fault; // PAYLOAD_FAULTS: none
    // NAL units that begin in the payload, those without a byte left out, and the bytes of the payload's units and pieces
    // without start codes. Both are of a payload without fault alone.
    size_t n_units;
    size_t size;
};

// Looks at a payload that `format` parsed. A unit that goes on in other payloads is no fault.
nal_contents nal_contents_inspect(const nal_format *format, const nal_payload *payload);

// Takes the next NAL unit off the front of an aggregate's rest, passing over empty ones. False when no whole
// NAL unit is left.
inline bool nal_aggregate_next(nal_bytes *rest, nal_bytes *unit)
{
    constexpr size_t size_field = 2; // bytes, network order
    while (rest->size >= size_field) {
        const size_t unit_size = static_cast<size_t>((rest->data[0] << 8) | rest->data[1]);
        if (unit_size > rest->size - size_field) {
            return false;
        }
        *unit = {rest->data + size_field, unit_size};
        *rest = {unit->data + unit_size, rest->size - size_field - unit_size};
        if (unit_size > 0) {
            return true;
        }
    }
    return false;
}
