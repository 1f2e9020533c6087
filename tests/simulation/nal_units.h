// What the two video formats call the NAL units and payloads that a sender makes (RFC 6184, 5.2; RFC 7798, 4.4).
#pragma once

#include <vector>

#include "random.h"
#include "rtp_builder.h"

namespace simulation
{

using rtp_builder::bytes;

struct unit_types {
    size_t header_size;
    std::vector<uint8_t> sets;         // in the order in which they belong in front of a key frame
    std::vector<size_t> identifier_at; // byte of each set's identifier, from the unit's begin; 0: it is not set
    std::vector<uint8_t> key_slices;
    std::vector<uint8_t> delta_slices;
    std::vector<uint8_t> trailers; // may stand behind a picture's slices
    uint8_t delimiter;
    uint8_t comment; // supplemental information
    uint8_t aggregate;
    uint8_t fragment;
};

// Of VIDEO_TYPE_H264 or VIDEO_TYPE_H265.
const unit_types &types_of(uint8_t codec);

// The header of a NAL unit or payload of that type.
bytes header_of(uint8_t codec, uint8_t type);

uint8_t type_of(uint8_t codec, const bytes &unit);

// No byte is 0, so that no start code can come about.
void append_noise(bytes *to, size_t size, Random *random);

} // namespace simulation
