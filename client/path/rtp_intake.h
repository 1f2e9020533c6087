// RTP path, in front of the reorder cache: makes packet records of well-formed packets, feeds the cache, and says why
// it did not take one.
#pragma once

#include "session/stream_state.h"
#include "wire/rtp.h"

// Takes in one packet that `view` describes. `received_size` is what took the path, in bytes, at most 65535: that of the
// packet, or of the retransmission (RFC 4588) that it was restored from. The rate is estimated from that, while number
// and timestamp have to be the original's, since retransmissions have a numbering of their own. Returns
// PACKET_DROP_REASONS when it went to the stream, else why not.
packet_drop_e rtp_intake_take(stream_state *state, const uint8_t *packet, const rtp_view *view, size_t received_size,
                              uint8_t codec, bool is_retrans, const zeb_ts_t *now_p);

// Runs what is due: packets that were held for long enough, the cache's periodic check, the watchdog.
void rtp_intake_tick(stream_state *state, const zeb_ts_t *now_p);
