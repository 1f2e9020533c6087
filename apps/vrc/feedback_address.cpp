#include "feedback_address.h"

#include <fmt/format.h>
#include <netdb.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>

#include "failure.h"

namespace vrc
{
namespace
{

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
