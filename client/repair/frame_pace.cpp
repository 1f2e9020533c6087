#include "repair/frame_pace.h"

namespace
{

constexpr uint32_t kWindow = 30; // pauses; a second or two of video
constexpr uint32_t kEnough = 8;  // of the very first ones, to go by

void note_pause(frame_pace *self, uint32_t pause)
{
    const bool goes_back = static_cast<int32_t>(pause) <= 0;
    const uint32_t counted = goes_back ? 0 : pause;
    if (self->n_pauses == kWindow) {
        self->has_past = true;
        self->shortest_past = self->shortest;
        self->n_pauses = 0;
    }
    self->shortest = self->n_pauses == 0 || counted < self->shortest ? counted : self->shortest;
    self->n_pauses += 1;
}

} // namespace

void frame_pace_note(frame_pace *self, uint32_t timestamp, bool follows)
{
    if (self->has_last && follows) {
        note_pause(self, timestamp - self->last);
    }
    self->has_last = true;
    self->last = timestamp;
}

uint32_t frame_pace_shortest(const frame_pace *self)
{
    if (!self->has_past) {
        return self->n_pauses < kEnough ? 0 : self->shortest;
    }
    return self->shortest < self->shortest_past ? self->shortest : self->shortest_past;
}
