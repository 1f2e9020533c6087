// Native path, in front of the frame queue: checks a packet's frame header and puts it into its frame.
#pragma once

#include "session/stream_state.h"
#include "wire/rtp.h"

// Checks a packet at the door and fills `view` from its RTP header. Returns PACKET_DROP_REASONS when it is well
// formed; else the reason, and `view` is not to be used.
packet_drop_e native_intake_check(const PVideoData4 *video, rtp_view *view);

// Takes in one packet that was found well formed. Its payload may be taken over; what is left is the caller's to
// release. Returns PACKET_DROP_REASONS when it went to the stream, else why not, which is counted.
packet_drop_e native_intake_take(stream_state *state, PVideoData4 *video, const rtp_view *view, bool is_retrans,
                                 const zeb_ts_t *now_p);
