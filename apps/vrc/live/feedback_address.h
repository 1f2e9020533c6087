// Where RTCP goes.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zeb_platform.h"

namespace vrc
{

// Somebody to send to.
struct feedback_peer {
    sockaddr_storage address{};
    std::optional<size_t> binding; // which of our addresses it knows; none: any of its family
};

// Chooses for each sender (SSRC) among the addresses that were named or heard from.
//
// Anybody can send in a sender's name, so an address is believed by rules:
// - RTP teaches the address that it comes from (RFC 4961). Another one takes its place when kMovePackets came from there in
//   the order of their numbers, and the old one has been silent for kMoveSilence, or never sent as many.
// - RTCP teaches an address for a sender only from the host of the sender's RTP. What names the sender goes before what
//   names none, and holds until it has been silent for kRtcpSilence or the sender moves to another host. Before RTP came,
//   RTCP is remembered, and counts when RTP comes from its host.
// With authentic packets alone, each that names a sender is believed at once.
//
// It knows kFeedbackSendersMax senders. A new one takes the place of one that was not heard kMovePackets times, or has been
// silent for kSenderSilence; when there is none, it gets no feedback.
class feedback_address
{
  public:
    // With `are_authentic` only packets are noted that somebody with the key sent.
    explicit feedback_address(bool are_authentic = false) : are_authentic_(are_authentic)
    {
    }

    // The user says where; what is heard does not matter any more.
    void name(const feedback_peer &peer)
    {
        named_ = peer;
    }

    // Well-formed RTCP came, or what opens a path for it. `ssrcs` are the senders that it came from, as far as it says.
    // The time is in milliseconds and never decreases, here and below.
    void note_rtcp(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs, zeb_ts_t now);

    // RTP of the sender `ssrc` came.
    void note_rtp(const feedback_peer &peer, uint32_t ssrc, uint16_t seq, zeb_ts_t now);

    // For a sender: the named address; the one that its RTCP comes from; the one that RTCP of nobody else comes from on
    // its host; or the one that its RTP comes from. None for a sender that is not known.
    std::optional<feedback_peer> get(uint32_t ssrc) const;

  private:
    // Where RTP of one sender comes from.
    struct rtp_source {
        feedback_peer peer;
        uint16_t seq = 0;      // of the newest packet
        unsigned n_in_row = 0; // packets with rising numbers, kMovePackets at most
        zeb_ts_t last_at = 0;
    };

    struct rtcp_source {
        feedback_peer peer;
        zeb_ts_t last_at = 0;
    };

    struct sender {
        rtp_source rtp;
        std::optional<rtp_source> mover; // may be the sender at another address
        std::optional<rtcp_source> rtcp;
    };

    // RTCP that came from nobody who was known to send RTP.
    struct announcement {
        feedback_peer peer;
        std::vector<uint32_t> ssrcs;
    };

    static rtp_source source_begin(const feedback_peer &peer, uint16_t seq, zeb_ts_t now);
    static void source_advance(rtp_source *source, uint16_t seq, zeb_ts_t now);
    static bool may_be_forgotten(const sender &one, zeb_ts_t now);
    bool make_room(zeb_ts_t now);
    static bool mover_advance(sender *known, const rtp_source &next, zeb_ts_t now);
    void move(uint32_t ssrc, sender *known, const rtp_source &to);
    void adopt_announcement(uint32_t ssrc, sender *known);
    void learn_rtcp(sender *known, const feedback_peer &peer, zeb_ts_t now) const;
    void announce(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs);
    const announcement *announcement_for(const sender &one) const;
    bool has_sender_on_host(const feedback_peer &peer) const;

    bool are_authentic_;
    std::optional<feedback_peer> named_;
    std::map<uint32_t, sender> senders_; // by SSRC
    std::deque<announcement> announcements_;
};

constexpr size_t kFeedbackSendersMax = 256;
constexpr unsigned kMovePackets = 10;
constexpr zeb_ts_t kMoveSilence = 1000;   // milliseconds
constexpr zeb_ts_t kSenderSilence = 5000; // milliseconds
constexpr zeb_ts_t kRtcpSilence = 25'000; // milliseconds: five report intervals (RFC 3550, 6.3.5)

// Reads "HOST:PORT" or "[ADDRESS]:PORT"; names are looked up. Throws failure: wrong_usage for what is neither,
// no_access when there is no such host.
feedback_peer feedback_peer_parse(const std::string &text);

} // namespace vrc
