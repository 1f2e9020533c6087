#include "arrival/padding.h"

#include "repair/loss_policy.h"
#include "session/user.h"
#include "wire/byte_order.h"

namespace
{

constexpr uint32_t kProbeMax = 64;         // lost packets in a row; probes are shorter
constexpr uint8_t kUnansweredRequests = 3; // media would have been sent again

} // namespace

bool padding_is(const rtp_view *view)
{
    return view->payload_size == 0 && !view->marker;
}

// A frame of its own needs an end and a timestamp that neighbours do not have; it stays below that of the next picture.
void padding_shape(const stream_state *state, uint8_t *packet, const rtp_view *view)
{
    const uint32_t number = reception_number(&state->arrivals, view->seq);
    if (!reception_is_inside_frame(&state->arrivals, number, view->timestamp)) {
        packet[1] |= 0x80; // marker
        be32_write(packet + 4, view->timestamp + 1 + (view->seq & 0x3FF));
    }
}

namespace
{

// ---- Padding that is lost ----

bool is_unanswered(const stream_state *state, const missing_packet *missing)
{
    const nack_list *nacks = &state->feedback.nacks;
    if (state->stream->channel->state->feedback.nack) {
        return nack_list_is_unanswered(nacks, missing, kUnansweredRequests, state->now);
    }
    return state->now - missing->missing_since >= loss_policy_patience(nack_list_hold(nacks));
}

// The first packet that came behind `number`; null when that is too far away.
const reception_entry *first_behind(const reception *arrivals, uint32_t number)
{
    for (uint32_t i = 1; i <= kProbeMax; i++) {
        const reception_entry *entry = reception_find(arrivals, number + i);
        if (entry != nullptr) {
            return entry;
        }
    }
    return nullptr;
}

const reception_entry *last_media_before(const reception *arrivals, uint32_t number)
{
    for (uint32_t i = 1; i <= kProbeMax; i++) {
        const reception_entry *entry = reception_find(arrivals, number - i);
        if (entry == nullptr || entry->role != PACKET_ROLE_PADDING) {
            return entry;
        }
    }
    return nullptr;
}

// Whether nothing but padding fits between the end of the frame with that timestamp and `behind`.
bool follows_at_once(const stream_state *state, uint32_t timestamp, const reception_entry *behind)
{
    const uint32_t pause = behind->timestamp - timestamp;
    switch (behind->role) {
    case PACKET_ROLE_PADDING:
        return pause == 0;
    case PACKET_ROLE_UNIT_START:
    case PACKET_ROLE_LEAD:
    case PACKET_ROLE_FIRST_SLICE:
        break;
    case PACKET_ROLE_KEY_PART: // a parameter set may be what is missing
    case PACKET_ROLE_OTHER:
        return false;
    }
    const bool is_first = behind->role == PACKET_ROLE_UNIT_START || behind->role == state->rtp.usual_first_role;
    return is_first && pause > 0 && pause <= frame_pace_shortest(&state->rtp.pace);
}

} // namespace

bool padding_find_lost(const stream_state *state, padding_gap *gap)
{
    const missing_packet *missing = nack_list_oldest(&state->feedback.nacks);
    if (missing == nullptr || !is_unanswered(state, missing)) {
        return false;
    }
    const reception_entry *end = last_media_before(&state->arrivals, missing->number);
    const reception_entry *behind = first_behind(&state->arrivals, missing->number);
    if (end == nullptr || behind == nullptr || !end->has_marker || !follows_at_once(state, end->timestamp, behind)) {
        return false;
    }
    *gap = {missing->number, behind->number - 1, end->timestamp, missing->missing_since};
    return true;
}
