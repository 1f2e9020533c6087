// Turns SRTP and SRTCP packets (RFC 3711, RFC 7714) into RTP and RTCP.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "byte_view.h"
#include "sdp.h"

struct srtp_ctx_t_;

namespace vrc
{

struct srtp_counts {
    uint64_t decrypted = 0;
    uint64_t not_authentic = 0; // under none of the keys
    uint64_t replayed = 0;      // came before, or too old to tell
    uint64_t malformed = 0;     // too short, or headers that contradict themselves
};

// Decrypts for every sender (SSRC) apart. A sender's packets have to be seen from within its first 65536 numbers on:
// how often they wrapped around before is not in the packets (RFC 3711, 3.3.1).
class srtp_session
{
  public:
    // Each packet is tried with one key after the other. Throws failure (wrong_usage) for a key that cannot be used.
    explicit srtp_session(const std::vector<sdp_crypto> &keys);
    ~srtp_session();
    srtp_session(const srtp_session &) = delete;
    srtp_session &operator=(const srtp_session &) = delete;

    // Replaces an SRTP or SRTCP packet (told apart by RFC 5761, 4) by what it protects, which is valid until the next
    // call. Returns false when the packet is to be dropped; it is counted then. What is neither stays as it is.
    bool unprotect(byte_view *packet);

    const srtp_counts &counts() const
    {
        return counts_;
    }

  private:
    enum class verdict {
        decrypted,
        not_authentic,
        replayed,
        malformed
    };
    struct context {
        std::unique_ptr<srtp_ctx_t_, void (*)(srtp_ctx_t_ *)> srtp;
        size_t tag_size; // of an RTP packet, and of an RTCP packet
        size_t rtcp_tag_size;
        bool has_mki;
    };

    static context context_create(const sdp_crypto &key);
    verdict unprotect_with(const context &with, byte_view packet, bool is_rtcp);
    void count(verdict result);

    std::vector<context> contexts_;
    std::vector<uint8_t> plain_;
    srtp_counts counts_;
};

} // namespace vrc
