/* The records of the contract, field by field: FIELD(record, type, name), in order. The types have a
 * fixed width, or that of a pointer; nothing but natural alignment lies between the fields. */
#ifndef RECORD_TABLES_H
#define RECORD_TABLES_H

#include "video_stream.h"

#define LIST_HEAD_FIELDS(FIELD, r)                                                                                     \
    FIELD(r, list_head *, next)                                                                                        \
    FIELD(r, list_head *, prev)

#define RTC_LIST_FIELDS(FIELD, r)                                                                                      \
    FIELD(r, list_head, head)                                                                                          \
    FIELD(r, size_t, count)

#define SEQ_LOST_CALCULATOR_FIELDS(FIELD, r)                                                                           \
    FIELD(r, uint16_t, n_received)                                                                                     \
    FIELD(r, uint16_t, n_expected)                                                                                     \
    FIELD(r, uint16_t, seq_max)                                                                                        \
    FIELD(r, uint16_t, seq_min)

#define JITTER_CALCULATOR_FIELDS(FIELD, r)                                                                             \
    FIELD(r, uint64_t, last_got_at)                                                                                    \
    FIELD(r, uint64_t, n)                                                                                              \
    FIELD(r, int32_t, j)                                                                                               \
    FIELD(r, uint16_t, last_frame_ts)

#define ZEB_DYNAMIC_ARRAY_FIELDS(FIELD, r)                                                                             \
    FIELD(r, uint16_t, count)                                                                                          \
    FIELD(r, uint16_t, allocated)                                                                                      \
    FIELD(r, void *, values)

#define ZEB_RB_ROOT_FIELDS(FIELD, r)                                                                                   \
    FIELD(r, zeb_rb_node *, rb_node)                                                                                   \
    FIELD(r, zeb_rb_cmp_t, rb_cmp)                                                                                     \
    FIELD(r, uint32_t, count)

#define LOG_MOD_FIELDS(FIELD, r)                                                                                       \
    FIELD(r, int32_t, m_id)                                                                                            \
    FIELD(r, int32_t, m_level)                                                                                         \
    FIELD(r, const char *, m_name)

#define KELVRA_BCM_STATISTICS_CONFIG_FIELDS(FIELD, r) FIELD(r, void *, stream)

#define PVIDEO_DATA4_COMMON_FIELDS(FIELD, r)                                                                           \
    FIELD(r, uint32_t, cid)                                                                                            \
    FIELD(r, uint32_t, uid)                                                                                            \
    FIELD(r, uint16_t, seq)                                                                                            \
    FIELD(r, uint16_t, sent_ts)

#define VIDEO4_HEADER_FIELDS(FIELD, r)                                                                                 \
    FIELD(r, uint32_t, frame_seq)                                                                                      \
    FIELD(r, uint16_t, n_pkts)                                                                                         \
    FIELD(r, uint16_t, subseq)                                                                                         \
    FIELD(r, uint8_t, video_type)                                                                                      \
    FIELD(r, uint8_t, codec)                                                                                           \
    FIELD(r, uint8_t, flags)                                                                                           \
    FIELD(r, uint8_t, protocol_version)                                                                                \
    FIELD(r, uint32_t, reserved)

#define VIDEO_EXTENSION_FIELDS(FIELD, r)                                                                               \
    FIELD(r, uint16_t, tag)                                                                                            \
    FIELD(r, uint32_vector_t, contents)

#define PVIDEO_DATA4_FIELDS(FIELD, r)                                                                                  \
    FIELD(r, PVideoData4Common, common)                                                                                \
    FIELD(r, Video4Header, header)                                                                                     \
    FIELD(r, VideoExtension, extension)                                                                                \
    FIELD(r, rtn_bytes_t, payload)

#define RTC_TIMER_COUNTER_PAIR_FIELDS(FIELD, r)                                                                        \
    FIELD(r, uint64_t, at)                                                                                             \
    FIELD(r, uint64_t, n)

#define VIDEO_PACKET_STATUS_FIELDS(FIELD, r) FIELD(r, uint8_t, is_received)

