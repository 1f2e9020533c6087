#include "live/udp_sockets.h"

#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vrc
{
namespace
{

// A key frame comes as a burst; the system's own choice holds a small one. Bytes.
constexpr int kReceiveBufferSize = 4 << 20;

sockaddr_storage address_parse(const std::string &text, uint16_t port)
{
    sockaddr_storage address{};
    if (uv_ip4_addr(text.c_str(), port, reinterpret_cast<sockaddr_in *>(&address)) != 0 &&
        uv_ip6_addr(text.c_str(), port, reinterpret_cast<sockaddr_in6 *>(&address)) != 0) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}' is no IPv4 or IPv6 address", text));
    }
    return address;
}

sockaddr_storage address_copy(const sockaddr *address)
{
    sockaddr_storage copy{};
    std::memcpy(&copy, address, address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
    return copy;
}

endpoint endpoint_make(const sockaddr_storage &address)
{
    endpoint where;
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        where.address.is_v6 = true;
        std::memcpy(where.address.bytes.data(), &v6.sin6_addr, sizeof v6.sin6_addr);
        where.port = ntohs(v6.sin6_port);
    } else {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        std::memcpy(where.address.bytes.data(), &v4.sin_addr, sizeof v4.sin_addr);
        where.port = ntohs(v4.sin_port);
    }
    return where;
}

} // namespace

udp_sockets::udp_sockets(event_loop *loop, taker on_arrival, const udp_limits &limits)
    : loop_(loop), on_arrival_(std::move(on_arrival)), limits_(limits), buffer_(limits.datagram_max)
{
}

udp_sockets::~udp_sockets() = default;

void udp_sockets::provide_buffer(uv_handle_t *handle, size_t /*suggested_size*/, uv_buf_t *buffer)
{
    udp_sockets *self = static_cast<port *>(handle->data)->owner;
    *buffer = uv_buf_init(self->buffer_.data(), static_cast<unsigned>(self->buffer_.size()));
}

void udp_sockets::take(uv_udp_t *handle, ssize_t size, const uv_buf_t *buffer, const sockaddr *from, unsigned flags)
{
    if (size < 0 || from == nullptr) {
        return; // nothing more to read, or an error that concerns no datagram
    }
    const port *where = static_cast<port *>(handle->data);
    const endpoint source = endpoint_make(address_copy(from));
    udp_refusals *refused = &where->owner->refused_;
    if (!address_is_held(where->owner->limits_.from, source.address)) {
        ++refused->foreign;
        return;
    }
    if ((flags & UV_UDP_PARTIAL) != 0) {
        ++refused->too_large;
        return;
    }
    udp_arrival arrival{where->role, {}, {address_copy(from), where->binding}};
    arrival.datagram.path = {source, where->local};
    arrival.datagram.payload = {reinterpret_cast<const uint8_t *>(buffer->base), static_cast<size_t>(size)};
    where->owner->on_arrival_(arrival);
}

std::unique_ptr<udp_sockets::port> udp_sockets::port_open(udp_role role, const sockaddr_storage &address, int *error)
{
    auto opened = std::make_unique<port>();
    opened->owner = this;
    opened->role = role;
    opened->binding = bindings_.size();
    opened->local = endpoint_make(address);
    opened->socket = loop_->make<uv_udp_t>(uv_udp_init, opened.get());
    // Otherwise :: would take the port of 0.0.0.0 as well.
    const unsigned flags = address.ss_family == AF_INET6 ? UV_UDP_IPV6ONLY : 0;
    *error = uv_udp_bind(opened->socket.get(), reinterpret_cast<const sockaddr *>(&address), flags);
    if (*error == 0) {
        int size = kReceiveBufferSize;
        uv_recv_buffer_size(reinterpret_cast<uv_handle_t *>(opened->socket.get()), &size); // as much as there is
        *error = uv_udp_recv_start(opened->socket.get(), provide_buffer, take);
    }
    return opened;
}

int udp_sockets::bind(const std::string &address, uint16_t rtp_port, uint16_t rtcp_port, std::string *place)
{
    binding added;
    int error = 0;
    added.rtp = port_open(udp_role::rtp, address_parse(address, rtp_port), &error);
    *place = endpoint_name(added.rtp->local);
    if (error == 0 && rtcp_port != 0 && rtcp_port != rtp_port) {
        added.rtcp = port_open(udp_role::rtcp, address_parse(address, rtcp_port), &error);
        *place = error == 0 ? *place : endpoint_name(added.rtcp->local);
    }
    if (error == 0) {
        name_ += (name_.empty() ? "" : ", ") + *place;
        bindings_.push_back(std::move(added));
    }
    return error;
}

const udp_sockets::port *udp_sockets::port_for(const feedback_peer &to) const
{
    const bool is_v6 = to.address.ss_family == AF_INET6;
    const auto found = std::find_if(bindings_.begin(), bindings_.end(), [&](const binding &one) {
        return to.binding ? one.rtp->binding == *to.binding : one.rtp->local.address.is_v6 == is_v6;
    });
    if (found == bindings_.end()) {
        return nullptr;
    }
    return found->rtcp ? found->rtcp.get() : found->rtp.get();
}

int udp_sockets::send_rtcp(const feedback_peer &to, byte_view datagram)
{
    const port *from = port_for(to);
    if (from == nullptr) {
        return UV_EAFNOSUPPORT;
    }
    // libuv takes a pointer to bytes that may change, and leaves them alone.
    char *bytes = const_cast<char *>(reinterpret_cast<const char *>(datagram.data()));
    const uv_buf_t buffer = uv_buf_init(bytes, static_cast<unsigned>(datagram.size()));
    const int result = uv_udp_try_send(from->socket.get(), &buffer, 1, reinterpret_cast<const sockaddr *>(&to.address));
    return result < 0 ? result : 0;
}

} // namespace vrc
