// Tells by its looks which payload type of what comes now is video.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/rtp_finder.h"

namespace vrc
{

// Streams that are looked at together. Anybody can make up any number of them, so what one packet costs must not grow with
// what came before.
constexpr size_t kSearchedStreamsMax = 32;

constexpr uint8_t kFirstDynamicType = 96; // RTP payload types from here on mean what was agreed on (RFC 3551, 6)

class payload_type_search
{
  public:
    // `codec`: VIDEO_TYPE_H264 or VIDEO_TYPE_H265.
    explicit payload_type_search(uint8_t codec) : codec_(codec)
    {
    }

    // Looks at an RTP packet. Returns whether its stream looks like `codec` by now, and its payload type is a dynamic
    // one. What is no RTP is passed over. A new stream takes the place of one of the host that has most of
    // them: of the one that looks least like video, then of the one that was heard least recently.
    bool observe(const udp_datagram &datagram, zeb_ts_t now);

    // The streams that are looked at: video first, then by number of packets.
    std::vector<rtp_stream> streams() const;

    // Streams that were compared with packets or with each other, in total: what the search cost.
    uint64_t comparisons() const
    {
        return comparisons_;
    }

  private:
    struct searched_stream {
        stream_identity identity;
        rtp_candidate seen;
        double standing = 0; // the least is given up first
        uint64_t heard_at = 0;
        size_t host_streams = 0; // of its source address, itself included
    };

    searched_stream *find(const stream_identity &identity);
    searched_stream *add(const stream_identity &identity);
    void make_room();
    void host_count(const ip_address &host, int change);

    uint8_t codec_;
    std::vector<searched_stream> streams_; // in no order
    uint64_t packets_ = 0;
    uint64_t comparisons_ = 0;
};

} // namespace vrc
