#include "arrival/reception.h"

#include <cstring>

static_assert(kReceptionHistory >= kReceptionMaxMisorder, "a late packet must be told from a duplicate");
static_assert((kReceptionHistory & (kReceptionHistory - 1)) == 0, "entries stay in place when numbers wrap");

namespace
{

constexpr uint32_t kCycle = 0x10000;
constexpr zeb_ts_t kTicksPerMillisecond = 90; // RFC 6184 and RFC 7798: a 90 kHz clock

reception_entry *entry_of(reception *self, uint32_t number)
{
    return &self->history[number % kReceptionHistory];
}

} // namespace

const reception_entry *reception_find(const reception *self, uint32_t number)
{
    const reception_entry *entry = &self->history[number % kReceptionHistory];
    return entry->number == number ? entry : nullptr;
}

namespace
{

void packet_remember(reception *self, uint32_t number, const reception_packet *packet)
{
    *entry_of(self, number) = {number, packet->timestamp, packet->has_marker, packet->role};
}

} // namespace

uint32_t sequence_extend(uint32_t near, seq_t seq)
{
    const auto distance = static_cast<int16_t>(static_cast<seq_t>(seq - static_cast<seq_t>(near)));
    return near + static_cast<uint32_t>(distance);
}

uint32_t reception_number(const reception *self, seq_t seq)
{
    return sequence_extend(self->newest, seq);
}

