#include "module/watchdog.h"

namespace
{

bool holds_nothing(const webrtc_video_cache_t *cache)
{
    return cache->pkt_arr == nullptr || cache->pkt_min_seq > UINT16_MAX;
}

const webrtc_video_frame_t *head_frame(const webrtc_video_cache_t *cache)
{
    return cache->pkt_arr[cache->pkt_min_seq % WEBRTC_VIDEO_RING_SLOTS].frm_ptr;
}

bool is_overdue_key_frame(const webrtc_video_frame_t *frame, zeb_ts_t now)
{
    return frame != nullptr && frame->is_key != 0 && frame->state < WEBRTC_VIDEO_FRM_COMPLETE &&
           now - frame->ts >= kWatchdogFramePatience;
}

} // namespace

void watchdog_look(watchdog *self, const webrtc_video_cache_t *cache, zeb_ts_t now)
{
    self->overdue_head = nullptr;
    if (!holds_nothing(cache) && is_overdue_key_frame(head_frame(cache), now)) {
        self->overdue_head = head_frame(cache);
    }
}

namespace
{

bool is_waiting_for_key_frame(const webrtc_video_cache_t *cache)
{
    return (cache->frm_flag & 1u) != 0;
}

void start_over(watchdog *self, const watchdog_progress *progress, zeb_ts_t now)
{
    self->n_packets = progress->n_packets;
    self->n_delivered = progress->n_delivered;
    self->stands_since = now;
}

// Silence is none of the cache's faults, nor is a sender that sends no key frame: what counts is that packets came
// in all that time, held or refused.
bool delivers_nothing(watchdog *self, const webrtc_video_cache_t *cache, const watchdog_progress *progress,
                      zeb_ts_t now)
{
    if (progress->n_packets == self->n_packets || progress->n_delivered != self->n_delivered ||
        self->stands_since == 0 || is_waiting_for_key_frame(cache)) {
        start_over(self, progress, now);
        return false;
    }
    return progress->last_packet_at >= self->stands_since + kWatchdogDeliveryPatience;
}

watchdog_e fault_find(const watchdog *self, const webrtc_video_cache_t *cache, bool is_nothing_delivered, zeb_ts_t now)
{
    if (cache->frm_cur_cnt > cache->pkt_cur_cnt) {
        return WATCHDOG_FRAMES_WITHOUT_PACKETS;
    }
    const bool holds_something = !holds_nothing(cache);
    if (holds_something && head_frame(cache) == nullptr) {
        return WATCHDOG_HEAD_WITHOUT_FRAME;
    }
    // The check drops an overdue head unless it mistakes it for the key frame to go on with; then it always will.
    if (holds_something && self->overdue_head != nullptr && head_frame(cache) == self->overdue_head &&
        is_overdue_key_frame(self->overdue_head, now)) {
        return WATCHDOG_KEY_FRAME_STUCK;
    }
    return is_nothing_delivered ? WATCHDOG_NOTHING_DELIVERED : WATCHDOG_REASONS;
}

} // namespace

watchdog_e watchdog_find(watchdog *self, const webrtc_video_cache_t *cache, const watchdog_progress *progress,
                         zeb_ts_t now)
{
    const bool is_nothing_delivered = delivers_nothing(self, cache, progress, now);
    const watchdog_e found = fault_find(self, cache, is_nothing_delivered, now);
    if (found != WATCHDOG_REASONS) {
        start_over(self, progress, now);
    }
    return found;
}
