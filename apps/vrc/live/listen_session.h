// What to listen for, from the command line and the session description.
#pragma once

#include <memory>
#include <vector>

#include "live/listen.h"
#include "live/live_receiver.h"

namespace vrc
{

// One video: RTP and RTCP on ports of its own.
struct listen_section {
    live_config config;
    std::vector<sdp_crypto> keys; // of its senders; empty: it is not encrypted
    uint16_t rtp_port = 0;
    uint16_t rtcp_port = 0; // equal to it when they share one; 0: there is none
};

struct listen_session {
    std::unique_ptr<sdp_session> description; // null without one
    std::vector<listen_section> sections;     // at least one; they refer to it
};

// Throws failure: no_access when the description cannot be read; wrong_usage when it makes no sense or contradicts
// the options; nothing_usable when it has no video that can be received.
listen_session listen_session_make(const listen_options &options);

} // namespace vrc
