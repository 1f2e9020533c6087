// The records behind a service and its channels.
#pragma once

#include "api/channel.h"
#include "codec/parameter_sets.h"

constexpr size_t kChannelCnameMax = 64; // bytes; RFC 7022 needs fewer

struct service_state {
    rtc_service service;
    rtc_list_t channels; // of channel_state
    bool is_in_callback; // the application has the thread: what changes streams is refused
};

constexpr size_t kSsrcPairsMax = 8;      // a pair for each user
constexpr uint8_t kNoPayloadType = 0xFF; // RTP payload types have seven bits

// Retransmissions for one sender come under another SSRC.
struct ssrc_pair {
    bool is_set;
    uint32_t ssrc;
    uint32_t rtx_ssrc;
};

struct channel_state {
    list_head node; // in service_state.channels; first, so that a link is its record
    rtc_channel channel;
    channel_frame_callback on_frame;
    void *on_frame_context;
    channel_feedback feedback;
    channel_rtcp_callback on_rtcp;
    void *on_rtcp_context;
    uint32_t local_ssrc;
    uint16_t max_senders;
    char cname[kChannelCnameMax];
    size_t cname_size;           // bytes; 0: none
    uint64_t rtcp_malformed;     // datagrams that were refused
    uint8_t codecs[128];         // VIDEO_PACKET_TYPE by RTP payload type
    uint8_t repeated_types[128]; // what retransmissions repeat, by their RTP payload type; kNoPayloadType: none are
    ssrc_pair ssrc_pairs[kSsrcPairsMax];
    uint8_t next_ssrc_pair;        // is given up for a new one when all are taken
    parameter_sets described_sets; // from the session description
    rtc_list_t users;              // of user_state
    uint64_t refused[PACKET_DROP_REASONS];
    zeb_ts_t next_refusal_log_at;
    uint64_t refusals_not_logged;
};

// True while the application's frame callback runs.
inline bool service_is_in_callback(const rtc_service *service)
{
    return service != nullptr && service->state != nullptr && service->state->is_in_callback;
}

// Runs what is due at `*now_p` on the channel's streams. Returns the time of the next call.
zeb_ts_t channel_tick(channel_state *channel, const zeb_ts_t *now_p);

// When one of its streams wants it to be called sooner; may be past.
zeb_ts_t channel_next_at(const channel_state *channel);

// Releases the channel with its users and streams; it is in no list any more.
void channel_free(channel_state *channel);
