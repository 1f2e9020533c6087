#include "listen_summary.h"

#include <fmt/format.h>

namespace vrc
{
namespace
{

double seconds(uint64_t milliseconds)
{
    return static_cast<double>(milliseconds) / 1000;
}

json feedback_json(const listen_result &result)
{
    const stream_report &report = result.received.report;
    return {{"rtcp_sent", result.rtcp_sent},
            {"rtcp_unsent", result.rtcp_unsent},
            {"nacks", report.nacks_sent},
            {"packets_asked_for", report.packets_asked_for},
            {"plis", report.plis_sent},
            {"firs", report.firs_sent},
            {"reports", report.reports_sent},
            {"rembs", report.rembs_sent},
            {"sender_reports_received", report.sender_reports}};
}

} // namespace

std::string listen_text(const listen_result &result)
{
    const stream_report &report = result.received.report;
    std::string text =
        fmt::format("listened    {}: {} RTP and {} RTCP datagrams ({} malformed), {:.3f} s\n", result.where,
                    result.rtp_datagrams, result.rtcp_datagrams, result.rtcp_malformed, seconds(result.duration_ms));
    text += stream_text(result.received);
    text += fmt::format("feedback    {} RTCP datagrams sent, {} not; {} NACK for {} packets, {} PLI, {} FIR, "
                        "{} reports, {} REMB\n",
                        result.rtcp_sent, result.rtcp_unsent, report.nacks_sent, report.packets_asked_for,
                        report.plis_sent, report.firs_sent, report.reports_sent, report.rembs_sent);
    if (result.other_senders > 0) {
        text += fmt::format("note        {} other senders were received and not written\n", result.other_senders);
    }
    return text;
}

json listen_json(const listen_result &result)
{
    json object = {{"listen",
                    {{"address", result.where},
                     {"rtp_datagrams", result.rtp_datagrams},
                     {"rtcp_datagrams", result.rtcp_datagrams},
                     {"rtcp_malformed", result.rtcp_malformed},
                     {"other_senders", result.other_senders},
                     {"duration_s", seconds(result.duration_ms)}}}};
    object.update(stream_summary_json(result.received));
    object["stream"].erase("likelihood");
    object.erase("srtp"); // is not listened to
    object["feedback"] = feedback_json(result);
    return object;
}

std::string listen_status(const listen_result &result)
{
    const stream_report &report = result.received.report;
    return fmt::format("{:.0f} s: {} packets, {} lost; {} frames, {} of them key frames; {} NACK, {} PLI",
                       seconds(result.duration_ms), report.packets, report.packets_lost, report.frames,
                       report.key_frames, report.nacks_sent, report.plis_sent + report.firs_sent);
}

} // namespace vrc
