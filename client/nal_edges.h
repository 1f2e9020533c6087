// Where a fragmented NAL unit is cut at the ends of an RTP payload.
#pragma once

#include <cstddef>
#include <cstdint>

struct nal_edges {
    bool begins; // the payload does not begin in the middle of a NAL unit
    bool ends;   // the payload does not leave a NAL unit unfinished
};

// Looks at one packet's payload, behind all headers. `codec` is a VIDEO_PACKET_TYPE; what is no fragment of H.264
// (FU-A, RFC 6184) or H.265 (FU, RFC 7798) is whole at both ends.
nal_edges nal_edges_inspect(uint8_t codec, const uint8_t *payload, size_t size);
