#include "codec/parameter_sets.h"

#include <cstring>

#include "codec/nal_payload.h"
#include "video_stream.h"

namespace
{

constexpr size_t kStartCodeSize = 4;

// A codec's parameter sets, in the order in which a decoder wants them, and its slices that need them.
struct set_kinds {
    const nal_format *format;
    const uint8_t *types; // of NAL units
    size_t count;
    size_t id_offset[3]; // byte at which each type's identifier begins, an Exp-Golomb number; 0: not read
    uint8_t first_key_slice, last_key_slice;
    uint8_t sps;
};

const uint8_t g_h264_types[] = {7, 8};
const uint8_t g_h265_types[] = {32, 33, 34};
// An SPS of H.265 has its identifier behind a structure of varying length; one at a time is kept of those.
const set_kinds g_h264_kinds = {&nal_format_h264, g_h264_types, 2, {4, 1, 0}, 5, 5, 7};
const set_kinds g_h265_kinds = {&nal_format_h265, g_h265_types, 3, {0, 0, 2}, 16, 21, 33};

const set_kinds *kinds_of(uint8_t codec)
{
    switch (codec) {
    case VIDEO_TYPE_H264:
        return &g_h264_kinds;
    case VIDEO_TYPE_H265:
        return &g_h265_kinds;
    default:
        return nullptr;
    }
}

// The place of a type among the parameter sets; `count` when it is none.
size_t place_of(const set_kinds *kinds, uint8_t type)
{
    size_t place = 0;
    while (place < kinds->count && kinds->types[place] != type) {
        place += 1;
    }
    return place;
}

// An Exp-Golomb number of at most 15 bits (H.264 and H.265, clause 9) at a byte's beginning; 0 when there is none.
uint8_t identifier_of(nal_bytes unit, size_t offset)
{
    if (offset == 0 || unit.size < offset + 2) {
        return 0;
    }
    const uint32_t bits = static_cast<uint32_t>(unit.data[offset] << 8 | unit.data[offset + 1]);
    unsigned zeros = 0;
    while (zeros < 7 && (bits & (0x8000u >> zeros)) == 0) {
        zeros += 1;
    }
    return static_cast<uint8_t>((bits >> (15 - 2 * zeros)) - 1);
}

// ---- Keeping ----

parameter_set *slot_for(parameter_sets *self, uint8_t codec, uint8_t type, uint8_t id)
{
    parameter_set *empty = nullptr;
    for (parameter_set &set : self->sets) {
        if (set.size != 0 && set.codec == codec && set.type == type && set.id == id) {
            return &set;
        }
        if (set.size == 0 && empty == nullptr) {
            empty = &set;
        }
    }
    if (empty == nullptr) {
        empty = &self->sets[self->next];
        self->next = static_cast<uint8_t>((self->next + 1) % kParameterSetsMax);
    }
    return empty;
}

} // namespace

void parameter_sets_note(parameter_sets *self, uint8_t codec, const uint8_t *nal, size_t size)
{
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || nal == nullptr || size == 0 || size > kParameterSetMax) {
        return;
    }
    const uint8_t type = kinds->format->unit_type({nal, size});
    const size_t place = place_of(kinds, type);
    if (place == kinds->count || (nal[0] & 0x80) != 0) {
        return;
    }
    const uint8_t id = identifier_of({nal, size}, kinds->id_offset[place]);
    parameter_set *set = slot_for(self, codec, type, id);
    set->codec = codec;
    set->type = type;
    set->id = id;
    set->size = static_cast<uint16_t>(size);
    memcpy(set->nal, nal, size);
}

