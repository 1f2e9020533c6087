// Turns SRTP and SRTCP packets (RFC 3711, RFC 7714) into RTP and RTCP.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "byte_view.h"
#include "srtp_context.h"

namespace vrc
{

struct srtp_counts {
    uint64_t decrypted = 0;
    uint64_t not_authentic = 0; // under none of the keys
    uint64_t replayed = 0;      // came before, or too old to tell
    uint64_t malformed = 0;     // too short, or headers that contradict themselves

    srtp_counts &operator+=(const srtp_counts &more);
};

// Decrypts for every sender (SSRC) apart. How often a sender's sequence numbers wrapped around before it was first heard
// is not in its packets (RFC 3711, 3.3.1): it is found by trying, up to kSrtpRolloversMax times. The same goes for
// numbers that went around unheard.
class srtp_session
{
  public:
    // Each packet is tried with one key after the other. Throws failure (wrong_usage) for a key that cannot be used.
    explicit srtp_session(const std::vector<sdp_crypto> &keys);
    srtp_session(const srtp_session &) = delete;
    srtp_session &operator=(const srtp_session &) = delete;

    // Replaces an SRTP or SRTCP packet (told apart by RFC 5761, 4) by what it protects, which is valid until the next
    // call. Returns false when the packet is to be dropped; it is counted then. What is neither stays as it is.
    bool unprotect(byte_view *packet);

    // Whether there are keys; without, every packet stays as it is.
    bool has_keys() const
    {
        return !keys_.empty();
    }

    // Which of the keys the packet came under that was decrypted last.
    size_t last_key() const
    {
        return last_key_;
    }

    const srtp_counts &counts() const
    {
        return counts_;
    }

  private:
    enum class verdict {
        decrypted,
        not_authentic,
        replayed,
        too_old, // to tell whether it was replayed
        malformed
    };

    struct used_key {
        sdp_crypto key;
        srtp_context context;
    };

    // Who sent what was not authentic, as far as one can say.
    struct suspect {
        uint64_t failures = 0; // since the last packet that was authentic
    };

    verdict unprotect_with(const srtp_context &with, byte_view packet, bool is_rtcp);
    verdict try_keys(byte_view packet, bool is_rtcp);
    bool may_search(uint32_t ssrc);
    bool search_rollovers(byte_view packet);
    bool search_rollovers_with(const used_key &with, byte_view packet);
    void count(verdict result);

    std::vector<used_key> keys_;
    std::vector<uint8_t> plain_;
    std::map<uint32_t, suspect> suspects_; // by SSRC
    unsigned vain_searches_ = 0;           // in a row
    size_t last_key_ = 0;
    srtp_counts counts_;
};

// A sender with 1000 packets a second wraps around that often in 18 hours.
constexpr uint32_t kSrtpRolloversMax = 1024;

} // namespace vrc
