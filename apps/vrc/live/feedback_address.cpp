#include "live/feedback_address.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>

#include "failure.h"

namespace vrc
{
namespace
{

// RTCP that is remembered until RTP comes from its host, and the senders that are remembered with it.
constexpr size_t kAnnouncementsMax = 64;
constexpr size_t kAnnouncedSendersMax = 8;

// Packets that are further apart are not in a row.
constexpr uint16_t kGapMax = 100;

bool is_same_host(const feedback_peer &left, const feedback_peer &right)
{
    if (left.address.ss_family != right.address.ss_family) {
        return false;
    }
    if (left.address.ss_family == AF_INET6) {
        const auto *one = reinterpret_cast<const sockaddr_in6 *>(&left.address);
        const auto *other = reinterpret_cast<const sockaddr_in6 *>(&right.address);
        return std::memcmp(&one->sin6_addr, &other->sin6_addr, sizeof one->sin6_addr) == 0;
    }
    const auto *one = reinterpret_cast<const sockaddr_in *>(&left.address);
    const auto *other = reinterpret_cast<const sockaddr_in *>(&right.address);
    return one->sin_addr.s_addr == other->sin_addr.s_addr;
}

uint16_t port_of(const feedback_peer &peer)
{
    return peer.address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6 *>(&peer.address)->sin6_port
                                              : reinterpret_cast<const sockaddr_in *>(&peer.address)->sin_port;
}

bool is_same(const feedback_peer &left, const feedback_peer &right)
{
    return is_same_host(left, right) && port_of(left) == port_of(right);
}

struct host_and_port {
    std::string host;
    std::string port;
};

bool is_port(const std::string &text)
{
    uint16_t port = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && stop == end && port != 0;
}

std::optional<host_and_port> split(const std::string &text)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    host_and_port parts{text.substr(0, colon), text.substr(colon + 1)};
    const bool is_bracketed = parts.host.front() == '[' && parts.host.back() == ']';
    if (is_bracketed) {
        parts.host = parts.host.substr(1, parts.host.size() - 2);
    }
    // Without brackets one cannot tell the port from the address' last number.
    const bool is_ambiguous = !is_bracketed && parts.host.find(':') != std::string::npos;
    if (parts.host.empty() || is_ambiguous || !is_port(parts.port)) {
        return std::nullopt;
    }
    return parts;
}

} // namespace

feedback_address::rtp_source feedback_address::source_begin(const feedback_peer &peer, uint16_t seq, zeb_ts_t now)
{
    return {peer, seq, 1, now};
}

// What comes late or twice changes nothing, what is far off begins anew.
void feedback_address::source_advance(rtp_source *source, uint16_t seq, zeb_ts_t now)
{
    source->last_at = now;
    const auto ahead = static_cast<uint16_t>(seq - source->seq);
    if (ahead == 0 || ahead > UINT16_MAX - kGapMax) {
        return;
    }
    source->n_in_row = ahead > kGapMax ? 1 : std::min(source->n_in_row + 1, kMovePackets);
    source->seq = seq;
}

bool feedback_address::may_be_forgotten(const sender &one, zeb_ts_t now)
{
    return one.rtp.n_in_row < kMovePackets || now - one.rtp.last_at >= kSenderSilence;
}

// Forgets the one that has been silent for the longest time of those that may be.
bool feedback_address::make_room(zeb_ts_t now)
{
    if (senders_.size() < kFeedbackSendersMax) {
        return true;
    }
    auto oldest = senders_.end();
    for (auto one = senders_.begin(); one != senders_.end(); ++one) {
        if (may_be_forgotten(one->second, now) &&
            (oldest == senders_.end() || one->second.rtp.last_at < oldest->second.rtp.last_at)) {
            oldest = one;
        }
    }
    if (oldest == senders_.end()) {
        return false;
    }
    senders_.erase(oldest);
    return true;
}

void feedback_address::note_rtp(const feedback_peer &peer, uint32_t ssrc, uint16_t seq, zeb_ts_t now)
{
    const auto found = senders_.find(ssrc);
    if (found == senders_.end()) {
        if (make_room(now)) {
            move(ssrc, &senders_[ssrc], source_begin(peer, seq, now));
        }
        return;
    }
    sender *known = &found->second;
    if (is_same(known->rtp.peer, peer)) {
        known->rtp.peer = peer;
        source_advance(&known->rtp, seq, now);
    } else if (are_authentic_) {
        move(ssrc, known, source_begin(peer, seq, now));
    } else if (mover_advance(known, source_begin(peer, seq, now), now)) {
        move(ssrc, known, *known->mover);
    }
}

// Returns whether the sender is at the other address now. A third address counts when nothing came from the second one for
// a while.
bool feedback_address::mover_advance(sender *known, const rtp_source &next, zeb_ts_t now)
{
    std::optional<rtp_source> *mover = &known->mover;
    if (*mover && is_same((*mover)->peer, next.peer)) {
        source_advance(&**mover, next.seq, now);
    } else if (!*mover || now - (*mover)->last_at >= kMoveSilence) {
        *mover = next;
    }
    const bool is_old_one_gone = known->rtp.n_in_row < kMovePackets || now - known->rtp.last_at >= kMoveSilence;
    return (*mover)->n_in_row == kMovePackets && is_old_one_gone;
}

