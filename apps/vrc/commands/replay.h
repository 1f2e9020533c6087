// Runs one stream of a capture through the receiver, on the capture's own time.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "api/channel.h"
#include "capture/capture_reader.h"
#include "capture/rtp_finder.h"
#include "sdp.h"
#include "srtp/srtp_session.h"

namespace vrc
{

// Packets of one payload type repeat those of another (RFC 4588).
struct rtx_mapping {
    uint8_t rtx_payload_type;
    uint8_t payload_type;
};

// What is known about a stream beside its packets, and how the receiver shall behave.
struct replay_setup {
    std::vector<sdp_crypto> keys;
    std::shared_ptr<const sdp_session> session; // null: none
    std::vector<rtx_mapping> rtx;               // beside those of the session
    bool gives_up_early = false;                // as channel_feedback::give_up_early
};

struct replay_result {
    rtp_stream stream;
    capture_counts capture;
    srtp_counts decryption;
    stream_report report{};
    std::array<uint64_t, PACKET_DROP_REASONS> refused{}; // packets that did not even reach the stream
    uint64_t silence_skipped_ms = 0;
};

// Takes one frame; returns false when the replay shall end. Must not throw.
using frame_taker = std::function<bool(const channel_frame &frame)>;

// Feeds the packets of `stream`, their retransmissions on the same path, and their sender's RTCP from anywhere to a receiver
// of their codec, runs its service loop on time between them, and goes on after the last one until everything is delivered or given up. `progress` is called now and then with the
// position in the file; it may be empty. Throws failure (no_access) when the capture cannot be read, and
// std::bad_alloc without memory.
replay_result stream_replay(const capture_file &file, const rtp_stream &stream, const frame_taker &on_frame,
                            const std::function<void(uint64_t position)> &progress, const replay_setup &setup = {});

} // namespace vrc
