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

// ---- Versions ----

// A set that came, whose bytes are somebody else's.
struct shown_set {
    uint8_t codec;
    uint8_t type;
    uint8_t id;
    set_start start;
    nal_bytes unit;
};

bool is_before(const set_start *one, const set_start *other)
{
    if (one->is_described || other->is_described) {
        return one->is_described && !other->is_described;
    }
    return zeb_uint32_after(other->number, one->number) != 0;
}

bool holds_at(const set_start *start, uint32_t number)
{
    return start->is_described || zeb_uint32_after(start->number, number) == 0;
}

bool is_same_kind(const parameter_set *set, const parameter_set *other)
{
    return set->size != 0 && set->codec == other->codec && set->type == other->type && set->id == other->id;
}

// Of the sets of one kind the last one holds that began up to `number`.
bool is_in_force(const parameter_sets *self, const parameter_set *set, uint32_t number)
{
    for (const parameter_set &other : self->sets) {
        if (is_same_kind(&other, set) && holds_at(&other.start, number) && is_before(&set->start, &other.start)) {
            return false;
        }
    }
    return holds_at(&set->start, number);
}

// ---- Keeping ----

// The versions of a set that are kept, null for none: two at most.
struct kept_versions {
    parameter_set *older; // when there are two
    parameter_set *newer;
};

kept_versions versions_of(parameter_sets *self, const shown_set *shown)
{
    kept_versions kept = {};
    for (parameter_set &set : self->sets) {
        if (set.size == 0 || set.codec != shown->codec || set.type != shown->type || set.id != shown->id) {
            continue;
        }
        const bool is_newer = kept.newer == nullptr || is_before(&kept.newer->start, &set.start);
        kept.older = is_newer ? kept.newer : &set;
        kept.newer = is_newer ? &set : kept.newer;
    }
    return kept;
}

// A set that another one follows; null when there is none.
parameter_set *superseded_one(parameter_sets *self)
{
    for (parameter_set &set : self->sets) {
        for (const parameter_set &other : self->sets) {
            if (is_same_kind(&other, &set) && is_before(&set.start, &other.start)) {
                return &set;
            }
        }
    }
    return nullptr;
}

// An empty place, else that of a superseded set, else that of the one that has been there for the longest time.
parameter_set *place_find(parameter_sets *self)
{
    for (parameter_set &set : self->sets) {
        if (set.size == 0) {
            return &set;
        }
    }
    parameter_set *place = superseded_one(self);
    if (place == nullptr) {
        place = &self->sets[self->next];
        self->next = static_cast<uint8_t>((self->next + 1) % kParameterSetsMax);
    }
    return place;
}

void set_write(parameter_set *set, const shown_set *shown)
{
    set->codec = shown->codec;
    set->type = shown->type;
    set->id = shown->id;
    set->start = shown->start;
    set->size = static_cast<uint16_t>(shown->unit.size);
    memcpy(set->nal, shown->unit.data, shown->unit.size);
}

bool has_bytes(const parameter_set *set, nal_bytes unit)
{
    return set->size == unit.size && memcmp(set->nal, unit.data, unit.size) == 0;
}

bool has_begun(const parameter_set *version, const set_start *start)
{
    return version != nullptr && !is_before(start, &version->start);
}

void version_keep(parameter_sets *self, const shown_set *shown)
{
    const kept_versions kept = versions_of(self, shown);
    parameter_set *before = nullptr; // in force where the set was shown
    parameter_set *after = nullptr;  // the next one
    if (has_begun(kept.newer, &shown->start)) {
        before = kept.newer;
    } else if (has_begun(kept.older, &shown->start)) {
        before = kept.older;
        after = kept.newer;
    } else {
        after = kept.older != nullptr ? kept.older : kept.newer;
    }
    if (before != nullptr && has_bytes(before, shown->unit)) {
        return;
    }
    if (after != nullptr && has_bytes(after, shown->unit)) {
        after->start = shown->start;
    } else if (before != nullptr && !is_before(&before->start, &shown->start)) {
        set_write(before, shown); // at the same place
    } else if (kept.older == nullptr) {
        set_write(place_find(self), shown);
    } else if (before != nullptr) {
        set_write(kept.older, shown);
    }
}

