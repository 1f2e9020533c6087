#include "arrival/packet_hold.h"

#include "wire/packet.h"

void packet_hold_init(packet_hold *self)
{
    rtc_list_init(&self->packets);
}

namespace
{

held_packet *packet_of(list_head *node)
{
    return reinterpret_cast<held_packet *>(node);
}

// The link in front of which a packet with that number belongs.
list_head *place_find(packet_hold *self, uint32_t number)
{
    list_head *head = &self->packets.head;
    list_head *place = head;
    while (place->prev != head && zeb_uint32_after(packet_of(place->prev)->number, number) != 0) {
        place = place->prev;
    }
    return place;
}

} // namespace

bool packet_hold_add(packet_hold *self, held_packet *packet)
{
    auto *held = static_cast<held_packet *>(zeb_malloc_impl_dbg(sizeof(held_packet), __func__, __LINE__));
    if (held == nullptr) {
        return false;
    }
    *held = *packet;
    video_data4_take(&held->video, &packet->video);
    rtc_list_add_before(&self->packets, place_find(self, held->number), &held->node);
    return true;
}

namespace
{

// The packet with the lowest number that `matches`, or null.
template <typename Match> held_packet *find_first(const packet_hold *self, Match matches)
{
    const list_head *head = &self->packets.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        if (matches(packet_of(node))) {
            return packet_of(node);
        }
    }
    return nullptr;
}

} // namespace

held_packet *packet_hold_first_key(const packet_hold *self)
{
    return find_first(self,
                      [](const held_packet *packet) { return __is_key_frame(packet->video.header.video_type) != 0; });
}

held_packet *packet_hold_next_key(const packet_hold *self, const held_packet *key)
{
    return find_first(self, [key](const held_packet *packet) {
        return zeb_uint32_after(packet->number, key->number) != 0 && packet->timestamp != key->timestamp &&
               __is_key_frame(packet->video.header.video_type) != 0;
    });
}

held_packet *packet_hold_first_of(const packet_hold *self, uint32_t timestamp)
{
    return find_first(self, [timestamp](const held_packet *packet) { return packet->timestamp == timestamp; });
}

bool packet_hold_is_over(const packet_hold *self, const held_packet *packet, zeb_ts_t now)
{
    return self->packets.count >= kPacketHoldMax || now - packet->held_since >= kPacketHoldPatience;
}

namespace
{

held_packet *packet_take(packet_hold *self, held_packet *packet)
{
    if (packet != nullptr) {
        rtc_list_del(&self->packets, &packet->node);
    }
    return packet;
}

} // namespace

held_packet *packet_hold_take_first(packet_hold *self)
{
    return packet_take(self, find_first(self, [](const held_packet *) { return true; }));
}

held_packet *packet_hold_take_over(packet_hold *self, zeb_ts_t now)
{
    return packet_take(self, find_first(self, [self, now](const held_packet *packet) {
                           return packet_hold_is_over(self, packet, now);
                       }));
}

held_packet *packet_hold_take_delta(packet_hold *self)
{
    return packet_take(self, find_first(self, [](const held_packet *packet) {
                           return __is_key_frame(packet->video.header.video_type) == 0;
                       }));
}

held_packet *packet_hold_take_up_to(packet_hold *self, uint32_t number, uint32_t timestamp)
{
    return packet_take(self, find_first(self, [number, timestamp](const held_packet *packet) {
                           return packet->timestamp == timestamp || zeb_uint32_after(number, packet->number) != 0;
                       }));
}

void held_packet_free(held_packet *packet)
{
    video_data4_release(&packet->video);
    zeb_free_impl(packet);
}

void packet_hold_clear(packet_hold *self)
{
    held_packet *packet = packet_hold_take_first(self);
    while (packet != nullptr) {
        held_packet_free(packet);
        packet = packet_hold_take_first(self);
    }
}
