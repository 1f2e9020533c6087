// What the NAL units in an RTP payload say about the packet's frame.
#pragma once

#include <cstddef>
#include <cstdint>

struct nal_summary {
    // Some NAL unit is a parameter set or a slice of a random access picture: H.264 types 5, 7 and 8
    // (RFC 6184), H.265 types 16 to 23 and 32 to 34 (RFC 7798). Every fragment of such a unit counts.
    bool is_key;
    // The first NAL unit begins here, and is one that stands at the beginning of an access unit: the access
    // unit delimiter, H.264 SPS, H.265 VPS.
    bool starts_access_unit;
    // The first NAL unit begins here, and is one that stands in front of a picture's slices: what starts an access unit,
    // other parameter sets, supplemental information.
    bool leads_picture;
    // The first NAL unit begins here, and is the first slice of its picture.
    bool is_first_slice;
    // The payload begins in the middle of a NAL unit.
    bool continues_unit;
};

// Looks at one packet's payload, behind all headers. `codec` is a VIDEO_PACKET_TYPE; what is neither H.264
// nor H.265, or is damaged, says nothing (all false).
nal_summary nal_inspect(uint8_t codec, const uint8_t *payload, size_t size);