#define VIDEO_FRAME_FIELDS(FIELD, r)                                                                                   \
    FIELD(r, uint64_t, queued_ts)                                                                                      \
    FIELD(r, uint32_t, frame_seq)                                                                                      \
    FIELD(r, uint16_t, n_pkts_total)                                                                                   \
    FIELD(r, uint16_t, n_pkts_media)                                                                                   \
    FIELD(r, uint16_t, n_pkts_received)                                                                                \
    FIELD(r, uint16_t, n_pkts_received_media)                                                                          \
    FIELD(r, uint16_t, n_pkts_received_fec)                                                                            \
    FIELD(r, uint16_t, n_pkts_fec)                                                                                     \
    FIELD(r, uint16_t, protocol_version)                                                                               \
    FIELD(r, uint8_t, is_key_frame)                                                                                    \
    FIELD(r, uint8_t, is_complete)                                                                                     \
    FIELD(r, uint8_t, codec)                                                                                           \
    FIELD(r, uint8_t, payload_type)                                                                                    \
    FIELD(r, uint8_t, rsfec_payload_type)                                                                              \
    FIELD(r, uint16_t, ts)                                                                                             \
    FIELD(r, uint32_t, reserved)                                                                                       \
    FIELD(r, uint16_t, first_pkt_seq)                                                                                  \
    FIELD(r, uint16_t, min_seq)                                                                                        \
    FIELD(r, uint16_t, max_seq)                                                                                        \
    FIELD(r, uint16_t, min_rtp_seq)                                                                                    \
    FIELD(r, uint16_t, max_rtp_seq)                                                                                    \
    FIELD(r, uint16_t, rtp_timestamp)                                                                                  \
    FIELD(r, rtn_bytes_t *, pkts)                                                                                      \
    FIELD(r, video_packet_status_t *, pkts_status)                                                                     \
    FIELD(r, uint8_t, rexfer_cnt)

typedef rtc_timer_counter_pair_t pair_per_packet_index[1280];
typedef int16_t position_per_packet_index[1280];
typedef video_frame forty_frames[40];

#define RTC_VIDEO_FRAMES_FIELDS(FIELD, r)                                                                              \
    FIELD(r, uint16_t, count)                                                                                          \
    FIELD(r, uint16_t, min_ts)                                                                                         \
    FIELD(r, uint16_t, max_ts)                                                                                         \
    FIELD(r, uint32_t, min_frame_seq)                                                                                  \
    FIELD(r, uint32_t, max_frame_seq)                                                                                  \
    FIELD(r, pair_per_packet_index, pkt_tc_pairs)                                                                      \
    FIELD(r, position_per_packet_index, pkt_frame_pos)                                                                 \
    FIELD(r, forty_frames, video_frames)

#define WEBRTC_VIDEO_PACKET_FIELDS(FIELD, r)                                                                           \
    FIELD(r, uint64_t, ts)                                                                                             \
    FIELD(r, uint8_t, state)                                                                                           \
    FIELD(r, uint8_t, is_retrans)                                                                                      \
    FIELD(r, uint8_t, is_key)                                                                                          \
    FIELD(r, uint8_t, endmark)                                                                                         \
    FIELD(r, uint32_t, timestamp)                                                                                      \
    FIELD(r, uint16_t, pkt_seq)                                                                                        \
    FIELD(r, uint32_t, frm_seq)                                                                                        \
    FIELD(r, uint16_t, sub_seq)                                                                                        \
    FIELD(r, webrtc_video_frame_t *, frm_ptr)                                                                          \
    FIELD(r, PVideoData4, video)                                                                                       \
    FIELD(r, rtc_timer_counter_pair_t, tc)

