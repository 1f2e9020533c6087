#include "srtp/srtp_context.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <srtp2/srtp.h>

#include <algorithm>
#include <array>

#include "failure.h"

namespace vrc
{
namespace
{

// Reordering that is borne, packets. The library's own 128 are few for a sender at 20 Mbit/s.
constexpr unsigned long kReplayWindow = 1024;

using policy_setter = void (*)(srtp_crypto_policy_t *);

struct suite_rules {
    policy_setter set_rtp;
    policy_setter set_rtcp;
    size_t tag_size;
    size_t rtcp_tag_size;
};

// SRTCP keeps the long tag where RTP has the short one (RFC 4568, 6.2.2). In the order of sdp_crypto_suite.
constexpr std::array<suite_rules, 4> kSuites{{
    {srtp_crypto_policy_set_rtp_default, srtp_crypto_policy_set_rtcp_default, 10, 10},
    {srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32, srtp_crypto_policy_set_rtcp_default, 4, 10},
    {srtp_crypto_policy_set_aes_gcm_128_16_auth, srtp_crypto_policy_set_aes_gcm_128_16_auth, 16, 16},
    {srtp_crypto_policy_set_aes_gcm_256_16_auth, srtp_crypto_policy_set_aes_gcm_256_16_auth, 16, 16},
}};
static_assert(SDP_AES_CM_128_HMAC_SHA1_80 == 0 && SDP_AEAD_AES_256_GCM == 3, "rows follow the suites");

void library_prepare()
{
    static const srtp_err_status_t status = srtp_init();
    if (status != srtp_err_status_ok) {
        throw failure(exit_code::no_access, fmt::format("cannot start SRTP: error {}", static_cast<int>(status)));
    }
}

void context_destroy(srtp_ctx_t_ *context)
{
    srtp_dealloc(context);
}

// The library's record of a key; it points into this one.
class key_policy
{
  public:
    key_policy(const sdp_crypto &key, srtp_ssrc_t senders) : identifier_(), masters_(&master_)
    {
        // The library wants them writable, and reads them only.
        std::copy_n(key.key, secret_.size(), secret_.begin());
        for (size_t i = 0; i < std::min<size_t>(key.mki_size, sizeof key.mki); ++i) {
            identifier_[key.mki_size - 1U - i] = static_cast<uint8_t>(key.mki >> (8 * i));
        }
        master_ = {secret_.data(), identifier_.data(), key.mki_size};
        kSuites[key.suite].set_rtp(&policy_.rtp);
        kSuites[key.suite].set_rtcp(&policy_.rtcp);
        policy_.ssrc = senders;
        policy_.keys = &masters_;
        policy_.num_master_keys = 1;
        policy_.window_size = kReplayWindow;
    }

    key_policy(const key_policy &) = delete;
    key_policy &operator=(const key_policy &) = delete;

    const srtp_policy_t *get() const
    {
        return &policy_;
    }

  private:
    std::array<uint8_t, kSdpKeySizeMax> secret_{};
    std::array<uint8_t, 128> identifier_; // as long as RFC 4568, 6.1 allows
    srtp_master_key_t master_{};
    srtp_master_key_t *masters_;
    srtp_policy_t policy_{};
};

srtp_context context_create(const sdp_crypto &key, const srtp_policy_t *policy)
{
    library_prepare();
    srtp_t created = nullptr;
    const srtp_err_status_t status = srtp_create(&created, policy);
    if (status != srtp_err_status_ok) {
        throw failure(exit_code::wrong_usage,
                      fmt::format("SRTP key: libsrtp cannot use it: error {}", static_cast<int>(status)));
    }
    const suite_rules &suite = kSuites[key.suite];
    return {{created, context_destroy},
            suite.tag_size + key.mki_size,
            suite.rtcp_tag_size + key.mki_size,
            key.mki_size > 0};
}

} // namespace

srtp_context srtp_context_incoming(const sdp_crypto &key)
{
    return context_create(key, key_policy(key, {ssrc_any_inbound, 0}).get());
}

srtp_context srtp_context_outgoing(const sdp_crypto &key)
{
    return context_create(key, key_policy(key, {ssrc_any_outbound, 0}).get());
}

srtp_context srtp_context_empty(const sdp_crypto &key)
{
    return context_create(key, nullptr);
}

bool srtp_context_add_sender(const srtp_context &context, const sdp_crypto &key, uint32_t ssrc, uint32_t rollovers)
{
    srtp_remove_stream(context.srtp.get(), htonl(ssrc)); // fails where there is none, which is all right
    const key_policy policy(key, {ssrc_specific, ssrc});
    return srtp_add_stream(context.srtp.get(), policy.get()) == srtp_err_status_ok &&
           (rollovers == 0 || srtp_context_set_rollovers(context, ssrc, rollovers));
}

bool srtp_context_set_rollovers(const srtp_context &context, uint32_t ssrc, uint32_t rollovers)
{
    return srtp_set_stream_roc(context.srtp.get(), ssrc, rollovers) == srtp_err_status_ok;
}

} // namespace vrc
