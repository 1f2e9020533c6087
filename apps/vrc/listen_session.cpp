#include "listen_session.h"

#include <fmt/format.h>

#include "session_description.h"
#include "video_stream.h"

namespace vrc
{
namespace
{

// Whether the options leave a format of a description in, and it can be received.
bool is_wanted(const sdp_format &format, const listen_options &options)
{
    const uint8_t codec = session_codec(format);
    return codec != VIDEO_TYPE_UNKNOWN && (!options.codec || *options.codec == codec) &&
           (!options.payload_type || *options.payload_type == format.payload_type);
}

bool has_wanted_format(const sdp_video &video, const listen_options &options)
{
    for (size_t i = 0; i < video.n_formats; ++i) {
        if (is_wanted(video.formats[i], options)) {
            return true;
        }
    }
    return false;
}

size_t media_choose(const sdp_session &session, const listen_options &options)
{
    for (size_t i = 0; i < session.n_videos; ++i) {
        const sdp_video &video = session.videos[i];
        if ((video.port != 0 || options.port) && has_wanted_format(video, options)) {
            return i;
        }
    }
    throw failure(exit_code::nothing_usable,
                  fmt::format("'{}' describes no video that can be received: H.264 or H.265, with a port, and as "
                              "--codec and --pt say",
                              options.sdp));
}

void encryption_check(const sdp_video &video, const std::string &path)
{
    if (video.profile != SDP_PROFILE_AVP && video.profile != SDP_PROFILE_AVPF) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("'{}', line {}: the video is encrypted (SRTP); only plain RTP can be listened to",
                                  path, video.line));
    }
}

// What every wanted format allows, as the streams share one channel.
channel_feedback feedback_of(const sdp_video &video, const listen_options &options)
{
    unsigned allowed = ~0U;
    for (size_t i = 0; i < video.n_formats; ++i) {
        if (is_wanted(video.formats[i], options)) {
            allowed &= video.formats[i].feedback;
        }
    }
    channel_feedback feedback{};
    feedback.reports = true;
    feedback.nack = (allowed & SDP_FEEDBACK_NACK) != 0;
    feedback.pli = (allowed & SDP_FEEDBACK_NACK_PLI) != 0;
    feedback.fir = !feedback.pli && (allowed & SDP_FEEDBACK_CCM_FIR) != 0;
    feedback.remb = (allowed & SDP_FEEDBACK_GOOG_REMB) != 0;
    feedback.reduced_size = video.rtcp_rsize;
    return feedback;
}

channel_feedback default_feedback()
{
    channel_feedback feedback{};
    feedback.reports = true;
    feedback.nack = true;
    feedback.pli = true;
    return feedback;
}

uint16_t rtcp_port_choose(const listen_session &session, const listen_options &options)
{
    if (options.is_rtcp_muxed) {
        return session.rtp_port;
    }
    if (session.description == nullptr || options.port) {
        const bool is_muxed =
            session.description != nullptr && session.description->videos[session.config.media_index].rtcp_mux;
        return is_muxed ? session.rtp_port : static_cast<uint16_t>(session.rtp_port + 1); // 0 behind the last port
    }
    return sdp_rtcp_port(&session.description->videos[session.config.media_index]);
}

void description_take(listen_session *session, const listen_options &options)
{
    session->description = session_read(options.sdp);
    const size_t index = media_choose(*session->description, options);
    const sdp_video &video = session->description->videos[index];
    encryption_check(video, options.sdp);
    session->config.session = session->description.get();
    session->config.media_index = index;
    session->config.feedback = feedback_of(video, options);
    session->rtp_port = video.port;
}

} // namespace

listen_session listen_session_make(const listen_options &options)
{
    listen_session session;
    session.rtp_port = kListenPort;
    session.config.feedback = default_feedback();
    if (!options.sdp.empty()) {
        description_take(&session, options);
    } else if (!options.codec) {
        throw failure(exit_code::wrong_usage, "say what comes: --codec h264, --codec h265, or --sdp FILE");
    }
    session.config.codec = options.codec.value_or(VIDEO_TYPE_UNKNOWN);
    session.config.payload_type = options.payload_type;
    session.config.feedback = options.feedback.value_or(session.config.feedback);
    session.config.feedback.give_up_early = !options.waits;
    session.rtp_port = options.port.value_or(session.rtp_port);
    session.rtcp_port = rtcp_port_choose(session, options);
    return session;
}

} // namespace vrc
