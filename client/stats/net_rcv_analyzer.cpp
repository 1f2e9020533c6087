#include "net_rcv_analyzer.h"

#include <cstring>

#include "stats/receive_quality.h"

namespace
{

// Sequence numbers are extended to 64 bits and begin a circle above 0, so that one behind the first packet's
// stays positive.
constexpr uint64_t kSeqCircle = 0x10000;

// Newest packets for which it is known which of them came: the bits of `seen`.
constexpr uint64_t kSeenWindow = 64;

constexpr int64_t kLostMin = -0x800000;
constexpr int64_t kLostMax = 0x7FFFFF;

} // namespace

// All zero is the state at the start of a period.
struct net_rcv_analyzer_t {
    uint64_t first_seq;   // extended; 0 before the first packet
    uint64_t highest_seq; // extended
    uint64_t seen;        // bit i: the packet `highest_seq` - i came
    uint64_t received;
    uint64_t duplicates;
    uint64_t expected_prior; // at the start of the interval that fraction lost is taken over
    uint64_t received_prior;
    uint64_t jitter_q4;  // jitter in sixteenths of a timestamp unit
    uint32_t transit;    // arrival less timestamp of the last packet, timestamp units, modulo 2^32
    uint32_t clock_rate; // Hz, of `transit`; 0 while there is none
};

net_rcv_analyzer_t *net_rcv_analyzer_new()
{
    auto *analyzer =
        static_cast<net_rcv_analyzer_t *>(zeb_malloc_impl_dbg(sizeof(net_rcv_analyzer_t), __func__, __LINE__));
    net_rcv_analyzer_reset(analyzer);
    return analyzer;
}

void net_rcv_analyzer_del(net_rcv_analyzer_t **analyzer_p)
{
    if (analyzer_p == nullptr) {
        return;
    }
    zeb_free_impl(*analyzer_p);
    *analyzer_p = nullptr;
}

void net_rcv_analyzer_reset(net_rcv_analyzer_t *analyzer)
{
    if (analyzer != nullptr) {
        memset(analyzer, 0, sizeof(*analyzer));
    }
}

namespace
{

// ---- Loss ----

// The extended number nearest to the newest one.
uint64_t seq_extend(const net_rcv_analyzer_t *analyzer, seq_t seq)
{
    const auto highest = static_cast<seq_t>(analyzer->highest_seq);
    if (zeb_uint16_after(seq, highest)) {
        return analyzer->highest_seq + static_cast<seq_t>(seq - highest);
    }
    return analyzer->highest_seq - static_cast<seq_t>(highest - seq);
}

void highest_move(net_rcv_analyzer_t *analyzer, uint64_t seq)
{
    const uint64_t steps = seq - analyzer->highest_seq;
    analyzer->seen = steps < kSeenWindow ? (analyzer->seen << steps) | 1 : 1;
    analyzer->highest_seq = seq;
}

// False when the packet behind the newest one is known to have come.
bool late_mark(net_rcv_analyzer_t *analyzer, uint64_t seq)
{
    const uint64_t steps = analyzer->highest_seq - seq;
    if (steps >= kSeenWindow) {
        return true;
    }
    const uint64_t bit = uint64_t{1} << steps;
    const bool is_new = (analyzer->seen & bit) == 0;
    analyzer->seen |= bit;
    return is_new;
}

// Returns whether the packet counts as received.
bool seq_count(net_rcv_analyzer_t *analyzer, seq_t seq16)
{
    if (analyzer->first_seq == 0) {
        analyzer->first_seq = kSeqCircle + seq16;
        analyzer->highest_seq = analyzer->first_seq;
        analyzer->seen = 1;
        return true;
    }
    const uint64_t seq = seq_extend(analyzer, seq16);
    if (seq > analyzer->highest_seq) {
        highest_move(analyzer, seq);
        return true;
    }
    if (seq < analyzer->first_seq) {
        return false;
    }
    const bool is_new = late_mark(analyzer, seq);
    analyzer->duplicates += is_new ? 0 : 1;
    return is_new;
}

// ---- Jitter ----

// Milliseconds in timestamp units, rounded down, modulo 2^32. The product may wrap in 64 bits: that is no loss
// modulo 2^32.
uint32_t ms_to_units(zeb_ts_t ms, uint32_t clock_rate)
{
    return static_cast<uint32_t>((ms / 1000) * clock_rate + (ms % 1000) * clock_rate / 1000);
}

uint32_t magnitude_of(uint32_t wrapping_difference)
{
    return wrapping_difference < 0x80000000u ? wrapping_difference : 0u - wrapping_difference;
}

// RFC 3550, A.8, with the rounding that it gives. In 64 bits, for a difference of half the circle times sixteen does
// not fit into 32.
void jitter_update(net_rcv_analyzer_t *analyzer, uint32_t timestamp, uint32_t clock_rate, zeb_ts_t now)
{
    const uint32_t transit = ms_to_units(now, clock_rate) - timestamp;
    if (analyzer->clock_rate == clock_rate && clock_rate != 0) {
        const uint64_t difference = magnitude_of(transit - analyzer->transit);
        analyzer->jitter_q4 += difference - ((analyzer->jitter_q4 + 8) >> 4);
    } else {
        analyzer->jitter_q4 = 0;
    }
    analyzer->transit = transit;
    analyzer->clock_rate = clock_rate;
}

} // namespace