#define WEBRTC_VIDEO_FRAME_FIELDS(FIELD, r)                                                                            \
    FIELD(r, zeb_rb_node, node)                                                                                        \
    FIELD(r, uint64_t, ts)                                                                                             \
    FIELD(r, uint8_t, state)                                                                                           \
    FIELD(r, uint8_t, is_key)                                                                                          \
    FIELD(r, uint32_t, timestamp)                                                                                      \
    FIELD(r, uint32_t, frm_seq)                                                                                        \
    FIELD(r, uint32_t, min_seq)                                                                                        \
    FIELD(r, uint32_t, max_seq)                                                                                        \
    FIELD(r, uint32_t, cur_min_seq)                                                                                    \
    FIELD(r, uint32_t, cur_max_seq)                                                                                    \
    FIELD(r, uint16_t, n_pkts_total)                                                                                   \
    FIELD(r, uint16_t, n_pkts_media)                                                                                   \
    FIELD(r, uint16_t, n_pkts_received)                                                                                \
    FIELD(r, uint16_t, n_pkts_received_media)                                                                          \
    FIELD(r, uint16_t, n_pkts_received_fec)                                                                            \
    FIELD(r, uint16_t, n_pkts_fec)                                                                                     \
    FIELD(r, rtn_vector_t, pkts)

#define WEBRTC_VIDEO_CACHE_FIELDS(FIELD, r)                                                                            \
    FIELD(r, user_video_stream *, stream)                                                                              \
    FIELD(r, webrtc_video_packet_t *, pkt_arr)                                                                         \
    FIELD(r, uint32_t, pkt_cur_cnt)                                                                                    \
    FIELD(r, uint32_t, pkt_all_cnt)                                                                                    \
    FIELD(r, uint32_t, pkt_exp_seq)                                                                                    \
    FIELD(r, uint32_t, pkt_min_seq)                                                                                    \
    FIELD(r, uint32_t, pkt_max_seq)                                                                                    \
    FIELD(r, zeb_rb_root, frm_map)                                                                                     \
    FIELD(r, uint32_t, frm_cur_cnt)                                                                                    \
    FIELD(r, uint32_t, frm_all_cnt)                                                                                    \
    FIELD(r, uint64_t, frm_min_timestamp)                                                                              \
    FIELD(r, uint64_t, frm_max_timestamp)                                                                              \
    FIELD(r, uint32_t, frm_flag)                                                                                       \
    FIELD(r, uint64_t, last_deliver_frm_ts)                                                                            \
    FIELD(r, uint64_t, last_deliver_frm_seq)                                                                           \
    FIELD(r, uint32_t, last_deliver_pkt_seq)                                                                           \
    FIELD(r, uint32_t, last_ordered_pkt_seq)                                                                           \
    FIELD(r, uint64_t, last_ordered_timestamp)                                                                         \
    FIELD(r, uint64_t, last_removed_timestamp)                                                                         \
    FIELD(r, uint16_t, n_retrans_req_recent)                                                                           \
    FIELD(r, uint16_t, n_intra_req_sent_recent)                                                                        \
    FIELD(r, uint64_t, next_retrans_req_should_at)                                                                     \
    FIELD(r, uint64_t, next_intra_req_should_at)

