#include "path/native_intake.h"

#include <cstring>

#include "arrival/stray_packet.h"
#include "codec/annexb.h"
#include "path/frame_output.h"
#include "session/client_log.h"
#include "session/user.h"
#include "stats/stream_counters.h"

namespace
{

// ---- The door ----

uint16_t fec_count(const Video4Header *header)
{
    return (header->reserved >> 8) & 0xFF;
}

uint32_t fec_method(const Video4Header *header)
{
    return (header->reserved >> 3) & 7;
}

bool is_fec(const Video4Header *header)
{
    return header->subseq >= header->n_pkts - fec_count(header);
}

bool is_generic(const Video4Header *header)
{
    video_frame frame = {};
    frame.protocol_version = header->protocol_version;
    frame.codec = header->codec;
    return video_frame_is_generic(&frame) != 0;
}

// Bytes between the RTP header and the payload. `first` is the byte there, 0 when there is none.
size_t encapsulation_size(const Video4Header *header, uint8_t payload_type, uint8_t first)
{
    constexpr uint8_t wrapped_payload_type = 116;
    switch (fec_method(header)) {
    case 0:
        return is_generic(header) ? 1 : 0;
    case 1:
        if (payload_type != wrapped_payload_type) {
            return 0;
        }
        return first == 127 ? 2 : (first == 107 ? 1 : 0);
    case 2:
        if (!is_generic(header)) {
            return 0;
        }
        return is_fec(header) ? 2 : 1;
    default:
        return 0;
    }
}

} // namespace

packet_drop_e native_intake_check(const PVideoData4 *video, rtp_view *view)
{
    const Video4Header *header = &video->header;
    const bool is_sane = header->n_pkts > 0 && header->n_pkts <= VIDEO_FRAMES_Q_PKT_INDEX &&
                         header->subseq < header->n_pkts && fec_count(header) <= header->n_pkts;
    if (!is_sane) {
        return PACKET_DROP_BAD_FRAME_HEADER;
    }
    const auto *bytes = static_cast<const uint8_t *>(video->payload.values);
    if (bytes == nullptr) {
        return PACKET_DROP_BAD_HEADER;
    }
    const packet_drop_e reason = rtp_parse(bytes, video->payload.count, view);
    if (reason != PACKET_DROP_REASONS) {
        return reason;
    }
    const uint8_t first = view->payload_size > 0 ? bytes[view->header_size] : 0;
    const bool fits = encapsulation_size(header, view->payload_type, first) <= view->payload_size;
    return fits ? PACKET_DROP_REASONS : PACKET_DROP_BAD_ENCAPSULATION;
}

namespace
{

// ---- Taking packets in ----

// The depacketizers take all bytes behind the header for payload. A generic payload's padding is the module's to cut.
void padding_cut(PVideoData4 *video, const rtp_view *view)
{
    if (is_generic(&video->header)) {
        return;
    }
    auto *bytes = static_cast<uint8_t *>(video->payload.values);
    bytes[0] &= 0xDF; // padding bit
    video->payload.count = static_cast<uint16_t>(video->payload.count - view->padding_size);
}

// Gives the packet the room behind it that its NAL units need. Without memory it stays as it is, and its frame is found
// to have no room.
void room_append(PVideoData4 *video, const rtp_view *view)
{
    const auto *bytes = static_cast<const uint8_t *>(video->payload.values);
    const size_t count = video->payload.count;
    const uint8_t first = count > view->header_size ? bytes[view->header_size] : 0;
    const size_t from = view->header_size + encapsulation_size(&video->header, view->payload_type, first);
    if (is_generic(&video->header) || is_fec(&video->header) || from >= count) {
        return;
    }
    const size_t room = annexb_room_appended(video->header.codec, bytes + from, count - from, UINT16_MAX - count);
    rtn_bytes_t roomy = {};
    roomy.values = room == 0 ? nullptr : zeb_malloc_impl_dbg(count + room, __func__, __LINE__);
    if (roomy.values == nullptr) {
        return;
    }
    roomy.count = roomy.allocated = static_cast<uint16_t>(count + room);
    memcpy(roomy.values, bytes, count);
    memset(static_cast<uint8_t *>(roomy.values) + count, 0, room);
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->payload);
    video->payload = roomy;
}

