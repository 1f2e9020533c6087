// The most memory that what strangers send can make the client hold, from its own constants.
#pragma once

#include <algorithm>
#include <cstddef>

#include "arrival/packet_hold.h"
#include "session/user.h"

namespace fuzz
{

// Records that only their layer knows: the receive analysers, the estimator of the rate. Measured to be smaller.
constexpr size_t kOpaqueRecords = 16384;

// A received packet of `size` bytes with the room that its NAL units may need: a unit of one byte comes with 3 and goes
// with 5.
constexpr size_t with_room_behind(size_t size)
{
    return std::min<size_t>(size + size * 2 / 3, UINT16_MAX);
}

// What a stream holds between two calls, when no packet is larger than `size` bytes. The reorder cache's frames have a
// packet each, or had one before the last tick.
constexpr size_t rtp_stream_budget(size_t size, size_t packets_since_tick)
{
    const size_t packet = with_room_behind(size);
    const size_t ring = WEBRTC_VIDEO_RING_SLOTS * (sizeof(webrtc_video_packet_t) + packet);
    const size_t frames = (WEBRTC_VIDEO_RING_SLOTS + packets_since_tick) * sizeof(webrtc_video_frame_t);
    const size_t held = (kPacketHoldMax + 1) * (sizeof(held_packet) + packet);
    return ring + frames + held;
}

constexpr size_t kFrameArrays = VIDEO_FRAMES_Q_PKT_INDEX * (sizeof(rtn_bytes_t) + sizeof(video_packet_status_t));

constexpr size_t native_stream_budget(size_t size)
{
    const size_t packet = with_room_behind(size);
    return VIDEO_FRAMES_Q_SLOTS * (kFrameArrays + VIDEO_FRAMES_Q_PKT_INDEX * packet) + sizeof(held_packet) + packet;
}

// A stream takes one of the two paths for good.
constexpr size_t stream_budget(size_t packet, size_t packets_since_tick)
{
    const size_t records =
        sizeof(user_video_stream) + sizeof(stream_state) + sizeof(KelvraBcmStatistics) + kOpaqueRecords;
    return records + std::max(rtp_stream_budget(packet, packets_since_tick), native_stream_budget(packet));
}

// What a call may hold beside that until it returns: the frame's views, its bitstream, with parameter sets in front; a
// retransmission's original.
constexpr size_t call_budget(size_t size)
{
    const size_t packet = with_room_behind(size);
    constexpr size_t start_codes = 32;
    const size_t bitstream = VIDEO_FRAMES_Q_PKT_INDEX * (packet + start_codes);
    const size_t sets = kParameterSetsMax * (kParameterSetMax + 4);
    return VIDEO_FRAMES_Q_PKT_INDEX * sizeof(rtn_bytes_t) + 2 * bitstream + sets + packet;
}

} // namespace fuzz
