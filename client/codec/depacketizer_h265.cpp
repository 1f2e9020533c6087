#include "depacketizer.h"

#include "codec/annexb.h"
#include "codec/nal_payload.h"

namespace
{

// The NAL unit types that RFC 7798 gives to packets (4.4); types 0 to 47 are a NAL unit's own, and those above nobody's.
// Packets with content information (PACI) are not taken.
constexpr uint8_t kAggregation = 48;
constexpr uint8_t kFragmentation = 49;
constexpr uint8_t kContentInformation = 50;

constexpr size_t kHeaderSize = 2;       // NAL unit header and payload header alike
constexpr uint8_t kTypeBits = 0x7E;     // of a header's first byte; F and the layer's top bit stand beside them
constexpr uint8_t kFragmentType = 0x3F; // of the FU header
constexpr uint8_t kFragmentStart = 0x80;
constexpr uint8_t kFragmentEnd = 0x40;

uint8_t header_type(const uint8_t *header)
{
    return static_cast<uint8_t>((header[0] & kTypeBits) >> 1);
}

bool is_unit_type(uint8_t type)
{
    return type <= 47;
}

uint8_t unit_type(nal_bytes unit)
{
    if (unit.size < kHeaderSize) {
        return kNalTypeNone;
    }
    const uint8_t type = header_type(unit.data);
    return is_unit_type(type) ? type : kNalTypeNone;
}

// Payload header, FU header, fragment (RFC 7798, 4.4.3).
nal_payload fragment_parse(nal_bytes payload)
{
    constexpr size_t headers = kHeaderSize + 1;
    if (payload.size < headers) {
        return nal_payload_refused(PAYLOAD_FAULT_TRUNCATED);
    }
    nal_payload parsed = {};
    const uint8_t fu_header = payload.data[kHeaderSize];
    parsed.is_start = (fu_header & kFragmentStart) != 0;
    parsed.is_end = (fu_header & kFragmentEnd) != 0;
    parsed.type = fu_header & kFragmentType;
    if (!is_unit_type(parsed.type)) {
        return nal_payload_refused(parsed.type <= kContentInformation ? PAYLOAD_FAULT_NESTED
                                                                      : PAYLOAD_FAULT_RESERVED_TYPE);
    }
    parsed.kind = NAL_PAYLOAD_FRAGMENT;
    parsed.bytes = {payload.data + headers, payload.size - headers};
    parsed.header[0] = static_cast<uint8_t>((payload.data[0] & ~kTypeBits) | (parsed.type << 1));
    parsed.header[1] = payload.data[1];
    parsed.header_size = kHeaderSize;
    return parsed;
}

nal_payload payload_parse(nal_bytes payload)
{
    if (payload.size < kHeaderSize) {
        return nal_payload_refused(PAYLOAD_FAULT_TRUNCATED);
    }
    const uint8_t type = header_type(payload.data);
    if (type == kFragmentation) {
        return fragment_parse(payload);
    }
    nal_payload parsed = {};
    if (type == kAggregation) {
        parsed.kind = NAL_PAYLOAD_AGGREGATE;
        parsed.bytes = {payload.data + kHeaderSize, payload.size - kHeaderSize};
        return parsed;
    }
    if (!is_unit_type(type)) {
        return nal_payload_refused(type == kContentInformation ? PAYLOAD_FAULT_PACI : PAYLOAD_FAULT_RESERVED_TYPE);
    }
    parsed.kind = NAL_PAYLOAD_SINGLE;
    parsed.bytes = payload;
    return parsed;
}

} // namespace

const nal_format nal_format_h265 = {payload_parse, unit_type};

int depacketizer_h265_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    return annexb_packet_write(&nal_format_h265, frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
}
