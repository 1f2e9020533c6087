// What to listen for, from the command line and the session description.
#pragma once

#include <memory>

#include "listen.h"
#include "live_receiver.h"

namespace vrc
{

struct listen_session {
    std::unique_ptr<sdp_session> description; // null without one
    live_config config;                       // refers to it
    uint16_t rtp_port = 0;
    uint16_t rtcp_port = 0; // equal to it when they share one; 0: there is none
};

// Throws failure: no_access when the description cannot be read; wrong_usage when it makes no sense or contradicts
// the options; nothing_usable when it has no video that can be received.
listen_session listen_session_make(const listen_options &options);

} // namespace vrc
