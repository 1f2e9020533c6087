// RTP, RTCP, retransmissions, session descriptions and native packets through the client's layers: each input is a
// little program of what arrives, and when. After each call the invariants of the streams hold, what is allocated
// hangs from the service, and it is not more than the budget. make_seeds writes programs in this encoding.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>

#include "api/service.h"
#include "check.h"
#include "commands/session_description.h"
#include "failing_memory.h"
#include "fuzz_input.h"
#include "heap_budget.h"
#include "sdp.h"
#include "service_memory.h"
#include "session/channel_state.h"
#include "session/user.h"
#include "test_stream.h"
#include "wire/byte_order.h"
#include "wire/rtcp.h"

namespace
{

using bytes = std::vector<uint8_t>;

constexpr size_t kOperationsMax = 500;
constexpr size_t kBurstsMax = 16384; // packets of them all: twice around the ring
constexpr size_t kSenders = 10;      // two more than a channel takes
constexpr uint32_t kFirstSsrc = 0x11223300;
constexpr uint32_t kFirstRtxSsrc = 0x55667700;
constexpr uint8_t kH264 = 96, kH265 = 97, kRtxH264 = 98, kRtxH265 = 99;
constexpr uint32_t kTimestampStep = 3000;
constexpr size_t kPathHeadersMin = 28;            // bytes of IPv4 and UDP
constexpr size_t kSentSizeMax = 1200;             // bytes of an RTCP datagram
constexpr uint64_t kCountMax = uint64_t{1} << 40; // a counter above has gone below 0
constexpr uint16_t kSeqOrigins[] = {1000, 0xFFF8, 0, 0x7FF8};
constexpr uint32_t kTimestampOrigins[] = {90000, 0xFFFFE000u, 0, 0x7FFFE000u};
constexpr zeb_ts_t kTimeOrigins[] = {1000000, 1, 0xFFFFFF00u, 5};

// How payloads begin; the rest is filler.
struct payload_kind {
    uint8_t payload_type;
    bytes start;
};
const payload_kind kPayloads[] = {
    {kH264, {0x41, 0x9A}},                                                          // delta frame
    {kH264, {0x65, 0x88}},                                                          // key frame
    {kH264, {0x67, 0x42, 0xC0, 0x1E, 0xD9}},                                        // SPS
    {kH264, {0x68, 0xCE, 0x3C, 0x80}},                                              // PPS
    {kH264, {0x78, 0, 4, 0x67, 0x42, 0xC0, 0x1E, 0, 2, 0x68, 0xCE, 0, 2, 0x65, 1}}, // STAP-A
    {kH264, {0x7C, 0x85}},                                                          // FU-A, key frame: start
    {kH264, {0x7C, 0x05}},                                                          // middle
    {kH264, {0x7C, 0x45}},                                                          // end
    {kH264, {0x5C, 0x81}},                                                          // FU-A, delta frame: start
    {kH264, {0x5C, 0x01}},                                                          // middle
    {kH264, {0x5C, 0x41}},                                                          // end
    {kH264, {0x09, 0xF0}},                                                          // delimiter
    {kH264, {}},                                                                    // nothing but padding
    {kH265, {0x02, 0x01, 0xD0}},                                                    // delta frame
    {kH265, {0x26, 0x01, 0xAF}},                                                    // key frame
    {kH265, {0x40, 0x01, 0x0C}},                                                    // VPS
    {kH265, {0x42, 0x01, 0x01}},                                                    // SPS
    {kH265, {0x44, 0x01, 0xC0}},                                                    // PPS
    {kH265, {0x60, 0x01, 0, 3, 0x42, 0x01, 0x01, 0, 3, 0x26, 0x01, 0xAF}},          // aggregate
    {kH265, {0x62, 0x01, 0x93}},                                                    // fragments of a key frame
    {kH265, {0x62, 0x01, 0x13}},
    {kH265, {0x62, 0x01, 0x53}},
    {kH265, {0x62, 0x01, 0x81}}, // fragments of a delta frame
    {kH265, {0x62, 0x01, 0x41}},
};

struct sender {
    uint16_t seq;
    uint32_t timestamp;
    uint32_t frame_seq;
};

class Program
{
  public:
    explicit Program(fuzz::Input &input);
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    void run();

