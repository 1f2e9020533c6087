// The parameter sets that a stream has shown, for key frames that come without them.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kParameterSetMax = 256; // bytes of one; larger ones are not kept
constexpr size_t kParameterSetsMax = 8;  // kept at a time

// From where on in the stream a set holds.
struct set_start {
    bool is_described; // from the beginning, as the session description has it
    uint32_t number;   // else from the packet with that extended sequence number on
};

struct parameter_set {
    uint8_t codec; // VIDEO_PACKET_TYPE
    uint8_t type;  // NAL unit type
    uint8_t id;    // of the set among those of its type
    uint16_t size; // bytes; 0: none
    set_start start;
    uint8_t nal[kParameterSetMax];
};

// All zero: none is known.
struct parameter_sets {
    parameter_set sets[kParameterSetsMax];
    uint8_t next; // is given up for a new one when all places are taken
};

// Keeps a copy of a NAL unit without start code when it is a parameter set of the codec. It holds from the beginning, in
// place of the one of the same type and identifier. Everything else is ignored.
void parameter_sets_describe(parameter_sets *self, uint8_t codec, const uint8_t *nal, size_t size);

// Keeps those that the RTP payload of packet `number` carries whole (RFC 6184: single NAL unit, STAP-A, FU-A that is start
// and end; RFC 7798: single NAL unit, AP, FU that is start and end). They hold from there on. Of those of one type and
// identifier the one before is kept as well: a key frame that waits behind a loss may come out after the next
// encoder's sets came. An aggregate with a fault teaches nothing.
void parameter_sets_note_payload(parameter_sets *self, uint8_t codec, const uint8_t *payload, size_t size,
                                 uint32_t number);

// True when some set of every kind that the codec has is known.
bool parameter_sets_are_known(const parameter_sets *self, uint8_t codec);

// Bytes that parameter_sets_write writes for a frame that ends with packet `last`; 0 when the frame has parameter sets of
// its own, begins no random access, or when none hold there. `frame` is Annex B with 4-byte start codes. On the native
// path, where only described sets are known, `last` does not matter.
size_t parameter_sets_missing_size(const parameter_sets *self, uint8_t codec, uint32_t last, const uint8_t *frame,
                                   size_t size);

// Writes the sets of the codec that hold for a frame that ends with packet `last`, each behind a 4-byte start code: VPS,
// SPS, PPS.
void parameter_sets_write(const parameter_sets *self, uint8_t codec, uint32_t last, uint8_t *out);
