#include "blocks.h"

#include <algorithm>
#include <vector>

#include "owned_memory.h"
#include "user.h"

namespace simulation
{

namespace
{

using blocks = std::vector<const void *>;

void collect_held(const packet_hold &hold, blocks *owned)
{
    const list_head *head = &hold.packets.head;
    for (const list_head *node = head->next; node != head; node = node->next) {
        const PVideoData4 &video = reinterpret_cast<const held_packet *>(node)->video;
        owned->insert(owned->end(), {node, video.payload.values, video.extension.contents.values});
    }
}

// Streams have a record of the module and one of the client.
void collect_user(const user_state *user, blocks *owned)
{
    owned->push_back(user);
    for (const stream_state *state : user->streams) {
        if (state == nullptr) {
            continue;
        }
        owned->insert(owned->end(), {state, state->stream});
        fuzz::collect_owned(*state->stream, owned);
        collect_held(state->hold, owned);
        collect_held(state->stray, owned);
    }
}

// An estimator of the rate has an analyser of its own.
long count_analysers(const user_state *user)
{
    return std::count_if(std::begin(user->streams), std::end(user->streams), [](const stream_state *state) {
        return state != nullptr && state->stream->bcm_stat != nullptr;
    });
}

} // namespace

long count_blocks(const rtc_service &service, const rtc_channel *channel)
{
    blocks owned = {&service};
    long n_analysers = 0;
    if (channel != nullptr) {
        owned.push_back(channel);
        const list_head *head = &channel->state->users.head;
        for (const list_head *node = head->next; node != head; node = node->next) {
            const auto *user = reinterpret_cast<const user_state *>(node);
            collect_user(user, &owned);
            n_analysers += count_analysers(user);
        }
    }
    const auto n = std::count_if(owned.begin(), owned.end(), [](const void *block) { return block != nullptr; });
    return n + n_analysers + static_cast<long>(service.free_user_video_streams.count);
}

} // namespace simulation
