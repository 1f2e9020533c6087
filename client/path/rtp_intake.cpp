#include "path/rtp_intake.h"

#include <cstring>

#include "arrival/padding.h"
#include "arrival/stray_packet.h"
#include "codec/annexb.h"
#include "codec/nal.h"
#include "module/cache_time.h"
#include "path/frame_output.h"
#include "repair/loss_watch.h"
#include "session/client_log.h"
#include "session/user.h"
#include "stats/stream_counters.h"
#include "wire/byte_order.h"

namespace
{

constexpr uint32_t kTicksPerMillisecond = 90; // RFC 6184 and RFC 7798: a 90 kHz clock
constexpr uint8_t kProtocolVersion = 10;      // the first whose payloads are not generic

// ---- From bytes to a packet record ----

// Copies the packet without its padding, which the module does not know, and with the room behind it that its NAL units
// need. False without memory.
bool payload_copy(const stream_state *state, rtn_bytes_t *payload, const uint8_t *packet, const rtp_view *view)
{
    const size_t copied = view->header_size + view->payload_size;
    const size_t room =
        annexb_room_appended(state->stream->codec, packet + view->header_size, view->payload_size, UINT16_MAX - copied);
    const size_t size = copied + room;
    auto *bytes = static_cast<uint8_t *>(zeb_malloc_impl_dbg(size, __func__, __LINE__));
    if (bytes == nullptr) {
        return false;
    }
    memcpy(bytes, packet, copied);
    memset(bytes + copied, 0, room);
    bytes[0] &= 0xDF; // padding bit
    if (padding_is(view)) {
        padding_shape(state, bytes, view);
    }
    payload->values = bytes;
    payload->count = payload->allocated = static_cast<uint16_t>(size);
    return true;
}

uint16_t sent_ts(const rtp_view *view)
{
    return static_cast<uint16_t>(view->timestamp / kTicksPerMillisecond);
}

void frame_type_set(PVideoData4 *video, unsigned frame_type)
{
    video3_video_type type = {video->header.video_type};
    type.frame_type = frame_type & 0xFu;
    video->header.video_type = type.video_type;
}

bool video_make(const stream_state *state, PVideoData4 *video, const uint8_t *packet, const rtp_view *view, bool is_key)
{
    const uint8_t codec = state->stream->codec;
    memset(video, 0, sizeof *video);
    if (!payload_copy(state, &video->payload, packet, view)) {
        return false;
    }
    frame_type_set(video, is_key ? KEY_FRAME : DELTA_FRAME);
    video->common.uid = view->ssrc;
    video->common.seq = view->seq;
    video->common.sent_ts = sent_ts(view);
    video->header.codec = codec;
    video->header.protocol_version = kProtocolVersion;
    return true;
}

void video_release(PVideoData4 *video)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->payload);
}

// ---- The reorder cache's view of a packet ----

bool is_waiting_for_key_frame(const webrtc_video_cache_t *cache)
{
    // Before its ring is there the cache waits as well.
    return (cache->frm_flag & 1u) != 0;
}

const webrtc_video_packet_t *slot_of(const webrtc_video_cache_t *cache, seq_t seq)
{
    if (cache->pkt_arr == nullptr) {
        return nullptr;
    }
    const webrtc_video_packet_t *slot = &cache->pkt_arr[seq % WEBRTC_VIDEO_RING_SLOTS];
    return slot->state == WEBRTC_VIDEO_PKT_SET && slot->pkt_seq == seq ? slot : nullptr;
}

