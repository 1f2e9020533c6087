#include "replay.h"

#include <algorithm>
#include <bitset>
#include <memory>
#include <new>
#include <optional>

#include "datagram_source.h"
#include "rtcp.h"
#include "service.h"
#include "session_description.h"

namespace vrc
{
namespace
{

// The receiver's time at the capture's first frame, milliseconds. Not 0, which stands for "never" here and there.
constexpr zeb_ts_t kStart = 10'000;

// Silence that is lived through, milliseconds: far more than any patience of the receiver. The rest is skipped, so
// that a capture with a gap of a year takes no longer than another.
constexpr zeb_ts_t kLongestSilence = 10'000;

// After the last packet: the receiver waits 2000 ms for what is missing, and again behind each further gap. It has
// settled when nothing has happened for a bit longer than that.
constexpr zeb_ts_t kSettled = 2'100;
constexpr zeb_ts_t kSettledAtLatest = 120'000;

// The section of the session description that the stream belongs to.
std::optional<size_t> media_of(const rtp_stream &stream, const replay_setup &setup)
{
    return setup.session ? session_find_media(*setup.session, stream.identity.payload_type) : std::nullopt;
}

// Knows the packets of a stream and those that retransmit them.
class stream_filter
{
  public:
    stream_filter(const rtp_stream &stream, const replay_setup &setup) : identity_(stream.identity)
    {
        for (const rtx_mapping &rtx : setup.rtx) {
            add_rtx(rtx.rtx_payload_type, rtx.payload_type);
        }
        if (const std::optional<size_t> media = media_of(stream, setup)) {
            add_session(setup.session->videos[*media]);
        }
    }

    // Whether it is RTCP in which the sender of the stream reports or leaves. It comes from another port as a rule.
    bool takes_rtcp(byte_view datagram) const
    {
        rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
        for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
            if ((item.kind == RTCP_ITEM_SENDER_REPORT && item.ssrc == identity_.ssrc) || says_bye(item)) {
                return true;
            }
        }
        return false;
    }

    bool takes(const udp_datagram &datagram) const
    {
        const std::optional<stream_identity> identity = stream_identity_read(datagram);
        return identity && (*identity == identity_ || is_retransmission(*identity));
    }

  private:
    void add_rtx(uint8_t rtx_payload_type, uint8_t payload_type)
    {
        if (payload_type == identity_.payload_type) {
            rtx_payload_types_.set(rtx_payload_type & 0x7F);
        }
    }

    void add_session(const sdp_video &video)
    {
        for (size_t i = 0; i < video.n_formats; ++i) {
            const sdp_format &format = video.formats[i];
            if (format.codec == SDP_CODEC_RTX) {
                add_rtx(format.payload_type, format.apt);
            }
        }
        for (size_t i = 0; i < video.n_source_pairs; ++i) {
            if (video.source_pairs[i].ssrc == identity_.ssrc) {
                rtx_ssrc_ = video.source_pairs[i].rtx_ssrc;
            }
        }
    }

    bool says_bye(const rtcp_item &item) const
    {
        const size_t count = item.kind == RTCP_ITEM_BYE ? item.bye.ssrcs.count : 0;
        for (size_t i = 0; i < count; ++i) {
            if (rtcp_ssrc_at(&item.bye.ssrcs, i) == identity_.ssrc) {
                return true;
            }
        }
        return false;
    }

    bool is_retransmission(const stream_identity &identity) const
    {
        return rtx_payload_types_[identity.payload_type] && flow_key(identity.path) == flow_key(identity_.path) &&
               (!rtx_ssrc_ || *rtx_ssrc_ == identity.ssrc);
    }

    stream_identity identity_;
    std::bitset<128> rtx_payload_types_;
    std::optional<uint32_t> rtx_ssrc_; // none: any sender may be the one
};

// One receiver with one channel, and the time that it lives in.
class receiver
{
  public:
    receiver(const rtp_stream &stream, const replay_setup &setup, const frame_taker &on_frame)
        : service_(rtc_service_create(), rtc_service_destroy), ssrc_(stream.identity.ssrc), on_frame_(on_frame)
    {
        channel_config config = {"vrc", false, take_frame, this};
        config.feedback.nack = true;
        config.feedback.pli = true;
        config.feedback.reduced_size = true;
        config.feedback.give_up_early = setup.gives_up_early;
        config.on_rtcp = drop_request;
        channel_ = service_ ? rtc_channel_create(service_.get(), &config) : nullptr;
        if (channel_ == nullptr) {
            throw std::bad_alloc();
        }
        if (const std::optional<size_t> media = media_of(stream, setup)) {
            session_apply(*setup.session, *media, channel_);
        }
        for (const rtx_mapping &rtx : setup.rtx) {
            rtc_channel_set_rtx(channel_, rtx.rtx_payload_type, rtx.payload_type);
        }
        rtc_channel_set_payload_type(channel_, stream.identity.payload_type, stream.codec);
    }

