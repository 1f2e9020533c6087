#include "arrival/stray_packet.h"

#include "wire/packet.h"

namespace
{

packet_drop_e packet_drop(stream_state *state, PVideoData4 *video, packet_drop_e reason)
{
    video_data4_release(video);
    state->report.packets_dropped[reason] += 1;
    return reason;
}

} // namespace

packet_drop_e stray_packet_keep(stream_state *state, PVideoData4 *video, bool is_retrans)
{
    if (is_retrans) {
        return packet_drop(state, video, PACKET_DROP_LATE);
    }
    stray_packet_forget(state);
    held_packet packet = {};
    video_data4_take(&packet.video, video);
    if (!packet_hold_add(&state->stray, &packet)) {
        return packet_drop(state, &packet.video, PACKET_DROP_NO_MEMORY);
    }
    return PACKET_DROP_REASONS;
}

void stray_packet_forget(stream_state *state)
{
    state->report.packets_dropped[PACKET_DROP_LATE] += state->stray.packets.count;
    packet_hold_clear(&state->stray);
}