void feedback_address::move(uint32_t ssrc, sender *known, const rtp_source &to)
{
    const rtp_source source = to;
    if (known->rtcp && !is_same_host(known->rtcp->peer, source.peer)) {
        known->rtcp.reset();
    }
    known->rtp = source;
    known->mover.reset();
    adopt_announcement(ssrc, known);
}

// What was said in the sender's name before it was known. The first to say it is believed, as after that.
void feedback_address::adopt_announcement(uint32_t ssrc, sender *known)
{
    const auto is_of_sender = [&](const announcement &one) {
        const bool is_named = std::find(one.ssrcs.begin(), one.ssrcs.end(), ssrc) != one.ssrcs.end();
        return is_named && (are_authentic_ || is_same_host(one.peer, known->rtp.peer));
    };
    const auto found = std::find_if(announcements_.begin(), announcements_.end(), is_of_sender);
    if (found != announcements_.end()) {
        learn_rtcp(known, found->peer, known->rtp.last_at);
        announcements_.erase(found);
    }
}

void feedback_address::learn_rtcp(sender *known, const feedback_peer &peer, zeb_ts_t now) const
{
    const bool is_free = !known->rtcp || is_same(known->rtcp->peer, peer) || now - known->rtcp->last_at >= kRtcpSilence;
    if (are_authentic_ || (is_free && is_same_host(known->rtp.peer, peer))) {
        known->rtcp = {peer, now};
    }
}

void feedback_address::note_rtcp(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs, zeb_ts_t now)
{
    bool is_of_sender = false;
    for (const uint32_t ssrc : ssrcs) {
        const auto found = senders_.find(ssrc);
        if (found != senders_.end()) {
            learn_rtcp(&found->second, peer, now);
            is_of_sender = true;
        }
    }
    if (!is_of_sender) {
        announce(peer, ssrcs);
    }
}

bool feedback_address::has_sender_on_host(const feedback_peer &peer) const
{
    return std::any_of(senders_.begin(), senders_.end(),
                       [&](const auto &entry) { return is_same_host(entry.second.rtp.peer, peer); });
}

// When there is no room, hosts without a sender are forgotten first.
void feedback_address::announce(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs)
{
    const auto n_kept = static_cast<std::ptrdiff_t>(std::min(ssrcs.size(), kAnnouncedSendersMax));
    const announcement said{peer, {ssrcs.begin(), ssrcs.begin() + n_kept}};
    const auto before = std::find_if(announcements_.begin(), announcements_.end(),
                                     [&](const announcement &one) { return is_same(one.peer, peer); });
    if (before != announcements_.end()) {
        *before = said;
        return;
    }
    if (announcements_.size() == kAnnouncementsMax) {
        const auto strange = std::find_if(announcements_.begin(), announcements_.end(),
                                          [this](const announcement &one) { return !has_sender_on_host(one.peer); });
        announcements_.erase(strange != announcements_.end() ? strange : announcements_.begin());
    }
    announcements_.push_back(said);
}

// RTCP that names no sender of RTP is taken for that of the senders on its host. The newest counts.
const feedback_address::announcement *feedback_address::announcement_for(const sender &one) const
{
    const auto is_known = [this](uint32_t ssrc) { return senders_.count(ssrc) > 0; };
    const auto is_for_sender = [&](const announcement &said) {
        return is_same_host(said.peer, one.rtp.peer) && std::none_of(said.ssrcs.begin(), said.ssrcs.end(), is_known);
    };
    const auto found = std::find_if(announcements_.rbegin(), announcements_.rend(), is_for_sender);
    return found != announcements_.rend() ? &*found : nullptr;
}

std::optional<feedback_peer> feedback_address::get(uint32_t ssrc) const
{
    const auto found = senders_.find(ssrc);
    if (named_ || found == senders_.end()) {
        return named_;
    }
    if (found->second.rtcp) {
        return found->second.rtcp->peer;
    }
    const announcement *said = announcement_for(found->second);
    return said != nullptr ? said->peer : found->second.rtp.peer;
}

feedback_peer feedback_peer_parse(const std::string &text)
{
    const std::optional<host_and_port> parts = split(text);
    if (!parts) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}' is no HOST:PORT or [ADDRESS]:PORT", text));
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo *list = nullptr;
    const int error = getaddrinfo(parts->host.c_str(), parts->port.c_str(), &hints, &list);
    if (error != 0) {
        throw failure(exit_code::no_access, fmt::format("cannot find host '{}': {}", parts->host, gai_strerror(error)));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(list, freeaddrinfo);
    feedback_peer peer;
    std::memcpy(&peer.address, list->ai_addr, list->ai_addrlen);
    return peer;
}

} // namespace vrc
