#include "stats/stream_counters.h"

#include "session/user.h"
#include "stats/receive_quality.h"

namespace
{

constexpr uint32_t kVideoClockRate = 90000; // Hz

void count_bytes(user_video_stream *stream, const counted_packet *packet)
{
    const auto size = static_cast<uint32_t>(packet->arrival.size);
    stream->n_xfer_packets += 1;
    stream->n_xfer_bytes += size;
    stream->n_xfer_bytes_recent += size;
    if (packet->arrival.size > stream->n_received_pkt_bytes_max) {
        stream->n_received_pkt_bytes_max = static_cast<uint16_t>(packet->arrival.size);
    }
    if (packet->arrival.is_retrans) {
        stream->n_retrans_recent = static_cast<uint16_t>(stream->n_retrans_recent + 1);
        stream->n_rexfer_bytes_recent += size;
        return;
    }
    stream->n_xfer_origin_bytes_recent += size;
    if (packet->is_fec) {
        stream->n_xfer_origin_fec_bytes_recent += size;
    } else {
        stream->n_xfer_origin_med_bytes_recent += size;
    }
}

// Losses and jitter of one numbering say nothing about the next. The module releases the old analyser only beside a
// current one.
void quality_begin(user_video_stream *stream)
{
    seq_lost_calculator_init(&stream->lost_calculator);
    jitter_calculator_init(&stream->jitter_calculator);
    if (stream->current_net_rcv_quality == nullptr) {
        return;
    }
    net_rcv_analyzer_t *spare =
        stream->old_net_rcv_quality != nullptr ? stream->old_net_rcv_quality : net_rcv_analyzer_new();
    if (spare != nullptr) {
        stream->old_net_rcv_quality = stream->current_net_rcv_quality;
        stream->current_net_rcv_quality = spare;
    }
    net_rcv_analyzer_reset(stream->current_net_rcv_quality);
}

// A number that no other confirmed would make losses of all numbers up to it. A retransmission is a packet of another
// stream that came for this one (RFC 4588, 4): what the path lost stays lost, and its time of arrival is no sample.
void quality_note(user_video_stream *stream, const counted_packet *packet, zeb_ts_t now)
{
    if (packet->verdict == RECEPTION_RESTARTED) {
        quality_begin(stream);
    }
    if (packet->verdict == RECEPTION_STRAY || packet->arrival.is_retrans) {
        return;
    }
    net_rcv_analyzer_on_packet(stream->current_net_rcv_quality, packet->arrival.seq, packet->arrival.timestamp,
                               kVideoClockRate, now);
    if (packet->verdict != RECEPTION_DUPLICATE) {
        seq_lost_calculator_on_packet(&stream->lost_calculator, packet->arrival.seq);
        jitter_calculator_on_packet(&stream->jitter_calculator, packet->sent_ts, now);
    }
}

bool is_first_of_new_ssrc(const stream_state *state)
{
    return !state->restarts.has_packet && !state->is_native && state->stream->channel->state->users.count > 1;
}

void report_count(stream_state *state, const counted_packet *packet, zeb_ts_t now)
{
    stream_report *report = &state->report;
    switch (packet->verdict) {
    case RECEPTION_DUPLICATE:
    case RECEPTION_STRAY:
        return;
    case RECEPTION_RESUMED:
    case RECEPTION_RESTARTED:
        report->packets_unique += 2; // with the stray one that it confirms
        break;
    case RECEPTION_EARLIER:
        report->packets_repaired += packet->arrival.is_retrans ? 1 : 0;
        report->packets_unique += 1;
        return;
    case RECEPTION_NEWEST:
        report->packets_unique += 1;
        break;
    }
    report->restarts[RESTART_NEW_SSRC] += is_first_of_new_ssrc(state) ? 1 : 0;
    restart_watch_note(&state->restarts, report, packet->verdict, state->stream->codec, packet->arrival.timestamp, now);
}

} // namespace

void stream_counters_note(stream_state *state, const counted_packet *packet, zeb_ts_t now)
{
    user_video_stream *stream = state->stream;
    count_bytes(stream, packet);
    stream->last_received_at = now;
    stream->received_ts_last = packet->sent_ts;
    stream->ehsnr = packet->highest;
    stream->received_seq_max = static_cast<uint16_t>(packet->highest);
    quality_note(stream, packet, now);
    report_count(state, packet, now);
}
