// Native path, behind the frame queue: hands out its whole frames in the order of their numbers, beginning with a key
// frame, and gives up on what stays missing.
#pragma once

#include "rtc_packet.h"

struct stream_state;

constexpr zeb_ts_t kNativePatience = 2000; // milliseconds, as in the reorder cache

struct native_delivery {
    bool needs_key_frame; // something that a delta frame may refer to is missing
    bool has_output;      // frame `output_seq` was handed out
    uint32_t output_seq;
};

void native_delivery_init(native_delivery *self);

// True when frame `frame_seq` or a later one was handed out.
bool native_delivery_is_past(const native_delivery *self, uint32_t frame_seq);

// Hands out what is due and gives up what has waited for kNativePatience.
void native_delivery_run(stream_state *state, const zeb_ts_t *now_p);