reception_verdict packet_note(stream_state *state, const PVideoData4 *video, const rtp_view *view, bool is_retrans,
                              zeb_ts_t now)
{
    const reception_packet arrival = {video->common.seq, view->timestamp, video->payload.count,
                                      is_retrans,        view->marker,    PACKET_ROLE_OTHER};
    const reception_verdict verdict = reception_note(&state->arrivals, &state->report, &arrival, now);
    const counted_packet counted = {arrival, reception_highest(&state->arrivals), video->common.sent_ts,
                                    is_fec(&video->header), verdict};
    stream_counters_note(state, &counted, now);
    return verdict;
}

packet_drop_e packet_drop(stream_state *state, packet_drop_e reason)
{
    state->report.packets_dropped[reason] += 1;
    return reason;
}

void numbering_restart(stream_state *state)
{
    CLIENT_LOG(LM_CHANNEL, RTC_LOG_INFO, "[%s] stream of user %u numbers its frames anew",
               state->stream->channel->name_id, state->stream->user->state->uid);
    for (const video_frame &frame : state->stream->video_frames_q.video_frames) {
        if (frame.n_pkts_total != 0) {
            frame_output_drop(state, FRAME_DROP_AFTER_GAP);
        }
    }
    stream_native_path_empty(state->stream);
    native_delivery_init(&state->native);
    state->wants_key_frame = true;
}

// The queue has the packet's frame, and so the place for the packet.
bool has_place(const video_frame *tenant, const PVideoData4 *video)
{
    const auto index = static_cast<uint16_t>(video->common.seq - tenant->first_pkt_seq);
    return tenant->n_pkts_total == video->header.n_pkts && tenant->frame_seq == video->header.frame_seq &&
           index < tenant->n_pkts_total;
}

// Why the frame queue is going to refuse the packet, by its own rules. What it refuses for none of them it has no
// memory for.
packet_drop_e refusal_of(const rtc_video_frames_t *queue, const PVideoData4 *video)
{
    const uint32_t slot = video->header.frame_seq % VIDEO_FRAMES_Q_SLOTS;
    const video_frame *tenant = &queue->video_frames[slot];
    if (tenant->n_pkts_total != 0 && zeb_uint32_after(tenant->frame_seq, video->header.frame_seq) != 0) {
        return PACKET_DROP_LATE;
    }
    const int32_t holder = queue->pkt_frame_pos[video->common.seq % VIDEO_FRAMES_Q_PKT_INDEX];
    const bool is_held = holder >= 0 && holder < VIDEO_FRAMES_Q_SLOTS;
    if (is_held && static_cast<uint32_t>(holder) == slot) {
        return PACKET_DROP_DUPLICATE;
    }
    if (is_held && zeb_uint32_after(video->header.frame_seq, queue->video_frames[holder].frame_seq) == 0) {
        return PACKET_DROP_LATE;
    }
    return has_place(tenant, video) ? PACKET_DROP_DUPLICATE : PACKET_DROP_NO_MEMORY;
}

// Takes back that the packet came. The queue keeps its entry for a packet of a frame that there was no memory for, and
// would refuse a retransmission for it.
void packet_forget(stream_state *state, seq_t seq)
{
    state->stream->video_frames_q.pkt_frame_pos[seq % VIDEO_FRAMES_Q_PKT_INDEX] = -1;
    reception_forget(&state->arrivals, &state->report, reception_number(&state->arrivals, seq));
}

packet_drop_e packet_insert(stream_state *state, PVideoData4 *video, const zeb_ts_t *now_p)
{
    const seq_t seq = video->common.seq;
    const packet_drop_e refusal = refusal_of(&state->stream->video_frames_q, video);
    video_stream_insert_video_packet(state->stream, video, 0, now_p);
    if (zeb_dynamic_array_is_empty(&video->payload)) {
        return PACKET_DROP_REASONS;
    }
    if (refusal == PACKET_DROP_NO_MEMORY) {
        packet_forget(state, seq);
    }
    return packet_drop(state, refusal);
}

