// Watches for frames whose end was lost. Without it nothing shows such a loss until the next frame comes, which is as
// long as a picture lasts; so the packet behind the newest one is suspected when a frame's packets have always come closer
// together. Senders that do not mark the ends of their frames are left alone.
#pragma once

#include "arrival/reception.h"

constexpr uint8_t kFrameEndConfidence = 10; // frames in a row that ended with a marker
constexpr zeb_ts_t kFrameEndPlay = 4;       // ms on top of twice the time that packets were seen to come apart

// All zero: nothing has come.
struct frame_end_watch {
    bool is_open;        // the newest packet does not end its frame
    uint32_t newest;     // its number
    uint32_t timestamp;  // its RTP timestamp
    zeb_ts_t newest_at;  // when it came
    uint32_t spacing;    // ms that a frame's packets came apart, at the most, in this frame
    uint32_t spacing_8;  // the same in the frames before, eighths of a millisecond
    uint8_t marked_ends; // frames in a row that ended with a marker
};

// A packet came with the highest number so far. `is_answer`: it was asked for, so that its time says nothing.
void frame_end_watch_note(frame_end_watch *self, uint32_t number, const reception_packet *packet, bool is_answer,
                          zeb_ts_t now);

// When the next packet of the newest one's frame should have come; 0 when none is awaited.
zeb_ts_t frame_end_watch_due_at(const frame_end_watch *self);
