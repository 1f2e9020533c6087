// Stands between the module and the statistics that it gives received packets to, and keeps what it gave.
// A program that links this is linked with -Wl,--wrap=KelvraBcmStat_OnRecvPacket.
#pragma once

#include <vector>

#include "zeb_platform.h"

namespace simulation
{

struct received_sample {
    uint16_t seq;
    uint32_t timestamp;
    uint16_t size;
    zeb_ts_t now;
    bool is_retrans;
};

// The samples since the last call.
std::vector<received_sample> take_samples();

} // namespace simulation
