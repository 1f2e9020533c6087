// Paths and senders with names.
#pragma once

#include <string>
#include <vector>

#include "link.h"

namespace simulation
{

struct preset {
    const char *name;
    link_settings link;
    double kbps_min = 24; // of a sender
    double kbps_max = 90;
    zeb_ts_t restart_every = 0; // mean, ms; senders number anew
    zeb_ts_t pause_every = 0;   // mean, ms; senders fall silent for up to 8 s
    zeb_ts_t stay = 180000;     // mean, ms, that a sender stays
    zeb_ts_t suspend_every = 0; // mean, ms; the clock is set ahead by seconds to hours
    bool repairs_all = false;   // what is lost is asked for, sent again, and then comes
    double forged = 0.002;      // share of RTP packets that a forged one with other parameter sets follows
};

// Nothing is lost for good or changed, so that every frame has to come out.
bool is_lossless(const preset &kind);

const std::vector<preset> &presets();

// Null when there is none of that name.
const preset *find_preset(const std::string &name);

} // namespace simulation
