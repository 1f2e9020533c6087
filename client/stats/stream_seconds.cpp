#include "stats/stream_seconds.h"

#include "session/stream_state.h"

namespace
{

constexpr uint64_t kTicksPerMillisecond = 90;  // RFC 6184 and RFC 7798: a 90 kHz clock
constexpr uint32_t kTimestampReach = 90000000; // timestamp units; beyond, the sender's clock was set anew

// ---- What a whole second tells ----

// Repairs may come in the second after the loss, so that a second can lose less than nothing.
uint8_t percent_of(int64_t part, int64_t whole)
{
    if (part <= 0 || whole <= 0) {
        return 0;
    }
    return static_cast<uint8_t>(part < whole ? (part * 100 + whole / 2) / whole : 100);
}

void loss_work_out(stream_state *state)
{
    const stream_seconds *start = &state->seconds;
    const stream_report *report = &state->report;
    const auto lost = static_cast<int64_t>(report->packets_lost - start->packets_lost);
    const auto repaired = static_cast<int64_t>(report->packets_repaired - start->packets_repaired);
    const int64_t expected = lost + static_cast<int64_t>(report->packets_unique - start->packets_unique);
    user_video_stream *stream = state->stream;
    stream->percent_loss_raw = percent_of(lost + repaired, expected);
    stream->percent_lost_after_arq = percent_of(lost, expected);
    // Packets of forward error correction are counted and located, not decoded: they bring nothing back.
    stream->percent_lost_after_fec = stream->percent_lost_after_arq;
}

// Milliseconds that passed here in 1000 of the sender's.
void pace_work_out(stream_state *state)
{
    const stream_seconds *start = &state->seconds;
    const uint32_t remote = state->restarts.timestamp - start->newest_timestamp;
    const zeb_ts_t local = state->restarts.at - start->newest_at;
    if (remote > 0 && remote <= kTimestampReach) {
        const uint64_t ratio = local * kTicksPerMillisecond * 1000 / remote;
        state->stream->latest_local_remote_ts_ratio = static_cast<uint32_t>(ratio < UINT32_MAX ? ratio : UINT32_MAX);
    }
}

// ---- Rolling over ----

void second_keep(stream_second *second, const user_video_stream *stream)
{
    second->bytes = stream->n_xfer_bytes_recent;
    second->bytes_original = stream->n_xfer_origin_bytes_recent;
    second->bytes_retransmitted = stream->n_rexfer_bytes_recent;
    second->retransmissions = stream->n_retrans_recent;
    second->retransmission_requests = stream->n_retrans_req_recent;
    second->key_frame_requests = stream->n_key_req_sent_recent;
    second->frames = stream->n_frames_to_user_recent;
    second->frame_bytes = stream->n_bytes_to_user_recent;
    second->percent_loss_raw = stream->percent_loss_raw;
    second->percent_lost_after_arq = stream->percent_lost_after_arq;
}

void freezes_keep(user_video_stream *stream)
{
    stream->freeze_time_600ms_last = stream->freeze_time_600ms;
    stream->freeze_time_500ms_last = stream->freeze_time_500ms;
    stream->freeze_time_200ms_last = stream->freeze_time_200ms;
    stream->freeze_count_600ms_last = stream->freeze_count_600ms;
    stream->freeze_count_500ms_last = stream->freeze_count_500ms;
    stream->freeze_count_200ms_last = stream->freeze_count_200ms;
}

void received_clear(user_video_stream *stream)
{
    stream->n_key_recent = 0;
    stream->n_key_req_sent_recent = 0;
    stream->n_retrans_recent = 0;
    stream->n_retrans_req_recent = 0;
    stream->n_overlapped_frames_recent = 0;
    stream->n_xfer_origin_bytes_recent = 0;
    stream->n_xfer_origin_med_bytes_recent = 0;
    stream->n_xfer_origin_fec_bytes_recent = 0;
    stream->n_xfer_bytes_recent = 0;
    stream->n_rexfer_bytes_recent = 0;
    stream->n_fec_recovered_frames_recent = 0;
    stream->n_frames_to_user_recent = 0;
    stream->n_bytes_to_user_recent = 0;
    stream->video_cache_q.n_retrans_req_recent = 0;
    stream->video_cache_q.n_intra_req_sent_recent = 0;
    seq_lost_calculator_init(&stream->lost_calculator);
}

void second_begin(stream_state *state, zeb_ts_t at)
{
    const stream_report *report = &state->report;
    state->seconds = {true,
                      at,
                      report->packets_unique,
                      report->packets_lost,
                      report->packets_repaired,
                      state->restarts.timestamp,
                      state->restarts.at};
}

// What came before the first tick belongs to the first second.
void begin_first(stream_state *state)
{
    stream_seconds *self = &state->seconds;
    self->has_begun = true;
    self->began_at = state->report.first_packet_at;
    self->newest_timestamp = state->restarts.timestamp;
    self->newest_at = state->restarts.at;
}

} // namespace

void stream_seconds_tick(stream_state *state, zeb_ts_t now)
{
    if (!state->seconds.has_begun && state->restarts.has_packet) {
        begin_first(state);
    }
    const zeb_ts_t elapsed = now - state->seconds.began_at;
    if (!state->seconds.has_begun || elapsed < kStatisticsInterval) {
        return;
    }
    loss_work_out(state);
    pace_work_out(state);
    second_keep(&state->report.last_second, state->stream);
    freezes_keep(state->stream);
    received_clear(state->stream);
    second_begin(state, now - elapsed % kStatisticsInterval);
}
