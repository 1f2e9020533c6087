#include "session/feedback.h"

#include <cstring>

#include "rate/bcm_feedback.h"
#include "session/user.h"
#include "stats/receive_quality.h"

namespace
{

constexpr size_t kDatagramMax = 1200;    // bytes; fits any path
constexpr size_t kNackBatchMax = 250;    // numbers a message: never more than the datagram holds
constexpr uint32_t kNtpFraction = 65536; // a delay is told in 1/65536 s
constexpr size_t kNackHeaderSize = 12;   // bytes, RFC 4585, 6.1
constexpr size_t kNackPairSize = 4;      // bytes; each number needs one at most
constexpr size_t kReportSizeMax = 8 + 24 + 8 + 2 + kChannelCnameMax + 4; // bytes, with one block and the longest CNAME
constexpr size_t kRembSizeMax = 24;                                      // bytes, for one source

// A datagram under way to the sender of one stream.
struct feedback_datagram {
    uint8_t bytes[kDatagramMax];
    rtcp_output out;
};

channel_state *channel_of(const stream_state *state)
{
    return state->stream->channel->state;
}

uint32_t ssrc_of(const stream_state *state)
{
    return state->stream->user->state->uid;
}

bool may_send(const stream_state *state)
{
    return channel_of(state)->on_rtcp != nullptr && !state->is_native && state->report.packets > 0;
}

bool may_tell(const stream_state *state, zeb_ts_t now)
{
    return may_send(state) && !state->report.has_left && now - state->report.last_packet_at < kFeedbackSilence;
}

// ---- Datagrams ----

rtcp_report_block report_block(stream_state *state, zeb_ts_t now)
{
    net_rcv_analyzer_t *quality = state->stream->current_net_rcv_quality;
    rtcp_report_block block = {};
    block.ssrc = ssrc_of(state);
    if (quality != nullptr) {
        block.fraction_lost = net_rcv_analyzer_take_fraction_lost(quality);
        block.cumulative_lost = net_rcv_analyzer_lost(quality);
        block.highest_seq = net_rcv_analyzer_highest_seq(quality);
        block.jitter = net_rcv_analyzer_jitter(quality);
    }
    if (state->feedback.has_sender_report) {
        block.last_sr = state->feedback.sender_report_ntp;
        block.delay_since_sr = static_cast<uint32_t>((now - state->feedback.sender_report_at) * kNtpFraction / 1000);
    }
    return block;
}

void write_report(const stream_state *state, rtcp_output *out, const rtcp_report_block *block)
{
    const channel_state *channel = channel_of(state);
    rtcp_report report = {};
    report.sender_ssrc = channel->local_ssrc;
    report.blocks = block;
    report.n_blocks = block == nullptr ? 0 : 1;
    report.cname = channel->cname_size == 0 ? nullptr : channel->cname;
    report.cname_size = channel->cname_size;
    rtcp_report_write(out, &report);
}

// The largest datagram that may be sent for what came so far, bytes.
size_t size_allowed(const stream_state *state)
{
    const uint64_t limit = kFeedbackRatio * state->report.bytes;
    const uint64_t used = state->feedback.bytes_sent + kFeedbackHeaders + 1; // below the limit, not up to it
    if (limit <= used) {
        return 0;
    }
    return limit - used < kDatagramMax ? static_cast<size_t>(limit - used) : kDatagramMax;
}

// Feedback stands behind a report, an empty one unless a report is due anyway, where it may not stand alone. What does
// not fit the allowance is not written.
bool datagram_begin(const stream_state *state, feedback_datagram *datagram)
{
    datagram->out = {datagram->bytes, size_allowed(state), 0};
    if (!channel_of(state)->feedback.reduced_size) {
        write_report(state, &datagram->out, nullptr);
        return datagram->out.size > 0;
    }
    return true;
}

void datagram_send(stream_state *state, const feedback_datagram *datagram)
{
    state->feedback.bytes_sent += datagram->out.size + kFeedbackHeaders;
    channel_state *channel = channel_of(state);
    service_state *service = channel->channel.service->state;
    const bool was_in_callback = service->is_in_callback;
    service->is_in_callback = true;
    channel->on_rtcp(channel->on_rtcp_context, datagram->bytes, datagram->out.size);
    service->is_in_callback = was_in_callback;
}

void saturating_add(uint16_t *counter)
{
    *counter = *counter == UINT16_MAX ? UINT16_MAX : static_cast<uint16_t>(*counter + 1);
}

} // namespace

// ---- Pacing ----

request_pacing feedback_pacing_save(const stream_state *state)
{
    const webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    return {cache->n_retrans_req_recent, cache->n_intra_req_sent_recent, cache->next_retrans_req_should_at,
            cache->next_intra_req_should_at};
}

