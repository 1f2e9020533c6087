#include "nal_edges.h"

#include "nal_payload.h"
#include "video_stream.h"

static const nal_format *__format_of(uint8_t codec)
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

nal_edges nal_edges_inspect(uint8_t codec, const uint8_t *payload, size_t size)
{
    const nal_format *format = __format_of(codec);
    if (format == nullptr || payload == nullptr) {
        return {true, true};
    }
    const nal_payload parsed = format->payload_parse({payload, size});
    if (parsed.kind != NAL_PAYLOAD_FRAGMENT) {
        return {true, true};
    }
    return {parsed.is_start, parsed.is_end};
}
