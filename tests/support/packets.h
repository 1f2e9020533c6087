// Packets for tests: native ones for the frame queue and RTP ones for the reorder cache.
#pragma once

#include <cstdint>
#include <vector>

#include "video_stream.h"

namespace test_support
{

constexpr uint8_t kKey = 0x00;   // video_type of a key frame, high stream
constexpr uint8_t kDelta = 0x10; // video_type of a delta frame

// The RTP fixed header of a packet.
struct rtp_fields {
    seq_t seq = 0;
    uint32_t timestamp = 0;
    bool marker = false;
    uint8_t payload_type = 96;
};

// A 12-byte RTP header and `body` behind it.
std::vector<uint8_t> rtp_bytes(const rtp_fields &fields, const std::vector<uint8_t> &body = {});

// A record that owns a copy of `payload`, all else zero. Allocated through the platform layer.
PVideoData4 packet_with(const std::vector<uint8_t> &payload);

// Releases what a record still owns: after it was refused or copied from.
void release(PVideoData4 *video);

// One packet of the native path.
struct native_fields {
    uint32_t frame_seq = 0;
    uint16_t n_pkts = 1;
    uint16_t subseq = 0;
    seq_t seq = 0;
    uint16_t sent_ts = 0;
    uint32_t reserved = 0;
    uint8_t video_type = kDelta;
    uint8_t codec = VIDEO_TYPE_H264;
    uint8_t protocol_version = 10;
    rtp_fields rtp = {};
    std::vector<uint8_t> body = {0xAB};
};

PVideoData4 native_packet(const native_fields &fields);

// One packet of the RTP path; `common.seq` is the RTP sequence number.
PVideoData4 rtp_packet(seq_t seq, uint32_t timestamp, bool is_key, bool marker);

} // namespace test_support
