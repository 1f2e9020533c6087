#include "capture/stream_choice.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "commands/session_description.h"
#include "failure.h"
#include "video_stream.h"

namespace vrc
{
namespace
{

bool matches(const stream_identity &identity, const stream_choice &choice)
{
    const flow &path = identity.path;
    return (!choice.ssrc || *choice.ssrc == identity.ssrc) &&
           (!choice.payload_type || *choice.payload_type == identity.payload_type) &&
           (!choice.port || *choice.port == path.source.port || *choice.port == path.destination.port);
}

double codec_likelihood(const rtp_stream &stream, uint8_t codec)
{
    return codec == VIDEO_TYPE_H264 ? stream.h264_likelihood : stream.h265_likelihood;
}

rtp_stream with_codec(rtp_stream stream, uint8_t codec)
{
    stream.likelihood = codec_likelihood(stream, codec);
    stream.codec = codec;
    return stream;
}

std::string choice_text(const stream_choice &choice)
{
    std::string text;
    if (choice.ssrc) {
        text += fmt::format(" --ssrc 0x{:08x}", *choice.ssrc);
    }
    if (choice.payload_type) {
        text += fmt::format(" --pt {}", *choice.payload_type);
    }
    if (choice.port) {
        text += fmt::format(" --port {}", *choice.port);
    }
    if (choice.codec) {
        text += fmt::format(" --codec {}", codec_name(*choice.codec));
    }
    return text;
}

// Likely streams first, by packets; without a likely one, `or_any` tells whether the others count.
const rtp_stream *best(const std::vector<rtp_stream> &streams, bool or_any)
{
    const auto less = [](const rtp_stream &left, const rtp_stream &right) {
        return std::make_tuple(left.is_video(), left.packets) < std::make_tuple(right.is_video(), right.packets);
    };
    const auto found = std::max_element(streams.begin(), streams.end(), less);
    return found != streams.end() && (or_any || found->is_video()) ? &*found : nullptr;
}

} // namespace

void streams_describe(const sdp_session &session, search_result *found)
{
    for (rtp_stream &stream : found->streams) {
        const std::optional<size_t> media = session_find_media(session, stream.identity.payload_type);
        if (!media || !stream.is_rtp()) {
            continue;
        }
        stream.codec = session_codec(*sdp_format_find(&session.videos[*media], stream.identity.payload_type));
        stream.h264_likelihood = stream.codec == VIDEO_TYPE_H264 ? 1 : 0;
        stream.h265_likelihood = stream.codec == VIDEO_TYPE_H265 ? 1 : 0;
        stream.likelihood = std::max(stream.h264_likelihood, stream.h265_likelihood);
    }
}

std::string no_video_reason(const search_result &found)
{
    if (found.counts.udp == 0) {
        return fmt::format("none of its {} frames holds a UDP datagram", found.counts.frames);
    }
    const auto is_rtp = [](const rtp_stream &stream) { return stream.is_rtp(); };
    const auto rtp_count = std::count_if(found.streams.begin(), found.streams.end(), is_rtp);
    if (rtp_count == 0) {
        return fmt::format("none of its {} UDP datagrams belongs to an RTP stream", found.counts.udp);
    }
    std::string reason = fmt::format("the payload of its {} RTP stream(s) is neither H.264 nor H.265", rtp_count);
    for (const rtp_stream &stream : found.streams) {
        if (stream.looks_encrypted && stream.is_rtp()) {
            reason += fmt::format("; SSRC 0x{:08x} with payload type {} looks encrypted (SRTP): its key can be "
                                  "given to replay with --srtp",
                                  stream.identity.ssrc, stream.identity.payload_type);
        }
    }
    return reason;
}

rtp_stream stream_choose(const search_result &found, const stream_choice &choice, const std::string &capture)
{
    std::vector<rtp_stream> matching;
    for (const rtp_stream &stream : found.streams) {
        if (matches(stream.identity, choice)) {
            matching.push_back(choice.codec ? with_codec(stream, *choice.codec) : stream);
        }
    }
    if (const rtp_stream *stream = best(matching, choice.codec && choice.names_stream())) {
        return *stream;
    }
    const auto is_rtp = [](const rtp_stream &stream) { return stream.is_rtp(); };
    if (std::none_of(found.streams.begin(), found.streams.end(), is_rtp) || choice_text(choice).empty()) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("no RTP video in '{}': {}. If you know what a stream carries, name it: --ssrc or "
                                  "--pt, and --codec",
                                  capture, no_video_reason(found)));
    }
    if (matching.empty()) {
        throw failure(exit_code::nothing_usable, fmt::format("no stream in '{}' matches{}: 'vrc info' lists those "
                                                             "that are there",
                                                             capture, choice_text(choice)));
    }
    throw failure(exit_code::nothing_usable,
                  fmt::format("no stream in '{}' that matches{} looks like video. If you know what it carries, name "
                              "it by --ssrc or --pt together with --codec",
                              capture, choice_text(choice)));
}

} // namespace vrc
