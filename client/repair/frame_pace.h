// How soon one picture of a stream follows another, by their RTP timestamps.
#pragma once

#include <cstdint>

// All zero: nothing is known.
struct frame_pace {
    bool has_last;
    uint32_t last;     // timestamp of the latest picture
    uint32_t n_pauses; // noted since the window began
    uint32_t shortest; // of this window, timestamp units
    bool has_past;
    uint32_t shortest_past; // of the window before
};

// A picture with that timestamp. `follows` when none is missing between it and the one before.
void frame_pace_note(frame_pace *self, uint32_t timestamp, bool follows);

// The shortest pause between the latest pictures, timestamp units. 0 while there were too few, and where pictures are
// not sent in the order of their timestamps.
uint32_t frame_pace_shortest(const frame_pace *self);
