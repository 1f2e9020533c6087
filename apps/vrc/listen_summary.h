// What the tool says about what it listened to. apps/vrc/README.md has the keys of the JSON.
#pragma once

#include <cstdint>
#include <string>

#include "summary.h"

namespace vrc
{

struct listen_result {
    replay_result received; // without counts of a capture
    std::string where;      // was listened
    uint64_t rtp_datagrams = 0;
    uint64_t rtcp_datagrams = 0;
    uint64_t rtcp_malformed = 0;
    uint64_t rtcp_sent = 0;
    uint64_t rtcp_unsent = 0; // there was nobody to send it to, or the system refused
    uint64_t other_senders = 0;
    uint64_t duration_ms = 0;
};

std::string listen_text(const listen_result &result);
json listen_json(const listen_result &result);

// One line for a person who watches; without a newline.
std::string listen_status(const listen_result &result);

} // namespace vrc
