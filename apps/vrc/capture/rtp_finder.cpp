#include "capture/rtp_finder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "capture/datagram_source.h"
#include "packet_owner.h"
#include "video_stream.h"
#include "wire/rtp.h"

namespace vrc
{
namespace
{

// Datagrams that only look like RTP make a candidate each. Beyond this many the lone ones are forgotten.
constexpr size_t kCandidatesMax = 20'000;

// Timestamp units, half a minute of a clock that runs at 1 MHz: a picture is never that far from the one before.
constexpr int32_t kTimestampStepMax = 30'000'000;

// A timestamp that stands still for this long is none, microseconds.
constexpr uint64_t kStandstillUs = 2'000'000;

// Payload types below this are given to formats that are no H.264 or H.265 (RFC 3551, 6).
constexpr uint8_t kFirstFreePayloadType = 35;
constexpr double kStaticPayloadTypeFactor = 0.25;

constexpr uint64_t kPacketsToBehave = 10; // without a codec, fewer than this prove no RTP
constexpr double kBehavesLikeRtp = 0.8;

} // namespace

// The SSRC nearly always decides, so it comes first.
bool operator<(const stream_identity &left, const stream_identity &right)
{
    if (left.ssrc != right.ssrc) {
        return left.ssrc < right.ssrc;
    }
    if (left.payload_type != right.payload_type) {
        return left.payload_type < right.payload_type;
    }
    return flow_key(left.path) < flow_key(right.path);
}

bool operator==(const stream_identity &left, const stream_identity &right)
{
    return left.ssrc == right.ssrc && left.payload_type == right.payload_type &&
           flow_key(left.path) == flow_key(right.path);
}

std::optional<stream_identity> stream_identity_read(const udp_datagram &datagram)
{
    packet_owner owner{};
    if (!packet_owner_read(datagram.payload.data(), datagram.payload.size(), &owner)) {
        return std::nullopt;
    }
    return stream_identity{datagram.path, owner.ssrc, owner.payload_type};
}

double stream_bit_rate(const rtp_stream &stream)
{
    const auto seconds = static_cast<double>(stream.last_us - stream.first_us) / 1e6;
    return seconds > 0 ? static_cast<double>(stream.bytes) * 8 / seconds : 0;
}

void rtp_candidate::observe(const rtp_view &view, byte_view packet, uint64_t now_us)
{
    if (packets_ == 0) {
        first_us_ = now_us;
        timestamp_ = view.timestamp;
    }
    last_us_ = now_us;
    ++packets_;
    bytes_ += packet.size();
    sequence_.observe(view.seq);
    observe_timestamp(view.timestamp);
    observe_payload(view.seq, packet.skip(view.header_size).first(view.payload_size));
}

void rtp_candidate::observe_timestamp(uint32_t timestamp)
{
    const auto step = static_cast<int32_t>(timestamp - timestamp_);
    timestamp_ = timestamp;
    if (step == 0) {
        return;
    }
    ++timestamp_steps_;
    if (step > kTimestampStepMax || step < -kTimestampStepMax) {
        ++timestamp_jumps_;
    }
}

void rtp_candidate::observe_payload(uint16_t seq, byte_view payload)
{
    if (!payload.empty()) {
        first_bytes_.set(payload[0]);
        ++payloads_;
    }
    h264_.observe(seq, payload);
    h265_.observe(seq, payload);
}

// How well sequence numbers and timestamps behave, 0 to 1, whatever the payload is.
double rtp_candidate::rtp_likelihood() const
{
    const auto without = [](uint64_t jumps, uint64_t steps) {
        return steps == 0 ? 1.0 : 1.0 - static_cast<double>(jumps) / static_cast<double>(steps);
    };
    const bool stands_still = timestamp_steps_ == 0 && last_us_ - first_us_ > kStandstillUs;
    return without(sequence_.jumps(), packets_ - 1) * without(timestamp_jumps_, timestamp_steps_) *
           (stands_still ? 0.0 : 1.0);
}

bool rtp_candidate::behaves_like_rtp() const
{
    return packets_ >= kPacketsToBehave && rtp_likelihood() >= kBehavesLikeRtp;
}

// Codecs begin their payloads with a header of few values. The first bytes of encrypted ones are drawn from all
// 256 alike, and about 256 * (1 - (255/256)^n) different ones are expected of n.
bool rtp_candidate::looks_encrypted() const
{
    constexpr uint64_t enough = 32;
    const double expected = 256.0 * (1.0 - std::pow(255.0 / 256.0, static_cast<double>(payloads_)));
    return payloads_ >= enough && static_cast<double>(first_bytes_.count()) >= 0.8 * expected;
}

// The fewer packets, the more it may all be chance: one alone is never likely enough.
rtp_stream rtp_candidate::describe(const stream_identity &identity) const
{
    rtp_stream stream;
    stream.identity = identity;
    const auto count = static_cast<double>(packets_);
    const double factor = rtp_likelihood() * count / (count + 1) *
                          (identity.payload_type < kFirstFreePayloadType ? kStaticPayloadTypeFactor : 1.0);
    stream.h264_likelihood = h264_.fit() * factor;
    stream.h265_likelihood = h265_.fit() * factor;
    stream.likelihood = std::max(stream.h264_likelihood, stream.h265_likelihood);
    stream.codec = VIDEO_TYPE_UNKNOWN;
    if (stream.is_video()) {
        stream.codec = stream.h264_likelihood > stream.h265_likelihood ? VIDEO_TYPE_H264 : VIDEO_TYPE_H265;
    }
    stream.behaves_like_rtp = behaves_like_rtp();
    stream.looks_encrypted = !stream.is_video() && looks_encrypted();
    stream.packets = packets_;
    stream.bytes = bytes_;
    stream.lost = sequence_.lost();
    stream.duplicates = sequence_.duplicates();
    stream.reordered = sequence_.reordered();
    stream.first_us = first_us_;
    stream.last_us = last_us_;
    return stream;
}

void rtp_finder::observe(const captured_datagram &datagram)
{
    const std::optional<stream_identity> identity = stream_identity_read(datagram.udp);
    if (!identity) {
        return;
    }
    const byte_view packet = datagram.udp.payload;
    rtp_view view{};
    if (rtp_parse(packet.data(), packet.size(), &view) != PACKET_DROP_REASONS) {
        return;
    }
    if (candidates_.size() >= kCandidatesMax) {
        make_room();
    }
    candidates_[*identity].observe(view, packet, datagram.elapsed_us);
}

void rtp_finder::make_room()
{
    for (uint64_t fewest = 1; candidates_.size() >= kCandidatesMax; fewest *= 2) {
        for (auto entry = candidates_.begin(); entry != candidates_.end();) {
            entry = entry->second.packets() <= fewest ? candidates_.erase(entry) : std::next(entry);
        }
    }
}

std::vector<rtp_stream> rtp_finder::streams() const
{
    std::vector<rtp_stream> found;
    for (const auto &[identity, seen] : candidates_) {
        found.push_back(seen.describe(identity));
    }
    std::stable_sort(found.begin(), found.end(), [](const rtp_stream &left, const rtp_stream &right) {
        return std::make_tuple(!left.is_video(), right.packets) < std::make_tuple(!right.is_video(), left.packets);
    });
    return found;
}

search_result streams_find(const capture_file &file, const std::function<void(uint64_t position)> &progress,
                           const std::vector<sdp_crypto> &keys)
{
    constexpr uint64_t packets_between_reports = 256;
    datagram_source reader(file, keys);
    rtp_finder finder;
    captured_datagram datagram;
    while (reader.next(&datagram)) {
        finder.observe(datagram);
        if (progress && reader.counts().udp % packets_between_reports == 0) {
            progress(reader.position());
        }
    }
    return {finder.streams(), reader.counts(), reader.decryption()};
}

const char *codec_name(uint8_t codec)
{
    switch (codec) {
    case VIDEO_TYPE_H264:
        return "h264";
    case VIDEO_TYPE_H265:
        return "h265";
    default:
        return "unknown";
    }
}

} // namespace vrc
