// Streams that hold as much as they can.
#pragma once

#include "bench_stream.h"

constexpr zeb_ts_t kNow = 1000;         // milliseconds: when all packets come
constexpr uint32_t kHalfCircle = 32768; // packet numbers
constexpr uint16_t kSmallPacket = bench::kRtpHeaderSize + 1;

// The only packet that comes of a frame of the native path.
PVideoData4 native_packet(uint32_t frame_seq, uint32_t seq, uint16_t n_pkts);

// Inserts it, and returns its frame.
video_frame *insert(user_video_stream *stream, uint32_t frame_seq, uint32_t seq, uint16_t n_pkts);

// 40 frames of one packet each, their numbers almost half a circle apart.
void fill_queue(user_video_stream *stream);

// Gives an RTP packet to the reorder cache. Returns whether that kept it.
bool process(user_video_stream *stream, uint32_t seq, uint32_t timestamp, bool is_key, bool is_marked);

// A delivered key frame, a missing packet, and behind it as many frames of one packet as the ring holds.
void fill_ring(user_video_stream *stream);
