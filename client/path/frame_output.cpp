#include "path/frame_output.h"

#include <cstring>

#include "codec/unit_chain.h"
#include "session/channel_state.h"
#include "session/client_log.h"
#include "session/user.h"

namespace
{

PACKETIZER_TYPE packetizer_of(const video_frame *frame)
{
    if (video_frame_is_generic(frame) != 0) {
        return PACKETIZER_TYPE_GENERIC;
    }
    switch (frame->codec) {
    case VIDEO_TYPE_H264:
        return PACKETIZER_TYPE_H264;
    case VIDEO_TYPE_H265:
        return PACKETIZER_TYPE_H265;
    default:
        return PACKETIZER_TYPE_UNKNOWN;
    }
}

// The packets of a frame may disagree about its headers, and the frame goes by the first one that came. A view that
// is longer than its packet has wrapped.
bool views_fit(const video_frame *frame, const video_frame *parsed)
{
    for (size_t i = 0; i < frame->n_pkts_total; i++) {
        if (parsed->pkts[i].count > frame->pkts[i].count) {
            return false;
        }
    }
    return true;
}

// On the RTP path the delivery has looked at each payload when it came.
payload_fault_e native_fault_of(const video_frame *frame, const video_frame *parsed)
{
    unit_chain units = {};
    if (video_frame_is_generic(frame) != 0) {
        return PAYLOAD_FAULTS;
    }
    for (size_t i = 0; i < frame->n_pkts_media; i++) {
        const auto *payload = static_cast<const uint8_t *>(parsed->pkts[i].values);
        const payload_fault_e fault = unit_chain_note(&units, frame->codec, payload, parsed->pkts[i].count);
        if (fault != PAYLOAD_FAULTS) {
            return fault;
        }
    }
    return unit_chain_end(&units);
}

// Null when none came out; `fault` tells why, or is PAYLOAD_FAULTS.
uint8_t *bitstream_make(const stream_state *state, const video_frame *frame, size_t *size, payload_fault_e *fault)
{
    const PACKETIZER_TYPE packetizer = packetizer_of(frame);
    video_frame parsed = {};
    if (packetizer == PACKETIZER_TYPE_UNKNOWN || video_frame_parse_payload(frame, &parsed) != 0 ||
        parsed.pkts == nullptr) {
        return nullptr;
    }
    uint8_t *bitstream = nullptr;
    if (views_fit(frame, &parsed)) {
        *fault = state->is_native ? native_fault_of(frame, &parsed) : PAYLOAD_FAULTS;
        bitstream = *fault == PAYLOAD_FAULTS ? video_frame_regroup_pkts(&parsed, packetizer, size) : nullptr;
    }
    zeb_free_impl(parsed.pkts);
    return bitstream;
}

// Gives a key frame that comes without its parameter sets those that are known. Takes over `bitstream`; null without
// memory.
uint8_t *parameter_sets_prepend(const stream_state *state, uint8_t codec, uint8_t *bitstream, size_t *size)
{
    const uint32_t last = rtp_delivery_last_number(&state->rtp);
    const size_t sets_size = parameter_sets_missing_size(&state->sets, codec, last, bitstream, *size);
    if (sets_size == 0) {
        return bitstream;
    }
    auto *whole = static_cast<uint8_t *>(zeb_malloc_impl_dbg(sets_size + *size, __func__, __LINE__));
    if (whole != nullptr) {
        parameter_sets_write(&state->sets, codec, last, whole);
        memcpy(whole + sets_size, bitstream, *size);
        *size += sets_size;
    }
    zeb_free_impl(bitstream);
    return whole;
}

// ---- Counting ----

void count_freeze(stream_state *state, zeb_ts_t pause)
{
    user_video_stream *stream = state->stream;
    stream_report *report = &state->report;
    if (pause >= 200) {
        report->freezes_200ms = ++stream->freeze_count_200ms;
        report->frozen_200ms = stream->freeze_time_200ms += pause;
    }
    if (pause >= 500) {
        report->freezes_500ms = ++stream->freeze_count_500ms;
        report->frozen_500ms = stream->freeze_time_500ms += pause;
    }
    if (pause >= 600) {
        report->freezes_600ms = ++stream->freeze_count_600ms;
        report->frozen_600ms = stream->freeze_time_600ms += pause;
    }
}

void count_in_record(user_video_stream *stream, const video_frame *frame, const channel_frame *out, zeb_ts_t began_at,
                     zeb_ts_t now)
{
    stream->n_xfer_frames += 1;
    stream->n_frames_to_user_recent = static_cast<uint16_t>(stream->n_frames_to_user_recent + 1);
    stream->n_bytes_to_user_recent += static_cast<uint32_t>(out->size);
    stream->last_to_user_at = now;
    stream->last_to_user_ts = frame->ts;
    stream->downlink_frame_total += 1;
    stream->downlink_process_total_cost_ms += static_cast<uint32_t>(now - began_at);
    if (frame->n_pkts_total > stream->frame_pkt_num_max) {
        stream->frame_pkt_num_max = frame->n_pkts_total;
    }
    if (!out->is_key) {
        return;
    }
    // A fresh record says 0 for "none" here and a reset one -1, so the count of key frames decides.
    if (stream->n_k_frames_to_user == 0) {
        stream->first_rcv_key_frame_seq = static_cast<int32_t>(frame->frame_seq);
    } else if (stream->n_k_frames_to_user == 1) {
        stream->second_rcv_key_frame_seq = static_cast<int32_t>(frame->frame_seq);
    }
    stream->n_k_frames_to_user += 1;
}

void frame_count(stream_state *state, const channel_frame *out, zeb_ts_t began_at, zeb_ts_t now)
{
    stream_report *report = &state->report;
    if (report->frames == 0) {
        report->first_frame_at = now;
    } else {
        count_freeze(state, now - report->last_frame_at);
    }
    report->last_frame_at = now;
    report->frames += 1;
    report->key_frames += out->is_key ? 1 : 0;
    report->frame_bytes += out->size;
    report->frame_delay += now - began_at;
}

} // namespace

