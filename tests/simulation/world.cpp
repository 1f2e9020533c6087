#include "world.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "blocks.h"
#include "failing_memory.h"
#include "session/user.h"
#include "test_stream.h"
#include "wire/byte_order.h"
#include "wire/rtp.h"

namespace simulation
{

namespace
{

constexpr zeb_ts_t kPatience = 2000;          // ms, the client's for an incomplete frame
constexpr zeb_ts_t kNativeRequestPause = 300; // ms, the application's for key frames of native streams
constexpr zeb_ts_t kCleanLength = 7000;       // ms
constexpr size_t kFindingsMax = 40;           // kept of a run
constexpr size_t kFindingsOfKindMax = 4;      // of those
constexpr size_t kPresentMax = 3;             // senders at a time

// When a run begins: also shortly before a clock of milliseconds has more than 32 bits.
constexpr zeb_ts_t kBegins[] = {1000000, 1, 0xFFFFFFFFu - 40000u, zeb_ts_t{1} << 41};

uint64_t mixed(uint64_t digest, uint64_t value)
{
    return (digest ^ value) * 0x100000001B3u;
}

} // namespace

World::World(const world_settings &settings) : settings_(settings), random_(settings.seed * 0x10001 + 7)
{
    now_ = random_.one_of(kBegins);
    terms_.kind = settings_.kind;
}

world_result World::run()
{
    world_end_ = now_ + settings_.length;
    before_ = failing_memory::in_use();
    service_ = rtc_service_create();
    take_samples();
    while (now_ < world_end_) {
        const zeb_ts_t rest = world_end_ - now_;
        const zeb_ts_t drawn = random_.between(settings_.call_max / 3, settings_.call_max);
        run_call(std::min(rest, drawn));
    }
    rtc_service_destroy(service_);
    if (failing_memory::in_use() != before_) {
        find("blocks are in use behind the service's end");
    }
    return result_;
}

// A few of each kind: findings that differ in numbers alone are of one.
void World::find(const std::string &what)
{
    std::string kind = what;
    kind.erase(std::remove_if(kind.begin(), kind.end(), [](char c) { return c >= '0' && c <= '9'; }), kind.end());
    if (result_.findings.size() < kFindingsMax && found_[kind]++ < kFindingsOfKindMax) {
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
    way_back_->set_clean(settings_.kind->repairs_all);
    schedule_phases(end_);
    schedule_suspends();
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
        check_delivery_time(present);
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
    channel_feedback &agreed = terms_.agreed;
    agreed = {};
    agreed.nack = random_.happens(0.75);
    agreed.pli = random_.happens(0.8);
    agreed.fir = random_.happens(0.2);
    agreed.reports = random_.happens(0.5);
    agreed.remb = random_.happens(0.2);
    agreed.reduced_size = random_.happens(0.5);
    agreed.give_up_early = random_.happens(0.5);
    if (settings_.kind->repairs_all) {
        agreed.nack = true;
        agreed.give_up_early = false;
    }
    channel_config config = {};
    config.name = "simulation";
    config.enable_bandwidth_est_downlink = agreed.remb;
    config.on_frame = &World::on_frame;
    config.on_frame_context = this;
    config.feedback = agreed;
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
    terms_.described.clear();
    for (const uint8_t codec : {uint8_t{VIDEO_TYPE_H264}, uint8_t{VIDEO_TYPE_H265}}) {
        if (settings_.kind->link.corrupted_arrive || !random_.happens(0.2)) {
            continue;
        }
        terms_.described[codec] = Encoder::make_parameter_sets(codec, &random_);
        for (const bytes &set : terms_.described[codec]) {
            rtc_channel_set_parameter_set(channel_, codec, set.data(), set.size());
        }
    }
}

void World::close_channel()
{
    check_call();
    rtc_channel_destroy(channel_);
    channel_ = nullptr;
    events_ = {};
    for (const auto &[uid, past] : members_) {
        result_.shortened += past.sender->ledger.n_shortened();
    }
    members_.clear();
    native_requests_.clear();
    strangers_.clear();
    check_blocks();
}

// What is allocated is what hangs from the service.
void World::check_blocks()
{
    const long surplus = failing_memory::in_use() - before_ - count_blocks(*service_, channel_);
    if (surplus != 0) {
        find(std::to_string(surplus) + " blocks are in use that nothing of the service holds");
        before_ += surplus; // is said once
    }
}

// ---- Senders ----

uint32_t World::draw_uid()
{
    uint32_t uid = 0;
    do {
        uid = static_cast<uint32_t>(random_.next());
    } while (members_.count(uid) != 0);
    return uid;
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
        sender_settings drawn = draw_sender(terms_, &random_);
        drawn.uid = draw_uid();
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

// Leaving, with a word or without, when another comes; and on the way there, numbering anew, falling silent and sending
// what it must not.
void World::schedule_fate(member *of)
{
    const preset &kind = *settings_.kind;
    at(now_ + random_.between(kind.stay / 3, kind.stay * 5 / 3), [this, of] {
        check_report(of);
        of->sender->leave();
        if (random_.happens(0.5)) {
            say_bye(of);
        }
        join();
    });
    schedule_again(of, kind.restart_every, [this, of] {
        of->sender->restart(random_.happens(0.7));
        of->sender->disturbed_at = now_;
    });
    schedule_again(of, kind.pause_every, [this, of] { of->sender->pause(now_ + random_.between(200, 8000)); });
    schedule_again(of, of->sender->settings.spoils_every, [this, of] {
        of->sender->spoil_next();
        of->sender->disturbed_at = now_;
        result_.spoiled++;
    });
}

// Again and again, about `every` milliseconds (0: never). A clean phase is not disturbed.
void World::schedule_again(member *of, zeb_ts_t every, const std::function<void()> &what)
{
    if (every == 0) {
        return;
    }
    at(now_ + random_.between(every / 3, every * 5 / 3), [this, of, every, what] {
        if (of->sender->has_left()) {
            return;
        }
        if (!is_clean_) {
            what();
        }
        schedule_again(of, every, what);
    });
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
    const bool is_surely_there = settings_.kind->repairs_all && tries > 0;
    const std::vector<passage> passages = is_surely_there ? std::vector<passage>{{now_ + of->link->one_way(), false}}
                                                          : of->link->send(packet.data.size() + 28, now_);
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
    packet->is_changed = true;
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
    if (!packet.extension.empty()) {
        const size_t size = packet.extension.size() * sizeof(uint32_t);
        uint32_vector_t &words = video.extension.contents;
        words.values = zeb_malloc_impl_dbg(size, "simulation", __LINE__);
        std::memcpy(words.values, packet.extension.data(), size);
        words.count = words.allocated = static_cast<uint16_t>(packet.extension.size());
    }
    return video;
}

int World::give(const wire_packet &packet)
{
    if (packet.is_native) {
        PVideoData4 video = native_record(packet);
        return rtc_channel_receive_native(channel_, &video, packet.stream_id, packet.is_retrans, &now_);
    }
    return rtc_channel_receive_rtp(channel_, packet.data.data(), packet.data.size(), packet.is_retrans, &now_);
}

void World::arrive(const wire_packet &packet)
{
    result_.packets++;
    trace(packet);
    const int taken = give(packet);
    check_samples(packet);
    check_delivery_time(*member_of(packet.uid));
    if (taken == 0 && !packet.is_changed) {
        forge(packet);
    }
    if (++n_calls_of_client_ % settings_.check_every == 0) {
        look_at(*member_of(packet.uid)->sender);
    }
}

// A packet with other parameter sets than the sender's: with a number that was taken, or far from all others.
wire_packet World::forged_of(const wire_packet &packet)
{
    constexpr uint16_t far = 16000;
    const encoder_settings &encoder = member_of(packet.uid)->sender->settings.encoder;
    const bool is_stray = random_.happens(0.3);
    rtp_builder::rtp_fields fields;
    fields.seq = static_cast<seq_t>(packet.seq + (is_stray ? random_.between(far, 2 * far) : 0));
    fields.timestamp = packet.name;
    fields.ssrc = packet.uid;
    fields.payload_type = encoder.codec == VIDEO_TYPE_H265 ? kPayloadTypeH265 : kPayloadTypeH264;
    const std::vector<bytes> sets = Encoder::make_parameter_sets(encoder.codec, &random_);
    packetizer_settings cut = encoder.packetizer;
    cut.together_max = sets.size();
    cut.payload_max = 1000;
    fields.payload =
        random_.happens(0.5) ? sets[random_.below(sets.size())] : packetize(cut, encoder.codec, sets, &random_)[0];
    wire_packet forged = packet;
    forged.is_changed = true;
    forged.is_retrans = false;
    forged.data = rtp_builder::rtp_packet(fields);
    return forged;
}

// A stranger sees the packet and sends his own behind it. While the sender's is kept as a stray it has no number yet.
void World::forge(const wire_packet &packet)
{
    const stream_state *state = stream_state_of(rtc_channel_find_stream(channel_, packet.uid, packet.stream_id));
    const bool is_media = !packet.is_native && !packet.is_rtx;
    if (!is_media || !random_.happens(settings_.kind->forged) || state == nullptr || state->stray.packets.count != 0) {
        return;
    }
    const Sender &sender = *member_of(packet.uid)->sender;
    at(now_ + random_.between(0, 100), [this, &sender, n = sender.n_restarts(), forged = forged_of(packet)] {
        if (sender.n_restarts() == n && !sender.has_left()) {
            result_.forged++;
            give(forged);
            check_samples(forged);
        }
    });
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
            transmit(of, packet, 1);
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
    way_back_->set_clean(is_clean || settings_.kind->repairs_all);
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
    const bool is_asked = settings.is_native || terms_.agreed.pli || terms_.agreed.fir;
    const zeb_ts_t request = settings.is_native ? kNativeRequestPause : 0;
    const zeb_ts_t key = is_asked ? request + 2 * of.link->one_way() + settings.key_pause : settings.key_every;
    return kPatience + key + 2 * frame + 2 * kServiceTickInterval;
}

// The clock is set ahead, as when the client's machine slept; the senders' clocks are too, or not. Everything goes on from
// where it stood.
void World::suspend()
{
    constexpr zeb_ts_t spans[] = {1500, 6000, 60000, 1800000, 6 * 3600000};
    const zeb_ts_t most = random_.one_of(spans);
    const zeb_ts_t span = random_.between(most / 4, most);
    const bool with_senders = random_.happens(0.5);
    std::priority_queue<event> later;
    for (; !events_.empty(); events_.pop()) {
        event moved = std::move(const_cast<event &>(events_.top()));
        moved.at += span;
        later.push(std::move(moved));
    }
    events_ = std::move(later);
    now_ += span;
    end_ += span;
    world_end_ += span;
    tick_at_ = now_;
    way_back_->shift(span);
    for (auto &[uid, present] : members_) {
        present.link->shift(span);
        present.sender->shift(span, with_senders);
        present.sender->ledger.forget_given_sets();
        present.sender->disturbed_at = now_;
    }
    result_.suspends++;
}

void World::schedule_suspends()
{
    const zeb_ts_t every = settings_.kind->suspend_every;
    if (every == 0) {
        return;
    }
    at(now_ + random_.between(every / 3, every * 5 / 3), [this] {
        if (!is_clean_) {
            suspend();
        }
        schedule_suspends();
    });
}

void World::check_flow()
{
    check_blocks();
    for (auto &[uid, present] : members_) {
        check_report(&present);
    }
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

const stream_report *World::report_of(const member &of) const
{
    const sender_settings &settings = of.sender->settings;
    return rtc_channel_stream_report(rtc_channel_find_stream(channel_, settings.uid, settings.stream_id));
}

// What the client counted is what came out. A sender that was silent for long may have got a new record.
void World::check_report(member *of)
{
    const stream_report *report = report_of(*of);
    if (report == nullptr || of->sender->has_left()) {
        return;
    }
    const std::string who = "sender " + std::to_string(of->sender->settings.uid) + ": ";
    const uint64_t n_out = of->sender->ledger.n_out();
    if (report->first_packet_at != of->reported_since) {
        of->reported_since = report->first_packet_at;
        of->n_out_unreported = n_out - report->frames;
    }
    if (report->frames != n_out - of->n_out_unreported) {
        find(who + std::to_string(report->frames) + " frames counted of " +
             std::to_string(n_out - of->n_out_unreported) + " that came out");
    }
    const bool is_honest = of->sender->settings.spoils_every == 0 && !settings_.kind->link.corrupted_arrive;
    const uint64_t n_refused =
        report->frames_dropped[FRAME_DROP_NOT_ASSEMBLED] + report->frames_dropped[FRAME_DROP_MALFORMED];
    if (is_honest && n_refused != 0) {
        find(who + std::to_string(n_refused) + " frames counted as malformed or not assembled");
    }
    if (is_honest && is_lossless(*settings_.kind)) {
        check_all_came_out(*of);
    }
}

// Nothing was lost, so that every frame has come out and nothing counts as lost. The last ones may still be under way.
void World::check_all_came_out(const member &of)
{
    const stream_report *report = report_of(of);
    const std::string who = "sender " + std::to_string(of.sender->settings.uid) + ": ";
    std::string first;
    const zeb_ts_t under_way = settings_.kind->repairs_all ? kPatience + of.link->one_way() : of.link->one_way() + 300;
    const size_t n = of.sender->ledger.count_missing(now_ - std::min(now_, under_way), &first);
    if (of.sender->ledger.first_out() != 0 && !settings_.kind->repairs_all) {
        find(who + "its first " + std::to_string(of.sender->ledger.first_out()) + " frames did not come out");
    }
    if (n > 0) {
        find(who + std::to_string(n) + " frames did not come out though nothing was lost: " + first);
    }
    const uint64_t n_dropped =
        std::accumulate(std::begin(report->frames_dropped), std::end(report->frames_dropped), uint64_t{0});
    const uint64_t n_lost = settings_.kind->repairs_all ? 0 : report->packets_lost;
    if (n_dropped != 0 || n_lost != 0) {
        find(who + std::to_string(n_dropped) + " frames dropped and " + std::to_string(n_lost) +
             " packets counted as lost though nothing was");
    }
}

// At its end: packets that no sender sends were refused, and none else.
void World::check_call()
{
    for (auto &[uid, present] : members_) {
        check_report(&present);
    }
    const uint64_t *refused = rtc_channel_packets_refused(channel_);
    const uint64_t n = std::accumulate(refused, refused + PACKET_DROP_UNKNOWN_PAYLOAD_TYPE, uint64_t{0});
    if (n != 0 && !settings_.kind->link.corrupted_arrive) {
        find(std::to_string(n) + " packets refused at the door");
    }
}

// The cache's patience for the next frame begins when a frame goes out, whenever that one's packets came.
void World::check_delivery_time(const member &of)
{
    const sender_settings &settings = of.sender->settings;
    const user_video_stream *stream = rtc_channel_find_stream(channel_, settings.uid, settings.stream_id);
    if (settings.is_native || of.out_at != now_ || stream == nullptr) {
        return;
    }
    const webrtc_video_cache_t &cache = stream->video_cache_q;
    if (cache.last_deliver_pkt_seq <= UINT16_MAX && cache.last_deliver_frm_ts != now_) {
        find("sender " + std::to_string(settings.uid) + ": a frame went out as of " +
             std::to_string(cache.last_deliver_frm_ts));
    }
}

// A sample is the packet as it was received; one that repeats another is that one but for its size.
void World::check_samples(const wire_packet &packet)
{
    const std::vector<received_sample> samples = take_samples();
    const bool is_repeated = packet.is_rtx;
    for (const received_sample &sample : samples) {
        const seq_t seq = is_repeated ? packet.seq : be16_read(&packet.data[2]);
        const bool is_seq = sample.seq == seq || (is_repeated && packet.is_changed);
        const bool is_time = sample.now == now_ && sample.timestamp == be32_read(&packet.data[4]);
        if (sample.size != packet.data.size() || !is_time || !is_seq) {
            find("sampled as packet " + std::to_string(sample.seq) + " of " + std::to_string(sample.size) +
                 " bytes with timestamp " + std::to_string(sample.timestamp) + ": packet " +
                 std::to_string(packet.seq) + " of " + std::to_string(packet.data.size()) + " bytes with timestamp " +
                 std::to_string(be32_read(&packet.data[4])));
        }
    }
    result_.samples += samples.size();
    const size_t n_due = terms_.agreed.remb && packet.stream_id == 0 ? 1 : 0; // of others there are none
    const bool is_exact = !packet.is_changed && !is_repeated && !settings_.kind->link.corrupted_arrive;
    if (samples.size() > n_due || (is_exact && samples.size() != n_due)) {
        find(std::to_string(samples.size()) + " samples of packet " + std::to_string(packet.seq));
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
    of->out_at = now_;
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
