#include "live/listen_media.h"

#include <fmt/format.h>

#include <new>
#include <utility>

#include "wire/rtcp.h"

namespace vrc
{
namespace
{

// The senders that a datagram comes from, as far as it is RTCP and says so.
std::vector<uint32_t> rtcp_senders(byte_view datagram)
{
    std::vector<uint32_t> ssrcs;
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
        if (item.kind == RTCP_ITEM_SENDER_REPORT || item.kind == RTCP_ITEM_RECEIVER_REPORT) {
            ssrcs.push_back(item.ssrc);
        }
    }
    return ssrcs;
}

// Whether its sender may have a socket for RTCP: it is RTCP, or the empty RTP packet with which some gateways open the
// path before they send anything else.
bool shows_socket(byte_view datagram)
{
    rtp_view view{};
    return rtcp_validate(datagram.data(), datagram.size()) ||
           rtp_parse(datagram.data(), datagram.size(), &view) == PACKET_DROP_REASONS;
}

} // namespace

media_counts &media_counts::operator+=(const media_counts &more)
{
    rtp_datagrams += more.rtp_datagrams;
    rtcp_datagrams += more.rtcp_datagrams;
    rtcp_sent += more.rtcp_sent;
    rtcp_unsent += more.rtcp_unsent;
    return *this;
}

listen_media::listen_media(const listen_section &section, const std::optional<sdp_crypto> &sending_key,
                           const std::optional<feedback_peer> &named_peer, media_outputs outputs)
    : outputs_(std::move(outputs)), is_muxed_(section.rtp_port == section.rtcp_port), srtp_(section.keys),
      feedback_to_(srtp_.has_keys()),
      receiver_(section.config, {[this](const channel_frame &frame) { outputs_.on_frame(frame); },
                                 [this](uint32_t ssrc, byte_view datagram) { send(ssrc, datagram); }})
{
    if (named_peer) {
        feedback_to_.name(*named_peer);
    }
    if (sending_key) {
        protectors_.emplace_back(*sending_key);
        return;
    }
    for (const sdp_crypto &key : section.keys) {
        protectors_.emplace_back(key);
    }
}

void listen_media::take(const udp_arrival &arrival, zeb_ts_t now)
{
    udp_datagram datagram = arrival.datagram;
    const bool is_authentic = srtp_.unprotect(datagram.path.source, &datagram.payload, now);
    const byte_view bytes = datagram.payload;
    // Who does not agree on one port for both may still use one.
    const bool is_rtcp =
        arrival.role == udp_role::rtcp || (is_muxed_ ? rtcp_is_rtcp(bytes.data(), bytes.size())
                                                     : is_authentic && rtcp_validate(bytes.data(), bytes.size()));
    ++(is_rtcp ? counts_.rtcp_datagrams : counts_.rtp_datagrams);
    if (is_authentic) {
        outputs_.on_datagram(datagram);
    }
    if (is_rtcp && is_authentic) {
        take_rtcp(arrival, bytes, now);
    } else if (is_authentic) {
        take_rtp(arrival, datagram, now);
    }
}

void listen_media::take_rtp(const udp_arrival &arrival, const udp_datagram &datagram, zeb_ts_t now)
{
    rtp_view view{};
    if (rtp_parse(datagram.payload.data(), datagram.payload.size(), &view) == PACKET_DROP_REASONS) {
        feedback_to_.note_rtp(arrival.from, view.ssrc, view.seq, now);
        if (srtp_.has_keys()) {
            key_of_[view.ssrc] = srtp_.last_key();
        }
    }
    receiver_.receive_rtp(datagram, now);
}

void listen_media::take_rtcp(const udp_arrival &arrival, byte_view datagram, zeb_ts_t now)
{
    if (shows_socket(datagram)) {
        feedback_to_.note_rtcp(arrival.from, rtcp_senders(datagram), now);
    }
    receiver_.receive_rtcp(datagram, now);
}

// With its own key, or with the one that the sender uses.
byte_view listen_media::protect(uint32_t ssrc, byte_view datagram)
{
    const auto found = key_of_.find(ssrc);
    const size_t key = found != key_of_.end() ? found->second : 0;
    return protectors_[key < protectors_.size() ? key : 0].protect(datagram);
}

bool listen_media::try_send(uint32_t ssrc, byte_view datagram)
{
    const std::optional<feedback_peer> to = feedback_to_.get(ssrc);
    const byte_view bytes = protectors_.empty() ? datagram : protect(ssrc, datagram);
    return to && !bytes.empty() && outputs_.send_rtcp(*to, bytes);
}

// Called from within the receiver, through which nothing may be thrown. What cannot be sent now is not worth sending
// later.
void listen_media::send(uint32_t ssrc, byte_view datagram) noexcept
{
    bool is_sent = false;
    try {
        is_sent = try_send(ssrc, datagram);
    } catch (const std::bad_alloc &) {
        is_sent = false;
    }
    ++(is_sent ? counts_.rtcp_sent : counts_.rtcp_unsent);
}

std::string listen_media::wrong_key_reason() const
{
    const srtp_counts &seen = srtp_.counts();
    if (seen.decrypted > 0 || seen.not_authentic == 0) {
        return "";
    }
    return fmt::format("none of {} SRTP packets is authentic under the keys given: check suite and key",
                       seen.not_authentic);
}

std::string listen_media::no_video_reason() const
{
    if (counts_.rtp_datagrams == 0) {
        return "no RTP came";
    }
    const std::string reason = wrong_key_reason();
    return reason.empty() ? receiver_.no_video_reason() : reason;
}

} // namespace vrc
