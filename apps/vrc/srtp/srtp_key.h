// Keys for SRTP as people write them.
#pragma once

#include <string>
#include <vector>

#include "sdp.h"

namespace vrc
{

// "SUITE:KEY": the suite's name (RFC 4568, 6.2; RFC 7714, 14.2), and master key and salt together in base64, with
// lifetime and master key identifier behind them if need be, as behind "inline:" in a session description
// (RFC 4568, 6.1). "SUITE:hex:KEY" has key and salt in hexadecimal. Throws failure (wrong_usage), saying what is wrong.
sdp_crypto srtp_key_parse(const std::string &text);

// The same with master key and salt in hexadecimal.
sdp_crypto srtp_key_parse_hex(const std::string &text);

// The keys in a text, as srtp_key_parse takes them, with white space between them. Throws as that does, also when there is
// none.
std::vector<sdp_crypto> srtp_keys_parse(const std::string &text);

// The keys in a file: one a line; empty lines and those that begin with "#" say nothing. Throws failure: no_access when the
// file cannot be read, wrong_usage with the line for what is no key, and when there is none.
std::vector<sdp_crypto> srtp_keys_read(const std::string &path);

// A warning when others than the owner can read the file; empty when they cannot.
std::string srtp_key_file_warning(const std::string &path);

} // namespace vrc
