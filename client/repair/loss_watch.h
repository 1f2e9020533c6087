// Looks in each tick for a loss that holds up the reorder cache, and ends the wait for it where loss_policy says so.
#pragma once

#include "repair/loss_policy.h"

struct stream_state;

// What holds up the stream's reorder cache now.
loss_situation loss_watch_look(const stream_state *state);

// When loss_policy may say so without another packet; kNackNever: nothing is missing, or requests decide about it.
zeb_ts_t loss_watch_next_at(const stream_state *state);
