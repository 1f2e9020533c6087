// The UDP ports that are listened on.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "capture/datagram_parser.h"
#include "live/address_range.h"
#include "live/event_loop.h"
#include "live/feedback_address.h"

namespace vrc
{

enum class udp_role {
    rtp,
    rtcp
};

struct udp_arrival {
    udp_role role;         // of the port that it came to
    udp_datagram datagram; // the bytes are valid during the call
    feedback_peer from;
};

// What is taken from strangers.
struct udp_limits {
    size_t datagram_max = 9216;      // bytes: what the largest Ethernet frames carry, with room
    std::vector<address_range> from; // others are not listened to; empty: everybody is
};

// Datagrams that were ignored before anything was parsed.
struct udp_refusals {
    uint64_t foreign = 0;   // from elsewhere than `udp_limits::from`
    uint64_t too_large = 0; // above `udp_limits::datagram_max`
};

class udp_sockets
{
  public:
    using taker = std::function<void(const udp_arrival &arrival)>;

    // `loop` must outlive the object. `on_arrival` is called from the loop and must not throw.
    udp_sockets(event_loop *loop, taker on_arrival, const udp_limits &limits);
    ~udp_sockets();
    udp_sockets(const udp_sockets &) = delete;
    udp_sockets &operator=(const udp_sockets &) = delete;

    // Listens on one more address of the host. With `rtcp_port` equal to `rtp_port` both come to one port; 0: there is
    // no RTCP. Returns 0 or libuv's error code, and where that happened in `*place`. Throws failure (wrong_usage)
    // when `address` is no IPv4 or IPv6 address.
    int bind(const std::string &address, uint16_t rtp_port, uint16_t rtcp_port, std::string *place);

    // Sends from the RTCP port. Returns 0 or libuv's error code; UV_EAFNOSUPPORT when no address that is listened on
    // is of the peer's IP version.
    int send_rtcp(const feedback_peer &to, byte_view datagram);

    const udp_refusals &refused() const
    {
        return refused_;
    }

    // The addresses with the RTP port, comma-separated.
    const std::string &name() const
    {
        return name_;
    }

  private:
    struct port {
        udp_sockets *owner = nullptr;
        udp_role role = udp_role::rtp;
        size_t binding = 0;
        endpoint local;
        handle_ptr<uv_udp_t> socket;
    };

    struct binding {
        std::unique_ptr<port> rtp;
        std::unique_ptr<port> rtcp; // null when it shares the port, or there is none
    };

    static void provide_buffer(uv_handle_t *handle, size_t suggested_size, uv_buf_t *buffer);
    static void take(uv_udp_t *handle, ssize_t size, const uv_buf_t *buffer, const sockaddr *from, unsigned flags);
    std::unique_ptr<port> port_open(udp_role role, const sockaddr_storage &address, int *error);
    const port *port_for(const feedback_peer &to) const;

    event_loop *loop_;
    taker on_arrival_;
    std::vector<binding> bindings_;
    std::string name_;
    udp_limits limits_;
    udp_refusals refused_;
    std::vector<char> buffer_; // of one datagram
};

} // namespace vrc
