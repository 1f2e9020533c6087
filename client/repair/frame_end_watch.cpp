#include "repair/frame_end_watch.h"

namespace
{

constexpr zeb_ts_t kSpacingMax = 1000; // ms

// Rises at once and falls slowly: how close packets come depends on what the sender's host does beside, now and then.
void end_frame(frame_end_watch *self)
{
    const uint32_t spacing_8 = self->spacing * 8;
    const bool is_more = spacing_8 > self->spacing_8;
    self->spacing_8 = is_more ? spacing_8 : self->spacing_8 - (self->spacing_8 - spacing_8 + 127) / 128;
    self->spacing = 0;
}

void note_spacing(frame_end_watch *self, zeb_ts_t now)
{
    const zeb_ts_t since = now - self->newest_at;
    if (since > self->spacing) {
        self->spacing = static_cast<uint32_t>(since < kSpacingMax ? since : kSpacingMax);
    }
}

void note_media(frame_end_watch *self, const reception_packet *packet, bool follows, bool is_answer, zeb_ts_t now)
{
    const bool is_same_frame = packet->timestamp == self->timestamp;
    if (follows && self->is_open && !is_same_frame) {
        self->marked_ends = 0;
    } else if (follows && self->is_open && !is_answer) {
        note_spacing(self, now);
    }
    if (packet->has_marker) {
        const bool is_enough = self->marked_ends == kFrameEndConfidence;
        self->marked_ends = static_cast<uint8_t>(self->marked_ends + (is_enough ? 0 : 1));
        end_frame(self);
    }
    self->is_open = !packet->has_marker;
    self->timestamp = packet->timestamp;
}

} // namespace

void frame_end_watch_note(frame_end_watch *self, uint32_t number, const reception_packet *packet, bool is_answer,
                          zeb_ts_t now)
{
    // Padding stands behind a frame, or anywhere.
    if (packet->role != PACKET_ROLE_PADDING) {
        note_media(self, packet, number == self->newest + 1, is_answer, now);
    }
    self->newest = number;
    self->newest_at = now;
}

zeb_ts_t frame_end_watch_due_at(const frame_end_watch *self)
{
    if (!self->is_open || self->marked_ends < kFrameEndConfidence) {
        return 0;
    }
    const zeb_ts_t earlier = (self->spacing_8 + 7) / 8;
    const zeb_ts_t longest = self->spacing > earlier ? self->spacing : earlier;
    return self->newest_at + 2 * longest + kFrameEndPlay;
}
