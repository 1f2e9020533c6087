// What memory hangs from a service, by walking its records.
#pragma once

#include <cstddef>
#include <vector>

#include "owned_memory.h"
#include "session/user.h"

namespace fuzz
{

inline void collect_held(const packet_hold &hold, std::vector<const void *> *blocks)
{
    const list_head *head = &hold.packets.head;
    for (const list_head *node = head->next; node != head; node = node->next) {
        const PVideoData4 &video = reinterpret_cast<const held_packet *>(node)->video;
        blocks->insert(blocks->end(), {node, video.payload.values, video.extension.contents.values});
    }
}

// Returns how many streams the user has: each has a record of the module, and one of the client where there was memory
// for it.
inline size_t collect_user(const user_state &user, std::vector<const void *> *blocks)
{
    blocks->push_back(&user);
    size_t n_streams = 0;
    const list_head *head = &user.user.video_streams_q.head;
    for (const list_head *node = head->next; node != head; node = node->next, n_streams++) {
        blocks->push_back(node);
        collect_owned(*reinterpret_cast<const user_video_stream *>(node), blocks);
    }
    for (const stream_state *state : user.streams) {
        if (state != nullptr) {
            blocks->push_back(state);
            collect_held(state->hold, blocks);
            collect_held(state->stray, blocks);
        }
    }
    return n_streams;
}

inline void collect_pool(const rtc_service &service, std::vector<const void *> *blocks)
{
    const list_head *pool = &service.free_user_video_streams.head;
    for (const list_head *node = pool->next; node != pool; node = node->next) {
        blocks->push_back(node);
    }
}

} // namespace fuzz
