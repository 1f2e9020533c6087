// The video receive core: from the packets of one stream to whole frames. See video_stream.h.

#include "video_stream.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

// ---------------------------------------------------------------------------------------------------
// Primitives and accessors
//
// Constants, the log gate, and one-line readers of packed words, packet bytes and stream fields. Called
// from every section below; nothing here changes a record.
// ---------------------------------------------------------------------------------------------------

namespace
{

constexpr uint32_t kSeqUnknown = 0xFFFFFFFFu;        // a 16-bit sequence number not known, in 32 bits
constexpr uint64_t kTimestampUnknown = ~uint64_t{0}; // a 32-bit RTP timestamp not known, in 64 bits
constexpr uint64_t kFrameSeqUnknown = ~uint64_t{0};  // a 32-bit frame number not known, in 64 bits
constexpr int16_t kIndexEntryFree = -1;              // packet index: no frame slot holds the packet
constexpr size_t kPooledStreamsMax = 256;            // released records kept for reuse
constexpr uint32_t kFirstFrameSeq = 1000;            // frame numbering of the RTP path (re)starts here
constexpr zeb_ts_t kPatience = 2000;                 // ms that a stuck head or a gap may block delivery
constexpr zeb_ts_t kPictureReportInterval = 500;     // ms between walks that report pictures
constexpr uint32_t kWaitingForKeyFrame = 1u;         // bit 0 of frm_flag
constexpr uint16_t kGenericProtocolVersions = 10;    // below this version every payload is generic
// Packets in a row that have every index entry among theirs, wherever their numbers wrap.
constexpr uint32_t kWayOverWholeIndex = 2 * VIDEO_FRAMES_Q_PKT_INDEX;
constexpr uint32_t kRtpFixedHeaderSize = 12; // bytes (RFC 3550, 5.1)
constexpr size_t kStartCodeLen = 4;          // bytes of an Annex B start code
constexpr size_t kMaxNaluPerPkt = 8;         // NAL units that one packet may yield, for sizing only

static_assert(sizeof(video_packet_status_t) == 1, "the status array takes a byte for each packet");
static_assert(VIDEO_FRAMES_Q_PKT_INDEX == 32 * VIDEO_FRAMES_Q_SLOTS, "32 index entries for each frame slot");
static_assert((WEBRTC_VIDEO_RING_SLOTS & (WEBRTC_VIDEO_RING_SLOTS - 1)) == 0, "ring slots are found by masking");
static_assert(offsetof(user_video_stream, node) == 0, "a stream's link is its record");
static_assert(offsetof(webrtc_video_frame_t, node) == 0, "a frame's tree link is its record");
static_assert(sizeof(rtp_hdr_t) == kRtpFixedHeaderSize, "rtp_hdr_t is the wire header");

// Arguments of a message are passed on as they are: anything wider than int would shift what follows it
// on a 32-bit target.
template <typename Arg>
constexpr bool fits_log = std::is_convertible_v<Arg, const char *> || sizeof(Arg) <= sizeof(unsigned);

bool log_is_on(int level, int module)
{
    return g_log_enable != 0 && module <= LM_RDT && g_log_mod_arr[module].m_level >= level;
}

template <typename... Args> void log_plain(int level, const char *format, Args... args)
{
    static_assert((fits_log<Args> && ...), "cast wide arguments to what the format prints");
    kelvra_rtc_log(level, format, g_log_level_arr[level], args...);
}

template <typename... Args> void log_module(int level, int module, const char *format, Args... args)
{
    static_assert((fits_log<Args> && ...), "cast wide arguments to what the format prints");
    kelvra_rtc_log(level, format, g_log_level_arr[level], g_log_mod_arr[module].m_name, args...);
}

// LOG(level, module, format, ...) passes the level's label and the module's name in front of the
// arguments, LOG_PLAIN the label alone. Arguments are not evaluated while the message is gated off.
#define LOG(level, module, ...) (log_is_on((level), (module)) ? log_module((level), (module), __VA_ARGS__) : (void)0)
#define LOG_PLAIN(level, ...) (log_is_on((level), LM_MIN) ? log_plain((level), __VA_ARGS__) : (void)0)

// Ends the process: `name` must never be null.
[[noreturn]] void check_failed(const char *name)
{
    LOG_PLAIN(RTC_LOG_ERROR, "[%s] Check (%s) error\n", name);
    abort();
}

uint16_t low16(uint32_t seq)
{
    return static_cast<uint16_t>(seq);
}

uint32_t low32(uint64_t value)
{
    return static_cast<uint32_t>(value);
}

bool timestamp_is_known(uint64_t timestamp)
{
    return timestamp <= 0xFFFFFFFFu;
}

uint8_t fec_method(uint32_t reserved)
{
    return (reserved >> 3) & 7u;
}

uint16_t fec_packet_count(uint32_t reserved)
{
    return (reserved >> 8) & 0xFFu;
}

// Packet bytes come from the network: what a packet does not have reads as 0.

uint8_t byte_at(const rtn_bytes_t *bytes, uint32_t offset)
{
    return offset < bytes->count ? static_cast<const uint8_t *>(bytes->values)[offset] : 0;
}

uint16_t be16_at(const rtn_bytes_t *bytes, uint32_t offset)
{
    return static_cast<uint16_t>(byte_at(bytes, offset) << 8 | byte_at(bytes, offset + 1));
}

uint32_t be32_at(const rtn_bytes_t *bytes, uint32_t offset)
{
    return static_cast<uint32_t>(be16_at(bytes, offset)) << 16 | be16_at(bytes, offset + 2);
}

uint8_t rtp_csrc_count(const rtn_bytes_t *packet)
{
    return byte_at(packet, 0) & 0x0Fu;
}

bool rtp_has_extension(const rtn_bytes_t *packet)
{
    return (byte_at(packet, 0) & 0x10u) != 0;
}

uint8_t rtp_marker(const rtn_bytes_t *packet)
{
    return byte_at(packet, 1) >> 7;
}

uint8_t rtp_payload_type(const rtn_bytes_t *packet)
{
    return byte_at(packet, 1) & 0x7Fu;
}

uint16_t rtp_seq(const rtn_bytes_t *packet)
{
    return be16_at(packet, 2);
}

uint32_t rtp_timestamp(const rtn_bytes_t *packet)
{
    return be32_at(packet, 4);
}

bool is_receiving(const user_video_stream *stream)
{
    return stream->user != nullptr;
}

int log_mod(const user_video_stream *stream)
{
    return is_receiving(stream) ? LM_RCV_VID : LM_SND_VID;
}

const char *in_or_out(const user_video_stream *stream)
{
    return is_receiving(stream) ? "in" : "out";
}

const char *channel_name(const rtc_channel *channel)
{
    return channel != nullptr ? channel->name_id : "";
}

bool estimates_downlink(const rtc_channel *channel)
{
    return channel != nullptr && channel->bandwidth_est_opt.enable_bandwidth_est_downlink;
}

// ---------------------------------------------------------------------------------------------------
// Frame queue
//
// The native path. Frame F lives in slot F mod 40; index entry S mod 1280 names the slot that holds
// packet S. A slot is occupied exactly while `n_pkts_total` is not 0, and then owns its two arrays. The
// bounds and their timestamps mean something only while `count` is not 0. Called by the channel layer.
// ---------------------------------------------------------------------------------------------------

video_frame *frame_slot(rtc_video_frames_t *q, uint32_t frame_seq)
{
    return &q->video_frames[frame_seq % VIDEO_FRAMES_Q_SLOTS];
}

int16_t frame_pos(uint32_t frame_seq)
{
    return static_cast<int16_t>(frame_seq % VIDEO_FRAMES_Q_SLOTS);
}

uint32_t index_pos(seq_t seq)
{
    return seq % VIDEO_FRAMES_Q_PKT_INDEX;
}

int16_t *index_entry(rtc_video_frames_t *q, seq_t seq)
{
    return &q->pkt_frame_pos[index_pos(seq)];
}

bool is_occupied(const video_frame *frame)
{
    return frame->n_pkts_total != 0;
}

seq_t pkt_seq_at(const video_frame *frame, uint32_t index)
{
    return low16(frame->first_pkt_seq + index);
}

bool covers(const video_frame *frame, seq_t seq)
{
    return zeb_uint16_after_eq(seq, frame->first_pkt_seq) && zeb_uint16_after_eq(video_frame_last_pkt_seq(frame), seq);
}

video_frame *video_frames_q_find_frame_by_frame_seq(rtc_video_frames_t *q, uint32_t frame_seq)
{
    video_frame *frame = frame_slot(q, frame_seq);

    if (q->count == 0 || !is_occupied(frame) || frame->frame_seq != frame_seq) {
        return nullptr;
    }
    return frame;
}

// A packet counts only within the range received so far, which may be narrower than the frame's range.
video_frame *video_frames_q_find_frame_by_packet_seq(rtc_video_frames_t *q, seq_t seq)
{
    if (q->count == 0) {
        return nullptr;
    }
    const int16_t pos = *index_entry(q, seq);
    if (pos < 0 || pos >= VIDEO_FRAMES_Q_SLOTS) {
        return nullptr;
    }
    video_frame *frame = &q->video_frames[pos];
    if (!is_occupied(frame) || !zeb_uint16_after_eq(seq, frame->min_seq) || !zeb_uint16_after_eq(frame->max_seq, seq)) {
        return nullptr;
    }
    const uint16_t index = low16(static_cast<uint32_t>(seq - frame->first_pkt_seq));
    if (index >= frame->n_pkts_total || frame->pkts[index].count == 0) {
        return nullptr;
    }
    return frame;
}

enum class direction {
    up,
    down
};

// The frame that a walk from `from` over at most `limit` frame sequence numbers meets first. The numbers
// may be billions apart, so the 40 slots are looked through instead.
video_frame *nearest_frame(rtc_video_frames_t *q, uint32_t from, uint32_t limit, direction way)
{
    video_frame *nearest = nullptr;
    uint32_t nearest_distance = 0;

    for (video_frame &frame : q->video_frames) {
        const uint32_t distance = way == direction::up ? frame.frame_seq - from : from - frame.frame_seq;
        if (video_frames_q_find_frame_by_frame_seq(q, frame.frame_seq) != &frame || distance == 0 || distance > limit) {
            continue;
        }
        if (nearest == nullptr || distance < nearest_distance) {
            nearest = &frame;
            nearest_distance = distance;
        }
    }
    return nearest;
}

// Frees a frame's packets and gives back the index entries of those that hold data. The entry of a packet
// that was never stored stays behind; insertion treats it like any other. A frame whose packet array could
// not be allocated has no array to walk.
void __video_frame_free_datas(rtc_video_frames_t *q, video_frame *frame)
{
    if (!is_occupied(frame)) {
        return;
    }
    if (frame->pkts != nullptr) {
        for (uint32_t i = 0; i < frame->n_pkts_total; i++) {
            if (!zeb_dynamic_array_is_empty(&frame->pkts[i])) {
                *index_entry(q, pkt_seq_at(frame, i)) = kIndexEntryFree;
            }
            zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &frame->pkts[i]);
        }
    }
    zeb_free_impl(frame->pkts);
    zeb_free_impl(frame->pkts_status);
    frame->n_pkts_total = 0;
    frame->n_pkts_received = 0;
    frame->pkts = nullptr;
    frame->pkts_status = nullptr;
    frame->is_complete = 0;
}

void video_frame_destructor(rtc_service *, rtc_video_frames_t *q, video_frame *frame)
{
    __video_frame_free_datas(q, frame);
}

void delete_all_frames(user_video_stream *stream)
{
    stream->video_frames_q.count = 0;
    for (video_frame &frame : stream->video_frames_q.video_frames) {
        video_stream_delete_frame(stream, &frame);
    }
}

