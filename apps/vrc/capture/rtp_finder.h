// Finds the RTP streams among the datagrams of a capture and tells which ones are video.
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "capture/capture_reader.h"
#include "capture/codec_evidence.h"
#include "capture/sequence_tracker.h"
#include "srtp/srtp_session.h"
#include "wire/rtp.h"

namespace vrc
{

// What makes packets one stream.
struct stream_identity {
    flow path;
    uint32_t ssrc = 0;
    uint8_t payload_type = 0;
};

bool operator<(const stream_identity &left, const stream_identity &right);
bool operator==(const stream_identity &left, const stream_identity &right);

// Whose packet this is by its RTP header, well formed or not; none when it is no RTP. Packets of the types 64 to
// 95 are RTCP (RFC 5761, 4).
std::optional<stream_identity> stream_identity_read(const udp_datagram &datagram);

// From here on a stream is taken for what it looks like.
constexpr double kLikelyEnough = 0.6;

// What is known about one stream.
struct rtp_stream {
    stream_identity identity;
    uint8_t codec = 0;     // VIDEO_TYPE_H264, VIDEO_TYPE_H265; VIDEO_TYPE_UNKNOWN when neither is likely
    double likelihood = 0; // of `codec`, or of the likelier one when it is unknown; 0 to 1
    double h264_likelihood = 0;
    double h265_likelihood = 0;
    bool behaves_like_rtp = false; // by sequence numbers and timestamps, whatever the payload is
    bool looks_encrypted = false;  // no codec, and payloads that begin with all sorts of bytes

    uint64_t packets = 0;
    uint64_t bytes = 0; // RTP headers included
    uint64_t lost = 0;
    uint64_t duplicates = 0;
    uint64_t reordered = 0;
    uint64_t first_us = 0; // since the start of the capture
    uint64_t last_us = 0;

    bool is_video() const
    {
        return likelihood >= kLikelyEnough;
    }

    bool is_rtp() const
    {
        return is_video() || behaves_like_rtp;
    }
};

// Bits per second between the first and the last packet; 0 when they came at once.
double stream_bit_rate(const rtp_stream &stream);

// What packets of one identity look like together.
class rtp_candidate
{
  public:
    // `view` is of `packet`. `now_us` is in microseconds, and does not decrease.
    void observe(const rtp_view &view, byte_view packet, uint64_t now_us);
    rtp_stream describe(const stream_identity &identity) const;
    bool behaves_like_rtp() const;

    uint64_t packets() const
    {
        return packets_;
    }

  private:
    void observe_timestamp(uint32_t timestamp);
    void observe_payload(uint16_t seq, byte_view payload);
    double rtp_likelihood() const;
    bool looks_encrypted() const;

    uint64_t packets_ = 0;
    uint64_t bytes_ = 0;
    uint64_t first_us_ = 0;
    uint64_t last_us_ = 0;
    sequence_tracker sequence_;
    uint32_t timestamp_ = 0;       // of the latest packet
    uint64_t timestamp_steps_ = 0; // changes
    uint64_t timestamp_jumps_ = 0; // of those, too far for a media clock
    std::bitset<256> first_bytes_; // of payloads
    uint64_t payloads_ = 0;
    codec_evidence h264_{nal_rules_h264};
    codec_evidence h265_{nal_rules_h265};
};

class rtp_finder
{
  public:
    void observe(const captured_datagram &datagram);

    // Every candidate, one lone datagram included: video first, then by number of packets.
    std::vector<rtp_stream> streams() const;

  private:
    void make_room();

    std::map<stream_identity, rtp_candidate> candidates_;
};

struct search_result {
    std::vector<rtp_stream> streams; // as rtp_finder::streams gives them
    capture_counts counts;
    srtp_counts decryption = {};
};

// Reads a whole capture, decrypted with `keys` if there are any. `progress` is called now and then with the reader's
// position; it may be empty.
search_result streams_find(const capture_file &file, const std::function<void(uint64_t position)> &progress,
                           const std::vector<sdp_crypto> &keys = {});

// "h264", "h265", "unknown".
const char *codec_name(uint8_t codec);

} // namespace vrc
