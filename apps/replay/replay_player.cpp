#include "replay_player.h"

#include <algorithm>

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

// Nobody is there to be asked; the stream's report counts what would have been sent.
void drop_request(void * /*context*/, const uint8_t * /*datagram*/, size_t /*size*/)
{
}

} // namespace

replay_player::replay_player(uint32_t ssrc, bool gives_up_early, frame_taker on_frame, void *context)
    : service_(rtc_service_create()), ssrc_(ssrc), on_frame_(on_frame), context_(context), now_(kStart),
      next_tick_(kStart)
{
    channel_config config = {"vrc", false, take_frame, this};
    config.feedback.nack = true;
    config.feedback.pli = true;
    config.feedback.reduced_size = true;
    config.feedback.give_up_early = gives_up_early;
    config.on_rtcp = drop_request;
    channel_ = service_ != nullptr ? rtc_channel_create(service_, &config) : nullptr;
}

replay_player::~replay_player()
{
    rtc_service_destroy(service_);
}

void replay_player::advance(uint64_t elapsed_us)
{
    const zeb_ts_t time = kStart + elapsed_us / 1000;
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

void replay_player::receive_rtp(const uint8_t *packet, size_t size)
{
    rtc_channel_receive_rtp(channel_, packet, size, false, &now_);
    next_tick_ = std::min(next_tick_, std::max(rtc_service_next_at(service_), now_));
}

void replay_player::receive_rtcp(const uint8_t *datagram, size_t size)
{
    rtc_channel_receive_rtcp(channel_, datagram, size, &now_);
}

void replay_player::settle()
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

const stream_report *replay_player::report() const
{
    const user_video_stream *stream = rtc_channel_find_stream(channel_, ssrc_, 0);
    return stream != nullptr ? rtc_channel_stream_report(stream) : nullptr;
}

void replay_player::take_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<replay_player *>(context);
    self->is_stopped_ = self->is_stopped_ || !self->on_frame_(self->context_, frame);
}

void replay_player::tick(zeb_ts_t time)
{
    now_ = time;
    next_tick_ = std::max(rtc_service_tick(service_, &now_), now_ + 1);
}

// Frames handed out or given up.
uint64_t replay_player::frames_done() const
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

} // namespace vrc
