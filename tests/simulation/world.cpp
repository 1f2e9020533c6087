#include "world.h"

#include <algorithm>
#include <cstdio>

#include "byte_order.h"
#include "failing_memory.h"
#include "rtp.h"
#include "test_stream.h"

namespace simulation
{

namespace
{

constexpr zeb_ts_t kPatience = 2000;          // ms, the client's for an incomplete frame
constexpr zeb_ts_t kNativeRequestPause = 300; // ms, the application's for key frames of native streams
constexpr zeb_ts_t kCleanLength = 7000;       // ms
constexpr size_t kFindingsMax = 20;           // kept of a run
constexpr size_t kPresentMax = 3;             // senders at a time

uint64_t mixed(uint64_t digest, uint64_t value)
{
    return (digest ^ value) * 0x100000001B3u;
}

} // namespace

World::World(const world_settings &settings) : settings_(settings), random_(settings.seed * 0x10001 + 7)
{
}

world_result World::run()
{
    const zeb_ts_t end = now_ + settings_.length;
    const long before = failing_memory::in_use();
    service_ = rtc_service_create();
    floor_ = failing_memory::in_use();
    while (now_ < end) {
        const zeb_ts_t rest = end - now_;
        const zeb_ts_t drawn = random_.between(settings_.call_max / 3, settings_.call_max);
        run_call(std::min(rest, drawn));
    }
    rtc_service_destroy(service_);
    if (failing_memory::in_use() != before) {
        find("blocks are in use behind the service's end");
    }
    return result_;
}

void World::find(const std::string &what)
{
    if (result_.findings.size() < kFindingsMax) {
        result_.findings.push_back("at " + std::to_string(now_) + ": " + what);
    }
}

void World::at(zeb_ts_t when, std::function<void()> what)
{
    events_.push({when, order_++, std::move(what)});
}

// ---- Calls ----

void World::run_call(zeb_ts_t length)
{
    result_.calls++;
    end_ = now_ + length;
    open_channel();
    is_clean_ = false;
    way_back_ = std::make_unique<Link>(settings_.kind->link, random_.next());
    schedule_phases(end_);
    for (uint64_t n = random_.happens(0.2) ? 2 : 1; n > 0; n--) {
        join();
    }
    tick_at_ = now_;
    while (now_ < end_) {
        const zeb_ts_t next = events_.empty() ? tick_at_ : std::min(events_.top().at, tick_at_);
        now_ = std::max(now_, next);
        run_events();
        tick_at_ = std::min(tick_at_, std::max(rtc_service_next_at(service_), now_));
        if (now_ >= tick_at_) {
            tick();
        }
    }
    close_channel();
}

void World::run_events()
{
    while (!events_.empty() && events_.top().at <= now_) {
        // The queue would copy its packets.
        const std::function<void()> what = std::move(const_cast<event &>(events_.top()).what);
        events_.pop();
        what();
    }
}

void World::tick()
{
    tick_at_ = rtc_service_tick(service_, &now_);
    for (auto &[uid, present] : members_) {
        if (present.sender->settings.is_native) {
            ask_for_native(&present);
        }
    }
    if (++n_calls_of_client_ % settings_.check_every == 0) {
        for (const auto &[uid, present] : members_) {
            look_at(*present.sender);
        }
    }
}

void World::open_channel()
{
    agreed_ = {};
    agreed_.nack = random_.happens(0.75);
    agreed_.pli = random_.happens(0.8);
    agreed_.fir = random_.happens(0.2);
    agreed_.reports = random_.happens(0.5);
    agreed_.remb = random_.happens(0.2);
    agreed_.reduced_size = random_.happens(0.5);
    agreed_.give_up_early = random_.happens(0.5);
    channel_config config = {};
    config.name = "simulation";
    config.enable_bandwidth_est_downlink = agreed_.remb;
    config.on_frame = &World::on_frame;
    config.on_frame_context = this;
    config.feedback = agreed_;
    config.on_rtcp = &World::on_rtcp;
    config.on_rtcp_context = this;
    config.local_ssrc = 0x00C0FFEE;
    config.cname = "simulation@test";
    channel_ = rtc_channel_create(service_, &config);
    for (const uint8_t type : {kPayloadTypeH264, kPayloadTypeH265}) {
        rtc_channel_set_payload_type(channel_, type, type == kPayloadTypeH264 ? VIDEO_TYPE_H264 : VIDEO_TYPE_H265);
        rtc_channel_set_rtx(channel_, static_cast<uint8_t>(type + 1), type);
    }
    describe_sets();
}

// A changed packet may bring others, so that a path which lets those through has none.
void World::describe_sets()
{
    described_.clear();
    for (const uint8_t codec : {uint8_t{VIDEO_TYPE_H264}, uint8_t{VIDEO_TYPE_H265}}) {
        if (settings_.kind->link.corrupted_arrive || !random_.happens(0.2)) {
            continue;
        }
        described_[codec] = Encoder::make_parameter_sets(codec, &random_);
        for (const bytes &set : described_[codec]) {
            rtc_channel_set_parameter_set(channel_, codec, set.data(), set.size());
        }
    }
}

void World::close_channel()
{
    rtc_channel_destroy(channel_);
    channel_ = nullptr;
    events_ = {};
    for (const auto &[uid, past] : members_) {
        result_.shortened += past.sender->ledger.n_shortened();
    }
    members_.clear();
    native_requests_.clear();
    strangers_.clear();
    check_floor();
}

// What the service keeps are the records of streams that went, for the next ones.
void World::check_floor()
{
    const auto pooled = static_cast<long>(service_->free_user_video_streams.count);
    if (failing_memory::in_use() != floor_ + pooled) {
        find(std::to_string(failing_memory::in_use() - floor_ - pooled) + " blocks are left of a call");
    }
}

// ---- Senders ----

encoder_settings World::draw_encoder(bool is_native, double fps)
{
    constexpr uint8_t rtp_codecs[] = {VIDEO_TYPE_H264, VIDEO_TYPE_H264, VIDEO_TYPE_H265};
    constexpr uint8_t native_codecs[] = {VIDEO_TYPE_H264, VIDEO_TYPE_H265, VIDEO_TYPE_GENERIC};
    encoder_settings drawn;
    drawn.codec = is_native ? random_.one_of(native_codecs) : random_.one_of(rtp_codecs);
    const double kbps = random_.real(settings_.kind->kbps_min, settings_.kind->kbps_max);
    drawn.mean_bytes = kbps * 125 / fps;
    drawn.spread = random_.real(0.1, 0.7);
    drawn.key_scale = random_.real(3, 10);
    drawn.payload_max = random_.between(300, 1180);
    drawn.slices = static_cast<unsigned>(random_.between(1, 3));
    drawn.delimits = random_.happens(0.3);
    drawn.comments = random_.happens(0.3);
    drawn.aggregates = random_.happens(0.7);
    if (!is_native && described_.count(drawn.codec) != 0) {
        drawn.described_sets = described_[drawn.codec];
    }
    return drawn;
}

sender_settings World::draw_sender()
{
    constexpr double rates[] = {10, 10, 10, 12, 15, 15, 25, 30};
    constexpr repair repairs[] = {repair::none, repair::plain, repair::flagged, repair::rtx, repair::rtx};
    sender_settings drawn;
    do {
        drawn.uid = static_cast<uint32_t>(random_.next());
    } while (members_.count(drawn.uid) != 0);
    drawn.is_native = random_.happens(0.25);
    drawn.stream_id = drawn.is_native ? static_cast<uint8_t>(random_.below(4)) : uint8_t{0};
    drawn.fps = random_.one_of(rates);
    drawn.encoder = draw_encoder(drawn.is_native, drawn.fps);
    drawn.fec = random_.happens(0.4) ? random_.real(0.1, 0.5) : 0;
    const bool is_asked = drawn.is_native || agreed_.pli || agreed_.fir;
    drawn.key_every = is_asked && random_.happens(0.6) ? 0 : random_.between(1000, 2500);
    drawn.key_pause = random_.happens(0.5) ? 0 : 300;
    drawn.repairs = agreed_.nack ? random_.one_of(repairs) : repair::none;
    drawn.is_rtx_paired = random_.happens(0.7);
    drawn.probes = random_.happens(0.4) ? random_.real(0, 0.2) : 0;
    drawn.keeps_probes = random_.happens(0.5);
    drawn.extension_words = static_cast<int>(random_.between(0, 3)) - 1;
    return drawn;
}

void World::announce(const Sender &sender)
{
    const sender_settings &of = sender.settings;
    if (of.repairs == repair::rtx && of.is_rtx_paired) {
        rtc_channel_pair_ssrc(channel_, of.uid, rtx_ssrc_of(of.uid));
    }
}

size_t World::count_present() const
{
    return static_cast<size_t>(std::count_if(members_.begin(), members_.end(),
                                             [](const auto &entry) { return !entry.second.sender->has_left(); }));
}

// A sender comes, and one more later, as long as the call lasts.
void World::join()
{
    if (count_present() < kPresentMax) {
        const sender_settings drawn = draw_sender();
        member &joined = members_[drawn.uid];
        joined.sender = make_sender(drawn, random_.next(), now_);
        joined.link = std::make_unique<Link>(settings_.kind->link, random_.next());
        joined.link->set_clean(is_clean_);
        announce(*joined.sender);
        result_.senders++;
        schedule_frame(&joined);
        schedule_fate(&joined);
    }
}

void World::schedule_frame(member *of)
{
    at(of->sender->next_at(), [this, of] {
        if (of->sender->has_left()) {
            return;
        }
        for (const wire_packet &packet : of->sender->send(now_)) {
            transmit(of, packet, 0);
        }
        result_.frames_sent++;
        schedule_frame(of);
    });
}

// Leaving, with a word or without, when another comes; and on the way there, numbering anew and falling silent. A clean
// phase is not disturbed.
void World::schedule_fate(member *of)
{
    const preset &kind = *settings_.kind;
    at(now_ + random_.between(kind.stay / 3, kind.stay * 5 / 3), [this, of] {
        of->sender->leave();
        if (random_.happens(0.5)) {
            say_bye(of);
        }
        join();
    });
    const auto again = [this, of](zeb_ts_t every, const std::function<void()> &what, const auto &self) -> void {
        at(now_ + random_.between(every / 3, every * 5 / 3), [this, of, every, what, self] {
            if (of->sender->has_left()) {
                return;
            }
            if (!is_clean_) {
                what();
            }
            self(every, what, self);
        });
    };
    if (kind.restart_every != 0) {
        again(
            kind.restart_every,
            [this, of] {
                of->sender->restart(random_.happens(0.7));
                of->sender->disturbed_at = now_;
            },
            again);
    }
    if (kind.pause_every != 0) {
        again(
            kind.pause_every, [this, of] { of->sender->pause(now_ + random_.between(200, 8000)); }, again);
    }
}

void World::say_bye(member *of)
{
    bytes bye = {0x81, 203, 0, 1};
    rtp_builder::append_number(bye, of->sender->settings.uid, 4);
    at(now_ + of->link->one_way(), [this, bye] { rtc_channel_receive_rtcp(channel_, bye.data(), bye.size(), &now_); });
}

// ---- The paths ----

void World::transmit(member *of, const wire_packet &packet, int tries)
{
    constexpr int tries_max = 3; // below the native path
    const std::vector<passage> passages = of->link->send(packet.data.size() + 28, now_);
    for (const passage &copy : passages) {
        wire_packet arriving = packet;
        if (copy.is_corrupted) {
            corrupt(&arriving);
        }
        at(copy.at, [this, arriving = std::move(arriving)] { arrive(arriving); });
    }
    if (passages.empty() && packet.is_native && tries < tries_max) {
        wire_packet repeated = packet;
        repeated.is_retrans = true;
        at(now_ + 2 * of->link->one_way() + 20, [this, of, repeated, tries] { transmit(of, repeated, tries + 1); });
    }
}

// Changes one to four bytes, mostly of the headers, and notes which frames that makes doubtful.
void World::corrupt(wire_packet *packet)
{
    Ledger &ledger = member_of(packet->uid)->sender->ledger;
    ledger.taint(packet->name);
    for (uint64_t n = random_.between(1, 4); n > 0; n--) {
        const size_t range = random_.happens(0.6) ? std::min<size_t>(20, packet->data.size()) : packet->data.size();
        packet->data[random_.below(range)] ^= static_cast<uint8_t>(1u << random_.below(8));
    }
    if (packet->is_native) {
        auto *header = reinterpret_cast<uint8_t *>(&packet->header);
        header[random_.below(sizeof packet->header)] ^= static_cast<uint8_t>(1u << random_.below(8));
        ledger.taint(packet->header.frame_seq);
        return;
    }
    const uint8_t *from = packet->data.data();
    ledger.taint(be32_read(from + 4));
    ledger.taint_seq(be16_read(from + 2));
    strangers_.insert({be32_read(from + 8), be32_read(from + 4)});
    rtp_view view;
    if (rtp_parse(from, packet->data.size(), &view) == PACKET_DROP_REASONS && view.payload_size >= 2) {
        ledger.taint_seq(be16_read(from + view.header_size)); // as a retransmission names it
    }
}

PVideoData4 World::native_record(const wire_packet &packet) const
{
    PVideoData4 video = {};
    video.common = packet.common;
    video.header = packet.header;
    video.payload.values = zeb_malloc_impl_dbg(packet.data.size(), "simulation", __LINE__);
    std::copy(packet.data.begin(), packet.data.end(), static_cast<uint8_t *>(video.payload.values));
    video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.data.size());
    return video;
}

