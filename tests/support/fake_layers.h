// The layers around the module, as recorders: every function that the module calls and include/ does not
// define, but for the containers. One World lives for the length of a test and is what those functions
// write to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "video_stream.h"

namespace test_support
{

struct log_line {
    int level;
    std::string text;

    bool operator==(const log_line &other) const
    {
        return level == other.level && text == other.text;
    }
};

// One call of rtc_video_add_packet.
struct added_packet {
    user_video_stream *stream;
    uint32_t frame_seq;
    uint16_t subseq;
    uint16_t n_pkts;
    seq_t seq;
    int is_retrans;
    int is_key;
    zeb_ts_t now;
    std::vector<uint8_t> payload;
};

// One call of KelvraBcmStat_OnDecodeResult.
struct decode_result {
    KelvraBcmStatistics *stat;
    uint32_t frame_seq;
    uint16_t min_rtp_seq;
    uint16_t max_rtp_seq;
    uint8_t continuous;
    uint16_t wait_time;
    zeb_ts_t now;
};

// One call of KelvraBcmStat_OnRecvPacket.
struct bandwidth_sample {
    KelvraBcmStatistics *stat;
    uint16_t sequence_number;
    uint32_t timestamp;
    uint16_t size;
    zeb_ts_t now;
    uint8_t retrans_flag;
};

struct allocation {
    size_t size;
    std::string tag;
};

// What a depacketizer is given for one packet.
struct depacketizer_call {
    bool is_h265;
    std::vector<uint8_t> payload;
    size_t frame_offset;
};

class World
{
  public:
    World();
    // Every test ends with nothing allocated, or fails.
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    // -- Memory --
    std::map<void *, allocation> live;                            // what is allocated now
    std::vector<allocation> allocations;                          // every request, refused ones included
    std::function<bool(size_t index, const allocation &)> refuse; // index of the request, from 0; null: never
    void refuse_tag(const std::string &tag, size_t from = 0);     // refuses requests of that tag, from the nth on
    size_t count_of(const std::string &tag) const;                // requests with that tag

    // -- Log: all modules at RTC_LOG_DEBUG, enabled --
    std::vector<log_line> log;
    std::vector<log_line> log_at(int level) const;
    bool has_logged(int level, const std::string &text) const; // a whole line, its newline included
    size_t count_logged(const std::string &part) const;        // lines that contain `part`
    void silence_log();                                        // g_log_enable = 0
    bool echo_log = false; // lines go to stderr too, each as "<level> text": for death tests

    // -- Channel and user layer --
    std::vector<user_video_stream *> created;
    std::function<void(rtc_channel *, user_video_stream *)> on_created; // null: nothing
    std::vector<added_packet> added;
    std::vector<zeb_ts_t> reset_states; // the times passed to rtc_video_stream_reset_state
    bool takes_payload = false;         // rtc_video_add_packet takes the payload over
    size_t intra_requests = 0;
    size_t rexfer_requests = 0;

    // -- Analyser and statistics --
    size_t analyzers_made = 0, analyzers_deleted = 0, analyzers_reset = 0;
    bool no_analyzer = false;               // net_rcv_analyzer_new gives null
    bool no_statistics = false;             // KelvraBcmStat_Create gives null
    std::vector<void *> statistics_configs; // the stream of each KelvraBcmStat_Create
    size_t statistics_destroyed = 0, statistics_reset = 0;
    std::vector<decode_result> decode_results;
    std::vector<bandwidth_sample> samples;

    // -- Depacketizers: copy the payload behind a start code unless told otherwise --
    std::vector<depacketizer_call> depacketized;
    // Returns what the depacketizer returns; may write through the pointers itself. Null: the default.
    std::function<int(size_t call, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                      size_t *frame_offset, size_t *frame_size)>
        depacketize;

    // The one that lives now.
    static World &now_living();
};

} // namespace test_support
