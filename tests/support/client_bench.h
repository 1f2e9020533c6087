// A client with one channel, packets in and frames out, and the time in the test's hands.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "api/channel.h"
#include "api/service.h"
#include "rtp_builder.h"

namespace client_bench
{

using rtp_builder::bytes;

// A frame as the application got it.
struct taken_frame {
    bytes data;
    uint8_t codec;
    bool is_key;
    uint32_t uid;
    uint8_t stream_id;
    uint32_t rtp_timestamp;
    uint32_t frame_seq;
    seq_t first_seq;
    seq_t last_seq;
};

// An RTCP datagram as it went out.
struct sent_datagram {
    zeb_ts_t at;
    bytes data;
};

class Client
{
  public:
    zeb_ts_t now = 1000000;
    rtc_service *service;
    rtc_channel *channel = nullptr;
    std::vector<taken_frame> frames;
    std::function<void()> during_frame; // runs inside the frame callback
    std::vector<sent_datagram> sent;    // RTCP

    explicit Client(bool estimates_downlink = false, const channel_feedback &feedback = {})
        : service(rtc_service_create())
    {
        channel_config config = {};
        config.name = "bench";
        config.enable_bandwidth_est_downlink = estimates_downlink;
        config.on_frame = &Client::on_frame;
        config.on_frame_context = this;
        config.feedback = feedback;
        config.on_rtcp = &Client::on_rtcp;
        config.on_rtcp_context = this;
        config.local_ssrc = 0x55667788;
        config.cname = "bench@test";
        channel = rtc_channel_create(service, &config);
        rtc_channel_set_payload_type(channel, 96, VIDEO_TYPE_H264);
    }
    ~Client()
    {
        rtc_service_destroy(service);
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int receive(const bytes &packet, bool is_retrans = false)
    {
        return rtc_channel_receive_rtp(channel, packet.data(), packet.size(), is_retrans, &now);
    }

    void receive(const rtp_builder::frame &frame)
    {
        for (const bytes &packet : frame.packets) {
            receive(packet);
        }
    }

    // All packets but those with the given indices.
    void receive_without(const rtp_builder::frame &frame, const std::vector<size_t> &missing)
    {
        for (size_t i = 0; i < frame.packets.size(); i++) {
            if (std::find(missing.begin(), missing.end(), i) == missing.end()) {
                receive(frame.packets[i]);
            }
        }
    }

    // Lets time pass, with the ticks that fall into it.
    void pass(zeb_ts_t milliseconds)
    {
        const zeb_ts_t end = now + milliseconds;
        while (now + kServiceTickInterval <= end) {
            now += kServiceTickInterval;
            rtc_service_tick(service, &now);
        }
        now = end;
    }

    user_video_stream *stream(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        return rtc_channel_find_stream(channel, uid, stream_id);
    }

    const stream_report &report(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        static const stream_report none = {};
        const stream_report *found = rtc_channel_stream_report(stream(uid, stream_id));
        return found == nullptr ? none : *found;
    }

    uint64_t refused(packet_drop_e reason) const
    {
        return rtc_channel_packets_refused(channel)[reason];
    }

    // The drops of a stream by name, such as "late=2 duplicate=1"; empty when there were none.
    std::string packet_drops(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        return drops(report(uid, stream_id).packets_dropped, PACKET_DROP_REASONS,
                     [](size_t reason) { return packet_drop_name(static_cast<packet_drop_e>(reason)); });
    }

    std::string frame_drops(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        return drops(report(uid, stream_id).frames_dropped, FRAME_DROP_REASONS,
                     [](size_t reason) { return frame_drop_name(static_cast<frame_drop_e>(reason)); });
    }

    std::string payload_faults(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        return drops(report(uid, stream_id).payload_faults, PAYLOAD_FAULTS,
                     [](size_t fault) { return payload_fault_name(static_cast<payload_fault_e>(fault)); });
    }

    std::string watchdogs(uint32_t uid = 0x11223344, uint8_t stream_id = 0)
    {
        return drops(report(uid, stream_id).watchdog, WATCHDOG_REASONS,
                     [](size_t reason) { return watchdog_name(static_cast<watchdog_e>(reason)); });
    }

    // RTP timestamps of the frames that came out, in order.
    std::vector<uint32_t> timestamps() const
    {
        std::vector<uint32_t> all;
        for (const taken_frame &frame : frames) {
            all.push_back(frame.rtp_timestamp);
        }
        return all;
    }

  private:
    template <typename Name> static std::string drops(const uint64_t *counts, size_t n, Name name)
    {
        std::string text;
        for (size_t i = 0; i < n; i++) {
            if (counts[i] != 0) {
                text += (text.empty() ? "" : " ") + std::string(name(i)) + "=" + std::to_string(counts[i]);
            }
        }
        return text;
    }

    static void on_rtcp(void *context, const uint8_t *datagram, size_t size)
    {
        auto *self = static_cast<Client *>(context);
        self->sent.push_back({self->now, bytes(datagram, datagram + size)});
    }

    static void on_frame(void *context, const channel_frame *frame)
    {
        auto *self = static_cast<Client *>(context);
        self->frames.push_back({bytes(frame->data, frame->data + frame->size), frame->codec, frame->is_key, frame->uid,
                                frame->stream_id, frame->rtp_timestamp, frame->frame_seq, frame->first_seq,
                                frame->last_seq});
        if (self->during_frame) {
            self->during_frame();
        }
    }
};

} // namespace client_bench
