// Ranges of IP addresses that datagrams are taken from.
#pragma once

#include <string>
#include <vector>

#include "capture/datagram_parser.h"

namespace vrc
{

// The addresses that share their first `prefix` bits with `base`.
struct address_range {
    ip_address base;
    unsigned prefix = 0; // bits: 0 to 32 for IPv4, to 128 for IPv6
};

// Reads "192.0.2.0/24", "2001:db8::/32" or an address alone (RFC 4632, 3.1; RFC 4291, 2.3). Throws failure (wrong_usage)
// for anything else, bits behind the prefix included.
address_range address_range_parse(const std::string &text);

// Whether one of them holds the address. Without ranges every address is held.
bool address_is_held(const std::vector<address_range> &ranges, const ip_address &address);

} // namespace vrc
