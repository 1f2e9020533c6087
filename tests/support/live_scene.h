// A sender and a client that talk to each other in virtual time: a picture every 40 ms, requests that are answered a
// round trip later, and a judge of what comes out.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client_bench.h"
#include "wire/rtcp.h"

namespace live_scene
{

using client_bench::bytes;
using client_bench::Client;
using rtp_builder::frame;
using rtp_builder::nal_unit;

constexpr zeb_ts_t kFrameInterval = 40; // ms
constexpr zeb_ts_t kRoundTrip = 60;     // ms

inline channel_feedback agreed()
{
    channel_feedback feedback = {};
    feedback.nack = true;
    feedback.pli = true;
    feedback.reduced_size = true;
    feedback.give_up_early = true;
    return feedback;
}

// What came out since the last look.
struct outcome {
    size_t n_whole = 0;  // frames that came out as they were sent
    size_t n_wrong = 0;  // frames that were not sent so, or came out of order
    size_t n_broken = 0; // delta frames behind one of their stream that did not come out
    bool begins_with_key = false;
    zeb_ts_t first_at = 0;    // ms from the look's beginning to the first frame
    zeb_ts_t longest_gap = 0; // ms, from the frame before the look on
};

// Retransmissions come under this payload type and SSRC where a scene sends them so.
constexpr uint8_t kRtxType = 98;
constexpr uint32_t kRtxSsrc = 0x99AABBCC;

class Scene
{
  public:
    Client client;
    rtp_builder::Sender sender;
    uint8_t codec = VIDEO_TYPE_H264;
    size_t packets = 3;          // of a frame
    bool wants_key_frame = true; // the next frame is one
    bool answers_key_requests = true;
    bool answers_nack = true;
    bool sends_rtx = false;                  // answers so
    bool is_native = false;                  // packets come under the native numbering
    uint32_t frame_seq = 10;                 // of the next native frame
    std::function<bool(size_t index)> loses; // packet `index` of the frame about to be sent

    explicit Scene(bool estimates_downlink = false, const channel_feedback &feedback = agreed())
        : client(estimates_downlink, feedback)
    {
        sender.timestamp_step = 3600;
        rtc_channel_set_payload_type(client.channel, 97, VIDEO_TYPE_H265);
        rtc_channel_set_rtx(client.channel, kRtxType, 96);
        client.during_frame = [this] { out_at_.push_back(client.now); };
    }

    // Sends pictures for that long.
    void play(zeb_ts_t milliseconds)
    {
        const zeb_ts_t end = client.now + milliseconds;
        for (; client.now < end; client.pass(10)) {
            answer();
            if (client.now % kFrameInterval == 0) {
                send(wants_key_frame ? make_key() : make_delta());
            }
        }
    }

    // Says nothing for that long.
    void rest(zeb_ts_t milliseconds)
    {
        client.pass(milliseconds);
    }

    frame make_key()
    {
        wants_key_frame = false;
        if (codec == VIDEO_TYPE_H265) {
            return sender.raw_frame({h265_unit(32, 20), h265_unit(33, 30), h265_unit(34, 8), h265_unit(19, 700)}, true);
        }
        return sender.key_frame(packets + 2);
    }

    frame make_delta()
    {
        return codec == VIDEO_TYPE_H265 ? sender.raw_frame({h265_unit(1, 300)}, false) : sender.delta_frame(packets);
    }

    // Counts the frame as sent, whatever of it arrives.
    void note(const frame &made)
    {
        sent_[sender.ssrc].push_back(made);
        if (is_native) {
            sent_[sender.ssrc].back().timestamp = 0; // it is not given out
        }
        for (size_t i = 0; i < made.packets.size(); i++) {
            buffer_[key_of(sender.ssrc, static_cast<uint16_t>(made.first_seq + i))] = made.packets[i];
        }
    }

    void send(const frame &made)
    {
        note(made);
        for (size_t i = 0; i < made.packets.size(); i++) {
            if (!loses || !loses(i)) {
                deliver(made, i);
            }
        }
        frame_seq++;
    }

    void deliver(const frame &made, size_t index)
    {
        if (is_native) {
            deliver_native(made, static_cast<uint16_t>(index));
        } else {
            client.receive(made.packets[index]);
        }
    }

    // Answers what was asked for a round trip ago or longer. On the native path nothing is sent, and the count tells.
    void answer()
    {
        if (is_native && report().key_frame_requests > n_native_requests_) {
            wants_key_frame = wants_key_frame || answers_key_requests;
        }
        n_native_requests_ = report().key_frame_requests;
        for (; n_heard_ < client.sent.size() && client.sent[n_heard_].at + kRoundTrip <= client.now; n_heard_++) {
            const bytes datagram = client.sent[n_heard_].data;
            rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
            rtcp_item item;
            while (rtcp_next(&cursor, &item)) {
                if (item.kind == RTCP_ITEM_PLI) {
                    wants_key_frame = wants_key_frame || answers_key_requests;
                } else if (item.kind == RTCP_ITEM_NACK && answers_nack) {
                    resend(item.nack);
                }
            }
        }
    }

