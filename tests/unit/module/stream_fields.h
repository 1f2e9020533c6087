// Every field of a stream record in its order, with what init and reset make of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "video_stream.h"

enum class field_value {
    zero,
    one,
    all_ones, // -1, or a sequence number that is not known
    kept,     // as it was before
    sequence, // kept, or all ones when sequences are reset too
    own_test  // an argument, an embedded record or an owned object
};

struct stream_field {
    const char *name;
    size_t offset;
    size_t size;
    size_t alignment;
    field_value init_receiving; // after init as a remote user's stream without downlink estimation
    field_value init_sending;   // after init as a stream of the local user
    field_value reset;
};

inline std::vector<uint8_t> bytes_of(const user_video_stream &stream, const stream_field &field)
{
    const auto *first = reinterpret_cast<const uint8_t *>(&stream) + field.offset;

    return std::vector<uint8_t>(first, first + field.size);
}

// Fields are single integers or records that are all zero, so "one" is an integer of the machine's order.
inline std::vector<uint8_t> bytes_of(field_value value, size_t size)
{
    std::vector<uint8_t> bytes(size, value == field_value::all_ones ? 0xFF : 0);
    const uint32_t one = 1;

    if (value == field_value::one) {
        memcpy(bytes.data(), &one, sizeof(one));
    }
    return bytes;
}

// Of a field by its pointer to member.
template <typename Field> constexpr size_t size_of(Field user_video_stream::*)
{
    return sizeof(Field); // NOLINT(bugprone-sizeof-expression): a pointer counts as itself
}

#define STREAM_FIELD(name, init_receiving, init_sending, reset)                                                        \
    {                                                                                                                  \
#name, offsetof(user_video_stream, name), size_of(&user_video_stream::name),                                   \
            alignof(decltype(user_video_stream::name)), field_value::init_receiving, field_value::init_sending,        \
            field_value::reset                                                                                         \
    }
#define COUNTER(name) STREAM_FIELD(name, zero, zero, zero)

inline const stream_field kStreamFields[] = {
    STREAM_FIELD(node, zero, zero, kept),
    STREAM_FIELD(user, own_test, zero, own_test),
    STREAM_FIELD(channel, own_test, own_test, own_test),
    STREAM_FIELD(s_flags, one, one, one),
    COUNTER(n_key_recent),
    COUNTER(n_key_req_sent_recent),
    COUNTER(n_key_req_recv_recent),
    COUNTER(n_retrans_recent),
    COUNTER(n_retrans_req_recent),
    COUNTER(n_retrans_req_received_recent),
    COUNTER(n_overlapped_frames_recent),
    COUNTER(n_frames_send_recent),
    COUNTER(frame_pkt_num_max),
    COUNTER(last_send_frame_seq),
    STREAM_FIELD(is_webrtc, zero, zero, zero),
    STREAM_FIELD(is_nass, zero, zero, zero),
    STREAM_FIELD(stream_id, own_test, own_test, kept),
    STREAM_FIELD(codec, zero, zero, kept),
    STREAM_FIELD(width, zero, zero, kept),
    STREAM_FIELD(height, zero, zero, kept),
    STREAM_FIELD(pkt_seq, all_ones, all_ones, sequence),
    STREAM_FIELD(frame_seq, zero, zero, sequence),
    COUNTER(percent_loss_raw),
    COUNTER(percent_lost_after_arq),
    COUNTER(percent_lost_after_fec),
    COUNTER(n_xfer_origin_bytes_recent),
    COUNTER(n_xfer_origin_med_bytes_recent),
    COUNTER(n_xfer_origin_fec_bytes_recent),
    COUNTER(n_xfer_bytes_recent),
    COUNTER(n_rexfer_bytes_recent),
    COUNTER(n_xfer_bytes),
    COUNTER(n_xfer_packets),
    COUNTER(n_xfer_frames),
    COUNTER(n_send_origin_bytes_recent),
    COUNTER(n_send_origin_med_bytes_recent),
    COUNTER(n_send_origin_fec_bytes_recent),
    COUNTER(n_send_bytes_recent),
    COUNTER(n_send_med_bytes_recent),
    COUNTER(n_send_retran_recent),
    COUNTER(media_pkg_num),
    COUNTER(fec_pkg_num),
    STREAM_FIELD(video_cache_q, own_test, own_test, own_test),
    STREAM_FIELD(video_frames_q, own_test, own_test, own_test),
    COUNTER(n_fec_recovered_frames_recent),
    COUNTER(n_fec_recovered_frames),
    STREAM_FIELD(first_rcv_key_frame_seq, zero, zero, all_ones),
    STREAM_FIELD(second_rcv_key_frame_seq, all_ones, zero, all_ones),
    COUNTER(next_idr_should_at),
    COUNTER(last_received_at),
    COUNTER(next_retrans_req_should_at),
    COUNTER(ehsnr),
    COUNTER(received_ts_last),
    COUNTER(received_seq_max),
    COUNTER(n_received_pkt_bytes_max),
    COUNTER(n_frames_to_user_recent),
    COUNTER(n_bytes_to_user_recent),
    COUNTER(n_k_frames_to_user),
    COUNTER(last_to_user_at),
    COUNTER(latest_local_remote_ts_ratio),
    COUNTER(last_to_user_ts),
    STREAM_FIELD(current_net_rcv_quality, own_test, zero, own_test),
    STREAM_FIELD(old_net_rcv_quality, zero, zero, own_test),
    STREAM_FIELD(lost_calculator, zero, zero, kept),
    STREAM_FIELD(jitter_calculator, zero, zero, kept),
    STREAM_FIELD(bcm_stat, zero, zero, own_test),
    COUNTER(freeze_time_600ms),
    COUNTER(freeze_time_500ms),
    COUNTER(freeze_time_200ms),
    COUNTER(freeze_count_600ms),
    COUNTER(freeze_count_500ms),
    COUNTER(freeze_count_200ms),
    COUNTER(freeze_time_600ms_last),
    COUNTER(freeze_time_500ms_last),
    COUNTER(freeze_time_200ms_last),
    COUNTER(freeze_count_600ms_last),
    COUNTER(freeze_count_500ms_last),
    COUNTER(freeze_count_200ms_last),
    COUNTER(downlink_process_total_cost_ms),
    COUNTER(downlink_frame_total),
    COUNTER(peer_uplink_cost_ms),
};

#undef COUNTER
#undef STREAM_FIELD
