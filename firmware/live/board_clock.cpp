#include "board_clock.h"

#include "board.h"

namespace
{

constexpr uint32_t kTicksPerMillisecond = 20'000;

constexpr uint32_t kControl = 0x0; // offsets of the timer's registers
constexpr uint32_t kValue = 0x4;
constexpr uint32_t kReload = 0x8;
constexpr uint32_t kEnable = 1;

uint32_t last_value = UINT32_MAX;
uint64_t elapsed_ticks = 0;

volatile uint32_t &timer(uint32_t offset)
{
    return REGISTER(kTimersFirst + offset);
}

} // namespace

void board_clock_start()
{
    timer(kReload) = UINT32_MAX;
    timer(kValue) = UINT32_MAX;
    timer(kControl) = kEnable;
}

uint64_t board_clock_now()
{
    const uint32_t value = timer(kValue); // counts down
    elapsed_ticks += last_value - value;
    last_value = value;
    return elapsed_ticks / kTicksPerMillisecond;
}