void feedback_pacing_restore(stream_state *state, const request_pacing *pacing)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    cache->n_retrans_req_recent = pacing->n_retransmission_recent;
    cache->n_intra_req_sent_recent = pacing->n_key_frame_recent;
    cache->next_retrans_req_should_at = pacing->next_retransmission_at;
    cache->next_intra_req_should_at = pacing->next_key_frame_at;
}

namespace
{

// The reorder cache keeps these times, and loses them in a reset; the stream's own record shows them.
void plan_retransmissions(stream_state *state)
{
    const zeb_ts_t at = nack_list_next_at(&state->feedback.nacks);
    state->stream->video_cache_q.next_retrans_req_should_at = at;
    state->stream->next_retrans_req_should_at = at;
}

void plan_key_frame(stream_state *state, zeb_ts_t at)
{
    state->stream->video_cache_q.next_intra_req_should_at = at;
    state->stream->next_idr_should_at = at;
}

// Where no retransmission tells the round trip, the soonest key frame does: it took one, and the wait for a picture.
// Senders are known to ignore what comes within two round trips of a request that they heard.
zeb_ts_t key_frame_interval(const stream_feedback *self)
{
    const bool is_rtt_known = self->nacks.rtt_8 != 0 || self->key_frame_answer == 0;
    const zeb_ts_t interval = 2 * (is_rtt_known ? nack_list_rtt(&self->nacks) : self->key_frame_answer);
    if (interval < kKeyFrameIntervalMin) {
        return kKeyFrameIntervalMin;
    }
    return interval > kKeyFrameIntervalMax ? kKeyFrameIntervalMax : interval;
}

// ---- Packets ----

// The highest number so far: those that it passed over are missing, and the one behind it may come to be.
void note_newest(stream_state *state, const reception_packet *packet, uint32_t number, uint32_t newest_before,
                 zeb_ts_t now)
{
    stream_feedback *self = &state->feedback;
    const bool is_first = state->report.packets == 1;
    bool is_answer = packet->is_retrans;
    if (is_first || number == newest_before + 1) {
        const bool is_of_frame = packet->timestamp == self->frame_end.timestamp;
        is_answer = nack_list_settle_suspect(&self->nacks, number, is_of_frame, now) || is_answer;
    } else {
        nack_list_add(&self->nacks, newest_before + 1, number - 1, now);
    }
    frame_end_watch_note(&self->frame_end, number, packet, is_answer, now);
    const zeb_ts_t due_at = frame_end_watch_due_at(&self->frame_end);
    if (due_at != 0) {
        nack_list_suspect(&self->nacks, number + 1, due_at);
    }
}

} // namespace

void feedback_note_packet(stream_state *state, reception_verdict verdict, const reception_packet *packet,
                          uint32_t newest_before, zeb_ts_t now)
{
    stream_feedback *self = &state->feedback;
    const uint32_t number = reception_number(&state->arrivals, packet->seq);
    state->report.has_left = false;
    switch (verdict) {
    case RECEPTION_NEWEST:
        note_newest(state, packet, number, newest_before, now);
        break;
    case RECEPTION_EARLIER:
        nack_list_remove(&self->nacks, number, now);
        break;
    case RECEPTION_RESUMED:
    case RECEPTION_RESTARTED:
        nack_list_clear(&self->nacks); // what was lost before is too much, or numbered otherwise
        self->frame_end = {};
        break;
    case RECEPTION_DUPLICATE:
    case RECEPTION_STRAY:
        return;
    }
    plan_retransmissions(state);
}

void feedback_note_missing_beginning(stream_state *state, uint32_t number)
{
    nack_list_insert(&state->feedback.nacks, number, state->now);
    plan_retransmissions(state);
}

namespace
{

// Falls at once and hardly rises: the wait for a picture differs, the round trip does not. What is sooner than requests
// may follow each other was on its way before.
void note_answer(stream_feedback *self, zeb_ts_t answer)
{
    const uint16_t known = self->key_frame_answer;
    const auto sample = static_cast<uint16_t>(answer < kKeyFrameIntervalMin / 2 ? kKeyFrameIntervalMin / 2 : answer);
    self->key_frame_answer =
        known == 0 || sample < known ? sample : static_cast<uint16_t>(known + (sample - known) / 32);
}

// A key frame was asked for, and none came since.
bool is_key_frame_due(const stream_feedback *self)
{
    return self->key_frame_asked_at != 0 && self->key_packet_at <= self->key_frame_asked_at;
}

} // namespace

