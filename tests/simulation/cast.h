// Draws the senders of a call.
#pragma once

#include <map>

#include "api/channel.h"
#include "presets.h"
#include "sender.h"

namespace simulation
{

// What the senders of a call go by.
struct call_terms {
    const preset *kind;
    channel_feedback agreed;
    std::map<uint8_t, std::vector<bytes>> described; // parameter sets in the session description, by codec
};

// All but `uid`, which is the caller's to choose.
sender_settings draw_sender(const call_terms &terms, Random *random);

} // namespace simulation
