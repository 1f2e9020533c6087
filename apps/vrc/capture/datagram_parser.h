// Finds the UDP datagram in a captured frame.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <tuple>

#include "capture/byte_view.h"

namespace vrc
{

// An IPv4 or IPv6 address; IPv4 uses the first four bytes and leaves the rest 0.
struct ip_address {
    bool is_v6 = false;
    std::array<uint8_t, 16> bytes{};
};

struct endpoint {
    ip_address address;
    uint16_t port = 0;
};

// One direction between two endpoints.
struct flow {
    endpoint source;
    endpoint destination;
};

inline auto flow_key(const flow &path)
{
    return std::tie(path.source.address.is_v6, path.source.address.bytes, path.source.port,
                    path.destination.address.is_v6, path.destination.address.bytes, path.destination.port);
}

struct udp_datagram {
    flow path;
    byte_view payload; // into the frame
};

// What a captured frame turned out to hold.
enum class frame_kind {
    udp,
    not_ip,
    not_udp,
    fragment,  // of an IP packet; fragments are not put together
    truncated, // whole on the wire, but the capture kept too little of it
    damaged,   // lengths or versions that contradict each other
};

// True for the link types that datagram_parse reads: Ethernet, Linux cooked v1 and v2, raw IP, BSD loopback.
// `link_type` is a DLT_ value of libpcap.
bool link_type_is_known(int link_type);

// Looks for a UDP datagram behind the link header, VLAN tags (802.1Q, 802.1ad), IPv4 with options or IPv6 with
// extension headers. `*datagram` is filled when the result is frame_kind::udp and untouched otherwise.
// Never reads beyond `frame`.
frame_kind datagram_parse(int link_type, byte_view frame, udp_datagram *datagram);

// "192.0.2.1:5004", "[2001:db8::1]:5004".
std::string endpoint_name(const endpoint &where);

} // namespace vrc
