#include "path/rtp_delivery.h"

#include <cstring>

#include "codec/nal.h"
#include "path/frame_output.h"
#include "session/channel_state.h"
#include "session/stream_state.h"
#include "wire/rtp.h"

namespace
{

// A refusal of a frame that nothing speaks against.
constexpr frame_drop_e kNoRefusal = FRAME_DROP_REASONS;

// A packet that the cache hands over, with what its bytes say. The payload is the packet's until it is taken over.
struct delivered_packet {
    PVideoData4 *video;
    rtp_view view;
    const uint8_t *payload;
};

} // namespace

void rtp_delivery_init(rtp_delivery *self)
{
    memset(self, 0, sizeof *self);
    self->refusal = kNoRefusal;
    self->needs_key_frame = true;
}

void rtp_delivery_restart(rtp_delivery *self)
{
    const uint64_t n_handed_over = self->n_handed_over;
    rtp_delivery_init(self);
    self->n_handed_over = n_handed_over;
}

uint32_t rtp_delivery_last_number(const rtp_delivery *self)
{
    return self->first_number + self->n_pkts - 1;
}

namespace
{

// ---- Closing a frame ----

frame_drop_e refusal_at_end(const rtp_delivery *self)
{
    if (self->refusal != kNoRefusal) {
        return self->refusal;
    }
    if (self->next_subseq != self->n_pkts) {
        return FRAME_DROP_INCOMPLETE;
    }
    return unit_chain_end(&self->units) != PAYLOAD_FAULTS ? FRAME_DROP_TORN : kNoRefusal;
}

video_frame *queued_frame(stream_state *state)
{
    video_frame *frame = &state->stream->video_frames_q.video_frames[state->rtp.frame_seq % VIDEO_FRAMES_Q_SLOTS];
    return frame->n_pkts_total != 0 && frame->frame_seq == state->rtp.frame_seq ? frame : nullptr;
}

bool frame_hand_out(stream_state *state, video_frame *frame, const zeb_ts_t *now_p)
{
    channel_frame out = {};
    out.rtp_timestamp = state->rtp.timestamp;
    out.is_key = state->rtp.is_key;
    const bool is_out = frame_output_hand_out(state, frame, &out, now_p);
    video_stream_send_goodbad_pic(state->stream, frame, is_out, now_p);
    return is_out;
}

void frame_lose(stream_state *state, frame_drop_e reason)
{
    if (reason == FRAME_DROP_MALFORMED) {
        frame_output_drop_malformed(state, state->rtp.fault);
    } else {
        frame_output_drop(state, reason);
    }
    if (reason != FRAME_DROP_OUT_OF_ORDER) {
        state->rtp.needs_key_frame = true;
        state->wants_key_frame = true;
    }
}

void frame_decide(stream_state *state, const zeb_ts_t *now_p)
{
    rtp_delivery *self = &state->rtp;
    const frame_drop_e refusal = refusal_at_end(self);
    if (refusal != kNoRefusal) {
        frame_lose(state, refusal);
        return;
    }
    video_frame *frame = queued_frame(state);
    if (frame == nullptr || !frame_hand_out(state, frame, now_p)) {
        self->needs_key_frame = true;
        state->wants_key_frame = true;
        return;
    }
    self->needs_key_frame = false;
    self->has_output = true;
    self->output_number = rtp_delivery_last_number(self);
}

void frame_close(stream_state *state, const zeb_ts_t *now_p)
{
    rtp_delivery *self = &state->rtp;
    if (!self->is_open) {
        return;
    }
    self->is_open = false;
    // Packets without payload fill the path and the numbering; they stand for no picture.
    if (self->has_media || self->refusal != kNoRefusal) {
        frame_decide(state, now_p);
    }
    video_frame *frame = queued_frame(state);
    if (frame != nullptr) {
        video_stream_remove_frame(state->stream, frame);
    }
    if (state->stream->video_frames_q.count != 0) {
        stream_native_path_empty(state->stream);
    }
}

} // namespace

void rtp_delivery_finish(stream_state *state, const zeb_ts_t *now_p)
{
    frame_close(state, now_p);
}

