#include "live/listen_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "commands/session_description.h"
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

// The videos that are to be received: the first one, or all.
std::vector<size_t> media_choose(const sdp_session &session, const listen_options &options)
{
    std::vector<size_t> chosen;
    for (size_t i = 0; i < session.n_videos; ++i) {
        const sdp_video &video = session.videos[i];
        const bool has_room = options.is_all || chosen.empty();
        if (has_room && (video.port != 0 || options.port) && has_wanted_format(video, options)) {
            chosen.push_back(i);
        }
    }
    if (chosen.empty()) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("'{}' describes no video that can be received: H.264 or H.265, with a port, and as "
                                  "--codec and --pt say",
                                  options.sdp));
    }
    if (chosen.size() > 1 && options.port) {
        throw failure(exit_code::wrong_usage,
                      fmt::format("'{}' describes {} videos: --port can name the port of one alone; choose with "
                                  "--codec or --pt, or leave out --all",
                                  options.sdp, chosen.size()));
    }
    return chosen;
}

// A key may stand beside any profile: FFmpeg writes RTP/AVP and a=crypto.
std::vector<sdp_crypto> keys_of(const sdp_video &video, const listen_options &options)
{
    std::vector<sdp_crypto> keys(video.cryptos, video.cryptos + video.n_cryptos);
    keys.insert(keys.end(), options.keys.begin(), options.keys.end());
    const bool is_encrypted = video.profile != SDP_PROFILE_AVP && video.profile != SDP_PROFILE_AVPF;
    if (is_encrypted && keys.empty()) {
        const bool is_dtls = video.profile == SDP_PROFILE_DTLS_SAVP || video.profile == SDP_PROFILE_DTLS_SAVPF;
        throw failure(
            exit_code::nothing_usable,
            fmt::format("'{}', line {}: the video is encrypted (SRTP), and {}; a key can be given with --srtp",
                        options.sdp, video.line,
                        is_dtls ? "its key is agreed on by DTLS, which is not spoken here"
                                : "there is no a=crypto in a suite that is known"));
    }
    return keys;
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

uint16_t rtcp_port_choose(const listen_section &section, const listen_options &options)
{
    if (options.is_rtcp_muxed) {
        return section.rtp_port;
    }
    const sdp_session *description = section.config.session;
    const sdp_video *video = description != nullptr ? &description->videos[section.config.media_index] : nullptr;
    if (video != nullptr && !options.port) {
        return sdp_rtcp_port(video);
    }
    const bool is_muxed = video != nullptr && video->rtcp_mux;
    return is_muxed ? section.rtp_port : static_cast<uint16_t>(section.rtp_port + 1); // 0 behind the last port
}

// What does not depend on a description.
listen_section section_make(const listen_options &options)
{
    listen_section section;
    section.config.codec = options.codec.value_or(VIDEO_TYPE_UNKNOWN);
    section.config.payload_type = options.payload_type;
    section.config.rtx = options.rtx;
    section.config.max_senders = options.max_senders;
    return section;
}

void section_finish(listen_section *section, uint16_t port, const channel_feedback &feedback,
                    const listen_options &options)
{
    section->config.feedback = options.feedback.value_or(feedback);
    section->config.feedback.give_up_early = !options.waits;
    section->rtp_port = options.port.value_or(port);
    section->rtcp_port = rtcp_port_choose(*section, options);
}

listen_section section_of(const sdp_session &description, size_t index, const listen_options &options)
{
    const sdp_video &video = description.videos[index];
    listen_section section = section_make(options);
    section.config.session = &description;
    section.config.media_index = index;
    section.keys = keys_of(video, options);
    section_finish(&section, video.port, feedback_of(video, options), options);
    return section;
}

// Nothing in a packet says which video it belongs to when two come to one port.
void ports_check(const listen_session &session, const listen_options &options)
{
    for (size_t i = 0; i < session.sections.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            const listen_section &one = session.sections[k];
            const listen_section &other = session.sections[i];
            if (one.rtp_port == other.rtp_port || one.rtp_port == other.rtcp_port || one.rtcp_port == other.rtp_port ||
                (one.rtcp_port != 0 && one.rtcp_port == other.rtcp_port)) {
                throw failure(exit_code::wrong_usage,
                              fmt::format("'{}', lines {} and {}: two videos share a port, which cannot be received; "
                                          "choose with --codec or --pt, or leave out --all",
                                          options.sdp, session.description->videos[one.config.media_index].line,
                                          session.description->videos[other.config.media_index].line));
            }
        }
    }
}

} // namespace

listen_session listen_session_make(const listen_options &options)
{
    listen_session session;
    if (options.sdp.empty()) {
        if (!options.codec) {
            throw failure(exit_code::wrong_usage, "say what comes: --codec h264, --codec h265, or --sdp FILE");
        }
        listen_section section = section_make(options);
        section.keys = options.keys;
        section_finish(&section, kListenPort, default_feedback(), options);
        session.sections.push_back(std::move(section));
    } else {
        session.description = session_read(options.sdp);
        for (const size_t index : media_choose(*session.description, options)) {
            session.sections.push_back(section_of(*session.description, index, options));
        }
        ports_check(session, options);
    }
    const auto is_plain = [](const listen_section &section) { return section.keys.empty(); };
    if (options.sending_key && std::any_of(session.sections.begin(), session.sections.end(), is_plain)) {
        throw failure(exit_code::wrong_usage,
                      "--srtp-send without the sender's key: give it with --srtp, or by a=crypto "
                      "in the description");
    }
    return session;
}

} // namespace vrc
