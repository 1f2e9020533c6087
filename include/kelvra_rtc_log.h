/* The client's log: levels, modules and their tables. */
#ifndef KELVRA_RTC_LOG_H
#define KELVRA_RTC_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Severity of a message; a smaller number is more severe. */
typedef enum rtc_log_level_e {
    RTC_LOG_DEFAULT = 0,
    RTC_LOG_EMERG = 1,
    RTC_LOG_ALERT = 2,
    RTC_LOG_CRIT = 3,
    RTC_LOG_ERROR = 4,
    RTC_LOG_WARNING = 5,
    RTC_LOG_NOTICE = 6,
    RTC_LOG_INFO = 7,
    RTC_LOG_DEBUG = 8
} rtc_log_level_e;

/* Which part of the client speaks. Identifiers that are not named here are reserved. */
typedef enum rtc_log_mod_e {
    LM_MIN = 0,
    LM_SERVICE = 1,
    LM_CHANNEL = 2,
    LM_USER = 3,
    LM_SND_VID = 9,
    LM_RCV_VID = 10,
    LM_RDT = 22,
    LM_MAX = 23
} rtc_log_mod_e;

/* One module's entry: messages up to and including `m_level` are made. */
typedef struct log_mod_t {
    int m_id;
    int m_level;
    const char *m_name;
} log_mod_t;

/* No message is made while this is 0. */
extern int g_log_enable;

/* Indexed by rtc_log_mod_e. */
extern log_mod_t g_log_mod_arr[LM_MAX];

/* Labels of the levels, indexed by rtc_log_level_e. */
extern const char *g_log_level_arr[];

/* Writes one message. The caller has tested the switch and the module's level, and passes the label
 * and the module's name as the format's leading arguments. */
void kelvra_rtc_log(int level, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