namespace
{

// ---- Opening a frame ----

// The cache takes the lowest key-frame packet that it has for the first one of its frame. It is that one if the packet
// before it belongs to another frame, handed over or at least seen, or if it says itself that it begins a picture. In a
// stream's very first packet the first slice, and what stands in front of it, do too when the parameter sets were
// described: sets that the stream brought itself may be those of a later key frame, and this one's own were lost.
bool is_beginning_proven(const stream_state *state, const delivered_packet *packet)
{
    const uint8_t codec = packet->video->header.codec;
    const rtp_view *view = &packet->view;
    const nal_summary summary = nal_inspect(codec, packet->payload, view->payload_size);
    if (summary.continues_unit) {
        return false;
    }
    const uint32_t number = reception_number(&state->arrivals, view->seq);
    const bool opens_stream = number == state->arrivals.first && (summary.is_first_slice || summary.leads_picture);
    return state->rtp.is_continuous || summary.starts_access_unit ||
           reception_proves_beginning(&state->arrivals, number, view->timestamp) ||
           (opens_stream && parameter_sets_are_known(&state->stream->channel->state->described_sets, codec));
}

// Stands for a number that belongs to no picture.
bool is_filler(const rtp_delivery *self, const delivered_packet *packet)
{
    return self->n_pkts == 1 && packet->view.payload_size == 0;
}

frame_drop_e refusal_at_start(const stream_state *state, const delivered_packet *packet)
{
    const rtp_delivery *self = &state->rtp;
    if (self->has_output && !zeb_uint32_after(self->first_number, self->output_number)) {
        return FRAME_DROP_OUT_OF_ORDER;
    }
    if (self->n_pkts == 0 || self->n_pkts > VIDEO_FRAMES_Q_PKT_INDEX) {
        return FRAME_DROP_NOT_ASSEMBLED;
    }
    if (is_filler(self, packet)) {
        return kNoRefusal;
    }
    if (!self->is_key && self->needs_key_frame) {
        return FRAME_DROP_AFTER_GAP;
    }
    return is_beginning_proven(state, packet) ? kNoRefusal : FRAME_DROP_TORN;
}

// What lost padding is told from lost pictures by.
void note_pace(stream_state *state, const delivered_packet *packet)
{
    rtp_delivery *self = &state->rtp;
    if (is_filler(self, packet)) {
        return;
    }
    frame_pace_note(&self->pace, self->timestamp, self->is_continuous);
    const reception_entry *first =
        reception_find(&state->arrivals, reception_number(&state->arrivals, packet->view.seq));
    if (!self->is_key && self->is_continuous && first != nullptr) {
        self->usual_first_role = first->role;
    }
}

bool is_new_frame(const rtp_delivery *self, const Video4Header *header)
{
    return !self->is_open || self->numbering_restarts || header->frame_seq != self->frame_seq ||
           header->subseq < self->next_subseq;
}

// The cache still holds the frame while it hands over its packets.
zeb_ts_t began_at(const stream_state *state, const delivered_packet *packet)
{
    const webrtc_video_packet_t *ring = state->stream->video_cache_q.pkt_arr;
    const webrtc_video_frame_t *frame =
        ring == nullptr ? nullptr : ring[packet->video->common.seq % WEBRTC_VIDEO_RING_SLOTS].frm_ptr;
    return frame == nullptr ? state->now : frame->ts;
}

void frame_open(stream_state *state, const delivered_packet *packet, bool is_key)
{
    rtp_delivery *self = &state->rtp;
    const Video4Header *header = &packet->video->header;
    // After a drop to a key frame the numbering starts over without a word.
    if (self->numbering_restarts || header->frame_seq != zeb_uint32_next(self->frame_seq)) {
        stream_native_path_empty(state->stream);
    }
    self->numbering_restarts = false;
    self->is_open = true;
    self->is_key = is_key;
    self->units = {};
    self->has_media = false;
    self->frame_seq = header->frame_seq;
    self->timestamp = packet->view.timestamp;
    self->began_at = began_at(state, packet);
    self->first_number = stream_state_inner_number(state, packet->video->common.seq) - header->subseq;
    self->n_pkts = header->n_pkts;
    self->next_subseq = 0;
    self->is_continuous = self->has_previous && self->first_number == self->previous_number + 1;
    const bool is_same_codec = self->codec == packet->video->header.codec;
    self->needs_key_frame = self->needs_key_frame || !self->is_continuous || !is_same_codec;
    self->codec = packet->video->header.codec;
    self->refusal = refusal_at_start(state, packet);
    self->n_handed_over += 1;
    note_pace(state, packet);
    if (self->refusal != FRAME_DROP_OUT_OF_ORDER) {
        self->has_previous = true;
        self->previous_number = rtp_delivery_last_number(self);
    }
}

// ---- Taking packets ----

frame_drop_e refusal_of_packet(const stream_state *state, const delivered_packet *packet)
{
    const rtp_delivery *self = &state->rtp;
    const Video4Header *header = &packet->video->header;
    const bool is_consistent =
        header->n_pkts == self->n_pkts && header->subseq < self->n_pkts && packet->view.timestamp == self->timestamp &&
        stream_state_inner_number(state, packet->video->common.seq) == self->first_number + header->subseq;
    if (!is_consistent) {
        return FRAME_DROP_TORN;
    }
    return header->subseq == self->next_subseq ? kNoRefusal : FRAME_DROP_INCOMPLETE;
}

bool packet_insert(stream_state *state, PVideoData4 *video, const zeb_ts_t *now_p)
{
    rtp_delivery *self = &state->rtp;
    // Counted from 0 in each frame: the packet index has no room for a frame of more than 256 packets across the wrap
    // of the 16-bit numbers. The RTP header keeps the real one.
    video->common.seq = video->header.subseq;
    video3_video_type type = {video->header.video_type};
    const unsigned frame_type = self->is_key ? KEY_FRAME : DELTA_FRAME;
    type.frame_type = frame_type & 0xFu;
    video->header.video_type = type.video_type;
    const video_frame *frame = video_stream_insert_video_packet(state->stream, video, 0, now_p);
    return frame != nullptr && zeb_dynamic_array_is_empty(&video->payload);
}

bool packet_read(PVideoData4 *video, delivered_packet *packet)
{
    const auto *bytes = static_cast<const uint8_t *>(video->payload.values);
    if (bytes == nullptr || rtp_parse(bytes, video->payload.count, &packet->view) != PACKET_DROP_REASONS) {
        return false;
    }
    packet->video = video;
    packet->payload = bytes + packet->view.header_size;
    return true;
}

// What the packet adds to its frame. Returns kNoRefusal, or why the frame is lost with it.
frame_drop_e payload_note(rtp_delivery *self, const delivered_packet *packet)
{
    const size_t size = packet->view.payload_size;
    self->next_subseq = static_cast<uint16_t>(packet->video->header.subseq + 1);
    self->has_media = self->has_media || size > 0;
    self->fault = unit_chain_note(&self->units, packet->video->header.codec, packet->payload, size);
    return self->fault == PAYLOAD_FAULTS ? kNoRefusal : FRAME_DROP_MALFORMED;
}

int add_packet(stream_state *state, PVideoData4 *video, bool is_key, const zeb_ts_t *now_p)
{
    rtp_delivery *self = &state->rtp;
    delivered_packet packet;
    if (!packet_read(video, &packet)) {
        return -1;
    }
    if (is_new_frame(self, &video->header)) {
        frame_close(state, now_p);
        frame_open(state, &packet, is_key);
    }
    if (self->refusal == kNoRefusal) {
        self->refusal = refusal_of_packet(state, &packet);
    }
    if (self->refusal == kNoRefusal) {
        self->refusal = payload_note(self, &packet);
    }
    if (self->refusal != kNoRefusal) {
        return -1;
    }
    if (!packet_insert(state, video, now_p)) {
        self->refusal = FRAME_DROP_NOT_ASSEMBLED;
        return -1;
    }
    return 0;
}

} // namespace

int rtc_video_add_packet(user_video_stream *stream, PVideoData4 *video, int is_retrans, int is_key,
                         const zeb_ts_t *now_p)
{
    (void)is_retrans;
    (void)now_p;
    stream_state *state = stream_state_of(stream);
    if (state == nullptr || video == nullptr) {
        return -1;
    }
    return add_packet(state, video, is_key != 0, &state->now);
}

void rtc_video_stream_reset_state(user_video_stream *stream, const zeb_ts_t *ts)
{
    (void)ts;
    // The frame before may still be open, so its packets stay until the first one of the next comes.
    stream_state *state = stream_state_of(stream);
    if (state != nullptr) {
        state->rtp.numbering_restarts = true;
    }
}
