// A receiver that lives in the present: packets come with the time, and feedback goes out.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "replay.h"
#include "sdp.h"
#include "service.h"

namespace vrc
{

// What the receiver is to take in. With a session the description says it, and `payload_type` and `codec` leave less of
// it in; else `payload_type`; without both the first payload type whose packets look like `codec`.
struct live_config {
    const sdp_session *session = nullptr;
    size_t media_index = 0;
    std::optional<uint8_t> payload_type;
    uint8_t codec = 0; // VIDEO_TYPE_H264, VIDEO_TYPE_H265; with a session also VIDEO_TYPE_UNKNOWN: all
    channel_feedback feedback = {};
};

// Where what it has to say goes. None of them may throw or call back.
struct live_outputs {
    std::function<void(const channel_frame &frame)> on_frame; // frames of the stream that is written
    std::function<void(byte_view datagram)> on_rtcp;
};

class live_receiver
{
  public:
    // `config.session` must outlive the object. Throws std::bad_alloc without memory.
    live_receiver(const live_config &config, live_outputs outputs);

    // Each takes the time in milliseconds, which never decreases and is not 0.
    void receive_rtp(const udp_datagram &datagram, zeb_ts_t now);
    void receive_rtcp(byte_view datagram, zeb_ts_t now);

    // Runs what is due and returns when to call again, later than `now`.
    zeb_ts_t tick(zeb_ts_t now);

    // Whether a stream that is written has begun.
    bool has_stream() const
    {
        return chosen_.has_value();
    }

    // What became of that stream; the counts of a capture stay empty.
    replay_result describe() const;

    // RTP headers and padding of its packets, bytes.
    uint64_t header_bytes() const;

    // Streams besides it.
    size_t other_senders() const
    {
        return senders_.size() - (chosen_ ? 1 : 0);
    }

    uint64_t rtcp_malformed() const
    {
        return rtc_channel_rtcp_malformed(channel_);
    }

    // What came while no payload type looked like video, in words. Empty when one did, or was given.
    std::string no_video_reason() const;

  private:
    struct sender {
        stream_identity identity;
        uint64_t header_bytes = 0;
    };

    // A packet that came before it was known what it carries.
    struct early_packet {
        flow path;
        std::vector<uint8_t> bytes;
    };

    static void take_frame(void *context, const channel_frame *frame);
    static void take_rtcp(void *context, const uint8_t *datagram, size_t size);
    void find_payload_type(const udp_datagram &datagram, zeb_ts_t now);
    void settle_payload_type(uint8_t payload_type, zeb_ts_t now);
    void feed(const flow &path, byte_view packet, zeb_ts_t now);
    void note_sender(const flow &path, const rtp_view &view);
    const stream_report *report(uint32_t ssrc) const;
    uint64_t chosen_packets() const;

    live_config config_;
    live_outputs outputs_;
    std::unique_ptr<rtc_service, void (*)(rtc_service *)> service_;
    rtc_channel *channel_ = nullptr; // the service's
    bool is_searching_ = false;      // for the payload type
    rtp_finder finder_;
    std::deque<early_packet> early_;
    std::map<uint32_t, sender> senders_; // by SSRC
    std::optional<uint32_t> chosen_;     // the SSRC whose frames are written
    bool has_frame_ = false;             // of the chosen one, which stays chosen then
};

} // namespace vrc
