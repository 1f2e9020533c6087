#include "freertos_log.h"

#include <cstdio>

#include "api/log.h"

namespace
{

freertos_log_writer g_write = nullptr;

void log_take(void * /*context*/, int /*level*/, const char *format, va_list args)
{
    char line[kFreertosLogLineMax];
    const int size = vsnprintf(line, sizeof line, format, args);
    if (g_write == nullptr || size < 0) {
        return;
    }
    const auto length = static_cast<size_t>(size);
    g_write(line, length < sizeof line ? length : sizeof line - 1);
}

} // namespace

void freertos_log_start(freertos_log_writer write)
{
    g_write = write;
    rtc_log_set_sink(log_take, nullptr);
}