namespace
{

// One that is cut or holds something else is damaged, and where its units begin is not certain.
void note_aggregate(parameter_sets *self, uint8_t codec, const nal_format *format, const nal_payload *aggregate)
{
    if (nal_contents_inspect(format, aggregate).fault != PAYLOAD_FAULTS) {
        return;
    }
    nal_bytes rest = aggregate->bytes;
    nal_bytes unit;
    while (nal_aggregate_next(&rest, &unit)) {
        parameter_sets_note(self, codec, unit.data, unit.size);
    }
}

// A unit in one fragment.
void note_whole_fragment(parameter_sets *self, uint8_t codec, const nal_payload *fragment)
{
    uint8_t unit[kParameterSetMax];
    const size_t size = fragment->header_size + fragment->bytes.size;
    if (!fragment->is_start || !fragment->is_end || size > sizeof(unit)) {
        return;
    }
    memcpy(unit, fragment->header, fragment->header_size);
    if (fragment->bytes.size > 0) {
        memcpy(unit + fragment->header_size, fragment->bytes.data, fragment->bytes.size);
    }
    parameter_sets_note(self, codec, unit, size);
}

} // namespace

void parameter_sets_note_payload(parameter_sets *self, uint8_t codec, const uint8_t *payload, size_t size)
{
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || payload == nullptr) {
        return;
    }
    const nal_payload parsed = kinds->format->payload_parse({payload, size});
    switch (parsed.kind) {
    case NAL_PAYLOAD_SINGLE:
        parameter_sets_note(self, codec, parsed.bytes.data, parsed.bytes.size);
        break;
    case NAL_PAYLOAD_AGGREGATE:
        note_aggregate(self, codec, kinds->format, &parsed);
        break;
    case NAL_PAYLOAD_FRAGMENT:
        note_whole_fragment(self, codec, &parsed);
        break;
    case NAL_PAYLOAD_OTHER:
        break;
    }
}

bool parameter_sets_are_known(const parameter_sets *self, uint8_t codec)
{
    const set_kinds *kinds = kinds_of(codec);
    size_t n_known = 0;
    for (size_t place = 0; kinds != nullptr && place < kinds->count; place++) {
        for (const parameter_set &set : self->sets) {
            if (set.size != 0 && set.codec == codec && set.type == kinds->types[place]) {
                n_known += 1;
                break;
            }
        }
    }
    return kinds != nullptr && n_known == kinds->count;
}

namespace
{

// ---- Putting in front ----

// The next NAL unit's offset behind its start code, from `from` on; `size` when there is none. Within a NAL unit no start
// code can stand.
size_t next_unit(const uint8_t *frame, size_t size, size_t from)
{
    for (size_t i = from; i + kStartCodeSize < size; i++) {
        if (frame[i] == 0 && frame[i + 1] == 0 && frame[i + 2] == 0 && frame[i + 3] == 1) {
            return i + kStartCodeSize;
        }
    }
    return size;
}

bool needs_sets(const set_kinds *kinds, const uint8_t *frame, size_t size)
{
    bool has_key_slice = false;
    for (size_t at = next_unit(frame, size, 0); at < size; at = next_unit(frame, size, at)) {
        const uint8_t type = kinds->format->unit_type({frame + at, size - at});
        if (type == kinds->sps) {
            return false;
        }
        has_key_slice = has_key_slice || (type >= kinds->first_key_slice && type <= kinds->last_key_slice);
    }
    return has_key_slice;
}

} // namespace

size_t parameter_sets_missing_size(const parameter_sets *self, uint8_t codec, const uint8_t *frame, size_t size)
{
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || !needs_sets(kinds, frame, size)) {
        return 0;
    }
    size_t total = 0;
    for (const parameter_set &set : self->sets) {
        total += set.size != 0 && set.codec == codec ? kStartCodeSize + set.size : 0;
    }
    return total;
}

void parameter_sets_write(const parameter_sets *self, uint8_t codec, uint8_t *out)
{
    static const uint8_t start_code[kStartCodeSize] = {0, 0, 0, 1};
    const set_kinds *kinds = kinds_of(codec);
    for (size_t place = 0; kinds != nullptr && place < kinds->count; place++) {
        for (const parameter_set &set : self->sets) {
            if (set.size == 0 || set.codec != codec || set.type != kinds->types[place]) {
                continue;
            }
            memcpy(out, start_code, kStartCodeSize);
            memcpy(out + kStartCodeSize, set.nal, set.size);
            out += kStartCodeSize + set.size;
        }
    }
}
