// Turns SRTP and SRTCP packets (RFC 3711, RFC 7714) into RTP and RTCP.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "capture/byte_view.h"
#include "srtp/srtp_context.h"
#include "srtp/srtp_search_budget.h"

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
// is not in its packets (RFC 3711, 3.3.1): it is found by trying, up to kSrtpRolloversMax times, with packets of at most
// 1500 bytes and within srtp_search_budget. The same goes for numbers that went around unheard.
class srtp_session
{
  public:
    // Each packet is tried with one key after the other. `seed` is for the choice of packets to search with. Throws
    // failure (wrong_usage) for a key that cannot be used.
    explicit srtp_session(const std::vector<sdp_crypto> &keys, uint32_t seed = std::random_device{}());
    srtp_session(const srtp_session &) = delete;
    srtp_session &operator=(const srtp_session &) = delete;

    // Replaces an SRTP or SRTCP packet (told apart by RFC 5761, 4) by what it protects, which is valid until the next
    // call. Returns false when the packet is to be dropped; it is counted then. What is neither stays as it is. The time
    // is in milliseconds and never decreases.
    bool unprotect(const endpoint &from, byte_view *packet, zeb_ts_t now);

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

    // Trial decryptions that searches took.
    uint64_t search_trials() const
    {
        return search_trials_;
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

    verdict unprotect_with(const srtp_context &with, byte_view packet, bool is_rtcp);
    verdict try_keys(byte_view packet, bool is_rtcp);
    bool find_ahead(const endpoint &from, byte_view packet, zeb_ts_t now);
    bool search_rollovers(byte_view packet);
    bool search_rollovers_with(const used_key &with, byte_view packet);
    void count(verdict result);

    std::vector<used_key> keys_;
    std::vector<uint8_t> plain_;
    srtp_search_budget budget_;
    uint64_t search_trials_ = 0;
    size_t last_key_ = 0;
    srtp_counts counts_;
};

// A sender with 1000 packets a second wraps around that often in 18 hours.
constexpr uint32_t kSrtpRolloversMax = 1024;

} // namespace vrc