#define USER_VIDEO_STREAM_FIELDS(FIELD, r)                                                                             \
    FIELD(r, list_head, node)                                                                                          \
    FIELD(r, rtc_user *, user)                                                                                         \
    FIELD(r, rtc_channel *, channel)                                                                                   \
    FIELD(r, uint32_t, s_flags)                                                                                        \
    FIELD(r, uint16_t, n_key_recent)                                                                                   \
    FIELD(r, uint16_t, n_key_req_sent_recent)                                                                          \
    FIELD(r, uint16_t, n_key_req_recv_recent)                                                                          \
    FIELD(r, uint16_t, n_retrans_recent)                                                                               \
    FIELD(r, uint16_t, n_retrans_req_recent)                                                                           \
    FIELD(r, uint16_t, n_retrans_req_received_recent)                                                                  \
    FIELD(r, uint16_t, n_overlapped_frames_recent)                                                                     \
    FIELD(r, uint16_t, n_frames_send_recent)                                                                           \
    FIELD(r, uint16_t, frame_pkt_num_max)                                                                              \
    FIELD(r, uint32_t, last_send_frame_seq)                                                                            \
    FIELD(r, uint8_t, is_webrtc)                                                                                       \
    FIELD(r, uint8_t, is_nass)                                                                                         \
    FIELD(r, uint8_t, stream_id)                                                                                       \
    FIELD(r, uint8_t, codec)                                                                                           \
    FIELD(r, uint32_t, width)                                                                                          \
    FIELD(r, uint32_t, height)                                                                                         \
    FIELD(r, uint32_t, pkt_seq)                                                                                        \
    FIELD(r, uint32_t, frame_seq)                                                                                      \
    FIELD(r, uint8_t, percent_loss_raw)                                                                                \
    FIELD(r, uint8_t, percent_lost_after_arq)                                                                          \
    FIELD(r, uint8_t, percent_lost_after_fec)                                                                          \
    FIELD(r, uint32_t, n_xfer_origin_bytes_recent)                                                                     \
    FIELD(r, uint32_t, n_xfer_origin_med_bytes_recent)                                                                 \
    FIELD(r, uint32_t, n_xfer_origin_fec_bytes_recent)                                                                 \
    FIELD(r, uint32_t, n_xfer_bytes_recent)                                                                            \
    FIELD(r, uint32_t, n_rexfer_bytes_recent)                                                                          \
    FIELD(r, uint64_t, n_xfer_bytes)                                                                                   \
    FIELD(r, uint64_t, n_xfer_packets)                                                                                 \
    FIELD(r, uint64_t, n_xfer_frames)                                                                                  \
    FIELD(r, uint32_t, n_send_origin_bytes_recent)                                                                     \
    FIELD(r, uint32_t, n_send_origin_med_bytes_recent)                                                                 \
    FIELD(r, uint32_t, n_send_origin_fec_bytes_recent)                                                                 \
    FIELD(r, uint32_t, n_send_bytes_recent)                                                                            \
    FIELD(r, uint32_t, n_send_med_bytes_recent)                                                                        \
    FIELD(r, uint32_t, n_send_retran_recent)                                                                           \
    FIELD(r, uint8_t, media_pkg_num)                                                                                   \
    FIELD(r, uint8_t, fec_pkg_num)                                                                                     \
    FIELD(r, webrtc_video_cache_t, video_cache_q)                                                                      \
    FIELD(r, rtc_video_frames_t, video_frames_q)                                                                       \
    FIELD(r, uint16_t, n_fec_recovered_frames_recent)                                                                  \
    FIELD(r, uint64_t, n_fec_recovered_frames)                                                                         \
    FIELD(r, int32_t, first_rcv_key_frame_seq)                                                                         \
    FIELD(r, int32_t, second_rcv_key_frame_seq)                                                                        \
    FIELD(r, uint64_t, next_idr_should_at)                                                                             \
    FIELD(r, uint64_t, last_received_at)                                                                               \
    FIELD(r, uint64_t, next_retrans_req_should_at)                                                                     \
    FIELD(r, uint32_t, ehsnr)                                                                                          \
    FIELD(r, uint16_t, received_ts_last)                                                                               \
    FIELD(r, uint16_t, received_seq_max)                                                                               \
    FIELD(r, uint16_t, n_received_pkt_bytes_max)                                                                       \
    FIELD(r, uint16_t, n_frames_to_user_recent)                                                                        \
    FIELD(r, uint32_t, n_bytes_to_user_recent)                                                                         \
    FIELD(r, uint32_t, n_k_frames_to_user)                                                                             \
    FIELD(r, uint64_t, last_to_user_at)                                                                                \
    FIELD(r, uint32_t, latest_local_remote_ts_ratio)                                                                   \
    FIELD(r, uint16_t, last_to_user_ts)                                                                                \
    FIELD(r, net_rcv_analyzer_t *, current_net_rcv_quality)                                                            \
    FIELD(r, net_rcv_analyzer_t *, old_net_rcv_quality)                                                                \
    FIELD(r, seq_lost_calculator_t, lost_calculator)                                                                   \
    FIELD(r, jitter_calculator_t, jitter_calculator)                                                                   \
    FIELD(r, KelvraBcmStatistics *, bcm_stat)                                                                          \
    FIELD(r, uint64_t, freeze_time_600ms)                                                                              \
    FIELD(r, uint64_t, freeze_time_500ms)                                                                              \
    FIELD(r, uint64_t, freeze_time_200ms)                                                                              \
    FIELD(r, uint32_t, freeze_count_600ms)                                                                             \
    FIELD(r, uint32_t, freeze_count_500ms)                                                                             \
    FIELD(r, uint32_t, freeze_count_200ms)                                                                             \
    FIELD(r, uint64_t, freeze_time_600ms_last)                                                                         \
    FIELD(r, uint64_t, freeze_time_500ms_last)                                                                         \
    FIELD(r, uint64_t, freeze_time_200ms_last)                                                                         \
    FIELD(r, uint32_t, freeze_count_600ms_last)                                                                        \
    FIELD(r, uint32_t, freeze_count_500ms_last)                                                                        \
    FIELD(r, uint32_t, freeze_count_200ms_last)                                                                        \
    FIELD(r, uint32_t, downlink_process_total_cost_ms)                                                                 \
    FIELD(r, uint32_t, downlink_frame_total)                                                                           \
    FIELD(r, uint32_t, peer_uplink_cost_ms)