    // Runs what is due up to `time`, which must not be earlier than before.
    void advance(zeb_ts_t time)
    {
        const zeb_ts_t lived = std::min(time, now_ + kLongestSilence);
        while (next_tick_ <= lived) {
            tick(next_tick_);
        }
        if (next_tick_ <= time) {
            silence_skipped_ += time - now_;
            tick(time);
        }
        now_ = time;
    }

    void receive(byte_view packet)
    {
        rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now_);
    }

    void receive_rtcp(byte_view datagram)
    {
        rtc_channel_receive_rtcp(channel_, datagram.data(), datagram.size(), &now_);
    }

    // Lives on until nothing is waited for any more.
    void settle()
    {
        const zeb_ts_t end = now_ + kSettledAtLatest;
        uint64_t done = frames_done();
        zeb_ts_t changed_at = now_;
        while (!is_stopped_ && now_ < end && now_ - changed_at < kSettled) {
            tick(next_tick_);
            if (frames_done() != done) {
                done = frames_done();
                changed_at = now_;
            }
        }
    }

    bool is_stopped() const
    {
        return is_stopped_;
    }

    void describe(replay_result *result) const
    {
        if (const stream_report *found = report()) {
            result->report = *found;
        }
        std::copy_n(rtc_channel_packets_refused(channel_), result->refused.size(), result->refused.begin());
        result->silence_skipped_ms = silence_skipped_;
    }

  private:
    static void take_frame(void *context, const channel_frame *frame)
    {
        auto *self = static_cast<receiver *>(context);
        self->is_stopped_ = self->is_stopped_ || !self->on_frame_(*frame);
    }

    // Nobody is there to be asked; the stream's report counts what would have been sent.
    static void drop_request(void * /*context*/, const uint8_t * /*datagram*/, size_t /*size*/)
    {
    }

    void tick(zeb_ts_t time)
    {
        now_ = time;
        next_tick_ = std::max(rtc_service_tick(service_.get(), &now_), now_ + 1);
    }

    const stream_report *report() const
    {
        const user_video_stream *stream = rtc_channel_find_stream(channel_, ssrc_, 0);
        return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
    }

    // Frames handed out or given up.
    uint64_t frames_done() const
    {
        const stream_report *found = report();
        uint64_t done = 0;
        if (found != nullptr) {
            done = found->frames;
            for (const uint64_t dropped : found->frames_dropped) {
                done += dropped;
            }
        }
        return done;
    }

    std::unique_ptr<rtc_service, void (*)(rtc_service *)> service_;
    rtc_channel *channel_ = nullptr; // the service's
    uint32_t ssrc_;
    const frame_taker &on_frame_;
    zeb_ts_t now_ = kStart;
    zeb_ts_t next_tick_ = kStart;
    zeb_ts_t silence_skipped_ = 0;
    bool is_stopped_ = false;
};

} // namespace

replay_result stream_replay(const capture_file &file, const rtp_stream &stream, const frame_taker &on_frame,
                            const std::function<void(uint64_t position)> &progress, const replay_setup &setup)
{
    constexpr uint64_t packets_between_reports = 256;
    replay_result result;
    result.stream = stream;
    datagram_source reader(file, setup.keys);
    const stream_filter filter(stream, setup);
    receiver player(stream, setup, on_frame);
    captured_datagram datagram;
    while (!player.is_stopped() && reader.next(&datagram)) {
        if (filter.takes(datagram.udp)) {
            player.advance(kStart + datagram.elapsed_us / 1000);
            player.receive(datagram.udp.payload);
        } else if (filter.takes_rtcp(datagram.udp.payload)) {
            player.advance(kStart + datagram.elapsed_us / 1000);
            player.receive_rtcp(datagram.udp.payload);
        }
        if (progress && reader.counts().udp % packets_between_reports == 0) {
            progress(reader.position());
        }
    }
    player.settle();
    player.describe(&result);
    result.capture = reader.counts();
    result.decryption = reader.decryption();
    return result;
}

} // namespace vrc