// Why the cache is going to refuse the packet, by its own rules. What it refuses for none of them it has no memory for.
packet_drop_e refusal_of(const webrtc_video_cache_t *cache, const PVideoData4 *video)
{
    if (is_waiting_for_key_frame(cache) && __is_key_frame(video->header.video_type) == 0) {
        return PACKET_DROP_WAITING_FOR_KEY_FRAME;
    }
    if (slot_of(cache, video->common.seq) != nullptr) {
        return PACKET_DROP_DUPLICATE;
    }
    if (cache->pkt_exp_seq <= UINT16_MAX &&
        zeb_uint16_after(static_cast<uint16_t>(cache->pkt_exp_seq), video->common.seq) != 0) {
        return PACKET_DROP_LATE;
    }
    return PACKET_DROP_NO_MEMORY;
}

void count_no_memory(stream_state *state, uint32_t number)
{
    state->report.packets_dropped[PACKET_DROP_NO_MEMORY] += 1;
    reception_forget(&state->arrivals, &state->report, number);
}

// The number that the sender gave the packet.
uint32_t outer_number(const stream_state *state, const PVideoData4 *video)
{
    return reception_number(&state->arrivals, be16_read(static_cast<const uint8_t *>(video->payload.values) + 2));
}

// Only what the cache takes teaches parameter sets, and before it comes out: its frame, or one behind it, may need them.
void sets_note(stream_state *state, const PVideoData4 *video)
{
    const auto *bytes = static_cast<const uint8_t *>(video->payload.values);
    rtp_view view;
    if (rtp_parse(bytes, video->payload.count, &view) == PACKET_DROP_REASONS) {
        parameter_sets_note_payload(&state->sets, video->header.codec, bytes + view.header_size, view.payload_size,
                                    stream_state_inner_number(state, video->common.seq));
    }
}

// Gives the packet to the cache, which may deliver. Returns PACKET_DROP_REASONS or why the packet was released.
packet_drop_e packet_feed(stream_state *state, PVideoData4 *video, bool is_retrans, const zeb_ts_t *now_p)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    const seq_t seq = video->common.seq;
    const uint32_t number = outer_number(state, video);
    const packet_drop_e refusal = refusal_of(cache, video);
    if (refusal == PACKET_DROP_NO_MEMORY) {
        sets_note(state, video);
    }
    webrtc_video_cache_process(cache, video, is_retrans, now_p);
    if (video->payload.values != nullptr) {
        video_release(video);
        if (refusal == PACKET_DROP_NO_MEMORY) {
            count_no_memory(state, number);
        } else {
            state->report.packets_dropped[refusal] += 1;
        }
        return refusal;
    }
    const webrtc_video_packet_t *slot = slot_of(cache, seq);
    if (slot != nullptr && slot->frm_ptr == nullptr) {
        count_no_memory(state, number);
        return PACKET_DROP_NO_MEMORY;
    }
    return PACKET_DROP_REASONS;
}

// ---- Holding back until a key frame's beginning is here ----

bool starts_access_unit(const held_packet *packet)
{
    const auto *bytes = static_cast<const uint8_t *>(packet->video.payload.values);
    rtp_view view;
    return rtp_parse(bytes, packet->video.payload.count, &view) == PACKET_DROP_REASONS &&
           nal_inspect(packet->video.header.codec, bytes + view.header_size, view.payload_size).starts_access_unit;
}

// Whether the key frame that `first` is the first held packet of may go into the cache. What comes for it from before
// its first packet in the cache is too late while the cache is waiting; later it would make the frame one that never
// completes, so then nothing less than the packet in front of the frame will do.
bool may_open(const stream_state *state, const held_packet *first)
{
    if (reception_is_joined(&state->arrivals, first->number, first->timestamp)) {
        return true;
    }
    return is_waiting_for_key_frame(&state->stream->video_cache_q) && starts_access_unit(first);
}

void feed_and_free(stream_state *state, held_packet *packet)
{
    cache_run_as_of(state, packet->held_since, [state, packet](const zeb_ts_t *since_p) {
        packet_feed(state, &packet->video, packet->is_retrans, since_p);
    });
    held_packet_free(packet);
}

