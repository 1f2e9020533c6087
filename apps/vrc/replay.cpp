#include "replay.h"

#include <algorithm>
#include <memory>
#include <new>

#include "datagram_source.h"
#include "service.h"

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

// One receiver with one channel, and the time that it lives in.
class receiver
{
  public:
    receiver(const rtp_stream &stream, const frame_taker &on_frame)
        : service_(rtc_service_create(), rtc_service_destroy), ssrc_(stream.identity.ssrc), on_frame_(on_frame)
    {
        const channel_config config = {"vrc", false, take_frame, this};
        channel_ = service_ ? rtc_channel_create(service_.get(), &config) : nullptr;
        if (channel_ == nullptr) {
            throw std::bad_alloc();
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
    receiver player(stream, on_frame);
    captured_datagram datagram;
    while (!player.is_stopped() && reader.next(&datagram)) {
        if (stream_identity_read(datagram.udp) == stream.identity) {
            player.advance(kStart + datagram.elapsed_us / 1000);
            player.receive(datagram.udp.payload);
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
