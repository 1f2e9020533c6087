#include "repair/nack_list.h"

#include <cstring>

namespace
{

// A retransmission crosses the path twice, with some play; asked for again too soon it would come twice. The millisecond
// is the clock's.
zeb_ts_t repeat_interval(const nack_list *self)
{
    return nack_list_rtt(self) + 1 + (2 * self->rtt_play_8 + 7) / 8;
}

zeb_ts_t request_due_at(const nack_list *self, const missing_packet *packet)
{
    if (packet->tries == 0) {
        return packet->missing_since + nack_list_hold(self);
    }
    return packet->tries < kNackTriesMax ? packet->asked_at + repeat_interval(self) : kNackNever;
}

zeb_ts_t suspect_due_at(const nack_list *self)
{
    const bool may_ask = self->has_suspect && self->suspect.tries < kNackSuspectTriesMax;
    return may_ask ? request_due_at(self, &self->suspect) : kNackNever;
}

void drop_first(nack_list *self, size_t count)
{
    self->count -= count;
    memmove(self->missing, self->missing + count, self->count * sizeof self->missing[0]);
}

// The place of `number`, or of the first one above it.
size_t lower_bound(const nack_list *self, uint32_t number)
{
    size_t low = 0;
    size_t high = self->count;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (static_cast<int32_t>(self->missing[middle].number - number) < 0) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

} // namespace

zeb_ts_t nack_list_hold(const nack_list *self)
{
    const zeb_ts_t lateness = (self->lateness_8 + 7) / 8;
    return lateness < kNackHoldMin ? kNackHoldMin : lateness;
}

zeb_ts_t nack_list_rtt(const nack_list *self)
{
    return self->rtt_8 == 0 ? kNackRttUnknown : (self->rtt_8 + 4) / 8;
}

namespace
{

missing_packet newly_missing(const nack_list *self, uint32_t number, zeb_ts_t now)
{
    missing_packet packet = {number, 0, now, 0};
    if (self->has_suspect && self->suspect.number == number) {
        packet.tries = self->suspect.tries;
        packet.asked_at = self->suspect.asked_at;
    }
    return packet;
}

} // namespace

void nack_list_add(nack_list *self, uint32_t first, uint32_t last, zeb_ts_t now)
{
    size_t count = last - first + 1;
    if (count > kNackListMax) {
        first += static_cast<uint32_t>(count - kNackListMax);
        count = kNackListMax;
    }
    if (self->count + count > kNackListMax) {
        drop_first(self, self->count + count - kNackListMax);
    }
    for (uint32_t i = 0; i < count; i++) {
        self->missing[self->count] = newly_missing(self, first + i, now);
        self->count += 1;
    }
    self->has_suspect = false;
}

void nack_list_suspect(nack_list *self, uint32_t number, zeb_ts_t since)
{
    self->has_suspect = true;
    self->suspect = {number, 0, since, 0};
}

void nack_list_insert(nack_list *self, uint32_t number, zeb_ts_t now)
{
    if (nack_list_find(self, number) != nullptr) {
        return;
    }
    if (self->count == kNackListMax) {
        drop_first(self, 1);
    }
    const size_t place = lower_bound(self, number);
    memmove(&self->missing[place + 1], &self->missing[place], (self->count - place) * sizeof self->missing[0]);
    self->missing[place] = {number, 0, now, 0};
    self->count += 1;
}

namespace
{

// Rises at once and falls slowly: one more late packet is soon to be expected.
void lateness_note(nack_list *self, zeb_ts_t lateness)
{
    const auto sample_8 = static_cast<uint32_t>((lateness < kNackHoldMax ? lateness : kNackHoldMax) * 8);
    self->lateness_8 =
        sample_8 > self->lateness_8 ? sample_8 : self->lateness_8 - (self->lateness_8 - sample_8 + 15) / 16;
}

// Smoothed as that of TCP is (RFC 6298, 2). After a single one a sixteenth of it is allowed for.
void rtt_note(nack_list *self, uint32_t sample_8)
{
    if (self->rtt_8 == 0) {
        self->rtt_8 = sample_8;
        self->rtt_play_8 = sample_8 / 32;
        return;
    }
    const uint32_t play_8 = sample_8 > self->rtt_8 ? sample_8 - self->rtt_8 : self->rtt_8 - sample_8;
    self->rtt_play_8 = self->rtt_play_8 - self->rtt_play_8 / 4 + play_8 / 4;
    self->rtt_8 = self->rtt_8 - self->rtt_8 / 8 + sample_8 / 8;
}

void rtt_measure(nack_list *self, const missing_packet *packet, zeb_ts_t now)
{
    const zeb_ts_t sample = now - packet->asked_at;
    // What comes right behind a repeat answers the request before it, and is neither late nor a measure.
    if (packet->tries == 0 || (packet->tries == 1 && sample < nack_list_rtt(self) / 2)) {
        lateness_note(self, now - packet->missing_since);
    } else if (packet->tries == 1) {
        rtt_note(self, static_cast<uint32_t>(sample * 8));
    }
}

} // namespace

bool nack_list_settle_suspect(nack_list *self, uint32_t number, bool may_answer, zeb_ts_t now)
{
    const missing_packet *suspect = &self->suspect;
    const bool was_asked_for = self->has_suspect && suspect->number == number && suspect->tries > 0;
    self->has_suspect = false;
    if (!was_asked_for || !may_answer || now - suspect->asked_at < nack_list_rtt(self) / 2) {
        return false;
    }
    rtt_measure(self, suspect, now);
    return true;
}

bool nack_list_remove(nack_list *self, uint32_t number, zeb_ts_t now)
{
    const size_t place = lower_bound(self, number);
    if (place == self->count || self->missing[place].number != number) {
        return false;
    }
    rtt_measure(self, &self->missing[place], now);
    self->count -= 1;
    memmove(&self->missing[place], &self->missing[place + 1], (self->count - place) * sizeof self->missing[0]);
    return true;
}

const missing_packet *nack_list_find(const nack_list *self, uint32_t number)
{
    if (self->has_suspect && self->suspect.number == number) {
        return &self->suspect;
    }
    const size_t place = lower_bound(self, number);
    return place < self->count && self->missing[place].number == number ? &self->missing[place] : nullptr;
}

void nack_list_forget_below(nack_list *self, uint32_t number)
{
    const size_t count = lower_bound(self, number);
    if (count > 0) {
        drop_first(self, count);
    }
}

void nack_list_clear(nack_list *self)
{
    self->count = 0;
    self->has_suspect = false;
}

namespace
{

void forget_expired(nack_list *self, zeb_ts_t now)
{
    size_t kept = 0;
    for (size_t i = 0; i < self->count; i++) {
        if (now - self->missing[i].missing_since < kNackPatience) {
            self->missing[kept] = self->missing[i];
            kept += 1;
        }
    }
    self->count = kept;
}

uint32_t packet_ask(missing_packet *packet, zeb_ts_t now)
{
    packet->tries = static_cast<uint8_t>(packet->tries + 1);
    packet->asked_at = now;
    return packet->number;
}

} // namespace

size_t nack_list_take_due(nack_list *self, zeb_ts_t now, uint32_t *numbers, size_t capacity)
{
    size_t taken = 0;
    forget_expired(self, now);
    for (size_t i = 0; i < self->count && taken < capacity; i++) {
        if (now >= request_due_at(self, &self->missing[i])) {
            numbers[taken] = packet_ask(&self->missing[i], now);
            taken += 1;
        }
    }
    if (taken < capacity && now >= suspect_due_at(self)) {
        numbers[taken] = packet_ask(&self->suspect, now);
        taken += 1;
    }
    return taken;
}

zeb_ts_t nack_list_next_at(const nack_list *self)
{
    zeb_ts_t next_at = suspect_due_at(self);
    for (size_t i = 0; i < self->count; i++) {
        const zeb_ts_t due_at = request_due_at(self, &self->missing[i]);
        next_at = due_at < next_at ? due_at : next_at;
    }
    return next_at;
}

const missing_packet *nack_list_oldest(const nack_list *self)
{
    return self->count == 0 ? nullptr : &self->missing[0];
}

bool nack_list_is_unanswered(const nack_list *self, const missing_packet *packet, uint8_t tries, zeb_ts_t now)
{
    return packet->tries >= tries && now >= packet->asked_at + repeat_interval(self);
}

bool nack_list_is_used_up(const nack_list *self, const missing_packet *packet, zeb_ts_t now)
{
    return nack_list_is_unanswered(self, packet, kNackTriesMax, now);
}