void feedback_note_key_packet(stream_state *state, zeb_ts_t now)
{
    stream_feedback *self = &state->feedback;
    const zeb_ts_t answer = now - self->key_frame_asked_at;
    if (is_key_frame_due(self) && !self->is_key_frame_asked_again && answer < kFeedbackSilence) {
        note_answer(self, answer);
    }
    self->key_packet_at = now;
    self->is_key_frame_coming = true;
}

void feedback_note_cleared(stream_state *state)
{
    nack_list_clear(&state->feedback.nacks);
    state->feedback.is_key_frame_coming = false;
}

namespace
{

// What the reorder cache has gone past is not needed any more, and nothing is while it waits for a key frame that has
// not begun.
void forget_what_is_past(stream_state *state)
{
    const webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    nack_list *nacks = &state->feedback.nacks;
    if (cache->pkt_exp_seq <= UINT16_MAX) {
        const uint32_t expected = stream_state_inner_number(state, static_cast<seq_t>(cache->pkt_exp_seq));
        nack_list_forget_below(nacks, packet_numbering_outer(&state->numbering, expected));
    } else if (state->hold.packets.count == 0) {
        nack_list_clear(nacks);
    }
}

// ---- Requests for packets ----

// The numbers that a request has room for behind what it begins with.
size_t nack_room(const feedback_datagram *datagram)
{
    const size_t used = datagram->out.size + kNackHeaderSize;
    const size_t room = datagram->out.capacity > used ? (datagram->out.capacity - used) / kNackPairSize : 0;
    return room < kNackBatchMax ? room : kNackBatchMax;
}

bool send_nack(stream_state *state, feedback_datagram *datagram, const uint32_t *numbers, size_t count, zeb_ts_t now)
{
    seq_t seqs[kNackBatchMax];
    size_t fitted = 0;
    for (size_t i = 0; i < count; i++) {
        seqs[i] = static_cast<seq_t>(numbers[i]);
    }
    if (rtcp_nack_write(&datagram->out, channel_of(state)->local_ssrc, ssrc_of(state), seqs, count, &fitted) == 0) {
        return false;
    }
    datagram_send(state, datagram);
    state->feedback.nack_sent_at = now;
    state->report.nacks_sent += 1;
    state->report.packets_asked_for += fitted;
    return true;
}

} // namespace

void feedback_ask_retransmissions(stream_state *state, zeb_ts_t now)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    nack_list *nacks = &state->feedback.nacks;
    // What does not fit one datagram is for the next millisecond.
    if (!channel_of(state)->feedback.nack || !may_tell(state, now) || state->feedback.nack_sent_at == now) {
        return;
    }
    feedback_datagram datagram;
    if (!datagram_begin(state, &datagram) || nack_room(&datagram) == 0) {
        return;
    }
    uint32_t numbers[kNackBatchMax];
    const size_t count = nack_list_take_due(nacks, now, numbers, nack_room(&datagram));
    if (count > 0 && send_nack(state, &datagram, numbers, count, now)) {
        saturating_add(&cache->n_retrans_req_recent);
        saturating_add(&state->stream->n_retrans_req_recent);
    }
    plan_retransmissions(state);
}

namespace
{

// ---- Requests for key frames ----

bool write_key_frame_request(stream_state *state, rtcp_output *out)
{
    const channel_state *channel = channel_of(state);
    if (!channel->feedback.fir) {
        const bool is_written = rtcp_pli_write(out, channel->local_ssrc, ssrc_of(state)) > 0;
        state->report.plis_sent += is_written ? 1 : 0;
        return is_written;
    }
    const auto command_seq = static_cast<uint8_t>(state->feedback.fir_command_seq + 1);
    if (rtcp_fir_write(out, channel->local_ssrc, {ssrc_of(state), command_seq}) == 0) {
        return false;
    }
    state->feedback.fir_command_seq = command_seq;
    state->report.firs_sent += 1;
    return true;
}

// Which of two requests was answered cannot be told, so that answers that take longer than the time between them are
// never measured: each time it grows a little, until one is.
void note_request(stream_feedback *self, zeb_ts_t now)
{
    self->is_key_frame_asked_again = is_key_frame_due(self);
    if (self->is_key_frame_asked_again && self->key_frame_answer < kKeyFrameIntervalMax) {
        self->key_frame_answer = static_cast<uint16_t>(9 * self->key_frame_answer / 8);
    }
    self->key_frame_asked_at = now;
}

} // namespace

void feedback_ask_key_frame(stream_state *state, zeb_ts_t now)
{
    webrtc_video_cache_t *cache = &state->stream->video_cache_q;
    const channel_feedback *agreed = &channel_of(state)->feedback;
    if ((!agreed->pli && !agreed->fir) || !may_tell(state, now) || now < cache->next_intra_req_should_at) {
        return;
    }
    feedback_datagram datagram;
    if (!datagram_begin(state, &datagram) || !write_key_frame_request(state, &datagram.out)) {
        return;
    }
    datagram_send(state, &datagram);
    note_request(&state->feedback, now);
    plan_key_frame(state, now + key_frame_interval(&state->feedback));
    saturating_add(&cache->n_intra_req_sent_recent);
    saturating_add(&state->stream->n_key_req_sent_recent);
}

