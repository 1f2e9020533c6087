#include "api/channel.h"

#include <cstring>

#include "api/service.h"
#include "path/native_intake.h"
#include "path/rtp_intake.h"
#include "repair/loss_watch.h"
#include "session/client_log.h"
#include "session/feedback.h"
#include "session/rtx_intake.h"
#include "session/user.h"
#include "wire/packet.h"
#include "wire/rtcp.h"
#include "wire/rtx.h"

namespace
{

constexpr zeb_ts_t kRefusalLogInterval = 1000; // milliseconds

// ---- Life ----

void name_copy(rtc_channel *channel, const char *name)
{
    if (name != nullptr) {
        strncpy(channel->name_id, name, RTC_CHANNEL_NAME_SIZE - 1);
    }
}

void feedback_set_up(channel_state *state, const channel_config *config)
{
    state->feedback = config->feedback;
    state->on_rtcp = config->on_rtcp;
    state->on_rtcp_context = config->on_rtcp_context;
    state->local_ssrc = config->local_ssrc;
    if (config->cname != nullptr) {
        state->cname_size = strnlen(config->cname, kChannelCnameMax);
        memcpy(state->cname, config->cname, state->cname_size);
    }
}

} // namespace

rtc_channel *rtc_channel_create(rtc_service *service, const channel_config *config)
{
    if (service == nullptr || service->state == nullptr || config == nullptr) {
        return nullptr;
    }
    auto *state = static_cast<channel_state *>(zeb_malloc_impl_dbg(sizeof(channel_state), __func__, __LINE__));
    if (state == nullptr) {
        return nullptr;
    }
    memset(state, 0, sizeof *state);
    memset(state->codecs, VIDEO_TYPE_UNKNOWN, sizeof state->codecs);
    memset(state->repeated_types, kNoPayloadType, sizeof state->repeated_types);
    rtc_list_init(&state->users);
    state->on_frame = config->on_frame;
    state->on_frame_context = config->on_frame_context;
    state->max_senders = config->max_senders != 0 ? config->max_senders : kChannelSendersDefault;
    feedback_set_up(state, config);
    rtc_channel *channel = &state->channel;
    name_copy(channel, config->name);
    channel->service = service;
    rtc_list_init(&channel->video_stream_q);
    channel->bandwidth_est_opt.enable_bandwidth_est_downlink = config->enable_bandwidth_est_downlink;
    channel->state = state;
    rtc_list_add_tail(&service->state->channels, &state->node);
    return channel;
}

void channel_free(channel_state *channel)
{
    while (channel->users.count > 0) {
        user_destroy(channel, reinterpret_cast<user_state *>(channel->users.head.next));
    }
    service_video_streams_cleanup(channel->channel.service, &channel->channel.video_stream_q, true);
    zeb_free_impl(channel);
}

void rtc_channel_destroy(rtc_channel *channel)
{
    if (channel == nullptr || channel->state == nullptr || service_is_in_callback(channel->service)) {
        return;
    }
    rtc_list_del(&channel->service->state->channels, &channel->state->node);
    channel_free(channel->state);
}

void rtc_channel_set_payload_type(rtc_channel *channel, uint8_t payload_type, uint8_t codec)
{
    if (channel == nullptr || channel->state == nullptr) {
        return;
    }
    const bool is_known = codec == VIDEO_TYPE_H264 || codec == VIDEO_TYPE_H265;
    channel->state->codecs[payload_type & 0x7F] = is_known ? codec : static_cast<uint8_t>(VIDEO_TYPE_UNKNOWN);
}

void rtc_channel_set_rtx(rtc_channel *channel, uint8_t rtx_payload_type, uint8_t payload_type)
{
    if (channel != nullptr && channel->state != nullptr) {
        channel->state->repeated_types[rtx_payload_type & 0x7F] = payload_type & 0x7F;
    }
}

namespace
{

// The place of a pair of that sender, a free one, or the one that was set first.
ssrc_pair *pair_place(channel_state *state, uint32_t ssrc)
{
    ssrc_pair *free_place = nullptr;
    for (ssrc_pair &pair : state->ssrc_pairs) {
        if (pair.is_set && pair.ssrc == ssrc) {
            return &pair;
        }
        if (!pair.is_set && free_place == nullptr) {
            free_place = &pair;
        }
    }
    if (free_place == nullptr) {
        free_place = &state->ssrc_pairs[state->next_ssrc_pair];
        state->next_ssrc_pair = static_cast<uint8_t>((state->next_ssrc_pair + 1) % kSsrcPairsMax);
    }
    return free_place;
}

} // namespace

