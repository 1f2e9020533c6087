#include "session/user.h"

#include <cstring>

#include "session/client_log.h"

// ---- Requests to the sender ----

void webrtc_video_send_intra_request(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    (void)now_p;
    stream_state *state = video_cache == nullptr ? nullptr : stream_state_of(video_cache->stream);
    if (state != nullptr) {
        state->report.key_frame_requests += 1;
        feedback_ask_key_frame(state, state->now);
    }
}

void webrtc_user_send_video_rexfer_req(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    (void)now_p;
    stream_state *state = video_cache == nullptr ? nullptr : stream_state_of(video_cache->stream);
    if (state != nullptr) {
        state->report.retransmission_requests += 1;
        feedback_ask_retransmissions(state, state->now);
    }
}

// ---- Users ----

user_state *channel_find_user(channel_state *channel, uint32_t uid)
{
    list_head *head = &channel->users.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        auto *user = reinterpret_cast<user_state *>(node);
        if (user->uid == uid) {
            return user;
        }
    }
    return nullptr;
}

namespace
{

user_state *user_find_most_silent(channel_state *channel)
{
    user_state *found = nullptr;
    list_head *head = &channel->users.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        auto *user = reinterpret_cast<user_state *>(node);
        if (found == nullptr || user->last_packet_at < found->last_packet_at) {
            found = user;
        }
    }
    return found;
}

user_state *user_create(channel_state *channel, uint32_t uid)
{
    auto *user = static_cast<user_state *>(zeb_malloc_impl_dbg(sizeof(user_state), __func__, __LINE__));
    if (user == nullptr) {
        return nullptr;
    }
    memset(user, 0, sizeof *user);
    rtc_list_init(&user->user.video_streams_q);
    user->user.state = user;
    user->uid = uid;
    rtc_list_add_tail(&channel->users, &user->node);
    return user;
}

} // namespace

void user_destroy(channel_state *channel, user_state *user)
{
    rtc_list_del(&channel->users, &user->node);
    service_video_streams_cleanup(channel->channel.service, &user->user.video_streams_q, true);
    for (stream_state *state : user->streams) {
        stream_state_free(state);
    }
    zeb_free_impl(user);
}

namespace
{

bool make_room(channel_state *channel, zeb_ts_t now)
{
    if (channel->users.count < channel->max_senders) {
        return true;
    }
    user_state *silent = user_find_most_silent(channel);
    if (silent == nullptr || now - silent->last_packet_at < kUserSilence) {
        return false;
    }
    CLIENT_LOG(LM_USER, RTC_LOG_INFO, "[%s] user %u put out for a new one", channel->channel.name_id, silent->uid);
    user_destroy(channel, silent);
    return true;
}

user_state *user_admit(channel_state *channel, uint32_t uid, zeb_ts_t now, packet_drop_e *reason)
{
    user_state *user = channel_find_user(channel, uid);
    if (user != nullptr) {
        return user;
    }
    if (!make_room(channel, now)) {
        *reason = PACKET_DROP_TOO_MANY_SENDERS;
        return nullptr;
    }
    *reason = PACKET_DROP_NO_MEMORY;
    return user_create(channel, uid);
}

// ---- Streams ----

// The module ends the process when it gets no memory for a new stream's statistics. They are made in front of it, so that
// a stream without is refused.
user_video_stream *stream_create(channel_state *self, rtc_user *user, uint8_t stream_id, const zeb_ts_t *now_p)
{
    rtc_channel *channel = &self->channel;
    bool &is_estimated = channel->bandwidth_est_opt.enable_bandwidth_est_downlink;
    const bool was_estimated = is_estimated;
    const bool wants_statistics = is_estimated && stream_id == 0;
    const KelvraBcmStatisticsConfig config = {};
    KelvraBcmStatistics *statistics = wants_statistics ? KelvraBcmStat_Create(&config) : nullptr;
    if (wants_statistics && statistics == nullptr) {
        return nullptr;
    }
    is_estimated = false;
    user_video_stream *stream = service_video_streams_get_video_stream(channel->service, user, channel,
                                                                       &user->video_streams_q, stream_id, 1, now_p);
    is_estimated = was_estimated;
    if (stream == nullptr) {
        KelvraBcmStat_Destroy(statistics);
    } else if (statistics != nullptr) {
        statistics->stream = stream;
        stream->bcm_stat = statistics;
    }
    return stream;
}

} // namespace

stream_state *user_find_stream(user_state *user, uint8_t stream_id)
{
    for (stream_state *state : user->streams) {
        if (state != nullptr && state->stream->stream_id == stream_id) {
            return state;
        }
    }
    return nullptr;
}

stream_state *channel_admit_stream(channel_state *channel, uint32_t uid, uint8_t stream_id, const zeb_ts_t *now_p,
                                   packet_drop_e *reason)
{
    user_state *user = user_admit(channel, uid, *now_p, reason);
    if (user == nullptr) {
        return nullptr;
    }
    user->last_packet_at = *now_p;
    stream_state *known = user_find_stream(user, stream_id);
    if (known != nullptr) {
        return known;
    }
    rtc_list_t *streams = &user->user.video_streams_q;
    user_video_stream *stream = video_streams_find_video_stream(streams, stream_id);
    if (stream == nullptr && streams->count >= kUserStreamsMax) {
        *reason = PACKET_DROP_TOO_MANY_SENDERS;
        return nullptr;
    }
    *reason = PACKET_DROP_NO_MEMORY;
    stream = stream != nullptr ? stream : stream_create(channel, &user->user, stream_id, now_p);
    if (stream == nullptr) {
        return nullptr;
    }
    // Its creation was announced, but there may have been no memory for its record then.
    stream_state *state = stream_state_of(stream);
    return state != nullptr ? state : stream_state_attach(stream);
}

void channel_on_video_stream_created(rtc_channel *channel, user_video_stream *stream)
{
    (void)channel;
    stream_state_attach(stream);
}
