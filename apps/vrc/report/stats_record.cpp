#include "report/stats_record.h"

#include <fmt/format.h>

#include <numeric>

namespace vrc
{
namespace
{

constexpr double kClockRate = 90'000; // Hz: RFC 6184 and RFC 7798

template <typename Reason> json by_name(const uint64_t *counts, Reason end, const char *(*name)(Reason))
{
    json object = json::object();
    for (unsigned reason = 0; reason < end; ++reason) {
        object[name(static_cast<Reason>(reason))] = counts[reason];
    }
    return object;
}

// Whole frames, handed out or not.
uint64_t frames_received(const stream_report &report)
{
    return report.frames + report.frames_dropped[FRAME_DROP_AFTER_GAP] +
           report.frames_dropped[FRAME_DROP_OUT_OF_ORDER] + report.frames_dropped[FRAME_DROP_NOT_ASSEMBLED];
}

} // namespace

json stats_record(const stream_report &report, const stats_moment &moment)
{
    const uint64_t *dropped = report.frames_dropped;
    return {{"timestamp", moment.timestamp_ms},
            {"type", "inbound-rtp"},
            {"id", fmt::format("inbound-rtp-{}", moment.ssrc)},
            {"kind", "video"},
            {"ssrc", moment.ssrc},
            {"packetsReceived", report.packets},
            {"packetsLost", report.packets_lost},
            {"packetsDiscarded", report.packets_dropped[PACKET_DROP_LATE]},
            {"retransmittedPacketsReceived", report.packets_retransmitted},
            {"packetsRepaired", report.packets_repaired},
            {"bytesReceived", report.bytes - moment.header_bytes},
            {"headerBytesReceived", moment.header_bytes},
            {"jitter", report.jitter / kClockRate},
            {"framesReceived", frames_received(report)},
            {"framesAssembled", report.frames},
            {"keyFramesAssembled", report.key_frames},
            {"framesPerSecond", report.last_second.frames},
            {"jitterBufferDelay", static_cast<double>(report.frame_delay) / 1000},
            {"jitterBufferEmittedCount", report.frames},
            {"framesDropped", std::accumulate(dropped, dropped + FRAME_DROP_REASONS, uint64_t{0})},
            {"nackCount", report.nacks_sent},
            {"pliCount", report.plis_sent},
            {"firCount", report.firs_sent},
            {"freezeCount", report.freezes_200ms},
            {"totalFreezesDuration", static_cast<double>(report.frozen_200ms) / 1000},
            {"freezesByLength",
             {{"200", report.freezes_200ms}, {"500", report.freezes_500ms}, {"600", report.freezes_600ms}}},
            {"lossPercent",
             {{"raw", report.last_second.percent_loss_raw},
              {"afterRetransmission", report.last_second.percent_lost_after_arq}}},
            {"restartReasons", by_name(report.restarts, RESTART_REASONS, restart_name)},
            {"packetDropReasons", by_name(report.packets_dropped, PACKET_DROP_REASONS, packet_drop_name)},
            {"frameDropReasons", by_name(report.frames_dropped, FRAME_DROP_REASONS, frame_drop_name)},
            {"payloadFaults", by_name(report.payload_faults, PAYLOAD_FAULTS, payload_fault_name)},
            {"srtp", decryption_json(moment.decryption)}};
}

} // namespace vrc
