#include "live_receiver.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <new>
#include <random>
#include <string>
#include <utility>

#include "session_description.h"
#include "stream_choice.h"
#include "video_stream.h"

namespace vrc
{
namespace
{

// Packets that are kept until one knows what they carry: a large key frame.
constexpr size_t kEarlyPacketsMax = 512;

// Streams that are told apart; a made-up SSRC for each packet must not fill the memory.
constexpr size_t kSendersMax = 256;

constexpr uint8_t kFirstDynamicType = 96;

uint32_t random_number()
{
    return std::random_device{}();
}

// A name that is new each time (RFC 7022, 4.2).
std::string cname_make()
{
    return fmt::format("{:08x}{:08x}{:08x}", random_number(), random_number(), random_number());
}

// A description lists all that may come; the user may want less of it.
void session_restrict(const live_config &config, rtc_channel *channel)
{
    const sdp_video &video = config.session->videos[config.media_index];
    for (size_t i = 0; i < video.n_formats; ++i) {
        const uint8_t type = video.formats[i].payload_type;
        const bool is_other_codec =
            config.codec != VIDEO_TYPE_UNKNOWN && config.codec != session_codec(video.formats[i]);
        if (is_other_codec || (config.payload_type && *config.payload_type != type)) {
            rtc_channel_set_payload_type(channel, type, VIDEO_TYPE_UNKNOWN);
        }
    }
}

} // namespace

live_receiver::live_receiver(const live_config &config, live_outputs outputs)
    : config_(config), outputs_(std::move(outputs)), service_(rtc_service_create(), rtc_service_destroy),
      is_searching_(config.session == nullptr && !config.payload_type)
{
    const std::string cname = cname_make();
    channel_config settings{};
    settings.name = "vrc";
    settings.enable_bandwidth_est_downlink = config.feedback.remb;
    settings.on_frame = take_frame;
    settings.on_frame_context = this;
    settings.feedback = config.feedback;
    settings.on_rtcp = take_rtcp;
    settings.on_rtcp_context = this;
    settings.local_ssrc = random_number();
    settings.cname = cname.c_str();
    channel_ = service_ ? rtc_channel_create(service_.get(), &settings) : nullptr;
    if (channel_ == nullptr) {
        throw std::bad_alloc();
    }
    if (config.session != nullptr) {
        session_apply(*config.session, config.media_index, channel_);
        session_restrict(config, channel_);
    } else if (config.payload_type) {
        rtc_channel_set_payload_type(channel_, *config.payload_type, config.codec);
    }
}

void live_receiver::take_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<live_receiver *>(context);
    if (!self->has_frame_) {
        self->has_frame_ = true;
        self->chosen_ = frame->uid;
    }
    if (self->chosen_ == frame->uid) {
        self->outputs_.on_frame(*frame);
    }
}

void live_receiver::take_rtcp(void *context, const uint8_t *datagram, size_t size)
{
    static_cast<live_receiver *>(context)->outputs_.on_rtcp({datagram, size});
}

void live_receiver::receive_rtp(const udp_datagram &datagram, zeb_ts_t now)
{
    if (is_searching_) {
        find_payload_type(datagram, now);
    } else {
        feed(datagram.path, datagram.payload, now);
    }
}

void live_receiver::receive_rtcp(byte_view datagram, zeb_ts_t now)
{
    rtc_channel_receive_rtcp(channel_, datagram.data(), datagram.size(), &now);
}

zeb_ts_t live_receiver::tick(zeb_ts_t now)
{
    return std::max(rtc_service_tick(service_.get(), &now), now + 1);
}

void live_receiver::find_payload_type(const udp_datagram &datagram, zeb_ts_t now)
{
    const byte_view packet = datagram.payload;
    if (early_.size() == kEarlyPacketsMax) {
        early_.pop_front();
    }
    early_.push_back({datagram.path, {packet.data(), packet.data() + packet.size()}});
    finder_.observe({now * 1000, datagram});
    for (const rtp_stream &stream : finder_.streams()) {
        if (stream.codec == config_.codec && stream.identity.payload_type >= kFirstDynamicType) {
            settle_payload_type(stream.identity.payload_type, now);
            return;
        }
    }
}

void live_receiver::settle_payload_type(uint8_t payload_type, zeb_ts_t now)
{
    is_searching_ = false;
    rtc_channel_set_payload_type(channel_, payload_type, config_.codec);
    for (const early_packet &packet : std::exchange(early_, {})) {
        feed(packet.path, {packet.bytes.data(), packet.bytes.size()}, now);
    }
}

void live_receiver::feed(const flow &path, byte_view packet, zeb_ts_t now)
{
    const uint64_t before = chosen_packets();
    rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now);
    rtp_view view{};
    if (rtp_parse(packet.data(), packet.size(), &view) != PACKET_DROP_REASONS) {
        return;
    }
    note_sender(path, view);
    // A retransmission comes under another SSRC than the stream that it belongs to.
    const bool is_of_chosen = chosen_packets() > before;
    const auto owner = senders_.find(is_of_chosen ? *chosen_ : view.ssrc);
    if (owner != senders_.end()) {
        owner->second.header_bytes += view.header_size + view.padding_size;
    }
}

void live_receiver::note_sender(const flow &path, const rtp_view &view)
{
    if (senders_.count(view.ssrc) > 0 || senders_.size() == kSendersMax || report(view.ssrc) == nullptr) {
        return;
    }
    senders_[view.ssrc].identity = {path, view.ssrc, view.payload_type};
    chosen_ = chosen_.value_or(view.ssrc);
}

const stream_report *live_receiver::report(uint32_t ssrc) const
{
    const user_video_stream *stream = rtc_channel_find_stream(channel_, ssrc, 0);
    return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
}

uint64_t live_receiver::chosen_packets() const
{
    const stream_report *found = chosen_ ? report(*chosen_) : nullptr;
    return found != nullptr ? found->packets : 0;
}

replay_result live_receiver::describe() const
{
    replay_result result;
    if (chosen_) {
        const auto found = senders_.find(*chosen_);
        if (found != senders_.end()) {
            result.stream.identity = found->second.identity;
        }
        if (const stream_report *counts = report(*chosen_)) {
            result.report = *counts;
        }
        const sdp_format *format =
            config_.session == nullptr
                ? nullptr
                : sdp_format_find(&config_.session->videos[config_.media_index], result.stream.identity.payload_type);
        result.stream.codec = format != nullptr ? session_codec(*format) : config_.codec;
    }
    std::copy_n(rtc_channel_packets_refused(channel_), result.refused.size(), result.refused.begin());
    return result;
}

uint64_t live_receiver::header_bytes() const
{
    const auto found = chosen_ ? senders_.find(*chosen_) : senders_.end();
    return found != senders_.end() ? found->second.header_bytes : 0;
}

std::string live_receiver::no_video_reason() const
{
    if (!is_searching_) {
        return "";
    }
    search_result seen;
    seen.streams = finder_.streams();
    for (const rtp_stream &stream : seen.streams) {
        if (stream.is_video() && stream.codec != config_.codec) {
            return fmt::format("payload type {} looks like {}", stream.identity.payload_type, codec_name(stream.codec));
        }
    }
    return seen.streams.empty() ? "no RTP came" : "no payload type from 96 to 127 looks like it";
}

} // namespace vrc