// All packets of the key frame open the cache, also those that are none by themselves, such as a delimiter in front.
void gate_open(stream_state *state, const held_packet *first)
{
    const uint32_t number = first->number;
    const uint32_t timestamp = first->timestamp;
    state->has_key_timestamp = true;
    state->key_timestamp = timestamp;
    held_packet *packet = packet_hold_take_up_to(&state->hold, number, timestamp);
    while (packet != nullptr) {
        if (packet->timestamp == timestamp) {
            frame_type_set(&packet->video, KEY_FRAME);
        }
        feed_and_free(state, packet);
        packet = packet_hold_take_up_to(&state->hold, number, timestamp);
    }
}

// Delta packets are held only while the cache waits.
void release_deltas(stream_state *state)
{
    held_packet *packet = packet_hold_take_delta(&state->hold);
    while (packet != nullptr) {
        feed_and_free(state, packet);
        packet = packet_hold_take_delta(&state->hold);
    }
}

void release_what_is_over(stream_state *state, const zeb_ts_t *now_p)
{
    held_packet *packet = packet_hold_take_over(&state->hold, *now_p);
    while (packet != nullptr) {
        feed_and_free(state, packet);
        packet = packet_hold_take_over(&state->hold, *now_p);
    }
}

// The packet in front of the key frame's first one so far is missing, but was asked for in good hope.
bool is_repair_coming(const stream_state *state, const held_packet *first)
{
    const missing_packet *missing = nack_list_find(&state->feedback.nacks, first->number - 1);
    return state->stream->channel->state->feedback.nack && missing != nullptr &&
           !nack_list_is_used_up(&state->feedback.nacks, missing, state->now);
}

// In front of a stream's very first packet there may be nothing that the sender still has. The next key frame makes up
// for the first one, for nothing came out before.
bool is_made_up_for(const stream_state *state, const held_packet *key, const held_packet *first)
{
    const held_packet *next = packet_hold_next_key(&state->hold, key);
    return first->number == state->arrivals.first && next != nullptr &&
           may_open(state, packet_hold_first_of(&state->hold, next->timestamp));
}

bool is_wait_over(const stream_state *state, const held_packet *key, const held_packet *first, zeb_ts_t now)
{
    if (state->hold.packets.count >= kPacketHoldMax || is_made_up_for(state, key, first)) {
        return true;
    }
    const channel_feedback *agreed = &state->stream->channel->state->feedback;
    if (agreed->give_up_early && !agreed->nack) {
        return now - key->held_since >= loss_policy_patience(nack_list_hold(&state->feedback.nacks));
    }
    return packet_hold_is_over(&state->hold, key, now) && !is_repair_coming(state, first);
}

// What is missing in front of a stream's very first packet shows in no gap.
void ask_for_beginning(stream_state *state, const held_packet *first)
{
    if (first->number != state->arrivals.first) {
        return;
    }
    feedback_note_missing_beginning(state, first->number - 1);
    const nack_list *nacks = &state->feedback.nacks;
    const missing_packet *missing = nack_list_find(nacks, first->number - 1);
    if (missing != nullptr && nack_list_is_unanswered(nacks, missing, 1, state->now)) {
        state->wants_key_frame = true;
    }
}

// Each turn takes a packet out of the hold or ends it.
void hold_run(stream_state *state, const zeb_ts_t *now_p)
{
    const held_packet *key = packet_hold_first_key(&state->hold);
    while (key != nullptr) {
        const held_packet *first = packet_hold_first_of(&state->hold, key->timestamp);
        if (!may_open(state, first) && !is_wait_over(state, key, first, *now_p)) {
            ask_for_beginning(state, first);
            break;
        }
        gate_open(state, first);
        key = packet_hold_first_key(&state->hold);
    }
    if (!is_waiting_for_key_frame(&state->stream->video_cache_q)) {
        release_deltas(state);
    } else if (key == nullptr) {
        release_what_is_over(state, now_p);
    }
}

