// What the tool says about streams and replays, for people and for machines. apps/vrc/README.md has the keys of the JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <string>

#include "capture/rtp_finder.h"
#include "commands/replay.h"

namespace vrc
{

// Keys keep the order in which they are written here.
using json = nlohmann::ordered_json;

// The streams of a capture that behave like RTP, a line each. Lines end with a newline.
std::string streams_text(const search_result &found);
json streams_json(const search_result &found, const std::string &capture);

// What became of a stream's packets.
std::string replay_text(const replay_result &result, const std::string &capture);
json replay_json(const replay_result &result, const std::string &capture);

// Every count, a line each, as the image for the device writes them.
std::string replay_counts_text(const replay_result &result);

// Of that, what concerns the stream and not the capture.
std::string stream_text(const replay_result &result);
json stream_summary_json(const replay_result &result);

// What was dropped before it was known which stream it is of: encrypted packets, and packets that were refused. Lines
// for what there is, and all keys.
std::string door_text(const srtp_counts &decryption, const std::array<uint64_t, PACKET_DROP_REASONS> &refused);
json door_json(const srtp_counts &decryption, const std::array<uint64_t, PACKET_DROP_REASONS> &refused);

// How many packets were decrypted, and how many were not, by reason.
json decryption_json(const srtp_counts &counts);

// What is odd about a capture, a line each: where it is damaged, what was skipped, a clock that went back.
// Empty when nothing is.
std::string capture_notes(const capture_counts &counts);

// Indented, with a newline at its end.
std::string json_text(const json &object);

} // namespace vrc