    const stream_report &report()
    {
        return client.report(sender.ssrc);
    }

    // The restarts of the sender's stream by name, such as "sequence_jump=1 pause=1".
    std::string restarts()
    {
        std::string text;
        for (size_t i = 0; i < RESTART_REASONS; i++) {
            if (report().restarts[i] != 0) {
                text += (text.empty() ? "" : " ") + std::string(restart_name(static_cast<restart_e>(i))) + "=" +
                        std::to_string(report().restarts[i]);
            }
        }
        return text;
    }

    // True when the sender's newest frame came out, as far as was looked at.
    bool is_up_to_date()
    {
        return next_[sender.ssrc] == sent_[sender.ssrc].size();
    }

    // Judges what came out since the last look, or since the beginning.
    outcome look()
    {
        outcome seen;
        for (; n_taken_ < client.frames.size(); n_taken_++) {
            judge(seen, client.frames[n_taken_], out_at_[n_taken_]);
        }
        looked_at_ = client.now;
        return seen;
    }

  private:
    static uint64_t key_of(uint32_t ssrc, uint16_t seq)
    {
        return static_cast<uint64_t>(ssrc) << 16 | seq;
    }

    bytes h265_unit(uint8_t type, size_t size)
    {
        bytes unit = nal_unit(0, size, salt_++);
        unit[0] = static_cast<uint8_t>(type << 1);
        unit[1] = 1;
        return unit;
    }

    // Without memory for them the packet has no payload or no words in its extension.
    void deliver_native(const frame &made, uint16_t index)
    {
        const bytes &packet = made.packets[index];
        PVideoData4 video = {};
        video.common.uid = sender.ssrc;
        video.common.seq = static_cast<uint16_t>(made.first_seq + index);
        video.header.frame_seq = frame_seq;
        video.header.n_pkts = static_cast<uint16_t>(made.packets.size());
        video.header.subseq = index;
        video.header.video_type = made.is_key ? 0x00 : 0x10;
        video.header.codec = codec;
        video.header.protocol_version = 10;
        video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
        if (video.payload.values != nullptr) {
            video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
            memcpy(video.payload.values, packet.data(), packet.size());
        }
        uint32_vector_t *words = &video.extension.contents;
        words->values = zeb_malloc_impl_dbg(2 * sizeof(uint32_t), __func__, __LINE__);
        words->count = words->allocated = words->values == nullptr ? 0 : 2;
        rtc_channel_receive_native(client.channel, &video, 0, false, &client.now);
    }

    void resend(const rtcp_nack &nack)
    {
        rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
        seq_t seq = 0;
        while (rtcp_nack_next(&cursor, &seq)) {
            const auto found = buffer_.find(key_of(nack.media_ssrc, seq));
            if (found != buffer_.end() && sends_rtx) {
                client.receive(rtp_builder::rtx_packet(found->second, {kRtxType, n_rtx_++, kRtxSsrc}));
            } else if (found != buffer_.end()) {
                client.receive(found->second, true);
            }
        }
    }

    // Senders are judged each by itself.
    void judge(outcome &seen, const client_bench::taken_frame &taken, zeb_ts_t at)
    {
        const std::vector<frame> &sent = sent_[taken.uid];
        size_t &next = next_[taken.uid];
        size_t place = next;
        while (place < sent.size() &&
               (sent[place].annexb != taken.data || sent[place].timestamp != taken.rtp_timestamp)) {
            place++;
        }
        if (place == sent.size()) {
            seen.n_wrong++;
            return;
        }
        seen.n_broken += !sent[place].is_key && place != next ? 1 : 0;
        next = place + 1;
        seen.begins_with_key = seen.n_whole == 0 ? sent[place].is_key : seen.begins_with_key;
        seen.first_at = seen.n_whole == 0 ? at - looked_at_ : seen.first_at;
        seen.n_whole++;
        if (last_out_at_ != 0) {
            seen.longest_gap = std::max(seen.longest_gap, at - last_out_at_);
        }
        last_out_at_ = at;
    }

    std::map<uint32_t, std::vector<frame>> sent_; // by SSRC
    std::map<uint64_t, bytes> buffer_;
    std::vector<zeb_ts_t> out_at_;
    uint32_t salt_ = 0;
    size_t n_heard_ = 0;
    size_t n_taken_ = 0;
    std::map<uint32_t, size_t> next_; // frame that is to come out next, by SSRC
    uint64_t n_native_requests_ = 0;
    uint16_t n_rtx_ = 0;
    zeb_ts_t last_out_at_ = 0;
    zeb_ts_t looked_at_ = client.now;
};

} // namespace live_scene
