// What one sender sent, and whether what came out of it may be.
#pragma once

#include <deque>
#include <set>
#include <string>

#include "api/channel.h"
#include "encoder.h"

namespace simulation
{

struct sent_frame {
    uint32_t numbering; // the sender numbers anew from time to time
    uint64_t place;     // counted from the sender's first frame on
    uint32_t name;      // RTP timestamp, or the frame number of the native path
    seq_t first_seq;
    size_t n_packets;
    zeb_ts_t at;
    picture made; // without its payloads
    bool is_out;
};

class Ledger
{
  public:
    explicit Ledger(uint8_t codec) : codec_(codec)
    {
    }

    void note(uint32_t name, seq_t first_seq, picture made, zeb_ts_t now);

    // The frames from now on are numbered otherwise.
    void renumber();

    // The clock was set ahead.
    void shift(zeb_ts_t span);

    // A packet that names that frame, or that number, was changed under way and arrived: the frame, or the one whose
    // packet cannot take its place any more, may come out as anything.
    void taint(uint32_t name);
    void taint_seq(seq_t seq);

    // A frame came out. Returns what is wrong with it, or nothing.
    std::string take(const channel_frame &frame, uint32_t name);

    // Frames sent in that time, the end not included, that have not come out; and the first of them, as words.
    size_t count_missing(zeb_ts_t from, zeb_ts_t to, std::string *first) const;

    // The same behind the first frame that came out, however long ago that was; all when none did. A frame of one packet
    // in front of a key frame that came out is not counted: where it is lost nothing of it is left, and the key frame goes
    // on without it.
    size_t count_missing(zeb_ts_t to, std::string *first) const;

    // A key frame with parameter sets came out since the sender began to number so.
    bool has_given_sets() const
    {
        return has_given_sets_;
    }

    // The receiver begins anew.
    void forget_given_sets()
    {
        has_given_sets_ = false;
    }

    // Where the first frame that came out stands among those that were sent.
    uint64_t first_out() const
    {
        return first_out_;
    }

    uint64_t n_out() const
    {
        return n_out_;
    }

    // Frames that came out without some of their optional units.
    uint64_t n_shortened() const
    {
        return n_shortened_;
    }

  private:
    void forget_first();
    bool is_passed_over(size_t index) const;
    sent_frame *find(const channel_frame &frame, uint32_t name);
    bool is_tainted(const sent_frame &sent) const;
    std::string judge(const sent_frame &sent, const channel_frame &frame) const;
    std::string take_unknown(uint32_t name) const;

    uint8_t codec_;
    std::deque<sent_frame> sent_; // of the last half minute
    std::set<uint32_t> tainted_;
    std::set<seq_t> tainted_seqs_;
    uint32_t numbering_ = 0;
    uint64_t n_sent_ = 0;
    uint64_t n_out_ = 0;
    uint64_t n_known_ = 0; // of those, frames that were sent
    uint64_t n_shortened_ = 0;
    uint64_t first_out_ = 0;
    uint64_t n_missing_ = 0; // behind the first that came out, of those that are not remembered
    std::string first_missing_;
    bool has_given_sets_ = false;
    bool has_last_ = false;
    uint32_t last_numbering_ = 0; // of the frame that came out last
    uint64_t last_place_ = 0;
};

} // namespace simulation
