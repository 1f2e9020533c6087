// One line of log from the client's own layers.
#pragma once

#include "kelvra_rtc_log.h"

// Makes a message of `module` at `level`. Its arguments are not evaluated unless the message is made.
#define CLIENT_LOG(module, level, format, ...)                                                                         \
    do {                                                                                                               \
        if (g_log_enable != 0 && g_log_mod_arr[module].m_level >= (level)) {                                           \
            kelvra_rtc_log(level, "[%s][%s] " format "\n", g_log_level_arr[level], g_log_mod_arr[module].m_name,       \
                           __VA_ARGS__);                                                                               \
        }                                                                                                              \
    } while (false)
