#include "commands/session_description.h"

#include <fmt/format.h>

#include <cassert>

#include "commands/text_file.h"
#include "failure.h"
#include "video_stream.h"

namespace vrc
{
namespace
{

constexpr uint8_t kInterleavedMode = 2;

void parameter_sets_apply(const sdp_session &session, const sdp_format &format, rtc_channel *channel)
{
    for (size_t i = 0; i < format.n_parameter_sets; ++i) {
        const sdp_span &span = format.parameter_sets[i];
        rtc_channel_set_parameter_set(channel, session_codec(format), session.parameter_bytes + span.offset, span.size);
    }
}

} // namespace

std::unique_ptr<sdp_session> session_read(const std::string &path)
{
    const std::string text = text_file_read(path, "a session description");
    auto session = std::make_unique<sdp_session>();
    sdp_error error{};
    if (!sdp_parse(text.data(), text.size(), session.get(), &error)) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}', line {}: {}", path, error.line, error.what));
    }
    return session;
}

uint8_t session_codec(const sdp_format &format)
{
    switch (format.codec) {
    case SDP_CODEC_H264:
        return format.packetization_mode == kInterleavedMode ? VIDEO_TYPE_UNKNOWN : VIDEO_TYPE_H264;
    case SDP_CODEC_H265:
        return VIDEO_TYPE_H265;
    default:
        return VIDEO_TYPE_UNKNOWN;
    }
}

std::optional<size_t> session_find_media(const sdp_session &session, uint8_t payload_type)
{
    for (size_t i = 0; i < session.n_videos; ++i) {
        if (sdp_format_find(&session.videos[i], payload_type) != nullptr) {
            return i;
        }
    }
    return std::nullopt;
}

void session_apply(const sdp_session &session, size_t media_index, rtc_channel *channel)
{
    assert(media_index < session.n_videos);
    const sdp_video &video = session.videos[media_index];
    for (size_t i = 0; i < video.n_formats; ++i) {
        const sdp_format &format = video.formats[i];
        rtc_channel_set_payload_type(channel, format.payload_type, session_codec(format));
        if (format.codec == SDP_CODEC_RTX && format.apt != kSdpPayloadTypeNone) {
            rtc_channel_set_rtx(channel, format.payload_type, format.apt);
        }
        parameter_sets_apply(session, format, channel);
    }
    for (size_t i = 0; i < video.n_source_pairs; ++i) {
        rtc_channel_pair_ssrc(channel, video.source_pairs[i].ssrc, video.source_pairs[i].rtx_ssrc);
    }
}

} // namespace vrc
