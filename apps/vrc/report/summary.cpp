#include "report/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "replay_counts.h"

namespace vrc
{
namespace
{

using line_buffer = fmt::memory_buffer;

template <typename... Arguments>
void line(line_buffer *out, fmt::format_string<Arguments...> format, Arguments &&...arguments)
{
    fmt::format_to(std::back_inserter(*out), format, std::forward<Arguments>(arguments)...);
    out->push_back('\n');
}

double seconds(uint64_t microseconds)
{
    return static_cast<double>(microseconds) / 1e6;
}

// "512 B", "1.2 MB", with the unit of `what` behind the prefix.
std::string scaled(double value, const char *what)
{
    if (value >= 1e9) {
        return fmt::format("{:.2f} G{}", value / 1e9, what);
    }
    if (value >= 1e6) {
        return fmt::format("{:.2f} M{}", value / 1e6, what);
    }
    if (value >= 1e3) {
        return fmt::format("{:.1f} k{}", value / 1e3, what);
    }
    return fmt::format("{:.0f} {}", value, what);
}

std::string scaled(uint64_t value, const char *what)
{
    return scaled(static_cast<double>(value), what);
}

// Counts by reason as key and value.
using named_counts = std::vector<std::pair<const char *, uint64_t>>;

template <typename Reason> named_counts by_name(const uint64_t *counts, Reason end, const char *(*name)(Reason))
{
    named_counts named;
    for (unsigned reason = 0; reason < end; ++reason) {
        named.emplace_back(name(static_cast<Reason>(reason)), counts[reason]);
    }
    return named;
}

uint64_t total(const named_counts &counts)
{
    uint64_t sum = 0;
    for (const auto &[name, count] : counts) {
        sum += count;
    }
    return sum;
}

// "7: 5 late, 2 duplicate"; "0" when there are none.
std::string counts_text(const named_counts &counts)
{
    std::string text = fmt::format("{}", total(counts));
    const char *separator = ": ";
    for (const auto &[name, count] : counts) {
        if (count > 0) {
            text += fmt::format("{}{} {}", separator, count, name);
            separator = ", ";
        }
    }
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

json counts_json(const named_counts &counts)
{
    json object = json::object();
    for (const auto &[name, count] : counts) {
        object[name] = count;
    }
    return object;
}

// Packets of the stream and packets refused before it existed.
named_counts packets_dropped(const replay_result &result)
{
    std::array<uint64_t, PACKET_DROP_REASONS> sum = result.refused;
    for (size_t reason = 0; reason < sum.size(); ++reason) {
        sum[reason] += result.report.packets_dropped[reason];
    }
    return by_name(sum.data(), PACKET_DROP_REASONS, packet_drop_name);
}

named_counts frames_dropped(const replay_result &result)
{
    return by_name(result.report.frames_dropped, FRAME_DROP_REASONS, frame_drop_name);
}

named_counts payload_faults(const replay_result &result)
{
    return by_name(result.report.payload_faults, PAYLOAD_FAULTS, payload_fault_name);
}

named_counts watchdog_counts(const replay_result &result)
{
    return by_name(result.report.watchdog, WATCHDOG_REASONS, watchdog_name);
}

named_counts waits_cut_short(const replay_result &result)
{
    return by_name(result.report.losses_given_up, LOSS_ENDS, loss_end_name);
}

named_counts restarts(const replay_result &result)
{
    return by_name(result.report.restarts, RESTART_REASONS, restart_name);
}

double packet_seconds(const stream_report &report)
{
    return seconds((report.last_packet_at - report.first_packet_at) * 1000);
}

double bit_rate(const stream_report &report)
{
    const double time = packet_seconds(report);
    return time > 0 ? static_cast<double>(report.bytes) * 8 / time : 0;
}

// Frames per second from the first frame to the last.
double frame_rate(const stream_report &report)
{
    const double time = seconds((report.last_frame_at - report.first_frame_at) * 1000);
    return time > 0 ? static_cast<double>(report.frames - 1) / time : 0;
}

json capture_json(const capture_counts &counts, const std::string &capture)
{
    return {{"path", capture},
            {"packets", counts.frames},
            {"udp_datagrams", counts.udp},
            {"not_udp", counts.not_udp},
            {"fragments", counts.fragments},
            {"truncated", counts.truncated},
            {"damaged", counts.damaged},
            {"duration_s", seconds(counts.duration_us)},
            {"clock_steps_back", counts.clock_steps_back},
            {"largest_clock_step_back_ms", static_cast<double>(counts.largest_clock_step_back_us) / 1000},
            {"is_cut_short", !counts.damage.empty()},
            {"damage", counts.damage}};
}

json identity_json(const rtp_stream &stream)
{
    return {{"source", endpoint_name(stream.identity.path.source)},
            {"destination", endpoint_name(stream.identity.path.destination)},
            {"ssrc", stream.identity.ssrc},
            {"payload_type", stream.identity.payload_type},
            {"codec", codec_name(stream.codec)},
            {"likelihood", stream.likelihood}};
}

json stream_json(const rtp_stream &stream)
{
    json object = identity_json(stream);
    object["is_video"] = stream.is_video();
    object["looks_encrypted"] = stream.looks_encrypted;
    object["packets"] = stream.packets;
    object["bytes"] = stream.bytes;
    object["lost"] = stream.lost;
    object["duplicates"] = stream.duplicates;
    object["reordered"] = stream.reordered;
    object["duration_s"] = seconds(stream.last_us - stream.first_us);
    object["bit_rate"] = stream_bit_rate(stream);
    return object;
}

json packets_json(const replay_result &result)
{
    const stream_report &report = result.report;
    const named_counts dropped = packets_dropped(result);
    return {{"received", report.packets},
            {"bytes", report.bytes},
            {"retransmitted", report.packets_retransmitted},
            {"repaired", report.packets_repaired},
            {"padding", report.packets_padding},
            {"reordered", report.packets_reordered},
            {"lost", report.packets_lost},
            {"gaps", report.gaps},
            {"duplicates", report.packets_dropped[PACKET_DROP_DUPLICATE]},
            {"late", report.packets_dropped[PACKET_DROP_LATE]},
            {"dropped", total(dropped)},
            {"dropped_by_reason", counts_json(dropped)}};
}

json frames_json(const replay_result &result)
{
    const stream_report &report = result.report;
    const named_counts dropped = frames_dropped(result);
    const named_counts faults = payload_faults(result);
    return {{"delivered", report.frames},
            {"key", report.key_frames},
            {"bytes", report.frame_bytes},
            {"dropped", total(dropped)},
            {"dropped_by_reason", counts_json(dropped)},
            {"malformed_by_fault", counts_json(faults)}};
}

json freezes_json(const stream_report &report)
{
    return {{"count_200ms", report.freezes_200ms}, {"duration_200ms_ms", report.frozen_200ms},
            {"count_500ms", report.freezes_500ms}, {"duration_500ms_ms", report.frozen_500ms},
            {"count_600ms", report.freezes_600ms}, {"duration_600ms_ms", report.frozen_600ms}};
}

json timing_json(const replay_result &result)
{
    const stream_report &report = result.report;
    return {{"duration_s", packet_seconds(report)},
            {"bit_rate", bit_rate(report)},
            {"frame_rate", frame_rate(report)},
            {"jitter_timestamp_units", report.jitter},
            {"silence_skipped_ms", result.silence_skipped_ms}};
}

std::string path_name(const rtp_stream &stream)
{
    const flow &path = stream.identity.path;
    return fmt::format("{} > {}", endpoint_name(path.source), endpoint_name(path.destination));
}

std::string codec_cell(const rtp_stream &stream)
{
    return stream.looks_encrypted ? "encrypted?" : codec_name(stream.codec);
}

void decryption_line(line_buffer *out, const srtp_counts &counts)
{
    const named_counts dropped = {
        {"not_authentic", counts.not_authentic}, {"replayed", counts.replayed}, {"malformed", counts.malformed}};
    if (counts.decrypted + total(dropped) > 0) {
        line(out, "srtp        {} packets decrypted, dropped {}", counts.decrypted, counts_text(dropped));
    }
}

void packet_lines(line_buffer *out, const replay_result &result)
{
    const stream_report &report = result.report;
    line(out, "packets     {} received ({}), {} lost in {} gaps, {} reordered", report.packets,
         scaled(report.bytes, "B"), report.packets_lost, report.gaps, report.packets_reordered);
    line(out, "            {} duplicates, {} late, {} retransmitted, {} lost ones repaired, {} padding",
         report.packets_dropped[PACKET_DROP_DUPLICATE], report.packets_dropped[PACKET_DROP_LATE],
         report.packets_retransmitted, report.packets_repaired, report.packets_padding);
    line(out, "  dropped   {}", counts_text(packets_dropped(result)));
}

void frame_lines(line_buffer *out, const replay_result &result)
{
    const stream_report &report = result.report;
    line(out, "frames      {} delivered ({}), {} of them key frames", report.frames, scaled(report.frame_bytes, "B"),
         report.key_frames);
    line(out, "  dropped   {}", counts_text(frames_dropped(result)));
    const named_counts faults = payload_faults(result);
    if (total(faults) > 0) {
        line(out, "  malformed {}", counts_text(faults));
    }
}

void timing_lines(line_buffer *out, const stream_report &report)
{
    line(out, "time        {:.3f} s, {}, {:.2f} frames/s, jitter {} timestamp units", packet_seconds(report),
         scaled(bit_rate(report), "bit/s"), frame_rate(report), report.jitter);
    line(out, "freezes     200 ms: {} ({} ms), 500 ms: {} ({} ms), 600 ms: {} ({} ms)", report.freezes_200ms,
         report.frozen_200ms, report.freezes_500ms, report.frozen_500ms, report.freezes_600ms, report.frozen_600ms);
}

} // namespace

std::string capture_notes(const capture_counts &counts)
{
    line_buffer out;
    if (!counts.damage.empty()) {
        line(&out, "note        the capture is damaged after packet {}: {}", counts.frames, counts.damage);
    }
    if (counts.truncated > 0) {
        line(&out, "note        {} packets skipped: cut by the capture's snap length", counts.truncated);
    }
    if (counts.fragments > 0) {
        line(&out, "note        {} packets skipped: fragments of IP packets, which are not put together",
             counts.fragments);
    }
    if (counts.damaged > 0) {
        line(&out, "note        {} packets skipped: their headers contradict themselves", counts.damaged);
    }
    if (counts.clock_steps_back > 0) {
        line(&out, "note        the capture's clock went back {} times, by up to {:.3f} ms; time stood still instead",
             counts.clock_steps_back, static_cast<double>(counts.largest_clock_step_back_us) / 1000);
    }
    return fmt::to_string(out);
}

std::string streams_text(const search_result &found)
{
    size_t width = 0; // of the first column
    for (const rtp_stream &stream : found.streams) {
        width = stream.is_rtp() ? std::max(width, path_name(stream).size()) : width;
    }
    line_buffer out;
    line(&out, "{:<{}} {:>10} {:>3} {:<10} {:>6} {:>8} {:>6} {:>9} {:>13}", "STREAM", width, "SSRC", "PT", "CODEC",
         "LIKELY", "PACKETS", "LOST", "DURATION", "BIT RATE");
    for (const rtp_stream &stream : found.streams) {
        if (stream.is_rtp()) {
            line(&out, "{:<{}} 0x{:08x} {:>3} {:<10} {:>6.2f} {:>8} {:>6} {:>7.2f} s {:>13}", path_name(stream), width,
                 stream.identity.ssrc, stream.identity.payload_type, codec_cell(stream), stream.likelihood,
                 stream.packets, stream.lost, seconds(stream.last_us - stream.first_us),
                 scaled(stream_bit_rate(stream), "bit/s"));
        }
    }
    return fmt::to_string(out) + capture_notes(found.counts);
}

json decryption_json(const srtp_counts &counts)
{
    return {{"decrypted", counts.decrypted},
            {"not_authentic", counts.not_authentic},
            {"replayed", counts.replayed},
            {"malformed", counts.malformed}};
}

std::string door_text(const srtp_counts &decryption, const std::array<uint64_t, PACKET_DROP_REASONS> &refused)
{
    line_buffer out;
    decryption_line(&out, decryption);
    const named_counts counts = by_name(refused.data(), PACKET_DROP_REASONS, packet_drop_name);
    if (total(counts) > 0) {
        line(&out, "refused     {}", counts_text(counts));
    }
    return fmt::to_string(out);
}

json door_json(const srtp_counts &decryption, const std::array<uint64_t, PACKET_DROP_REASONS> &refused)
{
    return {{"srtp", decryption_json(decryption)},
            {"refused", counts_json(by_name(refused.data(), PACKET_DROP_REASONS, packet_drop_name))}};
}

json streams_json(const search_result &found, const std::string &capture)
{
    json streams = json::array();
    for (const rtp_stream &stream : found.streams) {
        if (stream.is_rtp()) {
            streams.push_back(stream_json(stream));
        }
    }
    return {{"capture", capture_json(found.counts, capture)}, {"streams", streams}};
}

std::string stream_text(const replay_result &result)
{
    line_buffer out;
    const rtp_stream &stream = result.stream;
    const std::string likelihood = stream.likelihood > 0 ? fmt::format(" (likelihood {:.2f})", stream.likelihood) : "";
    line(&out, "stream      {}, SSRC 0x{:08x}, payload type {}, {}{}", path_name(stream), stream.identity.ssrc,
         stream.identity.payload_type, codec_name(stream.codec), likelihood);
    decryption_line(&out, result.decryption);
    packet_lines(&out, result);
    frame_lines(&out, result);
    timing_lines(&out, result.report);
    line(&out, "requests    key frame {}, retransmission {} (times the need was seen)",
         result.report.key_frame_requests, result.report.retransmission_requests);
    line(&out, "waits cut   {}", counts_text(waits_cut_short(result)));
    line(&out, "watchdog    {}", counts_text(watchdog_counts(result)));
    line(&out, "sender      {} reports and {} BYE received; restarts {}", result.report.sender_reports,
         result.report.byes, counts_text(restarts(result)));
    return fmt::to_string(out);
}

std::string replay_text(const replay_result &result, const std::string &capture)
{
    line_buffer out;
    line(&out, "capture     {}: {} packets, {} UDP datagrams, {:.3f} s", capture, result.capture.frames,
         result.capture.udp, seconds(result.capture.duration_us));
    out.append(stream_text(result));
    line(&out, "would send  {} NACKs for {} packets, {} PLIs", result.report.nacks_sent,
         result.report.packets_asked_for, result.report.plis_sent);
    if (result.silence_skipped_ms > 0) {
        line(&out, "note        {} ms of silence skipped", result.silence_skipped_ms);
    }
    return fmt::to_string(out) + capture_notes(result.capture);
}

std::string replay_counts_text(const replay_result &result)
{
    std::string text;
    replay_counts_write(
        {&result.report, result.refused.data(), result.silence_skipped_ms},
        [](void *context, const char *line) { *static_cast<std::string *>(context) += line; }, &text);
    return text;
}

json stream_summary_json(const replay_result &result)
{
    return {{"srtp", decryption_json(result.decryption)},
            {"stream", identity_json(result.stream)},
            {"packets", packets_json(result)},
            {"frames", frames_json(result)},
            {"requests",
             {{"key_frame", result.report.key_frame_requests},
              {"retransmission", result.report.retransmission_requests},
              {"nacks", result.report.nacks_sent},
              {"packets_asked_for", result.report.packets_asked_for},
              {"plis", result.report.plis_sent}}},
            {"waits_cut_short", counts_json(waits_cut_short(result))},
            {"watchdog", counts_json(watchdog_counts(result))},
            {"sender",
             {{"reports", result.report.sender_reports},
              {"byes", result.report.byes},
              {"restarts", counts_json(restarts(result))}}},
            {"freezes", freezes_json(result.report)},
            {"timing", timing_json(result)}};
}

json replay_json(const replay_result &result, const std::string &capture)
{
    json object = {{"capture", capture_json(result.capture, capture)}};
    object.update(stream_summary_json(result));
    return object;
}

std::string json_text(const json &object)
{
    // Names of files need not be UTF-8.
    return object.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace vrc
