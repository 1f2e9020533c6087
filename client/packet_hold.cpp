#include "packet_hold.h"

#include <cstring>

void packet_hold_init(packet_hold *self)
{
    memset(self, 0, sizeof *self);
    rtc_list_init(&self->packets);
}

static held_packet *__packet(list_head *node)
{
    return reinterpret_cast<held_packet *>(node);
}

// The link in front of which a packet with that number belongs.
static list_head *__place_find(packet_hold *self, uint32_t number)
{
    list_head *head = &self->packets.head;
    list_head *place = head;
    while (place->prev != head && zeb_uint32_after(__packet(place->prev)->number, number)) {
        place = place->prev;
    }
    return place;
}

bool packet_hold_add(packet_hold *self, PVideoData4 *video, uint32_t number, bool is_retrans, zeb_ts_t now)
{
    auto *packet = static_cast<held_packet *>(zeb_malloc_impl_dbg(sizeof(held_packet), __func__, __LINE__));
    if (packet == nullptr) {
        return false;
    }
    memset(packet, 0, sizeof *packet);
    video_data4_take(&packet->video, video);
    packet->number = number;
    packet->is_retrans = is_retrans;
    if (self->packets.count == 0) {
        self->since = now;
    }
    rtc_list_add_before(&self->packets, __place_find(self, number), &packet->node);
    return true;
}

bool packet_hold_is_over(const packet_hold *self, zeb_ts_t now)
{
    return self->packets.count >= kPacketHoldMax ||
           (self->packets.count > 0 && now - self->since >= kPacketHoldPatience);
}

held_packet *packet_hold_first(const packet_hold *self)
{
    return self->packets.count == 0 ? nullptr : __packet(self->packets.head.next);
}

held_packet *packet_hold_first_key(const packet_hold *self)
{
    const list_head *head = &self->packets.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        if (__is_key_frame(__packet(node)->video.header.video_type) != 0) {
            return __packet(node);
        }
    }
    return nullptr;
}

held_packet *packet_hold_take_first(packet_hold *self)
{
    held_packet *packet = packet_hold_first(self);
    if (packet != nullptr) {
        rtc_list_del(&self->packets, &packet->node);
    }
    return packet;
}

void held_packet_free(held_packet *packet)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &packet->video.payload);
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