void frame_output_drop(stream_state *state, frame_drop_e reason)
{
    state->report.frames_dropped[reason] += 1;
    CLIENT_LOG(LM_CHANNEL, RTC_LOG_INFO, "[%s] frame dropped: %s", state->stream->channel->name_id,
               frame_drop_name(reason));
}

void frame_output_drop_malformed(stream_state *state, payload_fault_e fault)
{
    state->report.payload_faults[fault] += 1;
    frame_output_drop(state, FRAME_DROP_MALFORMED);
}

namespace
{

void count_without_bitstream(stream_state *state, payload_fault_e fault)
{
    if (fault == PAYLOAD_FAULTS) {
        frame_output_drop(state, FRAME_DROP_NOT_ASSEMBLED);
    } else {
        frame_output_drop_malformed(state, fault);
    }
}

// ---- Handing out ----

void call_back(const rtc_channel *channel, const channel_frame *out)
{
    if (channel->state == nullptr || channel->state->on_frame == nullptr) {
        return;
    }
    service_state *service = channel->service->state;
    service->is_in_callback = true;
    channel->state->on_frame(channel->state->on_frame_context, out);
    service->is_in_callback = false;
}

} // namespace

bool frame_output_hand_out(stream_state *state, const video_frame *frame, channel_frame *out, const zeb_ts_t *now_p)
{
    payload_fault_e fault = PAYLOAD_FAULTS;
    uint8_t *bitstream = bitstream_make(state, frame, &out->size, &fault);
    if (bitstream != nullptr && out->is_key) {
        bitstream = parameter_sets_prepend(state, frame->codec, bitstream, &out->size);
    }
    if (bitstream == nullptr) {
        count_without_bitstream(state, fault);
        return false;
    }
    out->data = bitstream;
    out->codec = frame->codec;
    out->uid = state->stream->user->state->uid;
    out->stream_id = state->stream->stream_id;
    out->frame_seq = frame->frame_seq;
    out->first_seq = frame->min_rtp_seq;
    out->last_seq = frame->max_rtp_seq;
    const zeb_ts_t began_at = state->is_native ? frame->queued_ts : state->rtp.began_at;
    frame_count(state, out, began_at, *now_p);
    count_in_record(state->stream, frame, out, began_at, *now_p);
    call_back(state->stream->channel, out);
    zeb_free_impl(bitstream);
    return true;
}