// The part of the expected sequence's move that ends at the first index, from `index_start` on, that has
// never held data.
void forward_to_first_hole(user_video_stream *stream, const video_frame *frame, uint16_t index_start)
{
    uint32_t i = index_start;

    while (i < frame->n_pkts_total && frame->pkts != nullptr && frame->pkts[i].values != nullptr) {
        i++;
    }
    LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] part of pkts, n_pkts_total %d, n_pkts_received %d, expect_seq %d --> %d\n",
        frame->n_pkts_total, frame->n_pkts_received, stream->pkt_seq, frame->first_pkt_seq + i);
    video_stream_pkt_seq_move_forward(stream, pkt_seq_at(frame, i));
}

void log_missing_neighbour(const user_video_stream *stream)
{
    const rtc_video_frames_t *q = &stream->video_frames_q;

    LOG(RTC_LOG_CRIT, log_mod(stream), "[%s][%s][%s] Next frame should exist, Q.min=%u, Q.max=%u, Q.count=%u\n",
        channel_name(stream->channel), q->min_frame_seq, q->max_frame_seq, q->count);
}

// Moves the bounds off a frame that leaves a queue which is not empty without it. A missing successor of
// the oldest frame is logged and the bounds stay; a missing predecessor of the newest fails (false). The
// message says "Next" both times.
bool move_bounds_off(user_video_stream *stream, video_frame *frame)
{
    rtc_video_frames_t *q = &stream->video_frames_q;

    if (q->min_frame_seq == frame->frame_seq) {
        const video_frame *next = video_frames_q_next_frame(q, frame);
        if (next == nullptr) {
            log_missing_neighbour(stream);
        } else {
            q->min_frame_seq = next->frame_seq;
            q->min_ts = next->ts;
        }
    }
    if (q->max_frame_seq == frame->frame_seq) {
        const video_frame *prev = video_frames_q_prev_frame(q, frame);
        if (prev == nullptr) {
            log_missing_neighbour(stream);
            return false;
        }
        q->max_frame_seq = prev->frame_seq;
        q->max_ts = prev->ts;
    }
    return true;
}

// Makes sure that the packet's slot is empty or holds the packet's own frame. Sequence numbers 40 apart
// share a slot: an older tenant, or the same frame with another packet range, is evicted whether or not
// the queue agrees to remove it; a newer tenant means that the packet comes too late (false).
bool claim_frame_slot(user_video_stream *stream, video_frame *frame, const PVideoData4 *video)
{
    const seq_t seq = video->common.seq;
    const uint32_t frame_seq = video->header.frame_seq;

    if (!is_occupied(frame) || (frame->frame_seq == frame_seq && covers(frame, seq))) {
        return true;
    }
    LOG(RTC_LOG_INFO, log_mod(stream), "[%s][%s] insertQ: overlap an old frame\n");
    if (zeb_uint32_after(frame->frame_seq, frame_seq)) {
        LOG(RTC_LOG_WARNING, log_mod(stream), "[%s][%s] insertQ: Ignore an outdated %s pkt %u\n", in_or_out(stream),
            seq);
        return false;
    }
    video_stream_remove_frame(stream, frame);
    video_stream_delete_frame(stream, frame);
    stream->n_overlapped_frames_recent++;
    return true;
}

// Makes the packet's index entry name the packet's slot. An entry that does so already is a duplicate; one
// that names an older frame takes that frame out, whose storage is released only when the queue agrees to
// remove it; one that names another frame means that the packet comes too late (false).
bool claim_index_entry(user_video_stream *stream, const video_frame *frame, const PVideoData4 *video)
{
    rtc_video_frames_t *q = &stream->video_frames_q;
    const seq_t seq = video->common.seq;
    const int16_t pos = frame_pos(video->header.frame_seq);
    int16_t *entry = index_entry(q, seq);

    if (*entry < 0) {
        *entry = pos;
        return true;
    }
    if (*entry == pos) {
        LOG(RTC_LOG_WARNING, log_mod(stream), "[%s][%s] insertQ: Ignore an duplicated %s pkt %u\n", in_or_out(stream),
            seq);
        return false;
    }
    video_frame *orig_frame = &q->video_frames[*entry];
    LOG(RTC_LOG_CRIT, log_mod(stream), "[%s][%s] %u\n", orig_frame->frame_seq);
    if (!zeb_uint32_after(video->header.frame_seq, orig_frame->frame_seq)) {
        // "from receiving" stands in the text whatever the stream.
        LOG(RTC_LOG_WARNING, log_mod(stream), "[%s][%s] insertQ: Ignore an outdated %s pkt %u from receiving\n",
            in_or_out(stream), seq);
        return false;
    }
    // The first number is what the slot holds now, which may be left over from a frame that is gone.
    LOG(RTC_LOG_WARNING, log_mod(stream), "[%s][%s] insertQ: Frame %u overlapped %u\n", frame->frame_seq,
        orig_frame->frame_seq);
    if (video_stream_remove_frame(stream, orig_frame) == 0) {
        video_stream_delete_frame(stream, orig_frame);
    }
    *entry = pos;
    stream->n_overlapped_frames_recent++;
    return true;
}

void widen_queue_bounds(rtc_video_frames_t *q, uint32_t frame_seq, uint16_t sent_ts)
{
    if (q->count == 0 || zeb_uint32_after(q->min_frame_seq, frame_seq)) {
        q->min_frame_seq = frame_seq;
        q->min_ts = sent_ts;
    }
    if (q->count == 0 || zeb_uint32_after(frame_seq, q->max_frame_seq)) {
        q->max_frame_seq = frame_seq;
        q->max_ts = sent_ts;
    }
}

void widen_received_range(video_frame *frame, seq_t seq)
{
    if (zeb_uint16_after(frame->min_seq, seq)) {
        frame->min_seq = seq;
    }
    if (zeb_uint16_after(seq, frame->max_seq)) {
        frame->max_seq = seq;
    }
}

void __insert_frame(user_video_stream *stream, const PVideoData4 *video)
{
    rtc_video_frames_t *q = &stream->video_frames_q;

    q->count++;
    if (q->count > VIDEO_FRAMES_Q_SLOTS) {
        LOG_PLAIN(RTC_LOG_CRIT, "[%s] insertQ: total frame count[%u] > [%u]\n", q->count, VIDEO_FRAMES_Q_SLOTS);
    }
    if (__is_key_frame(video->header.video_type)) {
        stream->n_key_recent++;
    }
}

void __update_frame(const user_video_stream *stream, video_frame *frame, const PVideoData4 *video,
                    const zeb_ts_t *now_p)
{
    const Video4Header *header = &video->header;
    const seq_t seq = video->common.seq;

    frame->queued_ts = *now_p;
    frame->frame_seq = header->frame_seq;
    frame->is_key_frame = static_cast<uint8_t>(__is_key_frame(header->video_type));
    frame->is_complete = 0;
    frame->codec = header->codec;
    frame->n_pkts_total = header->n_pkts;
    frame->n_pkts_fec = fec_packet_count(header->reserved);
    frame->n_pkts_media = low16(static_cast<uint32_t>(frame->n_pkts_total - frame->n_pkts_fec));
    frame->n_pkts_received = 0;
    frame->n_pkts_received_media = 0;
    frame->n_pkts_received_fec = 0;
    frame->protocol_version = header->protocol_version;
    frame->reserved = header->reserved;
    frame->ts = video->common.sent_ts;
    frame->first_pkt_seq = low16(static_cast<uint32_t>(seq - header->subseq));
    frame->min_seq = seq;
    frame->max_seq = seq;
    frame->rexfer_cnt = 1;
    frame->min_rtp_seq = low16(static_cast<uint32_t>(rtp_seq(&video->payload) - header->subseq));
    frame->max_rtp_seq = low16(static_cast<uint32_t>(frame->min_rtp_seq + frame->n_pkts_total - 1));
    frame->payload_type = rtp_payload_type(&video->payload);
    frame->rtp_timestamp = be16_at(&video->payload, 4);
    LOG(RTC_LOG_DEBUG, log_mod(stream),
        "[%s][%s] update_frame: idr %d, codec %d, n_pkts %d, n_pkts_media %d, n_pkts_fec %d, seq %d, frame_seq %d\n",
        frame->is_key_frame, frame->codec, header->n_pkts, frame->n_pkts_media, frame->n_pkts_fec, seq,
        frame->frame_seq);
}

// Gives a fresh frame its two arrays; false without memory. A frame of no packets can have no array, and
// is treated as one that could not be had.
bool allocate_packets(video_frame *frame)
{
    const size_t count = frame->n_pkts_total;

    frame->pkts = nullptr;
    frame->pkts_status = nullptr;
    if (count != 0) {
        frame->pkts = static_cast<rtn_bytes_t *>(
            zeb_malloc_impl_dbg(count * sizeof(rtn_bytes_t), "video_frames_q_insert_video_packet", __LINE__));
    }
    if (frame->pkts == nullptr) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] malloc pkts failed, seq %u pkts_count %u\n", frame->frame_seq,
            frame->n_pkts_total);
        return false;
    }
    for (size_t i = 0; i < count; i++) {
        zeb_dynamic_array_init(&frame->pkts[i]);
    }
    frame->pkts_status = static_cast<video_packet_status_t *>(
        zeb_malloc_impl_dbg(count * sizeof(video_packet_status_t), "video_frames_q_insert_video_packet", __LINE__));
    if (frame->pkts_status == nullptr) {
        LOG(RTC_LOG_WARNING, LM_RCV_VID, "[%s][%s] malloc pkts_status failed\n");
        return false;
    }
    memset(frame->pkts_status, 0, count * sizeof(video_packet_status_t));
    return true;
}

// The expected sequence begins at index 0 of the first frame, not at the packet that happened to come first.
void start_expected_sequence(user_video_stream *stream, const video_frame *frame, const zeb_ts_t *now_p)
{
    if (stream->pkt_seq != kSeqUnknown) {
        return;
    }
    stream->pkt_seq = frame->first_pkt_seq;
    stream->last_to_user_at = *now_p;
    LOG(RTC_LOG_INFO, log_mod(stream), "[%s][%s] initialize expect_seq to %d\n", stream->pkt_seq);
}

void __remove_frame(user_video_stream *stream, video_frame *frame)
{
    video_stream_remove_frame(stream, frame);
    video_stream_delete_frame(stream, frame);
    stream->n_overlapped_frames_recent++;
}

// Stores the packet's payload at its index. An index beyond the frame, which only a contradictory sender
// asks for, is refused like an invalid packet. When a copy cannot be had nothing is counted and the index
// entry is given back, so that a retransmission can still fill it.
void __frame_add_subdata(rtc_video_frames_t *q, video_frame *frame, PVideoData4 *video, int copy)
{
    const uint16_t subseq = video->header.subseq;

    if (subseq >= frame->n_pkts_total || !zeb_dynamic_array_is_empty(&frame->pkts[subseq]) ||
        video->payload.count == 0) {
        LOG_PLAIN(RTC_LOG_CRIT, "[%s] insert packet fail because invalid packet or non-empty frame->pkts\n");
        return;
    }
    if (copy == 0) {
        zeb_dynamic_array_take(&frame->pkts[subseq], &video->payload);
    } else if (zeb_dynamic_bytes_copy(&frame->pkts[subseq], &video->payload) != 0) {
        *index_entry(q, video->common.seq) = kIndexEntryFree;
        return;
    }
    frame->n_pkts_received++;
    if (subseq < frame->n_pkts_media) {
        frame->n_pkts_received_media++;
    } else {
        frame->n_pkts_received_fec++;
    }
    frame->is_complete = frame->n_pkts_received >= frame->n_pkts_media;
    frame->pkts_status[subseq].is_received = 1;
}

