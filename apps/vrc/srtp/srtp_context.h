// One SRTP key in use, for packets that come or for those that go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "sdp.h"

struct srtp_ctx_t_;

namespace vrc
{

struct srtp_context {
    std::unique_ptr<srtp_ctx_t_, void (*)(srtp_ctx_t_ *)> srtp;
    size_t tag_size; // what it adds to an RTP packet, and to an RTCP packet, bytes
    size_t rtcp_tag_size;
    bool has_mki;
};

// For all senders (SSRCs) whose packets come with this key. Throws failure (wrong_usage) for a key that cannot be used.
srtp_context srtp_context_incoming(const sdp_crypto &key);

// For what is sent with it.
srtp_context srtp_context_outgoing(const sdp_crypto &key);

// For one sender alone, which has to be added.
srtp_context srtp_context_empty(const sdp_crypto &key);

// Begins anew with one sender of an incoming or empty context, whose next packet is taken for one after `rollovers` turns
// of its sequence numbers (RFC 3711, 3.3.1); 0: in the first one. Returns false without memory.
bool srtp_context_add_sender(const srtp_context &context, const sdp_crypto &key, uint32_t ssrc, uint32_t rollovers);

// Says so of a sender that was added before.
bool srtp_context_set_rollovers(const srtp_context &context, uint32_t ssrc, uint32_t rollovers);

} // namespace vrc
