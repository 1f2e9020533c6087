// Settings of the log around one line, for tests that a line is made when it may be and only then.
#pragma once

#include <vector>

#include "kelvra_rtc_log.h"

namespace test_support
{

struct log_gate {
    const char *name;
    int enable;
    int module_level; // of the module that the line is logged under
    int others_level; // of all others
    bool is_open;

    void set(int module) const
    {
        g_log_enable = enable;
        for (log_mod_t &other : g_log_mod_arr) {
            other.m_level = others_level;
        }
        g_log_mod_arr[module].m_level = module_level;
    }
};

// The settings on both sides of each condition for a line of `level`.
inline std::vector<log_gate> log_gates(int level)
{
    return {
        {"all open", 1, RTC_LOG_DEBUG, RTC_LOG_DEBUG, true},
        {"at the level", 1, level, RTC_LOG_DEFAULT, true},
        {"one level below", 1, level - 1, RTC_LOG_DEBUG, false},
        {"switched off", 0, RTC_LOG_DEBUG, RTC_LOG_DEBUG, false},
    };
}

} // namespace test_support
