#include "session/stream_state.h"

#include <cstring>

#include "session/user.h"

namespace
{

user_state *user_of(const user_video_stream *stream)
{
    return stream != nullptr && stream->user != nullptr ? stream->user->state : nullptr;
}

} // namespace

stream_state *stream_state_of(const user_video_stream *stream)
{
    user_state *user = user_of(stream);
    if (user == nullptr) {
        return nullptr;
    }
    for (stream_state *state : user->streams) {
        if (state != nullptr && state->stream == stream) {
            return state;
        }
    }
    return nullptr;
}

namespace
{

stream_state **place_find(user_state *user)
{
    for (stream_state *&place : user->streams) {
        if (place == nullptr) {
            return &place;
        }
    }
    return nullptr;
}

} // namespace

stream_state *stream_state_attach(user_video_stream *stream)
{
    user_state *user = user_of(stream);
    stream_state **place = user != nullptr ? place_find(user) : nullptr;
    if (place == nullptr) {
        return nullptr;
    }
    auto *state = static_cast<stream_state *>(zeb_malloc_impl_dbg(sizeof(stream_state), __func__, __LINE__));
    if (state == nullptr) {
        return nullptr;
    }
    memset(state, 0, sizeof *state);
    state->stream = stream;
    packet_hold_init(&state->hold);
    packet_hold_init(&state->stray);
    rtp_delivery_init(&state->rtp);
    native_delivery_init(&state->native);
    state->sets = stream->channel->state->described_sets;
    *place = state;
    return state;
}

void stream_state_free(stream_state *state)
{
    if (state != nullptr) {
        packet_hold_clear(&state->hold);
        packet_hold_clear(&state->stray);
        zeb_free_impl(state);
    }
}

uint32_t stream_state_inner_number(const stream_state *state, seq_t seq)
{
    return sequence_extend(packet_numbering_inner(&state->numbering, state->arrivals.newest), seq);
}

void stream_state_ask(stream_state *state, const zeb_ts_t *now_p)
{
    if (state->wants_key_frame) {
        state->wants_key_frame = false;
        webrtc_video_send_intra_request(&state->stream->video_cache_q, now_p);
    }
}

void stream_native_path_empty(user_video_stream *stream)
{
    for (video_frame &frame : stream->video_frames_q.video_frames) {
        video_stream_delete_frame(stream, &frame);
    }
    // Entries of packets that were refused after they got one outlive their frame.
    rtc_video_frames_init(&stream->video_frames_q);
    stream->pkt_seq = UINT32_MAX;
}
