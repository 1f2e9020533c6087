// What the tool says about what it listened to. apps/vrc/README.md has the keys of the JSON.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "live/listen_media.h"
#include "report/summary.h"

namespace vrc
{

struct listened_stream {
    replay_result received;    // without counts of a capture
    uint64_t header_bytes = 0; // RTP headers and padding
    srtp_counts decryption;    // of all that came to its port
    std::string file;          // of this stream alone; empty: none
};

// What was left out because a limit was reached.
struct listen_limits {
    udp_refusals datagrams;
    uint64_t frames_not_held = 0;      // of a sender that might have followed the one that is written
    uint64_t frames_without_file = 0;  // of senders beyond those that files are created for
    uint64_t times_without_memory = 0; // what was at hand was dropped: a datagram, a frame or a record of statistics
};

struct listen_result {
    // Every stream; unless `is_all`, one: what was written, or would have been.
    std::vector<listened_stream> streams;
    bool is_all = false;
    std::vector<uint32_t> written; // unless `is_all`: the senders whose frames followed each other in that stream
    size_t other_senders = 0;      // that were not written
    silent_senders silent;         // that are in none of the streams
    std::array<uint64_t, PACKET_DROP_REASONS> refused{}; // packets of no stream
    srtp_counts decryption;
    media_counts counts;
    listen_limits limits;
    uint64_t rtcp_malformed = 0;
    std::string where; // was listened
    uint64_t duration_ms = 0;
};

// Leaves one stream: those that were written, joined in that order; or the first one of all while none is. The others are
// counted. Without a stream, there is none.
void streams_join(listen_result *result);

std::string listen_text(const listen_result &result);
json listen_json(const listen_result &result);

// One line for a person who watches; without a newline.
std::string listen_status(const listen_result &result);

} // namespace vrc
