#include "codec/nal.h"

#include "codec/nal_payload.h"
#include "video_stream.h"

namespace
{

// What a NAL unit's type says, by codec.
struct nal_meaning {
    const nal_format *format;
    bool (*is_key)(uint8_t type);
    bool (*starts_access_unit)(uint8_t type);
    bool (*leads_picture)(uint8_t type);
    bool (*is_slice)(uint8_t type);
    size_t header_size; // of a NAL unit, bytes
};

bool h264_is_key(uint8_t type)
{
    return type == 5 || type == 7 || type == 8; // IDR slice, SPS, PPS
}

bool h264_starts_access_unit(uint8_t type)
{
    return type == 7 || type == 9; // SPS, access unit delimiter
}

bool h264_leads_picture(uint8_t type)
{
    return type >= 6 && type <= 9; // SEI, SPS, PPS, access unit delimiter
}

bool h264_is_slice(uint8_t type)
{
    return type == 1 || type == 2 || type == 5; // non-IDR, data partition A, IDR
}

bool h265_is_key(uint8_t type)
{
    return (type >= 16 && type <= 23) || (type >= 32 && type <= 34); // IRAP slices; VPS, SPS, PPS
}

bool h265_starts_access_unit(uint8_t type)
{
    return type == 32 || type == 35; // VPS, access unit delimiter
}

bool h265_leads_picture(uint8_t type)
{
    return (type >= 32 && type <= 35) || type == 39; // VPS, SPS, PPS, access unit delimiter; prefix SEI
}

bool h265_is_slice(uint8_t type)
{
    return type < 32;
}

const nal_meaning g_h264_meaning = {&nal_format_h264,   h264_is_key,   h264_starts_access_unit,
                                    h264_leads_picture, h264_is_slice, 1};
const nal_meaning g_h265_meaning = {&nal_format_h265,   h265_is_key,   h265_starts_access_unit,
                                    h265_leads_picture, h265_is_slice, 2};

const nal_meaning *meaning_find(uint8_t codec)
{
    switch (codec) {
    case VIDEO_TYPE_H264:
        return &g_h264_meaning;
    case VIDEO_TYPE_H265:
        return &g_h265_meaning;
    default:
        return nullptr;
    }
}

// Both formats have the bit in the same place.
bool is_forbidden(uint8_t first_header_byte)
{
    return (first_header_byte & 0x80) != 0;
}

// A slice of H.264 begins with the number of its first macroblock, of which 0 is coded as a single 1; one of H.265 with
// the flag that says the same.
bool is_first_slice(nal_bytes slice_header)
{
    return slice_header.size > 0 && (slice_header.data[0] & 0x80) != 0;
}

// `content` is what stands behind the unit's header, as far as it is here.
nal_summary beginning_inspect(const nal_meaning *meaning, uint8_t type, nal_bytes content)
{
    return {meaning->is_key(type), meaning->starts_access_unit(type), meaning->leads_picture(type),
            meaning->is_slice(type) && is_first_slice(content), false};
}

nal_summary unit_inspect(const nal_meaning *meaning, nal_bytes unit)
{
    const uint8_t type = meaning->format->unit_type(unit);
    if (type == kNalTypeNone || is_forbidden(unit.data[0])) {
        return {};
    }
    return beginning_inspect(meaning, type, {unit.data + meaning->header_size, unit.size - meaning->header_size});
}

nal_summary fragment_inspect(const nal_meaning *meaning, const nal_payload *fragment)
{
    nal_summary summary = {};
    summary.continues_unit = !fragment->is_start;
    if (is_forbidden(fragment->header[0])) {
        return summary;
    }
    if (!fragment->is_start) {
        summary.is_key = meaning->is_key(fragment->type);
        return summary;
    }
    return beginning_inspect(meaning, fragment->type, fragment->bytes);
}

nal_summary aggregate_inspect(const nal_meaning *meaning, nal_bytes rest)
{
    nal_bytes unit;
    if (!nal_aggregate_next(&rest, &unit)) {
        return {};
    }
    nal_summary summary = unit_inspect(meaning, unit);
    while (nal_aggregate_next(&rest, &unit)) {
        summary.is_key = unit_inspect(meaning, unit).is_key || summary.is_key;
    }
    return summary;
}

} // namespace

nal_summary nal_inspect(uint8_t codec, const uint8_t *payload, size_t size)
{
    const nal_meaning *meaning = meaning_find(codec);
    if (meaning == nullptr || payload == nullptr) {
        return {};
    }
    const nal_payload parsed = meaning->format->payload_parse({payload, size});
    switch (parsed.kind) {
    case NAL_PAYLOAD_SINGLE:
        return unit_inspect(meaning, parsed.bytes);
    case NAL_PAYLOAD_AGGREGATE:
        return aggregate_inspect(meaning, parsed.bytes);
    case NAL_PAYLOAD_FRAGMENT:
        return fragment_inspect(meaning, &parsed);
    case NAL_PAYLOAD_OTHER:
        break;
    }
    return {};
}
