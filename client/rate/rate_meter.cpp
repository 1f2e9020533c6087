#include "rate/rate_meter.h"

#include <cstring>

namespace
{

void window_begin(rate_meter *self, zeb_ts_t now)
{
    memset(self, 0, sizeof(*self));
    self->is_started = true;
    self->first_at = now;
    self->slot = now / kRateMeterSlotMs;
}

} // namespace

void rate_meter_add(rate_meter *self, uint16_t size, zeb_ts_t now)
{
    const uint64_t slot = now / kRateMeterSlotMs;
    // Unsigned: a clock that went back is a long silence.
    if (!self->is_started || slot - self->slot >= kRateMeterSlots) {
        window_begin(self, now);
    }
    while (self->slot != slot) {
        self->slot++;
        self->slot_bytes[self->slot % kRateMeterSlots] = 0;
    }
    self->slot_bytes[slot % kRateMeterSlots] += size;
}

float rate_meter_bps(const rate_meter *self, zeb_ts_t now)
{
    const uint64_t age = now / kRateMeterSlotMs - self->slot; // slots that nothing came in
    if (!self->is_started || age >= kRateMeterSlots || now - self->first_at < kRateMeterLeastMs) {
        return 0.0f;
    }
    uint64_t bytes = 0;
    for (size_t i = 0; i + age < kRateMeterSlots; i++) {
        bytes += self->slot_bytes[(self->slot + kRateMeterSlots - i) % kRateMeterSlots];
    }
    // The latest slot is not over yet.
    const uint64_t window = (kRateMeterSlots - 1) * kRateMeterSlotMs + now % kRateMeterSlotMs + 1;
    const uint64_t since_first = now - self->first_at + 1;
    return static_cast<float>(bytes * 8000) / static_cast<float>(since_first < window ? since_first : window);
}
