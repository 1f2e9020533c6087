#include "live/live_receiver.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <new>
#include <random>
#include <string>
#include <utility>

#include "capture/stream_choice.h"
#include "commands/session_description.h"
#include "video_stream.h"
#include "wire/rtcp.h"

namespace vrc
{
namespace
{

// Datagrams that are kept until one knows what they carry: a large key frame.
constexpr size_t kEarlyDatagramsMax = 512;

// RTCP that is kept until its sender's RTP comes.
constexpr size_t kEarlyRtcpMax = 16;

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

// The senders whose reports are in a datagram.
std::vector<uint32_t> reporting_senders(byte_view datagram)
{
    std::vector<uint32_t> ssrcs;
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
        if (item.kind == RTCP_ITEM_SENDER_REPORT) {
            ssrcs.push_back(item.ssrc);
        }
    }
    return ssrcs;
}

// The sender that an item which we send is about; none when it names nobody.
std::optional<uint32_t> item_subject(const rtcp_item &item)
{
    switch (item.kind) {
    case RTCP_ITEM_RECEIVER_REPORT:
        return item.receiver_report.blocks.count > 0
                   ? std::optional<uint32_t>(rtcp_block_at(&item.receiver_report.blocks, 0).ssrc)
                   : std::nullopt;
    case RTCP_ITEM_NACK:
        return item.nack.media_ssrc;
    case RTCP_ITEM_PLI:
        return item.pli.media_ssrc;
    case RTCP_ITEM_FIR:
        return item.fir.entries.count > 0 ? std::optional<uint32_t>(rtcp_fir_at(&item.fir.entries, 0).ssrc)
                                          : std::nullopt;
    case RTCP_ITEM_REMB:
        return item.remb.ssrcs.count > 0 ? std::optional<uint32_t>(rtcp_ssrc_at(&item.remb.ssrcs, 0)) : std::nullopt;
    default:
        return std::nullopt;
    }
}

// The receiver tells one sender at a time.
uint32_t datagram_subject(byte_view datagram)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
        if (const std::optional<uint32_t> subject = item_subject(item)) {
            return *subject;
        }
    }
    return 0;
}

} // namespace

silent_senders &silent_senders::operator+=(const silent_senders &more)
{
    senders += more.senders;
    packets += more.packets;
    bytes += more.bytes;
    packets_lost += more.packets_lost;
    frames += more.frames;
    return *this;
}

live_receiver::live_receiver(const live_config &config, live_outputs outputs)
    : config_(config), outputs_(std::move(outputs)), service_(rtc_service_create(), rtc_service_destroy)
{
    if (config.session == nullptr && !config.payload_type) {
        search_.emplace(config.codec);
    }
    const std::string cname = cname_make();
    channel_config settings{};
    settings.name = "vrc";
    settings.enable_bandwidth_est_downlink = config.feedback.remb;
    settings.on_frame = take_frame;
    settings.on_frame_context = this;
    settings.feedback = config.feedback;
    settings.max_senders = config.max_senders;
    settings.on_rtcp = take_rtcp;
    settings.on_rtcp_context = this;
    settings.local_ssrc = random_number();
    settings.cname = cname.c_str();
    channel_ = service_ ? rtc_channel_create(service_.get(), &settings) : nullptr;
    if (channel_ == nullptr) {
        throw std::bad_alloc();
    }
    payload_types_set();
}

void live_receiver::payload_types_set()
{
    if (config_.session != nullptr) {
        session_apply(*config_.session, config_.media_index, channel_);
        session_restrict(config_, channel_);
    } else if (config_.payload_type) {
        rtc_channel_set_payload_type(channel_, *config_.payload_type, config_.codec);
    }
    for (const rtx_mapping &rtx : config_.rtx) {
        rtc_channel_set_rtx(channel_, rtx.rtx_payload_type, rtx.payload_type);
        known_types_.set(rtx.rtx_payload_type & 0x7F);
    }
}

void live_receiver::take_frame(void *context, const channel_frame *frame)
{
    static_cast<live_receiver *>(context)->outputs_.on_frame(*frame);
}