held_packet held_packet_make(const stream_state *state, PVideoData4 *video, bool is_retrans, zeb_ts_t now)
{
    held_packet packet = {};
    rtp_view view = {};
    rtp_parse(static_cast<const uint8_t *>(video->payload.values), video->payload.count, &view);
    video_data4_take(&packet.video, video);
    packet.number = reception_number(&state->arrivals, view.seq);
    packet.timestamp = view.timestamp;
    packet.is_retrans = is_retrans;
    packet.held_since = now;
    return packet;
}

// What stands in front of a picture's slices does not tell yet what picture it is.
bool may_begin_key_frame(const stream_state *state, const held_packet *packet)
{
    const reception_entry *entry = reception_find(&state->arrivals, packet->number);
    const bool is_lead = entry != nullptr && (entry->role == PACKET_ROLE_UNIT_START || entry->role == PACKET_ROLE_LEAD);
    return is_lead || __is_key_frame(packet->video.header.video_type) != 0;
}

// True when nothing is held that would have been asked for already.
bool holds_only_leads(const stream_state *state)
{
    const list_head *head = &state->hold.packets.head;
    for (const list_head *node = head->next; node != head; node = node->next) {
        const auto *packet = reinterpret_cast<const held_packet *>(node);
        if (__is_key_frame(packet->video.header.video_type) != 0 || !may_begin_key_frame(state, packet)) {
            return false;
        }
    }
    return true;
}

packet_drop_e packet_hold_back(stream_state *state, PVideoData4 *video, bool is_retrans, const zeb_ts_t *now_p)
{
    held_packet packet = held_packet_make(state, video, is_retrans, *now_p);
    // The cache would ask at once; the wait must not delay that.
    state->wants_key_frame =
        state->wants_key_frame || (!may_begin_key_frame(state, &packet) && holds_only_leads(state));
    if (!packet_hold_add(&state->hold, &packet)) {
        video_release(&packet.video);
        count_no_memory(state, packet.number);
        return PACKET_DROP_NO_MEMORY;
    }
    hold_run(state, now_p);
    return PACKET_DROP_REASONS;
}

bool is_to_hold(const stream_state *state, const PVideoData4 *video)
{
    if (is_waiting_for_key_frame(&state->stream->video_cache_q)) {
        return true;
    }
    const auto *bytes = static_cast<const uint8_t *>(video->payload.values);
    rtp_view view;
    const bool is_key = __is_key_frame(video->header.video_type) != 0;
    if (!is_key || rtp_parse(bytes, video->payload.count, &view) != PACKET_DROP_REASONS) {
        return false;
    }
    return !state->has_key_timestamp || view.timestamp != state->key_timestamp;
}

packet_drop_e hold_or_feed(stream_state *state, PVideoData4 *video, bool is_retrans, const zeb_ts_t *now_p)
{
    if (is_to_hold(state, video)) {
        return packet_hold_back(state, video, is_retrans, now_p);
    }
    const packet_drop_e result = packet_feed(state, video, is_retrans, now_p);
    // It may be the one that a held key frame waits for.
    hold_run(state, now_p);
    return result;
}

// ---- Clearing the cache ----

void cache_clear(stream_state *state, frame_drop_e reason)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    for (uint32_t i = 0; i < cache->frm_map.count; i++) {
        frame_output_drop(state, reason);
    }
    const request_pacing pacing = feedback_pacing_save(state);
    webrtc_video_cache_reset(cache);
    feedback_pacing_restore(state, &pacing);
    feedback_note_cleared(state);
    state->report.packets_dropped[PACKET_DROP_LATE] += state->hold.packets.count;
    packet_hold_clear(&state->hold);
    stream_native_path_empty(state->stream);
    state->has_key_timestamp = false;
    state->rtp.needs_key_frame = true;
    state->wants_key_frame = true;
}

