#include "samples.h"

#include <utility>

#include "kelvra_bcm_stat.h"

namespace
{

std::vector<simulation::received_sample> taken;

} // namespace

namespace simulation
{

std::vector<received_sample> take_samples()
{
    return std::exchange(taken, {});
}

} // namespace simulation

extern "C" {

void __real_KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t seq, uint32_t timestamp, uint16_t size,
                                       zeb_ts_t now, uint8_t retrans_flag);

void __wrap_KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t seq, uint32_t timestamp, uint16_t size,
                                       zeb_ts_t now, uint8_t retrans_flag)
{
    taken.push_back({seq, timestamp, size, now, retrans_flag != 0});
    __real_KelvraBcmStat_OnRecvPacket(stat, seq, timestamp, size, now, retrans_flag);
}
}
