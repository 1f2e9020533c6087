#include "feedback_address.h"

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

constexpr size_t kSendersMax = 256;

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

feedback_address::sender *feedback_address::find_or_add(uint32_t ssrc)
{
    const auto found = senders_.find(ssrc);
    if (found != senders_.end()) {
        return &found->second;
    }
    return senders_.size() < kSendersMax ? &senders_[ssrc] : nullptr;
}

void feedback_address::note_rtp(const feedback_peer &peer, uint32_t ssrc)
{
    last_rtp_ = peer;
    if (sender *known = find_or_add(ssrc)) {
        known->rtp = peer;
        if (known->rtcp && known->rtcp_order == announced_order_) {
            announced_.reset(); // now one knows whose it was
        }
    }
}

void feedback_address::note_rtcp(const feedback_peer &peer, const std::vector<uint32_t> &ssrcs)
{
    ++order_;
    bool is_of_sender = false;
    for (const uint32_t ssrc : ssrcs) {
        if (sender *known = find_or_add(ssrc)) {
            known->rtcp = peer;
            known->rtcp_order = order_;
            is_of_sender = is_of_sender || known->rtp;
        }
    }
    if (!is_of_sender) {
        announced_ = peer;
        announced_order_ = order_;
    }
}

// RTCP that names no sender is taken for that of the senders on the same host; from a host without any, for everybody's.
bool feedback_address::is_announced_for(const sender &one) const
{
    if (!announced_ || (one.rtcp && (trusts_senders_only_ || one.rtcp_order >= announced_order_))) {
        return false;
    }
    const auto is_of_host = [this](const auto &entry) {
        return entry.second.rtp && is_same_host(*entry.second.rtp, *announced_);
    };
    return (one.rtp && is_same_host(*one.rtp, *announced_)) ||
           std::none_of(senders_.begin(), senders_.end(), is_of_host);
}

std::optional<feedback_peer> feedback_address::get(uint32_t ssrc) const
{
    if (named_) {
        return named_;
    }
    const auto found = senders_.find(ssrc);
    const sender one = found != senders_.end() ? found->second : sender();
    if (is_announced_for(one)) {
        return announced_;
    }
    return one.rtcp ? one.rtcp : one.rtp ? one.rtp : last_rtp_;
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
