// Packets that wait in front of the reorder cache, in the order of their numbers. The cache takes the first key-frame
// packet that it sees for the first one of its frame; on a path that reorders, that packet may not be it. So while the
// cache waits for a key frame, packets are held until the frame's beginning is among them, or for a short while.
#pragma once

#include "rtc_list.h"
#include "rtc_packet.h"

constexpr zeb_ts_t kPacketHoldPatience = 200; // milliseconds; longer than paths reorder, shorter than a freeze
constexpr size_t kPacketHoldMax = 256;        // packets

struct held_packet {
    list_head node; // first, so that a link is its record
    PVideoData4 video;
    uint32_t number; // extended sequence number
    bool is_retrans;
};

struct packet_hold {
    rtc_list_t packets; // of held_packet, owned
    zeb_ts_t since;     // when the first of them came
};

void packet_hold_init(packet_hold *self);

// Takes over a packet's payload. False without memory; the packet stays the caller's.
bool packet_hold_add(packet_hold *self, PVideoData4 *video, uint32_t number, bool is_retrans, zeb_ts_t now);

// True when the packets have waited long enough or are too many.
bool packet_hold_is_over(const packet_hold *self, zeb_ts_t now);

// The packet with the lowest number, or null.
held_packet *packet_hold_first(const packet_hold *self);

// The key-frame packet with the lowest number, or null.
held_packet *packet_hold_first_key(const packet_hold *self);

// Takes the packet with the lowest number out; the caller releases it. Null when none is held.
held_packet *packet_hold_take_first(packet_hold *self);

// Releases a packet that was taken out.
void held_packet_free(held_packet *packet);

// Releases all.
void packet_hold_clear(packet_hold *self);
