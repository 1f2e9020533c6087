// Frames with packets for tests of payload assembly.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "video_stream.h"

namespace test_support
{

using bytes = std::vector<uint8_t>;

// A whole frame that the queue could hold: every packet is there, all of them media, not generic, without FEC.
// Packet bytes are in memory of their exact size, so that a sanitizer sees a read behind them.
class PacketFrame
{
  public:
    explicit PacketFrame(const std::vector<bytes> &packets)
        : pkts_(packets.size()), statuses_(packets.size(), video_packet_status_t{1})
    {
        const auto count = static_cast<uint16_t>(packets.size());

        for (size_t i = 0; i < packets.size(); i++) {
            buffers_.push_back(std::make_unique<uint8_t[]>(packets[i].size()));
            std::copy(packets[i].begin(), packets[i].end(), buffers_[i].get());
            pkts_[i].values = buffers_[i].get();
            pkts_[i].count = static_cast<uint16_t>(packets[i].size());
            pkts_[i].allocated = pkts_[i].count;
        }
        frame.codec = VIDEO_TYPE_H264;
        frame.protocol_version = 10;
        frame.n_pkts_total = count;
        frame.n_pkts_media = count;
        frame.n_pkts_received = count;
        frame.pkts = pkts_.data();
        frame.pkts_status = statuses_.data();
    }

    // Makes packet `index` one that has not been received.
    void lose(size_t index)
    {
        pkts_[index] = {};
        statuses_[index].is_received = 0;
    }

    video_frame frame = {};

  private:
    std::vector<std::unique_ptr<uint8_t[]>> buffers_;
    std::vector<rtn_bytes_t> pkts_;
    std::vector<video_packet_status_t> statuses_;
};

} // namespace test_support
