// The reorder cache as its rules read, on standard containers and without a line of the module: what the module is
// compared with. Packets are found by searching maps, a frame is named by its timestamp, and there are no logs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace differential
{

using bytes = std::vector<uint8_t>;

class ReorderCacheModel
{
  public:
    // What arrives: one RTP packet.
    struct Arrival {
        uint16_t seq = 0;
        uint32_t timestamp = 0;
        bool is_key = false;
        bool marker = false;
        bool is_retrans = false;
        bytes payload;
    };

    // One used slot of the ring.
    struct Packet {
        uint64_t ts = 0;
        Arrival sent;
        bool is_filed = false; // in the frame of its timestamp
        uint32_t frm_seq = 0;
        uint16_t sub_seq = 0;
        uint16_t n_pkts = 0; // of the header, as is rewritten for delivery
        uint32_t header_frame_seq = 0;
        uint16_t header_subseq = 0;
    };

    struct Frame {
        uint64_t ts = 0;
        bool has_packets = false;
        bool is_complete = false;
        bool is_key = false;
        uint32_t frm_seq = 0;
        std::optional<uint16_t> min_seq; // proven ends
        std::optional<uint16_t> max_seq;
        std::optional<uint16_t> cur_min_seq;
        std::optional<uint16_t> cur_max_seq;
        uint16_t n_pkts_total = 0;
        uint16_t n_pkts_received = 0;
    };

    // One packet handed over.
    struct Delivery {
        uint32_t frame_seq;
        uint16_t subseq;
        uint16_t n_pkts;
        uint16_t seq;
        bool is_retrans;
        bool is_key;
        uint64_t now;
        bytes payload;
    };

    enum class refused {
        nothing,
        ring,
        frame
    };

    // True when the packet was taken over.
    bool process(const Arrival &arrival, refused memory, uint64_t now);
    void check(uint64_t now);
    void reset();
    void start_anew();

    // Whether the channel layer keeps the payloads that it is handed.
    bool takes_payload = false;

    bool has_ring = false;
    std::map<uint16_t, Packet> ring; // by the low 13 bits of the sequence number
    std::map<uint32_t, Frame> frames;
    std::map<uint16_t, std::pair<uint32_t, uint16_t>> numbering_left; // frm_seq, sub_seq written into free slots
    std::optional<uint16_t> exp_seq, min_seq, max_seq;
    std::optional<uint32_t> min_timestamp, max_timestamp;
    bool waits_for_key = true;
    uint64_t last_deliver_ts = 0;
    std::optional<uint32_t> last_deliver_frm_seq;
    std::optional<uint16_t> last_deliver_pkt_seq;
    std::optional<uint16_t> last_ordered_pkt_seq;
    std::optional<uint32_t> last_ordered_timestamp;
    std::optional<uint32_t> last_removed_timestamp;

    // What was asked for and handed out.
    size_t n_key_requests = 0;
    size_t n_packet_requests = 0;
    std::vector<uint64_t> restarts;
    std::vector<Delivery> deliveries;

  private:
    enum class order {
        refuse,
        in_order,
        ahead
    };

    Packet *slot(uint16_t seq);
    Packet *next_received(uint16_t seq);
    Frame *head();
    order classify(uint16_t seq, uint32_t timestamp);
    bool store(const Arrival &arrival, uint64_t now);
    Frame *file(uint16_t seq, refused memory);
    void add(Frame *frame, Packet *packet);
    void prove_min(Frame *frame);
    void prove_max(Frame *frame);
    void fix_state(Frame *frame);
    void move_expected(uint16_t seq, uint32_t timestamp);
    void remove(uint32_t timestamp);
    Frame *remove_to_key_frame();
    void deliver(uint64_t now);
    void deliver_frame(uint32_t timestamp, uint64_t now);
    void number(Frame *frame);
    void write_numbering(const Frame &frame);
    void hand_over(const Frame &frame, uint64_t now);
};

} // namespace differential