  private:
    void create_channel();
    void run_operation(uint8_t code);

    // Operations: each takes its own bytes.
    void send_rtp();
    void send_raw_rtp();
    void send_retransmission();
    void send_raw_rtcp();
    void send_rtcp();
    void pass_time();
    void wait();
    void send_native();
    void describe();
    void set_up();
    void refuse_memory();
    void renew_channel();
    void change_callback();
    void send_burst();
    void jump();

    sender *any_sender(uint8_t code, uint32_t *ssrc);
    bytes rtp_bytes(uint8_t payload_type, bool marker, uint16_t seq, uint32_t timestamp, uint32_t ssrc) const;
    void append_payload(bytes *packet, const payload_kind &kind, uint8_t size) const;
    void append_padding(bytes *packet);
    void append_native_padding(bytes *packet, uint8_t shape) const;
    void set_buffers(PVideoData4 *video, const bytes &packet, uint8_t extension_words);
    void receive(const bytes &packet, bool is_retrans);

    void check_stream(uint32_t uid, uint8_t stream_id);
    void check_delivery_time(uint32_t uid);
    void check_delivery_times();
    void check_all();
    void check_budget();

    static void on_frame(void *context, const channel_frame *frame);
    static void on_rtcp(void *context, const uint8_t *datagram, size_t size);
    void check_key_frame_requests(const uint8_t *datagram, size_t size);
    void call_back_in();

