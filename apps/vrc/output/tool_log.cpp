#include "output/tool_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "api/log.h"

namespace vrc
{
namespace
{

void log_write(void * /*context*/, int /*level*/, const char *format, va_list args)
{
    std::vfprintf(stderr, format, args);
    const size_t size = std::strlen(format);
    if (size == 0 || format[size - 1] != '\n') {
        std::fputc('\n', stderr);
    }
}

} // namespace

void log_prepare(int verbosity)
{
    rtc_log_set_sink(log_write, nullptr);
    rtc_log_set_level(verbosity == 0 ? RTC_LOG_DEFAULT : verbosity == 1 ? RTC_LOG_INFO : RTC_LOG_DEBUG);
}

} // namespace vrc
