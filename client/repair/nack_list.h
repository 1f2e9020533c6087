// Which packets to ask the sender for again, and when (RFC 4585, 6.2.1). Numbers are extended sequence numbers, so
// that they do not wrap. Only times and numbers go in and out: what sends the request stands above.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zeb_platform.h"

constexpr size_t kNackListMax = 512;        // packets remembered; a longer burst is not worth repairing
constexpr uint8_t kNackTriesMax = 10;       // requests for one packet
constexpr uint8_t kNackSuspectTriesMax = 3; // for one that may never have been sent
constexpr zeb_ts_t kNackHoldMin = 2;        // ms before the first request: the packet may merely come late
constexpr zeb_ts_t kNackHoldMax = 40;       // ms; on a path that was seen to reorder by as much
constexpr zeb_ts_t kNackPatience = 2000;    // ms after which the reorder cache has given up, too
constexpr zeb_ts_t kNackRttUnknown = 100;   // ms between two requests until a retransmission was measured
constexpr zeb_ts_t kNackNever = ~zeb_ts_t{0};

struct missing_packet {
    uint32_t number;
    uint8_t tries;          // requests so far
    zeb_ts_t missing_since; // when a later packet came
    zeb_ts_t asked_at;      // the latest request; meaningful once there was one
};

// All zero: nothing is missing, no round trip was measured.
struct nack_list {
    missing_packet missing[kNackListMax]; // by ascending number
    size_t count;
    bool has_suspect;
    missing_packet suspect; // above all numbers that came: nothing shows yet that it is missing
    uint32_t rtt_8;         // smoothed round-trip time, eighths of a millisecond; 0: not measured
    uint32_t rtt_play_8;    // how far from it the round trips are in the mean, eighths of a millisecond
    uint32_t lateness_8;    // how late packets come that nobody asked for, eighths of a millisecond
};

// The numbers from `first` to `last` were passed over. What was asked for as a suspect counts as asked for. Of a burst that
// does not fit the newest are kept. Numbers go up from call to call.
void nack_list_add(nack_list *self, uint32_t first, uint32_t last, zeb_ts_t now);

// One number was passed over, anywhere among the others. Nothing happens when it is on the list already.
void nack_list_insert(nack_list *self, uint32_t number, zeb_ts_t now);

// The number above all others may be missing, if it has not come by `since`. Takes the place of the one before.
void nack_list_suspect(nack_list *self, uint32_t number, zeb_ts_t since);

// `number` came, or another above it: there is no suspect any more. True when it was the suspect, `may_answer`, and comes
// as late as an answer does.
bool nack_list_settle_suspect(nack_list *self, uint32_t number, bool may_answer, zeb_ts_t now);

// A packet came. One that was asked for once tells the round-trip time, unless it came too soon for an answer: that
// one, and one that was not asked for, tell how late packets come on their own. True when it was on the list.
bool nack_list_remove(nack_list *self, uint32_t number, zeb_ts_t now);

// The missing packet of that number, or the suspect; null when it is neither.
const missing_packet *nack_list_find(const nack_list *self, uint32_t number);

// Forgets all numbers below `number`: nothing waits for them any more.
void nack_list_forget_below(nack_list *self, uint32_t number);

// Forgets everything but the round-trip time.
void nack_list_clear(nack_list *self);

// Writes the numbers that are to be asked for at `now`, ascending and at most `capacity` of them, and counts them as
// asked for. A packet that the patience has run out for is forgotten. Returns how many there are.
size_t nack_list_take_due(nack_list *self, zeb_ts_t now, uint32_t *numbers, size_t capacity);

// When the next request is due; kNackNever when none is.
zeb_ts_t nack_list_next_at(const nack_list *self);

// The oldest missing packet, or null.
const missing_packet *nack_list_oldest(const nack_list *self);

// True when `tries` requests for a packet were made and the latest one had the time to be answered.
bool nack_list_is_unanswered(const nack_list *self, const missing_packet *packet, uint8_t tries, zeb_ts_t now);

// The same for all requests that there may be.
bool nack_list_is_used_up(const nack_list *self, const missing_packet *packet, zeb_ts_t now);

// How long a packet is given to come late before it is asked for, in ms: as long as others were seen to take.
zeb_ts_t nack_list_hold(const nack_list *self);

// The round-trip time in ms, measured or assumed.
zeb_ts_t nack_list_rtt(const nack_list *self);