    fuzz::Input &input_;
    uint8_t options_;
    rtc_service *service_;
    rtc_channel *channel_ = nullptr;
    sender senders_[kSenders] = {};
    zeb_ts_t now_;
    size_t largest_packet_ = 0;
    size_t packets_since_tick_ = 0;
    size_t n_in_bursts_ = 0;
    bool calls_back_in_ = false;
    size_t n_sent_in_call_ = 0; // RTCP datagrams
    size_t bytes_sent_ = 0;     // of those, with the shortest headers below them
    size_t bytes_received_ = 0; // RTP
    std::map<uint32_t, zeb_ts_t> key_frame_asked_at_;
    uint64_t n_handed_over_[kSenders] = {}; // frames, by the stream's reorder cache, when it was looked at last
    size_t most_budget_ = 0;
    uint32_t seen_ = 0; // of what came out: makes the sanitizer look at each byte
};

Program::Program(fuzz::Input &input) : input_(input), options_(input.u8()), service_(rtc_service_create())
{
    const uint8_t origins = input_.u8();
    for (sender &one : senders_) {
        one = {kSeqOrigins[origins & 3], kTimestampOrigins[origins >> 2 & 3], 1};
    }
    now_ = kTimeOrigins[origins >> 4 & 3];
    create_channel();
}

Program::~Program()
{
    rtc_service_destroy(service_);
    fuzz::check(failing_memory::in_use() == 0, "nothing is allocated when the service is gone");
    fuzz::check(failing_memory::bytes_in_use() == 0, "no bytes are in use when the service is gone");
}

void Program::create_channel()
{
    channel_config config = {};
    config.name = "a channel whose name is longer than the record has room for, as some applications like it";
    config.enable_bandwidth_est_downlink = (options_ & 1) != 0;
    config.on_frame = &Program::on_frame;
    config.on_frame_context = this;
    config.feedback.reports = (options_ & 2) != 0;
    config.feedback.nack = (options_ & 4) != 0;
    config.feedback.pli = (options_ & 8) != 0;
    config.feedback.fir = (options_ & 0x10) != 0;
    config.feedback.remb = (options_ & 0x20) != 0;
    config.feedback.reduced_size = (options_ & 0x40) != 0;
    config.feedback.give_up_early = (options_ & 0x80) != 0;
    config.on_rtcp = &Program::on_rtcp;
    config.on_rtcp_context = this;
    config.local_ssrc = 0x99AABBCC;
    config.cname = "receiver@example.net";
    channel_ = rtc_channel_create(service_, &config);
    rtc_channel_set_payload_type(channel_, kH264, VIDEO_TYPE_H264);
    rtc_channel_set_payload_type(channel_, kH265, VIDEO_TYPE_H265);
    rtc_channel_set_rtx(channel_, kRtxH264, kH264);
    rtc_channel_set_rtx(channel_, kRtxH265, kH265);
}

void Program::run()
{
    for (size_t i = 0; i < kOperationsMax && !input_.is_empty(); i++) {
        run_operation(input_.u8());
        check_budget();
        if (i % 16 == 15) {
            check_all();
        }
    }
    check_all();
}

void Program::run_operation(uint8_t code)
{
    using operation = void (Program::*)();
    static constexpr operation kOperations[] = {&Program::send_rtp,
                                                &Program::send_raw_rtp,
                                                &Program::send_retransmission,
                                                &Program::send_raw_rtcp,
                                                &Program::send_rtcp,
                                                &Program::pass_time,
                                                &Program::wait,
                                                &Program::send_native,
                                                &Program::describe,
                                                &Program::set_up,
                                                &Program::refuse_memory,
                                                &Program::renew_channel,
                                                &Program::change_callback,
                                                &Program::send_burst,
                                                &Program::jump,
                                                &Program::send_rtp};

    if (channel_ == nullptr) { // there was no memory for it
        failing_memory::fail(0, failing_memory::failing::once);
        create_channel();
    }
    (this->*kOperations[code % std::size(kOperations)])();
}

// ---- What holds ----

void Program::check_stream(uint32_t uid, uint8_t stream_id)
{
    const user_video_stream *stream = rtc_channel_find_stream(channel_, uid, stream_id);
    if (stream == nullptr) {
        return;
    }
    fuzz::check_none(test_support::broken_invariants(*stream));
    const stream_report *report = rtc_channel_stream_report(stream);
    if (report == nullptr) {
        return;
    }
    uint64_t dropped = 0;
    for (const uint64_t count : report->packets_dropped) {
        dropped += count;
    }
    fuzz::check(dropped < kCountMax && report->packets_lost < kCountMax && report->gaps < kCountMax,
                "counters of packets never go below 0");
    uint64_t faults = 0;
    for (const uint64_t count : report->payload_faults) {
        faults += count;
    }
    fuzz::check(faults == report->frames_dropped[FRAME_DROP_MALFORMED], "a malformed frame has one fault");
    fuzz::check(report->key_frames <= report->frames && report->frames < kCountMax, "key frames are frames");
    const stream_state *state = stream_state_of(stream);
    fuzz::check(state->hold.packets.count <= kPacketHoldMax && state->stray.packets.count <= 1,
                "the hold has its limit");
    fuzz::check(state->feedback.nacks.count <= kNackListMax, "the list of missing packets has its limit");
}

// What a stream's bandwidth estimate has been told.
struct sampled {
    uint64_t n_packets;        // that came for the stream
    uint64_t n_bytes, n_again; // of the samples
    bool is_estimated;
};

sampled sampled_of(rtc_channel *channel, uint32_t uid, uint8_t stream_id)
{
    const user_video_stream *stream = rtc_channel_find_stream(channel, uid, stream_id);
    const stream_report *report = stream == nullptr ? nullptr : rtc_channel_stream_report(stream);
    if (report == nullptr || stream->bcm_stat == nullptr) {
        return {};
    }
    return {report->packets, stream->bcm_stat->n_bytes, stream->bcm_stat->n_retransmitted, true};
}

// A packet that came for a stream is sampled once, with all its bytes.
void check_sample(const sampled &before, const sampled &after, size_t size, bool is_retrans)
{
    if (!after.is_estimated || after.n_packets != before.n_packets + 1) {
        return;
    }
    fuzz::check(after.n_bytes == before.n_bytes + size, "a bandwidth sample is the packet as received");
    fuzz::check(after.n_again == before.n_again + (is_retrans ? 1 : 0), "a bandwidth sample says what was sent again");
}

// Whatever time a reorder cache was given, its delivery is when it happened, or was forgotten with all else.
void Program::check_delivery_time(uint32_t uid)
{
    const size_t place = uid - kFirstSsrc;
    const user_video_stream *stream = place < kSenders ? rtc_channel_find_stream(channel_, uid, 0) : nullptr;
    const stream_state *state = stream_state_of(stream);
    if (state == nullptr) {
        return;
    }
    const zeb_ts_t delivered_at = stream->video_cache_q.last_deliver_frm_ts;
    fuzz::check(state->rtp.n_handed_over <= n_handed_over_[place] || delivered_at == now_ || delivered_at == 0,
                "a delivery is when it happens");
    n_handed_over_[place] = state->rtp.n_handed_over;
}

void Program::check_delivery_times()
{
    for (size_t i = 0; i < kSenders; i++) {
        check_delivery_time(kFirstSsrc + static_cast<uint32_t>(i));
    }
}

// What is allocated is exactly what hangs from the service. An estimator of the rate has an analyser of its own.
void Program::check_all()
{
    static std::vector<const void *> owned; // keeps its room
    owned = {service_, channel_};
    size_t n_users = 0;
    size_t n_estimators = 0;
    if (channel_ != nullptr) {
        const list_head *head = &channel_->state->users.head;
        for (list_head *node = head->next; node != head; node = node->next, n_users++) {
            auto *user = reinterpret_cast<user_state *>(node);
            const size_t n_streams = fuzz::collect_user(*user, &owned);
            fuzz::check(n_streams == user->user.video_streams_q.count && n_streams <= kUserStreamsMax,
                        "a user has a few streams");
            for (const stream_state *state : user->streams) {
                if (state != nullptr) {
                    check_stream(user->uid, state->stream->stream_id);
                    n_estimators += state->stream->bcm_stat != nullptr ? 1 : 0;
                }
            }
        }
        fuzz::check(n_users == channel_->state->users.count && n_users <= kChannelSendersDefault,
                    "a channel has a few users");
    }
    fuzz::collect_pool(*service_, &owned);
    owned.erase(std::remove(owned.begin(), owned.end(), nullptr), owned.end());
    std::sort(owned.begin(), owned.end());
    fuzz::check(std::adjacent_find(owned.begin(), owned.end()) == owned.end(), "no block is owned twice");
    fuzz::check(static_cast<long>(owned.size() + n_estimators) == failing_memory::in_use(),
                "what is allocated hangs from the service");
}

void Program::check_budget()
{
    size_t n_users = 0;
    size_t n_streams = 0;
    if (channel_ != nullptr) {
        list_head *head = &channel_->state->users.head;
        for (list_head *node = head->next; node != head; node = node->next, n_users++) {
            n_streams += reinterpret_cast<user_state *>(node)->user.video_streams_q.count;
        }
    }
    const size_t pool = service_->free_user_video_streams.count * sizeof(user_video_stream);
    const size_t records = sizeof(service_state) + sizeof(channel_state) + n_users * sizeof(user_state) + pool;
    const size_t budget = records + n_streams * fuzz::stream_budget(largest_packet_, packets_since_tick_);
    most_budget_ = std::max(most_budget_, budget);
    fuzz::check(failing_memory::bytes_in_use() <= budget, "the streams keep to their budget");
    fuzz::check(failing_memory::most_bytes_in_use() <= most_budget_ + fuzz::call_budget(largest_packet_),
                "a call keeps to its budget");
}

// ---- What comes out ----

void Program::on_frame(void *context, const channel_frame *frame)
{
    auto *self = static_cast<Program *>(context);
    fuzz::check(frame->data != nullptr && frame->size > 0, "a frame has bytes");
    for (size_t i = 0; i < frame->size; i++) {
        self->seen_ += frame->data[i];
    }
    const bool is_annexb = frame->codec == VIDEO_TYPE_H264 || frame->codec == VIDEO_TYPE_H265;
    const bool is_native = frame->rtp_timestamp == 0;
    fuzz::check(is_native || !is_annexb || (frame->size > 4 && be32_read(frame->data) == 1),
                "a frame begins with a unit");
    if (self->calls_back_in_) {
        self->call_back_in();
    }
}

void Program::on_rtcp(void *context, const uint8_t *datagram, size_t size)
{
    auto *self = static_cast<Program *>(context);
    fuzz::check(rtcp_validate(datagram, size), "what is sent is well-formed");
    fuzz::check(size <= kSentSizeMax, "what is sent fits into a datagram");
    self->n_sent_in_call_++;
    self->bytes_sent_ += size + kPathHeadersMin;
    fuzz::check(self->bytes_sent_ < 3 * self->bytes_received_, "what is sent is below three times what came");
    self->check_key_frame_requests(datagram, size);
    if (self->calls_back_in_) {
        self->call_back_in();
    }
}

// However much is lost, a sender is asked for a key frame now and then only.
void Program::check_key_frame_requests(const uint8_t *datagram, size_t size)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram, size);
    rtcp_item item;
    while (rtcp_next(&cursor, &item)) {
        if (item.kind != RTCP_ITEM_PLI && item.kind != RTCP_ITEM_FIR) {
            continue;
        }
        const uint32_t ssrc = item.kind == RTCP_ITEM_PLI ? item.pli.media_ssrc : rtcp_fir_at(&item.fir.entries, 0).ssrc;
        const auto asked = key_frame_asked_at_.find(ssrc);
        fuzz::check(asked == key_frame_asked_at_.end() || now_ - asked->second >= kKeyFrameIntervalMin,
                    "key-frame requests keep their distance");
        key_frame_asked_at_[ssrc] = now_;
    }
}