video_frame *video_frames_q_insert_video_packet(user_video_stream *stream, PVideoData4 *video, int copy,
                                                const zeb_ts_t *now_p)
{
    rtc_video_frames_t *q = &stream->video_frames_q;
    video_frame *frame = frame_slot(q, video->header.frame_seq);

    if (!claim_frame_slot(stream, frame, video) || !claim_index_entry(stream, frame, video)) {
        return nullptr;
    }
    const bool is_counted = q->count != 0 && is_occupied(frame);
    widen_queue_bounds(q, video->header.frame_seq, video->common.sent_ts);
    if (is_counted && frame->n_pkts_total == video->header.n_pkts) {
        widen_received_range(frame, video->common.seq);
        __frame_add_subdata(q, frame, video, copy);
        return frame;
    }
    // A frame that comes back with another packet count starts over in its slot. So does whatever else
    // still holds storage there: a removal that failed can leave an occupied slot in a queue that counts
    // no frame.
    __video_frame_free_datas(q, frame);
    if (!is_counted) {
        __insert_frame(stream, video);
    }
    __update_frame(stream, frame, video, now_p);
    if (!allocate_packets(frame)) {
        __remove_frame(stream, frame);
        return nullptr;
    }
    start_expected_sequence(stream, frame, now_p);
    __frame_add_subdata(q, frame, video, copy);
    return frame;
}

} // namespace

void rtc_video_frames_init(rtc_video_frames_t *q)
{
    if (q == nullptr) {
        return;
    }
    q->count = 0;
    for (int16_t &entry : q->pkt_frame_pos) {
        entry = kIndexEntryFree;
    }
    for (rtc_timer_counter_pair_t &pair : q->pkt_tc_pairs) {
        pair.n = 0;
    }
    for (video_frame &frame : q->video_frames) {
        frame.n_pkts_total = 0;
        frame.pkts = nullptr;
        frame.is_complete = 0;
    }
}

int64_t video_frames_q_get_min_frame_seq(rtc_video_frames_t *q)
{
    return q->count == 0 ? -1 : static_cast<int64_t>(q->min_frame_seq);
}

int64_t video_frames_q_get_max_frame_seq(rtc_video_frames_t *q)
{
    return q->count == 0 ? -1 : static_cast<int64_t>(q->max_frame_seq);
}

video_frame *video_frames_q_get_min_seq_frame(rtc_video_frames_t *q)
{
    return q->count == 0 ? nullptr : frame_slot(q, q->min_frame_seq);
}

video_frame *video_frames_q_get_max_seq_frame(rtc_video_frames_t *q)
{
    return q->count == 0 ? nullptr : frame_slot(q, q->max_frame_seq);
}

video_frame *video_frames_q_next_frame(rtc_video_frames_t *q, video_frame *frame)
{
    if (q->count == 0 || zeb_uint32_after(zeb_uint32_next(frame->frame_seq), q->max_frame_seq)) {
        return nullptr;
    }
    return nearest_frame(q, frame->frame_seq, q->max_frame_seq - frame->frame_seq, direction::up);
}

video_frame *video_frames_q_prev_frame(rtc_video_frames_t *q, video_frame *frame)
{
    if (q->count == 0 || zeb_uint32_after(q->min_frame_seq, zeb_uint32_prev(frame->frame_seq))) {
        return nullptr;
    }
    return nearest_frame(q, frame->frame_seq, frame->frame_seq - q->min_frame_seq, direction::down);
}

video_frame *video_stream_find_frame_by_pkt_seq(user_video_stream *stream, seq_t seq)
{
    return video_frames_q_find_frame_by_packet_seq(&stream->video_frames_q, seq);
}

void video_stream_delete_frame(user_video_stream *stream, video_frame *frame)
{
    rtc_service *service = stream->channel != nullptr ? stream->channel->service : nullptr;

    video_frame_destructor(service, &stream->video_frames_q, frame);
}

void video_stream_pkt_seq_move_forward(user_video_stream *stream, uint16_t seq)
{
    if (stream->pkt_seq == kSeqUnknown) {
        stream->pkt_seq = seq;
        return;
    }
    if (!zeb_uint16_after(seq, low16(stream->pkt_seq))) {
        return;
    }
    const seq_t from = low16(stream->pkt_seq);
    const uint32_t way = zeb_uint16_dist(seq, from);
    for (uint32_t i = 0; i < way && i < kWayOverWholeIndex; i++) {
        stream->video_frames_q.pkt_tc_pairs[index_pos(low16(from + i))].n = 0;
    }
    stream->pkt_seq = seq;
}

// Each turn takes the next frame sequence number, so the 40 slots bound the loop.
void video_stream_pkt_seq_auto_forward(user_video_stream *stream, video_frame *frame, uint16_t index_start)
{
    rtc_video_frames_t *q = &stream->video_frames_q;

    while (frame != nullptr && is_occupied(frame)) {
        if (frame->n_pkts_received < frame->n_pkts_total) {
            forward_to_first_hole(stream, frame, index_start);
            return;
        }
        const seq_t last_seq = video_frame_last_pkt_seq(frame);
        LOG(RTC_LOG_INFO, LM_RCV_VID,
            "[%s][%s] get all pkts, n_pkts_total %d, n_pkts_received %d, expect_seq %d --> %d\n", frame->n_pkts_total,
            frame->n_pkts_received, stream->pkt_seq, last_seq + 1);
        video_stream_pkt_seq_move_forward(stream, zeb_uint16_next(last_seq));
        if (zeb_uint32_after_eq(frame->frame_seq, q->max_frame_seq)) {
            return;
        }
        frame = video_frames_q_find_frame_by_frame_seq(q, zeb_uint32_next(frame->frame_seq));
        index_start = 0;
    }
}

// The frame is trusted to be one of the queue's: neither its slot nor its storage is looked at.
int video_stream_remove_frame(user_video_stream *stream, video_frame *frame)
{
    rtc_video_frames_t *q = &stream->video_frames_q;

    if (q->count == 0) {
        return -1;
    }
    if (!zeb_uint32_after_eq(frame->frame_seq, q->min_frame_seq) ||
        !zeb_uint32_after_eq(q->max_frame_seq, frame->frame_seq)) {
        LOG(RTC_LOG_CRIT, log_mod(stream),
            "[%s][%s][%s] remove frame fail, frame_seq [%u], but min/max frame_seq[%u/%u]\n",
            channel_name(stream->channel), frame->frame_seq, q->min_frame_seq, q->max_frame_seq);
        return -1;
    }
    if (is_receiving(stream) && zeb_uint16_after_eq(video_frame_last_pkt_seq(frame), low16(stream->pkt_seq))) {
        LOG(RTC_LOG_DEBUG, log_mod(stream), "[%s][%s][%s] auto fwd due to remove frame, index %d\n",
            channel_name(stream->channel), frame->n_pkts_total);
        video_stream_pkt_seq_auto_forward(stream, frame, frame->n_pkts_total); // its own holes do not count
    }
    q->count--;
    if (q->count != 0 && !move_bounds_off(stream, frame)) {
        return -1;
    }
    __video_frame_free_datas(q, frame);
    return 0;
}

video_frame *video_stream_insert_video_packet(user_video_stream *stream, PVideoData4 *video, int copy,
                                              const zeb_ts_t *now_p)
{
    if (video->header.subseq >= video->header.n_pkts) {
        LOG_PLAIN(RTC_LOG_CRIT, "[%s] pkt_cnt %u should be bigger than subseq %u from %s\n", video->header.n_pkts,
                  video->header.subseq, is_receiving(stream) ? "receiving" : "sending");
    }
    return video_frames_q_insert_video_packet(stream, video, copy, now_p);
}

// ---------------------------------------------------------------------------------------------------
// Payload assembly
//
// From a frame of the queue to one bitstream: views of the payloads behind their headers, then the joined
// bytes. Nothing here keeps state or changes the frame it reads. Called by the consumer of whole frames.
// ---------------------------------------------------------------------------------------------------

namespace
{

// Bytes of the header extension behind its length bytes (RFC 3550, 5.3.1). Senders and receivers of this
// system agree on exactly this expression, which is four times the word count only below 256 words.
uint32_t extension_data_size(uint8_t length_high, uint8_t length_low)
{
    return static_cast<uint32_t>(length_high << 8 | length_low << 2);
}

uint32_t encapsulation_size_by_first_byte(const rtn_bytes_t *packet, uint32_t offset)
{
    if (rtp_payload_type(packet) != 116) {
        return 0;
    }
    switch (byte_at(packet, offset)) {
    case 127:
        return 2;
    case 107:
        return 1;
    default:
        return 0;
    }
}

uint32_t encapsulation_size(const rtn_bytes_t *packet, uint32_t offset, uint8_t is_generic, uint8_t is_fec_pkt,
                            uint8_t method)
{
    switch (method) {
    case 0:
        return is_generic ? 1 : 0;
    case 1:
        return encapsulation_size_by_first_byte(packet, offset);
    case 2:
        return is_generic ? 1u + is_fec_pkt : 0u;
    default:
        LOG_PLAIN(RTC_LOG_CRIT, "[%s] No handler\n");
        return 0;
    }
}

// Bytes from the start of a packet to its payload.
uint32_t get_packet_header_size(const rtn_bytes_t *packet, uint8_t is_generic, uint8_t is_fec_pkt, uint8_t method)
{
    uint32_t size = kRtpFixedHeaderSize + 4u * rtp_csrc_count(packet);

    if (rtp_has_extension(packet)) {
        size += 4 + extension_data_size(byte_at(packet, size + 2), byte_at(packet, size + 3));
    }
    return size + encapsulation_size(packet, size, is_generic, is_fec_pkt, method);
}

// A header that claims more bytes than the packet has makes the count wrap; the channel layer lets no such
// packet in.
rtn_bytes_t payload_view(const rtn_bytes_t *packet, uint32_t header_size)
{
    rtn_bytes_t view;

    view.values = static_cast<uint8_t *>(packet->values) + header_size;
    view.count = low16(packet->count - header_size);
    view.allocated = view.count;
    return view;
}

// Media packets that are really there. A FEC count above the packet count has wrapped `n_pkts_media`, and a
// frame that was parsed without memory has no packets at all.
uint32_t media_packet_count(const video_frame *frame)
{
    if (frame->pkts == nullptr) {
        return 0;
    }
    const bool has_wrapped = is_occupied(frame) && frame->n_pkts_media > frame->n_pkts_total;

    return has_wrapped ? frame->n_pkts_total : frame->n_pkts_media;
}

// Room for the payloads and as many start codes as the packets may yield.
size_t bitstream_alloc_size(const video_frame *frame, uint32_t n_media)
{
    size_t size = 0;

    for (uint32_t i = 0; i < n_media; i++) {
        size += kStartCodeLen * kMaxNaluPerPkt + frame->pkts[i].count;
    }
    return size;
}

// What is left of the last packet without its padding: p bytes at the end that all hold p. False when they
// do not.
bool strip_generic_padding(const rtn_bytes_t *packet, uint16_t *nalu_len)
{
    const uint8_t pad_count = *nalu_len != 0 ? byte_at(packet, *nalu_len - 1u) : 0;

    if (pad_count > *nalu_len) {
        return false;
    }
    for (uint8_t k = 0; k < pad_count; k++) {
        if (byte_at(packet, *nalu_len - 1u - k) != pad_count) {
            return false;
        }
    }
    *nalu_len = low16(static_cast<uint32_t>(*nalu_len - pad_count));
    return true;
}

struct bitstream {
    uint8_t *data;
    size_t offset; // write position; the depacketizers move it and the size apart from each other
    size_t size;   // bytes produced
};

bool append_generic_packet(bitstream *out, const rtn_bytes_t *packet, bool is_last)
{
    uint16_t nalu_len = packet->count;

    if (is_last && !strip_generic_padding(packet, &nalu_len)) {
        LOG_PLAIN(RTC_LOG_ERROR, "[%s] Generic padding error!\n");
        return false;
    }
    if (nalu_len != 0) {
        memmove(out->data + out->offset, packet->values, nalu_len);
    }
    out->offset += nalu_len;
    out->size += nalu_len;
    return true;
}

using depacketizer = int (*)(uint8_t *, const uint8_t *, const uint8_t *, size_t *, size_t *);

void append_depacketized(bitstream *out, const video_frame *frame, uint32_t n_media, depacketizer append_packet)
{
    for (uint32_t i = 0; i < n_media; i++) {
        const uint8_t *cur_ptr = static_cast<const uint8_t *>(frame->pkts[i].values);
        const uint8_t *end_ptr = cur_ptr + frame->pkts[i].count;
        if (append_packet(out->data, cur_ptr, end_ptr, &out->offset, &out->size) != 0) {
            return;
        }
    }
}

bool append_generic(bitstream *out, const video_frame *frame, uint32_t n_media)
{
    for (uint32_t i = 0; i < n_media; i++) {
        if (!append_generic_packet(out, &frame->pkts[i], i == n_media - 1)) {
            return false;
        }
    }
    return true;
}

void log_unknown_packetizer(const video_frame *frame, uint32_t n_media)
{
    if (n_media == 0) {
        return;
    }
    const rtn_bytes_t *packet = &frame->pkts[0];
    LOG_PLAIN(RTC_LOG_CRIT, "[%s] [ERROR] SHOULDNOT Enter, reserved:%d protocol_version:%d %02X %02X %02X %02X %02X\n",
              frame->reserved, frame->protocol_version, byte_at(packet, 0), byte_at(packet, 1), byte_at(packet, 2),
              byte_at(packet, 3), byte_at(packet, 4));
}

// False on a padding error, which voids the whole frame; whatever else goes wrong keeps what is there.
bool append_media(bitstream *out, const video_frame *frame, uint32_t n_media, PACKETIZER_TYPE packetizer_type)
{
    switch (packetizer_type) {
    case PACKETIZER_TYPE_GENERIC:
        return append_generic(out, frame, n_media);
    case PACKETIZER_TYPE_H264:
        append_depacketized(out, frame, n_media, depacketizer_h264_packet);
        return true;
    case PACKETIZER_TYPE_H265:
        append_depacketized(out, frame, n_media, depacketizer_h265_packet);
        return true;
    default:
        log_unknown_packetizer(frame, n_media);
        return true;
    }
}

} // namespace

