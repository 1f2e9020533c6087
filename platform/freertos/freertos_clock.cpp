#include "freertos_clock.h"

namespace
{

constexpr uint64_t kMsPerSecond = 1000;

// Counts of ticks less than half a circle ahead are later.
constexpr TickType_t kHalfCircle = static_cast<TickType_t>(~TickType_t{0}) / 2;

zeb_ts_t milliseconds_of(uint64_t ticks)
{
    return kFreertosClockOrigin + ticks * kMsPerSecond / configTICK_RATE_HZ;
}

} // namespace

zeb_ts_t freertos_clock_at(freertos_clock *self, TickType_t tick)
{
    const auto ahead = static_cast<TickType_t>(tick - static_cast<TickType_t>(self->ticks));
    if (ahead <= kHalfCircle) {
        self->ticks += ahead;
        return milliseconds_of(self->ticks);
    }
    const auto behind = static_cast<TickType_t>(static_cast<TickType_t>(self->ticks) - tick);
    return milliseconds_of(behind <= self->ticks ? self->ticks - behind : 0);
}

TickType_t freertos_clock_until(const freertos_clock *self, zeb_ts_t time)
{
    const zeb_ts_t now = milliseconds_of(self->ticks);
    if (time <= now) {
        return 0;
    }
    const uint64_t ticks = ((time - now) * configTICK_RATE_HZ + kMsPerSecond - 1) / kMsPerSecond;
    return ticks < kHalfCircle ? static_cast<TickType_t>(ticks) : kHalfCircle;
}
