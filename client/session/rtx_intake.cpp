#include "session/rtx_intake.h"

#include "session/user.h"
#include "wire/byte_order.h"

bool rtx_intake_is_rtx(const channel_state *channel, uint8_t payload_type)
{
    return channel->repeated_types[payload_type & 0x7F] != kNoPayloadType;
}

namespace
{

user_state *paired_sender(channel_state *channel, uint32_t rtx_ssrc)
{
    for (const ssrc_pair &pair : channel->ssrc_pairs) {
        if (pair.is_set && pair.rtx_ssrc == rtx_ssrc) {
            return channel_find_user(channel, pair.ssrc);
        }
    }
    return nullptr;
}

bool was_asked_for(const stream_state *state, seq_t seq)
{
    const missing_packet *missing = nack_list_find(&state->feedback.nacks, reception_number(&state->arrivals, seq));
    return !state->is_native && missing != nullptr && missing->tries > 0;
}

// The sender of the only stream that waits for a retransmission of that number.
user_state *asked_sender(channel_state *channel, seq_t seq)
{
    user_state *found = nullptr;
    list_head *head = &channel->users.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        auto *user = reinterpret_cast<user_state *>(node);
        const stream_state *state = user_find_stream(user, 0);
        if (state == nullptr || !was_asked_for(state, seq)) {
            continue;
        }
        if (found != nullptr) {
            return nullptr;
        }
        found = user;
    }
    return found;
}

} // namespace

user_state *rtx_intake_find_sender(channel_state *channel, const uint8_t *packet, const rtp_view *view)
{
    user_state *user = paired_sender(channel, view->ssrc);
    if (user != nullptr || view->payload_size < 2) {
        return user;
    }
    user = asked_sender(channel, be16_read(packet + view->header_size));
    if (user != nullptr) {
        rtc_channel_pair_ssrc(&channel->channel, user->uid, view->ssrc);
    }
    return user;
}