uint8_t video_frame_is_generic(const video_frame *frame)
{
    return frame->protocol_version < kGenericProtocolVersions || frame->codec == VIDEO_TYPE_GENERIC ||
           frame->codec == VIDEO_TYPE_GENERIC_H264 || frame->codec == VIDEO_TYPE_GENERIC_JPEG;
}

int video_frame_parse_payload(const video_frame *frame, video_frame *parsed_frame)
{
    const uint8_t is_generic = video_frame_is_generic(frame);
    const uint8_t method = fec_method(frame->reserved);
    const size_t size = frame->n_pkts_total * sizeof(rtn_bytes_t);
    rtn_bytes_t *views = static_cast<rtn_bytes_t *>(zeb_malloc_impl_dbg(size, "video_frame_parse_payload", __LINE__));

    if (views != nullptr) {
        memset(views, 0, size);
        for (uint32_t i = 0; i < frame->n_pkts_total; i++) {
            if (frame->pkts_status[i].is_received != 0) {
                const uint8_t is_fec_pkt = i >= frame->n_pkts_media;
                views[i] = payload_view(&frame->pkts[i],
                                        get_packet_header_size(&frame->pkts[i], is_generic, is_fec_pkt, method));
            }
        }
    }
    *parsed_frame = *frame;
    parsed_frame->pkts = views;
    return 0;
}

uint8_t *video_frame_regroup_pkts(video_frame *frame, PACKETIZER_TYPE packetizer_type, size_t *p_frame_size)
{
    if (frame == nullptr || p_frame_size == nullptr) {
        return nullptr;
    }
    const uint32_t n_media = media_packet_count(frame);
    const size_t alloc_size = bitstream_alloc_size(frame, n_media);
    bitstream out = {};
    out.data = static_cast<uint8_t *>(zeb_malloc_impl_dbg(alloc_size, "video_frame_regroup_pkts", __LINE__));
    if (out.data == nullptr) {
        if (alloc_size == 0) { // no memory asked for, none missing
            *p_frame_size = 0;
        }
        return nullptr;
    }
    if (!append_media(&out, frame, n_media, packetizer_type)) {
        zeb_free_impl(out.data);
        return nullptr;
    }
    *p_frame_size = out.size;
    if (out.size == 0) {
        zeb_free_impl(out.data);
        return nullptr;
    }
    return out.data;
}

// The two schemes share the numbers of the codecs that both know; "unknown" is the packets' number in both
// directions, so that a caller tests one value.

uint8_t video_codec_to_inner(video_data_type_e codec_outer)
{
    switch (static_cast<uint8_t>(codec_outer)) {
    case VIDEO_DATA_TYPE_H264:
        return VIDEO_TYPE_H264;
    case VIDEO_DATA_TYPE_H265:
        return VIDEO_TYPE_H265;
    case VIDEO_DATA_TYPE_GENERIC:
        return VIDEO_TYPE_GENERIC;
    case VIDEO_DATA_TYPE_GENERIC_JPEG:
        return VIDEO_TYPE_GENERIC_JPEG;
    default:
        return VIDEO_TYPE_UNKNOWN;
    }
}

uint8_t video_codec_to_outer(VIDEO_PACKET_TYPE codec_inner)
{
    switch (static_cast<uint8_t>(codec_inner)) {
    case VIDEO_TYPE_H264:
        return VIDEO_DATA_TYPE_H264;
    case VIDEO_TYPE_H265:
        return VIDEO_DATA_TYPE_H265;
    case VIDEO_TYPE_GENERIC:
        return VIDEO_DATA_TYPE_GENERIC;
    case VIDEO_TYPE_GENERIC_JPEG:
        return VIDEO_DATA_TYPE_GENERIC_JPEG;
    default:
        return VIDEO_TYPE_UNKNOWN;
    }
}

// ---------------------------------------------------------------------------------------------------
// Reorder cache
//
// The RTP path. Packets wait in a ring (packet S in slot S mod 8192) and are filed into frames by RTP
// timestamp; whole frames leave from the head, in order. A slot in use owns its payload; its `frm_ptr` is
// a frame of the map, or null. `pkt_cur_cnt` counts the slots in use. A cache without a ring is empty.
// The service loop calls in; delivery calls out to the channel layer, which must leave the cache alone.
// ---------------------------------------------------------------------------------------------------

namespace
{

webrtc_video_packet_t *ring_slot(const webrtc_video_cache_t *video_cache, uint32_t seq)
{
    return &video_cache->pkt_arr[seq & (WEBRTC_VIDEO_RING_SLOTS - 1)];
}

bool is_set(const webrtc_video_packet_t *pkt)
{
    return pkt->state == WEBRTC_VIDEO_PKT_SET;
}

bool is_complete(const webrtc_video_frame_t *frm)
{
    return frm->state > WEBRTC_VIDEO_FRM_INCOMPLETE;
}

bool is_waiting_for_key_frame(const webrtc_video_cache_t *video_cache)
{
    return (video_cache->frm_flag & kWaitingForKeyFrame) != 0;
}

webrtc_video_frame_t *frame_of(zeb_rb_node *node)
{
    return reinterpret_cast<webrtc_video_frame_t *>(node);
}

const webrtc_video_frame_t *frame_of(const zeb_rb_node *node)
{
    return reinterpret_cast<const webrtc_video_frame_t *>(node);
}

// Plain unsigned order, which does not follow the wrap of RTP timestamps: the cache only ever looks a
// timestamp up, and finds its oldest frame through the ring.
int webrtc_video_frame_cmp(const zeb_rb_node *lhs, const zeb_rb_node *rhs, va_list value)
{
    const uint32_t left = frame_of(lhs)->timestamp;
    const uint32_t right = rhs != nullptr ? frame_of(rhs)->timestamp : va_arg(value, uint32_t);

    return left > right ? 1 : left < right ? -1 : 0;
}

// -- Records --

void delete_all_cache_frames(webrtc_video_cache_t *video_cache)
{
    while (video_cache->frm_map.rb_node != nullptr) {
        webrtc_video_frame_t *frm = frame_of(video_cache->frm_map.rb_node);
        zeb_rb_erase(&video_cache->frm_map, &frm->node);
        webrtc_video_frame_fini(frm);
    }
}

// A slot's payload goes whatever its state, and nothing else of it is cleared: the ring is on its way out.
void release_payload(webrtc_video_packet_t *pkt)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &pkt->video.payload);
    pkt->state = WEBRTC_VIDEO_PKT_NONE;
}

void empty_slot(webrtc_video_cache_t *video_cache, uint32_t seq, void (*release)(webrtc_video_packet_t *pkt))
{
    webrtc_video_packet_t *pkt = ring_slot(video_cache, seq);

    if (is_set(pkt) && video_cache->pkt_cur_cnt != 0) {
        video_cache->pkt_cur_cnt--;
    }
    release(pkt);
}

// Releases every slot between the oldest and the newest packet held. That is all of them unless sequence
// numbers more than half a circle apart have met; what is then left over is found in the whole ring. With
// both ends unknown the range is the one slot 0x1FFF, and a slot that nobody counted is not looked for.
void empty_ring(webrtc_video_cache_t *video_cache, void (*release)(webrtc_video_packet_t *pkt))
{
    const uint16_t max_seq = low16(video_cache->pkt_max_seq);

    for (uint16_t s = low16(video_cache->pkt_min_seq); zeb_uint16_after_eq(max_seq, s); s = zeb_uint16_next(s)) {
        empty_slot(video_cache, s, release);
    }
    for (uint32_t i = 0; video_cache->pkt_cur_cnt != 0 && i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        empty_slot(video_cache, i, release);
    }
    video_cache->pkt_cur_cnt = 0;
}

void forget_delivery(webrtc_video_cache_t *video_cache)
{
    video_cache->last_deliver_frm_ts = 0;
    video_cache->last_deliver_frm_seq = kFrameSeqUnknown;
    video_cache->last_deliver_pkt_seq = kSeqUnknown;
}

void forget_sequences(webrtc_video_cache_t *video_cache)
{
    video_cache->frm_min_timestamp = kTimestampUnknown;
    video_cache->frm_max_timestamp = kTimestampUnknown;
    video_cache->frm_flag |= kWaitingForKeyFrame;
    video_cache->pkt_exp_seq = kSeqUnknown;
    video_cache->pkt_min_seq = kSeqUnknown;
    video_cache->pkt_max_seq = kSeqUnknown;
    forget_delivery(video_cache);
    video_cache->last_ordered_pkt_seq = kSeqUnknown;
    video_cache->last_ordered_timestamp = kTimestampUnknown;
    video_cache->last_removed_timestamp = kTimestampUnknown;
}

int webrtc_video_frame_walk_impl(zeb_rb_node *frm_node, void *)
{
    const webrtc_video_frame_t *frm = frame_of(frm_node);

    LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] ts=%u state=%u\n", frm->timestamp, frm->state);
    return 0;
}