void World::arrive(const wire_packet &packet)
{
    result_.packets++;
    trace(packet);
    if (packet.is_native) {
        PVideoData4 video = native_record(packet);
        rtc_channel_receive_native(channel_, &video, packet.stream_id, packet.is_retrans, &now_);
    } else {
        rtc_channel_receive_rtp(channel_, packet.data.data(), packet.data.size(), packet.is_retrans, &now_);
    }
    if (++n_calls_of_client_ % settings_.check_every == 0) {
        look_at(*member_of(packet.uid)->sender);
    }
}

void World::answer(const bytes &datagram)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    rtcp_item item;
    while (rtcp_next(&cursor, &item)) {
        if (item.kind == RTCP_ITEM_PLI || item.kind == RTCP_ITEM_FIR) {
            const uint32_t ssrc =
                item.kind == RTCP_ITEM_PLI ? item.pli.media_ssrc : rtcp_fir_at(&item.fir.entries, 0).ssrc;
            if (member *of = member_of(ssrc)) {
                of->sender->ask_key_frame();
            }
        } else if (item.kind == RTCP_ITEM_NACK) {
            answer_nack(member_of(item.nack.media_ssrc), item.nack);
        }
    }
}

void World::answer_nack(member *of, const rtcp_nack &nack)
{
    if (of == nullptr || of->sender->has_left()) {
        return;
    }
    rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
    seq_t seq = 0;
    while (rtcp_nack_next(&cursor, &seq)) {
        for (const wire_packet &packet : of->sender->send_again(seq)) {
            transmit(of, packet, 0);
        }
    }
}

