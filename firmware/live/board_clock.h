// The time since the program began, from the board's first timer.
#pragma once

#include <cstdint>

// Starts the timer.
void board_clock_start();

// Milliseconds since then. To be called at least every 200 s, the timer's way around.
uint64_t board_clock_now();
