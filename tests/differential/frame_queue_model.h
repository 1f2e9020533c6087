// The frame queue as its rules read, on standard containers and without a line of the module: what the module is
// compared with. It is slow and has no logs; where the rules name a value that stays behind in an emptied slot, it is
// kept here too.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "packets.h"

namespace differential
{

using bytes = std::vector<uint8_t>;

// Which allocation of an insertion fails.
enum class refused {
    nothing,
    packets,
    statuses,
    payload
};

class FrameQueueModel
{
  public:
    struct Frame {
        uint64_t queued_ts = 0;
        uint32_t frame_seq = 0;
        uint16_t n_pkts_total = 0; // 0: the slot is empty
        uint16_t n_pkts_media = 0;
        uint16_t n_pkts_received = 0;
        uint16_t n_pkts_received_media = 0;
        uint16_t n_pkts_received_fec = 0;
        uint16_t n_pkts_fec = 0;
        uint16_t protocol_version = 0;
        bool is_key_frame = false;
        bool is_complete = false;
        uint8_t codec = 0;
        uint8_t payload_type = 0;
        uint16_t ts = 0;
        uint32_t reserved = 0;
        uint16_t first_pkt_seq = 0;
        uint16_t min_seq = 0;
        uint16_t max_seq = 0;
        uint16_t min_rtp_seq = 0;
        uint16_t max_rtp_seq = 0;
        uint16_t rtp_timestamp = 0;
        uint8_t rexfer_cnt = 0;
        std::map<uint16_t, bytes> pkts; // by index; those that are there

        uint16_t last_pkt_seq() const;
    };

    // `is_receiving`: of a remote user's stream, whose expected packet moves when frames are removed.
    explicit FrameQueueModel(bool is_receiving) : is_receiving_(is_receiving)
    {
    }

    // The slot that is returned, or none.
    std::optional<size_t> insert(const test_support::native_fields &packet, const bytes &payload, refused memory,
                                 uint64_t now);
    bool remove(size_t slot);
    void release(size_t slot);
    void move_forward(uint16_t seq);
    void auto_forward(size_t slot, uint16_t index_start);
    void reset(bool reset_seq);

    std::optional<size_t> find(uint32_t frame_seq) const;
    std::optional<size_t> find_by_packet(uint16_t seq) const;
    std::optional<size_t> next(size_t slot) const;
    std::optional<size_t> prev(size_t slot) const;

    uint16_t count = 0;
    uint16_t min_ts = 0;
    uint16_t max_ts = 0;
    uint32_t min_frame_seq = 0;
    uint32_t max_frame_seq = 0;
    std::array<Frame, 40> slots;
    std::map<uint16_t, size_t> index;      // packet sequence number mod 1280 -> slot
    std::map<uint16_t, uint64_t> counters; // the same -> count; absent is 0
    std::optional<uint16_t> expected;      // the stream's expected packet
    uint64_t last_to_user_at = 0;
    uint16_t n_overlapped = 0;
    uint16_t n_key = 0;

  private:
    void drop(size_t slot);
    bool empty_slot_for(const test_support::native_fields &packet, size_t slot);
    bool claim_index(const test_support::native_fields &packet, size_t slot);
    void widen_bounds(const test_support::native_fields &packet);
    void fill(const test_support::native_fields &packet, const bytes &payload, size_t slot, uint64_t now);
    void add_payload(const test_support::native_fields &packet, const bytes &payload, size_t slot, bool has_memory);

    bool is_receiving_;
};

} // namespace differential
