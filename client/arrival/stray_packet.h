// The one packet of a stream whose number is far from all others: noise, or the first one of a new numbering. It is
// kept until the next packet tells.
#pragma once

#include "session/stream_state.h"

// Takes the packet over in place of the one before. Returns PACKET_DROP_REASONS, or why it was released, which is
// counted: a retransmission is old by nature and begins nothing.
packet_drop_e stray_packet_keep(stream_state *state, PVideoData4 *video, bool is_retrans);

// Releases the packet, if there is one, and counts it as late.
void stray_packet_forget(stream_state *state);
