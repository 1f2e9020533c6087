#include "nal.h"

#include "nal_payload.h"
#include "video_stream.h"

// What a NAL unit's type says, by codec.
struct nal_meaning {
    const nal_format *format;
    bool (*is_key)(uint8_t type);
    bool (*starts_access_unit)(uint8_t type);
};

static bool __h264_is_key(uint8_t type)
{
    return type == 5 || type == 7 || type == 8; // IDR slice, SPS, PPS
}

static bool __h264_starts_access_unit(uint8_t type)
{
    return type == 7 || type == 9; // SPS, access unit delimiter
}

static bool __h265_is_key(uint8_t type)
{
    return (type >= 16 && type <= 23) || (type >= 32 && type <= 34); // IRAP slices; VPS, SPS, PPS
}

static bool __h265_starts_access_unit(uint8_t type)
{
    return type == 32 || type == 35; // VPS, access unit delimiter
}

static const nal_meaning g_h264_meaning = {&nal_format_h264, __h264_is_key, __h264_starts_access_unit};
static const nal_meaning g_h265_meaning = {&nal_format_h265, __h265_is_key, __h265_starts_access_unit};

static const nal_meaning *__meaning_find(uint8_t codec)
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
static bool __is_forbidden(uint8_t first_header_byte)
{
    return (first_header_byte & 0x80) != 0;
}

static nal_summary __unit_inspect(const nal_meaning *meaning, nal_bytes unit)
{
    const uint8_t type = meaning->format->unit_type(unit);
    if (type == kNalTypeNone || __is_forbidden(unit.data[0])) {
        return {};
    }
    return {meaning->is_key(type), meaning->starts_access_unit(type)};
}

static nal_summary __fragment_inspect(const nal_meaning *meaning, const nal_payload *fragment)
{
    if (__is_forbidden(fragment->header[0])) {
        return {};
    }
    return {meaning->is_key(fragment->type), fragment->is_start && meaning->starts_access_unit(fragment->type)};
}

static nal_summary __aggregate_inspect(const nal_meaning *meaning, nal_bytes rest)
{
    nal_summary summary = {};
    bool is_first = true;
    nal_bytes unit;
    while (nal_aggregate_next(&rest, &unit)) {
        const nal_summary said = __unit_inspect(meaning, unit);
        summary.is_key = summary.is_key || said.is_key;
        summary.starts_access_unit = summary.starts_access_unit || (is_first && said.starts_access_unit);
        is_first = false;
    }
    return summary;
}

nal_summary nal_inspect(uint8_t codec, const uint8_t *payload, size_t size)
{
    const nal_meaning *meaning = __meaning_find(codec);
    if (meaning == nullptr || payload == nullptr) {
        return {};
    }
    const nal_payload parsed = meaning->format->payload_parse({payload, size});
    switch (parsed.kind) {
    case NAL_PAYLOAD_SINGLE:
        return __unit_inspect(meaning, parsed.bytes);
    case NAL_PAYLOAD_AGGREGATE:
        return __aggregate_inspect(meaning, parsed.bytes);
    case NAL_PAYLOAD_FRAGMENT:
        return __fragment_inspect(meaning, &parsed);
    case NAL_PAYLOAD_OTHER:
        break;
    }
    return {};
}
