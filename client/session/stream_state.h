// The channel layer's own record of one stream.
#pragma once

#include "api/stream_report.h"
#include "arrival/packet_hold.h"
#include "arrival/packet_numbering.h"
#include "arrival/reception.h"
#include "arrival/restart_watch.h"
#include "codec/parameter_sets.h"
#include "module/watchdog.h"
#include "path/native_delivery.h"
#include "path/rtp_delivery.h"
#include "session/feedback.h"
#include "stats/stream_seconds.h"
#include "video_stream.h"

struct stream_state {
    user_video_stream *stream;
    stream_report report;
    reception arrivals;
    restart_watch restarts;
    stream_seconds seconds;
    packet_numbering numbering; // RTP path: from the sender's numbers to those of the module
    packet_hold hold;           // RTP path: packets in front of the reorder cache
    bool has_key_timestamp;     // RTP path: the packets of that frame go straight into the reorder cache
    uint32_t key_timestamp;     // RTP timestamp
    packet_hold stray;          // RTP path: the packet that may begin a new numbering, at most one
    rtp_delivery rtp;           // RTP path: from the reorder cache to whole frames
    native_delivery native;     // native path: from the frame queue to whole frames
    watchdog guard;             // RTP path
    bool is_native;             // which path the stream's first packet took; meaningful once a packet came
    bool wants_key_frame;       // to be asked for when the call that found it out ends
    bool has_floor;             // the reorder cache was cleared: up to `floor` nothing is taken any more
    uint32_t floor;             // extended sequence number, the sender's
    parameter_sets sets;        // RTP path: that were seen, or that the session description has
    stream_feedback feedback;   // RTP path: what the sender is told
    // The time of the call under way. The reorder cache may be run by a later time than it is, so what it calls goes
    // by this one.
    zeb_ts_t now;
};

// The record of a stream, or null for one that the channel layer does not know: a bare record, a stream of the local
// user, or one whose record there was no memory for.
stream_state *stream_state_of(const user_video_stream *stream);

// Makes the record of a stream that has none. Null for a stream of a user that the channel layer does not know, beyond
// the user's limit, or without memory.
stream_state *stream_state_attach(user_video_stream *stream);

// Releases the record. The stream stays.
void stream_state_free(stream_state *state);

// The module's extended number that ends in `seq`. RTP path.
uint32_t stream_state_inner_number(const stream_state *state, seq_t seq);

// Asks for the key frame that was found to be needed. Not while the reorder cache is at work.
void stream_state_ask(stream_state *state, const zeb_ts_t *now_p);

// Takes everything out of the stream's frame queue; the next packet sets the expected one.
void stream_native_path_empty(user_video_stream *stream);
