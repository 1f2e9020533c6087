// What the sequence numbers of a stream's packets say as they come in (RFC 3550, A.1 and A.8): which are new, late
// or a second copy, what is missing, and where frames begin.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/stream_report.h"
#include "rtc_seq.h"

// A number this far ahead of the newest one, or so far behind, is a jump, which the next number confirms or not: one
// damaged number that was believed would make latecomers of all packets up to it. Behind, a retransmission may
// be as old as the reorder patience, and the history has to reach at least as far.
constexpr uint16_t kReceptionMaxGap = 100;
constexpr uint16_t kReceptionMaxMisorder = 2000;
// A confirmed jump ahead by less than this is a long loss, any other a new numbering. So is one to a timestamp from
// before the newest one, or from long after.
constexpr uint16_t kReceptionMaxDropout = 3000;
constexpr uint32_t kReceptionMaxSilence = 300 * 90000;   // timestamp units
constexpr uint32_t kReceptionTimestampSlack = 5 * 90000; // timestamp units by which a late packet may be older
constexpr uint32_t kReceptionHistory = 2048;             // numbers; a power of 2

enum reception_verdict : uint8_t {
    RECEPTION_NEWEST,    // later than all before
    RECEPTION_EARLIER,   // not seen before, but a later one was
    RECEPTION_DUPLICATE, // seen before, or late by a numbering that is over
    RECEPTION_STRAY,     // far from all others; noted nowhere, unless the next one confirms it
    RECEPTION_RESUMED,   // close to the stray one, which came behind a long loss
    RECEPTION_RESTARTED  // follows the stray one: the sender numbers anew from that one on
};

// What a packet is within its picture, as far as it shows.
enum packet_role : uint8_t {
    PACKET_ROLE_OTHER,
    PACKET_ROLE_PADDING,     // no payload
    PACKET_ROLE_UNIT_START,  // stands at the beginning of an access unit
    PACKET_ROLE_LEAD,        // stands in front of the picture's slices
    PACKET_ROLE_FIRST_SLICE, // of a picture that refers to others
    PACKET_ROLE_KEY_PART     // of a picture for random access: another parameter set, the first slice
};

struct reception_packet {
    seq_t seq;
    uint32_t timestamp; // RTP timestamp
    size_t size;        // bytes, RTP header included
    bool is_retrans;
    bool has_marker;
    packet_role role;
};

struct reception_entry {
    uint32_t number; // extended sequence number; 0: none
    uint32_t timestamp;
    bool has_marker;
    packet_role role;
};

// All zero: nothing has come yet.
struct reception {
    bool has_started;
    bool has_stray;
    bool stray_contradicts; // its number is near to the others, and taken
    bool has_transit;
    bool has_former; // the sender numbered otherwise before; that numbering's newest packet:
    seq_t former_seq;
    uint32_t former_timestamp;
    reception_packet stray;
    // Extended numbers start one cycle up, so that a packet from before the first one has a number too.
    uint32_t first; // oldest number that is expected, or older than any that may still come
    uint32_t newest;
    uint32_t last_transit; // timestamp units
    uint64_t jitter;       // RFC 3550, A.8: sixteenths of a timestamp unit
    reception_entry history[kReceptionHistory];
};

// Takes note of one well-formed packet at `now` and counts it in `report`.
reception_verdict reception_note(reception *self, stream_report *report, const reception_packet *packet, zeb_ts_t now);

// The number nearest to `near` that ends in `seq`.
uint32_t sequence_extend(uint32_t near, seq_t seq);

// The extended number of `seq`: the one nearest to the newest. Only after the first packet.
uint32_t reception_number(const reception *self, seq_t seq);

// The packet of that number, or null when it did not come or is too long ago.
const reception_entry *reception_find(const reception *self, uint32_t number);

// Notes that `number`, which never came, was padding with that timestamp. It goes on counting as lost.
void reception_note_padding(reception *self, uint32_t number, uint32_t timestamp);

// True when a packet of the frame with that timestamp stands behind `number`, of those that came.
bool reception_is_inside_frame(const reception *self, uint32_t number, uint32_t timestamp);

// Takes back that `number` came, because it could not be kept: it counts as lost, and a retransmission is not taken
// for its duplicate.
void reception_forget(reception *self, stream_report *report, uint32_t number);

// True when the packet before `number` came and had another timestamp than `timestamp`: a frame begins with `number`.
bool reception_proves_beginning(const reception *self, uint32_t number, uint32_t timestamp);

// True when every packet of the frame up to `number` came, and the one before the first of them, with another timestamp,
// too. `number` itself has come.
bool reception_is_joined(const reception *self, uint32_t number, uint32_t timestamp);

// The newest number in the terms of a reception report (RFC 3550, 6.4.1); 0 before the first packet.
uint32_t reception_highest(const reception *self);