namespace
{

void numbering_begin(reception *self, const reception_packet *packet)
{
    memset(self, 0, sizeof *self);
    self->has_started = true;
    self->first = self->newest = kCycle + packet->seq;
    packet_remember(self, self->newest, packet);
}

void newest_advance(reception *self, stream_report *report, uint32_t number, const reception_packet *packet)
{
    const uint32_t missing = number - self->newest - 1;
    report->packets_lost += missing;
    report->gaps += missing > 0 ? 1 : 0;
    self->newest = number;
    // Nothing from before that is looked at any more, so the first number may follow and never wraps away.
    if (number - self->first > kReceptionHistory) {
        self->first = number - kReceptionHistory;
    }
    packet_remember(self, number, packet);
}

void fill_hole(reception *self, stream_report *report, uint32_t number, const reception_packet *packet)
{
    if (static_cast<int32_t>(number - self->first) < 0) {
        report->packets_lost += self->first - number - 1;
        self->first = number;
    } else {
        report->packets_lost -= 1;
    }
    report->packets_reordered += packet->is_retrans ? 0 : 1;
    packet_remember(self, number, packet);
}

// RFC 3550, A.8.
void jitter_update(reception *self, stream_report *report, uint32_t timestamp, zeb_ts_t now)
{
    const uint32_t transit = static_cast<uint32_t>(now * kTicksPerMillisecond) - timestamp;
    if (self->has_transit) {
        const auto difference = static_cast<int32_t>(transit - self->last_transit);
        const int64_t distance = difference < 0 ? -static_cast<int64_t>(difference) : difference;
        self->jitter += static_cast<uint64_t>(distance) - ((self->jitter + 8) >> 4);
    }
    self->has_transit = true;
    self->last_transit = transit;
    report->jitter = static_cast<uint32_t>(self->jitter >> 4);
}

void packet_count(stream_report *report, const reception_packet *packet, zeb_ts_t now)
{
    if (report->packets == 0) {
        report->first_packet_at = now;
    }
    report->last_packet_at = now;
    report->packets += 1;
    report->bytes += packet->size;
    report->packets_retransmitted += packet->is_retrans ? 1 : 0;
    report->packets_padding += packet->role == PACKET_ROLE_PADDING ? 1 : 0;
}

bool is_jump(const reception *self, seq_t seq)
{
    const auto ahead = static_cast<seq_t>(seq - static_cast<seq_t>(self->newest));
    return ahead >= kReceptionMaxGap && ahead <= static_cast<seq_t>(0 - kReceptionMaxMisorder);
}

uint32_t timestamp_distance(uint32_t lhs, uint32_t rhs)
{
    return zeb_uint32_after(lhs, rhs) != 0 ? lhs - rhs : rhs - lhs;
}

// The oldest packet of which anything is known; what came first may have been forgotten.
const reception_entry *oldest_entry(const reception *self)
{
    const reception_entry *entry = nullptr;
    // The first number follows the newest one at no more than the history's length.
    for (uint32_t number = self->first; entry == nullptr && zeb_uint32_after(number, self->newest) == 0; number++) {
        entry = reception_find(self, number);
    }
    return entry;
}

// A hole is filled by what was sent between the oldest packet that is known and the newest. Where the timestamps between
// those two jump, nothing is known.
bool fits_a_hole(const reception *self, uint32_t timestamp)
{
    const reception_entry *oldest = oldest_entry(self);
    const reception_entry *newest = reception_find(self, self->newest);
    if (oldest == nullptr || newest == nullptr || zeb_uint32_after(oldest->timestamp, newest->timestamp) != 0) {
        return true;
    }
    const uint32_t span = newest->timestamp - oldest->timestamp;
    return timestamp - oldest->timestamp + kReceptionTimestampSlack <= span + 2 * kReceptionTimestampSlack;
}

// The former numbering's next packet may come late, too, and be taken for one of the new numbering's, unless its timestamp
// is too far from theirs.
bool goes_on_with_former(const reception *self, const reception_packet *packet)
{
    const auto ahead = static_cast<seq_t>(packet->seq - self->former_seq);
    const reception_entry *newest = reception_find(self, self->newest);
    return self->has_former && ahead < kReceptionMaxGap && newest != nullptr &&
           timestamp_distance(packet->timestamp, self->former_timestamp) <= kReceptionTimestampSlack &&
           timestamp_distance(packet->timestamp, newest->timestamp) > kReceptionTimestampSlack;
}

// A damaged number is believed, and the packet that has it comes later. It goes on from the one before it, which what is
// noted in its place does not.
bool was_damaged(const reception *self, const reception_entry *entry, const reception_packet *packet)
{
    const reception_entry *before = reception_find(self, entry->number - 1);
    return before != nullptr && zeb_uint32_after(before->timestamp, entry->timestamp) != 0 &&
           packet->timestamp - before->timestamp <= kReceptionTimestampSlack;
}

// A copy has the timestamp of what it copies, and a latecomer from before the first packet has about that one's. What
// has not was numbered anew, close to the numbers of before; when all of those are forgotten, whatever is before them may
// be. Padding may only be supposed to have had its number.
bool packet_contradicts(const reception *self, const reception_packet *packet)
{
    const uint32_t number = reception_number(self, packet->seq);
    const reception_entry *entry = reception_find(self, number);
    if (entry != nullptr) {
        return entry->role != PACKET_ROLE_PADDING && entry->timestamp != packet->timestamp &&
               !was_damaged(self, entry, packet);
    }
    if (zeb_uint32_after(number, self->newest) != 0) {
        return goes_on_with_former(self, packet);
    }
    if (zeb_uint32_after(self->first, number) == 0) {
        return !fits_a_hole(self, packet->timestamp);
    }
    const reception_entry *oldest = oldest_entry(self);
    return oldest == nullptr || timestamp_distance(packet->timestamp, oldest->timestamp) > kReceptionTimestampSlack;
}

// A number that is neither a jump nor was confirmed as one.
reception_verdict packet_file(reception *self, stream_report *report, const reception_packet *packet)
{
    const uint32_t number = reception_number(self, packet->seq);
    if (reception_find(self, number) != nullptr) {
        return RECEPTION_DUPLICATE;
    }
    if (static_cast<int32_t>(number - self->newest) > 0) {
        newest_advance(self, report, number, packet);
        return RECEPTION_NEWEST;
    }
    fill_hole(self, report, number, packet);
    return RECEPTION_EARLIER;
}

// How far the stray number is ahead of the newest one.
seq_t stray_distance(const reception *self)
{
    return static_cast<seq_t>(self->stray.seq - static_cast<seq_t>(self->newest));
}

bool is_long_loss(const reception *self)
{
    const reception_entry *newest = reception_find(self, self->newest);
    // Pictures may be sent out of the order of their timestamps.
    const bool goes_on = newest == nullptr || self->stray.timestamp - newest->timestamp + kReceptionTimestampSlack <
                                                  kReceptionMaxSilence + kReceptionTimestampSlack;
    return goes_on && stray_distance(self) < kReceptionMaxDropout;
}

// Behind a copy with a damaged timestamp the stream goes on as before.
bool goes_with_stray(const reception *self, const reception_packet *packet)
{
    const reception_entry *newest = reception_find(self, self->newest);
    return packet_contradicts(self, packet) || newest == nullptr ||
           timestamp_distance(packet->timestamp, self->stray.timestamp) <
               timestamp_distance(packet->timestamp, newest->timestamp);
}

// Where numbers of the new numbering are lost, the first that was not taken before comes some way behind the stray one. By
// its timestamp it cannot go on with what was before.
bool is_beside_stray(const reception *self, const reception_packet *packet)
{
    const reception_entry *newest = reception_find(self, self->newest);
    const uint16_t distance = zeb_uint16_dist(packet->seq, self->stray.seq);
    return newest != nullptr && !packet_contradicts(self, packet) && distance < kReceptionMaxGap &&
           timestamp_distance(packet->timestamp, self->stray.timestamp) <= kReceptionTimestampSlack &&
           timestamp_distance(packet->timestamp, newest->timestamp) > kReceptionTimestampSlack;
}

// A number close by, and closer than to the newest one, confirms a long loss; paths reorder. A new numbering takes
// two numbers in sequence. A retransmission is old by nature and proves nothing.
bool confirms_stray(const reception *self, const reception_packet *packet)
{
    if (!self->has_stray || packet->is_retrans) {
        return false;
    }
    const bool is_next = packet->seq == zeb_uint16_next(self->stray.seq);
    if (self->stray_contradicts) {
        return (is_next && goes_with_stray(self, packet)) || is_beside_stray(self, packet);
    }
    if (!is_long_loss(self)) {
        return is_next;
    }
    const uint16_t to_stray = zeb_uint16_dist(packet->seq, self->stray.seq);
    const uint16_t to_newest = zeb_uint16_dist(packet->seq, static_cast<seq_t>(self->newest));
    return to_stray > 0 && to_stray < kReceptionMaxGap && to_stray < to_newest;
}

// Whether the packet is one that the numbering has, or is about to get to.
bool is_near(const reception *self, const reception_entry *newest, const reception_packet *packet)
{
    const auto behind_first = static_cast<seq_t>(packet->seq - static_cast<seq_t>(self->first));
    const auto length = static_cast<seq_t>(self->newest - self->first);
    return behind_first < length + kReceptionMaxGap && newest != nullptr &&
           timestamp_distance(packet->timestamp, newest->timestamp) <= kReceptionTimestampSlack;
}

// Packets of before come late where the sender numbers anew, and would be taken for the next jump. Numbers may be used
// again at once, so the timestamp has to be nearer to those of before.
bool is_of_former(const reception *self, const reception_packet *packet)
{
    const auto behind = static_cast<seq_t>(self->former_seq - packet->seq);
    const reception_entry *newest = reception_find(self, self->newest);
    const uint32_t distance = self->former_timestamp - packet->timestamp;
    return self->has_former && !is_near(self, newest, packet) && behind < kReceptionMaxMisorder &&
           distance <= kReceptionTimestampSlack &&
           (newest == nullptr || distance < timestamp_distance(packet->timestamp, newest->timestamp));
}

void numbering_begin_anew(reception *self, const reception_packet *packet)
{
    const auto former_seq = static_cast<seq_t>(self->newest);
    const reception_entry *newest = reception_find(self, self->newest);
    const bool has_former = newest != nullptr;
    const uint32_t former_timestamp = has_former ? newest->timestamp : 0;
    numbering_begin(self, packet);
    self->has_former = has_former;
    self->former_seq = former_seq;
    self->former_timestamp = former_timestamp;
}

reception_verdict confirm_stray(reception *self, stream_report *report, const reception_packet *packet)
{
    const bool is_loss = !self->stray_contradicts && is_long_loss(self);
    const reception_packet stray = self->stray;
    self->has_stray = false;
    if (is_loss) {
        newest_advance(self, report, self->newest + stray_distance(self), &stray);
    } else {
        numbering_begin_anew(self, &stray);
    }
    packet_file(self, report, packet);
    return is_loss ? RECEPTION_RESUMED : RECEPTION_RESTARTED;
}

reception_verdict packet_place(reception *self, stream_report *report, const reception_packet *packet)
{
    if (!self->has_started) {
        numbering_begin(self, packet);
        return RECEPTION_NEWEST;
    }
    if (is_of_former(self, packet)) {
        return RECEPTION_DUPLICATE;
    }
    if (confirms_stray(self, packet)) {
        return confirm_stray(self, report, packet);
    }
    const bool contradicts = packet_contradicts(self, packet);
    if (!is_jump(self, packet->seq) && !contradicts) {
        self->has_stray = false;
        return packet_file(self, report, packet);
    }
    if (!packet->is_retrans) {
        self->has_stray = true;
        self->stray_contradicts = contradicts;
        self->stray = *packet;
    }
    return RECEPTION_STRAY;
}

} // namespace

