#include "stream_counters.h"

#include "receive_quality.h"

constexpr uint32_t kVideoClockRate = 90000; // Hz

static void __count_bytes(user_video_stream *stream, const counted_packet *packet)
{
    const auto size = static_cast<uint32_t>(packet->arrival.size);
    stream->n_xfer_packets += 1;
    stream->n_xfer_bytes += size;
    stream->n_xfer_bytes_recent += size;
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

void stream_counters_note(user_video_stream *stream, const counted_packet *packet, zeb_ts_t now)
{
    __count_bytes(stream, packet);
    if (packet->arrival.size > stream->n_received_pkt_bytes_max) {
        stream->n_received_pkt_bytes_max = static_cast<uint16_t>(packet->arrival.size);
    }
    stream->last_received_at = now;
    stream->received_ts_last = packet->sent_ts;
    stream->ehsnr = packet->highest;
    stream->received_seq_max = static_cast<uint16_t>(packet->highest);
    net_rcv_analyzer_on_packet(stream->current_net_rcv_quality, packet->arrival.seq, packet->arrival.timestamp,
                               kVideoClockRate, now);
    seq_lost_calculator_on_packet(&stream->lost_calculator, packet->arrival.seq);
    jitter_calculator_on_packet(&stream->jitter_calculator, packet->sent_ts, now);
}
