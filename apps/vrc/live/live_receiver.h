// A receiver that lives in the present: packets come with the time, and feedback goes out.
#pragma once

#include <bitset>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "api/service.h"
#include "commands/replay.h"
#include "live/payload_type_search.h"
#include "sdp.h"

namespace vrc
{

// What the receiver is to take in. With a session the description says it, and `payload_type` and `codec` leave less of
// it in; else `payload_type`; without both the payload types whose packets look like `codec`.
struct live_config {
    const sdp_session *session = nullptr;
    size_t media_index = 0;
    std::optional<uint8_t> payload_type;
    uint8_t codec = 0;            // VIDEO_TYPE_H264, VIDEO_TYPE_H265; with a session also VIDEO_TYPE_UNKNOWN: all
    std::vector<rtx_mapping> rtx; // beside those of the session
    channel_feedback feedback = {};
    uint16_t max_senders = 0; // at a time, up to kSendersMax; 0: kChannelSendersDefault
};

// Where what it has to say goes. None of them may throw or call back.
struct live_outputs {
    std::function<void(const channel_frame &frame)> on_frame;       // of any sender
    std::function<void(uint32_t ssrc, byte_view datagram)> on_rtcp; // for the sender `ssrc`
};

// What became of one sender's packets; the counts of a capture, of decryption and of refused packets stay empty.
struct live_stream {
    replay_result received;
    uint64_t header_bytes = 0; // RTP headers and padding
};

// Senders whose own counts were given up for those of new ones.
struct silent_senders {
    uint64_t senders = 0; // one that came back is counted again
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t packets_lost = 0;
    uint64_t frames = 0;

    silent_senders &operator+=(const silent_senders &more);
};

constexpr size_t kSendersMax = 256; // that are told apart: a made-up SSRC for each packet must not fill the memory

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

    // When what came since wants it to be called, if sooner than it said; may be past.
    zeb_ts_t next_at() const
    {
        return rtc_service_next_at(service_.get());
    }

    // The senders of video, in the order in which they came. Of more than kSendersMax, those that are silent and sent least
    // are counted together.
    const std::vector<uint32_t> &senders() const
    {
        return order_;
    }

    live_stream describe(uint32_t ssrc) const;

    const silent_senders &others() const
    {
        return others_;
    }

    // A sender's counts; null for one that is not known, or put out for others after a silence.
    const stream_report *report(uint32_t ssrc) const;

    // Packets that did not even reach a stream, by reason.
    std::array<uint64_t, PACKET_DROP_REASONS> refused() const;

    uint64_t rtcp_malformed() const
    {
        return rtc_channel_rtcp_malformed(channel_);
    }

    // Null when the payload type is not searched for.
    const payload_type_search *search() const
    {
        return search_ ? &*search_ : nullptr;
    }

    // What came while no payload type looked like video, in words. Empty when one did, or was given.
    std::string no_video_reason() const;

  private:
    struct sender {
        stream_identity identity;
        uint64_t header_bytes = 0;
        stream_report last_report{}; // should the receiver forget it
    };

    // What came before one could tell what it is.
    struct early_datagram {
        bool is_rtcp;
        flow path;
        std::vector<uint8_t> bytes;
        zeb_ts_t came_at;
    };

    static void take_frame(void *context, const channel_frame *frame);
    static void take_rtcp(void *context, const uint8_t *datagram, size_t size);
    void payload_types_set();
    void keep_early(bool is_rtcp, const flow &path, byte_view datagram, zeb_ts_t now);
    bool is_type_known(byte_view packet) const;
    void find_payload_type(const udp_datagram &datagram, zeb_ts_t now);
    void take_payload_type(uint8_t payload_type, zeb_ts_t now);
    void feed_early(early_datagram early, zeb_ts_t at);
    void feed(const flow &path, byte_view packet, zeb_ts_t now);
    void feed_rtcp(byte_view datagram, zeb_ts_t now);
    bool note_sender(const flow &path, const rtp_view &view);
    bool make_room();
    void count_headers(const rtp_view &view);
    uint8_t codec_of(const stream_identity &identity) const;

    live_config config_;
    live_outputs outputs_;
    std::unique_ptr<rtc_service, void (*)(rtc_service *)> service_;
    rtc_channel *channel_ = nullptr;            // the service's
    std::optional<payload_type_search> search_; // without a description and a payload type
    std::bitset<128> known_types_;              // payload types that the channel knows, when it is searched for them
    bool is_type_found_ = false;
    std::deque<early_datagram> early_;      // of unknown types, and what came before the first one was found
    std::deque<early_datagram> early_rtcp_; // of senders whose RTP has not come
    std::map<uint32_t, sender> senders_;    // by SSRC
    std::vector<uint32_t> order_;
    silent_senders others_;
};

} // namespace vrc
