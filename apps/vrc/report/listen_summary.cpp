#include "report/listen_summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "report/report_sum.h"

namespace vrc
{
namespace
{

double seconds(uint64_t milliseconds)
{
    return static_cast<double>(milliseconds) / 1000;
}

stream_report total(const listen_result &result)
{
    stream_report sum{};
    for (const listened_stream &stream : result.streams) {
        report_add(&sum, stream.received.report);
    }
    return sum;
}

// The one stream, with what belongs to none: nobody has to look for that elsewhere.
replay_result only_stream(const listen_result &result)
{
    replay_result stream = result.streams.empty() ? replay_result() : result.streams.front().received;
    stream.refused = result.refused;
    stream.decryption = result.decryption;
    return stream;
}

json feedback_json(const stream_report &report)
{
    return {{"nacks", report.nacks_sent},
            {"packets_asked_for", report.packets_asked_for},
            {"plis", report.plis_sent},
            {"firs", report.firs_sent},
            {"reports", report.reports_sent},
            {"rembs", report.rembs_sent},
            {"sender_reports_received", report.sender_reports}};
}

std::string feedback_text(const stream_report &report)
{
    return fmt::format("feedback    {} NACK for {} packets, {} PLI, {} FIR, {} reports, {} REMB\n", report.nacks_sent,
                       report.packets_asked_for, report.plis_sent, report.firs_sent, report.reports_sent,
                       report.rembs_sent);
}

std::string streams_text(const listen_result &result)
{
    if (!result.is_all && !result.streams.empty()) {
        return stream_text(only_stream(result)) + feedback_text(result.streams.front().received.report);
    }
    std::string text = door_text(result.decryption, result.refused);
    for (const listened_stream &stream : result.streams) {
        text += stream_text(stream.received) + feedback_text(stream.received.report);
        text += stream.file.empty() ? "" : fmt::format("output      {}\n", stream.file);
    }
    return text;
}

std::string limits_text(const listen_limits &limits)
{
    std::string text;
    if (limits.datagrams.foreign > 0) {
        text += fmt::format("note        {} datagrams were ignored: they came from elsewhere than --from says\n",
                            limits.datagrams.foreign);
    }
    if (limits.datagrams.too_large > 0) {
        text += fmt::format("note        {} datagrams were ignored: they were larger than --max-packet says\n",
                            limits.datagrams.too_large);
    }
    if (limits.frames_not_held > 0) {
        text += fmt::format("note        {} frames of another sender were dropped before it was clear that it follows: "
                            "too many bytes to hold, see --memory\n",
                            limits.frames_not_held);
    }
    if (limits.frames_without_file > 0) {
        text += fmt::format("note        {} frames were not written: there were more senders than files\n",
                            limits.frames_without_file);
    }
    if (limits.times_without_memory > 0) {
        text += fmt::format("note        {} times there was no memory, and what was at hand was dropped\n",
                            limits.times_without_memory);
    }
    return text;
}

json limits_json(const listen_limits &limits)
{
    return {{"datagrams_foreign", limits.datagrams.foreign},
            {"datagrams_too_large", limits.datagrams.too_large},
            {"frames_not_held", limits.frames_not_held},
            {"frames_without_file", limits.frames_without_file},
            {"times_without_memory", limits.times_without_memory}};
}

std::string notes_text(const listen_result &result)
{
    std::string text;
    if (result.written.size() > 1) {
        text += fmt::format("note        {} senders followed each other, and were written as one stream:",
                            result.written.size());
        for (const uint32_t ssrc : result.written) {
            text += fmt::format(" 0x{:08x}", ssrc);
        }
        text += "\n";
    }
    if (result.other_senders > 0) {
        text += fmt::format("note        {} other senders were received and not written: --all writes all\n",
                            result.other_senders);
    }
    if (result.silent.senders > 0) {
        text += fmt::format(
            "note        more than {} senders: {} silent ones are counted together, {} packets and {} frames\n",
            kSendersMax, result.silent.senders, result.silent.packets, result.silent.frames);
    }
    return text;
}

json silent_json(const silent_senders &silent)
{
    return {{"senders", silent.senders},
            {"packets", silent.packets},
            {"bytes", silent.bytes},
            {"lost", silent.packets_lost},
            {"frames", silent.frames}};
}

std::vector<listened_stream>::iterator find_sender(std::vector<listened_stream> *streams, uint32_t ssrc)
{
    return std::find_if(streams->begin(), streams->end(),
                        [ssrc](const listened_stream &stream) { return stream.received.stream.identity.ssrc == ssrc; });
}

json all_json(const listen_result &result)
{
    json streams = json::array();
    for (const listened_stream &one : result.streams) {
        json object = stream_summary_json(one.received);
        object["stream"].erase("likelihood");
        object.erase("srtp"); // is told for all together
        object["feedback"] = feedback_json(one.received.report);
        object["file"] = one.file;
        streams.push_back(std::move(object));
    }
    json object = door_json(result.decryption, result.refused);
    object["streams"] = std::move(streams);
    return object;
}

} // namespace

void streams_join(listen_result *result)
{
    std::vector<listened_stream> joined;
    for (const uint32_t ssrc : result->written) {
        const auto found = find_sender(&result->streams, ssrc);
        if (found == result->streams.end()) {
            continue; // came back, and is joined with all that it sent
        }
        if (joined.empty()) {
            joined.push_back(std::move(*found));
        } else {
            report_add(&joined.front().received.report, found->received.report);
            joined.front().received.stream = found->received.stream;
            joined.front().header_bytes += found->header_bytes;
        }
        result->streams.erase(found);
    }
    if (joined.empty() && !result->streams.empty()) {
        joined.push_back(std::move(result->streams.front()));
        result->streams.erase(result->streams.begin());
    }
    result->other_senders = result->streams.size() + static_cast<size_t>(result->silent.senders);
    result->streams = std::move(joined);
}

std::string listen_text(const listen_result &result)
{
    const media_counts &counts = result.counts;
    return fmt::format("listened    {}: {} RTP and {} RTCP datagrams ({} malformed), {:.3f} s\n"
                       "sent        {} RTCP datagrams, {} could not be\n",
                       result.where, counts.rtp_datagrams, counts.rtcp_datagrams, result.rtcp_malformed,
                       seconds(result.duration_ms), counts.rtcp_sent, counts.rtcp_unsent) +
           streams_text(result) + notes_text(result) + limits_text(result.limits);
}

json listen_json(const listen_result &result)
{
    json object = {{"listen",
                    {{"address", result.where},
                     {"rtp_datagrams", result.counts.rtp_datagrams},
                     {"rtcp_datagrams", result.counts.rtcp_datagrams},
                     {"rtcp_malformed", result.rtcp_malformed},
                     {"duration_s", seconds(result.duration_ms)}}}};
    object["limits"] = limits_json(result.limits);
    object["silent_senders"] = silent_json(result.silent);
    object["feedback"] = {{"rtcp_sent", result.counts.rtcp_sent}, {"rtcp_unsent", result.counts.rtcp_unsent}};
    if (result.is_all) {
        object.update(all_json(result));
        return object;
    }
    object["listen"]["senders_written"] = result.written.size();
    object["listen"]["other_senders"] = result.other_senders;
    const replay_result stream = only_stream(result);
    object.update(stream_summary_json(stream));
    object["stream"].erase("likelihood");
    object["feedback"].update(feedback_json(stream.report));
    return object;
}

std::string listen_status(const listen_result &result)
{
    const std::string time = fmt::format("{:.0f} s: ", seconds(result.duration_ms));
    const srtp_counts &srtp = result.decryption;
    const std::string foreign =
        srtp.not_authentic > 0 ? fmt::format("; {} packets not authentic", srtp.not_authentic) : "";
    if (result.streams.empty()) {
        return time +
               fmt::format("no video yet, {} RTP and {} RTCP datagrams", result.counts.rtp_datagrams,
                           result.counts.rtcp_datagrams) +
               foreign;
    }
    const stream_report report = total(result);
    const std::string count = result.is_all ? fmt::format("{} streams, ", result.streams.size()) : "";
    return time + count +
           fmt::format("{} packets, {} lost; {} frames, {} of them key frames; {} NACK, {} PLI", report.packets,
                       report.packets_lost, report.frames, report.key_frames, report.nacks_sent,
                       report.plis_sent + report.firs_sent) +
           foreign;
}

} // namespace vrc
