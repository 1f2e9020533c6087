#include "depacketizer.h"

#include "codec/annexb.h"
#include "codec/nal_payload.h"

namespace
{

// The NAL unit types that RFC 6184 gives to packets (5.2); types 1 to 23 are a NAL unit's own, and 0, 30 and 31 nobody's.
// Only STAP-A and FU-A belong to packetization mode 1 (5.4).
constexpr uint8_t kStapA = 24;
constexpr uint8_t kFuA = 28;
constexpr uint8_t kFuB = 29;

constexpr uint8_t kTypeMask = 0x1F;
constexpr uint8_t kFragmentStart = 0x80;
constexpr uint8_t kFragmentEnd = 0x40;

bool is_unit_type(uint8_t type)
{
    return type >= 1 && type <= 23;
}

uint8_t unit_type(nal_bytes unit)
{
    if (unit.size == 0) {
        return kNalTypeNone;
    }
    const uint8_t type = unit.data[0] & kTypeMask;
    return is_unit_type(type) ? type : kNalTypeNone;
}

bool is_packet_type(uint8_t type)
{
    return type >= kStapA && type <= kFuB;
}

// FU indicator, FU header, fragment (RFC 6184, 5.8).
nal_payload fragment_parse(nal_bytes payload)
{
    constexpr size_t headers = 2;
    if (payload.size < headers) {
        return nal_payload_refused(PAYLOAD_FAULT_TRUNCATED);
    }
    nal_payload parsed = {};
    const uint8_t fu_indicator = payload.data[0];
    const uint8_t fu_header = payload.data[1];
    parsed.is_start = (fu_header & kFragmentStart) != 0;
    parsed.is_end = (fu_header & kFragmentEnd) != 0;
    parsed.type = fu_header & kTypeMask;
    if (!is_unit_type(parsed.type)) {
        return nal_payload_refused(is_packet_type(parsed.type) ? PAYLOAD_FAULT_NESTED : PAYLOAD_FAULT_RESERVED_TYPE);
    }
    parsed.kind = NAL_PAYLOAD_FRAGMENT;
    parsed.bytes = {payload.data + headers, payload.size - headers};
    parsed.header[0] = static_cast<uint8_t>((fu_indicator & ~kTypeMask) | parsed.type);
    parsed.header_size = 1;
    return parsed;
}

nal_payload payload_parse(nal_bytes payload)
{
    if (payload.size == 0) {
        return nal_payload_refused(PAYLOAD_FAULT_TRUNCATED);
    }
    const uint8_t type = payload.data[0] & kTypeMask;
    if (type == kFuA) {
        return fragment_parse(payload);
    }
    nal_payload parsed = {};
    if (type == kStapA) {
        parsed.kind = NAL_PAYLOAD_AGGREGATE;
        parsed.bytes = {payload.data + 1, payload.size - 1};
        return parsed;
    }
    if (!is_unit_type(type)) {
        return nal_payload_refused(is_packet_type(type) ? PAYLOAD_FAULT_INTERLEAVED : PAYLOAD_FAULT_RESERVED_TYPE);
    }
    parsed.kind = NAL_PAYLOAD_SINGLE;
    parsed.bytes = payload;
    return parsed;
}

} // namespace

const nal_format nal_format_h264 = {payload_parse, unit_type};

int depacketizer_h264_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    return annexb_packet_write(&nal_format_h264, frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
}
