// Retransmissions that come as a stream of their own (RFC 4588): which sender's they are, and the packets they repeat.
#pragma once

#include <cstddef>
#include <cstdint>

#include "wire/rtp.h"

struct channel_state;
struct user_state;

// True when the payload type is one of retransmissions.
bool rtx_intake_is_rtx(const channel_state *channel, uint8_t payload_type);

// Whose packets a well-formed retransmission repeats: the sender that was paired with its SSRC, or the one that was
// asked for the number it carries, which pairs the two (RFC 4588, 5.3). Null when there is none.
user_state *rtx_intake_find_sender(channel_state *channel, const uint8_t *packet, const rtp_view *view);