// Lists the frames of the map by ascending timestamp, without regard to its wrap. For a debugger: nothing
// calls it.
__attribute__((used)) void webrtc_video_frame_walk(webrtc_video_cache_t *video_cache)
{
    LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] --------frm_map dump Start--------\n");
    zeb_rb_traverse_ldr(&video_cache->frm_map, webrtc_video_frame_walk_impl, nullptr);
    LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] --------frm_map dump End----------\n");
}

// -- Expected sequence --

// The frame of the oldest packet held. The slot's state is not tested: an empty slot has no frame.
webrtc_video_frame_t *webrtc_video_get_head_frame(const webrtc_video_cache_t *video_cache)
{
    if (video_cache == nullptr || video_cache->pkt_arr == nullptr || video_cache->pkt_min_seq == kSeqUnknown) {
        return nullptr;
    }
    return ring_slot(video_cache, video_cache->pkt_min_seq)->frm_ptr;
}

// The first packet held behind `start_seq`; half a circle of numbers at most is looked through.
webrtc_video_packet_t *webrtc_video_get_next_recved_pkt(const webrtc_video_cache_t *video_cache, uint16_t start_seq)
{
    const uint16_t max_seq = low16(video_cache->pkt_max_seq);

    for (uint16_t s = zeb_uint16_next(start_seq); zeb_uint16_after_eq(max_seq, s); s = zeb_uint16_next(s)) {
        webrtc_video_packet_t *pkt = ring_slot(video_cache, s);
        if (is_set(pkt)) {
            return pkt;
        }
    }
    return nullptr;
}

// The first number behind `seq` that is not held or lies beyond the newest packet. The slot behind `seq`
// is tested before any bound, and only whether it is in use, not which number it holds.
uint16_t first_missing_after(const webrtc_video_cache_t *video_cache, uint16_t seq)
{
    uint16_t candidate = zeb_uint16_next(seq);

    while (is_set(ring_slot(video_cache, candidate))) {
        candidate = zeb_uint16_next(candidate);
        if (!zeb_uint16_after_eq(low16(video_cache->pkt_max_seq), candidate)) {
            break;
        }
    }
    return candidate;
}

// `new_seq` is accounted for, received in order or given up: moves on to what is expected after it.
void webrtc_video_move_expect_seq(webrtc_video_cache_t *video_cache, uint16_t new_seq, uint32_t timestamp)
{
    if (video_cache->pkt_cur_cnt == 0) {
        video_cache->pkt_exp_seq = zeb_uint16_next(new_seq);
        video_cache->last_ordered_pkt_seq = new_seq;
        video_cache->last_ordered_timestamp = timestamp;
        return;
    }
    video_cache->pkt_exp_seq = first_missing_after(video_cache, new_seq);
    if (video_cache->last_ordered_pkt_seq == kSeqUnknown) {
        video_cache->last_ordered_pkt_seq = new_seq;
        video_cache->last_ordered_timestamp = timestamp;
        return;
    }
    const uint16_t ordered_seq = zeb_uint16_prev(low16(video_cache->pkt_exp_seq));
    if (zeb_uint16_after_eq(ordered_seq, low16(video_cache->pkt_min_seq))) {
        const webrtc_video_packet_t *ordered = ring_slot(video_cache, ordered_seq);
        video_cache->last_ordered_pkt_seq = ordered->pkt_seq;
        video_cache->last_ordered_timestamp = ordered->timestamp;
    }
}

// Where an arriving packet stands.
enum packet_order {
    kRefused = -1,
    kInOrder = 1,
    kAhead = 2
};

// Classifies a packet by order alone; the messages' "time" is no clock. Nothing in this module gives
// `last_removed_timestamp` a value, but whoever does gets the packets of that frame refused.
int webrtc_video_check_expect_seq(webrtc_video_cache_t *video_cache, uint16_t new_seq, uint32_t timestamp)
{
    if (timestamp_is_known(video_cache->last_removed_timestamp) && video_cache->last_removed_timestamp == timestamp) {
        if (new_seq == video_cache->pkt_exp_seq) { // the gap it leaves must not stall the cache
            webrtc_video_move_expect_seq(video_cache, new_seq, timestamp);
        }
        return kRefused;
    }
    if (video_cache->pkt_exp_seq == kSeqUnknown) {
        video_cache->pkt_exp_seq = new_seq;
        return kInOrder;
    }
    if (zeb_uint16_after(low16(video_cache->pkt_exp_seq), new_seq)) {
        LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] time-out pkt %u < %u\n", new_seq, video_cache->pkt_exp_seq);
        return kRefused;
    }
    if (zeb_uint16_after(new_seq, low16(video_cache->pkt_exp_seq))) {
        LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] time-exceed pkt %u > %u\n", new_seq, video_cache->pkt_exp_seq);
        return kAhead;
    }
    return kInOrder;
}

// -- Removal --

// Empties the slots of the frame's range, whatever frame their packets belong to. A range longer than the
// ring comes to the same slots again.
void empty_frame_range(webrtc_video_cache_t *video_cache, const webrtc_video_frame_t *frm)
{
    const uint16_t min_seq = low16(frm->cur_min_seq);
    const uint16_t max_seq = low16(frm->cur_max_seq);
    const uint32_t range = zeb_uint16_after_eq(max_seq, min_seq) ? zeb_uint16_dist(max_seq, min_seq) + 1u : 0;

    for (uint32_t i = 0; i < range && i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        webrtc_video_packet_t *pkt = ring_slot(video_cache, min_seq + i);
        if (is_set(pkt)) {
            webrtc_video_packet_reset(pkt);
            video_cache->pkt_cur_cnt--;
        }
    }
}

// Frames that left the map while slots that their ranges do not cover may still point at them.
struct departed_frames {
    webrtc_video_frame_t *first; // linked by their nodes' `parent`
};

// A frame in the map has a packet, so its range is known.
bool has_departed(const webrtc_video_frame_t *frm)
{
    return frm->cur_min_seq == kSeqUnknown;
}

void depart(departed_frames *departed, webrtc_video_frame_t *frm)
{
    frm->cur_min_seq = kSeqUnknown;
    frm->node.parent = departed->first == nullptr ? nullptr : &departed->first->node;
    departed->first = frm;
}

// Packets outside of their frame's range stay, but not their link to a frame that is about to go. No count
// tells whether there are any: a frame's has 16 bits, and packets were evicted. However many frames there are,
// the packets held are looked through once, which are a few behind the oldest unless the path loses much.
void unlink_departed(webrtc_video_cache_t *video_cache)
{
    uint32_t n_left = video_cache->pkt_cur_cnt;

    for (uint32_t i = 0; n_left != 0 && i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        webrtc_video_packet_t *pkt = ring_slot(video_cache, video_cache->pkt_min_seq + i);
        if (!is_set(pkt)) {
            continue;
        }
        n_left--;
        if (pkt->frm_ptr != nullptr && has_departed(pkt->frm_ptr)) {
            pkt->frm_ptr = nullptr;
        }
    }
}

void free_departed(webrtc_video_cache_t *video_cache, departed_frames *departed)
{
    if (departed->first == nullptr) {
        return;
    }
    unlink_departed(video_cache);
    while (departed->first != nullptr) {
        webrtc_video_frame_t *frm = departed->first;
        departed->first = reinterpret_cast<webrtc_video_frame_t *>(frm->node.parent);
        webrtc_video_frame_fini(frm);
    }
}

// Moves the cache's bounds off a range that ends at `max_seq` and holds nothing any more.
void move_cache_bounds_off(webrtc_video_cache_t *video_cache, uint16_t max_seq)
{
    if (video_cache->pkt_cur_cnt == 0) {
        video_cache->pkt_min_seq = kSeqUnknown;
        video_cache->pkt_max_seq = kSeqUnknown;
        video_cache->frm_min_timestamp = kTimestampUnknown;
        video_cache->frm_max_timestamp = kTimestampUnknown;
        return;
    }
    const webrtc_video_packet_t *next = webrtc_video_get_next_recved_pkt(video_cache, max_seq);
    if (next == nullptr) {
        LOG(RTC_LOG_CRIT, LM_RCV_VID, "[%s][%s] no avaliable webrtc video packet ???\n");
        return;
    }
    if (zeb_uint16_after_eq(max_seq, low16(video_cache->pkt_min_seq))) {
        video_cache->pkt_min_seq = next->pkt_seq;
        video_cache->frm_min_timestamp = next->timestamp;
    }
    if (zeb_uint16_after_eq(max_seq, low16(video_cache->pkt_max_seq))) {
        video_cache->pkt_max_seq = next->pkt_seq;
        video_cache->frm_max_timestamp = next->timestamp;
    }
}

// Takes a frame out of the map with its packets, and frees it when no packet is left that could point at it;
// else it is freed later.
void webrtc_video_remove_frame(webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm, departed_frames *departed)
{
    const uint16_t max_seq = low16(frm->cur_max_seq);

    LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] remove frm: state=%u key=%u %u [%u, %u][%u, %u] %u/%u\n", frm->state,
        frm->is_key, frm->timestamp, frm->cur_min_seq, frm->cur_max_seq, frm->min_seq, frm->max_seq,
        frm->n_pkts_received, frm->n_pkts_total);
    zeb_rb_erase(&video_cache->frm_map, &frm->node);
    empty_frame_range(video_cache, frm);
    move_cache_bounds_off(video_cache, max_seq);
    if (zeb_uint16_after(max_seq, low16(video_cache->pkt_exp_seq))) {
        webrtc_video_move_expect_seq(video_cache, max_seq, frm->timestamp);
    }
    if (video_cache->pkt_cur_cnt != 0) {
        depart(departed, frm);
    } else {
        webrtc_video_frame_fini(frm);
    }
    video_cache->frm_cur_cnt--;
}

// The frame of the head packet. Null, with a line in the log, when it has none any more.
webrtc_video_frame_t *next_head_frame(webrtc_video_cache_t *video_cache)
{
    webrtc_video_frame_t *frm = webrtc_video_get_head_frame(video_cache);
    if (frm == nullptr || has_departed(frm)) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] frm_ptr is null\n");
        return nullptr;
    }
    return frm;
}

// Each turn takes a frame out of the map, so the loop ends.
webrtc_video_frame_t *drop_to_key_frame(webrtc_video_cache_t *video_cache, departed_frames *departed,
                                        const zeb_ts_t *now_p)
{
    const uint32_t stuck_timestamp = low32(video_cache->frm_min_timestamp);

    while (video_cache->pkt_min_seq != kSeqUnknown) {
        webrtc_video_frame_t *frm = next_head_frame(video_cache);
        if (frm == nullptr || (frm->is_key != 0 && frm->timestamp != stuck_timestamp)) {
            return frm;
        }
        webrtc_video_remove_frame(video_cache, frm, departed);
    }
    webrtc_video_send_intra_request(video_cache, now_p);
    return nullptr;
}

// Drops frames from the head to the next key frame, which it returns: perhaps an incomplete one. The frame
// that is stuck goes even when it is a key frame itself. Null when none is left, after asking for one.
webrtc_video_frame_t *webrtc_video_remove_to_key_frame(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    departed_frames departed = {};

    webrtc_video_cache_dump(video_cache);
    LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] remove_to_key_frame !!!!!!\n");
    forget_delivery(video_cache);
    webrtc_video_frame_t *head = drop_to_key_frame(video_cache, &departed, now_p);
    free_departed(video_cache, &departed);
    return head;
}

// -- Delivery --

