// Where RTCP goes.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vrc
{

// Somebody to send to.
struct feedback_peer {
    sockaddr_storage address{};
    std::optional<size_t> binding; // which of our addresses it knows; none: any of its family
};

// Chooses for each sender (SSRC) among the addresses that were named or heard from. Senders beyond the first 256 are
// not told apart.
class feedback_address
{
  public:
    // With `trusts_senders_only` what came without a sender's name does not count against what a sender sent itself.
    explicit feedback_address(bool trusts_senders_only = false) : trusts_senders_only_(trusts_senders_only)
    {
    }

    // The user says where; what is heard does not matter any more.
    void name(const feedback_peer &peer)
    {
        named_ = peer;
    }

    // Something came to the RTCP port: whoever sent it has a socket for RTCP, even if it was no RTCP. `ssrcs` are the
    // senders that it came from, as far as it says.
    void note_rtcp(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs);

    // RTP came: a sender that uses one socket each way hears RTCP there as well (RFC 4961).
    void note_rtp(const feedback_peer &peer, uint32_t ssrc);

    // For a sender: the named address; or the one that its RTCP came from, or newer RTCP of nobody else on its host; or
    // the one that its RTP comes from, or RTP came from last. None before all of them.
    std::optional<feedback_peer> get(uint32_t ssrc) const;

  private:
    struct sender {
        std::optional<feedback_peer> rtp;
        std::optional<feedback_peer> rtcp;
        uint64_t rtcp_order = 0; // what came later has a higher number
    };

    sender *find_or_add(uint32_t ssrc);
    bool is_announced_for(const sender &one) const;

    bool trusts_senders_only_;
    std::optional<feedback_peer> named_;
    std::optional<feedback_peer> last_rtp_; // for senders that are not told apart
    std::map<uint32_t, sender> senders_;
    std::optional<feedback_peer> announced_; // by RTCP that names no sender of RTP
    uint64_t announced_order_ = 0;
    uint64_t order_ = 0;
};

// Reads "HOST:PORT" or "[ADDRESS]:PORT"; names are looked up. Throws failure: wrong_usage for what is neither,
// no_access when there is no such host.
feedback_peer feedback_peer_parse(const std::string &text);

} // namespace vrc
