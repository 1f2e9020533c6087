// Packets that wait in front of the reorder cache, in the order of their numbers. The cache takes the first packet
// of a key frame that it sees for the frame's beginning, and without a key frame it lets nothing else in; on a path that
// reorders, the first to come may be another one. So the packets of a key frame are held for a short while, until
// its beginning is among them.
#pragma once

#include "rtc_list.h"
#include "rtc_packet.h"

constexpr zeb_ts_t kPacketHoldPatience = 200; // milliseconds; longer than paths reorder, shorter than a freeze
constexpr size_t kPacketHoldMax = 128;        // packets

struct held_packet {
    list_head node; // first, so that a link is its record
    PVideoData4 video;
    uint32_t number;    // extended sequence number
    uint32_t timestamp; // RTP timestamp
    bool is_retrans;
    zeb_ts_t held_since;
};

struct packet_hold {
    rtc_list_t packets; // of held_packet, owned
};

void packet_hold_init(packet_hold *self);

// Moves `packet`, of which all but `node` is filled in, into the hold with the buffers of its record. False without
// memory; the buffers stay the caller's.
bool packet_hold_add(packet_hold *self, held_packet *packet);

// The key-frame packet with the lowest number, or null.
held_packet *packet_hold_first_key(const packet_hold *self);

// The next key-frame packet behind `key` that has another timestamp, or null.
held_packet *packet_hold_next_key(const packet_hold *self, const held_packet *key);

// The packet with the lowest number of all that have that timestamp, or null.
held_packet *packet_hold_first_of(const packet_hold *self, uint32_t timestamp);

// True when the packet has waited long enough, or too many are held.
bool packet_hold_is_over(const packet_hold *self, const held_packet *packet, zeb_ts_t now);

// The take functions take a packet out, the one with the lowest number of those that are meant; the caller releases it.
// Null when there is none.

// Of all.
held_packet *packet_hold_take_first(packet_hold *self);

// Of those whose wait is over.
held_packet *packet_hold_take_over(packet_hold *self, zeb_ts_t now);

// Of those that belong to no key frame by themselves.
held_packet *packet_hold_take_delta(packet_hold *self);

// Of those with that timestamp, or with numbers before `number`.
held_packet *packet_hold_take_up_to(packet_hold *self, uint32_t number, uint32_t timestamp);

// Releases a packet that was taken out, with the buffers of its record.
void held_packet_free(held_packet *packet);

// Releases all.
void packet_hold_clear(packet_hold *self);