void webrtc_video_fix_frm_seq(webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm)
{
    if (video_cache->last_deliver_frm_seq == kFrameSeqUnknown) {
        video_cache->last_deliver_frm_seq = kFirstFrameSeq;
        frm->frm_seq = kFirstFrameSeq;
        return;
    }
    if (frm->min_seq == zeb_uint16_next(low16(video_cache->last_deliver_pkt_seq))) {
        frm->frm_seq = zeb_uint32_next(low32(video_cache->last_deliver_frm_seq));
        video_cache->last_deliver_frm_seq = frm->frm_seq;
        return;
    }
    video_cache->last_deliver_frm_seq = kFirstFrameSeq;
    frm->frm_seq = kFirstFrameSeq;
    rtc_video_stream_reset_state(video_cache->stream, &frm->ts);
}

// Writes the native numbering into the frame's packets.
void webrtc_video_frm_fix_video(webrtc_video_cache_t *video_cache, const webrtc_video_frame_t *frm)
{
    if (!is_complete(frm) || frm->min_seq == kSeqUnknown || frm->max_seq == kSeqUnknown) {
        LOG(RTC_LOG_WARNING, LM_RCV_VID, "[%s][%s] not complete video frame, state=%u key=%u %u [%u, %u]\n", frm->state,
            frm->is_key, frm->timestamp, frm->min_seq, frm->max_seq);
        return;
    }
    uint16_t s = low16(frm->min_seq);
    uint16_t index = 0;
    do {
        webrtc_video_packet_t *pkt = ring_slot(video_cache, s);
        pkt->frm_seq = frm->frm_seq;
        pkt->sub_seq = index;
        pkt->video.header.frame_seq = frm->frm_seq;
        pkt->video.header.subseq = index;
        pkt->video.header.n_pkts = frm->n_pkts_total;
        s = zeb_uint16_next(s);
        index++;
    } while (zeb_uint16_after_eq(low16(frm->max_seq), s));
}

int webrtc_video_do_deliver_frame(webrtc_video_cache_t *video_cache, const webrtc_video_frame_t *frm,
                                  const zeb_ts_t *now_p)
{
    const uint16_t max_seq = low16(frm->max_seq);

    for (uint16_t s = low16(frm->min_seq); zeb_uint16_after_eq(max_seq, s); s = zeb_uint16_next(s)) {
        webrtc_video_packet_t *pkt = ring_slot(video_cache, s);
        if (!is_set(pkt)) {
            LOG(RTC_LOG_WARNING, LM_RCV_VID, "[%s][%s] pkt is null !!!!!!!!\n");
            continue;
        }
        rtc_video_add_packet(video_cache->stream, &pkt->video, pkt->is_retrans != 0, frm->is_key != 0, now_p);
    }
    return 0;
}

int webrtc_video_deliver_frame(webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm, departed_frames *departed,
                               const zeb_ts_t *now_p)
{
    webrtc_video_fix_frm_seq(video_cache, frm);
    webrtc_video_frm_fix_video(video_cache, frm);
    LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] deliver: key:%u [%u] [%u] [%u, %u] %u/%u\n", frm->is_key, frm->frm_seq,
        frm->timestamp, frm->min_seq, frm->max_seq, frm->n_pkts_received, frm->n_pkts_total);
    video_cache->last_deliver_frm_ts = *now_p;
    video_cache->last_deliver_frm_seq = frm->frm_seq;
    video_cache->last_deliver_pkt_seq = frm->max_seq;
    webrtc_video_do_deliver_frame(video_cache, frm, now_p);
    webrtc_video_remove_frame(video_cache, frm, departed);
    return 0;
}

// Delivers from the head while it is complete. Continuity is not tested: a frame behind a gap goes out too,
// and starts a new numbering. Each turn takes a frame out of the map, so the loop ends.
void webrtc_video_deliver(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    departed_frames departed = {};

    while (video_cache->pkt_min_seq != kSeqUnknown) {
        webrtc_video_frame_t *frm = next_head_frame(video_cache);
        if (frm == nullptr || !is_complete(frm)) {
            break;
        }
        webrtc_video_deliver_frame(video_cache, frm, &departed, now_p);
    }
    free_departed(video_cache, &departed);
}

bool follows_last_delivery(const webrtc_video_cache_t *video_cache, const webrtc_video_frame_t *frm)
{
    return video_cache->last_deliver_pkt_seq == kSeqUnknown ||
           frm->min_seq == zeb_uint16_next(low16(video_cache->last_deliver_pkt_seq));
}

// -- Intake --

void webrtc_video_frame_fix_state(webrtc_video_frame_t *frm)
{
    if (frm == nullptr || frm->state != WEBRTC_VIDEO_FRM_INCOMPLETE || frm->min_seq == kSeqUnknown ||
        frm->max_seq == kSeqUnknown) {
        return;
    }
    frm->n_pkts_total = low16(zeb_uint16_dist(low16(frm->min_seq), low16(frm->max_seq)) + 1u);
    if (frm->n_pkts_received == frm->n_pkts_total) {
        frm->state = WEBRTC_VIDEO_FRM_COMPLETE;
    }
}

bool follows_last_ordered(const webrtc_video_cache_t *video_cache, const webrtc_video_packet_t *pkt)
{
    return video_cache->last_ordered_pkt_seq != kSeqUnknown &&
           pkt->pkt_seq == zeb_uint16_next(low16(video_cache->last_ordered_pkt_seq)) &&
           (!timestamp_is_known(video_cache->last_ordered_timestamp) ||
            pkt->timestamp != video_cache->last_ordered_timestamp);
}

// Only the slot before `seq` is looked at, not which number it holds.
bool follows_endmark(const webrtc_video_cache_t *video_cache, uint16_t seq)
{
    const webrtc_video_packet_t *prev = ring_slot(video_cache, zeb_uint16_prev(seq));

    return zeb_uint16_after(seq, low16(video_cache->pkt_min_seq)) && is_set(prev) && prev->endmark != 0;
}

// Takes the frame's lowest packet as its first when that is proven. A key frame's lowest packet is taken
// as its first without further proof.
void webrtc_video_frame_fix_min(const webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm)
{
    if (video_cache->pkt_arr == nullptr) {
        return;
    }
    const uint16_t cur = low16(frm->cur_min_seq);
    const webrtc_video_packet_t *pkt = ring_slot(video_cache, cur);
    if (pkt->is_key != 0 || follows_last_ordered(video_cache, pkt) || follows_endmark(video_cache, cur)) {
        frm->min_seq = cur;
    }
}

// Takes the frame's highest packet as its last when it carries the end mark, which proves where the frame
// behind it begins, too: whichever of the two came first.
void webrtc_video_frame_fix_max(const webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm)
{
    if (video_cache->pkt_arr == nullptr) {
        return;
    }
    const uint16_t cur = low16(frm->cur_max_seq);
    if (ring_slot(video_cache, cur)->endmark == 0) {
        return;
    }
    frm->max_seq = cur;
    const webrtc_video_packet_t *next = ring_slot(video_cache, zeb_uint16_next(cur));
    if (!zeb_uint16_after(low16(video_cache->pkt_max_seq), cur) || !is_set(next)) {
        return;
    }
    webrtc_video_frame_t *following = next->frm_ptr;
    if (following != nullptr && following->state != WEBRTC_VIDEO_FRM_NONE) {
        following->min_seq = zeb_uint16_next(cur);
        webrtc_video_frame_fix_state(following);
    }
}

void evict_packet(webrtc_video_cache_t *video_cache, webrtc_video_packet_t *pkt)
{
    LOG(RTC_LOG_WARNING, LM_RCV_VID, "[%s][%s] pkt_pos has been set before !!!!!!\n");
    webrtc_video_packet_reset(pkt);
    video_cache->pkt_cur_cnt--;
}

void fill_slot(webrtc_video_packet_t *pkt, PVideoData4 *video, bool is_retrans, const zeb_ts_t *now_p)
{
    pkt->ts = *now_p;
    pkt->state = WEBRTC_VIDEO_PKT_SET;
    pkt->is_retrans = is_retrans;
    pkt->is_key = static_cast<uint8_t>(__is_key_frame(video->header.video_type));
    pkt->endmark = rtp_marker(&video->payload);
    pkt->timestamp = rtp_timestamp(&video->payload);
    pkt->pkt_seq = video->common.seq;
    video_data4_take(&pkt->video, video);
}

void count_packet_in(webrtc_video_cache_t *video_cache, uint16_t seq)
{
    video_cache->pkt_cur_cnt++;
    if (video_cache->pkt_cur_cnt == 1) {
        video_cache->pkt_min_seq = seq;
        video_cache->pkt_max_seq = seq;
        return;
    }
    if (zeb_uint16_after(low16(video_cache->pkt_min_seq), seq)) {
        video_cache->pkt_min_seq = seq;
    }
    if (zeb_uint16_after(seq, low16(video_cache->pkt_max_seq))) {
        video_cache->pkt_max_seq = seq;
    }
}

// Stores a packet in its slot; null when it is dropped, and then it stays the caller's.
webrtc_video_packet_t *webrtc_video_insert_pkt_arr(webrtc_video_cache_t *video_cache, PVideoData4 *video,
                                                   bool is_retrans, const zeb_ts_t *now_p)
{
    const uint16_t seq = video->common.seq;
    const int is_key = __is_key_frame(video->header.video_type);
    const uint32_t timestamp = rtp_timestamp(&video->payload);

    LOG(RTC_LOG_INFO, LM_RCV_VID, "[%s][%s] restrans=%u key=%u timestamp=%u pkt_seq=%u rtp.end=%u\n", is_retrans,
        is_key, timestamp, seq, rtp_marker(&video->payload));
    if (is_waiting_for_key_frame(video_cache)) {
        if (!is_key) {
            webrtc_video_send_intra_request(video_cache, now_p);
            return nullptr;
        }
        video_cache->frm_flag &= ~kWaitingForKeyFrame;
    }
    const int order = webrtc_video_check_expect_seq(video_cache, seq, timestamp);
    if (order == kRefused) {
        return nullptr;
    }
    webrtc_video_packet_t *pkt = ring_slot(video_cache, seq);
    if (is_set(pkt)) {
        if (pkt->pkt_seq == seq) {
            return nullptr;
        }
        evict_packet(video_cache, pkt);
    }
    fill_slot(pkt, video, is_retrans, now_p);
    count_packet_in(video_cache, seq);
    if (order == kAhead && !is_key) { // a key frame makes what is missing before it dispensable
        webrtc_user_send_video_rexfer_req(video_cache, now_p);
    }
    return pkt;
}

// The frame of a timestamp, created when there is none; null without memory.
webrtc_video_frame_t *find_or_create_frame(webrtc_video_cache_t *video_cache, uint32_t timestamp)
{
    zeb_rb_node *node = zeb_find_rb_node(&video_cache->frm_map, timestamp);

    if (node != nullptr) {
        return frame_of(node);
    }
    webrtc_video_frame_t *frm = static_cast<webrtc_video_frame_t *>(
        zeb_malloc_impl_dbg(sizeof(webrtc_video_frame_t), "webrtc_video_insert_frm_map", __LINE__));
    if (frm == nullptr) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] malloc for webrtc_frame_t failed\n");
        return nullptr;
    }
    webrtc_video_frame_init(frm);
    frm->timestamp = timestamp;
    zeb_rb_insert_node(&video_cache->frm_map, &frm->node);
    video_cache->frm_cur_cnt++;
    return frm;
}

void widen_timestamp_bounds(webrtc_video_cache_t *video_cache, uint32_t timestamp)
{
    if (video_cache->frm_min_timestamp == kTimestampUnknown || video_cache->frm_max_timestamp == kTimestampUnknown) {
        video_cache->frm_min_timestamp = timestamp;
        video_cache->frm_max_timestamp = timestamp;
        return;
    }
    if (zeb_uint32_after(timestamp, low32(video_cache->frm_max_timestamp))) {
        video_cache->frm_max_timestamp = timestamp;
    } else if (zeb_uint32_after(low32(video_cache->frm_min_timestamp), timestamp)) {
        video_cache->frm_min_timestamp = timestamp;
    }
}

