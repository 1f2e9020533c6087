// One video that is listened to: decrypts what comes to its ports, receives it, and sends feedback from there.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "live/feedback_address.h"
#include "live/listen_session.h"
#include "live/live_receiver.h"
#include "live/udp_sockets.h"
#include "srtp/srtp_protector.h"
#include "srtp/srtp_session.h"

namespace vrc
{

struct media_counts {
    uint64_t rtp_datagrams = 0;
    uint64_t rtcp_datagrams = 0;
    uint64_t rtcp_sent = 0;
    uint64_t rtcp_unsent = 0; // there was nobody to send it to, or the system refused

    media_counts &operator+=(const media_counts &more);
};

// None of them may throw.
struct media_outputs {
    std::function<void(const channel_frame &frame)> on_frame;                   // of any sender
    std::function<void(const udp_datagram &datagram)> on_datagram;              // RTP and RTCP that came, decrypted
    std::function<bool(const feedback_peer &to, byte_view datagram)> send_rtcp; // false when it was not sent
};

class listen_media
{
  public:
    // `named_peer` is where RTCP is to be sent; none: whoever is heard from. Throws failure (wrong_usage) for keys that
    // cannot be used, and std::bad_alloc.
    listen_media(const listen_section &section, const std::optional<sdp_crypto> &sending_key,
                 const std::optional<feedback_peer> &named_peer, media_outputs outputs);
    listen_media(const listen_media &) = delete;
    listen_media &operator=(const listen_media &) = delete;

    // The time is in milliseconds, never decreases and is not 0.
    void take(const udp_arrival &arrival, zeb_ts_t now);

    // Runs what is due and returns when to call again, later than `now`.
    zeb_ts_t tick(zeb_ts_t now)
    {
        return receiver_.tick(now);
    }

    // When what came since wants it to be called, if sooner than it said; may be past.
    zeb_ts_t next_at() const
    {
        return receiver_.next_at();
    }

    const live_receiver &receiver() const
    {
        return receiver_;
    }

    const media_counts &counts() const
    {
        return counts_;
    }

    const srtp_counts &decryption() const
    {
        return srtp_.counts();
    }

    // That every packet was encrypted with another key than those given, in words; empty when that is not so.
    std::string wrong_key_reason() const;

    // Why no frame came out, in words; empty when the summary says it.
    std::string no_video_reason() const;

  private:
    void take_rtp(const udp_arrival &arrival, const udp_datagram &datagram, zeb_ts_t now);
    void take_rtcp(const udp_arrival &arrival, byte_view datagram, zeb_ts_t now);
    bool try_send(uint32_t ssrc, byte_view datagram);
    void send(uint32_t ssrc, byte_view datagram) noexcept;
    byte_view protect(uint32_t ssrc, byte_view datagram);

    media_outputs outputs_;
    bool is_muxed_;
    srtp_session srtp_;
    std::vector<srtp_protector> protectors_; // one for all, or one for each key of `srtp_`
    std::map<uint32_t, size_t> key_of_;      // by SSRC: which of the keys the sender was heard with
    feedback_address feedback_to_;
    live_receiver receiver_;
    media_counts counts_;
};

} // namespace vrc