void stray_take_in(stream_state *state, const zeb_ts_t *now_p)
{
    held_packet *stray = packet_hold_take_first(&state->stray);
    if (stray != nullptr) {
        packet_insert(state, &stray->video, now_p);
        held_packet_free(stray);
    }
}

bool has_key_frame(const user_video_stream *stream)
{
    for (const video_frame &frame : stream->video_frames_q.video_frames) {
        if (frame.n_pkts_total != 0 && frame.is_key_frame != 0) {
            return true;
        }
    }
    return false;
}

// The frame's number is taken by a frame of other packets.
bool is_other_frame(const stream_state *state, const PVideoData4 *video)
{
    const uint32_t frame_seq = video->header.frame_seq;
    const video_frame *tenant = &state->stream->video_frames_q.video_frames[frame_seq % VIDEO_FRAMES_Q_SLOTS];
    const auto first_seq = static_cast<seq_t>(video->common.seq - video->header.subseq);
    return tenant->n_pkts_total != 0 && tenant->frame_seq == frame_seq && tenant->first_pkt_seq != first_seq;
}

// Frames of before the key frame, whose numbers are higher, still wait for one that was lost.
bool begins_below_held_frames(const user_video_stream *stream, const Video4Header *header)
{
    if (__is_key_frame(header->video_type) == 0) {
        return false;
    }
    for (const video_frame &frame : stream->video_frames_q.video_frames) {
        if (frame.n_pkts_total != 0 && zeb_uint32_after(frame.frame_seq, header->frame_seq) != 0) {
            return true;
        }
    }
    return false;
}

packet_drop_e packet_place(stream_state *state, PVideoData4 *video, bool is_retrans, reception_verdict verdict,
                           const zeb_ts_t *now_p)
{
    switch (verdict) {
    case RECEPTION_DUPLICATE:
        return packet_drop(state, PACKET_DROP_DUPLICATE);
    case RECEPTION_STRAY:
        return stray_packet_keep(state, video, is_retrans);
    case RECEPTION_RESTARTED:
        numbering_restart(state);
        stray_take_in(state, now_p);
        break;
    case RECEPTION_RESUMED:
        stray_take_in(state, now_p);
        break;
    case RECEPTION_NEWEST:
    case RECEPTION_EARLIER:
        break;
    }
    stray_packet_forget(state);
    if (native_delivery_is_past(&state->native, video->header.frame_seq)) {
        // FEC packets come behind the media that made their frame whole.
        const bool is_latest_frame = video->header.frame_seq == state->native.output_seq;
        if (verdict != RECEPTION_NEWEST || is_latest_frame) {
            return packet_drop(state, PACKET_DROP_LATE);
        }
        // The packets go on and the frames do not: the sender's encoder was made anew.
        numbering_restart(state);
    } else if (verdict == RECEPTION_NEWEST &&
               (is_other_frame(state, video) || begins_below_held_frames(state->stream, &video->header))) {
        numbering_restart(state);
    }
    const packet_drop_e result = packet_insert(state, video, now_p);
    if (state->native.needs_key_frame && !has_key_frame(state->stream)) {
        state->wants_key_frame = true;
    }
    native_delivery_run(state, now_p);
    return result;
}

} // namespace

packet_drop_e native_intake_take(stream_state *state, PVideoData4 *video, const rtp_view *view, bool is_retrans,
                                 const zeb_ts_t *now_p)
{
    state->stream->is_nass = 1;
    state->stream->codec = video->header.codec;
    const reception_verdict verdict = packet_note(state, video, view, is_retrans, *now_p);
    video_stream_send_bandwidth_est(state->stream, video, !is_retrans, now_p);
    padding_cut(video, view);
    room_append(video, view);
    return packet_place(state, video, is_retrans, verdict, now_p);
}