// Files the packet in slot `new_seq` into its frame; null without memory for the frame, and the packet then
// stays in the ring without one.
webrtc_video_frame_t *webrtc_video_insert_frm_map(webrtc_video_cache_t *video_cache, uint16_t new_seq)
{
    webrtc_video_packet_t *pkt = ring_slot(video_cache, new_seq);
    webrtc_video_frame_t *frm = find_or_create_frame(video_cache, pkt->timestamp);

    if (frm == nullptr) {
        return nullptr;
    }
    webrtc_video_frame_add_pkt(video_cache, frm, pkt);
    if (new_seq == video_cache->pkt_exp_seq) {
        webrtc_video_move_expect_seq(video_cache, new_seq, pkt->timestamp);
    }
    widen_timestamp_bounds(video_cache, frm->timestamp);
    return frm;
}

} // namespace

void webrtc_video_packet_init(webrtc_video_packet_t *pkt)
{
    if (pkt != nullptr) {
        memset(pkt, 0, sizeof(*pkt));
    }
}

void webrtc_video_packet_reset(webrtc_video_packet_t *pkt)
{
    if (pkt == nullptr || pkt->state == WEBRTC_VIDEO_PKT_NONE) {
        return;
    }
    if (pkt->video.payload.values != nullptr) {
        zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &pkt->video.payload);
    }
    memset(pkt, 0, sizeof(*pkt));
}

void webrtc_video_frame_init(webrtc_video_frame_t *frm)
{
    if (frm == nullptr) {
        return;
    }
    memset(frm, 0, sizeof(*frm));
    frm->min_seq = kSeqUnknown;
    frm->max_seq = kSeqUnknown;
    frm->cur_min_seq = kSeqUnknown;
    frm->cur_max_seq = kSeqUnknown;
}

void webrtc_video_frame_fini(webrtc_video_frame_t *frm)
{
    if (frm == nullptr) {
        return;
    }
    webrtc_video_frame_reset(frm);
    zeb_free_impl(frm);
}

void webrtc_video_frame_reset(webrtc_video_frame_t *frm)
{
    if (frm == nullptr) {
        return;
    }
    if (frm->pkts.values != nullptr) {
        zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &frm->pkts);
    }
    memset(frm, 0, sizeof(*frm));
}

void webrtc_video_cache_init(webrtc_video_cache_t *video_cache, user_video_stream *stream)
{
    if (video_cache == nullptr || stream == nullptr) {
        return;
    }
    memset(video_cache, 0, sizeof(*video_cache));
    zeb_rb_root_init(&video_cache->frm_map, webrtc_video_frame_cmp);
    video_cache->stream = stream;
    forget_sequences(video_cache);
}

void webrtc_video_cache_fini(webrtc_video_cache_t *video_cache)
{
    if (video_cache == nullptr) {
        return;
    }
    if (video_cache->pkt_arr != nullptr) {
        delete_all_cache_frames(video_cache);
        empty_ring(video_cache, release_payload);
        zeb_free_impl(video_cache->pkt_arr);
        video_cache->pkt_arr = nullptr;
        video_cache->pkt_all_cnt = 0;
        video_cache->pkt_min_seq = 0;
        video_cache->pkt_max_seq = 0;
    }
    video_cache->frm_all_cnt = 0;
    video_cache->frm_cur_cnt = 0;
}

void webrtc_video_cache_reset(webrtc_video_cache_t *video_cache)
{
    if (video_cache == nullptr || video_cache->pkt_arr == nullptr) {
        return;
    }
    delete_all_cache_frames(video_cache);
    empty_ring(video_cache, webrtc_video_packet_reset);
    video_cache->frm_cur_cnt = 0;
    video_cache->frm_all_cnt = 0;
    forget_sequences(video_cache);
    video_cache->n_retrans_req_recent = 0;
    video_cache->n_intra_req_sent_recent = 0;
    video_cache->next_retrans_req_should_at = 0;
    video_cache->next_intra_req_should_at = 0;
}

int webrtc_video_cache_alloc(webrtc_video_cache_t *video_cache)
{
    constexpr size_t ring_size = WEBRTC_VIDEO_RING_SLOTS * sizeof(webrtc_video_packet_t);

    if (video_cache == nullptr) {
        return -1;
    }
    video_cache->pkt_arr =
        static_cast<webrtc_video_packet_t *>(zeb_malloc_impl_dbg(ring_size, "webrtc_video_cache_alloc", __LINE__));
    video_cache->pkt_cur_cnt = 0;
    if (video_cache->pkt_arr == nullptr) {
        LOG(RTC_LOG_WARNING, LM_RCV_VID, "[%s][%s] malloc for pkt_arr failed\n");
        video_cache->pkt_all_cnt = 0;
        return -1;
    }
    memset(video_cache->pkt_arr, 0, ring_size);
    video_cache->pkt_all_cnt = WEBRTC_VIDEO_RING_SLOTS;
    return 0;
}

void webrtc_video_cache_dump(webrtc_video_cache_t *video_cache)
{
    if (video_cache == nullptr) {
        return;
    }
    LOG(RTC_LOG_NOTICE, LM_RCV_VID,
        "[%s][%s] video_cache: pkt_cnt=%u exp_seq=%u pkt_seq=[%u, %u] frm_cnt=%u frm_ts=[%u, %u] "
        "last_ordered=[%u, %u]\n",
        video_cache->pkt_cur_cnt, video_cache->pkt_exp_seq, video_cache->pkt_min_seq, video_cache->pkt_max_seq,
        video_cache->frm_cur_cnt, low32(video_cache->frm_min_timestamp), low32(video_cache->frm_max_timestamp),
        low32(video_cache->last_ordered_timestamp), video_cache->last_ordered_pkt_seq);
}

int webrtc_video_frame_add_pkt(webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm, webrtc_video_packet_t *pkt)
{
    if (video_cache == nullptr || frm == nullptr || pkt == nullptr) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] Check param error\n");
        return -1;
    }
    const uint16_t seq = pkt->pkt_seq;
    bool needs_fix_min = false;
    bool needs_fix_max = false;

    pkt->frm_ptr = frm;
    frm->n_pkts_received++;
    frm->is_key |= pkt->is_key;
    if (frm->state == WEBRTC_VIDEO_FRM_NONE) {
        frm->state = WEBRTC_VIDEO_FRM_INCOMPLETE;
        frm->ts = pkt->ts;
        frm->timestamp = pkt->timestamp;
        frm->cur_min_seq = seq;
        frm->cur_max_seq = seq;
        needs_fix_min = true;
        needs_fix_max = true;
    } else {
        if (zeb_uint16_after(low16(frm->cur_min_seq), seq)) {
            frm->cur_min_seq = seq;
            needs_fix_min = frm->min_seq == kSeqUnknown;
        }
        if (zeb_uint16_after(seq, low16(frm->cur_max_seq))) {
            frm->cur_max_seq = seq;
            needs_fix_max = pkt->endmark != 0 && frm->max_seq == kSeqUnknown;
        }
    }
    if (needs_fix_min) {
        webrtc_video_frame_fix_min(video_cache, frm);
    }
    if (needs_fix_max) {
        webrtc_video_frame_fix_max(video_cache, frm);
    }
    webrtc_video_frame_fix_state(frm);
    return 0;
}

void webrtc_video_cache_process(webrtc_video_cache_t *video_cache, PVideoData4 *video, bool is_retrans,
                                const zeb_ts_t *now_p)
{
    if (video_cache->pkt_all_cnt == 0 && webrtc_video_cache_alloc(video_cache) != 0) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] webrtc_video_cache_alloc failed\n");
        return;
    }
    const webrtc_video_packet_t *pkt = webrtc_video_insert_pkt_arr(video_cache, video, is_retrans, now_p);
    if (pkt == nullptr) {
        return;
    }
    const webrtc_video_frame_t *frm = webrtc_video_insert_frm_map(video_cache, pkt->pkt_seq);
    if (frm == nullptr) {
        LOG(RTC_LOG_ERROR, LM_RCV_VID, "[%s][%s] insert frm map failed\n");
        return;
    }
    if (is_complete(frm) && timestamp_is_known(video_cache->frm_min_timestamp) &&
        frm->timestamp == video_cache->frm_min_timestamp) {
        webrtc_video_deliver(video_cache, now_p);
    }
}

void webrtc_video_cache_check_deliver(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    webrtc_video_frame_t *head = webrtc_video_get_head_frame(video_cache);

    if (head == nullptr) {
        return;
    }
    if (!is_complete(head)) {
        if (*now_p - head->ts < kPatience) {
            return;
        }
        LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] in-compelete frame[%u, %u][%u, %u] timeout, clear!!!\n",
            head->cur_min_seq, head->cur_max_seq, head->min_seq, head->max_seq);
        head = webrtc_video_remove_to_key_frame(video_cache, now_p);
        if (head == nullptr || !is_complete(head)) {
            return;
        }
    }
    if (!follows_last_delivery(video_cache, head)) {
        if (*now_p - video_cache->last_deliver_frm_ts < kPatience) {
            return;
        }
        LOG(RTC_LOG_NOTICE, LM_RCV_VID, "[%s][%s] no-continuous frame[%u, %u][%u, %u] timeout, clear!!!\n",
            head->cur_min_seq, head->cur_max_seq, head->min_seq, head->max_seq);
        head = webrtc_video_remove_to_key_frame(video_cache, now_p);
        if (head == nullptr || !is_complete(head)) {
            return;
        }
    }
    webrtc_video_deliver(video_cache, now_p);
}

// ---------------------------------------------------------------------------------------------------
// Receiver feedback
//
// What the statistics object is told about pictures and packets. The only state is that object's own: when
// the next walk is due, and which frame was reported last. Called by the channel layer.
// ---------------------------------------------------------------------------------------------------

namespace
{

bool feedback_is_on(const user_video_stream *self)
{
    return estimates_downlink(self->channel) && self->is_nass != 0 && self->stream_id == 0 && self->bcm_stat != nullptr;
}

// Marks the frame as the last one reported. The mark says "continuous" whatever was reported; the pairing
// is deliberate.
void report_picture(KelvraBcmStatistics *stat, const video_frame *frame, bool continuous, const zeb_ts_t *now_p)
{
    const uint16_t wait_time = static_cast<uint16_t>(*now_p - frame->queued_ts);

    KelvraBcmStat_OnDecodeResult(stat, frame->frame_seq, frame->min_rtp_seq, frame->max_rtp_seq, continuous, wait_time,
                                 now_p);
    stat->last_reported_continuous_frame_number_ = frame->frame_seq;
}

void postpone_walk(KelvraBcmStatistics *stat, const zeb_ts_t *now_p)
{
    stat->next_send_goodbad_pic_at = static_cast<int64_t>(*now_p + kPictureReportInterval);
}

// The frame after the one reported last, or the oldest one when that lies outside the queue.
uint32_t first_to_report(const KelvraBcmStatistics *stat, const rtc_video_frames_t *q)
{
    const int64_t complete = stat->last_reported_complete_frame_number_;
    const int64_t continuous = stat->last_reported_continuous_frame_number_;
    uint32_t start = q->min_frame_seq;

    if (complete >= 1 || continuous >= 1) {
        const int64_t last_reported = complete > continuous ? complete : continuous;
        start = zeb_uint32_next(static_cast<uint32_t>(last_reported));
    }
    if (!zeb_uint32_after_eq(start, q->min_frame_seq) || !zeb_uint32_after_eq(q->max_frame_seq, start)) {
        start = q->min_frame_seq;
    }
    return start;
}

} // namespace

