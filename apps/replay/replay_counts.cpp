#include "replay_counts.h"

#include <cstdio>

namespace vrc
{
namespace
{

struct line_writer {
    line_taker take;
    void *context;
};

void line_write(const line_writer &out, const char *group, const char *name, uint64_t value)
{
    char line[96]; // the longest names are far shorter, and a value has at most 20 digits
    std::snprintf(line, sizeof(line), "%s%s %llu\n", group, name, static_cast<unsigned long long>(value));
    out.take(out.context, line);
}

struct named_count {
    const char *name;
    uint64_t stream_report::*value;
};

constexpr named_count kCounts[] = {
    {"packets", &stream_report::packets},
    {"bytes", &stream_report::bytes},
    {"packets_unique", &stream_report::packets_unique},
    {"packets_retransmitted", &stream_report::packets_retransmitted},
    {"packets_reordered", &stream_report::packets_reordered},
    {"packets_repaired", &stream_report::packets_repaired},
    {"packets_lost", &stream_report::packets_lost},
    {"gaps", &stream_report::gaps},
    {"packets_padding", &stream_report::packets_padding},
    {"packets_padding_lost", &stream_report::packets_padding_lost},
    {"frames", &stream_report::frames},
    {"key_frames", &stream_report::key_frames},
    {"frame_bytes", &stream_report::frame_bytes},
    {"frame_delay", &stream_report::frame_delay},
    {"key_frame_requests", &stream_report::key_frame_requests},
    {"retransmission_requests", &stream_report::retransmission_requests},
    {"nacks_sent", &stream_report::nacks_sent},
    {"packets_asked_for", &stream_report::packets_asked_for},
    {"plis_sent", &stream_report::plis_sent},
    {"firs_sent", &stream_report::firs_sent},
    {"reports_sent", &stream_report::reports_sent},
    {"rembs_sent", &stream_report::rembs_sent},
    {"sender_reports", &stream_report::sender_reports},
    {"byes", &stream_report::byes},
    {"frozen_200ms", &stream_report::frozen_200ms},
    {"frozen_500ms", &stream_report::frozen_500ms},
    {"frozen_600ms", &stream_report::frozen_600ms},
    {"first_packet_at", &stream_report::first_packet_at},
    {"last_packet_at", &stream_report::last_packet_at},
    {"first_frame_at", &stream_report::first_frame_at},
    {"last_frame_at", &stream_report::last_frame_at},
};

template <typename Reason>
void reasons_write(const line_writer &out, const char *group, const uint64_t *counts, Reason end,
                   const char *(*name)(Reason))
{
    for (unsigned reason = 0; reason < end; ++reason) {
        line_write(out, group, name(static_cast<Reason>(reason)), counts[reason]);
    }
}

} // namespace

void replay_counts_write(const replay_counts &counts, line_taker take, void *context)
{
    const line_writer out = {take, context};
    const stream_report &report = *counts.report;
    for (const named_count &count : kCounts) {
        line_write(out, "", count.name, report.*count.value);
    }
    reasons_write(out, "packets_refused.", counts.packets_refused, PACKET_DROP_REASONS, packet_drop_name);
    reasons_write(out, "packets_dropped.", report.packets_dropped, PACKET_DROP_REASONS, packet_drop_name);
    reasons_write(out, "frames_dropped.", report.frames_dropped, FRAME_DROP_REASONS, frame_drop_name);
    reasons_write(out, "payload_faults.", report.payload_faults, PAYLOAD_FAULTS, payload_fault_name);
    reasons_write(out, "watchdog.", report.watchdog, WATCHDOG_REASONS, watchdog_name);
    reasons_write(out, "losses_given_up.", report.losses_given_up, LOSS_ENDS, loss_end_name);
    reasons_write(out, "restarts.", report.restarts, RESTART_REASONS, restart_name);
    line_write(out, "", "freezes_200ms", report.freezes_200ms);
    line_write(out, "", "freezes_500ms", report.freezes_500ms);
    line_write(out, "", "freezes_600ms", report.freezes_600ms);
    line_write(out, "", "jitter", report.jitter);
    line_write(out, "", "silence_skipped_ms", counts.silence_skipped_ms);
}

} // namespace vrc