void live_receiver::take_rtcp(void *context, const uint8_t *datagram, size_t size)
{
    const byte_view view(datagram, size);
    static_cast<live_receiver *>(context)->outputs_.on_rtcp(datagram_subject(view), view);
}

// Forged packets can look like video as well: a type that is found ends the search for its own packets only.
void live_receiver::receive_rtp(const udp_datagram &datagram, zeb_ts_t now)
{
    const bool is_searched = search_ && !(is_type_found_ && is_type_known(datagram.payload));
    if (is_searched) {
        find_payload_type(datagram, now);
    } else {
        feed(datagram.path, datagram.payload, now);
    }
}

void live_receiver::receive_rtcp(byte_view datagram, zeb_ts_t now)
{
    if (search_ && !is_type_found_) {
        keep_early(true, {}, datagram, now);
    } else {
        feed_rtcp(datagram, now);
    }
}

zeb_ts_t live_receiver::tick(zeb_ts_t now)
{
    const zeb_ts_t next = std::max(rtc_service_tick(service_.get(), &now), now + 1);
    for (auto &[ssrc, known] : senders_) {
        const stream_report *counts = report(ssrc);
        known.last_report = counts != nullptr ? *counts : known.last_report;
    }
    return next;
}

// Once a type is known, what has to go is counted as of an unknown one.
void live_receiver::keep_early(bool is_rtcp, const flow &path, byte_view datagram, zeb_ts_t now)
{
    if (early_.size() == kEarlyDatagramsMax) {
        if (is_type_found_) {
            feed_early(std::move(early_.front()), now);
        }
        early_.pop_front();
    }
    early_.push_back({is_rtcp, path, {datagram.data(), datagram.data() + datagram.size()}, now});
}

void live_receiver::feed_early(early_datagram early, zeb_ts_t at)
{
    const byte_view bytes(early.bytes.data(), early.bytes.size());
    if (early.is_rtcp) {
        feed_rtcp(bytes, at);
    } else {
        feed(early.path, bytes, at);
    }
}

// What is too short for a header, or of a static type, is not searched for.
bool live_receiver::is_type_known(byte_view packet) const
{
    return packet.size() < kRtpHeaderSize || (packet[1] & 0x7F) < kFirstDynamicType ||
           known_types_.test(packet[1] & 0x7F);
}

void live_receiver::find_payload_type(const udp_datagram &datagram, zeb_ts_t now)
{
    keep_early(false, datagram.path, datagram.payload, now);
    if (search_->observe(datagram, now)) {
        take_payload_type(datagram.payload[1] & 0x7F, now);
    }
}

// While there was no stream, the receiver may live through what came at the times when it came.
void live_receiver::take_payload_type(uint8_t payload_type, zeb_ts_t now)
{
    const bool is_first = !std::exchange(is_type_found_, true);
    rtc_channel_set_payload_type(channel_, payload_type, config_.codec);
    known_types_.set(payload_type);
    for (early_datagram &early : std::exchange(early_, {})) {
        if (early.is_rtcp || is_type_known({early.bytes.data(), early.bytes.size()})) {
            const zeb_ts_t at = is_first ? early.came_at : now;
            feed_early(std::move(early), at);
        } else {
            early_.push_back(std::move(early));
        }
    }
}

// A report that comes before its sender's first packet waits for that.
void live_receiver::feed_rtcp(byte_view datagram, zeb_ts_t now)
{
    const std::vector<uint32_t> ssrcs = reporting_senders(datagram);
    const auto is_known = [this](uint32_t ssrc) { return report(ssrc) != nullptr; };
    if (ssrcs.empty() || std::any_of(ssrcs.begin(), ssrcs.end(), is_known)) {
        rtc_channel_receive_rtcp(channel_, datagram.data(), datagram.size(), &now);
        return;
    }
    if (early_rtcp_.size() == kEarlyRtcpMax) {
        early_rtcp_.pop_front();
    }
    early_rtcp_.push_back({true, {}, {datagram.data(), datagram.data() + datagram.size()}, now});
}

