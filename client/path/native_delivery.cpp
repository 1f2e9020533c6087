#include "path/native_delivery.h"

#include "path/frame_output.h"
#include "session/stream_state.h"

void native_delivery_init(native_delivery *self)
{
    *self = {};
    self->needs_key_frame = true;
}

bool native_delivery_is_past(const native_delivery *self, uint32_t frame_seq)
{
    return self->has_output && !zeb_uint32_after(frame_seq, self->output_seq);
}

namespace
{

// ---- The frames in the queue ----

// All media packets are here. The frame queue's own `is_complete` counts FEC packets in place of media.
bool is_whole(const video_frame *frame)
{
    return frame->n_pkts_media > 0 && frame->n_pkts_received_media >= frame->n_pkts_media;
}

bool is_over(const video_frame *frame, zeb_ts_t now)
{
    return now - frame->queued_ts >= kNativePatience;
}

// The first frame, in the order of their numbers, that `matches`; null when there is none.
template <typename Match> video_frame *frame_find_first(user_video_stream *stream, Match matches)
{
    video_frame *found = nullptr;
    for (video_frame &frame : stream->video_frames_q.video_frames) {
        const bool is_before = found == nullptr || zeb_uint32_after(found->frame_seq, frame.frame_seq);
        if (frame.n_pkts_total != 0 && is_before && matches(frame)) {
            found = &frame;
        }
    }
    return found;
}

video_frame *frame_head(user_video_stream *stream)
{
    return frame_find_first(stream, [](const video_frame &) { return true; });
}

void frame_remove(user_video_stream *stream, video_frame *frame)
{
    if (video_stream_remove_frame(stream, frame) != 0) {
        video_stream_delete_frame(stream, frame);
    }
}

// ---- Giving up ----

void frame_drop(stream_state *state, video_frame *frame)
{
    frame_output_drop(state, is_whole(frame) ? FRAME_DROP_AFTER_GAP : FRAME_DROP_INCOMPLETE);
    frame_remove(state->stream, frame);
}

void drop_before(stream_state *state, const video_frame *key)
{
    for (size_t i = 0; i < VIDEO_FRAMES_Q_SLOTS; i++) {
        video_frame *head = frame_head(state->stream);
        if (head == nullptr || head == key) {
            return;
        }
        frame_drop(state, head);
    }
}

// The next key frame that is whole or may still become so.
video_frame *next_key_frame(user_video_stream *stream, zeb_ts_t now)
{
    return frame_find_first(stream, [now](const video_frame &frame) {
        return frame.is_key_frame != 0 && (is_whole(&frame) || !is_over(&frame, now));
    });
}

void give_up(stream_state *state, zeb_ts_t now)
{
    state->native.needs_key_frame = true;
    const video_frame *key = next_key_frame(state->stream, now);
    drop_before(state, key);
    if (key == nullptr) {
        state->wants_key_frame = true;
    }
}

// ---- Handing out ----

void frame_hand_out(stream_state *state, video_frame *frame, const zeb_ts_t *now_p)
{
    channel_frame out = {};
    out.is_key = frame->is_key_frame != 0;
    const bool is_out = frame_output_hand_out(state, frame, &out, now_p);
    video_stream_send_goodbad_pic(state->stream, frame, is_out, now_p);
    state->native.needs_key_frame = !is_out;
    state->wants_key_frame = state->wants_key_frame || !is_out;
    state->native.has_output = true;
    state->native.output_seq = frame->frame_seq;
    frame_remove(state->stream, frame);
}

// The frame whose turn it is, whole; null when it is not here yet.
video_frame *frame_due(stream_state *state, zeb_ts_t now)
{
    const native_delivery *self = &state->native;
    if (self->needs_key_frame) {
        video_frame *key = next_key_frame(state->stream, now);
        return key != nullptr && is_whole(key) ? key : nullptr;
    }
    video_frame *head = frame_head(state->stream);
    const bool is_next = head != nullptr && head->frame_seq == zeb_uint32_next(self->output_seq);
    return is_next && is_whole(head) ? head : nullptr;
}

// The next frame's slot holds a later one, so the queue refuses what is missing of it. A stream of more than 20 frames a
// second gets there before any frame has waited for its patience.
bool is_next_shut_out(const stream_state *state)
{
    const native_delivery *self = &state->native;
    const uint32_t next = zeb_uint32_next(self->output_seq);
    const video_frame *tenant = &state->stream->video_frames_q.video_frames[next % VIDEO_FRAMES_Q_SLOTS];
    return !self->needs_key_frame && tenant->n_pkts_total != 0 && zeb_uint32_after(tenant->frame_seq, next) != 0;
}

// One step. False when there is nothing to do now.
bool delivery_step(stream_state *state, const zeb_ts_t *now_p)
{
    video_frame *due = frame_due(state, *now_p);
    if (due != nullptr) {
        drop_before(state, due);
        frame_hand_out(state, due, now_p);
        return true;
    }
    const video_frame *head = frame_head(state->stream);
    if (head == nullptr || (!is_over(head, *now_p) && !is_next_shut_out(state))) {
        return false;
    }
    give_up(state, *now_p);
    return true;
}

} // namespace

void native_delivery_run(stream_state *state, const zeb_ts_t *now_p)
{
    // Each step but one that finds the next frame shut out takes at least one frame out of the queue, and nothing puts one
    // in meanwhile.
    for (size_t i = 0; i <= VIDEO_FRAMES_Q_SLOTS + 1 && delivery_step(state, now_p); i++) {
    }
    rtc_video_frames_t *queue = &state->stream->video_frames_q;
    if (queue->count != 0 && frame_head(state->stream) == nullptr) {
        rtc_video_frames_init(queue);
    }
}
