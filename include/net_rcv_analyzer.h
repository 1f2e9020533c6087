/* Receive quality of a stream: the two calculators embedded in it and the analyser it owns. */
#ifndef NET_RCV_ANALYZER_H
#define NET_RCV_ANALYZER_H

#include <stdint.h>

#include "zeb_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Packets received against packets expected in one interval. */
typedef struct seq_lost_calculator_t {
    uint16_t n_received;
    uint16_t n_expected;
    uint16_t seq_max;
    uint16_t seq_min;
} seq_lost_calculator_t;

/* Interarrival jitter (RFC 3550, 6.4.1). */
typedef struct jitter_calculator_t {
    zeb_ts_t last_got_at;
    uint64_t n;
    int32_t j;
    uint16_t last_frame_ts;
} jitter_calculator_t;

/* Clears `n_received` and nothing else: the record around it has been cleared before. Null is ignored. */
static inline void seq_lost_calculator_init(seq_lost_calculator_t *calculator)
{
    if (calculator != NULL) {
        calculator->n_received = 0;
    }
}

/* Clears `n` and nothing else, for the same reason. */
static inline void jitter_calculator_init(jitter_calculator_t *jitter)
{
    if (jitter != NULL) {
        jitter->n = 0;
    }
}

/* The analyser of one period; its fields are its own. */
typedef struct net_rcv_analyzer_t net_rcv_analyzer_t;

/* A new analyser, which the caller owns; null without memory. */
net_rcv_analyzer_t *net_rcv_analyzer_new(void);

/* Releases *analyzer_p and sets it to null. */
void net_rcv_analyzer_del(net_rcv_analyzer_t **analyzer_p);

/* Starts a new period. */
void net_rcv_analyzer_reset(net_rcv_analyzer_t *analyzer);

#ifdef __cplusplus
}
#endif

#endif
