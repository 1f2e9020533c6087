// Packets without payload, which senders probe the path with, after a frame's last packet and with its timestamp. They
// are left out of the module's numbers where that is still possible. Where it is not, because a later packet has its
// number already, they fill the hole that was kept for them.
#pragma once

#include "session/stream_state.h"
#include "wire/rtp.h"

// An empty packet with the marker is none: it ends its frame.
bool padding_is(const rtp_view *view);

// Makes the copy of a packet without payload fit for the reorder cache: one between the packets of a frame stays what it
// is, any other becomes a frame of its own.
void padding_shape(const stream_state *state, uint8_t *packet, const rtp_view *view);

// Numbers that were lost and can have been nothing but padding: the frame before ended, the picture behind them begins
// with the packet behind them, no other fits between their timestamps, and nobody answers requests for them.
struct padding_gap {
    uint32_t first, last; // extended sequence numbers
    uint32_t timestamp;   // that padding there has
    zeb_ts_t since;       // when they were noticed to be missing
};

// Looks at the oldest of the missing packets. True when it is in such a gap.
bool padding_find_lost(const stream_state *state, padding_gap *gap);
