#include "frame_queue_model.h"

#include <algorithm>

#include "circle.h"

namespace differential
{

namespace
{

uint16_t entry_of(uint16_t seq)
{
    return static_cast<uint16_t>(seq % 1280);
}

// A byte of the packet, 0 behind its end.
uint32_t byte_at(const bytes &payload, size_t i)
{
    return i < payload.size() ? payload[i] : 0;
}

// How far a walk from one frame number to the next ones comes: it ends before the first number that is ahead of
// `bound`. A bound that is behind ends it at once.
int64_t reach(int64_t to_bound)
{
    return to_bound > kCircle32 / 2 + 1 ? 0 : to_bound;
}

} // namespace

uint16_t FrameQueueModel::Frame::last_pkt_seq() const
{
    return plus16(first_pkt_seq, int64_t{n_pkts_total} - 1);
}

std::optional<size_t> FrameQueueModel::find(uint32_t frame_seq) const
{
    const size_t slot = frame_seq % 40;

    if (count == 0 || slots[slot].n_pkts_total == 0 || slots[slot].frame_seq != frame_seq) {
        return std::nullopt;
    }
    return slot;
}

std::optional<size_t> FrameQueueModel::find_by_packet(uint16_t seq) const
{
    const auto entry = index.find(entry_of(seq));

    if (count == 0 || entry == index.end()) {
        return std::nullopt;
    }
    const Frame &frame = slots[entry->second];
    const bool is_in_range = after_eq16(seq, frame.min_seq) && after_eq16(frame.max_seq, seq);
    if (frame.n_pkts_total == 0 || !is_in_range || frame.pkts.count(plus16(seq, -int64_t{frame.first_pkt_seq})) == 0) {
        return std::nullopt;
    }
    return entry->second;
}

std::optional<size_t> FrameQueueModel::next(size_t slot) const
{
    const uint32_t from = slots[slot].frame_seq;
    std::map<int64_t, size_t> ahead; // steps -> slot

    for (size_t i = 0; i < slots.size(); i++) {
        if (find(slots[i].frame_seq) == i && slots[i].frame_seq != from) {
            ahead[steps(from, slots[i].frame_seq, kCircle32)] = i;
        }
    }
    if (ahead.empty() || ahead.begin()->first > reach(steps(from, max_frame_seq, kCircle32))) {
        return std::nullopt;
    }
    return ahead.begin()->second;
}

std::optional<size_t> FrameQueueModel::prev(size_t slot) const
{
    const uint32_t from = slots[slot].frame_seq;
    std::map<int64_t, size_t> behind;

    for (size_t i = 0; i < slots.size(); i++) {
        if (find(slots[i].frame_seq) == i && slots[i].frame_seq != from) {
            behind[steps(slots[i].frame_seq, from, kCircle32)] = i;
        }
    }
    if (behind.empty() || behind.begin()->first > reach(steps(min_frame_seq, from, kCircle32))) {
        return std::nullopt;
    }
    return behind.begin()->second;
}

void FrameQueueModel::release(size_t slot)
{
    Frame &frame = slots[slot];

    if (frame.n_pkts_total == 0) {
        return;
    }
    for (const auto &pkt : frame.pkts) {
        index.erase(entry_of(plus16(frame.first_pkt_seq, pkt.first)));
    }
    frame.pkts.clear();
    frame.n_pkts_total = 0;
    frame.n_pkts_received = 0;
    frame.is_complete = false;
}

void FrameQueueModel::move_forward(uint16_t seq)
{
    if (!expected) {
        expected = seq;
        return;
    }
    if (after16(seq, *expected)) {
        for (uint16_t s = *expected; s != seq; s = plus16(s, 1)) {
            counters.erase(entry_of(s));
        }
        expected = seq;
    }
}

void FrameQueueModel::auto_forward(size_t slot, uint16_t index_start)
{
    while (slots[slot].n_pkts_total != 0 && slots[slot].n_pkts_received >= slots[slot].n_pkts_total) {
        move_forward(plus16(slots[slot].last_pkt_seq(), 1));
        if (after_eq32(slots[slot].frame_seq, max_frame_seq)) {
            return;
        }
        const std::optional<size_t> following = find(plus32(slots[slot].frame_seq, 1));
        if (!following) {
            return;
        }
        slot = *following;
        index_start = 0;
    }
    const Frame &frame = slots[slot];
    if (frame.n_pkts_total == 0) {
        return;
    }
    uint16_t i = index_start;
    while (i < frame.n_pkts_total && frame.pkts.count(i) == 1) {
        i++;
    }
    move_forward(plus16(frame.first_pkt_seq, i));
}

bool FrameQueueModel::remove(size_t slot)
{
    const Frame &frame = slots[slot];

    if (count == 0 || !after_eq32(frame.frame_seq, min_frame_seq) || !after_eq32(max_frame_seq, frame.frame_seq)) {
        return false;
    }
    // While it is unknown its low bits read 0xFFFF.
    if (is_receiving_ && after_eq16(frame.last_pkt_seq(), expected.value_or(0xFFFF))) {
        auto_forward(slot, frame.n_pkts_total);
    }
    count--;
    if (count != 0 && min_frame_seq == frame.frame_seq) {
        if (const std::optional<size_t> following = next(slot)) {
            min_frame_seq = slots[*following].frame_seq;
            min_ts = slots[*following].ts;
        }
    }
    if (count != 0 && max_frame_seq == frame.frame_seq) {
        const std::optional<size_t> before = prev(slot);
        if (!before) {
            return false;
        }
        max_frame_seq = slots[*before].frame_seq;
        max_ts = slots[*before].ts;
    }
    release(slot);
    return true;
}

void FrameQueueModel::reset(bool reset_seq)
{
    count = 0;
    for (size_t slot = 0; slot < slots.size(); slot++) {
        release(slot);
    }
    if (reset_seq) {
        expected.reset();
    }
    last_to_user_at = 0;
    n_overlapped = 0;
    n_key = 0;
}

// A frame that insertion gives up, whatever its removal says.
void FrameQueueModel::drop(size_t slot)
{
    remove(slot);
    release(slot);
    n_overlapped++;
}

// False when the slot holds a newer frame.
bool FrameQueueModel::empty_slot_for(const test_support::native_fields &packet, size_t slot)
{
    const Frame &frame = slots[slot];

    if (frame.n_pkts_total == 0) {
        return true;
    }
    if (frame.frame_seq == packet.frame_seq && after_eq16(packet.seq, frame.first_pkt_seq) &&
        after_eq16(frame.last_pkt_seq(), packet.seq)) {
        return true;
    }
    if (after32(frame.frame_seq, packet.frame_seq)) {
        return false;
    }
    drop(slot);
    return true;
}

// False for a duplicate, and for a packet whose entry belongs to a newer frame.
bool FrameQueueModel::claim_index(const test_support::native_fields &packet, size_t slot)
{
    const auto entry = index.find(entry_of(packet.seq));

    if (entry != index.end()) {
        const size_t owner = entry->second;
        if (owner == slot || !after32(packet.frame_seq, slots[owner].frame_seq)) {
            return false;
        }
        remove(owner); // one that can not be removed keeps its packets
        n_overlapped++;
    }
    index[entry_of(packet.seq)] = slot;
    return true;
}

void FrameQueueModel::widen_bounds(const test_support::native_fields &packet)
{
    if (count == 0 || after32(min_frame_seq, packet.frame_seq)) {
        min_frame_seq = packet.frame_seq;
        min_ts = packet.sent_ts;
    }
    if (count == 0 || after32(packet.frame_seq, max_frame_seq)) {
        max_frame_seq = packet.frame_seq;
        max_ts = packet.sent_ts;
    }
}

void FrameQueueModel::fill(const test_support::native_fields &packet, const bytes &payload, size_t slot, uint64_t now)
{
    Frame &frame = slots[slot];
    const uint32_t rtp_seq = byte_at(payload, 2) << 8 | byte_at(payload, 3);

    frame = {};
    frame.queued_ts = now;
    frame.frame_seq = packet.frame_seq;
    frame.is_key_frame = packet.video_type < 0x10;
    frame.codec = packet.codec;
    frame.n_pkts_total = packet.n_pkts;
    frame.n_pkts_fec = packet.reserved >> 8 & 0xFF;
    frame.n_pkts_media = plus16(packet.n_pkts, -int64_t{frame.n_pkts_fec});
    frame.protocol_version = packet.protocol_version;
    frame.reserved = packet.reserved;
    frame.ts = packet.sent_ts;
    frame.first_pkt_seq = plus16(packet.seq, -int64_t{packet.subseq});
    frame.min_seq = packet.seq;
    frame.max_seq = packet.seq;
    frame.rexfer_cnt = 1;
    frame.min_rtp_seq = plus16(rtp_seq, -int64_t{packet.subseq});
    frame.max_rtp_seq = plus16(frame.min_rtp_seq, int64_t{packet.n_pkts} - 1);
    frame.payload_type = static_cast<uint8_t>(byte_at(payload, 1) & 0x7F);
    frame.rtp_timestamp = static_cast<uint16_t>(byte_at(payload, 4) << 8 | byte_at(payload, 5));
}

void FrameQueueModel::add_payload(const test_support::native_fields &packet, const bytes &payload, size_t slot,
                                  bool has_memory)
{
    Frame &frame = slots[slot];

    if (packet.subseq >= frame.n_pkts_total || frame.pkts.count(packet.subseq) == 1 || payload.empty()) {
        return;
    }
    if (!has_memory) {
        index.erase(entry_of(packet.seq)); // a retransmission may fill it
        return;
    }
    frame.pkts[packet.subseq] = payload;
    frame.n_pkts_received++;
    (packet.subseq < frame.n_pkts_media ? frame.n_pkts_received_media : frame.n_pkts_received_fec)++;
    frame.is_complete = frame.n_pkts_received >= frame.n_pkts_media;
}

std::optional<size_t> FrameQueueModel::insert(const test_support::native_fields &packet, const bytes &payload,
                                              refused memory, uint64_t now)
{
    const size_t slot = packet.frame_seq % 40;
    Frame &frame = slots[slot];

    if (!empty_slot_for(packet, slot) || !claim_index(packet, slot)) {
        return std::nullopt;
    }
    widen_bounds(packet);
    if (count != 0 && frame.n_pkts_total != 0 && frame.n_pkts_total == packet.n_pkts) {
        frame.min_seq = after16(frame.min_seq, packet.seq) ? packet.seq : frame.min_seq;
        frame.max_seq = after16(packet.seq, frame.max_seq) ? packet.seq : frame.max_seq;
        add_payload(packet, payload, slot, memory != refused::payload);
        return slot;
    }
    if (count == 0 || frame.n_pkts_total == 0) { // else it is made anew in its place, and not counted again
        count++;
        n_key = static_cast<uint16_t>(n_key + (packet.video_type < 0x10 ? 1 : 0));
    }
    release(slot);
    fill(packet, payload, slot, now);
    if (packet.n_pkts == 0 || memory == refused::packets || memory == refused::statuses) {
        drop(slot);
        return std::nullopt;
    }
    if (!expected) {
        expected = frame.first_pkt_seq;
        last_to_user_at = now;
    }
    add_payload(packet, payload, slot, memory != refused::payload);
    return slot;
}

} // namespace differential