void live_receiver::feed(const flow &path, byte_view packet, zeb_ts_t now)
{
    rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now);
    rtp_view view{};
    if (rtp_parse(packet.data(), packet.size(), &view) != PACKET_DROP_REASONS) {
        return;
    }
    if (note_sender(path, view)) {
        for (const early_datagram &early : std::exchange(early_rtcp_, {})) {
            feed_rtcp({early.bytes.data(), early.bytes.size()}, early.came_at);
        }
    }
    count_headers(view);
}

// Those that are received keep their counts. Of the others the one that sent least goes, so that somebody who makes up senders
// pushes out his own.
bool live_receiver::make_room()
{
    const auto end = senders_.end();
    auto least = end;
    for (auto known = senders_.begin(); known != end; ++known) {
        const bool is_less = least == end || known->second.last_report.packets < least->second.last_report.packets;
        least = is_less && report(known->first) == nullptr ? known : least;
    }
    if (least == end) {
        return false;
    }
    const stream_report &counts = least->second.last_report;
    others_ += {1, counts.packets, counts.bytes, counts.packets_lost, counts.frames};
    order_.erase(std::remove(order_.begin(), order_.end(), least->first), order_.end());
    senders_.erase(least);
    return true;
}

// Returns whether it is a new one.
bool live_receiver::note_sender(const flow &path, const rtp_view &view)
{
    if (senders_.count(view.ssrc) > 0 || report(view.ssrc) == nullptr ||
        (senders_.size() == kSendersMax && !make_room())) {
        return false;
    }
    senders_[view.ssrc].identity = {path, view.ssrc, view.payload_type};
    order_.push_back(view.ssrc);
    return true;
}

// A retransmission comes under another SSRC than the stream that it belongs to, which is the one whose count has moved.
void live_receiver::count_headers(const rtp_view &view)
{
    for (auto &[ssrc, known] : senders_) {
        const stream_report *counts = report(ssrc);
        if (counts != nullptr && counts->packets != known.last_report.packets) {
            known.header_bytes += view.header_size + view.padding_size;
            known.last_report = *counts;
        }
    }
}

const stream_report *live_receiver::report(uint32_t ssrc) const
{
    const user_video_stream *stream = rtc_channel_find_stream(channel_, ssrc, 0);
    return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
}

uint8_t live_receiver::codec_of(const stream_identity &identity) const
{
    const sdp_format *format =
        config_.session == nullptr
            ? nullptr
            : sdp_format_find(&config_.session->videos[config_.media_index], identity.payload_type);
    return format != nullptr ? session_codec(*format) : config_.codec;
}

live_stream live_receiver::describe(uint32_t ssrc) const
{
    live_stream described;
    const auto found = senders_.find(ssrc);
    if (found != senders_.end()) {
        const stream_report *counts = report(ssrc);
        described.received.stream.identity = found->second.identity;
        described.received.stream.codec = codec_of(found->second.identity);
        described.received.report = counts != nullptr ? *counts : found->second.last_report;
        described.header_bytes = found->second.header_bytes;
    }
    return described;
}

std::array<uint64_t, PACKET_DROP_REASONS> live_receiver::refused() const
{
    std::array<uint64_t, PACKET_DROP_REASONS> counts{};
    std::copy_n(rtc_channel_packets_refused(channel_), counts.size(), counts.begin());
    counts[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE] += is_type_found_ ? early_.size() : 0;
    return counts;
}

std::string live_receiver::no_video_reason() const
{
    if (!search_ || is_type_found_) {
        return "";
    }
    const std::vector<rtp_stream> streams = search_->streams();
    for (const rtp_stream &stream : streams) {
        if (stream.is_video() && stream.codec != config_.codec) {
            return fmt::format("payload type {} looks like {}", stream.identity.payload_type, codec_name(stream.codec));
        }
        if (stream.behaves_like_rtp && stream.looks_encrypted) {
            return fmt::format("payload type {} looks encrypted (SRTP): its key can be given with --srtp",
                               stream.identity.payload_type);
        }
    }
    return streams.empty() ? "no RTP came" : "no payload type from 96 to 127 looks like it";
}

} // namespace vrc