void set_note(parameter_sets *self, uint8_t codec, nal_bytes unit, const set_start *start)
{
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || unit.data == nullptr || unit.size == 0 || unit.size > kParameterSetMax) {
        return;
    }
    const uint8_t type = kinds->format->unit_type(unit);
    const size_t place = place_of(kinds, type);
    if (place == kinds->count || (unit.data[0] & 0x80) != 0) {
        return;
    }
    const shown_set shown = {codec, type, identifier_of(unit, kinds->id_offset[place]), *start, unit};
    version_keep(self, &shown);
}

// One that is cut or holds something else is damaged, and where its units begin is not certain.
void note_aggregate(parameter_sets *self, uint8_t codec, const nal_format *format, const nal_payload *aggregate,
                    const set_start *start)
{
    if (nal_contents_inspect(format, aggregate).fault != PAYLOAD_FAULTS) {
        return;
    }
    nal_bytes rest = aggregate->bytes;
    nal_bytes unit;
    while (nal_aggregate_next(&rest, &unit)) {
        set_note(self, codec, unit, start);
    }
}

// A unit in one fragment.
void note_whole_fragment(parameter_sets *self, uint8_t codec, const nal_payload *fragment, const set_start *start)
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
    set_note(self, codec, {unit, size}, start);
}

} // namespace

void parameter_sets_describe(parameter_sets *self, uint8_t codec, const uint8_t *nal, size_t size)
{
    const set_start beginning = {true, 0};
    set_note(self, codec, {nal, size}, &beginning);
}

void parameter_sets_note_payload(parameter_sets *self, uint8_t codec, const uint8_t *payload, size_t size,
                                 uint32_t number)
{
    const set_start start = {false, number};
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || payload == nullptr) {
        return;
    }
    const nal_payload parsed = kinds->format->payload_parse({payload, size});
    switch (parsed.kind) {
    case NAL_PAYLOAD_SINGLE:
        set_note(self, codec, parsed.bytes, &start);
        break;
    case NAL_PAYLOAD_AGGREGATE:
        note_aggregate(self, codec, kinds->format, &parsed, &start);
        break;
    case NAL_PAYLOAD_FRAGMENT:
        note_whole_fragment(self, codec, &parsed, &start);
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

size_t parameter_sets_missing_size(const parameter_sets *self, uint8_t codec, uint32_t last, const uint8_t *frame,
                                   size_t size)
{
    const set_kinds *kinds = kinds_of(codec);
    if (kinds == nullptr || !needs_sets(kinds, frame, size)) {
        return 0;
    }
    size_t total = 0;
    for (const parameter_set &set : self->sets) {
        const bool is_written = set.size != 0 && set.codec == codec && is_in_force(self, &set, last);
        total += is_written ? kStartCodeSize + set.size : 0;
    }
    return total;
}

void parameter_sets_write(const parameter_sets *self, uint8_t codec, uint32_t last, uint8_t *out)
{
    static const uint8_t start_code[kStartCodeSize] = {0, 0, 0, 1};
    const set_kinds *kinds = kinds_of(codec);
    for (size_t place = 0; kinds != nullptr && place < kinds->count; place++) {
        for (const parameter_set &set : self->sets) {
            if (set.size == 0 || set.codec != codec || set.type != kinds->types[place] ||
                !is_in_force(self, &set, last)) {
                continue;
            }
            memcpy(out, start_code, kStartCodeSize);
            memcpy(out + kStartCodeSize, set.nal, set.size);
            out += kStartCodeSize + set.size;
        }
    }
}
