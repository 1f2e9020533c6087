#include "codec/annexb.h"

#include <cstring>

namespace
{

const uint8_t g_start_code[] = {0, 0, 0, 1};

// Bytes that a packet may add to a frame beyond its payload: room for eight start codes is what the module
// allocates for each packet.
constexpr size_t kPacketHeadroom = 32;

// Where one packet's NAL units go.
struct annexb_output {
    uint8_t *frame_data;
    size_t *frame_offset;
    size_t *frame_size;
    size_t budget; // bytes that the packet may still write
};

// The fragmented NAL unit whose end has not come yet. The arguments of a depacketizer carry no state from packet
// to packet, so it is kept here; one record is enough, since all streams are served by one thread and the packets
// of a frame are unpacked in one go.
//
// It can never be taken for another frame's. Each call either continues the unit, and moves `end`, or clears the
// record, so it always tells what the call just before left behind. If that was for another frame, this frame
// is at its first packet and its offset is 0, while `end` lies behind at least a start code. A buffer that was
// freed and given out again at the same address makes no difference.
struct annexb_open_unit {
    const uint8_t *frame_data; // null when no unit is open
    size_t begin;              // offset of its start code
    size_t end;                // offset behind its last byte so far
    uint8_t type;
};

annexb_open_unit g_open_unit;

bool open_unit_is_at(const annexb_output *out)
{
    return g_open_unit.frame_data == out->frame_data && g_open_unit.end == *out->frame_offset;
}

void open_unit_clear()
{
    g_open_unit = {};
}

// Takes the open unit back out of the frame: a decoder does better without it than with half of it.
void open_unit_roll_back(const annexb_output *out)
{
    if (open_unit_is_at(out)) {
        *out->frame_offset = g_open_unit.begin;
        *out->frame_size -= g_open_unit.end - g_open_unit.begin;
    }
    open_unit_clear();
}

void bytes_append(annexb_output *out, const uint8_t *bytes, size_t size)
{
    // memcpy wants a valid pointer even for no bytes.
    if (size > 0) {
        memcpy(out->frame_data + *out->frame_offset, bytes, size);
    }
    *out->frame_offset += size;
    *out->frame_size += size;
    out->budget -= size;
}

bool unit_write(annexb_output *out, nal_bytes unit)
{
    if (sizeof(g_start_code) + unit.size > out->budget) {
        return false;
    }
    bytes_append(out, g_start_code, sizeof(g_start_code));
    bytes_append(out, unit.data, unit.size);
    return true;
}

// Each unit costs two bytes more than it came with, so an aggregate of many small units may not fit where nobody gave it
// more room: the first ones that do are kept, in order and without gaps.
void aggregate_write(annexb_output *out, const nal_format *format, nal_bytes rest)
{
    nal_bytes unit;
    while (nal_aggregate_next(&rest, &unit)) {
        if (format->unit_type(unit) != kNalTypeNone && !unit_write(out, unit)) {
            return;
        }
    }
}

// A fragment's own headers are never shorter than the NAL unit header, and a start code takes only a part of the
// headroom: fragments always fit.
void fragment_start(annexb_output *out, const nal_payload *fragment)
{
    const size_t begin = *out->frame_offset;
    bytes_append(out, g_start_code, sizeof(g_start_code));
    bytes_append(out, fragment->header, fragment->header_size);
    bytes_append(out, fragment->bytes.data, fragment->bytes.size);
    if (!fragment->is_end) {
        g_open_unit = {out->frame_data, begin, *out->frame_offset, fragment->type};
    }
}

void fragment_continue(annexb_output *out, const nal_payload *fragment)
{
    bytes_append(out, fragment->bytes.data, fragment->bytes.size);
    g_open_unit.end = *out->frame_offset;
    if (fragment->is_end) {
        open_unit_clear();
    }
}

bool continues_open_unit(const annexb_output *out, const nal_payload *payload)
{
    return payload->kind == NAL_PAYLOAD_FRAGMENT && !payload->is_start && payload->type == g_open_unit.type &&
           open_unit_is_at(out);
}

void payload_write(annexb_output *out, const nal_format *format, const nal_payload *payload)
{
    if (continues_open_unit(out, payload)) {
        fragment_continue(out, payload);
        return;
    }
    open_unit_roll_back(out);
    switch (payload->kind) {
    case NAL_PAYLOAD_SINGLE:
        (void)unit_write(out, payload->bytes); // one start code always fits
        break;
    case NAL_PAYLOAD_AGGREGATE:
        aggregate_write(out, format, payload->bytes);
        break;
    case NAL_PAYLOAD_FRAGMENT:
        if (payload->is_start) {
            fragment_start(out, payload);
        }
        break;
    case NAL_PAYLOAD_OTHER:
        break;
    }
}

} // namespace

size_t annexb_room_missing(const nal_contents *contents, size_t payload_size)
{
    if (contents->fault != PAYLOAD_FAULTS) {
        return 0;
    }
    const size_t written = contents->n_units * sizeof(g_start_code) + contents->size;
    const size_t room = payload_size + kPacketHeadroom;
    return written > room ? written - room : 0;
}

size_t annexb_room_appended(uint8_t codec, const uint8_t *payload, size_t payload_size, size_t limit)
{
    const nal_format *format = nal_format_of(codec);
    if (format == nullptr || payload_size == 0) {
        return 0;
    }
    const nal_payload parsed = format->payload_parse({payload, payload_size});
    if (parsed.kind != NAL_PAYLOAD_AGGREGATE) {
        return 0;
    }
    const nal_contents contents = nal_contents_inspect(format, &parsed);
    const size_t missing = annexb_room_missing(&contents, payload_size);
    const size_t appended = missing + missing % 2;
    return appended <= limit ? appended : 0;
}

int annexb_packet_write(const nal_format *format, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                        size_t *frame_offset, size_t *frame_size)
{
    if (frame_data == nullptr || frame_offset == nullptr || frame_size == nullptr) {
        return -1;
    }
    // A packet that is missing comes as an empty payload without an address; one with an address was padding, and what is
    // around it goes together.
    if (cur_ptr != nullptr && end_ptr == cur_ptr) {
        return 0;
    }
    const bool has_payload = cur_ptr != nullptr && end_ptr > cur_ptr;
    const size_t size = has_payload ? static_cast<size_t>(end_ptr - cur_ptr) : 0;
    const nal_payload payload = format->payload_parse({cur_ptr, size});
    annexb_output out = {frame_data, frame_offset, frame_size, size + kPacketHeadroom};
    payload_write(&out, format, &payload);
    return 0;
}
