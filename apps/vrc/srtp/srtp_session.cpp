#include "srtp/srtp_session.h"

#include <srtp2/srtp.h>

#include <algorithm>
#include <limits>
#include <optional>

namespace vrc
{
namespace
{

constexpr size_t kRtpHeaderSize = 12;
constexpr size_t kSsrcOffset = 8;
constexpr size_t kRtcpHeaderSize = 8;
constexpr size_t kRtcpIndexSize = 4;
constexpr size_t kPacketSizeMax = 65535;

// Larger packets are not searched with, as a trial costs what the packet is long. A path carries none that are larger, and
// if one does: every picture ends with a packet that is not full.
constexpr size_t kSearchSizeMax = 1500;

bool is_rtcp_type(uint8_t second_byte)
{
    return second_byte >= 192 && second_byte <= 223;
}

// The turns that the sender's numbers have made so far as this context knows; none when it does not know the sender.
std::optional<uint32_t> rollovers_known(const srtp_context &context, uint32_t ssrc)
{
    uint32_t rollovers = 0;
    const bool is_known = srtp_get_stream_roc(context.srtp.get(), ssrc, &rollovers) == srtp_err_status_ok;
    return is_known ? std::optional<uint32_t>(rollovers) : std::nullopt;
}

} // namespace

srtp_counts &srtp_counts::operator+=(const srtp_counts &more)
{
    decrypted += more.decrypted;
    not_authentic += more.not_authentic;
    replayed += more.replayed;
    malformed += more.malformed;
    return *this;
}

srtp_session::srtp_session(const std::vector<sdp_crypto> &keys, uint32_t seed)
    : budget_(std::max<uint32_t>(1, static_cast<uint32_t>(keys.size())) * kSrtpRolloversMax, seed)
{
    for (const sdp_crypto &key : keys) {
        keys_.push_back({key, srtp_context_incoming(key)});
    }
}

srtp_session::verdict srtp_session::unprotect_with(const srtp_context &with, byte_view packet, bool is_rtcp)
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
        return verdict::replayed;
    case srtp_err_status_replay_old:
    case srtp_err_status_pkt_idx_old:
        return verdict::too_old;
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
    case verdict::too_old:
        ++counts_.replayed;
        break;
    case verdict::malformed:
        ++counts_.malformed;
        break;
    }
}

srtp_session::verdict srtp_session::try_keys(byte_view packet, bool is_rtcp)
{
    verdict result = verdict::not_authentic;
    for (size_t i = 0; i < keys_.size(); ++i) {
        result = unprotect_with(keys_[i].context, packet, is_rtcp);
        if (result != verdict::not_authentic && result != verdict::malformed) {
            last_key_ = result == verdict::decrypted ? i : last_key_;
            break;
        }
    }
    return result;
}

bool srtp_session::search_rollovers(byte_view packet)
{
    for (size_t i = 0; i < keys_.size(); ++i) {
        if (search_rollovers_with(keys_[i], packet)) {
            last_key_ = i;
            return true;
        }
    }
    return false;
}

// Looks ahead of what is known alone: an old packet that is sent again must not turn the sender back.
bool srtp_session::search_rollovers_with(const used_key &with, byte_view packet)
{
    const uint32_t ssrc = packet.be32(kSsrcOffset);
    const std::optional<uint32_t> known = rollovers_known(with.context, ssrc);
    const uint32_t first = known.value_or(0) + 1;
    const srtp_context trial = srtp_context_empty(with.key);
    if (first > std::numeric_limits<uint32_t>::max() - kSrtpRolloversMax ||
        !srtp_context_add_sender(trial, with.key, ssrc, 0)) {
        return false;
    }
    for (uint32_t rollovers = first; rollovers < first + kSrtpRolloversMax; ++rollovers) {
        srtp_context_set_rollovers(trial, ssrc, rollovers);
        ++search_trials_;
        if (unprotect_with(trial, packet, false) == verdict::decrypted) {
            return srtp_context_add_sender(with.context, with.key, ssrc, rollovers) &&
                   unprotect_with(with.context, packet, false) == verdict::decrypted;
        }
    }
    return false;
}

// Whether it is of a sender whose numbers went around unheard.
bool srtp_session::find_ahead(const endpoint &from, byte_view packet, zeb_ts_t now)
{
    const uint32_t ssrc = packet.be32(kSsrcOffset);
    if (packet.size() > kSearchSizeMax || !budget_.take(from, ssrc, now)) {
        return false;
    }
    if (search_rollovers(packet)) {
        return true;
    }
    budget_.note_vain(from, ssrc, now);
    return false;
}

bool srtp_session::unprotect(const endpoint &from, byte_view *packet, zeb_ts_t now)
{
    const bool is_rtcp = packet->size() >= 2 && is_rtcp_type((*packet)[1]);
    const size_t header_size = is_rtcp ? kRtcpHeaderSize : kRtpHeaderSize;
    if (keys_.empty() || packet->size() < header_size || (*packet)[0] >> 6 != 2) {
        return true;
    }
    verdict result = try_keys(*packet, is_rtcp);
    const bool may_be_ahead = !is_rtcp && (result == verdict::not_authentic || result == verdict::too_old);
    if (may_be_ahead && find_ahead(from, *packet, now)) {
        result = verdict::decrypted;
    }
    count(result);
    if (result != verdict::decrypted) {
        return false;
    }
    if (!is_rtcp) {
        budget_.note_authentic(from, packet->be32(kSsrcOffset));
    }
    *packet = byte_view(plain_.data(), plain_.size());
    return true;
}

} // namespace vrc