// All of it is refused.
void Program::call_back_in()
{
    const bytes packet = rtp_bytes(kH264, true, 1, 1, kFirstSsrc);
    fuzz::check(rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now_) == -1,
                "no packet from within");
    fuzz::check(rtc_channel_receive_rtcp(channel_, packet.data(), packet.size(), &now_) == -1, "no RTCP from within");
    rtc_service_tick(service_, &now_);
    rtc_channel_destroy(channel_);
    rtc_service_destroy(service_);
}

// ---- Packets ----

sender *Program::any_sender(uint8_t code, uint32_t *ssrc)
{
    const size_t place = (code & 15) % kSenders;
    *ssrc = kFirstSsrc + static_cast<uint32_t>(place);
    return &senders_[place];
}

bytes Program::rtp_bytes(uint8_t payload_type, bool marker, uint16_t seq, uint32_t timestamp, uint32_t ssrc) const
{
    bytes packet(12);
    packet[0] = 0x80;
    packet[1] = static_cast<uint8_t>((marker ? 0x80 : 0) | payload_type);
    be16_write(&packet[2], seq);
    be32_write(&packet[4], timestamp);
    be32_write(&packet[8], ssrc);
    return packet;
}

void Program::append_payload(bytes *packet, const payload_kind &kind, uint8_t size) const
{
    packet->insert(packet->end(), kind.start.begin(), kind.start.end());
    if (kind.start.empty()) {
        packet->insert(packet->end(), size, size); // padding ends with its length
        (*packet)[0] |= 0x20;
        return;
    }
    packet->insert(packet->end(), size, static_cast<uint8_t>(0x80 | size));
}

