// Turns RTCP into SRTCP (RFC 3711, 3.4).
#pragma once

#include <cstdint>
#include <vector>

#include "capture/byte_view.h"
#include "srtp/srtp_context.h"

namespace vrc
{

class srtp_protector
{
  public:
    // Throws failure (wrong_usage) for a key that cannot be used.
    explicit srtp_protector(const sdp_crypto &key) : context_(srtp_context_outgoing(key))
    {
    }

    // What protects a well-formed RTCP datagram, valid until the next call; empty when libsrtp refuses it: it is too large,
    // or the key has been used for as long as it may be.
    byte_view protect(byte_view datagram);

  private:
    srtp_context context_;
    std::vector<uint8_t> protected_;
};

} // namespace vrc
