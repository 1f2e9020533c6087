#include "srtp_session.h"

#include <fmt/format.h>
#include <srtp2/srtp.h>

#include <array>

#include "failure.h"

namespace vrc
{
namespace
{

constexpr size_t kRtpHeaderSize = 12;
constexpr size_t kRtcpHeaderSize = 8;
constexpr size_t kRtcpIndexSize = 4;
constexpr size_t kPacketSizeMax = 65535;

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

bool is_rtcp_type(uint8_t second_byte)
{
    return second_byte >= 192 && second_byte <= 223;
}

} // namespace

srtp_session::srtp_session(const std::vector<sdp_crypto> &keys)
{
    for (const sdp_crypto &key : keys) {
        contexts_.push_back(context_create(key));
    }
}

srtp_session::~srtp_session() = default;

srtp_session::context srtp_session::context_create(const sdp_crypto &key)
{
    library_prepare();
    const suite_rules &suite = kSuites[key.suite];
    // The library wants them writable, and reads them only.
    std::array<uint8_t, kSdpKeySizeMax> secret{};
    std::copy_n(key.key, secret.size(), secret.begin());
    std::vector<uint8_t> identifier(key.mki_size);
    for (size_t i = 0; i < identifier.size() && i < sizeof key.mki; ++i) {
        identifier[identifier.size() - 1 - i] = static_cast<uint8_t>(key.mki >> (8 * i));
    }
    srtp_master_key_t master = {secret.data(), identifier.data(), key.mki_size};
    srtp_master_key_t *masters = &master;
    srtp_policy_t policy{};
    suite.set_rtp(&policy.rtp);
    suite.set_rtcp(&policy.rtcp);
    policy.ssrc.type = ssrc_any_inbound;
    policy.keys = &masters;
    policy.num_master_keys = 1;
    policy.window_size = kReplayWindow;
    srtp_t created = nullptr;
    const srtp_err_status_t status = srtp_create(&created, &policy);
    if (status != srtp_err_status_ok) {
        throw failure(exit_code::wrong_usage,
                      fmt::format("SRTP key: libsrtp cannot use it: error {}", static_cast<int>(status)));
    }
    return {{created, context_destroy},
            suite.tag_size + key.mki_size,
            suite.rtcp_tag_size + key.mki_size,
            key.mki_size > 0};
}

srtp_session::verdict srtp_session::unprotect_with(const context &with, byte_view packet, bool is_rtcp)
{
    const size_t least =
        is_rtcp ? kRtcpHeaderSize + kRtcpIndexSize + with.rtcp_tag_size : kRtpHeaderSize + with.tag_size;
    if (packet.size() < least || packet.size() > kPacketSizeMax) {
        return verdict::malformed;
    }
    plain_.assign(packet.data(), packet.data() + packet.size());
    int size = static_cast<int>(plain_.size());
    const unsigned has_mki = with.has_mki ? 1 : 0;
    const srtp_err_status_t status = is_rtcp ? srtp_unprotect_rtcp_mki(with.srtp.get(), plain_.data(), &size, has_mki)
                                             : srtp_unprotect_mki(with.srtp.get(), plain_.data(), &size, has_mki);
    switch (status) {
    case srtp_err_status_ok:
        plain_.resize(static_cast<size_t>(size));
        return verdict::decrypted;
    case srtp_err_status_replay_fail:
    case srtp_err_status_replay_old:
    case srtp_err_status_pkt_idx_old:
        return verdict::replayed;
    case srtp_err_status_parse_err:
    case srtp_err_status_bad_param:
        return verdict::malformed;
    default:
        return verdict::not_authentic;
    }
}

void srtp_session::count(verdict result)
{
    switch (result) {
    case verdict::decrypted:
        ++counts_.decrypted;
        break;
    case verdict::not_authentic:
        ++counts_.not_authentic;
        break;
    case verdict::replayed:
        ++counts_.replayed;
        break;
    case verdict::malformed:
        ++counts_.malformed;
        break;
    }
}

bool srtp_session::unprotect(byte_view *packet)
{
    const bool is_rtcp = packet->size() >= 2 && is_rtcp_type((*packet)[1]);
    const size_t header_size = is_rtcp ? kRtcpHeaderSize : kRtpHeaderSize;
    if (contexts_.empty() || packet->size() < header_size || (*packet)[0] >> 6 != 2) {
        return true;
    }
    verdict result = verdict::not_authentic;
    for (const context &with : contexts_) {
        result = unprotect_with(with, *packet, is_rtcp);
        if (result == verdict::decrypted || result == verdict::replayed) {
            break;
        }
    }
    count(result);
    if (result != verdict::decrypted) {
        return false;
    }
    *packet = byte_view(plain_.data(), plain_.size());
    return true;
}

} // namespace vrc