// Behind the payload, with the bit that says so; the count may be wrong.
void Program::append_padding(bytes *packet)
{
    const uint8_t what = input_.u8();
    const uint8_t size = what & 0x3F;
    packet->insert(packet->end(), size, uint8_t{0});
    packet->push_back(static_cast<uint8_t>((what & 0x40) != 0 ? what : size + 1));
    (*packet)[0] |= 0x20;
}

void Program::receive(const bytes &packet, bool is_retrans)
{
    largest_packet_ = std::max(largest_packet_, packet.size());
    packets_since_tick_++;
    n_sent_in_call_ = 0;
    // Retransmissions come under an SSRC of their own.
    const uint32_t ssrc = packet.size() < 12 ? 0 : be32_read(&packet[8]);
    const uint32_t uid = ssrc - kFirstRtxSsrc < kSenders ? ssrc - kFirstRtxSsrc + kFirstSsrc : ssrc;
    const sampled before = sampled_of(channel_, uid, 0);
    bytes_received_ += packet.size();
    rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), is_retrans, &now_);
    fuzz::check(n_sent_in_call_ <= 2, "a packet causes one request for packets and one for a key frame at most");
    check_sample(before, sampled_of(channel_, uid, 0), packet.size(), is_retrans);
    check_delivery_times();
    if (packet.size() >= 12) {
        check_stream(ssrc, 0);
    }
}

