// Senders that break off and go on in another way.
#pragma once

#include "arrival/packet_hold.h"
#include "live_scene.h"

namespace restarts
{

using live_scene::kFrameInterval;
using live_scene::kRoundTrip;
using live_scene::Scene;

constexpr zeb_ts_t kMinute = 60000;
constexpr uint32_t kHour = 3600u * 90000; // timestamp units

inline void h265(Scene &scene)
{
    scene.codec = VIDEO_TYPE_H265;
    scene.sender.payload_type = 97;
}

// What a sender does, and what comes of it.
struct restart {
    const char *what;
    void (*apply)(Scene &scene);
    bool begins_with_key_frame;
    zeb_ts_t first_within; // ms from the restart to the first frame that comes out; a key frame, unless at once
    const char *counted;
    bool rests = false; // for minutes, a tick every 10 ms
};

// A key frame comes a round trip after it was asked for, at the next picture; what was asked for late, later.
constexpr zeb_ts_t kAtOnce = 0;
// What may still come in front of a key frame behind a loss is waited for.
constexpr zeb_ts_t kHeld = kPacketHoldPatience;
constexpr zeb_ts_t kAsked = kRoundTrip + 2 * kFrameInterval;

inline const restart kRestarts[] = {
    {"NewSsrc", [](Scene &scene) { scene.sender.ssrc = 0xABCD0001; }, true, kAtOnce, "new_ssrc=1"},
    {"NewSsrcInMidstream", [](Scene &scene) { scene.sender.ssrc = 0xABCD0001; }, false, kAsked, "new_ssrc=1"},
    {"NumbersFarAhead", [](Scene &scene) { scene.sender.seq += 5000; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersHalfACircleOff", [](Scene &scene) { scene.sender.seq += 32768; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersFarBack", [](Scene &scene) { scene.sender.seq -= 5000; }, true, kAtOnce, "sequence_jump=1"},
    {"NumbersInMidstream", [](Scene &scene) { scene.sender.seq -= 5000; }, false, kAsked, "sequence_jump=1"},
    {"LongLoss", [](Scene &scene) { scene.sender.seq += 500; }, true, kHeld, "long_loss=1"},
    {"LongLossInMidstream", [](Scene &scene) { scene.sender.seq += 500; }, false, kAsked, "long_loss=1"},
    {"TimestampAhead", [](Scene &scene) { scene.sender.timestamp += kHour; }, true, kAtOnce, "timestamp_jump=1"},
    {"TimestampBack", [](Scene &scene) { scene.sender.timestamp -= kHour; }, true, kAtOnce, "timestamp_jump=1"},
    {"TimestampAheadInMidstream", [](Scene &scene) { scene.sender.timestamp += kHour; }, false, kAtOnce,
     "timestamp_jump=1"},
    {"TimestampBackInMidstream", [](Scene &scene) { scene.sender.timestamp -= kHour; }, false, kAtOnce,
     "timestamp_jump=1"},
    {"TimestampAtZero", [](Scene &scene) { scene.sender.timestamp = 0; }, false, kAtOnce, ""},
    {"PauseOfMinutes",
     [](Scene &scene) {
         scene.rest(3 * kMinute);
         scene.sender.timestamp += 3 * 60 * 90000;
     },
     false, kAtOnce, "pause=1", true},
    {"PauseOfAStandingClock", [](Scene &scene) { scene.rest(3 * kMinute); }, false, kAtOnce, "pause=1", true},
    {"PauseOfHours",
     [](Scene &scene) {
         scene.client.now += 10 * 60 * kMinute; // a device that slept
         scene.sender.timestamp += 10 * kHour;
     },
     false, kAtOnce, "pause=1"},
    {"PauseAndNewNumbers",
     [](Scene &scene) {
         scene.rest(2 * kMinute);
         scene.sender.seq += 20000;
         scene.sender.timestamp += 7 * kHour;
     },
     true, kAtOnce, "sequence_jump=1 timestamp_jump=1 pause=1", true},
    {"Codec", h265, true, kAtOnce, "codec_change=1"},
    {"CodecInMidstream", h265, false, kAsked, "codec_change=1"},
    {"CodecAndNumbers",
     [](Scene &scene) {
         h265(scene);
         scene.sender.seq += 7000;
         scene.sender.timestamp = 0x89ABCDEF;
     },
     true, kAtOnce, "sequence_jump=1 timestamp_jump=1 codec_change=1"},
    {"AllAnew",
     [](Scene &scene) {
         h265(scene);
         scene.sender.ssrc = 0xABCD0002;
         scene.sender.seq = 1;
         scene.sender.timestamp = 0;
     },
     true, kAtOnce, "new_ssrc=1"},
};

// Restarts the sender; what it sends next is to be played.
inline void begin_anew(Scene &scene, const restart &how)
{
    how.apply(scene);
    scene.wants_key_frame = how.begins_with_key_frame;
}

// Sends H.264 in even turns and H.265 in odd ones.
inline void change_codec(Scene &scene, int turn, zeb_ts_t milliseconds)
{
    scene.codec = turn % 2 == 0 ? VIDEO_TYPE_H264 : VIDEO_TYPE_H265;
    scene.sender.payload_type = turn % 2 == 0 ? 96 : 97;
    scene.wants_key_frame = true;
    scene.play(milliseconds);
}

// Goes on under the next SSRC.
inline void move_on(Scene &scene, zeb_ts_t milliseconds)
{
    scene.sender.ssrc += 1;
    scene.wants_key_frame = true;
    scene.play(milliseconds);
}

// The sender says that it leaves.
inline void bye(Scene &scene)
{
    client_bench::bytes datagram = {0x81, 203, 0, 1};
    rtp_builder::append_number(datagram, scene.sender.ssrc, 4);
    rtc_channel_receive_rtcp(scene.client.channel, datagram.data(), datagram.size(), &scene.client.now);
}

} // namespace restarts
