// Receives streams from the network, now.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "api/channel.h"
#include "commands/replay.h"
#include "failure.h"
#include "live/udp_sockets.h"
#include "output/file_use.h"

namespace vrc
{

// Eight senders of 50 Mbit/s whose gaps hold up 2 s of each.
constexpr size_t kListenMemory = 256u << 20;

struct listen_options {
    std::optional<uint16_t> port; // none: the description's, or kListenPort
    std::optional<uint8_t> codec; // VIDEO_TYPE_H264, VIDEO_TYPE_H265
    std::optional<uint8_t> payload_type;
    std::string sdp;                       // session description; empty for none
    std::vector<std::string> bind;         // addresses of the host; none: the loopback ones
    std::vector<sdp_crypto> keys;          // of the senders, beside those of the description
    std::vector<file_use> key_files;       // that have been read
    std::optional<sdp_crypto> sending_key; // for RTCP; none: the one that the sender uses
    std::vector<rtx_mapping> rtx;          // beside those of the description
    std::string rtcp;                      // HOST:PORT that is sent to; empty: whoever is heard from
    bool is_rtcp_muxed = false;
    std::optional<channel_feedback> feedback; // none: what the description allows, or what most senders know
    bool waits = false;                       // for losses that nothing will repair
    bool is_all = false;                      // every sender's frames, each in a file of its own
    std::string output;                       // Annex B; "-" is standard output, empty for none
    std::string stats;                        // a JSON record a second; the same
    std::string record;                       // capture; the same
    double duration_s = 0;                    // 0: until stopped
    uint64_t frames = 0;                      // the same
    bool is_json = false;
    bool has_sandbox = true;       // gives up what it does not need once its ports and files are open
    udp_limits limits;             // of datagrams
    size_t memory = kListenMemory; // bytes that what comes may take
    uint16_t max_senders = 0;      // at a time, of each video; 0: kChannelSendersDefault
    int verbosity = 0;
};

constexpr uint16_t kListenPort = 5004; // RFC 3551, 8

// Listens until a limit is reached or SIGINT or SIGTERM comes. Returns nothing_usable when no frame came out.
// Throws failure.
exit_code listen_run(const listen_options &options);

} // namespace vrc
