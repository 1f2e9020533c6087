// A little language for tests of the reorder cache. A table is a list of rows, each a step and what must come out:
//
//   play({
//       {K(0, 1).m(), "kept, 1000:0 key"},
//       {P(2, 2), "kept, asks packets"},
//       {check().at(2000), "asks key"},
//   });
//
// Sequence numbers and timestamps in a table are relative to a numbering, so that one table is played across
// both wraps. What comes out is written in the same relative numbers, items in this order, joined by ", ":
//
//   kept | dropped      a packet was taken over, or stays the sender's
//   asks key            one key-frame request
//   asks packets        one retransmission request
//   restart@40          rtc_video_stream_reset_state with the time 40
//   1000:0-2 key        frame number 1000 from packets 0 to 2, handed over whole, marked as a key frame
//   1000:0-2 again 1    the same, packet 1 marked as a retransmission
//   1000:5[1/3]         a packet that is not part of a whole frame: index 1 of 3
//
// A packet whose bytes, stream or time differ from what was sent is followed by DAMAGED.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "fake_layers.h"
#include "test_stream.h"
#include "video_stream.h"

namespace test_support
{

constexpr uint32_t kTicksPerFrame = 3000; // RTP ticks between the timestamps 1 and 2 of a table

// One step of a table. `ms` is kept until a later step changes it.
struct reorder_step {
    enum class kind {
        packet,
        check,
        reset
    };

    kind what = kind::packet;
    int seq = 0;
    int ts = 0;
    bool is_key = false;
    bool marker = false;
    bool is_retrans = false;
    int64_t ms = -1;

    reorder_step m() const;              // with the RTP marker
    reorder_step again() const;          // as a retransmission
    reorder_step at(int64_t when) const; // milliseconds after the scene's start
};

reorder_step K(int seq, int ts); // a packet of a key frame
reorder_step P(int seq, int ts); // a packet of another frame
reorder_step check();            // the periodic check
reorder_step reset();

std::ostream &operator<<(std::ostream &out, const reorder_step &step);

struct reorder_row {
    reorder_step step;
    std::string out;
};

// What the relative numbers of a table count from.
struct numbering {
    seq_t seq = 0;
    uint32_t timestamp = 0;
};

// A stream whose reorder cache is empty. Every invariant is checked after each step.
class ReorderScene
{
  public:
    explicit ReorderScene(numbering base = {});

    std::string run(const reorder_step &step);
    // The same without the check of invariants, which visits all slots.
    std::string run_unchecked(const reorder_step &step);
    void expect_invariants() const;

    // Relative numbers made absolute.
    seq_t seq(int relative) const;
    uint32_t timestamp(int relative) const;

    const webrtc_video_packet_t &slot(int relative_seq) const;
    webrtc_video_frame_t *frame(int relative_ts) const; // null: not in the map
    // A packet record as `run` makes it.
    PVideoData4 packet(const reorder_step &step) const;

    World world;
    TestStream surroundings;
    user_video_stream *stream = surroundings.stream;
    webrtc_video_cache_t *cache = surroundings.cache;
    zeb_ts_t start = 1000000;
    zeb_ts_t now = start;

  private:
    std::string process(const reorder_step &step);
    std::string requests_since(size_t intra_requests, size_t rexfer_requests) const;
    std::string describe_delivery() const;
    std::string describe_frame(const added_packet *first, const added_packet *end) const;
    bool is_whole(const added_packet *first, const added_packet *end) const;
    bool is_as_sent(const added_packet &packet) const;
    bool was_taken_in_this_call(const added_packet &packet) const;
    void forget_taken_payloads();
    seq_t relative(seq_t absolute) const;

    numbering base_;
    std::map<seq_t, std::vector<uint8_t>> kept_; // the payload kept last under each sequence number, unless taken
};

// Plays a table in a new scene for every numbering: ones that wrap within the table and a random one.
void play(const std::vector<reorder_row> &rows);
// The same with the channel layer taking every payload over.
void play_to_a_taker(const std::vector<reorder_row> &rows);

// The numberings that `play` uses.
std::vector<numbering> numberings();

} // namespace test_support
