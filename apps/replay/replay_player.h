// A receiver that lives by the times of a capture.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/channel.h"
#include "api/service.h"

namespace vrc
{

// One service with one channel, for the video stream of one sender, and the time that they live in. Files, captures and
// the choice of the stream are the caller's.
class replay_player
{
  public:
    // Takes one frame; returns false when the replay shall end. Must not throw.
    using frame_taker = bool (*)(void *context, const channel_frame *frame);

    // `ssrc` is the sender whose stream is reported on; `gives_up_early` as in channel_feedback.
    replay_player(uint32_t ssrc, bool gives_up_early, frame_taker on_frame, void *context);
    ~replay_player();
    replay_player(const replay_player &) = delete;
    replay_player &operator=(const replay_player &) = delete;

    // To be told of payload types, retransmissions and parameter sets before the first packet; the player's. Null
    // without memory: then nothing else may be called.
    rtc_channel *channel() const
    {
        return channel_;
    }

    // Runs what is due up to `elapsed_us`, microseconds since the capture's first frame, never less than before. Long
    // silence is skipped.
    void advance(uint64_t elapsed_us);

    // Takes in what came at that time.
    void receive_rtp(const uint8_t *packet, size_t size);
    void receive_rtcp(const uint8_t *datagram, size_t size);

    // Lives on until nothing is waited for any more.
    void settle();

    // True when a frame's taker has ended the replay.
    bool is_stopped() const
    {
        return is_stopped_;
    }

    // What became of the sender's stream; null before its first packet.
    const stream_report *report() const;

    // Packets that did not even reach the stream, by reason: PACKET_DROP_REASONS long.
    const uint64_t *packets_refused() const
    {
        return rtc_channel_packets_refused(channel_);
    }

    // Milliseconds.
    uint64_t silence_skipped() const
    {
        return silence_skipped_;
    }

  private:
    static void take_frame(void *context, const channel_frame *frame);
    void tick(zeb_ts_t time);
    uint64_t frames_done() const;

    rtc_service *service_;
    rtc_channel *channel_ = nullptr; // the service's
    uint32_t ssrc_;
    frame_taker on_frame_;
    void *context_;
    zeb_ts_t now_;
    zeb_ts_t next_tick_;
    zeb_ts_t silence_skipped_ = 0;
    bool is_stopped_ = false;
};

} // namespace vrc
