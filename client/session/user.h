// The user layer: the remote senders of a channel and their streams.
#pragma once

#include "session/channel_state.h"
#include "session/stream_state.h"

constexpr size_t kUserStreamsMax = 4;
constexpr zeb_ts_t kUserSilence = 5000; // milliseconds after which a user may be put out for a new one

struct user_state {
    list_head node; // in channel_state.users; first, so that a link is its record
    rtc_user user;
    uint32_t uid;
    zeb_ts_t last_packet_at;
    stream_state *streams[kUserStreamsMax]; // owned; null: free
};

// The user with that identifier, or null.
user_state *channel_find_user(channel_state *channel, uint32_t uid);

// The user's record of that stream, or null.
stream_state *user_find_stream(user_state *user, uint8_t stream_id);

// The stream that a packet belongs to, made together with its user when they are new. When the channel is full, the
// user that has been silent for the longest time makes room if that is kUserSilence or more. Returns null
// with `*reason` PACKET_DROP_TOO_MANY_SENDERS or PACKET_DROP_NO_MEMORY when there is no place.
stream_state *channel_admit_stream(channel_state *channel, uint32_t uid, uint8_t stream_id, const zeb_ts_t *now_p,
                                   packet_drop_e *reason);

// Destroys a user with its streams.
void user_destroy(channel_state *channel, user_state *user);