// Native streams have no RTCP: the application sees that a key frame is wanted and passes it on.
void World::ask_for_native(member *of)
{
    const sender_settings &settings = of->sender->settings;
    const stream_report *report =
        rtc_channel_stream_report(rtc_channel_find_stream(channel_, settings.uid, settings.stream_id));
    auto &[seen, next_at] = native_requests_[settings.uid];
    if (report == nullptr || report->key_frame_requests == seen || now_ < next_at) {
        return;
    }
    seen = report->key_frame_requests;
    next_at = now_ + kNativeRequestPause;
    for (const passage &copy : way_back_->send(100, now_)) {
        at(copy.at, [of] { of->sender->ask_key_frame(); });
    }
}

// ---- Phases ----

void World::schedule_phases(zeb_ts_t end)
{
    zeb_ts_t when = now_;
    while (true) {
        when += random_.between(settings_.bad_min, settings_.bad_max);
        if (when + kCleanLength >= end) {
            return;
        }
        at(when, [this] { set_clean(true); });
        when += kCleanLength;
        at(when, [this] {
            check_flow();
            set_clean(false);
        });
    }
}

void World::set_clean(bool is_clean)
{
    is_clean_ = is_clean;
    way_back_->set_clean(is_clean);
    for (auto &[uid, present] : members_) {
        present.link->set_clean(is_clean);
        // What the bad path still holds may stand in a queue.
        present.healed_at = std::max(now_, present.link->latest());
    }
}

