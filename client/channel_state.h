// The records behind a service and its channels.
#pragma once

#include "channel.h"

struct service_state {
    rtc_service service;
    rtc_list_t channels; // of channel_state
    bool is_in_callback; // the application has the thread: what changes streams is refused
};

struct channel_state {
    list_head node; // in service_state.channels; first, so that a link is its record
    rtc_channel channel;
    channel_frame_callback on_frame;
    void *on_frame_context;
    uint8_t codecs[128]; // VIDEO_PACKET_TYPE by RTP payload type
    rtc_list_t users;    // of user_state
    uint64_t refused[PACKET_DROP_REASONS];
    zeb_ts_t next_refusal_log_at;
    uint64_t refusals_not_logged;
};

// True while the application's frame callback runs.
inline bool service_is_in_callback(const rtc_service *service)
{
    return service != nullptr && service->state != nullptr && service->state->is_in_callback;
}

// Runs what is due at `*now_p` on the channel's streams.
void channel_tick(channel_state *channel, const zeb_ts_t *now_p);

// Releases the channel with its users and streams; it is in no list any more.
void channel_free(channel_state *channel);