void Program::send_rtp()
{
    const uint8_t who = input_.u8();
    const auto step = static_cast<uint16_t>(input_.step());
    const uint8_t what = input_.u8();
    const uint8_t size = input_.u8();
    uint32_t ssrc = 0;
    sender *from = any_sender(who, &ssrc);
    from->timestamp += (who & 0x20) != 0 ? kTimestampStep : 0;
    const auto seq = static_cast<uint16_t>(from->seq + step);
    const payload_kind &kind = kPayloads[(what & 0x1F) % std::size(kPayloads)];
    bytes packet = rtp_bytes(kind.payload_type, (who & 0x10) != 0, seq, from->timestamp, ssrc);
    if ((who & 0x80) != 0) {
        packet[0] = input_.u8();
    }
    append_payload(&packet, kind, size);
    if ((what & 0x40) != 0) {
        append_padding(&packet);
    }
    packet.shrink_to_fit();
    if ((what & 0x20) == 0) {
        from->seq = static_cast<uint16_t>(seq + 1);
    }
    receive(packet, (who & 0x40) != 0);
}

void Program::send_raw_rtp()
{
    const uint8_t size = input_.u8();
    receive(input_.bytes(size), false);
}

void Program::send_retransmission()
{
    const uint8_t who = input_.u8();
    const auto back = static_cast<uint16_t>(input_.u8());
    const uint8_t what = input_.u8();
    const uint8_t size = input_.u8();
    uint32_t ssrc = 0;
    const sender *from = any_sender(who, &ssrc);
    const payload_kind &kind = kPayloads[(what & 0x1F) % std::size(kPayloads)];
    const uint8_t payload_type = kind.payload_type == kH264 ? kRtxH264 : kRtxH265;
    bytes packet = rtp_bytes(payload_type, (who & 0x10) != 0, static_cast<uint16_t>(back * 3), from->timestamp,
                             ssrc - kFirstSsrc + kFirstRtxSsrc);
    uint8_t number[2];
    be16_write(number, static_cast<uint16_t>(from->seq - back));
    packet.insert(packet.end(), number, number + ((what & 0x40) != 0 ? 1 : 2));
    append_payload(&packet, kind, size);
    if ((what & 0x80) != 0) {
        append_padding(&packet);
    }
    packet.shrink_to_fit();
    receive(packet, true);
    check_stream(ssrc, 0);
}

void Program::send_raw_rtcp()
{
    const uint8_t size = input_.u8();
    const bytes datagram = input_.bytes(size);
    rtc_channel_receive_rtcp(channel_, datagram.data(), datagram.size(), &now_);
}

void Program::send_rtcp()
{
    const uint8_t who = input_.u8();
    uint32_t ssrc = 0;
    any_sender(who, &ssrc);
    bytes datagram((who & 0x10) != 0 ? 28 : 8);
    datagram[0] = (who & 0x10) != 0 ? 0x80 : 0x81;
    datagram[1] = (who & 0x10) != 0 ? 200 : 203; // a sender report, or a good-bye
    datagram[3] = static_cast<uint8_t>(datagram.size() / 4 - 1);
    be32_write(&datagram[4], ssrc);
    if ((who & 0x10) != 0) {
        be32_write(&datagram[12], input_.u32());
    }
    rtc_channel_receive_rtcp(channel_, datagram.data(), datagram.size(), &now_);
    check_stream(ssrc, 0);
}

