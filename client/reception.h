// What the sequence numbers of a stream's packets say as they come in (RFC 3550, A.1 and A.8): which are new, late
// or a second copy, what is missing, and where frames begin.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rtc_seq.h"
#include "stream_report.h"

// A number this far ahead of the newest one, or so far behind, is a jump, which the next number confirms or not: one
// damaged number that was believed would make latecomers of all packets up to it. Behind, a retransmission may
// be as old as the reorder patience, and the history has to reach at least as far.
constexpr uint16_t kReceptionMaxGap = 100;
constexpr uint16_t kReceptionMaxMisorder = 2000;
// A confirmed jump ahead by less than this is a long loss, any other a new numbering.
constexpr uint16_t kReceptionMaxDropout = 3000;
constexpr uint32_t kReceptionHistory = 2048; // numbers; a power of 2

enum reception_verdict : uint8_t {
    RECEPTION_NEWEST,    // later than all before
    RECEPTION_EARLIER,   // not seen before, but a later one was
    RECEPTION_DUPLICATE, // seen before
    RECEPTION_STRAY,     // far from all others; noted nowhere, unless the next one confirms it
    RECEPTION_RESUMED,   // close to the stray one, which came behind a long loss
    RECEPTION_RESTARTED  // follows the stray one: the sender numbers anew from that one on
};

struct reception_packet {
    seq_t seq;
    uint32_t timestamp; // RTP timestamp
    size_t size;        // bytes, RTP header included
    bool is_retrans;
};

struct reception_entry {
    uint32_t number; // extended sequence number; 0: none
    uint32_t timestamp;
};

// All zero: nothing has come yet.
struct reception {
    bool has_started;
    bool has_stray;
    bool has_transit;
    seq_t stray_seq;
    uint32_t stray_timestamp;
    // Extended numbers start one cycle up, so that a packet from before the first one has a number too.
    uint32_t first; // oldest number that is expected, or older than any that may still come
    uint32_t newest;
    uint32_t last_transit; // timestamp units
    uint64_t jitter;       // RFC 3550, A.8: sixteenths of a timestamp unit
    reception_entry history[kReceptionHistory];
};

// Takes note of one well-formed packet at `now` and counts it in `report`.
reception_verdict reception_note(reception *self, stream_report *report, const reception_packet *packet, zeb_ts_t now);

// The extended number of `seq`: the one nearest to the newest. Only after the first packet.
uint32_t reception_number(const reception *self, seq_t seq);

// Takes back that `seq` came, because it could not be kept: it counts as lost, and a retransmission is not taken
// for its duplicate.
void reception_forget(reception *self, stream_report *report, seq_t seq);

// True when the number before `seq` came and had another timestamp than `timestamp`: a frame begins with `seq`.
bool reception_proves_beginning(const reception *self, seq_t seq, uint32_t timestamp);

// True when every packet of the frame up to `seq` came, and the one before the first of them, with another timestamp,
// too. `seq` itself has come.
bool reception_is_joined(const reception *self, seq_t seq, uint32_t timestamp);

// The newest number in the terms of a reception report (RFC 3550, 6.4.1); 0 before the first packet.
uint32_t reception_highest(const reception *self);
