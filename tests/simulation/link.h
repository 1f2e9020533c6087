// One direction of a path: packets go in, and come out late, twice, damaged or not at all. Times are milliseconds.
#pragma once

#include <vector>

#include "random.h"
#include "zeb_platform.h"

namespace simulation
{

struct link_settings {
    zeb_ts_t one_way = 30;
    // Gilbert and Elliott: a good and a bad state, each with a share of packets that get lost.
    double to_bad = 0;
    double to_good = 1;
    double loss_good = 0;
    double loss_bad = 0;
    zeb_ts_t jitter = 0;     // each packet is delayed by up to this; packets stay in order
    double reordered = 0;    // share of packets that others overtake
    zeb_ts_t reorder_by = 0; // at most
    double duplicated = 0;
    double corrupted = 0;          // share of packets with some bytes changed
    bool corrupted_arrive = false; // as on a path without checksums; else they are lost
    double rate_kbps = 0;          // 0: no limit
    zeb_ts_t queue = 500;          // what waits for longer is dropped
    zeb_ts_t outage_every = 0;     // mean, between the begin of two; 0: none
    zeb_ts_t outage_min = 0;
    zeb_ts_t outage_max = 0;
};

// One copy of a packet under way.
struct passage {
    zeb_ts_t at;
    bool is_corrupted;
};

class Link
{
  public:
    Link(const link_settings &settings, uint64_t seed);

    // When a packet of `size` bytes that is sent now comes out: never, once or twice.
    std::vector<passage> send(size_t size, zeb_ts_t now);

    // A clean link delays and does nothing else. Packets that are under way stay so.
    void set_clean(bool is_clean);

    // The clock was set ahead.
    void shift(zeb_ts_t span);

    // No packet that was sent so far comes out after this.
    zeb_ts_t latest() const
    {
        return latest_;
    }

    zeb_ts_t one_way() const
    {
        return settings_.one_way;
    }

  private:
    bool is_out(zeb_ts_t now);
    bool is_lost();
    bool wait_in_queue(size_t size, zeb_ts_t now);
    passage pass(zeb_ts_t now);

    link_settings settings_;
    Random random_;
    bool is_clean_ = false;
    bool is_bad_ = false;
    double free_at_ = 0; // when the queue is empty
    zeb_ts_t in_order_ = 0;
    zeb_ts_t latest_ = 0;
    zeb_ts_t outage_begin_ = 0;
    zeb_ts_t outage_end_ = 0;
};

} // namespace simulation