// How long frames may stay out after the path healed: the patience and one round trip of a key frame, from the request
// to the sender's next picture.
zeb_ts_t World::patience_of(const member &of) const
{
    const sender_settings &settings = of.sender->settings;
    const auto frame = static_cast<zeb_ts_t>(1000 / settings.fps) + 1;
    const bool is_asked = settings.is_native || agreed_.pli || agreed_.fir;
    const zeb_ts_t request = settings.is_native ? kNativeRequestPause : 0;
    const zeb_ts_t key = is_asked ? request + 2 * of.link->one_way() + settings.key_pause : settings.key_every;
    return kPatience + key + 2 * frame + 2 * kServiceTickInterval;
}

void World::check_flow()
{
    for (const auto &[uid, present] : members_) {
        if (!present.sender->has_left() && !settings_.kind->link.corrupted_arrive) {
            check_flow_of(present, now_);
        }
    }
}

// From then on every frame has to come out. The last ones may still be under way.
void World::check_flow_of(const member &of, zeb_ts_t end)
{
    const zeb_ts_t healed = std::max(of.healed_at, of.sender->disturbed_at);
    const zeb_ts_t from = healed + patience_of(of);
    const zeb_ts_t to = end - of.link->one_way() - 300;
    if (from >= to) {
        return;
    }
    result_.heals++;
    std::string first;
    const size_t n = of.sender->ledger.count_missing(from, to, &first);
    if (n > 0) {
        find("sender " + std::to_string(of.sender->settings.uid) + ": " + std::to_string(n) +
             " frames did not come out after the path healed at " + std::to_string(healed) + ": " + first);
    }
}

