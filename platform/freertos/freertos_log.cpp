#include "freertos_log.h"

#include <cstdio>

#include "log.h"

static freertos_log_writer g_write = nullptr;

static void __log_take(void * /*context*/, int /*level*/, const char *format, va_list args)
{
    char line[kFreertosLogLineMax];
    const int size = vsnprintf(line, sizeof line, format, args);
    if (g_write == nullptr || size < 0) {
        return;
    }
    const auto length = static_cast<size_t>(size);
    g_write(line, length < sizeof line ? length : sizeof line - 1);
}

void freertos_log_start(freertos_log_writer write)
{
    g_write = write;
    rtc_log_set_sink(__log_take, nullptr);
}
