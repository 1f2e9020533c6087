// Cuts NAL units into RTP payloads, with all structures that RFC 6184 (packetization-mode 1) and RFC 7798 (without DONL)
// have; and makes payloads that a receiver must take no frame from.
#pragma once

#include <string>
#include <vector>

#include "nal_units.h"

namespace simulation
{

struct packetizer_settings {
    size_t payload_max = 1100; // bytes
    size_t together_max = 6;   // NAL units of an aggregate; below 2: none are made
    // Share of units and payloads that are shaped as few senders do: a unit alone in a fragment or an aggregate, fragments
    // of uneven sizes or without bytes, units without bytes in an aggregate.
    double oddities = 0;
};

std::vector<bytes> packetize(const packetizer_settings &settings, uint8_t codec, const std::vector<bytes> &units,
                             Random *random);

// Adds a payload that is not allowed or damaged to a frame's, or puts it in the place of one. Returns what it is. The
// frame's first payload stays when there are others: a receiver that lost it may take it for padding.
std::string spoil(uint8_t codec, std::vector<bytes> *payloads, Random *random);

} // namespace simulation
