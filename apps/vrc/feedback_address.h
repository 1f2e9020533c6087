// Where RTCP goes.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <optional>
#include <string>

namespace vrc
{

// Somebody to send to.
struct feedback_peer {
    sockaddr_storage address{};
    std::optional<size_t> binding; // which of our addresses it knows; none: any of its family
};

// Chooses among the addresses that were named or heard from.
class feedback_address
{
  public:
    // The user says where; what is heard does not matter any more.
    void name(const feedback_peer &peer)
    {
        named_ = peer;
    }

    // Something came to the RTCP port: whoever sent it has a socket for RTCP, even if it was no RTCP.
    void note_rtcp(const feedback_peer &peer)
    {
        rtcp_ = peer;
    }

    // RTP came: a sender that uses one socket each way hears RTCP there as well (RFC 4961).
    void note_rtp(const feedback_peer &peer)
    {
        rtp_ = peer;
    }

    // The named address, or the last one RTCP came from, or the last one RTP came from; none before all of them.
    const std::optional<feedback_peer> &get() const
    {
        return named_ ? named_ : rtcp_ ? rtcp_ : rtp_;
    }

  private:
    std::optional<feedback_peer> named_;
    std::optional<feedback_peer> rtcp_;
    std::optional<feedback_peer> rtp_;
};

// Reads "HOST:PORT" or "[ADDRESS]:PORT"; names are looked up. Throws failure: wrong_usage for what is neither,
// no_access when there is no such host.
feedback_peer feedback_peer_parse(const std::string &text);

} // namespace vrc
