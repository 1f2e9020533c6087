// From a whole frame in the frame queue to the application: makes the bitstream, hands it out, counts.
#pragma once

#include "api/channel.h"

struct stream_state;

// Hands `frame`, which is in the stream's frame queue and stays there, to the application. The caller has filled
// `rtp_timestamp` and `is_key` of `out`; the rest is filled in here. False when no bitstream came out, which is counted.
bool frame_output_hand_out(stream_state *state, const video_frame *frame, channel_frame *out, const zeb_ts_t *now_p);

// Counts a frame that is not handed out.
void frame_output_drop(stream_state *state, frame_drop_e reason);

// Counts one of FRAME_DROP_MALFORMED.
void frame_output_drop_malformed(stream_state *state, payload_fault_e fault);