void net_rcv_analyzer_on_packet(net_rcv_analyzer_t *analyzer, seq_t seq, uint32_t timestamp, uint32_t clock_rate,
                                zeb_ts_t now)
{
    if (analyzer != nullptr && seq_count(analyzer, seq)) {
        analyzer->received++;
        jitter_update(analyzer, timestamp, clock_rate, now);
    }
}

// ---- Results ----

uint64_t net_rcv_analyzer_received(const net_rcv_analyzer_t *analyzer)
{
    return analyzer->received;
}

uint64_t net_rcv_analyzer_duplicates(const net_rcv_analyzer_t *analyzer)
{
    return analyzer->duplicates;
}

uint64_t net_rcv_analyzer_expected(const net_rcv_analyzer_t *analyzer)
{
    return analyzer->first_seq == 0 ? 0 : analyzer->highest_seq - analyzer->first_seq + 1;
}

uint32_t net_rcv_analyzer_highest_seq(const net_rcv_analyzer_t *analyzer)
{
    return analyzer->first_seq == 0 ? 0 : static_cast<uint32_t>(analyzer->highest_seq - kSeqCircle);
}

int32_t net_rcv_analyzer_lost(const net_rcv_analyzer_t *analyzer)
{
    const auto lost = static_cast<int64_t>(net_rcv_analyzer_expected(analyzer) - analyzer->received);
    if (lost < kLostMin) {
        return static_cast<int32_t>(kLostMin);
    }
    return static_cast<int32_t>(lost < kLostMax ? lost : kLostMax);
}

uint8_t net_rcv_analyzer_take_fraction_lost(net_rcv_analyzer_t *analyzer)
{
    const uint64_t expected_now = net_rcv_analyzer_expected(analyzer);
    const uint64_t expected = expected_now - analyzer->expected_prior;
    const uint64_t received = analyzer->received - analyzer->received_prior;
    analyzer->expected_prior = expected_now;
    analyzer->received_prior = analyzer->received;
    if (received >= expected) {
        return 0;
    }
    // Below 256: what is expected only grows with a packet that did come.
    return static_cast<uint8_t>((expected - received) * 256 / expected);
}

uint32_t net_rcv_analyzer_jitter(const net_rcv_analyzer_t *analyzer)
{
    return static_cast<uint32_t>(analyzer->jitter_q4 >> 4);
}

// ---- The calculators embedded in a stream ----

void seq_lost_calculator_on_packet(seq_lost_calculator_t *calculator, seq_t seq)
{
    if (calculator->n_received == 0) {
        calculator->seq_min = seq;
        calculator->seq_max = seq;
    }
    const auto span = static_cast<uint16_t>(calculator->seq_max - calculator->seq_min);
    const bool is_within = static_cast<uint16_t>(seq - calculator->seq_min) <= span;
    if (!is_within && zeb_uint16_after(seq, calculator->seq_max)) {
        calculator->seq_max = seq;
    } else if (!is_within) {
        calculator->seq_min = seq;
    }
    calculator->n_received = static_cast<uint16_t>(calculator->n_received + (calculator->n_received < UINT16_MAX));
    calculator->n_expected = static_cast<uint16_t>(calculator->seq_max - calculator->seq_min + 1);
}

uint16_t seq_lost_calculator_lost(const seq_lost_calculator_t *calculator)
{
    // `n_expected` is not cleared with `n_received`.
    if (calculator->n_received == 0 || calculator->n_received >= calculator->n_expected) {
        return 0;
    }
    return static_cast<uint16_t>(calculator->n_expected - calculator->n_received);
}

void jitter_calculator_on_packet(jitter_calculator_t *jitter, uint16_t frame_ts, zeb_ts_t now)
{
    if (jitter->n == 0) {
        jitter->j = 0;
    } else {
        // Both clocks modulo 2^16: a pause of any length is no jitter when the sender's clock paused as well.
        const auto elapsed = static_cast<uint16_t>(now - jitter->last_got_at);
        const auto sent = static_cast<uint16_t>(frame_ts - jitter->last_frame_ts);
        const auto difference = static_cast<int16_t>(static_cast<uint16_t>(elapsed - sent));
        const int32_t magnitude = difference < 0 ? -difference : difference;
        jitter->j += magnitude - ((jitter->j + 8) >> 4); // sixteenths of a millisecond, RFC 3550, A.8
    }
    jitter->n++;
    jitter->last_got_at = now;
    jitter->last_frame_ts = frame_ts;
}

uint32_t jitter_calculator_jitter(const jitter_calculator_t *jitter)
{
    return jitter->n == 0 ? 0 : static_cast<uint32_t>(jitter->j >> 4);
}
