// Receive statistics under the names of the W3C's "Identifiers for WebRTC's Statistics API" where one fits.
#pragma once

#include <cstdint>

#include "api/stream_report.h"
#include "report/summary.h"

namespace vrc
{

struct stats_moment {
    uint64_t timestamp_ms = 0; // since 1970
    uint32_t ssrc = 0;
    uint64_t header_bytes = 0; // of the report's bytes: RTP headers and padding
    srtp_counts decryption;    // of all that came to the stream's port
};

// One record of type "inbound-rtp". apps/vrc/README.md has its keys.
json stats_record(const stream_report &report, const stats_moment &moment);

} // namespace vrc
