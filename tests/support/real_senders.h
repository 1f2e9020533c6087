// What senders were seen to do: a browser behind a gateway that forwards its RTP, and GStreamer.
#pragma once

#include <map>
#include <random>
#include <vector>

#include "live_scene.h"

namespace real_senders
{

using client_bench::bytes;
using live_scene::kFrameInterval;
using live_scene::kRoundTrip;
using live_scene::Scene;
using rtp_builder::frame;
using rtp_builder::nal_unit;

// A key frame comes a round trip after it was asked for, at the next picture.
constexpr zeb_ts_t kAsked = kRoundTrip + 2 * kFrameInterval;

// ---- Beginnings ----

// Numbers anew at 1, with timestamps at 0.
inline void number_anew(Scene &scene, bool begins_with_key_frame)
{
    scene.sender.seq = 1;
    scene.sender.timestamp = 0;
    scene.wants_key_frame = begins_with_key_frame;
}

// Sends a key frame of which the first packets do not arrive.
inline void begin_within_key_frame(Scene &scene, size_t n_missing)
{
    scene.loses = [n_missing](size_t index) { return index < n_missing; };
    scene.send(scene.make_key());
    scene.loses = nullptr;
}

// ---- Frames without an end ----

struct OpenEnd {
    const char *what;
    size_t n_packets; // of the frame that breaks off
    size_t n_sent;    // of those
    bool is_key;      // the frame that breaks off
    bool next_is_key; // the frame behind it
    zeb_ts_t longest_gap;
};

// The frame is left out, and that it has no end shows at the next tick.
constexpr zeb_ts_t kNoticed = 2 * kFrameInterval + kServiceTickInterval;

inline const OpenEnd kOpenEnds[] = {
    {"DeltaThenKey", 4, 2, false, true, kNoticed},
    {"DeltaOfOnePacketThenKey", 4, 1, false, true, kNoticed},
    {"DeltaThenDelta", 4, 2, false, false, kAsked + 2 * kFrameInterval},
    {"KeyThenKey", 6, 4, true, true, kNoticed},
    {"KeyThenDelta", 6, 4, true, false, kAsked + 2 * kFrameInterval},
};

// The numbers go on without a hole, so nothing says that anything is missing.
inline void send_open_end(Scene &scene, const OpenEnd &row)
{
    frame open = row.is_key ? scene.sender.key_frame(row.n_packets) : scene.sender.delta_frame(row.n_packets);
    scene.sender.seq = static_cast<uint16_t>(open.first_seq + row.n_sent);
    open.packets.resize(row.n_sent);
    scene.send(open);
    scene.client.pass(kFrameInterval);
    scene.wants_key_frame = row.next_is_key;
}

// ---- Late repairs ----

// A path that loses packets, requests and repairs alike, and brings repairs late: 75 ms in the median, up to 260 ms,
// when the newest number is 43 ahead.
class LatePath
{
  public:
    LatePath(Scene &of, double loss, unsigned seed) : scene(of), loss_(loss), random_(seed)
    {
        scene.packets = 7;
        scene.answers_nack = false;
        scene.answers_key_requests = false;
    }

    Scene &scene;
    size_t farthest_behind = 0; // packets

    void play(zeb_ts_t milliseconds)
    {
        const zeb_ts_t end = scene.client.now + milliseconds;
        while (scene.client.now < end) {
            hear();
            deliver();
            if (scene.client.now % kFrameInterval == 0) {
                send();
            }
            scene.client.pass(10);
        }
    }

  private:
    bool is_lost()
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < loss_;
    }

    void send()
    {
        const frame made = scene.wants_key_frame ? scene.make_key() : scene.make_delta();
        scene.note(made);
        for (size_t i = 0; i < made.packets.size(); i++) {
            buffer_[static_cast<uint16_t>(made.first_seq + i)] = made.packets[i];
            if (!is_lost()) {
                scene.client.receive(made.packets[i]);
            }
        }
    }