// The sender numbers anew.
void numbering_restart(stream_state *state)
{
    CLIENT_LOG(LM_CHANNEL, RTC_LOG_INFO, "[%s] stream of user %u numbers its packets anew",
               state->stream->channel->name_id, state->stream->user->state->uid);
    cache_clear(state, FRAME_DROP_AFTER_GAP);
    rtp_delivery_restart(&state->rtp);
    // An encoder that was made anew has other parameter sets, and a key frame that lost them must not get the old ones.
    state->sets = state->stream->channel->state->described_sets;
    state->numbering = {};
    state->has_floor = false;
}

// ---- Taking packets in ----

packet_drop_e packet_drop(stream_state *state, PVideoData4 *video, packet_drop_e reason)
{
    video_release(video);
    state->report.packets_dropped[reason] += 1;
    return reason;
}

bool is_too_old(const stream_state *state, uint32_t number)
{
    const bool is_below_floor = state->has_floor && zeb_uint32_after(number, state->floor) == 0;
    return is_below_floor || !packet_numbering_reaches(&state->numbering, number);
}

bool is_noted_as_padding(const stream_state *state, uint32_t number)
{
    const reception_entry *entry = reception_find(&state->arrivals, number);
    return entry != nullptr && entry->role == PACKET_ROLE_PADDING;
}

// Gives the packet its number and passes it on.
packet_drop_e packet_admit(stream_state *state, PVideoData4 *video, bool is_retrans, const zeb_ts_t *now_p)
{
    const uint32_t number = outer_number(state, video);
    if (is_too_old(state, number)) {
        return packet_drop(state, video, PACKET_DROP_LATE);
    }
    if (is_noted_as_padding(state, number) && packet_numbering_leave_out(&state->numbering, number)) {
        video_release(video);
        hold_run(state, now_p); // it may be what is in front of a key frame
        return PACKET_DROP_REASONS;
    }
    video->common.seq = static_cast<seq_t>(packet_numbering_assign(&state->numbering, number));
    return hold_or_feed(state, video, is_retrans, now_p);
}

void stray_take_in(stream_state *state, const zeb_ts_t *now_p)
{
    held_packet *stray = packet_hold_take_first(&state->stray);
    if (stray != nullptr) {
        packet_admit(state, &stray->video, stray->is_retrans, now_p);
        held_packet_free(stray);
    }
}

packet_drop_e packet_place(stream_state *state, PVideoData4 *video, bool is_retrans, reception_verdict verdict,
                           const zeb_ts_t *now_p)
{
    switch (verdict) {
    case RECEPTION_DUPLICATE:
        return packet_drop(state, video, PACKET_DROP_DUPLICATE);
    case RECEPTION_STRAY:
        return stray_packet_keep(state, video, is_retrans);
    case RECEPTION_RESTARTED:
    case RECEPTION_RESUMED:
    case RECEPTION_NEWEST:
    case RECEPTION_EARLIER:
        break;
    }
    stray_packet_forget(state);
    return packet_admit(state, video, is_retrans, now_p);
}

packet_role role_of(const rtp_view *view, const nal_summary *summary)
{
    if (padding_is(view)) {
        return PACKET_ROLE_PADDING;
    }
    if (summary->starts_access_unit) {
        return PACKET_ROLE_UNIT_START;
    }
    if (!summary->leads_picture && !summary->is_first_slice) {
        return PACKET_ROLE_OTHER;
    }
    if (summary->is_key) {
        return PACKET_ROLE_KEY_PART;
    }
    return summary->leads_picture ? PACKET_ROLE_LEAD : PACKET_ROLE_FIRST_SLICE;
}