void Program::send_native()
{
    const uint8_t who = input_.u8();
    const uint8_t flags = input_.u8();
    const uint8_t kind = input_.u8();
    uint32_t uid = 0;
    sender *from = any_sender(who, &uid);
    PVideoData4 video = {};
    from->frame_seq += (who & 0x10) != 0 ? 1 : 0;
    video.common.uid = uid;
    video.common.sent_ts = static_cast<uint16_t>(now_);
    video.header.frame_seq = (flags & 1) != 0 ? input_.u32() : from->frame_seq + input_.step();
    const uint8_t count = input_.u8();
    video.header.n_pkts = static_cast<uint16_t>(count < 250 ? count : (count - 249) * 256);
    video.header.subseq = (flags & 2) != 0 ? input_.u16() : input_.u8();
    video.common.seq =
        static_cast<seq_t>((flags & 4) != 0 ? input_.u16() : video.header.frame_seq * 4 + video.header.subseq);
    video.header.video_type = (flags & 8) != 0 ? 0x00 : 0x10;
    constexpr uint8_t codecs[] = {VIDEO_TYPE_GENERIC, VIDEO_TYPE_H264, VIDEO_TYPE_H265, VIDEO_TYPE_VP8};
    video.header.codec = codecs[kind & 3];
    video.header.protocol_version = (kind & 4) != 0 ? 9 : 10;
    video.header.reserved = (kind & 0x38u) | ((flags & 0x10) != 0 ? uint32_t{input_.u8()} << 8 : 0);
    const uint8_t size = input_.u8();
    bytes packet = rtp_bytes((kind & 0x40) != 0 ? 116 : kH264, (kind & 0x80) != 0, video.common.seq,
                             video.header.frame_seq * kTimestampStep, uid);
    if ((flags & 0x20) != 0) {
        packet = input_.bytes(size);
    } else {
        append_payload(&packet, kPayloads[size % std::size(kPayloads)], size);
    }
    const uint8_t shape = (flags & 0x80) != 0 ? input_.u8() : 0;
    if ((shape & 0x80) != 0 && !packet.empty()) {
        append_native_padding(&packet, shape);
    }
    const bool is_retrans = (flags & 0x40) != 0;
    const uint8_t stream_id = who >> 5;
    set_buffers(&video, packet, shape & 0x0F);
    const sampled before = sampled_of(channel_, uid, stream_id);
    rtc_channel_receive_native(channel_, &video, stream_id, is_retrans, &now_);
    fuzz::check(video.payload.values == nullptr && video.extension.contents.values == nullptr,
                "a packet is taken over");
    check_sample(before, sampled_of(channel_, uid, stream_id), packet.size(), is_retrans);
    check_stream(uid, stream_id);
}

// The same byte up to the count, as generic payloads are padded, or zeros; with the bit or without.
void Program::append_native_padding(bytes *packet, uint8_t shape) const
{
    const auto count = static_cast<uint8_t>(1 + (shape & 0x0F));
    packet->insert(packet->end(), count - size_t{1}, (shape & 0x20) != 0 ? uint8_t{0} : count);
    packet->push_back(count);
    if ((shape & 0x40) != 0) {
        (*packet)[0] |= 0x20;
    }
}

// Without memory the record has no payload or no extension.
void Program::set_buffers(PVideoData4 *video, const bytes &packet, uint8_t extension_words)
{
    video->payload.values = zeb_malloc_impl_dbg(packet.size(), "packet", __LINE__);
    if (video->payload.values != nullptr && !packet.empty()) {
        memcpy(video->payload.values, packet.data(), packet.size());
        video->payload.count = video->payload.allocated = static_cast<uint16_t>(packet.size());
    }
    const size_t extension_size = extension_words * sizeof(uint32_t);
    if (extension_words != 0) {
        video->extension.contents.values = zeb_malloc_impl_dbg(extension_size, "extension", __LINE__);
    }
    if (video->extension.contents.values != nullptr) {
        memset(video->extension.contents.values, 0xE7, extension_size);
        video->extension.contents.count = video->extension.contents.allocated = extension_words;
    }
    largest_packet_ = std::max(largest_packet_, packet.size() + extension_size);
    packets_since_tick_++;
}

// Many packets in a row: what fills lists and windows.
void Program::send_burst()
{
    const uint8_t who = input_.u8();
    const uint8_t what = input_.u8();
    const uint8_t count = input_.u8();
    uint32_t ssrc = 0;
    sender *from = any_sender(who, &ssrc);
    const payload_kind &kind = kPayloads[(what & 0x1F) % std::size(kPayloads)];
    for (uint8_t i = 0; i < count && n_in_bursts_ < kBurstsMax; i++, n_in_bursts_++) {
        from->timestamp += (who & 0x20) != 0 ? kTimestampStep : 0;
        bytes packet = rtp_bytes(kind.payload_type, (who & 0x10) != 0, from->seq, from->timestamp, ssrc);
        append_payload(&packet, kind, 4);
        from->seq = static_cast<uint16_t>(from->seq + ((what & 0x20) != 0 ? 2 : 1));
        largest_packet_ = std::max(largest_packet_, packet.size());
        packets_since_tick_++;
        now_ += (who & 0x40) != 0 ? 1 : 0;
        bytes_received_ += packet.size();
        rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now_);
        check_delivery_time(ssrc);
    }
    check_stream(ssrc, 0);
}