// ---- The application ----

void World::trace(const wire_packet &packet) const
{
    if (packet.uid != settings_.traced) {
        return;
    }
    rtp_view view = {};
    const bool is_rtp = rtp_parse(packet.data.data(), packet.data.size(), &view) == PACKET_DROP_REASONS;
    std::printf("%llu packet %u%s%s of frame %u", static_cast<unsigned long long>(now_), packet.seq,
                packet.is_retrans ? " again" : "", is_rtp ? "" : " damaged", packet.name);
    if (packet.is_native) {
        std::printf(", %u of %u\n", packet.header.subseq, packet.header.n_pkts);
    } else {
        std::printf(", type %u, %zu bytes, begins %02x%s\n", view.payload_type, view.payload_size,
                    view.payload_size > 0 ? packet.data[view.header_size] : 0, view.marker ? ", marker" : "");
    }
}

void World::trace(const channel_frame &frame) const
{
    if (frame.uid == settings_.traced) {
        std::printf("%llu %s of %zu bytes, packets %u to %u\n", static_cast<unsigned long long>(now_),
                    frame.is_key ? "KEY FRAME" : "FRAME", frame.size, frame.first_seq, frame.last_seq);
    }
}

World::member *World::member_of(uint32_t uid)
{
    const auto found = members_.find(uid);
    return found == members_.end() ? nullptr : &found->second;
}

void World::take_frame(const channel_frame &frame)
{
    result_.frames++;
    trace(frame);
    member *of = member_of(frame.uid);
    const uint32_t name = of != nullptr && of->sender->settings.is_native ? frame.frame_seq : frame.rtp_timestamp;
    result_.digest = mixed(mixed(mixed(mixed(result_.digest, now_), frame.uid), name), frame.size);
    if (of == nullptr) {
        if (strangers_.count({frame.uid, name}) == 0) {
            find("a frame of " + std::to_string(frame.uid) + ", who never sent one");
        }
        return;
    }
    const std::string wrong = of->sender->ledger.take(frame, name);
    if (!wrong.empty()) {
        find("sender " + std::to_string(frame.uid) + ": " + wrong);
    }
}

void World::look_at(const Sender &sender)
{
    const user_video_stream *stream = rtc_channel_find_stream(channel_, sender.settings.uid, sender.settings.stream_id);
    if (stream == nullptr) {
        return;
    }
    result_.checks++;
    const std::string broken = test_support::broken_invariants(*stream);
    if (!broken.empty()) {
        find("stream of " + std::to_string(sender.settings.uid) + ": " + broken);
    }
}

void World::on_frame(void *context, const channel_frame *frame)
{
    static_cast<World *>(context)->take_frame(*frame);
}

void World::on_rtcp(void *context, const uint8_t *datagram, size_t size)
{
    auto *self = static_cast<World *>(context);
    const bytes copy(datagram, datagram + size);
    for (const passage &passed : self->way_back_->send(size + 28, self->now_)) {
        if (!passed.is_corrupted) {
            self->at(passed.at, [self, copy] { self->answer(copy); });
        }
    }
}

} // namespace simulation
