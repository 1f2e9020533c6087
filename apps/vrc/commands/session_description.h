// What a session description (SDP) says about the video that is to come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "api/channel.h"
#include "sdp.h"

namespace vrc
{

// Reads a description; "-" is no file here. Throws failure: no_access when the file cannot be read, wrong_usage, with
// the line, when it is no description.
std::unique_ptr<sdp_session> session_read(const std::string &path);

// The codec of a payload type as the channel names it: VIDEO_TYPE_H264, VIDEO_TYPE_H265, or VIDEO_TYPE_UNKNOWN for what
// cannot be received: other codecs, and H.264 in interleaved mode (RFC 6184, 6.4).
uint8_t session_codec(const sdp_format &format);

// The section that lists a payload type; the first one of several.
std::optional<size_t> session_find_media(const sdp_session &session, uint8_t payload_type);

// Tells a channel what the video section `media_index` says: what each payload type carries, which ones retransmit
// which, the pairs of SSRCs, and the parameter sets. `media_index` must be below `session.n_videos`.
void session_apply(const sdp_session &session, size_t media_index, rtc_channel *channel);

} // namespace vrc