// Of a sender's numbers and times, or of our own clock: ahead, or to where it began.
void Program::jump()
{
    const uint8_t who = input_.u8();
    uint32_t ssrc = 0;
    sender *from = any_sender(who, &ssrc);
    from->seq = static_cast<uint16_t>(from->seq + input_.u16());
    from->timestamp += (who & 0x10) != 0 ? input_.u32() : 0;
    from->frame_seq += (who & 0x20) != 0 ? input_.u32() : 0;
    now_ += (who & 0x40) != 0 ? input_.u32() : 0;
    now_ = (who & 0x80) != 0 ? input_.u16() : now_;
}

// ---- Everything else ----

void Program::pass_time()
{
    const uint8_t code = input_.u8();
    const zeb_ts_t end = now_ + ((code & 0x80) != 0 ? (code & 0x7Fu) * 50 : code & 0x7Fu);
    const zeb_ts_t step = std::max<zeb_ts_t>((end - now_) / 8, kServiceTickInterval);
    while (now_ < end) {
        now_ = std::min(now_ + step, end);
        const zeb_ts_t next = rtc_service_tick(service_, &now_);
        fuzz::check(next > now_, "the next tick is later");
        check_delivery_times();
    }
    packets_since_tick_ = 0;
    check_all();
}

void Program::wait()
{
    now_ += input_.u8();
}

void Program::describe()
{
    const uint16_t size = input_.u16();
    const bytes text = input_.bytes(size);
    const auto session = std::make_unique<sdp_session>();
    sdp_error error = {};
    if (!sdp_parse(reinterpret_cast<const char *>(text.data()), text.size(), session.get(), &error)) {
        fuzz::check(error.what != nullptr && session->n_videos == 0, "a refusal has a reason");
        return;
    }
    for (size_t i = 0; i < session->n_videos; i++) {
        vrc::session_apply(*session, i, channel_);
    }
}

void Program::set_up()
{
    const uint8_t what = input_.u8();
    const uint8_t first = input_.u8();
    const uint8_t second = input_.u8();
    switch (what & 3) {
    case 0:
        rtc_channel_set_payload_type(channel_, first, second);
        break;
    case 1:
        rtc_channel_set_rtx(channel_, first, second);
        break;
    case 2:
        rtc_channel_pair_ssrc(channel_, kFirstSsrc + first % kSenders, kFirstRtxSsrc + second);
        break;
    default: {
        const bytes nal = input_.bytes(second);
        rtc_channel_set_parameter_set(channel_, first, nal.data(), nal.size());
    }
    }
}

// Not where the rate is estimated: without its statistics object the process ends.
void Program::refuse_memory()
{
    const uint8_t way = input_.u8();
    if ((options_ & 1) == 0) {
        failing_memory::fail(way & 0x7F,
                             (way & 0x80) != 0 ? failing_memory::failing::forever : failing_memory::failing::once);
    }
}

void Program::renew_channel()
{
    rtc_channel_destroy(channel_);
    create_channel();
    key_frame_asked_at_.clear();
    std::fill(std::begin(n_handed_over_), std::end(n_handed_over_), 0);
    check_all();
}

void Program::change_callback()
{
    calls_back_in_ = !calls_back_in_;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_log_enable = 0;
    for (const size_t packet : {size_t{1500}, size_t{65535}}) {
        std::fprintf(
            stderr, "a stream of packets of %zu bytes holds at most %zu bytes (RTP) or %zu (native), a call %zu more\n",
            packet, fuzz::rtp_stream_budget(packet, 0), fuzz::native_stream_budget(packet), fuzz::call_budget(packet));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    failing_memory::fail(0, failing_memory::failing::once);
    Program(input).run();
    return 0;
}