namespace
{

// A key frame that is on its way in answers the request.
bool waits_for_key_frame(const stream_state *state, zeb_ts_t now)
{
    const stream_feedback *self = &state->feedback;
    const bool is_coming = self->is_key_frame_coming && now - self->key_packet_at < key_frame_interval(self);
    return state->rtp.needs_key_frame && !is_coming;
}

// ---- Reports and the rate ----

void send_report(stream_state *state, zeb_ts_t now)
{
    stream_feedback *self = &state->feedback;
    if (!channel_of(state)->feedback.reports || !may_tell(state, now) || now < self->next_report_at ||
        size_allowed(state) < kReportSizeMax) {
        return;
    }
    const rtcp_report_block block = report_block(state, now);
    feedback_datagram datagram;
    datagram.out = {datagram.bytes, sizeof datagram.bytes, 0};
    write_report(state, &datagram.out, &block);
    datagram_send(state, &datagram);
    state->report.reports_sent += 1;
    self->next_report_at = now + kReportInterval;
}

void send_rate(stream_state *state, zeb_ts_t now)
{
    uint64_t bps = 0;
    if (!channel_of(state)->feedback.remb || !may_tell(state, now) ||
        size_allowed(state) < kReportSizeMax + kRembSizeMax ||
        !bcm_stat_take_remb(state->stream->bcm_stat, now, &bps)) {
        return;
    }
    const uint32_t ssrc = ssrc_of(state);
    feedback_datagram datagram;
    datagram_begin(state, &datagram);
    rtcp_remb_write(&datagram.out, channel_of(state)->local_ssrc, bps, &ssrc, 1);
    datagram_send(state, &datagram);
    state->report.rembs_sent += 1;
}

} // namespace

// ---- The tick ----

void feedback_tick(stream_state *state, zeb_ts_t now)
{
    if (!may_send(state)) {
        return;
    }
    forget_what_is_past(state);
    if (now >= state->stream->video_cache_q.next_retrans_req_should_at) {
        feedback_ask_retransmissions(state, now);
    }
    if (waits_for_key_frame(state, now)) {
        feedback_ask_key_frame(state, now);
    }
    send_report(state, now);
    send_rate(state, now);
}

zeb_ts_t feedback_next_at(const stream_state *state)
{
    const bool asks = channel_of(state)->feedback.nack && may_send(state) && !state->report.has_left;
    const zeb_ts_t next_at = asks ? nack_list_next_at(&state->feedback.nacks) : kNackNever;
    if (next_at == kNackNever) {
        return kNackNever;
    }
    feedback_datagram datagram;
    return datagram_begin(state, &datagram) && nack_room(&datagram) > 0 ? next_at : kNackNever;
}

namespace
{

// ---- RTCP from the sender ----

stream_state *stream_of(channel_state *channel, uint32_t ssrc)
{
    user_state *user = channel_find_user(channel, ssrc);
    return user == nullptr ? nullptr : user_find_stream(user, 0);
}

void take_sender_report(channel_state *channel, const rtcp_item *item, zeb_ts_t now)
{
    stream_state *state = stream_of(channel, item->ssrc);
    if (state == nullptr) {
        return;
    }
    state->feedback.has_sender_report = true;
    state->feedback.sender_report_ntp = static_cast<uint32_t>(item->sender_report.ntp_time >> 16);
    state->feedback.sender_report_at = now;
    state->report.sender_reports += 1;
}

// What is missing stays so: the BYE may be forged, and the next packet shows it.
void take_bye(channel_state *channel, const rtcp_item *item)
{
    for (size_t i = 0; i < item->bye.ssrcs.count; i++) {
        stream_state *state = stream_of(channel, rtcp_ssrc_at(&item->bye.ssrcs, i));
        if (state != nullptr) {
            state->report.has_left = true;
            state->report.byes += 1;
        }
    }
}

} // namespace

void feedback_take_rtcp(channel_state *channel, const uint8_t *datagram, size_t size, zeb_ts_t now)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram, size);
    rtcp_item item;
    while (rtcp_next(&cursor, &item)) {
        if (item.kind == RTCP_ITEM_SENDER_REPORT) {
            take_sender_report(channel, &item, now);
        } else if (item.kind == RTCP_ITEM_BYE) {
            take_bye(channel, &item);
        }
    }
}
