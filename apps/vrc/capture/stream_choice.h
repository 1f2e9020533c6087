// Which of a capture's streams is meant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "capture/rtp_finder.h"
#include "sdp.h"

namespace vrc
{

// What the user says; what is not said is found out.
struct stream_choice {
    std::optional<uint32_t> ssrc;
    std::optional<uint8_t> payload_type;
    std::optional<uint16_t> port; // source or destination
    std::optional<uint8_t> codec; // VIDEO_TYPE_H264, VIDEO_TYPE_H265

    bool names_stream() const
    {
        return ssrc || payload_type || port;
    }
};

// Chooses the video stream with the most packets that matches. The codec is believed even against the looks when
// the stream is named too. Throws failure (nothing_usable), saying what is there instead; `capture` is its name.
rtp_stream stream_choose(const search_result &found, const stream_choice &choice, const std::string &capture);

// Believes a session description: a stream of a payload type that it lists carries what is said there, however it looks.
void streams_describe(const sdp_session &session, search_result *found);

// Says why there is no video in a capture.
std::string no_video_reason(const search_result &found);

} // namespace vrc
