// Keys for SRTP as people write them.
#pragma once

#include <string>

#include "sdp.h"

namespace vrc
{

// "SUITE:KEY": the suite's name (RFC 4568, 6.2; RFC 7714, 14.2), and master key and salt together in base64, with
// lifetime and master key identifier behind them if need be, as behind "inline:" in a session description
// (RFC 4568, 6.1). Throws failure (wrong_usage), saying what is wrong.
sdp_crypto srtp_key_parse(const std::string &text);

// The same with master key and salt in hexadecimal.
sdp_crypto srtp_key_parse_hex(const std::string &text);

} // namespace vrc