void rtc_channel_pair_ssrc(rtc_channel *channel, uint32_t ssrc, uint32_t rtx_ssrc)
{
    if (channel != nullptr && channel->state != nullptr) {
        *pair_place(channel->state, ssrc) = {true, ssrc, rtx_ssrc};
    }
}

void rtc_channel_set_parameter_set(rtc_channel *channel, uint8_t codec, const uint8_t *nal, size_t size)
{
    if (channel != nullptr && channel->state != nullptr) {
        parameter_sets_describe(&channel->state->described_sets, codec, nal, size);
    }
}

namespace
{

// ---- The door ----

int packet_refuse(channel_state *channel, packet_drop_e reason, zeb_ts_t now)
{
    channel->refused[reason] += 1;
    if (now < channel->next_refusal_log_at) {
        channel->refusals_not_logged += 1;
        return -1;
    }
    CLIENT_LOG(LM_CHANNEL, RTC_LOG_WARNING, "[%s] packet refused: %s, %llu more since the last such line",
               channel->channel.name_id, packet_drop_name(reason),
               static_cast<unsigned long long>(channel->refusals_not_logged));
    channel->next_refusal_log_at = now + kRefusalLogInterval;
    channel->refusals_not_logged = 0;
    return -1;
}

bool may_receive(const rtc_channel *channel, const zeb_ts_t *now_p)
{
    return channel != nullptr && channel->state != nullptr && now_p != nullptr &&
           !service_is_in_callback(channel->service);
}

// The stream's path is the one that its first packet took; the two number differently and cannot be mixed.
bool is_on_path(stream_state *state, bool is_native)
{
    if (state->report.packets == 0) {
        state->is_native = is_native;
    }
    return state->is_native == is_native;
}

int intake_finish(stream_state *state, packet_drop_e result, const zeb_ts_t *now_p)
{
    stream_state_ask(state, now_p);
    return result == PACKET_DROP_REASONS ? 0 : -1;
}

int receive_media(channel_state *self, const uint8_t *packet, const rtp_view *view, size_t received_size,
                  bool is_retrans, const zeb_ts_t *now_p)
{
    const uint8_t codec = self->codecs[view->payload_type];
    if (codec == VIDEO_TYPE_UNKNOWN) {
        return packet_refuse(self, PACKET_DROP_UNKNOWN_PAYLOAD_TYPE, *now_p);
    }
    packet_drop_e reason = PACKET_DROP_REASONS;
    stream_state *state = channel_admit_stream(self, view->ssrc, 0, now_p, &reason);
    if (state == nullptr) {
        return packet_refuse(self, reason, *now_p);
    }
    if (!is_on_path(state, false)) {
        return packet_refuse(self, PACKET_DROP_WRONG_PATH, *now_p);
    }
    state->now = *now_p;
    return intake_finish(state, rtp_intake_take(state, packet, view, received_size, codec, is_retrans, now_p), now_p);
}

// What a retransmission repeats is taken in as if it had come itself. One that repeats nothing was sent to probe the path.
int receive_rtx(channel_state *self, const uint8_t *packet, size_t size, const rtp_view *view, const zeb_ts_t *now_p)
{
    const user_state *sender = rtx_intake_find_sender(self, packet, view);
    if (sender == nullptr) {
        return packet_refuse(self, PACKET_DROP_UNPAIRED_RETRANSMISSION, *now_p);
    }
    auto *original = static_cast<uint8_t *>(zeb_malloc_impl_dbg(size, __func__, __LINE__));
    if (original == nullptr) {
        return packet_refuse(self, PACKET_DROP_NO_MEMORY, *now_p);
    }
    size_t original_size = 0;
    const uint8_t payload_type = self->repeated_types[view->payload_type];
    const rtx_result result = rtx_restore(packet, size, payload_type, sender->uid, original, size, &original_size);
    int taken = result == RTX_PADDING_ONLY ? 0 : -1;
    rtp_view original_view;
    if (result == RTX_RESTORED && rtp_parse(original, original_size, &original_view) == PACKET_DROP_REASONS) {
        taken = receive_media(self, original, &original_view, size, true, now_p);
    } else if (result != RTX_PADDING_ONLY) {
        packet_refuse(self, PACKET_DROP_BAD_HEADER, *now_p);
    }
    zeb_free_impl(original);
    return taken;
}

} // namespace

int rtc_channel_receive_rtp(rtc_channel *channel, const uint8_t *packet, size_t size, bool is_retrans,
                            const zeb_ts_t *now_p)
{
    if (!may_receive(channel, now_p)) {
        return -1;
    }
    rtp_view view;
    const packet_drop_e reason = rtp_parse(packet, packet == nullptr ? 0 : size, &view);
    if (reason != PACKET_DROP_REASONS) {
        return packet_refuse(channel->state, reason, *now_p);
    }
    if (rtx_intake_is_rtx(channel->state, view.payload_type)) {
        return receive_rtx(channel->state, packet, size, &view, now_p);
    }
    return receive_media(channel->state, packet, &view, size, is_retrans, now_p);
}