/* RECORD(record, fields): the records whose layout is fixed as a whole. */
#define RECORDS(RECORD)                                                                                                \
    RECORD(list_head, LIST_HEAD_FIELDS)                                                                                \
    RECORD(rtc_list_t, RTC_LIST_FIELDS)                                                                                \
    RECORD(seq_lost_calculator_t, SEQ_LOST_CALCULATOR_FIELDS)                                                          \
    RECORD(jitter_calculator_t, JITTER_CALCULATOR_FIELDS)                                                              \
    RECORD(zeb_dynamic_array_t, ZEB_DYNAMIC_ARRAY_FIELDS)                                                              \
    RECORD(zeb_rb_root, ZEB_RB_ROOT_FIELDS)                                                                            \
    RECORD(log_mod_t, LOG_MOD_FIELDS)                                                                                  \
    RECORD(KelvraBcmStatisticsConfig, KELVRA_BCM_STATISTICS_CONFIG_FIELDS)                                             \
    RECORD(PVideoData4Common, PVIDEO_DATA4_COMMON_FIELDS)                                                              \
    RECORD(Video4Header, VIDEO4_HEADER_FIELDS)                                                                         \
    RECORD(VideoExtension, VIDEO_EXTENSION_FIELDS)                                                                     \
    RECORD(PVideoData4, PVIDEO_DATA4_FIELDS)                                                                           \
    RECORD(rtc_timer_counter_pair_t, RTC_TIMER_COUNTER_PAIR_FIELDS)                                                    \
    RECORD(video_packet_status_t, VIDEO_PACKET_STATUS_FIELDS)                                                          \
    RECORD(video_frame, VIDEO_FRAME_FIELDS)                                                                            \
    RECORD(rtc_video_frames_t, RTC_VIDEO_FRAMES_FIELDS)                                                                \
    RECORD(webrtc_video_packet_t, WEBRTC_VIDEO_PACKET_FIELDS)                                                          \
    RECORD(webrtc_video_frame_t, WEBRTC_VIDEO_FRAME_FIELDS)                                                            \
    RECORD(webrtc_video_cache_t, WEBRTC_VIDEO_CACHE_FIELDS)                                                            \
    RECORD(user_video_stream, USER_VIDEO_STREAM_FIELDS)

/* Fields of records that hold more, in an order of their own: FIELD(record, type, name). */
#define FIELDS_OF_OPEN_RECORDS(FIELD)                                                                                  \
    FIELD(KelvraBcmStatistics, int64_t, last_reported_continuous_frame_number_)                                        \
    FIELD(KelvraBcmStatistics, int64_t, last_reported_complete_frame_number_)                                          \
    FIELD(KelvraBcmStatistics, int64_t, next_send_goodbad_pic_at)                                                      \
    FIELD(KelvraBcmStatistics, bool, use_sent_ts_enable_)                                                              \
    FIELD(bandwidth_est_opt_t, bool, enable_bandwidth_est_downlink)                                                    \
    FIELD(rtc_channel, rtc_service *, service)                                                                         \
    FIELD(rtc_channel, rtc_list_t, video_stream_q)                                                                     \
    FIELD(rtc_channel, bandwidth_est_opt_t, bandwidth_est_opt)                                                         \
    FIELD(rtc_user, rtc_list_t, video_streams_q)                                                                       \
    FIELD(rtc_service, rtc_list_t, free_user_video_streams)

