#include "reorder_cache_model.h"

#include "circle.h"

namespace differential
{

namespace
{

constexpr uint64_t kPatience = 2000;

uint16_t slot_of(uint16_t seq)
{
    return seq % 8192;
}

uint16_t next16(uint16_t seq)
{
    return plus16(seq, 1);
}

} // namespace

ReorderCacheModel::Packet *ReorderCacheModel::slot(uint16_t seq)
{
    const auto found = ring.find(slot_of(seq));

    return found == ring.end() ? nullptr : &found->second;
}

// The first used slot after `seq`, up to the newest packet.
ReorderCacheModel::Packet *ReorderCacheModel::next_received(uint16_t seq)
{
    for (uint16_t s = next16(seq); after_eq16(max_seq.value_or(0xFFFF), s); s = next16(s)) {
        if (slot(s) != nullptr) {
            return slot(s);
        }
    }
    return nullptr;
}

ReorderCacheModel::Frame *ReorderCacheModel::head()
{
    const Packet *oldest = min_seq ? slot(*min_seq) : nullptr;

    return oldest == nullptr || !oldest->is_filed ? nullptr : &frames.at(oldest->sent.timestamp);
}

// -- Intake --

ReorderCacheModel::order ReorderCacheModel::classify(uint16_t seq, uint32_t timestamp)
{
    if (last_removed_timestamp == timestamp) {
        if (exp_seq == seq) {
            move_expected(seq, timestamp);
        }
        return order::refuse;
    }
    if (!exp_seq) {
        exp_seq = seq;
        return order::in_order;
    }
    if (after16(*exp_seq, seq)) {
        return order::refuse;
    }
    return after16(seq, *exp_seq) ? order::ahead : order::in_order;
}

bool ReorderCacheModel::store(const Arrival &arrival, uint64_t now)
{
    if (waits_for_key && !arrival.is_key) {
        n_key_requests++;
        return false;
    }
    waits_for_key = waits_for_key && !arrival.is_key;
    const order place = classify(arrival.seq, arrival.timestamp);
    if (place == order::refuse) {
        return false;
    }
    const uint16_t at = slot_of(arrival.seq);
    if (slot(arrival.seq) != nullptr && slot(arrival.seq)->sent.seq == arrival.seq) {
        return false;
    }
    ring.erase(at); // another number's: it gives way, and its frame does not learn of it
    Packet &packet = ring[at];
    packet.ts = now;
    packet.sent = arrival;
    if (const auto left = numbering_left.find(at); left != numbering_left.end()) {
        packet.frm_seq = left->second.first;
        packet.sub_seq = left->second.second;
        numbering_left.erase(left);
    }
    if (ring.size() == 1) {
        min_seq = arrival.seq;
        max_seq = arrival.seq;
    }
    min_seq = after16(min_seq.value_or(0xFFFF), arrival.seq) ? arrival.seq : *min_seq;
    max_seq = after16(arrival.seq, max_seq.value_or(0xFFFF)) ? arrival.seq : *max_seq;
    if (place == order::ahead && !arrival.is_key) {
        n_packet_requests++;
    }
    return true;
}

void ReorderCacheModel::fix_state(Frame *frame)
{
    if (!frame->has_packets || frame->is_complete || !frame->min_seq || !frame->max_seq) {
        return;
    }
    const int64_t forward = steps(*frame->min_seq, *frame->max_seq, kCircle16);
    const int64_t nearer = forward < kCircle16 / 2 ? forward : kCircle16 - forward;
    frame->n_pkts_total = static_cast<uint16_t>(nearer + 1);
    frame->is_complete = frame->n_pkts_received == frame->n_pkts_total;
}

void ReorderCacheModel::prove_min(Frame *frame)
{
    const uint16_t cur = *frame->cur_min_seq;
    const Packet &packet = *slot(cur);
    const Packet *before = slot(plus16(cur, -1));
    const bool follows_in_order = last_ordered_pkt_seq && packet.sent.seq == next16(*last_ordered_pkt_seq) &&
                                  last_ordered_timestamp != packet.sent.timestamp;
    const bool follows_an_end = after16(cur, min_seq.value_or(0xFFFF)) && before != nullptr && before->sent.marker;

    if (packet.sent.is_key || follows_in_order || follows_an_end) {
        frame->min_seq = cur;
    }
}

void ReorderCacheModel::prove_max(Frame *frame)
{
    const uint16_t cur = *frame->cur_max_seq;

    if (!slot(cur)->sent.marker) {
        return;
    }
    frame->max_seq = cur;
    Packet *behind = slot(next16(cur));
    if (after16(max_seq.value_or(0xFFFF), cur) && behind != nullptr && behind->is_filed) {
        Frame &following = frames.at(behind->sent.timestamp);
        following.min_seq = next16(cur);
        fix_state(&following);
    }
}

void ReorderCacheModel::add(Frame *frame, Packet *packet)
{
    const uint16_t seq = packet->sent.seq;
    bool is_first_in_doubt = !frame->has_packets;
    bool is_last_in_doubt = !frame->has_packets;

    packet->is_filed = true;
    frame->n_pkts_received++;
    frame->is_key = frame->is_key || packet->sent.is_key;
    if (!frame->has_packets) {
        frame->has_packets = true;
        frame->ts = packet->ts;
        frame->cur_min_seq = seq;
        frame->cur_max_seq = seq;
    } else {
        if (after16(*frame->cur_min_seq, seq)) {
            frame->cur_min_seq = seq;
            is_first_in_doubt = !frame->min_seq;
        }
        if (after16(seq, *frame->cur_max_seq)) {
            frame->cur_max_seq = seq;
            is_last_in_doubt = packet->sent.marker && !frame->max_seq;
        }
    }
    if (is_first_in_doubt) {
        prove_min(frame);
    }
    if (is_last_in_doubt) {
        prove_max(frame);
    }
    fix_state(frame);
}

ReorderCacheModel::Frame *ReorderCacheModel::file(uint16_t seq, refused memory)
{
    Packet *packet = slot(seq);
    const uint32_t timestamp = packet->sent.timestamp;

    if (frames.count(timestamp) == 0 && memory == refused::frame) {
        return nullptr;
    }
    Frame *frame = &frames[timestamp];
    add(frame, packet);
    if (exp_seq == seq) {
        move_expected(seq, timestamp);
    }
    if (!min_timestamp || !max_timestamp) {
        min_timestamp = timestamp;
        max_timestamp = timestamp;
    } else if (after32(timestamp, *max_timestamp)) {
        max_timestamp = timestamp;
    } else if (after32(*min_timestamp, timestamp)) {
        min_timestamp = timestamp;
    }
    return frame;
}

bool ReorderCacheModel::process(const Arrival &arrival, refused memory, uint64_t now)
{
    if (!has_ring && memory == refused::ring) {
        return false;
    }
    has_ring = true;
    if (!store(arrival, now)) {
        return false;
    }
    const Frame *frame = file(arrival.seq, memory);
    if (frame != nullptr && frame->is_complete && min_timestamp == arrival.timestamp) {
        deliver(now);
    }
    return true;
}

// -- Expected sequence and removal --

void ReorderCacheModel::move_expected(uint16_t seq, uint32_t timestamp)
{
    exp_seq = exp_seq.value_or(seq);
    if (ring.empty()) {
        exp_seq = next16(seq);
        last_ordered_pkt_seq = seq;
        last_ordered_timestamp = timestamp;
        return;
    }
    uint16_t candidate = next16(seq);
    while (slot(candidate) != nullptr) {
        candidate = next16(candidate);
        if (!after_eq16(max_seq.value_or(0xFFFF), candidate)) {
            break;
        }
    }
    exp_seq = candidate;
    const uint16_t last = plus16(candidate, -1);
    if (!last_ordered_pkt_seq) {
        last_ordered_pkt_seq = seq;
        last_ordered_timestamp = timestamp;
    } else if (after_eq16(last, min_seq.value_or(0xFFFF))) {
        const Packet *packet = slot(last); // a free slot is all zero
        last_ordered_pkt_seq = packet == nullptr ? uint16_t{0} : packet->sent.seq;
        last_ordered_timestamp = packet == nullptr ? 0U : packet->sent.timestamp;
    }
}

void ReorderCacheModel::remove(uint32_t timestamp)
{
    const Frame frame = frames.at(timestamp);
    const uint16_t first = *frame.cur_min_seq;
    const uint16_t last = *frame.cur_max_seq;

    frames.erase(timestamp);
    for (uint16_t s = first; after_eq16(last, s); s = next16(s)) {
        ring.erase(slot_of(s)); // whatever frame it is of
    }
    for (auto &held : ring) {
        if (held.second.sent.timestamp == timestamp) {
            held.second.is_filed = false; // it lay outside the range, and its frame is gone
        }
    }
    if (ring.empty()) {
        min_seq.reset();
        max_seq.reset();
        min_timestamp.reset();
        max_timestamp.reset();
    } else if (const Packet *n = next_received(last)) {
        if (after_eq16(last, min_seq.value_or(0xFFFF))) {
            min_seq = n->sent.seq;
            min_timestamp = n->sent.timestamp;
        }
        if (after_eq16(last, max_seq.value_or(0xFFFF))) {
            max_seq = n->sent.seq;
            max_timestamp = n->sent.timestamp;
        }
    }
    if (after16(last, exp_seq.value_or(0xFFFF))) {
        move_expected(last, timestamp);
    }
}

// The key frame that is at the head then, or null.
ReorderCacheModel::Frame *ReorderCacheModel::remove_to_key_frame()
{
    const uint32_t stuck = min_timestamp.value_or(0xFFFFFFFF);

    last_deliver_frm_seq.reset();
    last_deliver_pkt_seq.reset();
    last_deliver_ts = 0;
    while (min_seq) {
        Frame *frame = head();
        if (frame == nullptr) {
            return nullptr;
        }
        const uint32_t timestamp = slot(*min_seq)->sent.timestamp;
        if (frame->is_key && timestamp != stuck) {
            return frame;
        }
        remove(timestamp);
    }
    n_key_requests++;
    return nullptr;
}

// -- Delivery --

void ReorderCacheModel::number(Frame *frame)
{
    const bool is_first = !last_deliver_frm_seq;
    const bool follows = last_deliver_pkt_seq && frame->min_seq == next16(*last_deliver_pkt_seq);

    if (!is_first && follows) {
        frame->frm_seq = plus32(*last_deliver_frm_seq, 1);
    } else {
        frame->frm_seq = 1000;
    }
    if (!is_first && !follows) {
        restarts.push_back(frame->ts);
    }
    last_deliver_frm_seq = frame->frm_seq;
}

void ReorderCacheModel::write_numbering(const Frame &frame)
{
    uint16_t s = *frame.min_seq;
    uint16_t i = 0;

    do { // the first one in any case
        if (Packet *packet = slot(s)) {
            packet->frm_seq = frame.frm_seq;
            packet->sub_seq = i;
            packet->header_frame_seq = frame.frm_seq;
            packet->header_subseq = i;
            packet->n_pkts = frame.n_pkts_total;
        } else {
            numbering_left[slot_of(s)] = {frame.frm_seq, i};
        }
        s = next16(s);
        i++;
    } while (after_eq16(*frame.max_seq, s));
}

void ReorderCacheModel::hand_over(const Frame &frame, uint64_t now)
{
    for (uint16_t s = *frame.min_seq; after_eq16(*frame.max_seq, s); s = next16(s)) {
        Packet *packet = slot(s);
        if (packet == nullptr) {
            continue;
        }
        deliveries.push_back({packet->header_frame_seq, packet->header_subseq, packet->n_pkts, packet->sent.seq,
                              packet->sent.is_retrans, frame.is_key, now, packet->sent.payload});
        if (takes_payload) {
            packet->sent.payload.clear();
        }
    }
}

void ReorderCacheModel::deliver_frame(uint32_t timestamp, uint64_t now)
{
    Frame &frame = frames.at(timestamp);

    number(&frame);
    write_numbering(frame);
    last_deliver_ts = now;
    last_deliver_pkt_seq = frame.max_seq;
    hand_over(frame, now);
    remove(timestamp);
}

void ReorderCacheModel::deliver(uint64_t now)
{
    while (head() != nullptr && head()->is_complete) {
        deliver_frame(slot(*min_seq)->sent.timestamp, now);
    }
}

void ReorderCacheModel::check(uint64_t now)
{
    const Frame *frame = head();

    if (frame == nullptr) {
        return;
    }
    if (!frame->is_complete) {
        if (now - frame->ts < kPatience) {
            return;
        }
        frame = remove_to_key_frame();
        if (frame == nullptr || !frame->is_complete) {
            return;
        }
    }
    if (last_deliver_pkt_seq && frame->min_seq != next16(*last_deliver_pkt_seq)) {
        if (now - last_deliver_ts < kPatience) {
            return;
        }
        frame = remove_to_key_frame();
        if (frame == nullptr || !frame->is_complete) {
            return;
        }
    }
    deliver(now);
}

// -- Lifecycle --

void ReorderCacheModel::reset()
{
    if (!has_ring) {
        return;
    }
    ReorderCacheModel empty;
    empty.takes_payload = takes_payload;
    empty.has_ring = true;
    empty.numbering_left = numbering_left;
    empty.n_key_requests = n_key_requests;
    empty.n_packet_requests = n_packet_requests;
    empty.restarts = restarts;
    empty.deliveries = deliveries;
    *this = empty;
}

// Released and initialised again.
void ReorderCacheModel::start_anew()
{
    has_ring = true;
    reset();
    has_ring = false;
    numbering_left.clear();
}

} // namespace differential