reception_verdict packet_note(stream_state *state, const rtp_view *view, packet_role role, bool is_retrans,
                              zeb_ts_t now)
{
    const size_t size = view->header_size + view->payload_size + view->padding_size;
    const reception_packet arrival = {view->seq, view->timestamp, size, is_retrans, view->marker, role};
    const uint32_t newest_before = state->arrivals.newest;
    const reception_verdict verdict = reception_note(&state->arrivals, &state->report, &arrival, now);
    feedback_note_packet(state, verdict, &arrival, newest_before, now);
    const counted_packet counted = {arrival, reception_highest(&state->arrivals), sent_ts(view), false, verdict};
    stream_counters_note(state, &counted, now);
    return verdict;
}

// The record borrows the bytes.
void sample_bandwidth(stream_state *state, const uint8_t *packet, const rtp_view *view, size_t received_size,
                      bool is_retrans, const zeb_ts_t *now_p)
{
    PVideoData4 received = {};
    received.common.sent_ts = sent_ts(view);
    received.payload.values = const_cast<uint8_t *>(packet);
    received.payload.count = static_cast<uint16_t>(received_size);
    video_stream_send_bandwidth_est(state->stream, &received, !is_retrans, now_p);
}

} // namespace

packet_drop_e rtp_intake_take(stream_state *state, const uint8_t *packet, const rtp_view *view, size_t received_size,
                              uint8_t codec, bool is_retrans, const zeb_ts_t *now_p)
{
    user_video_stream *stream = state->stream;
    stream->is_webrtc = 1;
    stream->is_nass = 1;
    stream->codec = codec;
    sample_bandwidth(state, packet, view, received_size, is_retrans, now_p);
    const nal_summary summary = nal_inspect(codec, packet + view->header_size, view->payload_size);
    const reception_verdict verdict = packet_note(state, view, role_of(view, &summary), is_retrans, *now_p);
    PVideoData4 video;
    if (verdict == RECEPTION_RESTARTED) {
        numbering_restart(state);
    }
    if (verdict == RECEPTION_RESTARTED || verdict == RECEPTION_RESUMED) {
        stray_take_in(state, now_p);
    }
    packet_drop_e result = PACKET_DROP_NO_MEMORY;
    if (video_make(state, &video, packet, view, summary.is_key)) {
        if (summary.is_key) {
            feedback_note_key_packet(state, *now_p);
        }
        result = packet_place(state, &video, is_retrans, verdict, now_p);
    } else {
        count_no_memory(state, reception_number(&state->arrivals, view->seq));
    }
    rtp_delivery_finish(state, now_p);
    return result;
}

namespace
{

// ---- The tick ----

struct cache_census {
    uint32_t n_frames;
    uint32_t n_incomplete;
    uint64_t n_handed_over; // so far
};

int count_incomplete(zeb_rb_node *node, void *arg)
{
    const auto *frame = reinterpret_cast<const webrtc_video_frame_t *>(node);
    if (frame->state < WEBRTC_VIDEO_FRM_COMPLETE) {
        *static_cast<uint32_t *>(arg) += 1;
    }
    return 0;
}

cache_census census_take(stream_state *state)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    cache_census census = {cache->frm_map.count, 0, state->rtp.n_handed_over};
    zeb_rb_traverse_ldr(&cache->frm_map, count_incomplete, &census.n_incomplete);
    return census;
}

// The cache drops without a word. What is gone and was not handed over was dropped; none but whole frames are handed
// over, so the incomplete ones that are gone tell the two reasons apart.
void count_dropped(stream_state *state, const cache_census *before)
{
    const cache_census after = census_take(state);
    const uint64_t n_left = after.n_frames + (after.n_handed_over - before->n_handed_over);
    const uint32_t n_incomplete = before->n_incomplete - after.n_incomplete;
    for (uint64_t i = 0; n_left + i < before->n_frames; i++) {
        frame_output_drop(state, i < n_incomplete ? FRAME_DROP_INCOMPLETE : FRAME_DROP_AFTER_GAP);
    }
}