#define CONSTANTS(VALUE)                                                                                               \
    VALUE(KEY_FRAME, 0)                                                                                                \
    VALUE(DELTA_FRAME, 1)                                                                                              \
    VALUE(B_FRAME, 2)                                                                                                  \
    VALUE(VIDEO_STREAM_TYPE_UNKNOWN, -1)                                                                               \
    VALUE(VIDEO_STREAM_TYPE_HIGH, 0)                                                                                   \
    VALUE(VIDEO_STREAM_TYPE_LOW, 1)                                                                                    \
    VALUE(VIDEO_STREAM_TYPE_MEDIUM, 2)                                                                                 \
    VALUE(VIDEO_STREAM_TYPE_LIVE, 3)                                                                                   \
    VALUE(VIDEO_STREAM_TYPE_MIN, 0)                                                                                    \
    VALUE(VIDEO_STREAM_TYPE_MAX, 3)                                                                                    \
    VALUE(RTC_LOG_DEFAULT, 0)                                                                                          \
    VALUE(RTC_LOG_EMERG, 1)                                                                                            \
    VALUE(RTC_LOG_ALERT, 2)                                                                                            \
    VALUE(RTC_LOG_CRIT, 3)                                                                                             \
    VALUE(RTC_LOG_ERROR, 4)                                                                                            \
    VALUE(RTC_LOG_WARNING, 5)                                                                                          \
    VALUE(RTC_LOG_NOTICE, 6)                                                                                           \
    VALUE(RTC_LOG_INFO, 7)                                                                                             \
    VALUE(RTC_LOG_DEBUG, 8)                                                                                            \
    VALUE(LM_MIN, 0)                                                                                                   \
    VALUE(LM_SND_VID, 9)                                                                                               \
    VALUE(LM_RCV_VID, 10)                                                                                              \
    VALUE(LM_RDT, 22)                                                                                                  \
    VALUE(LM_MAX, 23)                                                                                                  \
    VALUE(VIDEO_TYPE_VP8, 1)                                                                                           \
    VALUE(VIDEO_TYPE_H264, 2)                                                                                          \
    VALUE(VIDEO_TYPE_H265, 3)                                                                                          \
    VALUE(VIDEO_TYPE_GENERIC, 6)                                                                                       \
    VALUE(VIDEO_TYPE_GENERIC_H264, 7)                                                                                  \
    VALUE(VIDEO_TYPE_GENERIC_JPEG, 20)                                                                                 \
    VALUE(VIDEO_TYPE_UNKNOWN, 254)                                                                                     \
    VALUE(VIDEO_DATA_TYPE_YUV420, 0)                                                                                   \
    VALUE(VIDEO_DATA_TYPE_H264, 2)                                                                                     \
    VALUE(VIDEO_DATA_TYPE_H265, 3)                                                                                     \
    VALUE(VIDEO_DATA_TYPE_GENERIC, 6)                                                                                  \
    VALUE(VIDEO_DATA_TYPE_GENERIC_JPEG, 20)                                                                            \
    VALUE(PACKETIZER_TYPE_GENERIC, 0)                                                                                  \
    VALUE(PACKETIZER_TYPE_H264, 1)                                                                                     \
    VALUE(PACKETIZER_TYPE_H265, 2)                                                                                     \
    VALUE(PACKETIZER_TYPE_UNKNOWN, 254)                                                                                \
    VALUE(WEBRTC_VIDEO_FRM_NONE, 0)                                                                                    \
    VALUE(WEBRTC_VIDEO_FRM_INCOMPLETE, 1)                                                                              \
    VALUE(WEBRTC_VIDEO_FRM_COMPLETE, 2)                                                                                \
    VALUE(WEBRTC_VIDEO_PKT_NONE, 0)                                                                                    \
    VALUE(WEBRTC_VIDEO_PKT_SET, 1)                                                                                     \
    VALUE(VIDEO_FRAMES_Q_SLOTS, 40)                                                                                    \
    VALUE(VIDEO_FRAMES_Q_PKT_INDEX, 1280)                                                                              \
    VALUE(WEBRTC_VIDEO_RING_SLOTS, 8192)

#endif
