// The emulated board's counter. With `-icount shift=6` every instruction takes 64 ns of the board's time, and TIMER0
// counts down once in 50 ns, so that no two counts of instructions look the same.
#include <cstdint>
#include <cstdio>

#include "meter.h"

namespace
{

constexpr uintptr_t kTimer0 = 0x50000000; // CMSDK timer, secure alias
constexpr uintptr_t kControl = kTimer0;
constexpr uintptr_t kValue = kTimer0 + 4;
constexpr uintptr_t kReload = kTimer0 + 8;
constexpr unsigned long long kTickNs = 50;
constexpr unsigned long long kInstructionNs = 64;

uint32_t started_at = 0;
unsigned long long n_instructions = 0;
unsigned n_starts = 0;

volatile uint32_t &timer_register(uintptr_t address)
{
    return *reinterpret_cast<volatile uint32_t *>(address);
}

} // namespace

void meter::start()
{
    if (timer_register(kControl) == 0) {
        timer_register(kReload) = UINT32_MAX;
        timer_register(kValue) = UINT32_MAX;
        timer_register(kControl) = 1;
    }
    n_starts++;
    started_at = timer_register(kValue);
}

void meter::stop()
{
    const uint32_t ticks = started_at - timer_register(kValue);

    n_instructions += (ticks * kTickNs + kInstructionNs / 2) / kInstructionNs;
}

void meter::forget()
{
    n_instructions = 0;
    n_starts = 0;
}

void meter::report(const char *row, const char *log, unsigned n)
{
    (void)printf("%s|%s|%u|%u|%llu\n", row, log, n, n_starts, n_instructions);
    forget();
}
