// The client's log on a kernel without standard error.
#pragma once

#include <cstddef>

constexpr size_t kFreertosLogLineMax = 256; // bytes, on the stack of the task that logs; longer messages are cut

// Takes one message, which ends with a zero and mostly with a line feed.
using freertos_log_writer = void (*)(const char *text, size_t size);

// Sends the log to `write`; null: nowhere. Not while the service task runs.
void freertos_log_start(freertos_log_writer write);
