#include "codec/nal_payload.h"

#include "video_stream.h"

namespace
{

// What a NAL unit within an aggregate may be at fault for.
payload_fault_e unit_fault(const nal_format *format, nal_bytes unit)
{
    if (format->unit_type(unit) != kNalTypeNone) {
        return PAYLOAD_FAULTS;
    }
    const nal_payload parsed = format->payload_parse(unit);
    return parsed.kind == NAL_PAYLOAD_OTHER ? parsed.fault : PAYLOAD_FAULT_NESTED;
}

nal_contents aggregate_inspect(const nal_format *format, nal_bytes rest)
{
    nal_contents contents = {PAYLOAD_FAULTS, 0, 0};
    if (rest.size == 0) {
        contents.fault = PAYLOAD_FAULT_TRUNCATED;
    }
    nal_bytes unit;
    while (contents.fault == PAYLOAD_FAULTS && nal_aggregate_next(&rest, &unit)) {
        contents.fault = unit_fault(format, unit);
        contents.n_units += 1;
        contents.size += unit.size;
    }
    if (contents.fault == PAYLOAD_FAULTS && rest.size > 0) {
        contents.fault = PAYLOAD_FAULT_TRUNCATED;
    }
    return contents;
}

} // namespace

nal_payload nal_payload_refused(payload_fault_e fault)
{
    nal_payload parsed = {};
    parsed.kind = NAL_PAYLOAD_OTHER;
    parsed.fault = fault;
    return parsed;
}

const nal_format *nal_format_of(uint8_t codec)
{
    switch (codec) {
    case VIDEO_TYPE_H264:
        return &nal_format_h264;
    case VIDEO_TYPE_H265:
        return &nal_format_h265;
    default:
        return nullptr;
    }
}

nal_contents nal_contents_inspect(const nal_format *format, const nal_payload *payload)
{
    switch (payload->kind) {
    case NAL_PAYLOAD_SINGLE:
        return {PAYLOAD_FAULTS, 1, payload->bytes.size};
    case NAL_PAYLOAD_AGGREGATE:
        return aggregate_inspect(format, payload->bytes);
    case NAL_PAYLOAD_FRAGMENT:
        return {PAYLOAD_FAULTS, payload->is_start ? size_t{1} : 0,
                payload->bytes.size + (payload->is_start ? payload->header_size : 0)};
    case NAL_PAYLOAD_OTHER:
        break;
    }
    return {payload->fault, 0, 0};
}
