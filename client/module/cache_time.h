// The reorder cache by another time than it is.
#pragma once

#include "session/stream_state.h"

// Calls `run(&as_of)`, which feeds or checks the stream's reorder cache as if it were `as_of`, before or after
// `state->now`: packets that it stores came then, and the patience for their frames counts from then.
//
// What the cache delivers meanwhile is delivered now, and the patience for a gap behind that counts from now. Without a
// delivery the time of the last one stays what the cache has: the same as before, or none after a drop. That the cache's
// time of delivery has changed is no sign of a delivery, nor that it has not: the last one may have been at `as_of`.
template <typename Run> void cache_run_as_of(stream_state *state, zeb_ts_t as_of, Run run)
{
    const uint64_t n_handed_over = state->rtp.n_handed_over;
    run(&as_of);
    if (state->rtp.n_handed_over != n_handed_over) {
        state->stream->video_cache_q.last_deliver_frm_ts = state->now;
    }
}
