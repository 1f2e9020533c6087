#include "api/log.h"

#include <cstdio>

int g_log_enable = 1;

log_mod_t g_log_mod_arr[LM_MAX] = {
    {LM_MIN, RTC_LOG_WARNING, "MIN"},
    {LM_SERVICE, RTC_LOG_WARNING, "SVC"},
    {LM_CHANNEL, RTC_LOG_WARNING, "CHN"},
    {LM_USER, RTC_LOG_WARNING, "USR"},
    {4, RTC_LOG_WARNING, "-"},
    {5, RTC_LOG_WARNING, "-"},
    {6, RTC_LOG_WARNING, "-"},
    {7, RTC_LOG_WARNING, "-"},
    {8, RTC_LOG_WARNING, "-"},
    {LM_SND_VID, RTC_LOG_WARNING, "SND_VID"},
    {LM_RCV_VID, RTC_LOG_WARNING, "RCV_VID"},
    {11, RTC_LOG_WARNING, "-"},
    {12, RTC_LOG_WARNING, "-"},
    {13, RTC_LOG_WARNING, "-"},
    {14, RTC_LOG_WARNING, "-"},
    {15, RTC_LOG_WARNING, "-"},
    {16, RTC_LOG_WARNING, "-"},
    {17, RTC_LOG_WARNING, "-"},
    {18, RTC_LOG_WARNING, "-"},
    {19, RTC_LOG_WARNING, "-"},
    {20, RTC_LOG_WARNING, "-"},
    {21, RTC_LOG_WARNING, "-"},
    {LM_RDT, RTC_LOG_WARNING, "RDT"},
};

const char *g_log_level_arr[RTC_LOG_DEBUG + 1] = {
    "DEFAULT", "EMERG", "ALERT", "CRIT", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG",
};

namespace
{

void log_to_stderr(void * /*context*/, int /*level*/, const char *format, va_list args)
{
    // A log that cannot be written has nowhere to say so.
    (void)vfprintf(stderr, format, args);
}

rtc_log_sink g_sink = log_to_stderr;
void *g_sink_context = nullptr;

} // namespace

void rtc_log_set_sink(rtc_log_sink sink, void *context)
{
    g_sink = sink != nullptr ? sink : log_to_stderr;
    g_sink_context = context;
}

void rtc_log_set_level(int level)
{
    for (log_mod_t &mod : g_log_mod_arr) {
        mod.m_level = level;
    }
}

void kelvra_rtc_log(int level, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    g_sink(g_sink_context, level, format, args);
    va_end(args);
}