void video_stream_send_goodbad_pic(user_video_stream *self, video_frame *frame, bool continuous, const zeb_ts_t *now_p)
{
    if (frame == nullptr) {
        check_failed("frame");
    }
    if (!feedback_is_on(self)) {
        return;
    }
    report_picture(self->bcm_stat, frame, continuous, now_p);
    postpone_walk(self->bcm_stat, now_p);
}

// A start number that lies within the queue but has no frame there stops the walk before it begins; it does
// not skip ahead. That stall is deliberate.
void video_stream_check_send_goodbad_pic(user_video_stream *self, const zeb_ts_t *now_p)
{
    rtc_video_frames_t *q = &self->video_frames_q;

    if (!feedback_is_on(self) || *now_p < static_cast<uint64_t>(self->bcm_stat->next_send_goodbad_pic_at) ||
        q->count == 0) {
        return;
    }
    video_frame *frame = video_frames_q_find_frame_by_frame_seq(q, first_to_report(self->bcm_stat, q));
    while (frame != nullptr) { // at most the 40 slots
        if (frame->is_complete != 0) {
            report_picture(self->bcm_stat, frame, false, now_p);
        }
        frame = video_frames_q_next_frame(q, frame);
    }
    postpone_walk(self->bcm_stat, now_p);
}

void video_stream_send_bandwidth_est(user_video_stream *self, PVideoData4 *video, bool is_original,
                                     const zeb_ts_t *now_p)
{
    if (!feedback_is_on(self)) {
        return;
    }
    const uint32_t timestamp =
        self->bcm_stat->use_sent_ts_enable_ ? video->common.sent_ts : rtp_timestamp(&video->payload);

    KelvraBcmStat_OnRecvPacket(self->bcm_stat, rtp_seq(&video->payload), timestamp, video->payload.count, *now_p,
                               is_original ? 0 : 1);
}

// ---------------------------------------------------------------------------------------------------
// Stream registry and lifecycle
//
// Where stream records come from and go to. A record is in the service's pool (its contents stale), in one
// list of streams (live), or for a moment in neither. The caller owns the lists. Called by the channel and
// user layers.
// ---------------------------------------------------------------------------------------------------

namespace
{

user_video_stream *stream_of(list_head *node)
{
    return reinterpret_cast<user_video_stream *>(node);
}

// A record from the pool comes as it went in: init clears it.
user_video_stream *__service_alloc_user_video_stream(rtc_service *service)
{
    list_head *node = list_remove_head(&service->free_user_video_streams.head);

    if (node != nullptr) {
        service->free_user_video_streams.count--;
        return stream_of(node);
    }
    return static_cast<user_video_stream *>(
        zeb_malloc_impl_dbg(sizeof(user_video_stream), "__service_alloc_user_video_stream", __LINE__));
}

void __service_free_user_video_stream(rtc_service *service, user_video_stream *stream)
{
    if (service->free_user_video_streams.count < kPooledStreamsMax) {
        rtc_list_add_tail(&service->free_user_video_streams, &stream->node);
    } else {
        zeb_free_impl(stream);
    }
}

// The old analyser goes only when there is a current one; the nesting is deliberate.
void delete_analyzers(user_video_stream *stream)
{
    if (stream->current_net_rcv_quality != nullptr) {
        net_rcv_analyzer_del(&stream->current_net_rcv_quality);
        if (stream->old_net_rcv_quality != nullptr) {
            net_rcv_analyzer_del(&stream->old_net_rcv_quality);
        }
    }
}

void user_video_stream_destructor(rtc_service *service, user_video_stream *stream)
{
    if (is_receiving(stream)) {
        delete_analyzers(stream);
        if (stream->bcm_stat != nullptr) {
            KelvraBcmStat_Destroy(stream->bcm_stat);
            stream->bcm_stat = nullptr;
        }
    }
    delete_all_frames(stream);
    webrtc_video_cache_fini(&stream->video_cache_q);
    __service_free_user_video_stream(service, stream);
}

void __service_delete_user_video_stream(rtc_service *service, user_video_stream *stream, bool should_free)
{
    if (should_free) {
        user_video_stream_destructor(service, stream);
    } else {
        video_stream_reset(stream, false);
    }
}

void create_statistics(user_video_stream *stream)
{
    KelvraBcmStatisticsConfig config = {};

    config.stream = stream;
    stream->bcm_stat = KelvraBcmStat_Create(&config);
    if (stream->bcm_stat == nullptr) {
        check_failed("stream->bcm_stat");
    }
}

void init_receiving(user_video_stream *stream)
{
    stream->second_rcv_key_frame_seq = -1; // the first one stays 0 until a reset
    stream->current_net_rcv_quality = net_rcv_analyzer_new();
    seq_lost_calculator_init(&stream->lost_calculator);
    jitter_calculator_init(&stream->jitter_calculator);
    if (estimates_downlink(stream->channel) && stream->stream_id == 0) {
        create_statistics(stream);
    }
}

void reset_owned_objects(user_video_stream *stream)
{
    if (stream->current_net_rcv_quality != nullptr) {
        net_rcv_analyzer_reset(stream->current_net_rcv_quality);
    }
    if (stream->old_net_rcv_quality != nullptr) {
        net_rcv_analyzer_reset(stream->old_net_rcv_quality);
    }
    if (stream->bcm_stat != nullptr) {
        KelvraBcmStat_Reset(stream->bcm_stat);
    }
}

void reset_transfer_counters(user_video_stream *stream)
{
    stream->n_key_recent = 0;
    stream->n_key_req_sent_recent = 0;
    stream->n_key_req_recv_recent = 0;
    stream->n_retrans_recent = 0;
    stream->n_retrans_req_recent = 0;
    stream->n_retrans_req_received_recent = 0;
    stream->n_overlapped_frames_recent = 0;
    stream->n_frames_send_recent = 0;
    stream->frame_pkt_num_max = 0;
    stream->last_send_frame_seq = 0;

    stream->n_xfer_origin_bytes_recent = 0;
    stream->n_xfer_origin_med_bytes_recent = 0;
    stream->n_xfer_origin_fec_bytes_recent = 0;
    stream->n_xfer_bytes_recent = 0;
    stream->n_rexfer_bytes_recent = 0;
    stream->n_xfer_bytes = 0;
    stream->n_xfer_packets = 0;
    stream->n_xfer_frames = 0;

    stream->n_send_origin_bytes_recent = 0;
    stream->n_send_origin_med_bytes_recent = 0;
    stream->n_send_origin_fec_bytes_recent = 0;
    stream->n_send_bytes_recent = 0;
    stream->n_send_med_bytes_recent = 0;
    stream->n_send_retran_recent = 0;
    stream->media_pkg_num = 0;
    stream->fec_pkg_num = 0;

    stream->n_fec_recovered_frames_recent = 0;
    stream->n_fec_recovered_frames = 0;
}

void reset_reception(user_video_stream *stream)
{
    stream->next_idr_should_at = 0;
    stream->last_received_at = 0;
    stream->next_retrans_req_should_at = 0;

    stream->ehsnr = 0;
    stream->received_ts_last = 0;
    stream->received_seq_max = 0;
    stream->n_received_pkt_bytes_max = 0;
    stream->n_frames_to_user_recent = 0;
    stream->n_bytes_to_user_recent = 0;
    stream->n_k_frames_to_user = 0;
    stream->last_to_user_at = 0;
    stream->latest_local_remote_ts_ratio = 0;
    stream->last_to_user_ts = 0;
}

void reset_quality(user_video_stream *stream)
{
    stream->freeze_time_600ms = 0;
    stream->freeze_time_500ms = 0;
    stream->freeze_time_200ms = 0;
    stream->freeze_count_600ms = 0;
    stream->freeze_count_500ms = 0;
    stream->freeze_count_200ms = 0;
    stream->freeze_time_600ms_last = 0;
    stream->freeze_time_500ms_last = 0;
    stream->freeze_time_200ms_last = 0;
    stream->freeze_count_600ms_last = 0;
    stream->freeze_count_500ms_last = 0;
    stream->freeze_count_200ms_last = 0;

    stream->downlink_frame_total = 0;
    stream->downlink_process_total_cost_ms = 0;
    stream->peer_uplink_cost_ms = 0;

    stream->percent_loss_raw = 0;
    stream->percent_lost_after_arq = 0;
    stream->percent_lost_after_fec = 0;
}

} // namespace

void video_stream_init(user_video_stream *stream, uint8_t id, rtc_user *user, rtc_channel *channel)
{
    if (stream == nullptr) {
        return;
    }
    memset(stream, 0, sizeof(*stream));
    stream->user = user;
    stream->channel = channel;
    stream->s_flags = 1;
    stream->stream_id = id;
    stream->pkt_seq = kSeqUnknown;
    webrtc_video_cache_init(&stream->video_cache_q, stream);
    rtc_video_frames_init(&stream->video_frames_q);
    if (is_receiving(stream)) {
        init_receiving(stream);
    }
}

void video_stream_reset(user_video_stream *stream, bool reset_seq)
{
    if (stream == nullptr) {
        return;
    }
    delete_all_frames(stream);
    webrtc_video_cache_reset(&stream->video_cache_q);
    reset_owned_objects(stream);
    if (reset_seq) {
        stream->pkt_seq = kSeqUnknown;
        stream->frame_seq = kSeqUnknown;
    }
    stream->s_flags = 1;
    stream->first_rcv_key_frame_seq = -1;
    stream->second_rcv_key_frame_seq = -1;
    stream->is_webrtc = 0;
    stream->is_nass = 0;
    reset_transfer_counters(stream);
    reset_reception(stream);
    reset_quality(stream);
}

user_video_stream *video_streams_find_video_stream(rtc_list_t *streams, uint8_t stream_id)
{
    for (list_head *node = streams->head.next; node != &streams->head; node = node->next) {
        if (stream_of(node)->stream_id == stream_id) {
            return stream_of(node);
        }
    }
    return nullptr;
}

user_video_stream *service_video_streams_get_video_stream(rtc_service *service, rtc_user *user, rtc_channel *ch,
                                                          rtc_list_t *streams, uint8_t stream_id, int create,
                                                          const zeb_ts_t *)
{
    user_video_stream *stream = video_streams_find_video_stream(streams, stream_id);

    if (stream != nullptr || create == 0) {
        return stream;
    }
    stream = __service_alloc_user_video_stream(service);
    if (stream == nullptr) {
        LOG_PLAIN(RTC_LOG_EMERG, "[%s][%s] \n", channel_name(ch));
        return nullptr;
    }
    video_stream_init(stream, stream_id, user, ch);
    rtc_list_add_tail(streams, &stream->node);
    channel_on_video_stream_created(ch, stream);
    return stream;
}

user_video_stream *service_video_streams_get_video_stream_local(rtc_service *service, rtc_channel *channel,
                                                                rtc_list_t *streams, uint8_t stream_id, int create)
{
    user_video_stream *stream =
        service_video_streams_get_video_stream(service, nullptr, channel, streams, stream_id, create, nullptr);

    if (stream != nullptr && stream->pkt_seq == kSeqUnknown) {
        stream->pkt_seq = 0;
    }
    return stream;
}

void service_video_streams_cleanup(rtc_service *service, rtc_list_t *streams, bool should_free)
{
    if (streams == nullptr) {
        return;
    }
    for (list_head *node = streams->head.next, *next = nullptr; node != &streams->head; node = next) {
        next = node->next;
        if (should_free) {
            rtc_list_del(streams, node);
        }
        __service_delete_user_video_stream(service, stream_of(node), should_free);
    }
}