// Runs the cache's periodic check as if it were `*now_p`.
void cache_check(stream_state *state, const zeb_ts_t *now_p)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    if (cache->pkt_arr == nullptr) {
        return;
    }
    const cache_census before = census_take(state);
    watchdog_look(&state->guard, cache, *now_p);
    webrtc_video_cache_check_deliver(cache, now_p);
    rtp_delivery_finish(state, &state->now);
    count_dropped(state, &before);
}

// What was cleared cannot be put together again from latecomers.
void floor_set(stream_state *state)
{
    state->has_floor = true;
    state->floor = state->arrivals.newest;
}

// Lets the cache's own patience end now, so that it goes on with the key frame it holds.
void drop_to_held_key_frame(stream_state *state)
{
    cache_run_as_of(state, state->now + kWatchdogFramePatience,
                    [state](const zeb_ts_t *later_p) { cache_check(state, later_p); });
}

void end_hopeless_wait(stream_state *state)
{
    const loss_situation situation = loss_watch_look(state);
    switch (loss_policy_decide(&situation)) {
    case LOSS_WAIT:
        return;
    case LOSS_DROP_TO_HELD_KEY:
        state->report.losses_given_up[LOSS_END_HELD_KEY_FRAME] += 1;
        drop_to_held_key_frame(state);
        return;
    case LOSS_CLEAR_AND_ASK:
        state->report.losses_given_up[LOSS_END_CLEARED] += 1;
        cache_clear(state, FRAME_DROP_GIVEN_UP);
        floor_set(state);
        return;
    }
}

void watchdog_run(stream_state *state, zeb_ts_t now)
{
    const watchdog_progress progress = {state->report.packets, state->report.last_packet_at, state->rtp.n_handed_over};
    const watchdog_e found = watchdog_find(&state->guard, &state->stream->video_cache_q, &progress, now);
    if (found == WATCHDOG_REASONS) {
        return;
    }
    CLIENT_LOG(LM_CHANNEL, RTC_LOG_WARNING, "[%s] reorder cache of user %u cleared: %s",
               state->stream->channel->name_id, state->stream->user->state->uid, watchdog_name(found));
    state->report.watchdog[found] += 1;
    cache_clear(state, FRAME_DROP_WATCHDOG);
    floor_set(state);
}

// A number that nothing else can have had goes to the cache as the padding that was lost. While the cache waits for a
// key frame no number is missing to it.
void padding_fill_in(stream_state *state, uint32_t number, const padding_gap *gap)
{
    uint8_t packet[kRtpHeaderSize] = {0x80};
    rtp_view view = {};
    view.seq = static_cast<seq_t>(number);
    view.timestamp = gap->timestamp;
    view.header_size = kRtpHeaderSize;
    be16_write(packet + 2, view.seq);
    PVideoData4 video;
    reception_note_padding(&state->arrivals, number, gap->timestamp);
    state->report.packets_padding_lost += 1;
    if (is_waiting_for_key_frame(&state->stream->video_cache_q) || !video_make(state, &video, packet, &view, false)) {
        return;
    }
    video.common.seq = static_cast<seq_t>(packet_numbering_assign(&state->numbering, number));
    cache_run_as_of(state, gap->since,
                    [state, &video](const zeb_ts_t *since_p) { packet_feed(state, &video, false, since_p); });
}

void fill_in_lost_padding(stream_state *state)
{
    padding_gap gap;
    // Each turn forgets some of the missing packets.
    while (padding_find_lost(state, &gap)) {
        nack_list_forget_below(&state->feedback.nacks, gap.last + 1);
        for (uint32_t number = gap.first; number != gap.last + 1; number++) {
            padding_fill_in(state, number, &gap);
        }
    }
}

} // namespace

void rtp_intake_tick(stream_state *state, const zeb_ts_t *now_p)
{
    fill_in_lost_padding(state);
    hold_run(state, now_p);
    rtp_delivery_finish(state, now_p);
    cache_check(state, now_p);
    end_hopeless_wait(state);
    watchdog_run(state, *now_p);
}
