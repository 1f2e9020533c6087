// Where the client's log goes.
#pragma once

#include <cstdarg>

#include "kelvra_rtc_log.h"

// Takes one message. The format's leading arguments are the level's label and, mostly, the module's name.
using rtc_log_sink = void (*)(void *context, int level, const char *format, va_list args);

// Replaces the sink; null brings back the first one, which writes to standard error.
void rtc_log_set_sink(rtc_log_sink sink, void *context);

// Sets every module's level; messages up to and including `level` are made. RTC_LOG_DEFAULT (0) silences all.
void rtc_log_set_level(int level);
