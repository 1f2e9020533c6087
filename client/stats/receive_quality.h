// How well a stream's packets arrive: loss and jitter (RFC 3550, A.1, A.3 and A.8). Feeds and reads the records
// that net_rcv_analyzer.h declares.
#pragma once

#include <cstdint>

#include "net_rcv_analyzer.h"
#include "rtc_seq.h"

// ---- The analyser of one period ----

// Counts one packet that came in at `now`. `clock_rate` is the timestamp's, in Hz; with 0, or after it has changed,
// the jitter starts over. What retransmissions bring is not passed: its time of coming says nothing of the path. A
// number that is not later than the newest one is taken for a late packet, never for a new beginning; one from before
// the period's first packet, or one that is known to have come, is not counted as received. Without an analyser
// nothing is done.
void net_rcv_analyzer_on_packet(net_rcv_analyzer_t *analyzer, seq_t seq, uint32_t timestamp, uint32_t clock_rate,
                                zeb_ts_t now);

// Packets that came, those known to be duplicates not counted. Duplicates that come more than 63 numbers behind
// the newest packet are not known as such.
uint64_t net_rcv_analyzer_received(const net_rcv_analyzer_t *analyzer);

// Packets that came a second time.
uint64_t net_rcv_analyzer_duplicates(const net_rcv_analyzer_t *analyzer);

// Numbers from the period's first packet to its newest one, both included; 0 before the first.
uint64_t net_rcv_analyzer_expected(const net_rcv_analyzer_t *analyzer);

// The newest number with the count of its wraps above it (RFC 3550, 6.4.1); 0 before the first.
uint32_t net_rcv_analyzer_highest_seq(const net_rcv_analyzer_t *analyzer);

// Expected less received, in the 24-bit range of a reception report (-0x800000 to 0x7FFFFF). Negative when more
// duplicates came than packets were lost.
int32_t net_rcv_analyzer_lost(const net_rcv_analyzer_t *analyzer);

// Packets lost out of 256 expected since the last call, rounded down; 0 when none was expected or more came than
// were expected. Starts the next interval.
uint8_t net_rcv_analyzer_take_fraction_lost(net_rcv_analyzer_t *analyzer);

// Interarrival jitter, timestamp units.
uint32_t net_rcv_analyzer_jitter(const net_rcv_analyzer_t *analyzer);

// ---- The calculators embedded in a stream ----

// Counts one packet. `seq_min` and `seq_max` are the ends of what came, in wrapping order; `n_expected` is
// `seq_max` - `seq_min` + 1, modulo 2^16. Meant for intervals of less than half the circle. `n_received` stays at
// 65535 when it gets there.
void seq_lost_calculator_on_packet(seq_lost_calculator_t *calculator, seq_t seq);

// Packets of the interval that did not come; 0 before the first one and when duplicates hide the loss.
uint16_t seq_lost_calculator_lost(const seq_lost_calculator_t *calculator);

// Takes the next sample: `frame_ts` is the sender's time in milliseconds modulo 2^16, `now` the arrival time.
void jitter_calculator_on_packet(jitter_calculator_t *jitter, uint16_t frame_ts, zeb_ts_t now);

// Interarrival jitter, milliseconds; 0 before the second sample.
uint32_t jitter_calculator_jitter(const jitter_calculator_t *jitter);