reception_verdict reception_note(reception *self, stream_report *report, const reception_packet *packet, zeb_ts_t now)
{
    packet_count(report, packet, now);
    const reception_verdict verdict = packet_place(self, report, packet);
    const bool is_sample = verdict != RECEPTION_DUPLICATE && verdict != RECEPTION_STRAY && !packet->is_retrans;
    if (is_sample) {
        jitter_update(self, report, packet->timestamp, now);
    }
    return verdict;
}

void reception_forget(reception *self, stream_report *report, uint32_t number)
{
    reception_entry *entry = entry_of(self, number);
    if (entry->number == number) {
        *entry = {};
        report->packets_lost += 1;
    }
}

void reception_note_padding(reception *self, uint32_t number, uint32_t timestamp)
{
    *entry_of(self, number) = {number, timestamp, false, PACKET_ROLE_PADDING};
}

namespace
{

bool is_media_of(const reception_entry *entry, uint32_t timestamp)
{
    return entry != nullptr && entry->role != PACKET_ROLE_PADDING && entry->timestamp == timestamp;
}

} // namespace

bool reception_is_inside_frame(const reception *self, uint32_t number, uint32_t timestamp)
{
    // Of what came behind it no more than the history holds.
    for (uint32_t behind = number + 1; zeb_uint32_after(behind, self->newest) == 0; behind++) {
        if (is_media_of(reception_find(self, behind), timestamp)) {
            return true;
        }
    }
    return false;
}

bool reception_proves_beginning(const reception *self, uint32_t number, uint32_t timestamp)
{
    const reception_entry *before = reception_find(self, number - 1);
    return before != nullptr && before->timestamp != timestamp;
}

bool reception_is_joined(const reception *self, uint32_t number, uint32_t timestamp)
{
    const reception_entry *entry = reception_find(self, number);
    // Ends at a hole at the latest, and the history ends.
    while (entry != nullptr && entry->timestamp == timestamp) {
        number -= 1;
        entry = reception_find(self, number);
    }
    return entry != nullptr;
}

uint32_t reception_highest(const reception *self)
{
    return self->has_started ? self->newest - kCycle : 0;
}