    void hear()
    {
        static const zeb_ts_t delays[] = {40, 50, 60, 70, 75, 75, 80, 100, 150, 260};
        for (; n_heard_ < scene.client.sent.size(); n_heard_++) {
            if (is_lost()) {
                continue;
            }
            const bytes datagram = scene.client.sent[n_heard_].data;
            rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
            rtcp_item item;
            while (rtcp_next(&cursor, &item)) {
                if (item.kind == RTCP_ITEM_NACK) {
                    plan(item.nack, delays[random_() % 10]);
                }
                scene.wants_key_frame = scene.wants_key_frame || item.kind == RTCP_ITEM_PLI;
            }
        }
    }

    void plan(const rtcp_nack &nack, zeb_ts_t delay)
    {
        rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
        seq_t seq = 0;
        while (rtcp_nack_next(&cursor, &seq)) {
            if (buffer_.count(seq) != 0 && !is_lost()) {
                repairs_.emplace(scene.client.now + delay, seq);
            }
        }
    }

    void deliver()
    {
        while (!repairs_.empty() && repairs_.begin()->first <= scene.client.now) {
            const uint16_t seq = repairs_.begin()->second;
            repairs_.erase(repairs_.begin());
            const auto behind = static_cast<uint16_t>(scene.sender.seq - 1 - seq);
            farthest_behind = std::max<size_t>(farthest_behind, behind);
            scene.client.receive(buffer_[seq], true);
        }
    }

    double loss_;
    std::mt19937 random_;
    std::map<uint16_t, bytes> buffer_;
    std::multimap<zeb_ts_t, uint16_t> repairs_;
    size_t n_heard_ = 0;
};

// ---- Pictures of another size ----

// Parameter sets with the identifier 0 (RFC 6184 leaves that to H.264, 7.3.2: Exp-Golomb code 1).
inline bytes sps(size_t size, uint32_t salt)
{
    bytes unit = nal_unit(7, size, salt);
    unit[4] |= 0x80;
    return unit;
}

inline bytes pps(size_t size, uint32_t salt)
{
    bytes unit = nal_unit(8, size, salt);
    unit[1] |= 0xC0;
    return unit;
}

// A key frame with its parameter sets, each other than those of another salt.
inline frame sized_key_frame(Scene &scene, size_t sets_size, uint32_t salt)
{
    return scene.sender.raw_frame({sps(sets_size, salt), pps(sets_size / 2, salt), nal_unit(5, 400, 3)}, true);
}

// ---- Header extensions ----

// Puts an extension of one-byte elements (RFC 8285, 4.2) into a packet: an element of three bytes, one of two and a
// byte of padding in each eight.
inline bytes extended(const bytes &packet, size_t n_words)
{
    static const bytes words = {0x22, 1, 2, 3, 0x51, 4, 5, 0};
    bytes made(packet.begin(), packet.begin() + 12);
    made[0] |= 0x10;
    made.insert(made.end(), {0xBE, 0xDE, 0, static_cast<uint8_t>(n_words)});
    for (size_t i = 0; i < 4 * n_words; i++) {
        made.push_back(words[i % words.size()]);
    }
    made.insert(made.end(), packet.begin() + 12, packet.end());
    return made;
}

// Sends a picture with extensions on every packet; of some, a packet is lost.
inline void send_extended(Scene &scene, int i)
{
    frame made = i % 20 == 0 ? scene.make_key() : scene.make_delta();
    for (size_t k = 0; k < made.packets.size(); k++) {
        made.packets[k] = extended(made.packets[k], (static_cast<size_t>(i) + k) % 6);
    }
    scene.loses = [i](size_t index) { return i % 7 == 3 && index == 1; };
    scene.send(made);
    scene.loses = nullptr;
    scene.wants_key_frame = false;
    scene.client.pass(kFrameInterval);
    scene.answer();
}

} // namespace real_senders
