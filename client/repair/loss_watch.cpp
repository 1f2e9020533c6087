#include "repair/loss_watch.h"

#include "session/user.h"

namespace
{

// The frame of the oldest packet that the cache holds; null when it holds none.
const webrtc_video_frame_t *head_of(const webrtc_video_cache_t *cache)
{
    if (cache->pkt_arr == nullptr || cache->pkt_min_seq > UINT16_MAX) {
        return nullptr;
    }
    return cache->pkt_arr[cache->pkt_min_seq % WEBRTC_VIDEO_RING_SLOTS].frm_ptr;
}

bool is_complete(const webrtc_video_frame_t *frame)
{
    return frame->state == WEBRTC_VIDEO_FRM_COMPLETE;
}

bool follows_last_delivery(const webrtc_video_cache_t *cache, const webrtc_video_frame_t *head)
{
    return cache->last_deliver_pkt_seq > UINT16_MAX ||
           head->min_seq == zeb_uint16_next(static_cast<uint16_t>(cache->last_deliver_pkt_seq));
}

bool is_held_up(const webrtc_video_cache_t *cache, const webrtc_video_frame_t *head)
{
    return head != nullptr && (!is_complete(head) || !follows_last_delivery(cache, head));
}

uint32_t outer_number(const stream_state *state, seq_t seq)
{
    return packet_numbering_outer(&state->numbering, stream_state_inner_number(state, seq));
}

// The packet behind the frame's newest one is here and belongs to another frame, and nothing before it is missing: the
// frame's end never came and never will.
bool has_no_end(const stream_state *state, const webrtc_video_frame_t *head)
{
    const webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    const auto last = static_cast<seq_t>(head->cur_max_seq);
    const seq_t next = zeb_uint16_next(last);
    const webrtc_video_packet_t *slot = &cache->pkt_arr[next % WEBRTC_VIDEO_RING_SLOTS];
    const missing_packet *missing = nack_list_oldest(&state->feedback.nacks);
    const bool is_followed =
        slot->state == WEBRTC_VIDEO_PKT_SET && slot->pkt_seq == next && slot->timestamp != head->timestamp;
    return !is_complete(head) && is_followed &&
           (missing == nullptr || zeb_uint32_after(missing->number, outer_number(state, last)));
}

int find_key_frame(zeb_rb_node *node, void *arg)
{
    const auto *head = static_cast<const webrtc_video_frame_t *>(arg);
    const auto *frame = reinterpret_cast<const webrtc_video_frame_t *>(node);
    return frame->is_key != 0 && frame->timestamp != head->timestamp;
}

bool holds_key_frame(const webrtc_video_cache_t *cache, const webrtc_video_frame_t *head)
{
    // The walk changes nothing, but its visitors may.
    auto *frames = const_cast<zeb_rb_root *>(&cache->frm_map);
    return zeb_rb_traverse_ldr(frames, find_key_frame, const_cast<webrtc_video_frame_t *>(head)) != 0;
}

} // namespace

loss_situation loss_watch_look(const stream_state *state)
{
    const webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    const webrtc_video_frame_t *head = head_of(cache);
    loss_situation situation = {};
    if (!is_held_up(cache, head)) {
        return situation;
    }
    const channel_feedback *agreed = &state->stream->channel->state->feedback;
    const missing_packet *missing = nack_list_oldest(&state->feedback.nacks);
    situation.gives_up_early = agreed->give_up_early;
    situation.offers_retransmission = agreed->nack;
    situation.is_held_up = true;
    situation.will_never_complete = has_no_end(state, head);
    situation.holds_key_frame = holds_key_frame(cache, head);
    if (missing != nullptr) {
        situation.is_used_up = nack_list_is_used_up(&state->feedback.nacks, missing, state->now);
        situation.missing_for = state->now - missing->missing_since;
        situation.lateness = nack_list_hold(&state->feedback.nacks);
    }
    return situation;
}

zeb_ts_t loss_watch_next_at(const stream_state *state)
{
    const channel_feedback *agreed = &state->stream->channel->state->feedback;
    const missing_packet *missing = nack_list_oldest(&state->feedback.nacks);
    if (!agreed->give_up_early || agreed->nack || missing == nullptr) {
        return kNackNever;
    }
    const zeb_ts_t at = missing->missing_since + loss_policy_patience(nack_list_hold(&state->feedback.nacks));
    return at > state->now ? at : kNackNever;
}