namespace
{

int receive_native(channel_state *self, PVideoData4 *video, uint8_t stream_id, bool is_retrans, const zeb_ts_t *now_p)
{
    rtp_view view;
    packet_drop_e reason = native_intake_check(video, &view);
    if (reason != PACKET_DROP_REASONS) {
        return packet_refuse(self, reason, *now_p);
    }
    stream_state *state = channel_admit_stream(self, video->common.uid, stream_id, now_p, &reason);
    if (state == nullptr) {
        return packet_refuse(self, reason, *now_p);
    }
    if (!is_on_path(state, true)) {
        return packet_refuse(self, PACKET_DROP_WRONG_PATH, *now_p);
    }
    state->now = *now_p;
    return intake_finish(state, native_intake_take(state, video, &view, is_retrans, now_p), now_p);
}

} // namespace

int rtc_channel_receive_native(rtc_channel *channel, PVideoData4 *video, uint8_t stream_id, bool is_retrans,
                               const zeb_ts_t *now_p)
{
    if (video == nullptr) {
        return -1;
    }
    int result = -1;
    if (may_receive(channel, now_p)) {
        result = receive_native(channel->state, video, stream_id, is_retrans, now_p);
    }
    video_data4_release(video);
    return result;
}

int rtc_channel_receive_rtcp(rtc_channel *channel, const uint8_t *datagram, size_t size, const zeb_ts_t *now_p)
{
    if (!may_receive(channel, now_p)) {
        return -1;
    }
    if (datagram == nullptr || !rtcp_validate(datagram, size)) {
        channel->state->rtcp_malformed += 1;
        return -1;
    }
    feedback_take_rtcp(channel->state, datagram, size, *now_p);
    return 0;
}

// ---- Looking ----

user_video_stream *rtc_channel_find_stream(rtc_channel *channel, uint32_t uid, uint8_t stream_id)
{
    if (channel == nullptr || channel->state == nullptr) {
        return nullptr;
    }
    user_state *user = channel_find_user(channel->state, uid);
    return user == nullptr ? nullptr : video_streams_find_video_stream(&user->user.video_streams_q, stream_id);
}

const stream_report *rtc_channel_stream_report(const user_video_stream *stream)
{
    const stream_state *state = stream_state_of(stream);
    return state == nullptr ? nullptr : &state->report;
}

uint64_t rtc_channel_rtcp_malformed(const rtc_channel *channel)
{
    return channel == nullptr || channel->state == nullptr ? 0 : channel->state->rtcp_malformed;
}

const uint64_t *rtc_channel_packets_refused(const rtc_channel *channel)
{
    return channel == nullptr || channel->state == nullptr ? nullptr : channel->state->refused;
}

namespace
{

// ---- The tick ----

void stream_tick(stream_state *state, const zeb_ts_t *now_p)
{
    state->now = *now_p;
    if (state->is_native) {
        native_delivery_run(state, now_p);
    } else {
        rtp_intake_tick(state, now_p);
    }
    video_stream_check_send_goodbad_pic(state->stream, now_p);
    stream_state_ask(state, now_p);
    feedback_tick(state, *now_p);
    stream_seconds_tick(state, *now_p);
}

zeb_ts_t sooner(zeb_ts_t one, zeb_ts_t other)
{
    return one < other ? one : other;
}

} // namespace

zeb_ts_t channel_next_at(const channel_state *channel)
{
    zeb_ts_t next_at = kServiceNever;
    const list_head *head = &channel->users.head;
    for (const list_head *node = head->next; node != head; node = node->next) {
        for (const stream_state *state : reinterpret_cast<const user_state *>(node)->streams) {
            if (state != nullptr) {
                next_at = sooner(next_at, sooner(feedback_next_at(state), loss_watch_next_at(state)));
            }
        }
    }
    return next_at;
}

zeb_ts_t channel_tick(channel_state *channel, const zeb_ts_t *now_p)
{
    list_head *head = &channel->users.head;
    for (list_head *node = head->next; node != head; node = node->next) {
        for (stream_state *state : reinterpret_cast<user_state *>(node)->streams) {
            if (state != nullptr) {
                stream_tick(state, now_p);
            }
        }
    }
    const zeb_ts_t next_at = sooner(*now_p + kServiceTickInterval, channel_next_at(channel));
    return next_at > *now_p ? next_at : *now_p + 1;
}
