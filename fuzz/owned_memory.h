// What memory hangs from a stream, by walking its records.
#pragma once

#include <vector>

#include "video_stream.h"

namespace fuzz
{

inline void collect_queue(const rtc_video_frames_t &queue, std::vector<const void *> *blocks)
{
    for (const video_frame &frame : queue.video_frames) {
        if (frame.n_pkts_total == 0) {
            continue;
        }
        blocks->push_back(frame.pkts);
        blocks->push_back(frame.pkts_status);
        for (size_t i = 0; i < frame.n_pkts_total; i++) {
            if (frame.pkts[i].values != nullptr) {
                blocks->push_back(frame.pkts[i].values);
            }
        }
    }
}

inline int collect_frame(zeb_rb_node *node, void *blocks)
{
    auto *frame = reinterpret_cast<webrtc_video_frame_t *>(node);
    static_cast<std::vector<const void *> *>(blocks)->push_back(frame);
    static_cast<std::vector<const void *> *>(blocks)->push_back(frame->pkts.values);
    return 0;
}

inline void collect_cache(const webrtc_video_cache_t &cache, std::vector<const void *> *blocks)
{
    zeb_rb_traverse_ldr(const_cast<zeb_rb_root *>(&cache.frm_map), collect_frame, blocks);
    blocks->push_back(cache.pkt_arr);
    for (size_t i = 0; cache.pkt_arr != nullptr && i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        if (cache.pkt_arr[i].video.payload.values != nullptr) {
            blocks->push_back(cache.pkt_arr[i].video.payload.values);
        }
    }
}

// The blocks that the stream owns, its own record left out. May contain nulls.
inline void collect_owned(const user_video_stream &stream, std::vector<const void *> *blocks)
{
    collect_queue(stream.video_frames_q, blocks);
    collect_cache(stream.video_cache_q, blocks);
    blocks->push_back(stream.current_net_rcv_quality);
    blocks->push_back(stream.old_net_rcv_quality);
    blocks->push_back(stream.bcm_stat);
    if (stream.bcm_stat != nullptr) {
        blocks->push_back(stream.bcm_stat->estimator);
    }
}

} // namespace fuzz
