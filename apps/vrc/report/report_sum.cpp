#include "report/report_sum.h"

#include <algorithm>
#include <cstddef>

namespace vrc
{
namespace
{

constexpr uint64_t stream_report::*kCounts[] = {
    &stream_report::packets,
    &stream_report::bytes,
    &stream_report::packets_unique,
    &stream_report::packets_retransmitted,
    &stream_report::packets_reordered,
    &stream_report::packets_repaired,
    &stream_report::packets_lost,
    &stream_report::gaps,
    &stream_report::packets_padding,
    &stream_report::packets_padding_lost,
    &stream_report::frames,
    &stream_report::key_frames,
    &stream_report::frame_bytes,
    &stream_report::frame_delay,
    &stream_report::key_frame_requests,
    &stream_report::retransmission_requests,
    &stream_report::nacks_sent,
    &stream_report::packets_asked_for,
    &stream_report::plis_sent,
    &stream_report::firs_sent,
    &stream_report::reports_sent,
    &stream_report::rembs_sent,
    &stream_report::sender_reports,
    &stream_report::byes,
};

struct freeze_class {
    zeb_ts_t least; // milliseconds
    uint32_t stream_report::*count;
    zeb_ts_t stream_report::*time;
};

constexpr freeze_class kFreezes[] = {
    {200, &stream_report::freezes_200ms, &stream_report::frozen_200ms},
    {500, &stream_report::freezes_500ms, &stream_report::frozen_500ms},
    {600, &stream_report::freezes_600ms, &stream_report::frozen_600ms},
};

template <size_t Size> void add(uint64_t (*total)[Size], const uint64_t (&next)[Size])
{
    for (size_t i = 0; i < Size; ++i) {
        (*total)[i] += next[i];
    }
}

void freezes_add(stream_report *total, const stream_report &next)
{
    const bool has_pause = total->last_frame_at != 0 && next.first_frame_at > total->last_frame_at;
    const zeb_ts_t pause = has_pause ? next.first_frame_at - total->last_frame_at : 0;
    for (const freeze_class &freeze : kFreezes) {
        const bool is_frozen = pause >= freeze.least;
        total->*freeze.count += next.*freeze.count + (is_frozen ? 1 : 0);
        total->*freeze.time += next.*freeze.time + (is_frozen ? pause : 0);
    }
}

// 0 stands for never.
zeb_ts_t earlier(zeb_ts_t left, zeb_ts_t right)
{
    return left == 0 || right == 0 ? std::max(left, right) : std::min(left, right);
}

void times_add(stream_report *total, const stream_report &next)
{
    total->first_packet_at = earlier(total->first_packet_at, next.first_packet_at);
    total->last_packet_at = std::max(total->last_packet_at, next.last_packet_at);
    total->first_frame_at = earlier(total->first_frame_at, next.first_frame_at);
    total->last_frame_at = std::max(total->last_frame_at, next.last_frame_at);
}

} // namespace

void report_add(stream_report *total, const stream_report &next)
{
    for (uint64_t stream_report::*count : kCounts) {
        total->*count += next.*count;
    }
    add(&total->packets_dropped, next.packets_dropped);
    add(&total->frames_dropped, next.frames_dropped);
    add(&total->payload_faults, next.payload_faults);
    add(&total->watchdog, next.watchdog);
    add(&total->losses_given_up, next.losses_given_up);
    add(&total->restarts, next.restarts);
    freezes_add(total, next); // before the times, which it looks at
    times_add(total, next);
    total->has_left = next.has_left;
    total->jitter = next.jitter;
    total->last_second = next.last_second;
}

} // namespace vrc
